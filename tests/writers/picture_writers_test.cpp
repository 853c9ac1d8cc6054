// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/error.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "writers/jpeg_writer.h"
#include "writers/picture_checks.h"
#include "writers/png_writer.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

using engine::PagePicture;
using test::file_bytes;
using Rgb = std::array<std::uint8_t, 3>;

constexpr Rgb kRed{220, 20, 30}, kGreen{10, 200, 40}, kBlue{30, 40, 210}, kWhite{255, 255, 255};

// 64 x 48 pixels in four flat quadrants, which a JPEG encoder keeps close to their colours.
PagePicture quadrants()
{
    return test::make_rgb_picture(64, 48, [](int x, int y) {
        return y < 24 ? (x < 32 ? kRed : kGreen) : (x < 32 ? kBlue : kWhite);
    });
}

// The page's own colour at (x, y), bilevel pages as black and white.
Rgb colour_of(const PagePicture& page, int x, int y)
{
    const PagePicture rgb = engine::to_rgb(page);
    const auto* p = rgb.pixels.data() + rgb.stride() * y + 3 * x;
    return {p[0], p[1], p[2]};
}

// Progressive JFIF in RGB whatever the page, the run's resolution as its density.
TEST(JpegWriter, WritesProgressiveRgbWithTheRunsResolution)
{
    const PagePicture bilevel = test::make_bilevel_picture(64, 48, [](int x, int) { return x < 20; });
    const struct {
        int thedpi;
        int density;
        bool bilevel;
    } cases[] = {{150, 150, false}, {72, 72, false}, {600, 600, true}, {100000, 65535, false}};
    test::OutputFolder folder;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.thedpi);
        engine::OptionSnapshot snapshot;
        snapshot.mjpgquality = "90";
        snapshot.thedpi = c.thedpi;
        const PagePicture page = c.bilevel ? bilevel : quadrants();
        write_jpeg(page, folder / "page.jpg", {snapshot, 1, "", ""});

        const test::JpegFile jpeg = test::read_jpeg(folder / "page.jpg");
        EXPECT_TRUE(jpeg.progressive && jpeg.jfif);
        EXPECT_EQ(jpeg.density_unit, 1);
        EXPECT_EQ(jpeg.x_density, c.density);
        EXPECT_EQ(jpeg.y_density, c.density);
        EXPECT_EQ(jpeg.image.components, 3);
        EXPECT_EQ(jpeg.image.width, 64);
        EXPECT_EQ(jpeg.image.height, 48);
        for (const auto [x, y] : {std::pair{8, 8}, {56, 8}, {8, 40}, {56, 40}}) {
            const Rgb expected = colour_of(page, x, y), actual = jpeg.image.rgb_at(x, y);
            for (int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(actual[channel], expected[channel], 12) << x << "," << y;
            }
        }
    }
}

TEST(JpegWriter, QualityIsTheWholeNumberClampedToTheEncodersRange)
{
    // Texts that must encode exactly as the plain quality beside them.
    const struct {
        const char* text;
        const char* same_as;
    } cases[] = {{"75.9", "75"}, {" 40abc", "40"}, {"250", "100"},
                 {"0", "1"},     {"-20", "1"},     {"none", "1"}};
    test::OutputFolder folder;
    const auto write_with = [&](const std::string& quality, const std::string& name) {
        engine::OptionSnapshot snapshot;
        snapshot.mjpgquality = quality;
        write_jpeg(quadrants(), folder / name, {snapshot, 1, "", ""});
        return file_bytes(folder / name);
    };
    for (const auto& c : cases) {
        EXPECT_EQ(write_with(c.text, "a.jpg"), write_with(c.same_as, "b.jpg")) << c.text;
    }
    EXPECT_LT(write_with("1", "low.jpg").size(), write_with("100", "high.jpg").size());
}

