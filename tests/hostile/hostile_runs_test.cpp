// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs over hostile documents: every one gets a log line of its own, none stops the run,
// its source stays as it was, and the good documents after them are converted.
#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <gtest/gtest.h>

#include "app/load_loop.h"
#include "tests/support/engine_run.h"
#include "tests/support/hostile_files.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;
using namespace std::chrono_literals;

// The lines that report a failure of document `name`.
std::vector<std::string> failures_of(const std::vector<std::string> &lines, const std::string &name)
{
    std::vector<std::string> found;
    for (const auto &line : lines) {
        if (line.starts_with(name + " could not be opened: ") ||
            (line.starts_with(name + " page ") && line.find(" could not be converted: ") != std::string::npos)) {
            found.push_back(line);
        }
    }
    return found;
}

// Whether some output named after `stem` was reported saved.
bool saved_any(const std::vector<std::string> &lines, const std::string &stem)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string &line) {
        return line.find(stem) != std::string::npos && line.ends_with(" has been Saved");
    });
}

// The reader workers this process has started and that are still running.
std::vector<pid_t> running_readers() { return processes_left(isolated_work_folder(), {}); }

// A good PDF and a good TIFF (good.pdf, fine.tif) follow the hostile documents of every run.
class HostileRuns : public ::testing::Test {
protected:
    void SetUp() override
    {
        write_numbered_pdf(folder / "good.pdf", 1);
        make_tiff(folder / "fine.tif", {TiffPage{}});
    }

    // Runs `rows` and the good documents with readers whose page time limit is `seconds`
    // (empty: the default); the log lines.
    std::vector<std::string> run(const std::string &format, std::vector<engine::ListRow> rows,
                                 const char *seconds = nullptr)
    {
        rows.push_back(admitted_row(folder / "good.pdf"));
        rows.push_back(admitted_row(folder / "fine.tif"));
        if (seconds) {
            ::setenv("QUIREFOLD_PAGE_SECONDS", seconds, 1);
        }
        RunHarness harness; // its readers take the limit when they are made
        ::unsetenv("QUIREFOLD_PAGE_SECONDS");
        auto values = options_for(out(), format);
        values.set(OptionId::DotsPerInch, std::string("30"));
        values.set(OptionId::usepageranges, true);
        harness.run(values, rows);
        EXPECT_EQ(harness.last_tick.progress, harness.last_tick.progress_max);
        EXPECT_TRUE(saved_any(harness.lines, "good")) << ::testing::PrintToString(harness.lines);
        EXPECT_TRUE(format == "TEXT" || saved_any(harness.lines, "fine")) << ::testing::PrintToString(harness.lines);
        return harness.lines;
    }

    fs::path out() const { return folder.path() / "out"; }
    TempFolder folder;
};

