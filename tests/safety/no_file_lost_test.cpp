// SPDX-License-Identifier: GPL-3.0-or-later
// No run replaces or removes a file it did not write: not in the current folder when the work
// folder is missing, not under a numbered name someone already has, not outside the chosen
// folder; and a later run clears the temporaries of a run that was killed.
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

// The id of a process that has ended.
pid_t ended_process()
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
    return child;
}

// Runs with the current folder and the work folder's home moved, restoring both.
struct Surroundings {
    Surroundings(const fs::path& cwd, const fs::path& data_home) : saved_cwd(fs::current_path())
    {
        const char* xdg = std::getenv("XDG_DATA_HOME");
        saved_xdg = xdg ? xdg : "";
        fs::current_path(cwd);
        ::setenv("XDG_DATA_HOME", data_home.c_str(), 1);
    }
    ~Surroundings()
    {
        fs::current_path(saved_cwd);
        ::setenv("XDG_DATA_HOME", saved_xdg.c_str(), 1);
    }
    fs::path saved_cwd;
    std::string saved_xdg;
};

TEST(NoFileLost, ARunTouchesOnlyWhatItWrites)
{
    // Paths are under a folder holding "in" (the documents), "out" and "cwd" (the current
    // folder). "DEAD" in a name stands for the id of a process that has ended.
    const struct {
        const char* title;
        const char* format;
        std::vector<const char*> sources; // "in/NAME"; two pages each (a combined run needs two)
        std::vector<const char*> earlier; // files that were there before, kept as they were
        std::vector<const char*> added;   // what the run adds
        const char* line = "";            // a line the run writes, when it matters
        const char* savein = "out/";      // relative to the folder, or as it stands when blank
        bool combine = false;
        const char* combined_name = "";
        bool work_folder_blocked = false;
        std::vector<const char*> gone = {}; // earlier files the run removes
    } cases[] = {
        {"no work folder: the documents' parts wait beside the combined file",
         "PDF (Multipage)", {"a.pdf", "b.pdf"}, {"cwd/a.PDF", "cwd/b.PDF"}, {"out/Combine.PDF"},
         "Combing Files and Saving to Combine.PDF", "out/", true, "", true},
        {"no work folder and no room beside the combined file: one line, nothing touched",
         "PDF (Multipage)", {"a.pdf", "b.pdf"}, {"cwd/a.PDF", "out"}, {}, "", "out/", true, "", true},
        {"a Save In of blanks is the first document's folder",
         "JPEG", {"a.pdf"}, {}, {"in/a Page 001.JPG", "in/a Page 002.JPG"}, "", "   "},
        {"a Save In of blanks, combined TIFF", "TIFF (Multipage)", {"a.pdf", "b.pdf"}, {}, {"in/Combine.tif"}, "",
         " \t ", true},
        {"a combined name already numbered by an earlier run",
         "PDF (Multipage)", {"four.PDF", "b.pdf"}, {"in/four 1.PDF"}, {"in/four 2.PDF"},
         "Combing Files and Saving to four 2.PDF", "in/", true, "four"},
        {"a single page named as a source is numbered from its own name",
         "PDF (Single Page)", {"four.PDF", "four Page 002.PDF"}, {"in/four 1.PDF"},
         {"in/four Page 001.PDF", "in/four Page 002 1.PDF", "in/four Page 002 Page 001.PDF",
          "in/four Page 002 Page 002.PDF"},
         "four Page 002 1.PDF has been Saved", "in/"},
        {"a combined PDF name with a folder in it", "PDF (Multipage)", {"a.pdf", "b.pdf"}, {"escaped.PDF"}, {}, "",
         "out/", true, "../escaped"},
        {"a combined TIFF name with a folder in it", "TIFF (Multipage)", {"a.pdf", "b.pdf"}, {"escaped.tif"}, {}, "",
         "out/", true, "../escaped"},
        {"temporaries of a killed run go, anyone else's stay",
         "JPEG", {"a.pdf"},
         {"out/.quirefold-1-x.JPG.Ab12Cd", "out/.x.JPG.Ab12Cd", "out/.quirefold-DEAD.JPG.Ab12Cd"},
         {"out/a Page 001.JPG", "out/a Page 002.JPG"}, "", "out/", false, "", false,
         {"out/.quirefold-DEAD-a Page 001.JPG.Xy34Zw", "out/.quirefold-DEAD-Combine.PDF.Qr56St/"}},
    };
    const std::string dead = std::to_string(ended_process());
    auto resolve = [&](std::string name) {
        if (const auto at = name.find("DEAD"); at != std::string::npos) {
            name.replace(at, 4, dead);
        }
        return name;
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        TempFolder folder;
        fs::create_directories(folder / "in");
        fs::create_directories(folder / "cwd");
        fs::create_directories(folder / "home");
        if (c.work_folder_blocked) {
            std::ofstream(folder / "home" / "org.quirefold.extract") << "not a folder";
        }
        std::vector<engine::ListRow> rows;
        for (const char* name : c.sources) {
            write_numbered_pdf(folder / "in" / name, 2);
            rows.push_back(admitted_row(folder / "in" / name));
        }
        std::map<std::string, FileSeal> kept;
        for (const char* name : c.earlier) {
            fs::create_directories(folder / fs::path(resolve(name)).parent_path());
            std::ofstream(folder / resolve(name)) << "earlier " << name;
            kept[resolve(name)] = seal_of(folder / resolve(name));
        }
        for (const char* name : c.gone) {
            fs::create_directories(folder / fs::path(resolve(name)).parent_path());
            std::ofstream(folder / resolve(name), std::ios::app) << "left by a killed run";
        }
        const std::string savein = std::string(c.savein).find_first_not_of(" \t") == std::string::npos
                                       ? std::string(c.savein)
                                       : (folder / c.savein).string();
        auto values = options_for(folder.path(), c.format);
        values.set(OptionId::savein, savein);
        values.set(OptionId::combineall, c.combine);
        values.set(OptionId::combinedfilename, std::string(c.combined_name));
        RunHarness harness;
        {
            const Surroundings moved(folder / "cwd", folder / "home");
            harness.run(values, rows);
        }
        const std::string log = ::testing::PrintToString(harness.lines);
        for (const auto& [name, seal] : kept) {
            EXPECT_TRUE(fs::is_regular_file(folder / name) && seal_of(folder / name) == seal) << name << " changed";
        }
        std::vector<std::string> added;
        for (const auto& name : tree_of(folder.path())) {
            const bool known = name.rfind("home", 0) == 0 || kept.count(name) || name == "in" || name == "out" ||
                               name == "cwd" ||
                               std::find(c.sources.begin(), c.sources.end(), fs::path(name).filename()) !=
                                   c.sources.end();
            if (!known) {
                added.push_back(name);
            }
        }
        std::vector<std::string> expected(c.added.begin(), c.added.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(added, expected) << log;
        for (const auto& name : added) {
            EXPECT_EQ(undecodable(folder / name), "") << name;
        }
        if (c.line[0] != '\0') {
            EXPECT_TRUE(has_line(harness.lines, c.line)) << log;
        }
        if (c.added.empty()) {
            EXPECT_EQ(harness.batch.failures(), 1) << log; // said once
        }
    }
}

} // namespace
} // namespace qf::test
