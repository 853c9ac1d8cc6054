// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs with PDF documents in or out: log lines, pages, text, merge and security.
#include <gtest/gtest.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "sources/pdf_source.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

// The text of every page of a PDF, read back with MuPDF.
std::vector<std::string> page_texts(const fs::path& pdf)
{
    auto source = sources::open_pdf_source({pdf, "", engine::kTiledNo});
    std::vector<std::string> texts;
    for (int page = 1; page <= source->page_count(); ++page) {
        texts.push_back(source->text(page));
    }
    return texts;
}

class PdfRuns : public ::testing::Test {
protected:
    fs::path out() const { return folder.path() / "out"; }
    TempFolder folder;
    RunHarness harness;
};

TEST_F(PdfRuns, AMultipagePdfOfASelectionLogsPositionsAndPageNumbers)
{
    const auto report = folder / "report.pdf";
    write_numbered_pdf(report, 8);
    auto values = options_for(out(), "PDF (Multipage)");
    values.set(OptionId::ZeroPadding, 0);
    values.set(OptionId::usepageranges, true);
    auto row = admitted_row(report);
    row.cells[4] = "4-6";
    harness.run(values, {row});
    const std::vector<std::string> expected = {
        "report.pdf is being Processed", "Page 4 is being Processed ", "Page 1 Added to PDF",
        "Page 5 is being Processed ",    "Page 2 Added to PDF",        "Page 6 is being Processed ",
        "Page 3 Added to PDF",           "report Page 4 to 6.PDF has been Saved",
    };
    EXPECT_EQ(harness.lines, expected);
    EXPECT_EQ(page_texts(out() / "report Page 4 to 6.PDF"),
              (std::vector<std::string>{"Hello page 4", "Hello page 5", "Hello page 6"}));
}

TEST_F(PdfRuns, CombinedRunsMergeEveryDocumentInOrder)
{
    const auto first = folder / "first.pdf";
    write_numbered_pdf(first, 2);
    const auto second = folder / "second.tif";
    make_tiff(second, {TiffPage{}});
    auto values = options_for(out(), "PDF (Multipage)");
    values.set(OptionId::combineall, true);
    values.set(OptionId::combinedfilename, std::string("Both"));
    harness.run(values, {admitted_row(first), admitted_row(second)});
    // Only the combined file reaches the destination, and no temporary is left anywhere.
    EXPECT_EQ(tree_of(out()), std::vector<std::string>{"Both.PDF"});
    const auto texts = page_texts(out() / "Both.PDF");
    EXPECT_EQ(texts, (std::vector<std::string>{"Hello page 1", "Hello page 2", ""}));
    EXPECT_TRUE(has_line(harness.lines, "Combing Files and Saving to Both.PDF"));
    EXPECT_EQ(std::count_if(harness.lines.begin(), harness.lines.end(),
                            [](const std::string& line) { return line.starts_with("Merging "); }),
              2);
    EXPECT_EQ(scratch_left(std::getenv("XDG_DATA_HOME")), std::vector<std::string>{});
}

TEST_F(PdfRuns, TextOfTheSelectedPagesEndsEachPageWithALineBreak)
{
    const auto source = folder / "notes.pdf";
    write_numbered_pdf(source, 3);
    harness.run(options_for(out(), "TEXT"), {admitted_row(source)});
    const fs::path written = out() / "notes.TXT";
    EXPECT_EQ(file_bytes(written), "Hello page 1\nHello page 2\nHello page 3\n");
    EXPECT_EQ(harness.lines.back(), written.string() + " has been Saved");

    const auto blank = folder / "blank.pdf";
    write_pdf(blank, {PdfPageSpec{}, PdfPageSpec{}});
    harness.run(options_for(out(), "TEXT"), {admitted_row(blank)});
    EXPECT_EQ(harness.batch.texttoadd(), "No Text Found");
    EXPECT_FALSE(fs::exists(out() / "blank.TXT"));
}


// G4 scans are passed into the PDF still compressed, and both polarities show black as black.
TEST_F(PdfRuns, G4ScansPassIntoThePdfCompressedAndShowTheSamePixels)
{
    const auto scan = folder / "scan.tif";
    make_tiff(scan, {TiffPage{.width = 160, .height = 120, .kind = TiffKind::Bilevel, .compression = 4, .xres = 72, .yres = 72},
                     TiffPage{.width = 160, .height = 120, .kind = TiffKind::BilevelMinIsBlack, .compression = 4},
                     TiffPage{.width = 160, .height = 120, .kind = TiffKind::Bilevel, .compression = 4, .fill_order = 2}});
    harness.run(options_for(out(), "PDF (Multipage)"), {admitted_row(scan)});
    QPDF written;
    open_pdf(written, out() / "scan.PDF");
    const auto pages = QPDFPageDocumentHelper(written).getAllPages();
    ASSERT_EQ(pages.size(), 3u);
    for (const auto& page : pages) {
        auto images = page_images(page);
        ASSERT_EQ(images.size(), 1u);
        EXPECT_EQ(images[0].getDict().getKey("/Filter").getName(), "/CCITTFaxDecode");
    }
    // Both polarities and both bit orders show the same picture, the black square black.
    auto drawn = sources::open_pdf_source({out() / "scan.PDF", "", engine::kTiledNo});
    const auto first = drawn->picture(1, {.dpi = 72, .zoom = 1});
    EXPECT_LT(first.pixels[first.stride() * 30 + 3 * 40], 60);
    for (int page = 2; page <= 3; ++page) {
        EXPECT_EQ(drawn->picture(page, {.dpi = 72, .zoom = 1}).pixels, first.pixels) << page;
    }
}

} // namespace
} // namespace qf::test
