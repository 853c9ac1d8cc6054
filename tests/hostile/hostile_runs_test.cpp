// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs over hostile documents: every one gets a log line of its own, none stops the run,
// and the good document after them is converted.
#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <gtest/gtest.h>
#include <iostream>

#include "sources/pdf_source.h"
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

TEST_F(HostileRuns, LoopingFormsAreDrawnOnceRoundTheLoopInEveryOutput)
{
    write_self_drawing_form_pdf(folder / "self.pdf");
    write_mutual_forms_pdf(folder / "mutual.pdf");
    for (const std::string format : {"PNG", "TEXT", "PDF (Multipage)"}) {
        SCOPED_TRACE(format);
        harness.run(options(format),
                    {raw_row(folder / "self.pdf", 1), raw_row(folder / "mutual.pdf", 1),
                     admitted_row(folder / "good.pdf")});
        EXPECT_TRUE(failures_of(harness.lines, "self.pdf").empty());
        EXPECT_TRUE(failures_of(harness.lines, "mutual.pdf").empty());
        EXPECT_TRUE(saved_any(harness.lines, "good"));
    }
    // The first round of each loop shows: the blue square at (10, 10), 100 points a side, and
    // the red one of the second form at (200, 200).
    const PngFile self = read_png(out() / "self.PNG");
    EXPECT_EQ(self.image.rgb_at(25, self.image.height - 25),
              (std::array<std::uint8_t, 3>{0, 0, 255}));
    const PngFile mutual = read_png(out() / "mutual.PNG");
    EXPECT_EQ(mutual.image.rgb_at(100, mutual.image.height - 100),
              (std::array<std::uint8_t, 3>{255, 0, 0}));
    EXPECT_EQ(pdf_page_count(out() / "self.PDF"), 1);
    EXPECT_EQ(pdf_page_count(out() / "mutual.PDF"), 1);
}

class PageTimeLimit : public HostileRuns
{
  protected:
    void SetUp() override
    {
        HostileRuns::SetUp();
        previous_ = sources::page_time_limit();
        sources::set_page_time_limit(std::chrono::milliseconds(1500));
    }
    void TearDown() override
    {
        sources::set_page_time_limit(previous_);
        HostileRuns::TearDown();
    }

  private:
    std::chrono::milliseconds previous_{};
};

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

TEST_F(HostileRuns, DeepNestingEndsWithAPageOrAReason)
{
    write_nested_saves_pdf(folder / "saves.pdf", 20000);
    write_nested_forms_pdf(folder / "forms.pdf", 3000);
    write_nested_arrays_pdf(folder / "arrays.pdf", 20000);
    const struct
    {
        const char *format;
        bool forms_fail; // drawing or reading forms 3000 deep is refused; copying is not
    } cases[] = {{"PNG", true}, {"TEXT", true}, {"PDF (Multipage)", false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.format);
        harness.run(options(c.format), with_good_documents({raw_row(folder / "saves.pdf", 1),
                                                            raw_row(folder / "forms.pdf", 1),
                                                            raw_row(folder / "arrays.pdf", 1)}));
        EXPECT_TRUE(failures_of(harness.lines, "saves.pdf").empty());
        EXPECT_TRUE(failures_of(harness.lines, "arrays.pdf").empty());
        const auto forms = failures_of(harness.lines, "forms.pdf");
        ASSERT_EQ(forms.size(), c.forms_fail ? 1u : 0u);
        if (c.forms_fail) {
            EXPECT_TRUE(starts_with(forms[0], "forms.pdf page 1 could not be converted: "))
                << forms[0];
        }
        EXPECT_TRUE(saved_any(harness.lines, "good"));
    }
    // The nested fill is drawn: the blue square at the origin, 100 points a side.
    const PngFile saves = read_png(out() / "saves.PNG");
    EXPECT_EQ(saves.image.rgb_at(10, saves.image.height - 10),
              (std::array<std::uint8_t, 3>{0, 0, 255}));
    for (const char *pdf : {"saves.PDF", "forms.PDF", "arrays.PDF"}) {
        EXPECT_EQ(pdf_page_count(out() / pdf), 1) << pdf;
    }
}

TEST_F(HostileRuns, OversizedPagesAndImagesAreRefusedBeforeTheyAreAttempted)
{
    write_wide_page_pdf(folder / "wide.pdf", 14400.0 * 72);
    write_image_bomb_pdf(folder / "bomb.pdf", 60000, 60000);
    write_tiff_header_only(folder / "huge.tif", 200000, 200000);
    harness.run(options("PNG"), with_good_documents({raw_row(folder / "wide.pdf", 1),
                                                     raw_row(folder / "bomb.pdf", 1),
                                                     admitted_row(folder / "huge.tif")}));
    EXPECT_TRUE(has_line(harness.lines, "wide.pdf page 1 could not be converted: page too large "
                                        "to render: 432000 x 330 pixels"));
    EXPECT_TRUE(has_line(harness.lines, "huge.tif page 1 could not be converted: the image is too "
                                        "large: 200000 x 200000 pixels"));
    // Within the memory ceiling MuPDF draws the image at the size it is shown; the ceiling
    // itself is tried through the command line, which can be given a small one.
    EXPECT_TRUE(saved_any(harness.lines, "bomb") ||
                !failures_of(harness.lines, "bomb.pdf").empty());
    expect_good_documents_converted();

    // Every output that decodes the TIFF refuses it the same way; the wide page is refused
    // where it must be drawn and written where it need not (a PDF copy, its text).
    for (const std::string format : {"TIFF (Multipage)", "PDF (Multipage)", "TEXT"}) {
        SCOPED_TRACE(format);
        harness.run(options(format),
                    {raw_row(folder / "huge.tif", 1), raw_row(folder / "wide.pdf", 1)});
        if (format != "TEXT") {
            EXPECT_TRUE(has_line(harness.lines, "huge.tif page 1 could not be converted: the "
                                                "image is too large: 200000 x 200000 pixels"));
        }
        if (format == "TIFF (Multipage)") {
            EXPECT_EQ(failures_of(harness.lines, "wide.pdf").size(), 1u);
        } else {
            EXPECT_TRUE(saved_any(harness.lines, "wide"));
        }
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
