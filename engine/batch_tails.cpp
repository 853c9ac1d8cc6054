// SPDX-License-Identifier: GPL-3.0-or-later
// The ends of a combined run: the one multipage TIFF opened before the first document and
// closed after the last, and the merge of the per-document PDFs into one file.
#include <system_error>

#include "engine/batch_run.h"
#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/output_naming.h"
#include "engine/text_rules.h"

namespace qf::engine {
namespace fs = std::filesystem;
namespace {

// An empty combined name means the default one.
std::string combined_name(const OptionSnapshot& snapshot)
{
    return snapshot.mcombinedfilename.empty() ? std::string("Combine") : snapshot.mcombinedfilename;
}

// The first "stem N.ext" beside path that no file and no source takes.
fs::path free_numbered(const fs::path& path, const std::vector<fs::path>& sources)
{
    const std::string stem = path.stem().string();
    const std::string extension = path.extension().string();
    for (long long n = 1;; ++n) {
        const fs::path candidate = path.parent_path() / (stem + " " + std::to_string(n) + extension);
        std::error_code error;
        if (!is_source_path(candidate, sources) && !fs::exists(fs::symlink_status(candidate, error))) {
            return candidate;
        }
    }
}

// A combined file never takes the place of a source document: "Combine 1.PDF" instead, a name
// no file has yet.
fs::path avoid_sources(const fs::path& path, const std::vector<fs::path>& sources)
{
    return is_source_path(path, sources) ? free_numbered(path, sources) : path;
}

} // namespace

void BatchRun::open_combined_tiff()
{
    // Folder and name are joined as plain text: msavein ends in "/". With the source folder
    // the file goes beside the first document.
    const std::string folder = saves_to_source_folder(snapshot_.msavein)
                                   ? filelist_.front()[column::folder] + "/"
                                   : trim(snapshot_.msavein);
    combined_tiff_path_ = avoid_sources(fs::path(folder + combined_name(snapshot_) + ".tif"), source_paths_);
    const std::string name = combined_tiff_path_.filename().string();
    if (!multitiff_) {
        fail_save(nullptr, name, "TIFF output is not available in this build");
        return;
    }
    try {
        // The compression is set page by page; the file starts with none.
        multitiff_->open(combined_tiff_path_, PageWriteContext{snapshot_, 0, ccopyright_, cdocumentname_});
    } catch (const Error& e) {
        fail_save(nullptr, name, e.reason());
    }
}

void BatchRun::combined_tail()
{
    // An aborted run delivers no combined file: the open TIFF is discarded with its writer,
    // the per-document PDFs with the scratch folder.
    if (!snapshot_.mcombineall || aborted_) {
        return;
    }
    // The run's format decides, not the last page's copy: a stop before the first page must
    // still close the combined TIFF.
    if (snapshot_.mformat == OutputFormat::PdfMultipage) {
        merge_tail();
    } else if (snapshot_.mformat == OutputFormat::TiffMultipage) {
        tiff_tail();
    }
}

void BatchRun::tiff_tail()
{
    if (!multitiff_ || !multitiff_->is_open()) {
        return;
    }
    const std::string shown = outputname_.empty() ? combined_tiff_path_.filename().string() : outputname_;
    try {
        multitiff_->close();
        RunEvent event = about(RunEventKind::Saved, nullptr);
        event.output = combined_tiff_path_;
        say(std::move(event), shown + " has been Saved");
    } catch (const Error& e) {
        fail_save(nullptr, combined_tiff_path_.filename().string(), e.reason());
    }
    totalpage_ = 0;
}

std::pair<fs::path, std::string> BatchRun::combined_pdf_path() const
{
    const bool source_folder = saves_to_source_folder(snapshot_.msavein);
    const fs::path folder = source_folder ? fs::path(filelist_.front()[column::folder]) : fs::path(snapshot_.msavein);
    const std::string name = combined_name(snapshot_);
    fs::path combinedpath = folder / name;
    std::string combinedname = name;
    if (!icontains(combinedpath.string(), ".PDF")) {
        combinedpath += ".PDF";
        combinedname += ".PDF";
    }
    return {combinedpath, combinedname};
}

void BatchRun::merge_tail()
{
    auto [combinedpath, combinedname] = combined_pdf_path();
    const bool numbered = is_source_path(combinedpath, source_paths_);
    if (numbered) {
        combinedpath = avoid_sources(combinedpath, source_paths_);
        combinedname = combinedpath.filename().string();
    }
    RunEvent combining = about(RunEventKind::Combining, nullptr);
    combining.output = combinedpath;
    say(combining, "Combing Files and Saving to " + combinedname);

    std::vector<fs::path> finished;
    for (const auto& path : countlist_) {
        std::error_code error;
        if (fs::exists(path, error)) {
            finished.push_back(path);
        }
    }
    // One finished document is still the combined file the user asked for.
    if (finished.empty()) {
        if (!countlist_.empty()) {
            fail_save(nullptr, combinedname, "no document could be merged");
        }
        return;
    }
    if (!services_.merge_pdfs) {
        fail_save(nullptr, combinedname, "PDF output is not available in this build");
        return;
    }
    if (merge_into(finished, combinedpath, combinedname, numbered)) {
        for (const auto& path : countlist_) {
            std::error_code ignored;
            fs::remove(path, ignored);
        }
    }
}

bool BatchRun::merge_into(const std::vector<fs::path>& finished, fs::path combinedpath, std::string combinedname,
                          bool numbered)
{
    // Merged and secured in one write in a private folder beside it, the file takes its name
    // only when complete: a failure leaves an earlier file of that name as it was.
    fs::path claim;
    try {
        claim = sibling_temp_folder(combinedpath);
        const fs::path written = claim / combinedpath.filename();
        const std::vector<std::string> lines =
            services_.merge_pdfs(finished, written, snapshot_, [this, &combinedpath](const fs::path& merged) {
                if (aborted_) {
                    throw Error(ErrorKind::Output, "the run was aborted");
                }
                RunEvent event = about(RunEventKind::Combining, nullptr);
                event.output = combinedpath;
                say(std::move(event), "Merging " + merged.string());
            });
        if (!numbered) {
            commit_temp(written, combinedpath);
        }
        // A numbered name replaces no file: taken meanwhile, the next free one is.
        while (numbered && !commit_temp_if_free(written, combinedpath)) {
            combinedpath = free_numbered(combinedpath, source_paths_);
            combinedname = combinedpath.filename().string();
            RunEvent moved = about(RunEventKind::Combining, nullptr);
            moved.output = combinedpath;
            say(std::move(moved), "Combing Files and Saving to " + combinedname);
        }
        for (const auto& line : lines) {
            RunEvent event = about(RunEventKind::NoLongerConforming, nullptr);
            event.output = combinedpath;
            say(std::move(event), line);
        }
    } catch (const Error& e) {
        fail_save(nullptr, combinedname, e.reason());
        if (!claim.empty()) {
            discard_temp_folder(claim);
        }
        return false;
    }
    discard_temp_folder(claim);
    return true;
}

} // namespace qf::engine
