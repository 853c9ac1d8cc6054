// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <qpdf/QPDF.hh>

#include "tests/support/output_checks.h" // file_bytes
#include "tests/support/temp_folder.h"   // ScratchFolder

// Documents made for the security pass and merge tests, and what those tests read back from
// a finished PDF with QPDF.
namespace qf::test {

// What a test document carries besides its pages.
struct PdfDressing {
    std::string version = "1.4"; // header version, forced
    int pdfa_part = 0;           // XMP pdfaid:part and conformance as elements; 0 for none
    char pdfa_conformance = 'B';
    std::string pdfx_version;   // XMP pdfxid:GTS_PDFXVersion as an attribute; empty for none
};

// A PDF whose page N shows labels[N-1] as its only text.
void write_labelled_pdf(const std::filesystem::path& target, const std::vector<std::string>& labels,
                        const PdfDressing& dressing = {});

// The text each page shows, in page order: the string operands of its Tj operators.
std::vector<std::string> page_labels(QPDF& pdf);

// Opens `path` (throws QPDFExc when the password does not open it); warnings stay quiet.
void open_pdf(QPDF& pdf, const std::filesystem::path& path, const std::string& password = "");
bool opens_with(const std::filesystem::path& path, const std::string& password);

struct EncryptionFacts {
    bool encrypted = false;
    int revision = 0, permissions = 0, version = 0; // R, P, V
    QPDF::encryption_method_e stream_method = QPDF::e_none;
    std::size_t key_bits = 0; // length of the file encryption key
    bool owner_matched = false;
};
// The encryption of `path` as a reader finds it when opening with `password`.
EncryptionFacts read_encryption(const std::filesystem::path& path, const std::string& password);

// The catalog's XMP packet, empty when there is none.
std::string xmp_packet_of(QPDF& pdf);
// A text entry of the Info dictionary, as UTF-8; empty when absent.
std::string info_entry(QPDF& pdf, const std::string& key);
// Whether any object of the file is stored in an object stream.
bool uses_object_streams(QPDF& pdf);

} // namespace qf::test
