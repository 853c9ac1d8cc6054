// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

#include "engine/run_model.h"

namespace qf::writers::pdf {

// The denial bits of the permission flags (ISO 32000 bit values) for the rights a user
// refused: copying 0x210, printing 0x804, annotating 0x128. With all three refused the
// document may not be assembled either (0x400), giving 0xF3C rather than the plain sum.
int restrict_bits(bool allowcopy, bool allowprinting, bool allowannotation);

// What a file says it conforms to.
struct ConformanceClaim {
    std::string level;  // row text such as "PDF/A 1b" or "PDF/X-4"; empty when none is claimed
    bool pdfa1 = false; // PDF/A-1, which allows neither object streams nor cross-reference streams
};

// The claim of `pdf`: the chosen conformance code when it is a PDF/A or PDF/X row, else what
// the document's XMP packet says (pdfaid:part and conformance as "PDF/A 2b", or the
// pdfxid:GTS_PDFXVersion text).
ConformanceClaim conformance_claim(QPDF& pdf, int conformance_code);

// Writes `pdf` to `file` (replaced when present), `configure` setting the writer up first.
// Every write is checked, the last flush included. Throws engine::Error(ErrorKind::Output)
// with the system's reason when the file cannot be written; QPDF's exceptions pass through.
void write_pdf_file(QPDF& pdf, const std::filesystem::path& file,
                    const std::function<void(QPDFWriter&)>& configure);

// Writes `pdf` to `target` through a temporary beside it, renamed into place only when
// complete; `configure` sets the writer up first. An earlier file at `target` stays as it was
// when anything fails. Throws engine::Error(ErrorKind::Output) with a reason a user reads.
void write_pdf_atomically(QPDF& pdf, const std::filesystem::path& target,
                          const std::function<void(QPDFWriter&)>& configure);

// The security pass on a finished, unencrypted PDF: document information (Info and XMP in
// step), lossless recompression (unfiltered streams and those of the older general filters
// and RunLength become Flate, Flate data stays as it is, object streams where the header
// version allows them and the file is not PDF/A-1; images are never resampled, JPEG data is
// never decoded) and, when a password is given or a right refused, encryption at
// snapshot.enlvl: 0 RC4 40-bit, 1 RC4 128-bit, 3 AES 128-bit, 4 AES 256-bit. An empty
// owner password becomes a random one, so refused rights hold for whoever opens the file.
// Passwords are UTF-8 text; they are never part of a message.
// The file is replaced only when the new one is complete. Returns the log lines the pass
// adds: "NAME does not conform to LEVEL: page N REASON" for each device colour family of a
// PDF/A or PDF/X file that its output intent does not describe (output_intent_misfits), and
// "NAME is encrypted and no longer conforms to LEVEL" when such a file gets encrypted. Throws engine::Error(ErrorKind::Output); the file then stays as it was.
std::vector<std::string> encryptpdfnow(const std::filesystem::path& pdf,
                                       const engine::OptionSnapshot& snapshot);

// What the security pass would do to a document, worked out on the document in memory, so
// that the write that makes the file does it too and the file is written once.
struct SecuredWrite {
    // The lines encryptpdfnow would return for the file.
    std::vector<std::string> lines;
    // Sets a writer up as the pass's rewrite is set up: header version, recompression,
    // object streams, stream layout and encryption.
    std::function<void(QPDFWriter&)> configure;
};

// Brings `pdf`, which a write would give the header `version` ("1.4"; `extension_level`),
// to what encryptpdfnow makes of that file: applies the document information and returns the
// writer settings and lines of the pass for the file `file`. Writing
// `pdf` with them gives the file that writing it plainly and then securing it would give.
// Throws engine::Error(ErrorKind::Output) when the document information cannot be set.
SecuredWrite prepare_secured_write(QPDF& pdf, const engine::OptionSnapshot& snapshot,
                                   const std::filesystem::path& file, const std::string& version,
                                   int extension_level = 0);

// The same for a document a write would give the header version it has now (as parsed, 1.3
// when unreadable).
SecuredWrite prepare_secured_write(QPDF& pdf, const engine::OptionSnapshot& snapshot,
                                   const std::filesystem::path& file);

} // namespace qf::writers::pdf
