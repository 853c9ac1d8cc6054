// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/run_model.h"

#include "engine/error.h"
#include "engine/version.h"
#include "settings/option_table.h"
#include "tests/support/image_checks.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

using engine::PagePicture;
using Rgb = std::array<std::uint8_t, 3>;

constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kWhite{255, 255, 255};

// Columns of dark and light colours, 8 pixels wide each; the pattern survives thresholding.
const Rgb kStripes[] = {{10, 10, 10},    {250, 240, 230}, {180, 0, 0},
                        {100, 255, 120}, {0, 0, 255},     {255, 255, 0}};
const bool kStripeIsDark[] = {true, false, true, false, true, false};

PagePicture striped(int width, int height)
{
    return test::make_rgb_picture(width, height, [](int x, int) { return kStripes[(x / 8) % 6]; });
}

PagePicture flat(Rgb colour)
{
    return test::make_rgb_picture(24, 16, [colour](int, int) { return colour; });
}

engine::OptionSnapshot run_snapshot()
{
    engine::OptionSnapshot snapshot;
    snapshot.mjpgquality = "92";
    snapshot.thedpi = 200;
    snapshot.mtiffcopyright = "Global copyright";
    snapshot.mtiffdocumentname = "Global name";
    return snapshot;
}

// Each row of the compression popup through the run's coding to the file, then codes the
// writer does not know, which fall back to no compression.
TEST(TiffWriter, EveryCompressionCodeGivesAReadableFileOfItsForm)
{
    const struct {
        int row; // of the popup; -1: `code` as it stands
        int code;
        int compression;
        bool bilevel;
    } cases[] = {
        {0, 0, 1, false}, {1, 0, 32773, false}, {2, 0, 5, false},  {3, 0, 3, true},  {4, 0, 4, true},
        {5, 0, 7, false}, {6, 0, 8, false},     {7, 0, 2, true},   {-1, 0, 1, false}, {-1, 6, 1, false},
    };
    test::OutputFolder folder;
    const engine::OptionSnapshot snapshot = run_snapshot();
    const PagePicture page = striped(100, 70);
    for (const auto& c : cases) {
        int tiffcode = c.code;
        if (c.row >= 0) {
            engine::OptionValues values = settings::default_values();
            values.set(engine::OptionId::tiffcompression, c.row);
            engine::OptionSnapshot taken;
            engine::take_snapshot(values, 1, taken);
            tiffcode = engine::tiff_compression_code(taken.mtiffcompression);
        }
        const auto target = folder / ("code" + std::to_string(tiffcode) + ".tif");
        write_tiff_single(page, target, {snapshot, tiffcode, "", ""});

        const auto images = test::read_tiff(target);
        ASSERT_EQ(images.size(), 1u) << tiffcode;
        const test::TiffImage& tiff = images[0];
        EXPECT_EQ(tiff.compression, c.compression) << tiffcode;
        EXPECT_EQ(tiff.width, 100) << tiffcode;
        EXPECT_EQ(tiff.height, 70) << tiffcode;
        EXPECT_EQ(tiff.photometric, c.bilevel ? 0 : 2) << tiffcode;
        EXPECT_EQ(tiff.bits_per_sample, c.bilevel ? 1 : 8) << tiffcode;
        EXPECT_EQ(tiff.samples_per_pixel, c.bilevel ? 1 : 3) << tiffcode;
        EXPECT_EQ(tiff.planar_config, 1) << tiffcode;
        EXPECT_GE(tiff.rows_per_strip, 1u) << tiffcode;
        EXPECT_FLOAT_EQ(tiff.x_resolution, 200) << tiffcode;
        EXPECT_FLOAT_EQ(tiff.y_resolution, 200) << tiffcode;
        EXPECT_EQ(tiff.resolution_unit, 2) << tiffcode;
        EXPECT_EQ(tiff.software, std::string("Quirefold v") + engine::kLongVersion) << tiffcode;
        if (c.compression == 7) {
            EXPECT_EQ(tiff.rows_per_strip, 32u);
            EXPECT_EQ(tiff.fill_order, 2);
        }
        for (int stripe = 0; stripe < 6; ++stripe) {
            const Rgb pixel = tiff.image.rgb_at(stripe * 8 + 4, 35);
            const std::string where =
                "code " + std::to_string(tiffcode) + " stripe " + std::to_string(stripe);
            const Rgb expected =
                c.bilevel ? (kStripeIsDark[stripe] ? kBlack : kWhite) : kStripes[stripe];
            const int tolerance = c.compression == 7 ? 16 : 0;
            for (int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(pixel[channel], expected[channel], tolerance) << where;
            }
        }
    }
}