// The one table of documents a run cannot use, or can use only in part, in one run.
TEST_F(HostileRuns, BadDocumentsEachGetTheirLineAndTheRunGoesOn)
{
    write_numbered_pdf(folder / "plain.pdf", 2);
    make_tiff(folder / "three.tif", std::vector<TiffPage>(3, TiffPage{.width = 40, .height = 30}));
    // pages: as the row claims
    // ranges: the row's selection; empty for all
    // line: the failure line, or its start when it ends in a space
    // saved: outputs of the pages that are whole
    const struct { const char *name; std::function<void(const fs::path &)> make; int pages;
                   std::string ranges; std::string line; std::vector<const char *> saved; } cases[] = {
        {"empty.pdf", [](const fs::path &f) { write_text_file(f, ""); }, 1, "", "empty.pdf could not be opened: "},
        {"notes.tif", [](const fs::path &f) { write_text_file(f, std::string("II*\0 no", 8)); }, 1, "",
         "notes.tif could not be opened: "},
        {"garbage.pdf", [](const fs::path &f) { write_garbage_pdf(f); }, 1, "", "garbage.pdf could not be opened: "},
        {"locked.pdf",
         [&](const fs::path &f) { write_encrypted_copy(folder / "plain.pdf", f, PdfEncryption::Aes256, "user", "owner"); },
         1, "", "locked.pdf could not be opened: the document needs a password"},
        {"gone.tif", [](const fs::path &) {}, 1, "", "gone.tif cannot be processed as it could have been moved or deleted"},
        // libtiff writes each directory after its image: the last directory ends the file.
        {"end.tif", [&](const fs::path &f) { write_truncated_copy(folder / "three.tif", f, fs::file_size(folder / "three.tif") - 20); },
         3, "", "end.tif page 3 could not be converted: ", {"end Page 001.PNG", "end Page 002.PNG"}},
        {"short.pdf", [](const fs::path &f) { write_numbered_pdf(f, 2); }, 2, "1,5,2",
         "short.pdf page 5 could not be converted: the document has 2 pages", {"short Page 001.PNG", "short Page 002.PNG"}},
        // Refused before they are attempted.
        {"wide.pdf", [](const fs::path &f) { write_wide_page_pdf(f, 14400.0 * 72); }, 1, "",
         "wide.pdf page 1 could not be converted: page too large to render: 432000 x 330 pixels"},
        {"huge.tif", [](const fs::path &f) { write_tiff_header_only(f, 200000, 200000); }, 1, "",
         "huge.tif page 1 could not be converted: the image is too large: 200000 x 200000 pixels"},
    };
    std::vector<engine::ListRow> rows;
    std::map<std::string, FileSeal> seals;
    for (const auto &c : cases) {
        c.make(folder / c.name);
        seals[c.name] = seal_of(folder / c.name);
        rows.push_back(raw_row(folder / c.name, c.pages));
        if (!c.ranges.empty()) {
            rows.back().cells[engine::column::ranges] = c.ranges;
        }
    }
    const auto lines = run("PNG", rows);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const bool prefix = c.line.ends_with(" ");
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string &line) {
            return prefix ? line.starts_with(c.line) : line == c.line;
        })) << ::testing::PrintToString(lines);
        EXPECT_TRUE(seal_of(folder / c.name) == seals[c.name]) << "the source was changed";
        for (const char *saved : c.saved) {
            EXPECT_EQ(undecodable(out() / saved), "") << saved;
        }
    }
}

// Documents that crash their reader, hold it past the page limit or loop, in every kind of
// output: each fails its one page with its reason, or converts; no reader outlives the run.
TEST_F(HostileRuns, ReadersThatCrashHangOrLoopFailOnlyTheirPage)
{
    write_looping_page_tree_pdf(folder / "loop.pdf");
    write_deep_page_tree_pdf(folder / "deep.pdf", 30000);
    write_jbig2_pdf(folder / "jbig2.pdf", 30000);
    write_doubling_forms_pdf(folder / "doubling.pdf", 40);
    write_nested_forms_pdf(folder / "forms.pdf", 3000);
    const std::string slow = "the page took longer than 1.5 seconds";
    // A crashing reader may first pass the page limit on a loaded machine: either fails the page alone.
    const std::string stopped = "the reader stopped (|" + slow;
    // Each document's failure in PNG, TEXT and PDF (Multipage) output, or its alternatives
    // separated by "|"; empty: it converts.
    const struct { const char *name; std::string fails[3]; } cases[] = {
        {"loop.pdf", {"unreadable page: cycle in page tree", "unreadable page: cycle in page tree",
                      "Loop detected in /Pages structure (getAllPages)"}},
        {"deep.pdf", {stopped, "", stopped}},
        {"jbig2.pdf", {slow, "", ""}}, // copied, not drawn, into a PDF; its text needs no picture
        {"doubling.pdf", {slow + " to draw and was abandoned", slow + " to read and was abandoned", ""}},
        {"forms.pdf", {"the page could not be rendered: ", "the page text could not be read: ", ""}},
    };
    const char *formats[] = {"PNG", "TEXT", "PDF (Multipage)"};
    for (int f = 0; f < 3; ++f) {
        SCOPED_TRACE(formats[f]);
        std::vector<engine::ListRow> rows;
        for (const auto &c : cases) {
            rows.push_back(raw_row(folder / c.name, 1));
        }
        const auto lines = run(formats[f], rows, "1.5");
        for (const auto &c : cases) {
            const auto failures = failures_of(lines, c.name);
            if (c.fails[f].empty()) {
                EXPECT_EQ(failures, std::vector<std::string>{}) << c.name;
            } else {
                ASSERT_EQ(failures.size(), 1u) << c.name << ": " << ::testing::PrintToString(lines);
                const std::string start = std::string(c.name) + " page 1 could not be converted: ";
                bool matched = false;
                for (std::size_t from = 0; from != std::string::npos;) {
                    const std::size_t bar = c.fails[f].find('|', from);
                    matched = matched || failures[0].starts_with(start + c.fails[f].substr(from, bar - from));
                    from = bar == std::string::npos ? bar : bar + 1;
                }
                EXPECT_TRUE(matched) << failures[0];
            }
        }
        EXPECT_EQ(running_readers(), std::vector<pid_t>{});
    }
}

