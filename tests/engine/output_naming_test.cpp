// SPDX-License-Identifier: GPL-3.0-or-later
#include <fstream>
#include <gtest/gtest.h>

#include "engine/output_naming.h"
#include "engine/page_selection.h"
#include "tests/support/temp_folder.h"

namespace qf::engine {
namespace {
namespace fs = std::filesystem;

// Where each output of a page or selection goes, as paths under a folder with "src" (the
// documents), "out" (the chosen output folder) and "work" (a combined run's scratch).
TEST(OutputNaming, NamesAndPathsFollowFormatSelectionAndDestination)
{
    // doc: in "src"; "other/NAME" for a document whose folder is not the first's
    // path: expected, under the folder
    // savein: nullptr for "out/"
    // existing: files already in "out"
    // previous: the name the selection's first page got
    const struct { const char* doc; const char* pages; const char* format; int pageno, first, last;
                   bool whole; const char* path; bool single = false; const char* savein = nullptr;
                   bool onefolder = false; bool combine = false; std::vector<const char*> existing = {};
                   const char* previous = ""; } cases[] = {
        {"report.pdf", "12", kJpeg, 7, 7, 7, false, "out/report Page 007.JPG"},
        {"report.pdf", "12", kPng, 12, 1, 12, true, "out/report Page 012.PNG"},
        {"report.pdf", "12", kTiffSinglePage, 3, 3, 4, false, "out/report Page 003.TIF", true},
        {"report.pdf", "12", kPdfSinglePage, 1, 1, 12, true, "out/report Page 001.PDF", true},
        {"report.pdf", "12", kTiffMultipage, 1, 1, 12, false, "out/report Page 001 to 012.TIF"},
        {"report.pdf", "12", kPdfMultipage, 5, 5, 5, false, "out/report Page 005 to 005.PDF"},
        {"report.pdf", "12", kText, 2, 2, 12, false, "out/report Page 002 to 012.TXT"},
        {"report.pdf", "12", kPdfMultipage, 1, 1, 12, true, "out/report.PDF"},
        // One-page documents never get "Page" in the name.
        {"memo.v2.tif", "1", kJpeg, 1, 1, 1, true, "out/memo.v2.JPG"},
        {"memo.v2.tif", "1", kTiffMultipage, 1, 1, 1, true, "out/memo.v2.TIF"},
        {"memo.v2.tif", "1", kText, 1, 1, 1, true, "out/memo.v2.TXT"},
        // A whole selection takes the first free number; a partial one overwrites.
        {"report.pdf", "12", kPdfMultipage, 1, 1, 12, true, "out/report 1.PDF", false, nullptr, false, false,
         {"report.PDF"}},
        {"report.pdf", "12", kPdfMultipage, 1, 1, 12, true, "out/report 2.PDF", false, nullptr, false, false,
         {"report.PDF", "report 1.PDF"}},
        {"report.pdf", "12", kPdfMultipage, 2, 2, 12, false, "out/report Page 002 to 012.PDF", false, nullptr,
         false, false, {"report Page 002 to 012.PDF"}},
        // Beside the sources an output never takes a source document's place.
        {"memo.PDF", "3", kPdfMultipage, 1, 1, 3, true, "src/memo 1.PDF", false, "[Source Folder]"},
        {"scan.TIF", "1", kTiffSinglePage, 1, 1, 1, true, "src/scan 1.TIF", false, "[Source Folder]"},
        {"report.pdf", "12", kJpeg, 2, 2, 2, false, "src/report Page 002.JPG", false, "[source folder]"},
        // One folder a document, except for the multipage TIFF; a combined run's parts go to work.
        {"report.pdf", "12", kJpeg, 2, 2, 2, false, "out/report/report Page 002.JPG", false, nullptr, true},
        {"report.pdf", "12", kText, 1, 1, 12, true, "out/report/report.TXT", false, nullptr, true},
        {"report.pdf", "12", kTiffMultipage, 1, 1, 12, true, "out/report.TIF", false, nullptr, true},
        {"report.pdf", "12", kPdfMultipage, 1, 1, 12, true, "work/report.PDF", false, nullptr, true, true},
        // A blank folder means the first document's folder.
        {"other/b.pdf", "2", kJpeg, 1, 1, 2, true, "src/b Page 001.JPG", false, "  ", true},
        // Later pages of a multipage selection keep the name its first page got.
        {"report.pdf", "12", kTiffMultipage, 6, 4, 6, false, "out/report Page 004 to 006.TIF", false, nullptr,
         false, false, {}, "report Page 004 to 006.TIF"},
    };
    for (const auto& c : cases) {
        const test::TempFolder root;
        for (const char* folder : {"src", "out", "other"}) {
            fs::create_directories(root / folder);
        }
        for (const char* name : c.existing) {
            std::ofstream(root / "out" / name) << "x";
        }
        OptionSnapshot snapshot;
        snapshot.mzeropad = 3;
        snapshot.msavein = c.savein ? c.savein : (root / "out").string() + "/";
        snapshot.monefileonefolder = c.onefolder;
        snapshot.mcombineall = c.combine;
        const auto row = [&](const fs::path& file) {
            DocumentRow r;
            r[column::name] = file.filename().string();
            r[column::pages] = c.pages;
            r[column::folder] = (root / (file.has_parent_path() ? file.parent_path() : "src")).string();
            return r;
        };
        const DocumentRow doc = row(c.doc);
        const DocumentRow first = row("a.pdf");
        std::vector<fs::path> sources{fs::path(doc[column::folder]) / doc[column::name]};
        const NamingRequest request{snapshot, doc, fs::path(c.doc).has_parent_path() ? first : doc, c.format,
                                    c.pageno, c.pageno == c.first, c.first, c.last, c.whole, c.previous,
                                    &sources, root / "work"};
        const NamingResult result = name_output(request);
        EXPECT_EQ(result.outputpath, root / c.path) << c.path;
        EXPECT_EQ(result.outputname, fs::path(c.path).filename()) << c.path;
        EXPECT_EQ(result.issinglepage, c.single) << c.path;
    }
}

} // namespace
} // namespace qf::engine
