// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs over hostile documents: every one gets a log line of its own, none stops the run,
// and the good document after them is converted.
#include <algorithm>
#include <csignal>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <gtest/gtest.h>
#include <iostream>
#include <thread>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "tests/support/process.h"
#include "app/load_loop.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/hostile_files.h"
#include "tests/support/image_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;
using Clock = std::chrono::steady_clock;

bool starts_with(const std::string &text, const std::string &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool ends_with(const std::string &text, const std::string &suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The lines that report a failure of document `name`: "NAME could not be opened: ..." or
// "NAME page N could not be converted: ...".
std::vector<std::string> failures_of(const std::vector<std::string> &lines, const std::string &name)
{
    std::vector<std::string> found;
    for (const auto &line : lines) {
        if (starts_with(line, name + " could not be opened: ") ||
            (starts_with(line, name + " page ") &&
             line.find(" could not be converted: ") != std::string::npos)) {
            found.push_back(line);
        }
    }
    return found;
}

// Whether some output named after `stem` was reported saved.
bool saved_any(const std::vector<std::string> &lines, const std::string &stem)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string &line) {
        return line.find(stem) != std::string::npos && ends_with(line, " has been Saved");
    });
}

// A good PDF and a good TIFF (good.pdf, fine.tif), converted after the hostile ones: the run went
// on.
class HostileRuns : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        write_numbered_pdf(folder / "good.pdf", 1);
        make_tiff(folder / "fine.tif", {TiffPage{}});
    }

    // The log of the last run, to see what went wrong.
    void TearDown() override
    {
        if (HasFailure()) {
            for (const auto &line : harness.lines) {
                std::cerr << "  log: " << line << '\n';
            }
        }
    }

    std::vector<engine::ListRow> with_good_documents(std::vector<engine::ListRow> rows) const
    {
        rows.push_back(admitted_row(folder / "good.pdf"));
        rows.push_back(admitted_row(folder / "fine.tif"));
        return rows;
    }

    engine::OptionValues options(const std::string &format) const
    {
        auto values = options_for(out(), format);
        values.set(OptionId::DotsPerInch, std::string("30"));
        return values;
    }

    void expect_good_documents_converted() const
    {
        EXPECT_EQ(read_png(out() / "good.PNG").image.width, 255); // 612 pt at 30 dpi
        EXPECT_EQ(read_png(out() / "fine.PNG").image.width, 64);
    }

    fs::path out() const { return folder.path() / "out"; }
    TempFolder folder;
    RunHarness harness;
};