TEST_F(HostileRuns, ClosingARunWhileAPageIsStuckStopsItsReaderAndWritesNothing)
{
    write_doubling_forms_pdf(folder / "doubling.pdf", 40);
    std::atomic<int> heard_after{0};
    std::atomic<bool> closed{false};
    {
        ::setenv("QUIREFOLD_PAGE_SECONDS", "1.5", 1);
        engine::RunSession session(real_services());
        ::unsetenv("QUIREFOLD_PAGE_SECONDS");
        session.set_listener([&](const engine::RunEvent &) { heard_after += closed ? 1 : 0; });
        auto values = options_for(out(), "PNG");
        session.start(values, {raw_row(folder / "doubling.pdf", 1), admitted_row(folder / "good.pdf")});
        std::this_thread::sleep_for(500ms); // the page is being drawn
        // Its reader is stopped at once, so the run ends within the wait, short of the limit.
        EXPECT_TRUE(session.shutdown(700ms));
        closed = true;
    }
    EXPECT_EQ(running_readers(), std::vector<pid_t>{});
    std::this_thread::sleep_for(2500ms);
    EXPECT_EQ(heard_after, 0);
    std::error_code error;
    EXPECT_TRUE(!fs::exists(out(), error) || fs::is_empty(out(), error));
    EXPECT_EQ(scratch_left(std::getenv("XDG_DATA_HOME")), std::vector<std::string>{});
}

// Admission whose reader cannot run: each document is dropped with the reason, and a PDF is
// never taken for one that wants a password.
TEST_F(HostileRuns, AFileWhoseReaderFailsIsDroppedWithTheReason)
{
    struct CountingPrompt final : intake::PasswordPrompt {
        int asked = 0;
        intake::PromptAnswer ask(const std::string &, const std::string &) override
        {
            ++asked;
            return intake::PromptAnswer::cancel();
        }
    } prompt;
    ::setenv("QUIREFOLD_WORKER", (folder / "no-such-reader").c_str(), 1);
    std::vector<std::string> lines;
    app::LoadRequest request;
    request.paths = {(folder / "good.pdf").string(), (folder / "fine.tif").string()};
    const app::LoadSummary summary =
        app::run_load(request, prompt, {.problem = [&](const app::LoadProblem &p) { lines.push_back(p.line); }});
    ::unsetenv("QUIREFOLD_WORKER");
    const std::string reason = "could not be opened: the reader could not start: no-such-reader: No such file or directory";
    EXPECT_EQ(lines, (std::vector<std::string>{"good.pdf " + reason, "fine.tif " + reason}));
    EXPECT_EQ(summary.rows_added, 0);
    EXPECT_EQ(prompt.asked, 0);
}

} // namespace
} // namespace qf::test
