// SPDX-License-Identifier: GPL-3.0-or-later
// No run replaces or removes a file it did not write: not a source document (its output takes
// the numbered name; the source keeps its bytes, time and inode), not in the current folder
// without a work folder, not under a numbered name someone has, not outside the chosen folder.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

// A source: a PDF of two pages when its name holds ".pdf" in either case, else a TIFF of one
// page, whatever its extension.
void make_source(const fs::path& file)
{
    const std::string name = file.filename().string();
    name.find(".pdf") != std::string::npos || name.find(".PDF") != std::string::npos ? write_numbered_pdf(file, 2)
                                                                                    : make_tiff(file, {TiffPage{}});
}

// Each case runs in a folder holding "in" (the sources), "out", "cwd" (the current folder) and
// "home" (the work folder's).
TEST(NoFileLost, ARunTouchesOnlyWhatItWrites)
{
    const char* work = "home/org.quirefold.extract"; // a file there: no work folder can be made
    // earlier: files there before
    // added: what the run adds; none: it stops with one line
    // savein: under the folder, or as it stands when blank
    // combined_name: a combined run
    const struct { const char* title; const char* format; std::vector<const char*> sources;
                   std::vector<const char*> earlier; std::vector<const char*> added; const char* line = "";
                   const char* savein = "in/"; const char* combined_name = nullptr; } cases[] = {
        {"multipage PDF of a whole PDF", "PDF (Multipage)", {"memo.PDF"}, {}, {"in/memo 1.PDF"}},
        // A TIFF kept under a picture's name: the engine guards it whatever the extension.
        {"JPEG of a TIFF named .JPG", "JPEG", {"photo.JPG"}, {}, {"in/photo 1.JPG"}},
        {"combined TIFF named as a source", "TIFF (Multipage)", {"a.tif", "Combine.tif"}, {}, {"in/Combine 1.tif"}, "", "in/", ""},
        {"combined PDF named as a source", "PDF (Multipage)", {"a.pdf", "memo.pdf"}, {}, {"in/memo 1.pdf"}, "", "in/", "memo.pdf"},
        // The first document's output would take the name of a source listed after it.
        {"a later source's name", "PDF (Multipage)", {"memo.pdf", "memo.PDF"}, {}, {"in/memo 1.PDF", "in/memo 2.PDF"}},
        // A numbered name is one no file has yet, not even the run's own.
        {"a later source's name, per page", "TIFF (Single Page)", {"x.tif", "x.TIF"}, {}, {"in/x 1.TIF", "in/x 2.TIF"}},
        {"no work folder", "PDF (Multipage)", {"a.pdf", "b.pdf"}, {"cwd/a.PDF", "cwd/b.PDF", work},
         {"out/Combine.PDF"}, "Combing Files and Saving to Combine.PDF", "out/", ""},
        {"nor room beside the combined file", "PDF (Multipage)", {"a.pdf", "b.pdf"}, {"cwd/a.PDF", "out", work},
         {}, "", "out/", ""},
        {"Save In of blanks", "JPEG", {"a.pdf"}, {}, {"in/a Page 001.JPG", "in/a Page 002.JPG"}, "", " \t "},
        {"combined name numbered before", "PDF (Multipage)", {"four.PDF", "b.pdf"}, {"in/four 1.PDF"},
         {"in/four 2.PDF"}, "Combing Files and Saving to four 2.PDF", "in/", "four"},
        {"single page named as a source", "PDF (Single Page)", {"four.PDF", "four Page 002.PDF"}, {"in/four 1.PDF"},
         {"in/four Page 001.PDF", "in/four Page 002 1.PDF", "in/four Page 002 Page 001.PDF",
          "in/four Page 002 Page 002.PDF"},
         "four Page 002 1.PDF has been Saved", "in/"},
        {"name holds ../", "PDF (Multipage)", {"a.pdf", "b.pdf"}, {"escaped.PDF"}, {}, "", "out/", "../escaped"},
    };
    const fs::path cwd = fs::current_path();
    const std::string data_home = std::getenv("XDG_DATA_HOME");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        TempFolder folder;
        for (const char* name : c.earlier) {
            fs::create_directories(folder / fs::path(name).parent_path());
            std::ofstream(folder / name) << "earlier";
        }
        std::error_code made_earlier; // "out" or the work folder as a file
        for (const char* dir : {"in", "out", "cwd", "home/org.quirefold.extract"}) {
            fs::create_directories(folder / dir, made_earlier);
        }
        std::vector<engine::ListRow> rows;
        for (const char* name : c.sources) {
            make_source(folder / "in" / name);
            const auto extension = fs::path(name).extension();
            rows.push_back(extension == ".JPG" || extension == ".PNG" ? raw_row(folder / "in" / name, 1)
                                                                      : admitted_row(folder / "in" / name));
        }
        std::map<std::string, FileSeal> seals;
        const std::vector<std::string> before = tree_of(folder.path());
        for (const auto& name : before) {
            if (fs::is_regular_file(folder / name)) {
                seals[name] = seal_of(folder / name);
            }
        }
        auto values = options_for(folder.path(), c.format);
        values.set(OptionId::savein, c.savein[0] == ' ' ? std::string(c.savein) : (folder / c.savein).string());
        values.set(OptionId::combineall, c.combined_name != nullptr);
        values.set(OptionId::combinedfilename, std::string(c.combined_name ? c.combined_name : ""));
        RunHarness harness;
        fs::current_path(folder / "cwd");
        ::setenv("XDG_DATA_HOME", (folder / "home").c_str(), 1);
        harness.run(values, rows);
        fs::current_path(cwd);
        ::setenv("XDG_DATA_HOME", data_home.c_str(), 1);
        const std::string log = ::testing::PrintToString(harness.lines);

        std::vector<std::string> added;
        for (const auto& name : tree_of(folder.path())) {
            if (!std::binary_search(before.begin(), before.end(), name)) {
                added.push_back(name);
                EXPECT_EQ(undecodable(folder / name), "") << name;
            }
        }
        std::vector<std::string> expected(c.added.begin(), c.added.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(added, expected) << log;
        for (const auto& [name, seal] : seals) {
            EXPECT_TRUE(seal_of(folder / name) == seal) << name << " was changed";
        }
        EXPECT_TRUE(c.line[0] == '\0' || has_line(harness.lines, c.line)) << log;
        EXPECT_EQ(harness.batch.failures(), c.added.empty() ? 1 : 0) << log; // said once
    }
}