// The one table of documents a run cannot use: each gets its line, the sources stay as they
// were, and the run goes on to the good documents after them.
TEST_F(HostileRuns, BadDocumentsEachGetTheirLineAndTheRunGoesOn)
{
    write_numbered_pdf(folder / "plain.pdf", 2);
    const struct
    {
        const char *name;
        std::function<void(const fs::path &)> make;
        int pages;          // as the row claims
        std::string ranges; // the row's selection; empty for all
        std::string line;   // the failure line, or its start when it ends in a space
    } cases[] = {
        {"empty.pdf", [](const fs::path &f) { write_text_file(f, ""); }, 1, "",
         "empty.pdf could not be opened: "},
        {"empty.tif", [](const fs::path &f) { write_text_file(f, ""); }, 1, "",
         "empty.tif could not be opened: "},
        {"notes.pdf", [](const fs::path &f) { write_text_file(f, "Shopping list\nbread\n"); }, 1,
         "", "notes.pdf could not be opened: "},
        {"notes.tif", [](const fs::path &f) { write_text_file(f, std::string("II*\0 no", 8)); },
         1, "", "notes.tif could not be opened: "},
        {"garbage.pdf", [](const fs::path &f) { write_garbage_pdf(f); }, 1, "",
         "garbage.pdf could not be opened: "},
        {"locked.pdf",
         [&](const fs::path &f) {
             write_encrypted_copy(folder / "plain.pdf", f, PdfEncryption::Aes256, "user", "owner");
         },
         1, "", "locked.pdf could not be opened: the document needs a password"},
        {"gone.tif", [](const fs::path &) {}, 1, "",
         "gone.tif cannot be processed as it could have been moved or deleted"},
        {"cut.tif",
         [](const fs::path &f) {
             make_tiff(f, {TiffPage{.width = 300, .height = 300, .compression = 1}, TiffPage{}});
             fs::resize_file(f, fs::file_size(f) / 2);
         },
         2, "", "cut.tif could not be "},
        {"short.pdf", [](const fs::path &f) { write_numbered_pdf(f, 2); }, 2, "1,5,2",
         "short.pdf page 5 could not be converted: the document has 2 pages"},
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
    auto values = options("PNG");
    values.set(OptionId::usepageranges, true);
    harness.run(values, with_good_documents(rows));

    for (const auto &c : cases) {
        const bool prefix = ends_with(c.line, " ");
        EXPECT_TRUE(std::any_of(harness.lines.begin(), harness.lines.end(),
                                [&](const std::string &line) {
                                    return prefix ? starts_with(line, c.line) : line == c.line;
                                }))
            << c.line;
        EXPECT_TRUE(seal_of(folder / c.name) == seals[c.name]) << c.name << " was changed";
    }
    // The whole pages of the cut and short documents are converted all the same.
    EXPECT_TRUE(fs::exists(out() / "short Page 001.PNG"));
    EXPECT_TRUE(fs::exists(out() / "short Page 002.PNG"));
    EXPECT_FALSE(saved_any(harness.lines, "notes"));
    EXPECT_EQ(harness.last_tick.progress, harness.last_tick.progress_max);
    expect_good_documents_converted();
}

TEST_F(HostileRuns, TruncatedDocumentsConvertWhatTheyHoldOrSayWhy)
{
    write_numbered_pdf(folder / "whole.pdf", 3);
    make_tiff(folder / "whole.tif",
              {TiffPage{.width = 40, .height = 30},
               TiffPage{.width = 40, .height = 30, .kind = TiffKind::Bilevel, .compression = 4},
               TiffPage{.width = 40, .height = 30}});
    std::vector<engine::ListRow> rows;
    std::vector<std::string> names;
    for (const char *extension : {".pdf", ".tif"}) {
        const fs::path whole = folder / (std::string("whole") + extension);
        const std::size_t size = fs::file_size(whole);
        // Cuts spread over the file, and byte by byte through its end, where the
        // cross-reference table and the last TIFF directory are.
        std::vector<std::size_t> cuts;
        for (std::size_t cut = 1; cut <= 24; ++cut) {
            cuts.push_back(size * cut / 25);
        }
        for (std::size_t back = 1; back <= 24; ++back) {
            cuts.push_back(size - back);
        }
        for (const std::size_t keep : cuts) {
            const std::string name =
                std::string("cut-") + (extension + 1) + "-" + std::to_string(keep) + extension;
            write_truncated_copy(whole, folder / name, keep);
            rows.push_back(raw_row(folder / name, 3));
            names.push_back(name);
        }
    }
    harness.run(options("PNG"), with_good_documents(rows));

    for (const auto &name : names) {
        const std::string stem = fs::path(name).stem().string();
        EXPECT_TRUE(!failures_of(harness.lines, name).empty() || saved_any(harness.lines, stem))
            << name << " has no line of its own";
    }
    expect_good_documents_converted();
}

// A page time limit of 1.5 seconds for the readers of the runs a test makes: set before the
// fixture's run, and its readers, are made.
class ShortPageLimit
{
  protected:
    ShortPageLimit()
    {
        if (const char *previous = std::getenv(kVariable)) {
            previous_ = previous;
        }
        ::setenv(kVariable, "1.5", 1);
    }
    ~ShortPageLimit()
    {
        if (previous_) {
            ::setenv(kVariable, previous_->c_str(), 1);
        } else {
            ::unsetenv(kVariable);
        }
    }

  private:
    static constexpr const char *kVariable = "QUIREFOLD_PAGE_SECONDS";
    std::optional<std::string> previous_;
};

class PageTimeLimit : private ShortPageLimit, public HostileRuns
{
};

// The reader workers this process has started and that are still running.
std::vector<pid_t> running_readers()
{
    std::vector<pid_t> found;
    std::error_code error;
    for (fs::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
        std::ifstream stat(it->path() / "stat");
        std::string line;
        if (!std::getline(stat, line) || line.find("(quirefold-work") == std::string::npos) {
            continue;
        }
        std::istringstream fields(line.substr(line.rfind(')') + 2));
        char state = 0;
        pid_t parent = 0;
        fields >> state >> parent;
        if (state != 'Z' && parent == ::getpid()) {
            found.push_back(std::stoi(it->path().filename().string()));
        }
    }
    return found;
}

TEST_F(PageTimeLimit, AnExponentialPageIsAbandonedAndTheRunGoesOn)
{
    write_doubling_forms_pdf(folder / "doubling.pdf", 40);
    const struct
    {
        const char *format;
        const char *work;
    } cases[] = {{"PNG", "draw"}, {"TEXT", "read"}};
    for (const auto &c : cases) {
        harness.run(options(c.format),
                    {raw_row(folder / "doubling.pdf", 1), admitted_row(folder / "good.pdf")});
        EXPECT_TRUE(has_line(harness.lines, std::string("doubling.pdf page 1 could not be "
                                                        "converted: the page took longer than "
                                                        "1.5 seconds to ") +
                                                c.work + " and was abandoned"))
            << c.format;
        EXPECT_TRUE(saved_any(harness.lines, "good")) << c.format;
    }
    // Copying the page is not drawing it: the PDF output has it, quickly.
    harness.run(options("PDF (Multipage)"), {raw_row(folder / "doubling.pdf", 1)});
    EXPECT_EQ(pdf_page_count(out() / "doubling.PDF"), 1);
}

TEST_F(PageTimeLimit, ClosingARunWhileAPageIsStuckReturnsAtOnce)
{
    write_doubling_forms_pdf(folder / "doubling.pdf", 40);
    std::atomic<int> heard_after{0};
    std::atomic<bool> closed{false};
    Clock::duration took{};
    {
        engine::RunSession session(real_services());
        session.set_listener([&](const engine::RunEvent &) { heard_after += closed ? 1 : 0; });
        session.start(options("PNG"), {raw_row(folder / "doubling.pdf", 1), admitted_row(folder / "good.pdf")});
        std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the page is being drawn
        const auto started = Clock::now();
        // Its reader is stopped at once, so the run ends within the wait.
        EXPECT_TRUE(session.shutdown(std::chrono::milliseconds(700)));
        closed = true;
        took = Clock::now() - started;
    }
    EXPECT_LT(took, std::chrono::milliseconds(800));
    EXPECT_EQ(running_readers(), std::vector<pid_t>{});
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(heard_after, 0);
    std::error_code error;
    EXPECT_TRUE(!fs::exists(out(), error) || fs::is_empty(out(), error));
    const fs::path work = fs::path(std::getenv("XDG_DATA_HOME")) / "org.quirefold.extract";
    for (fs::directory_iterator it(work, error), end; !error && it != end; it.increment(error)) {
        EXPECT_NE(it->path().filename().string().rfind("run-", 0), 0u) << it->path();
    }
}

// Documents that crash their reader or hold it past the page limit, in one batch with good
// ones: each bad one gets its line, the good ones convert, the run ends soon after the limit,
// and no reader outlives the run.
TEST_F(PageTimeLimit, ReadersThatCrashOrHangFailOnlyTheirPage)
{
    write_looping_page_tree_pdf(folder / "loop.pdf");
    write_deep_page_tree_pdf(folder / "deep.pdf", 30000);
    write_jbig2_pdf(folder / "jbig2.pdf", 30000);
    const std::string failed = " page 1 could not be converted: ";
    const struct
    {
        const char *format;
        std::vector<std::string> lines; // each document's failure line, or its start
        const char *good_pdf;           // how the good PDF comes out
    } cases[] = {
        {"PDF (Multipage)",
         {"loop.pdf" + failed + "Loop detected in /Pages structure (getAllPages)",
          "deep.pdf" + failed + "the reader stopped (", "jbig2.pdf"},
         "good.PDF"},
        {"PNG",
         {"loop.pdf" + failed + "unreadable page: cycle in page tree",
          "deep.pdf" + failed + "the reader stopped (",
          "jbig2.pdf" + failed + "the page took longer than 1.5 seconds"},
         "good.PNG"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.format);
        std::vector<pid_t> readers;
        Clock::duration took{};
        {
            RunHarness run;
            const auto started = Clock::now();
            run.run(options(c.format), with_good_documents({raw_row(folder / "loop.pdf", 1),
                                                            raw_row(folder / "deep.pdf", 1),
                                                            raw_row(folder / "jbig2.pdf", 1)}));
            took = Clock::now() - started;
            readers = running_readers();
            for (const auto &expected : c.lines) {
                const std::string name = expected.substr(0, expected.find(' '));
                const auto lines = failures_of(run.lines, name);
                if (expected == name) { // copied, not drawn: the page converts
                    EXPECT_EQ(lines, std::vector<std::string>{}) << name;
                    continue;
                }
                ASSERT_EQ(lines.size(), 1u) << name << ": " << ::testing::PrintToString(run.lines);
                EXPECT_TRUE(starts_with(lines[0], expected)) << lines[0];
            }
            EXPECT_TRUE(saved_any(run.lines, "good")) << ::testing::PrintToString(run.lines);
            EXPECT_TRUE(saved_any(run.lines, "fine"));
        }
        EXPECT_TRUE(fs::exists(out() / c.good_pdf));
        // 1.5 seconds for the page and one of grace before its reader is killed; the decoder
        // alone would take minutes.
        EXPECT_LT(took, std::chrono::seconds(20));
        EXPECT_FALSE(readers.empty());
        EXPECT_EQ(running_readers(), std::vector<pid_t>{});
    }
}

// The command line killed outright while a reader decodes a page: its readers go with it.
TEST_F(HostileRuns, AFrontEndKilledOutrightLeavesNoReader)
{
    write_jbig2_pdf(folder / "jbig2.pdf", 30000);
    CliChild cli({"--format", "png", "-o", out().string(), (folder / "jbig2.pdf").string()},
                 {.data_home = folder / "data"});
    ASSERT_TRUE(cli.wait_for_output("added to the list", std::chrono::seconds(30)));
    std::vector<pid_t> readers;
    const auto give_up_finding = Clock::now() + std::chrono::seconds(10);
    while (readers.empty() && Clock::now() < give_up_finding) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // into the page
        std::error_code error;
        const fs::path tasks = "/proc/" + std::to_string(cli.pid()) + "/task";
        for (fs::directory_iterator it(tasks, error), end; !error && it != end; it.increment(error)) {
            std::ifstream children(it->path() / "children");
            for (pid_t pid = 0; children >> pid;) {
                readers.push_back(pid);
            }
        }
    }
    ASSERT_FALSE(readers.empty());
    cli.send(SIGKILL);
    cli.finish();
    const auto gone = [](pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string line;
        return !std::getline(stat, line) || line.substr(line.rfind(')') + 2, 1) == "Z";
    };
    const auto give_up = Clock::now() + std::chrono::seconds(5);
    while (!std::all_of(readers.begin(), readers.end(), gone) && Clock::now() < give_up) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (const pid_t pid : readers) {
        EXPECT_TRUE(gone(pid)) << pid;
    }
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
    const char *previous = std::getenv("QUIREFOLD_WORKER");
    const std::string kept = previous ? previous : "";
    ::setenv("QUIREFOLD_WORKER", (folder / "no-such-reader").c_str(), 1);
    std::vector<std::string> lines;
    app::LoadRequest request;
    request.paths = {(folder / "good.pdf").string(), (folder / "fine.tif").string()};
    const app::LoadSummary summary = app::run_load(
        request, prompt, {.problem = [&](const app::LoadProblem &p) { lines.push_back(p.line); }});
    previous ? ::setenv("QUIREFOLD_WORKER", kept.c_str(), 1) : ::unsetenv("QUIREFOLD_WORKER");
    const std::string reason = "could not be opened: the reader could not start: no-such-reader: "
                               "No such file or directory";
    EXPECT_EQ(lines, (std::vector<std::string>{"good.pdf " + reason, "fine.tif " + reason}));
    EXPECT_EQ(summary.rows_added, 0);
    EXPECT_EQ(prompt.asked, 0);
}

