// SPDX-License-Identifier: GPL-3.0-or-later
// A Stop or an Abort asked of the engine, or one or two interrupts given to the command line,
// leave only whole, readable files and no temporary anywhere.
#include <csignal>
#include <thread>
#include <gtest/gtest.h>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/process.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;
using namespace std::chrono_literals;

// Every file under `out` decodes, and none is a temporary; returns the names found.
std::vector<std::string> expect_only_whole_files(const fs::path &out)
{
    for (const auto &name : tree_of(out)) {
        EXPECT_EQ(undecodable(out / name), "") << name;
    }
    EXPECT_EQ(temporaries_in(out), std::vector<std::string>{});
    return tree_of(out);
}

int pages_in(const fs::path &file)
{
    return file.extension() == ".PDF" ? pdf_page_count(file) : static_cast<int>(read_tiff(file).size());
}

// Four documents of three pages; the engine asked to stop (after the document under way) or
// to abort (at once) when a line or a page start comes.
TEST(StopARun, WhatWasSavedStaysWholeAndNothingHalfMadeIsDelivered)
{
    TempFolder folder;
    std::vector<engine::ListRow> rows;
    for (int n = 1; n <= 4; ++n) {
        write_numbered_pdf(folder / ("doc" + std::to_string(n) + ".pdf"), 3);
        rows.push_back(admitted_row(folder / ("doc" + std::to_string(n) + ".pdf")));
    }
    // at: the line, or "page 2 of doc2.pdf"; empty for before the run starts
    // pages: of the combined file
    const struct { const char *format; bool combine; bool abort; const char *at;
                   std::vector<std::string> names; int pages; } cases[] = {
        {"PDF (Multipage)", true, false, "", {}, 0},
        {"PDF (Multipage)", true, false, "Page 2 is being Processed ", {"Combine.PDF"}, 3},
        {"PDF (Multipage)", true, false, "doc4.pdf is being Processed", {"Combine.PDF"}, 12},
        {"TIFF (Multipage)", true, false, "doc3.pdf is being Processed", {"Combine.tif"}, 9},
        // Aborted with pages prepared ahead: the document under way delivers nothing more.
        {"PDF (Multipage)", false, true, "page 2 of doc2.pdf", {"doc1.PDF"}},
        {"TIFF (Multipage)", true, true, "page 2 of doc2.pdf", {}},
        {"JPEG", false, true, "page 2 of doc2.pdf",
         {"doc1 Page 001.JPG", "doc1 Page 002.JPG", "doc1 Page 003.JPG", "doc2 Page 001.JPG"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.format) + (c.combine ? " combined, " : ", ") + (c.abort ? "abort at " : "stop at ") + c.at);
        const fs::path out = folder / "out";
        fs::remove_all(out);
        RunHarness harness;
        harness.batch.set_jobs(3);
        harness.batch.set_listener([&](const engine::RunEvent &event) {
            if (!event.line.empty()) {
                harness.lines.push_back(event.line);
            }
            const bool page = event.kind == engine::RunEventKind::PageStarted && event.document == "doc2.pdf" &&
                              event.page == 2 && std::string(c.at) == "page 2 of doc2.pdf";
            if (page || (c.at[0] != '\0' && event.line == c.at)) {
                c.abort ? harness.batch.abort() : harness.batch.stop();
            }
        });
        auto values = options_for(out, c.format);
        values.set(OptionId::combineall, c.combine);
        values.set(OptionId::DotsPerInch, std::string("36"));
        harness.batch.prepare(values, rows);
        if (c.at[0] == '\0') {
            harness.batch.stop();
        }
        harness.batch.processall();
        harness.batch.Timer1_Action();
        const std::string log = ::testing::PrintToString(harness.lines);

        ASSERT_EQ(expect_only_whole_files(out), c.names) << log;
        if (c.combine && !c.names.empty()) {
            EXPECT_EQ(pages_in(out / c.names[0]), c.pages);
        }
        // A stop on the last document leaves nothing to cut short.
        EXPECT_EQ(has_line(harness.lines, "Processing Terminated by User "), c.pages != 12) << log;
        EXPECT_EQ(scratch_left(std::getenv("XDG_DATA_HOME")), std::vector<std::string>{});
    }
    // A stop outside a run has no effect on the next one.
    RunHarness harness;
    harness.batch.stop();
    harness.run(options_for(folder / "out", "PNG"), {rows[0]});
    EXPECT_TRUE(fs::exists(folder / "out" / "doc1 Page 003.PNG"));
}

// The command line interrupted once (it finishes the document under way and closes the
// combined file; the documents never reached make it status 3), twice (it ends at once) or
// killed (the next run clears its scratch): no reader outlives it, and what it leaves is whole.
TEST(InterruptTheCommandLine, OnceTwiceOrKilledLeavesWholeFilesAndNoReader)
{
    TempFolder folder;
    const fs::path data_home = folder / "data";
    std::vector<std::string> inputs;
    // Large scanned pages, one at a time: slow enough to interrupt, and long enough documents
    // for a second interrupt to come before the one under way is through.
    for (int n = 1; n <= 4; ++n) {
        inputs.push_back((folder / ("slow" + std::to_string(n) + ".tif")).string());
        make_tiff(inputs.back(), std::vector<TiffPage>(12, TiffPage{.width = 1700, .height = 2200}));
    }
    // said: on standard error
    const struct { int signals; int status; const char *said; std::vector<std::string> names; } cases[] = {
        {1, 3, "Stopping after the document under way", {"Combine.PDF"}},
        {2, 2, "Stopped at once", {}},
        {0, 128 + SIGKILL, "", {}}, // killed: the next run clears the scratch it could not
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.said);
        const fs::path out = folder / "out";
        fs::remove_all(out);
        std::vector<std::string> arguments{"--format", "PDF (Multipage)", "--combineall", "--jobs", "1", "-o",
                                           out.string()};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        CliChild child(arguments, {data_home});
        ASSERT_TRUE(child.wait_for_output("slow2.tif is being Processed", 60s)) << child.out();
        for (int n = 0; n < c.signals; ++n) {
            child.send(SIGINT);
            std::this_thread::sleep_for(20ms);
        }
        if (c.signals == 0) {
            child.send(SIGKILL);
        }
        EXPECT_EQ(child.finish(), c.status) << child.err();
        EXPECT_NE(child.err().find(c.said), std::string::npos) << child.err();
        EXPECT_EQ(processes_left(data_home, 3s), std::vector<pid_t>{}) << "a reader worker outlives the program";
        if (c.signals == 0) {
            ASSERT_EQ(scratch_left(data_home).size(), 1u);
            EXPECT_EQ(run_cli({"--format", "PNG", "-o", out.string(), inputs[0], "--pages", "1"}, {data_home}).status, 0);
        } else {
            ASSERT_EQ(expect_only_whole_files(out), c.names);
        }
        if (!c.names.empty()) {
            EXPECT_TRUE(has_line(child.out_lines(), "Processing Terminated by User ")) << child.out();
            EXPECT_GE(pages_in(out / c.names[0]), 24); // the document under way was finished
            EXPECT_LT(pages_in(out / c.names[0]), 48);
        }
        EXPECT_EQ(scratch_left(data_home), std::vector<std::string>{});
    }
}

} // namespace
} // namespace qf::test
