// SPDX-License-Identifier: GPL-3.0-or-later
// No run replaces or removes a file it did not write: not in the current folder without a work
// folder, not under a numbered name someone has, not outside the chosen folder.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

// Each case runs in a folder holding "in" (the documents, two pages each; a combined run needs
// two), "out", "cwd" (the current folder) and "home" (the work folder's).
TEST(NoFileLost, ARunTouchesOnlyWhatItWrites)
{
    const char* work = "home/org.quirefold.extract"; // a file there: no work folder can be made
    const struct {
        const char* title;
        const char* format;
        std::vector<const char*> sources;
        std::vector<const char*> earlier; // files there before
        std::vector<const char*> added;   // what the run adds; none: it stops with one line
        const char* line;
        const char* savein = "out/";      // under the folder, or as it stands when blank
        const char* combined_name = nullptr; // a combined run
    } cases[] = {
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
            write_numbered_pdf(folder / "in" / name, 2);
            rows.push_back(admitted_row(folder / "in" / name));
        }
        const std::vector<std::string> before = tree_of(folder.path());
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
        EXPECT_EQ(added, std::vector<std::string>(c.added.begin(), c.added.end())) << log;
        for (const char* name : c.earlier) {
            EXPECT_EQ(fs::file_size(folder / name, made_earlier), 7u) << name << " is not the 7 bytes it was";
        }
        EXPECT_TRUE(c.line[0] == '\0' || has_line(harness.lines, c.line)) << log;
        EXPECT_EQ(harness.batch.failures(), c.added.empty() ? 1 : 0) << log; // said once
    }
}

} // namespace
} // namespace qf::test
