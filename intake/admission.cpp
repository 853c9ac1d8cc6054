// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/admission.h"

#include <filesystem>

#include "engine/text_rules.h"
#include "intake/tiff_probe.h"
#include "sources/pdf_probe.h"

namespace qf::intake {
namespace {

namespace fs = std::filesystem;
using sources::PdfProbe;
using sources::probe_pdf;

bool is_tiff_name(std::string_view name)
{
    return engine::iends_with(name, ".TIF") || engine::iends_with(name, ".TIFF");
}

// The folder of a candidate as cell 5 holds it: absolute, with no trailing "/".
std::string folder_cell(const std::string& path)
{
    std::error_code ec;
    fs::path absolute = fs::absolute(path, ec);
    if (ec) {
        absolute = path;
    }
    std::string folder = absolute.lexically_normal().parent_path().string();
    while (folder.size() > 1 && folder.back() == '/') {
        folder.pop_back();
    }
    return folder;
}

// What a probe found out about one candidate.
struct Probed {
    int page_count = 1;
    std::string tiling = engine::kTiledNo;
    std::string reason; // why the candidate is dropped, when it is
};

Probed probe_tiff_candidate(const fs::path& file, CandidateInHand& hand)
{
    Probed probed;
    hand.filepassword.clear();
    std::error_code ec;
    if (!fs::exists(file, ec)) {
        hand.jj = Jj::bad;
        probed.reason = "no longer exists";
        return probed;
    }
    if (!fs::is_regular_file(file, ec)) {
        // A pipe or device could block the reader; it is no document anyway.
        hand.jj = Jj::bad;
        probed.reason = "not a regular file";
        return probed;
    }
    const TiffProbe tiff = probe_tiff(file);
    hand.jj = Jj::good;
    probed.page_count = tiff.readable ? tiff.image_count : 0;
    if (tiff.tiled) {
        probed.tiling = engine::kTiledYes;
        probed.page_count = 1;
    }
    if (probed.page_count == 0) {
        probed.reason = "not a readable TIFF";
    }
    return probed;
}

// Asks for passwords until one opens the file or the prompt gives up.
void password_loop(const fs::path& file, const std::string& name, PasswordPrompt& prompt,
                   CandidateInHand& hand, PdfProbe& pdf, Probed& probed)
{
    const std::string text = password_prompt_text(name);
    int attempts = 0;
    while (hand.jj == Jj::nogood) {
        const PromptAnswer answer = prompt.ask(text, name);
        if (answer.outcome != PromptAnswer::Outcome::try_password) {
            hand.jj = Jj::cancel;
            hand.filepassword.clear();
            if (answer.outcome == PromptAnswer::Outcome::cancel) {
                probed.reason = "cancelled";
            } else {
                probed.reason = attempts == 0 ? "could not be opened without a password"
                                              : "the password does not open it";
            }
            return;
        }
        hand.jj = Jj::attempt;
        hand.filepassword = answer.password;
        ++attempts;
        pdf = probe_pdf(file, hand.filepassword);
        if (pdf.opened && pdf.page_count >= 1) {
            hand.jj = Jj::good;
        } else {
            hand.jj = Jj::nogood;
            hand.filepassword.clear();
        }
    }
}

Probed probe_pdf_candidate(const fs::path& file, const std::string& name, PasswordPrompt& prompt,
                           CandidateInHand& hand)
{
    Probed probed;
    std::error_code ec;
    if (!fs::exists(file, ec)) {
        // Still listed: the run that opens it later says what became of it.
        return probed;
    }
    if (!fs::is_regular_file(file, ec)) {
        hand.jj = Jj::bad;
        probed.reason = "not a regular file";
        return probed;
    }
    // Whatever keeps the file from opening with the empty password leads to the prompt; an
    // encrypted file that opens without one never reaches it.
    PdfProbe pdf = probe_pdf(file, "");
    hand.jj = pdf.opened ? Jj::good : Jj::nogood;
    password_loop(file, name, prompt, hand, pdf, probed);
    probed.page_count = pdf.page_count > 0 ? pdf.page_count : 1;
    return probed;
}

engine::ListRow make_row(const Candidate& candidate, const std::string& folder, const Probed& probed,
                         const CandidateInHand& hand)
{
    const std::string pages = std::to_string(probed.page_count);
    engine::ListRow row;
    row.cells = {candidate.name, pages, "1", pages, probed.page_count == 1 ? "1" : "1-" + pages, folder,
                 hand.filepassword};
    row.tag = probed.tiling;
    return row;
}

} // namespace

bool has_document_extension(std::string_view name)
{
    return engine::iends_with(name, ".TIF") || engine::iends_with(name, ".PDF") ||
           engine::iends_with(name, ".TIFF");
}

std::string password_prompt_text(std::string_view file_name)
{
    return std::string(file_name) + " is encrypted. Please Enter It's Unlock Password to include this file to the list";
}

std::string rows_added_report(int rows_added)
{
    return std::to_string(rows_added) + (rows_added > 1 ? " Images added to the list" : " Image added to the list");
}

std::string count_label(std::size_t row_count)
{
    return "Number of Documents : " + std::to_string(row_count);
}

AdmissionReport addtolist(const CandidateTable& candidates, std::vector<engine::ListRow>& rows,
                          PasswordPrompt& prompt, const AdmissionProgress& progress)
{
    AdmissionReport report;
    for (const Candidate& candidate : candidates) {
        CandidateInHand hand;
        Probed probed;
        bool admitted = false;
        if (!has_document_extension(candidate.name)) {
            hand.jj = Jj::bad;
            probed.reason = "not a PDF or TIFF file";
        } else {
            const std::string folder = folder_cell(candidate.path);
            const fs::path file = fs::path(folder) / candidate.name;
            probed = is_tiff_name(candidate.name) ? probe_tiff_candidate(file, hand)
                                                  : probe_pdf_candidate(file, candidate.name, prompt, hand);
            admitted = probed.page_count > 0 && hand.jj == Jj::good;
            if (admitted) {
                rows.push_back(make_row(candidate, folder, probed, hand));
                ++report.rows_added;
            }
        }
        if (!admitted) {
            report.dropped.push_back({candidate, probed.reason});
        }
        if (progress) {
            progress(rows.size());
        }
    }
    return report;
}

} // namespace qf::intake
