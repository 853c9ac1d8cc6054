// SPDX-License-Identifier: GPL-3.0-or-later
// A Stop during a combined run, asked of the engine or given to the command line as one or
// two interrupts, leaves only whole, readable files and no temporary anywhere.
#include <csignal>
#include <gtest/gtest.h>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/process.h"
#include "tests/support/image_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

constexpr int kDocuments = 4;

// Every file under `out` decodes; returns the names found.
std::vector<std::string> expect_only_whole_files(const fs::path &out)
{
    std::vector<std::string> names;
    for (const auto &name : tree_of(out)) {
        names.push_back(name);
        EXPECT_EQ(undecodable(out / name), "") << name;
    }
    EXPECT_EQ(temporaries_in(out), std::vector<std::string>{});
    return names;
}

class StopDuringACombinedRun : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        fs::create_directories(folder / "in");
        for (int n = 1; n <= kDocuments; ++n) {
            const fs::path pdf = folder / "in" / ("doc" + std::to_string(n) + ".pdf");
            write_numbered_pdf(pdf, 3);
            documents.push_back(pdf);
        }
    }

    TempFolder folder;
    std::vector<fs::path> documents;
};

TEST_F(StopDuringACombinedRun, EngineStopAtAnyPointLeavesWholeFiles)
{
    // The line on which the stop is asked, and the documents the combined file then holds.
    const struct
    {
        const char *line;
        int documents_done;
    } points[] = {
        {"", 0}, // before the first document
        {"doc1.pdf is being Processed", 1},
        {"Page 2 is being Processed ", 1},
        {"doc3.pdf is being Processed", 3},
        {"doc4.pdf is being Processed", kDocuments},
    };
    for (const char *format : {"PDF (Multipage)", "TIFF (Multipage)"}) {
        for (const auto &point : points) {
            SCOPED_TRACE(std::string(format) + ", stop at \"" + point.line + "\"");
            const fs::path out = folder / "out";
            fs::remove_all(out);
            RunHarness harness;
            harness.batch.set_listener([&](const engine::RunEvent &event) {
                if (!event.line.empty()) {
                    harness.lines.push_back(event.line);
                }
                if (event.line == point.line) {
                    harness.batch.stop();
                }
            });
            auto values = options_for(out, format);
            values.set(OptionId::combineall, true);
            values.set(OptionId::DotsPerInch, std::string("36"));
            std::vector<engine::ListRow> rows;
            for (const auto &document : documents) {
                rows.push_back(admitted_row(document));
            }
            harness.lines.clear();
            harness.batch.prepare(values, rows);
            if (point.line[0] == '\0') {
                harness.batch.stop();
            }
            harness.batch.processall();
            harness.batch.Timer1_Action();

            const auto names = expect_only_whole_files(out);
            const bool pdf = std::string(format).find("PDF") != std::string::npos;
            const std::string combined = pdf ? "Combine.PDF" : "Combine.tif";
            if (point.documents_done == 0) {
                EXPECT_EQ(names, std::vector<std::string>{});
                ASSERT_FALSE(harness.lines.empty());
                EXPECT_EQ(harness.lines.front(), "Processing Terminated by User ");
            } else {
                ASSERT_EQ(names, std::vector<std::string>{combined})
                    << ::testing::PrintToString(harness.lines);
                const int pages = pdf ? pdf_page_count(out / combined)
                                      : static_cast<int>(read_tiff(out / combined).size());
                EXPECT_EQ(pages, 3 * point.documents_done);
            }
            EXPECT_EQ(scratch_left(std::getenv("XDG_DATA_HOME")), std::vector<std::string>{});
        }
    }
    // A stop outside a run has no effect on the next one.
    RunHarness harness;
    harness.batch.stop();
    harness.run(options_for(folder / "out", "PNG"), {admitted_row(documents[0])});
    EXPECT_TRUE(fs::exists(folder / "out" / "doc1 Page 003.PNG"));
}

TEST_F(StopDuringACombinedRun, AbortDeliversNothingMoreOfTheDocumentUnderWay)
{
    // Aborted on the second page of the second document, with pages prepared ahead: what was
    // saved before stays whole, the document under way delivers nothing more, no combined file
    // is made, and no temporary or scratch folder is left.
    const struct
    {
        const char *format;
        bool combine;
        std::vector<std::string> names;
    } cases[] = {
        {"PDF (Multipage)", false, {"doc1.PDF"}},
        {"PDF (Multipage)", true, {}},
        {"PDF (Single Page)", false, {"doc1 Page 001.PDF", "doc1 Page 002.PDF", "doc1 Page 003.PDF", "doc2 Page 001.PDF"}},
        {"TIFF (Multipage)", false, {"doc1.TIF"}},
        {"TIFF (Multipage)", true, {}},
        {"JPEG", false, {"doc1 Page 001.JPG", "doc1 Page 002.JPG", "doc1 Page 003.JPG", "doc2 Page 001.JPG"}},
        {"TEXT", false, {"doc1.TXT"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.format) + (c.combine ? " combined" : ""));
        const fs::path out = folder / "out";
        fs::remove_all(out);
        RunHarness harness;
        harness.batch.set_jobs(3);
        harness.batch.set_listener([&](const engine::RunEvent &event) {
            if (!event.line.empty()) {
                harness.lines.push_back(event.line);
            }
            if (event.kind == engine::RunEventKind::PageStarted && event.document == "doc2.pdf" &&
                event.page == 2) {
                harness.batch.abort();
            }
        });
        auto values = options_for(out, c.format);
        values.set(OptionId::combineall, c.combine);
        values.set(OptionId::DotsPerInch, std::string("36"));
        std::vector<engine::ListRow> rows;
        for (const auto &document : documents) {
            rows.push_back(admitted_row(document));
        }
        harness.run(values, rows);

        EXPECT_EQ(expect_only_whole_files(out), c.names) << ::testing::PrintToString(harness.lines);
        EXPECT_EQ(harness.lines.back(), "Processing Terminated by User ");
        EXPECT_EQ(scratch_left(std::getenv("XDG_DATA_HOME")), std::vector<std::string>{});
    }
}