// An output folder holding links to the sources (symbolic and hard): the links name the same
// files as the sources, so outputs take numbered names and the sources keep their bytes.
TEST(NoFileLost, OutputsBesideLinksToTheSourcesLeaveThemAlone)
{
    TempFolder folder;
    fs::create_directories(folder / "in");
    fs::create_directories(folder / "out");
    write_numbered_pdf(folder / "in" / "notes.pdf", 2);
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}});
    fs::create_symlink(folder / "in" / "notes.pdf", folder / "out" / "notes.TXT");
    fs::create_hard_link(folder / "in" / "scan.tif", folder / "out" / "scan Page 001.PNG");
    const FileSeal notes = seal_of(folder / "in" / "notes.pdf");
    const FileSeal scan = seal_of(folder / "in" / "scan.tif");
    RunHarness harness;
    harness.run(options_for(folder / "out", "TEXT"), {admitted_row(folder / "in" / "notes.pdf")});
    harness.run(options_for(folder / "out", "PNG"), {admitted_row(folder / "in" / "scan.tif")});
    EXPECT_TRUE(seal_of(folder / "in" / "notes.pdf") == notes);
    EXPECT_TRUE(seal_of(folder / "in" / "scan.tif") == scan);
    EXPECT_TRUE(fs::is_symlink(folder / "out" / "notes.TXT"));
    for (const char* name : {"notes 1.TXT", "scan Page 001 1.PNG", "scan Page 002.PNG"}) {
        EXPECT_EQ(undecodable(folder / "out" / name), "") << name;
    }
}

} // namespace
} // namespace qf::test
