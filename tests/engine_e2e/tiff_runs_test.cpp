// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs over TIFF documents: names, pixels and log lines of what was written.
#include <algorithm>
#include <fstream>
#include <typeinfo>
#include <gtest/gtest.h>

#include "tests/support/engine_run.h"
#include "tests/support/image_checks.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

class TiffRuns : public ::testing::Test {
protected:
    TempFolder folder;
    RunHarness harness;
    fs::path out() const { return folder.path() / "out"; }
};

TEST_F(TiffRuns, JpegPagesCarryTheSourcePixelsAndTheChosenDensity)
{
    const auto source = folder / "scan.tif";
    make_tiff(source, {TiffPage{.width = 64, .height = 48}, TiffPage{.width = 80, .height = 40},
                       TiffPage{.kind = TiffKind::Bilevel, .compression = 4}});
    auto values = options_for(out(), "JPEG");
    values.set(OptionId::DotsPerInch, std::string("300"));
    harness.run(values, {admitted_row(source)});

    const std::vector<std::string> expected = {
        "scan.tif is being Processed", "Page 1 is being Processed", "scan Page 001.JPG has been Saved",
        "scan Page 002.JPG has been Saved", "scan Page 003.JPG has been Saved",
    };
    EXPECT_EQ(harness.lines, expected);
    const struct {
        const char* name;
        int width, height;
        std::array<std::uint8_t, 3> corner;
    } pages[] = {
        {"scan Page 001.JPG", 64, 48, {200, 30, 30}},
        {"scan Page 002.JPG", 80, 40, {30, 160, 40}},
        {"scan Page 003.JPG", 64, 48, {255, 255, 255}},
    };
    for (const auto& page : pages) {
        const JpegFile jpeg = read_jpeg(out() / page.name);
        EXPECT_TRUE(jpeg.progressive) << page.name;
        EXPECT_EQ(jpeg.image.components, 3) << page.name;
        EXPECT_EQ(jpeg.image.width, page.width) << page.name;
        EXPECT_EQ(jpeg.image.height, page.height) << page.name;
        EXPECT_EQ(jpeg.density_unit, 1) << page.name;
        EXPECT_EQ(jpeg.x_density, 300) << page.name;
        const auto corner = jpeg.image.rgb_at(page.width - 2, page.height - 2);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(corner[c], page.corner[c], 12) << page.name;
        }
        EXPECT_LT(jpeg.image.rgb_at(page.width / 4, page.height / 4)[0], 40) << page.name;
    }
    EXPECT_EQ(harness.batch.failures(), 0);
    EXPECT_EQ(harness.statustext.rfind("All Done\n", 0), 0u);
}

TEST_F(TiffRuns, SelectionsKeepTheirOrderAndNameByPageNumber)
{
    const auto source = folder / "book.tif";
    make_tiff(source, {TiffPage{}, TiffPage{}, TiffPage{}, TiffPage{}});
    auto values = options_for(out(), "PNG");
    values.set(OptionId::usepageranges, true);
    auto row = admitted_row(source);
    row.cells[4] = "4,2";
    harness.run(values, {row});
    const std::vector<std::string> expected = {
        "book.tif is being Processed", "Page 4 is being Processed", "book Page 004.PNG has been Saved",
        "book Page 002.PNG has been Saved",
    };
    EXPECT_EQ(harness.lines, expected);
    EXPECT_EQ(read_png(out() / "book Page 004.PNG").image.rgb_at(63, 47), (std::array<std::uint8_t, 3>{230, 200, 20}));
}

TEST_F(TiffRuns, OnePageDocumentsAndTiledFiles)
{
    const auto single = folder / "single.tif";
    make_tiff(single, {TiffPage{}});
    const auto tiled = folder / "tiled.tiff";
    make_tiff(tiled, {TiffPage{.tiled = true}, TiffPage{.width = 32, .height = 32, .tiled = true}});
    harness.run(options_for(out(), "JPEG"), {admitted_row(single), admitted_row(tiled)});
    EXPECT_TRUE(fs::exists(out() / "single.JPG"));
    // A tiled file is one page showing its second image.
    EXPECT_EQ(read_jpeg(out() / "tiled.JPG").image.width, 32);
}

TEST_F(TiffRuns, TextOfATiffIsNoTextFoundAndReplacesTheLog)
{
    const auto source = folder / "scan.tif";
    make_tiff(source, {TiffPage{}, TiffPage{}});
    harness.run(options_for(out(), "PNG"), {admitted_row(source)});
    harness.run(options_for(out(), "TEXT"), {admitted_row(source)});
    EXPECT_EQ(harness.batch.texttoadd(), "No Text Found");
    EXPECT_FALSE(fs::exists(out() / "scan Page 001 to 002.TXT"));
    EXPECT_FALSE(fs::exists(out() / "scan.TXT"));
}

