// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/admission.h"

#include <filesystem>
#include <new>

#include "engine/text_rules.h"

namespace qf::intake {
namespace {

namespace fs = std::filesystem;

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

Probed probe_tiff_candidate(const fs::path& file, const DocumentProbes& probes, CandidateInHand& hand)
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
    const TiffProbeAnswer tiff = probes.tiff(file);
    if (!tiff.failure.empty()) {
        hand.jj = Jj::bad;
        probed.reason = tiff.failure;
        return probed;
    }
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

using PdfOpening = PdfProbeAnswer;

PdfOpening open_pdf(const fs::path& file, const std::string& password, const DocumentProbes& probes)
{
    std::error_code ec;
    if (fs::file_size(file, ec) == 0 && !ec) {
        PdfOpening opening;
        opening.reason = "the file is empty";
        return opening;
    }
    PdfOpening opening = probes.pdf(file, password);
    if (!opening.opened) {
        opening.page_count = 0;
    }
    return opening;
}

// Why a PDF that the prompt gave up on is left out.
std::string give_up_reason(const PromptAnswer& answer, const PdfOpening& opening, int attempts)
{
    if (!opening.needs_password) {
        return opening.reason; // no password would help: say what is wrong with the file
    }
    if (answer.outcome == PromptAnswer::Outcome::cancel) {
        return "cancelled";
    }
    return attempts == 0 ? "could not be opened without a password" : "the password does not open it";
}

// Asks for passwords until one opens the file or the prompt gives up. An encrypted file is
// asked for again after every wrong password; one that cannot be read is asked for only as
// the rules say, and comes back with the reader's reason rather than as a password question.
void password_loop(const fs::path& file, const std::string& name, PasswordPrompt& prompt,
                   const DocumentProbes& probes, const AdmissionRules& rules, CandidateInHand& hand,
                   PdfOpening& pdf, Probed& probed)
{
    const std::string text = password_prompt_text(name);
    int attempts = 0;
    while (hand.jj == Jj::nogood) {
        if (pdf.reader_failed || (!pdf.needs_password && !rules.ask_for_unreadable_pdf)) {
            hand.jj = Jj::cancel;
            probed.reason = pdf.reason;
            return;
        }
        const PromptAnswer answer =
            pdf.needs_password ? prompt.ask(text, name) : prompt.ask_unreadable(text, name, pdf.reason);
        if (answer.outcome != PromptAnswer::Outcome::try_password) {
            hand.jj = Jj::cancel;
            hand.filepassword.clear();
            probed.reason = give_up_reason(answer, pdf, attempts);
            return;
        }
        hand.jj = Jj::attempt;
        hand.filepassword = answer.password;
        ++attempts;
        pdf = open_pdf(file, hand.filepassword, probes);
        if (pdf.opened) {
            hand.jj = Jj::good;
        } else {
            hand.jj = Jj::nogood;
            hand.filepassword.clear();
        }
    }
}

Probed probe_pdf_candidate(const fs::path& file, const std::string& name, PasswordPrompt& prompt,
                           const DocumentProbes& probes, const AdmissionRules& rules, CandidateInHand& hand)
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
    // Whatever keeps the file from opening with the empty password leads to the loop; an
    // encrypted file that opens without one never reaches it.
    PdfOpening pdf = open_pdf(file, "", probes);
    hand.jj = pdf.opened ? Jj::good : Jj::nogood;
    password_loop(file, name, prompt, probes, rules, hand, pdf, probed);
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
                          PasswordPrompt& prompt, const DocumentProbes& probes,
                          const AdmissionProgress& progress, const AdmissionRules& rules)
{
    AdmissionReport report;
    for (const Candidate& candidate : candidates) {
        if (rules.cancelled && rules.cancelled()) {
            break;
        }
        CandidateInHand hand;
        Probed probed;
        bool admitted = false;
        if (!has_document_extension(candidate.name)) {
            hand.jj = Jj::bad;
            probed.reason = "not a PDF or TIFF file";
        } else {
            const std::string folder = folder_cell(candidate.path);
            const fs::path file = fs::path(folder) / candidate.name;
            probed = is_tiff_name(candidate.name)
                         ? probe_tiff_candidate(file, probes, hand)
                         : probe_pdf_candidate(file, candidate.name, prompt, probes, rules, hand);
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