TEST(TiffWriter, BilevelPageKeepsItsPixelsInEveryForm)
{
    const PagePicture page =
        test::make_bilevel_picture(37, 21, [](int x, int y) { return (x * y) % 5 == 1; });
    const PagePicture expected = engine::to_rgb(page);
    test::OutputFolder folder;
    const engine::OptionSnapshot snapshot = run_snapshot();
    for (const int code : {1, 2, 3, 4, 5, 8, 32773}) {
        write_tiff_single(page, folder / "page.tif", {snapshot, code, "", ""});
        EXPECT_EQ(test::read_tiff(folder / "page.tif").at(0).image.samples, expected.pixels)
            << code;
    }
}

TEST(TiffWriter, SinglePageTakesTheSourceTextsUnlessBlank)
{
    const struct {
        const char* ccopyright;
        const char* cdocumentname;
        const char* global_copyright;
        const char* copyright;
        const char* document_name;
    } cases[] = {
        {"Source (c)", "Source name", "Global", "Source (c)", "Source name"},
        {"", "", "Global", "Global", "Global name"},
        {"   ", "\t", "Global", "Global", "Global name"},
        {"  padded  ", "x", "Global", "  padded  ", "x"},
        {"", "", "", "", "Global name"},
    };
    test::OutputFolder folder;
    for (const auto& c : cases) {
        engine::OptionSnapshot snapshot = run_snapshot();
        snapshot.mtiffcopyright = c.global_copyright;
        write_tiff_single(flat(kWhite), folder / "tags.tif",
                          {snapshot, 5, c.ccopyright, c.cdocumentname});
        const test::TiffImage tiff = test::read_tiff(folder / "tags.tif").at(0);
        EXPECT_EQ(tiff.copyright.value_or("<absent>"), c.copyright) << '"' << c.ccopyright << '"';
        EXPECT_EQ(tiff.document_name.value_or("<absent>"), c.document_name)
            << '"' << c.cdocumentname << '"';
    }
}

TEST(MultipageTiff, PagesKeepTheirOrderAndEachItsOwnCompression)
{
    test::OutputFolder folder;
    const engine::OptionSnapshot snapshot = run_snapshot();
    const Rgb colours[] = {{200, 30, 30}, {20, 20, 20}, {30, 30, 200}, {30, 200, 30}};
    const int codes[] = {5, 4, 7, 32773};
    MultipageTiff writer;
    const auto target = folder / "all.tif";
    writer.open(target, {snapshot, 0, "", ""});
    EXPECT_TRUE(writer.is_open());
    for (int page = 0; page < 4; ++page) {
        writer.add_page(flat(colours[page]), {snapshot, codes[page], "Source (c)", "Source name"});
    }
    EXPECT_FALSE(std::filesystem::exists(target)) << "visible before close";
    writer.close();
    EXPECT_FALSE(writer.is_open());

    const auto images = test::read_tiff(target);
    ASSERT_EQ(images.size(), 4u);
    for (int page = 0; page < 4; ++page) {
        const test::TiffImage& tiff = images[page];
        EXPECT_EQ(tiff.compression, codes[page]) << page;
        EXPECT_EQ(tiff.copyright, "Global copyright") << page;
        EXPECT_EQ(tiff.document_name, "Global name") << page;
        EXPECT_FLOAT_EQ(tiff.x_resolution, 200) << page;
        EXPECT_EQ(tiff.software, std::string("Quirefold v") + engine::kLongVersion) << page;
        const Rgb expected = codes[page] == 4 ? kBlack : colours[page];
        for (int channel = 0; channel < 3; ++channel) {
            EXPECT_NEAR(tiff.image.rgb_at(10, 8)[channel], expected[channel],
                        codes[page] == 7 ? 8 : 0)
                << page;
        }
    }
    EXPECT_EQ(images[2].rows_per_strip, 32u);
    EXPECT_EQ(folder.entries(), std::vector<std::string>{"all.tif"});
}

