// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/run_model.h"
#include "intake/candidate.h"
#include "intake/password_prompt.h"

// Admission: the one gate through which a file becomes a row of the document list. Every way
// of loading (file chooser, folder walk, drop, command line) ends here.
namespace qf::intake {

// The verdict on the candidate in hand (App.jj): good may enter the list; bad is the wrong
// kind of file or a TIFF gone; nogood is a PDF the passwords tried so far do not open;
// cancel gives up on the file; attempt means a new password is to be tried.
enum class Jj { good, bad, nogood, cancel, attempt };

// The state of the candidate in hand, reset for every candidate.
struct CandidateInHand {
    Jj jj = Jj::good;
    std::string filepassword; // the password of the candidate in hand; empty when none
};

struct DroppedCandidate {
    Candidate candidate;
    // "not a PDF or TIFF file", "no longer exists", "cancelled", "could not be opened without a
    // password", or the reader's own words for a file it cannot read ("not a readable PDF: ...").
    std::string reason;
};

struct AdmissionReport {
    int rows_added = 0;
    std::vector<DroppedCandidate> dropped; // in candidate order
};

// Called after every candidate, admitted or not, with the number of rows the list now has,
// so that a caller can show the running count of a long load.
using AdmissionProgress = std::function<void(std::size_t row_count)>;

struct AdmissionRules {
    // A PDF that does not open although it is not encrypted (damaged, not a PDF at all, no
    // pages): true puts the password question all the same, as every unopened PDF gets it in
    // the window; false drops it at once with the reader's reason, for a front end where no
    // password could help.
    bool ask_for_unreadable_pdf = true;
    // Asked before each candidate; true ends the call there, leaving the rest out unreported.
    std::function<bool()> cancelled;
};

// What one attempt to open a PDF with a password found.
struct PdfProbeAnswer {
    bool opened = false;         // read, with at least one page
    int page_count = 0;          // 0 unless opened
    bool needs_password = false; // encrypted, and the password tried does not open it
    bool reader_failed = false;  // the reader itself crashed or overran its time: no answer
    std::string reason;          // why it did not open, in the reader's words
};

// What a TIFF's probe found: readable first image, image count, tiled first image.
struct TiffProbeAnswer {
    bool readable = false;
    int image_count = 0;
    bool tiled = false;
    std::string failure; // the reader itself crashed or overran its time: why
};

// The readers admission asks. Neither throws for the file's sake.
struct DocumentProbes {
    std::function<PdfProbeAnswer(const std::filesystem::path& file, const std::string& password)> pdf;
    std::function<TiffProbeAnswer(const std::filesystem::path& file)> tiff;
};

// The readers of this process (sources/, libtiff), for tests and fuzzing; the programs read
// untrusted files in worker processes instead.
DocumentProbes in_process_probes();

// addtolist: appends one row per admitted candidate to `rows`, in candidate order. A name
// must end in ".PDF", ".TIF" or ".TIFF" (any case). The file probed is the candidate's name
// in the folder of its path. TIFF: dropped when gone, unreadable or of 0 images; a tiled
// first image makes a one-page "tiled~yes" row. PDF: a file gone gets a one-page row; an
// encrypted one that does not open with the empty password asks `prompt` until a password
// opens it or the prompt gives up, which drops that file only; one that cannot be read asks
// too or is dropped, as `rules` say. Cells: name, page count, "1", page count, "1" or "1-N",
// the folder as an absolute path without a trailing "/", the password that opened the file.
// A file whose reader failed (`reader_failed`, `failure`) is dropped with that reason, never
// asked a password for. Files are read through `probes`. Never throws for a file's sake.
AdmissionReport addtolist(const CandidateTable& candidates, std::vector<engine::ListRow>& rows,
                          PasswordPrompt& prompt, const DocumentProbes& probes,
                          const AdmissionProgress& progress = {}, const AdmissionRules& rules = {});

// The same, read in this process (in_process_probes()).
AdmissionReport addtolist(const CandidateTable& candidates, std::vector<engine::ListRow>& rows,
                          PasswordPrompt& prompt, const AdmissionProgress& progress = {},
                          const AdmissionRules& rules = {});

// The extension test: the name ends in ".TIF", ".PDF" or ".TIFF" without regard to case.
bool has_document_extension(std::string_view name);

// The text of the password prompt for a file name.
std::string password_prompt_text(std::string_view file_name);

// The line after a load: "N Images added to the list", singular for 0 and 1.
std::string rows_added_report(int rows_added);

// The count label: "Number of Documents : N".
std::string count_label(std::size_t row_count);

} // namespace qf::intake