TEST_F(TiffRuns, TheLogGrowsAcrossRunsNewestFirst)
{
    const auto source = folder / "scan.tif";
    make_tiff(source, {TiffPage{}});
    harness.run(options_for(out(), "PNG"), {admitted_row(source)});
    const std::string first = harness.batch.texttoadd();
    harness.run(options_for(out(), "JPEG"), {admitted_row(source)});
    EXPECT_EQ(harness.batch.texttoadd(), "scan.JPG has been Saved\nPage 1 is being Processed\nscan.tif is being Processed\n" + first);
    // The pump shows the same, with only this run's "All Done" on top.
    EXPECT_EQ(harness.statustext, "All Done\n" + harness.batch.texttoadd());
}

TEST_F(TiffRuns, MultipageTiffsHoldTheSelectionOnceEvenWithRepeats)
{
    const auto source = folder / "doc.tif";
    make_tiff(source, {TiffPage{}, TiffPage{}, TiffPage{}});
    auto values = options_for(out(), "TIFF (Multipage)");
    values.set(OptionId::usepageranges, true);
    auto row = admitted_row(source);
    row.cells[4] = "2,3,2";
    harness.run(values, {row});
    const auto images = read_tiff(out() / "doc Page 002 to 002.TIF");
    ASSERT_EQ(images.size(), 3u);
    EXPECT_EQ(images[1].image.rgb_at(63, 47), (std::array<std::uint8_t, 3>{40, 60, 210}));
    EXPECT_EQ(std::count(harness.lines.begin(), harness.lines.end(), "Close TIFF"), 1);
}

TEST_F(TiffRuns, CombinedTiffRunsAppendEveryDocument)
{
    const auto first = folder / "a.tif";
    const auto second = folder / "b.tif";
    make_tiff(first, {TiffPage{}, TiffPage{}});
    make_tiff(second, {TiffPage{.width = 20, .height = 10}});
    auto values = options_for(out(), "TIFF (Multipage)");
    values.set(OptionId::combineall, true);
    values.set(OptionId::combinedfilename, std::string("All"));
    harness.run(values, {admitted_row(first), admitted_row(second)});
    const auto images = read_tiff(out() / "All.tif");
    ASSERT_EQ(images.size(), 3u);
    EXPECT_EQ(images[2].width, 20);
    EXPECT_EQ(harness.lines.back(), "b.TIF has been Saved");
    EXPECT_FALSE(fs::exists(out() / "a.TIF"));
}

TEST_F(TiffRuns, AnUnexpectedErrorFailsItsDocumentAndTheRunGoesOn)
{
    const auto first = folder / "first.tif";
    const auto second = folder / "second.tif";
    make_tiff(first, {TiffPage{}});
    make_tiff(second, {TiffPage{}});
    struct NotAStdException {};
    // Where a library throws something of its own, and the line its document then gets.
    const struct {
        const char* title;
        void (*spoil)(engine::RunServices&);
        const char* line;
    } cases[] = {
        {"out of memory while opening",
         [](engine::RunServices& services) {
             services.open_tiff = [open = services.open_tiff](const engine::DocumentToOpen& document) {
                 if (document.path.filename() == "first.tif") {
                     throw std::bad_alloc();
                 }
                 return open(document);
             };
         },
         "first.tif could not be opened: not enough memory"},
        {"a type of its own while opening",
         [](engine::RunServices& services) {
             services.open_tiff = [open = services.open_tiff](const engine::DocumentToOpen& document) {
                 if (document.path.filename() == "first.tif") {
                     throw NotAStdException();
                 }
                 return open(document);
             };
         },
         "first.tif could not be opened: an unexpected internal error"},
        {"a standard error while writing",
         [](engine::RunServices& services) {
             services.write_png = [write = services.write_png](const engine::PagePicture& picture, const fs::path& target,
                                                               const engine::PageWriteContext& context) {
                 if (target.filename().string().find("first") != std::string::npos) {
                     throw std::bad_cast();
                 }
                 write(picture, target, context);
             };
         },
         "first.tif page 1 could not be converted: an unexpected internal error"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        fs::remove_all(out());
        engine::RunServices services = real_services();
        c.spoil(services);
        engine::BatchRun batch(std::move(services));
        std::vector<std::string> lines;
        batch.set_listener([&](const engine::RunEvent& event) {
            if (!event.line.empty()) {
                lines.push_back(event.line);
            }
        });
        batch.prepare(options_for(out(), "PNG"), {admitted_row(first), admitted_row(second)});
        batch.processall();
        EXPECT_TRUE(batch.Timer1_Action().ended);
        EXPECT_NE(std::find(lines.begin(), lines.end(), c.line), lines.end()) << ::testing::PrintToString(lines);
        EXPECT_EQ(lines.back(), "second.PNG has been Saved");
        EXPECT_EQ(batch.failures(), 1);
    }
}

} // namespace
} // namespace qf::test