// Content built to exhaust a reader, in every kind of output: forms that draw themselves or
// each other are drawn once round the loop; deep nesting ends with the page or, for forms
// 3000 deep drawn or read (copying is not), with a reason.
TEST_F(HostileRuns, LoopsAndDeepNestingEndWithAPageOrAReason)
{
    write_self_drawing_form_pdf(folder / "self.pdf");
    write_mutual_forms_pdf(folder / "mutual.pdf");
    write_nested_saves_pdf(folder / "saves.pdf", 20000);
    write_nested_forms_pdf(folder / "forms.pdf", 3000);
    write_nested_arrays_pdf(folder / "arrays.pdf", 20000);
    const char *names[] = {"self.pdf", "mutual.pdf", "saves.pdf", "forms.pdf", "arrays.pdf"};
    for (const std::string format : {"PNG", "TEXT", "PDF (Multipage)"}) {
        SCOPED_TRACE(format);
        std::vector<engine::ListRow> rows;
        for (const char *name : names) {
            rows.push_back(raw_row(folder / name, 1));
        }
        harness.run(options(format), with_good_documents(rows));
        for (const std::string name : names) {
            const auto failures = failures_of(harness.lines, name);
            const bool fails = name == "forms.pdf" && format != "PDF (Multipage)";
            ASSERT_EQ(failures.size(), fails ? 1u : 0u) << name;
            if (fails) {
                EXPECT_TRUE(starts_with(failures[0], name + " page 1 could not be converted: "))
                    << failures[0];
            }
        }
        EXPECT_TRUE(saved_any(harness.lines, "good"));
    }
    // What the pages show: the first round of each loop (the blue square at (10, 10), 100
    // points a side, and the red one of the second form at (200, 200)) and the nested fill.
    const struct
    {
        const char *png;
        int x, from_bottom;
        std::array<std::uint8_t, 3> rgb;
    } shown[] = {{"self.PNG", 25, 25, {0, 0, 255}},
                 {"mutual.PNG", 100, 100, {255, 0, 0}},
                 {"saves.PNG", 10, 10, {0, 0, 255}}};
    for (const auto &s : shown) {
        const PngFile png = read_png(out() / s.png);
        EXPECT_EQ(png.image.rgb_at(s.x, png.image.height - s.from_bottom), s.rgb) << s.png;
    }
    for (const char *pdf : {"self.PDF", "mutual.PDF", "saves.PDF", "forms.PDF", "arrays.PDF"}) {
        EXPECT_EQ(pdf_page_count(out() / pdf), 1) << pdf;
    }
}

TEST_F(HostileRuns, AMultipageTiffCutInItsLastDirectoryKeepsItsWholePages)
{
    make_tiff(folder / "three.tif",
              {TiffPage{.width = 40, .height = 30}, TiffPage{.width = 40, .height = 30},
               TiffPage{.width = 40, .height = 30}});
    // libtiff writes each directory after its image: the last directory ends the file.
    write_truncated_copy(folder / "three.tif", folder / "cut.tif",
                         fs::file_size(folder / "three.tif") - 20);
    harness.run(options("PNG"), with_good_documents({raw_row(folder / "cut.tif", 3)}));
    EXPECT_EQ(read_png(out() / "cut Page 001.PNG").image.width, 40);
    EXPECT_EQ(read_png(out() / "cut Page 002.PNG").image.width, 40);
    const auto failures = failures_of(harness.lines, "cut.tif");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_TRUE(starts_with(failures[0], "cut.tif page 3 could not be converted: ")) << failures[0];
    expect_good_documents_converted();
}

} // namespace
} // namespace qf::test