TEST(PngWriter, WritesLosslessEightBitRgbWithoutResolution)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    snapshot.thedpi = 300;
    for (const PagePicture& page :
         {quadrants(), test::make_bilevel_picture(19, 5, [](int x, int y) { return (x + y) % 3; })}) {
        write_png(page, folder / "page.png", {snapshot, 1, "", ""});
        const test::PngFile png = test::read_png(folder / "page.png");
        EXPECT_EQ(png.bit_depth, 8);
        EXPECT_EQ(png.color_type, 2);
        EXPECT_FALSE(png.interlaced);
        EXPECT_FALSE(png.has_phys);
        EXPECT_EQ(png.image.width, page.width);
        EXPECT_EQ(png.image.samples, engine::to_rgb(page).pixels);
    }
}

// A page replaces an earlier file of its name; a page no encoder can take throws and leaves
// the earlier file whole, with no temporary beside it.
TEST(PictureWriters, ReplaceTheEarlierFileOnlyWithAWholeOne)
{
    const struct {
        engine::PictureFileWriter write;
        const char* name;
        int (*width)(const std::filesystem::path&);
    } writers[] = {
        {write_jpeg, "kept.jpg", [](const std::filesystem::path& file) { return test::read_jpeg(file).image.width; }},
        {write_png, "kept.png", [](const std::filesystem::path& file) { return test::read_png(file).image.width; }},
        {write_tiff_single, "kept.tif", [](const std::filesystem::path& file) { return test::read_tiff(file).at(0).width; }},
    };
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    PagePicture truncated = quadrants();
    truncated.pixels.resize(truncated.pixels.size() / 2);
    for (const auto& writer : writers) {
        const auto target = folder / writer.name;
        writer.write(test::make_rgb_picture(8, 8, [](int, int) { return kRed; }), target,
                     {snapshot, 1, "", ""});
        writer.write(quadrants(), target, {snapshot, 1, "", ""});
        EXPECT_EQ(writer.width(target), 64) << writer.name;
        const std::string before = file_bytes(target);
        for (const auto& bad : {PagePicture{}, truncated}) {
            EXPECT_THROW(writer.write(bad, target, {snapshot, 1, "", ""}), engine::Error);
            EXPECT_EQ(file_bytes(target), before) << writer.name;
        }
    }
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"kept.jpg", "kept.png", "kept.tif"}));
}

// The threshold is taken eight pixels at a time with a shortcut for white; every width's tail,
// pixels just either side of mid-grey and saturated colours must come out as the luminance says.
TEST(PictureWriters, BilevelThresholdFollowsLuminanceAtEveryWidth)
{
    const Rgb palette[] = {kWhite, {0, 0, 0}, {128, 128, 128}, {127, 128, 128},
                           kRed,   kGreen,    kBlue,           {255, 255, 254}};
    for (const int width : {1, 7, 8, 9, 16, 23, 64, 101}) {
        // Mostly white, so the shortcut is taken, with runs of other colours.
        const auto colour_at = [&](int x, int y) {
            return (x / 3 + y) % 4 == 0 ? palette[(x * 7 + y * 3) % 8] : kWhite;
        };
        const PagePicture bilevel = to_bilevel(test::make_rgb_picture(width, 5, colour_at));
        ASSERT_EQ(bilevel.format, engine::PixelFormat::Bilevel);
        ASSERT_EQ(bilevel.pixels.size(), bilevel.stride() * 5);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < static_cast<int>(bilevel.stride()) * 8; ++x) {
                const bool black = (bilevel.pixels[bilevel.stride() * y + x / 8] >> (7 - x % 8)) & 1;
                const Rgb c = x < width ? colour_at(x, y) : kWhite; // padding bits stay white
                EXPECT_EQ(black, 299 * c[0] + 587 * c[1] + 114 * c[2] < 128000)
                    << "pixel " << x << "," << y << " of width " << width;
            }
        }
    }
}

} // namespace
} // namespace qf::writers