constexpr int kSlowDocuments = 12;
constexpr int kSlowPages = 2;

class CliInterrupt : public ::testing::Test
{
  protected:
    // A run slow enough to be interrupted: large scanned pages, one at a time. Longer
    // documents leave room for a second interrupt before the one under way is through.
    std::vector<std::string> slow_run(const std::string &format, const fs::path &out,
                                      bool combine = true, int pages = kSlowPages)
    {
        std::vector<std::string> arguments{"--format", format, "--jobs", "1", "-o", out.string()};
        if (combine) {
            arguments.push_back("--combineall");
        }
        const fs::path in = folder / ("in-" + std::to_string(pages));
        fs::create_directories(in);
        for (int n = 1; n <= kSlowDocuments; ++n) {
            const fs::path tiff = in / ("slow" + std::to_string(n) + ".tif");
            if (!fs::exists(tiff)) {
                make_tiff(tiff, std::vector<TiffPage>(pages,
                                                      TiffPage{.width = 1700, .height = 2200}));
            }
            arguments.push_back(tiff.string());
        }
        return arguments;
    }
    int pages_in(const fs::path &file)
    {
        return file.extension() == ".PDF" ? pdf_page_count(file)
                                          : static_cast<int>(read_tiff(file).size());
    }

    TempFolder folder;
    const fs::path data_home = folder / "data";
};

TEST_F(CliInterrupt, OneInterruptFinishesTheDocumentAndClosesTheCombinedFile)
{
    for (const char *format : {"PDF (Multipage)", "TIFF (Multipage)"}) {
        SCOPED_TRACE(format);
        const fs::path out = folder / "out";
        fs::remove_all(out);
        CliChild child(slow_run(format, out), {data_home});
        ASSERT_TRUE(child.wait_for_output("slow2.tif is being Processed", std::chrono::seconds(60)))
            << child.out();
        child.send(SIGINT);
        EXPECT_EQ(child.finish(), 3) << child.err();
        EXPECT_NE(child.err().find("Stopping after the document under way"), std::string::npos)
            << child.err();
        EXPECT_TRUE(has_line(child.out_lines(), "Processing Terminated by User ")) << child.out();
        EXPECT_EQ(child.out_lines().back(), "All Done");
        const auto names = expect_only_whole_files(out);
        const bool pdf = std::string(format).find("PDF") != std::string::npos;
        ASSERT_EQ(names, std::vector<std::string>{pdf ? "Combine.PDF" : "Combine.tif"});
        const int pages = pages_in(out / names.front());
        EXPECT_GE(pages, 2 * kSlowPages); // the document under way was finished
        EXPECT_LT(pages, kSlowDocuments * kSlowPages);
        EXPECT_EQ(scratch_left(data_home), std::vector<std::string>{});
    }
}

TEST_F(CliInterrupt, TwoInterruptsEndAtOnceAndLeaveNoTemporary)
{
    const struct
    {
        const char *format;
        bool combine;
    } kinds[] = {{"PDF (Multipage)", true},
                 {"TIFF (Multipage)", true},
                 {"PDF (Multipage)", false},
                 {"TIFF (Multipage)", false},
                 {"JPEG", false}};
    for (const auto &[format, combine] : kinds) {
        SCOPED_TRACE(std::string(format) + (combine ? " combined" : ""));
        const fs::path out = folder / "out";
        fs::remove_all(out);
        CliChild child(slow_run(format, out, combine, 12), {data_home});
        ASSERT_TRUE(child.wait_for_output("slow2.tif is being Processed", std::chrono::seconds(60)))
            << child.out();
        child.send(SIGINT);
        ::usleep(20000);
        child.send(SIGINT);
        EXPECT_EQ(child.finish(), 2) << child.err();
        EXPECT_NE(child.err().find("Stopped at once"), std::string::npos) << child.err();
        EXPECT_EQ(processes_left(data_home, std::chrono::seconds(3)), std::vector<pid_t>{})
            << "a reader worker outlives the program";
        // The combined file was never finished, so there is none; files saved before stay whole.
        const auto names = expect_only_whole_files(out);
        if (combine) {
            EXPECT_EQ(names, std::vector<std::string>{});
        }
        EXPECT_EQ(scratch_left(data_home), std::vector<std::string>{});
    }
}

TEST_F(CliInterrupt, TheNextRunClearsTheScratchOfARunKilledOutright)
{
    const fs::path out = folder / "out";
    CliChild killed(slow_run("JPEG", out, false), {data_home}); // stamped as it goes
    ASSERT_TRUE(killed.wait_for_output("slow3.tif is being Processed", std::chrono::seconds(60)))
        << killed.out();
    killed.send(SIGKILL);
    EXPECT_EQ(killed.finish(), 128 + SIGKILL);
    EXPECT_EQ(processes_left(data_home, std::chrono::seconds(3)), std::vector<pid_t>{})
        << "a reader worker outlives the program";
    ASSERT_EQ(scratch_left(data_home).size(), 1u) << "a killed run cannot clean up after itself";

    make_tiff(folder / "small.tif", {TiffPage{}});
    const auto next = run_cli(
        {"--format", "PNG", "-o", out.string(), (folder / "small.tif").string()}, {data_home});
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_EQ(scratch_left(data_home), std::vector<std::string>{});
}

} // namespace
} // namespace qf::test