TEST(MultipageTiff, EmptyGlobalCopyrightGivesAnEmptyTag)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot = run_snapshot();
    snapshot.mtiffcopyright = "";
    MultipageTiff writer;
    writer.open(folder / "empty.tif", {snapshot, 1, "", ""});
    writer.add_page(flat(kWhite), {snapshot, 1, "Source (c)", ""});
    writer.close();
    EXPECT_EQ(test::read_tiff(folder / "empty.tif").at(0).copyright.value_or("<absent>"), "");
}

// The writer's life through a run: files of the pages that could be added, one file a
// document when reused, the open file finished by the next open, and nothing left of a file
// that had no page or was never closed. Steps: "o NAME" open, "+" a page, "x" a page it
// refuses (empty, or too wide for JPEG), "c" close, "e" a close that must fail.
TEST(MultipageTiff, EveryFileHoldsThePagesThatWereAddedOrIsNotThere)
{
    const struct {
        std::vector<std::string> steps;
        std::vector<std::pair<std::string, std::size_t>> files; // name and page count
    } cases[] = {
        {{"o mixed.tif", "+", "x", "x", "+", "c"}, {{"mixed.tif", 2}}},
        {{"o none.tif", "x", "e"}, {}},
        {{"o abandoned.tif", "+"}, {}},
        {{"o first.tif", "+", "c", "o second.tif", "+", "+", "+", "c", "o third.tif", "+", "+", "c"},
         {{"first.tif", 1}, {"second.tif", 3}, {"third.tif", 2}}},
        {{"o a.tif", "+", "o b.tif", "+", "+", "c"}, {{"a.tif", 1}, {"b.tif", 2}}},
    };
    const engine::OptionSnapshot snapshot = run_snapshot();
    const PagePicture too_wide_for_jpeg = test::make_rgb_picture(70000, 1, [](int, int) { return kWhite; });
    for (const auto& c : cases) {
        const std::string where = ::testing::PrintToString(c.steps);
        test::OutputFolder folder;
        {
            MultipageTiff writer;
            bool refused_empty = false;
            for (const std::string& step : c.steps) {
                if (step.rfind("o ", 0) == 0) {
                    writer.open(folder / step.substr(2), {snapshot, 5, "", ""});
                } else if (step == "+") {
                    writer.add_page(flat({250, 0, 0}), {snapshot, 8, "", ""});
                } else if (step == "x") {
                    EXPECT_THROW(refused_empty ? writer.add_page(too_wide_for_jpeg, {snapshot, 7, "", ""})
                                               : writer.add_page(PagePicture{}, {snapshot, 5, "", ""}),
                                 engine::Error)
                        << where;
                    refused_empty = !refused_empty;
                } else if (step == "c") {
                    writer.close();
                    EXPECT_FALSE(writer.is_open()) << where;
                } else {
                    try {
                        writer.close();
                        ADD_FAILURE() << "closed a file of no page";
                    } catch (const engine::Error& error) {
                        EXPECT_EQ(error.kind(), engine::ErrorKind::Output);
                        EXPECT_EQ(error.reason(), "no page could be added");
                    }
                    EXPECT_FALSE(writer.is_open()) << where;
                }
            }
        }
        std::vector<std::string> names;
        for (const auto& [name, pages] : c.files) {
            names.push_back(name);
            const auto images = test::read_tiff(folder / name);
            EXPECT_EQ(images.size(), pages) << where << " " << name;
            for (const auto& image : images) {
                EXPECT_EQ(image.image.rgb_at(1, 1), (Rgb{250, 0, 0})) << where << " " << name;
            }
        }
        EXPECT_EQ(folder.entries(), names) << where;
    }
}

} // namespace
} // namespace qf::writers
