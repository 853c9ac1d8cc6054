// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "engine/error.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "writers/jpeg_writer.h"
#include "writers/picture_checks.h"
#include "writers/png_writer.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

using engine::ErrorKind;
using engine::PagePicture;
using test::file_bytes;
using Rgb = std::array<std::uint8_t, 3>;

constexpr Rgb kRed{220, 20, 30};
constexpr Rgb kGreen{10, 200, 40};
constexpr Rgb kBlue{30, 40, 210};
constexpr Rgb kWhite{255, 255, 255};

// 64 x 48 pixels in four flat quadrants, which a JPEG encoder keeps close to their colours.
PagePicture quadrants()
{
    return test::make_rgb_picture(64, 48, [](int x, int y) {
        if (y < 24) {
            return x < 32 ? kRed : kGreen;
        }
        return x < 32 ? kBlue : kWhite;
    });
}

void expect_near(const Rgb& actual, const Rgb& expected, int tolerance, const std::string& where)
{
    for (int channel = 0; channel < 3; ++channel) {
        EXPECT_NEAR(actual[channel], expected[channel], tolerance)
            << where << " channel " << channel;
    }
}

struct Writer {
    const char* name;
    engine::PictureFileWriter write;
    const char* extension;
};

const Writer kWriters[] = {
    {"jpeg", write_jpeg, ".jpg"},
    {"png", write_png, ".png"},
    {"tiff", write_tiff_single, ".tif"},
};

TEST(JpegWriter, WritesProgressiveRgbWithTheRunsResolution)
{
    const struct {
        int thedpi;
        int expected_density;
    } cases[] = {{150, 150}, {72, 72}, {600, 600}, {100000, 65535}};
    test::OutputFolder folder;
    for (const auto& c : cases) {
        engine::OptionSnapshot snapshot;
        snapshot.mjpgquality = "90";
        snapshot.thedpi = c.thedpi;
        const auto target = folder / ("page" + std::to_string(c.thedpi) + ".jpg");
        write_jpeg(quadrants(), target, {snapshot, 1, "", ""});

        const test::JpegFile jpeg = test::read_jpeg(target);
        EXPECT_TRUE(jpeg.progressive) << c.thedpi;
        EXPECT_TRUE(jpeg.jfif) << c.thedpi;
        EXPECT_EQ(jpeg.density_unit, 1) << c.thedpi;
        EXPECT_EQ(jpeg.x_density, c.expected_density);
        EXPECT_EQ(jpeg.y_density, c.expected_density);
        EXPECT_EQ(jpeg.image.components, 3);
        EXPECT_EQ(jpeg.image.width, 64);
        EXPECT_EQ(jpeg.image.height, 48);
        expect_near(jpeg.image.rgb_at(8, 8), kRed, 12, "top left");
        expect_near(jpeg.image.rgb_at(56, 8), kGreen, 12, "top right");
        expect_near(jpeg.image.rgb_at(8, 40), kBlue, 12, "bottom left");
        expect_near(jpeg.image.rgb_at(56, 40), kWhite, 12, "bottom right");
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

TEST(JpegWriter, BilevelPageBecomesBlackAndWhiteRgb)
{
    test::OutputFolder folder;
    const PagePicture page = test::make_bilevel_picture(40, 16, [](int x, int) { return x < 16; });
    engine::OptionSnapshot snapshot;
    snapshot.mjpgquality = "95";
    write_jpeg(page, folder / "bw.jpg", {snapshot, 1, "", ""});

    const test::JpegFile jpeg = test::read_jpeg(folder / "bw.jpg");
    EXPECT_EQ(jpeg.image.components, 3);
    EXPECT_EQ(jpeg.image.width, 40);
    expect_near(jpeg.image.rgb_at(4, 8), {0, 0, 0}, 8, "black part");
    expect_near(jpeg.image.rgb_at(32, 8), kWhite, 8, "white part");
}

TEST(PngWriter, WritesLosslessEightBitRgbWithoutResolution)
{
    test::OutputFolder folder;
    const struct {
        const char* name;
        PagePicture page;
    } cases[] = {
        {"colour.png", quadrants()},
        {"bilevel.png",
         test::make_bilevel_picture(19, 5, [](int x, int y) { return (x + y) % 3 == 0; })},
    };
    for (const auto& c : cases) {
        engine::OptionSnapshot snapshot;
        snapshot.thedpi = 300;
        write_png(c.page, folder / c.name, {snapshot, 1, "", ""});

        const test::PngFile png = test::read_png(folder / c.name);
        EXPECT_EQ(png.bit_depth, 8) << c.name;
        EXPECT_EQ(png.color_type, 2) << c.name;
        EXPECT_FALSE(png.interlaced) << c.name;
        EXPECT_FALSE(png.has_phys) << c.name;
        EXPECT_EQ(png.image.width, c.page.width) << c.name;
        EXPECT_EQ(png.image.height, c.page.height) << c.name;
        EXPECT_EQ(png.image.samples, engine::to_rgb(c.page).pixels) << c.name;
    }
}

TEST(PictureWriters, FailedPageLeavesTheEarlierFileIntactAndNoTemporary)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    PagePicture truncated = quadrants();
    truncated.pixels.resize(truncated.pixels.size() / 2);
    const PagePicture bad_pages[] = {PagePicture{}, truncated};
    for (const auto& writer : kWriters) {
        const auto target = folder / (std::string("kept") + writer.extension);
        writer.write(quadrants(), target, {snapshot, 1, "", ""});
        const std::string before = file_bytes(target);
        for (const auto& bad : bad_pages) {
            EXPECT_THROW(writer.write(bad, target, {snapshot, 1, "", ""}), engine::Error)
                << writer.name;
            EXPECT_EQ(file_bytes(target), before) << writer.name;
        }
    }
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"kept.jpg", "kept.png", "kept.tif"}));
}

TEST(PictureWriters, WriteReplacesAnEarlierFile)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    for (const auto& writer : kWriters) {
        const auto target = folder / (std::string("again") + writer.extension);
        writer.write(test::make_rgb_picture(8, 8, [](int, int) { return kRed; }), target,
                     {snapshot, 1, "", ""});
        writer.write(quadrants(), target, {snapshot, 1, "", ""});
    }
    EXPECT_EQ(test::read_jpeg(folder / "again.jpg").image.width, 64);
    EXPECT_EQ(test::read_png(folder / "again.png").image.width, 64);
    EXPECT_EQ(test::read_tiff(folder / "again.tif").at(0).width, 64);
    EXPECT_EQ(folder.entries().size(), 3u);
}

// The threshold is taken eight pixels at a time with a shortcut for white; every width's tail,
// pixels just either side of mid-grey and saturated colours must come out as the luminance says.
TEST(PictureWriters, BilevelThresholdFollowsLuminanceAtEveryWidth)
{
    const std::array<Rgb, 8> palette{{kWhite, {0, 0, 0}, {128, 128, 128}, {127, 128, 128}, kRed, kGreen,
                                      kBlue, {255, 255, 254}}};
    for (const int width : {1, 7, 8, 9, 16, 23, 64, 101}) {
        const auto colour_at = [&](int x, int y) {
            // mostly white, so the shortcut is taken, with runs of other colours
            return (x / 3 + y) % 4 == 0 ? palette[static_cast<std::size_t>((x * 7 + y * 3) % 8)] : kWhite;
        };
        const PagePicture rgb = test::make_rgb_picture(width, 5, colour_at);
        const PagePicture bilevel = to_bilevel(rgb);
        ASSERT_EQ(bilevel.format, engine::PixelFormat::Bilevel);
        ASSERT_EQ(bilevel.pixels.size(), bilevel.stride() * 5);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < static_cast<int>(bilevel.stride()) * 8; ++x) {
                const bool black = (bilevel.pixels[bilevel.stride() * y + x / 8] >> (7 - x % 8)) & 1;
                if (x >= width) {
                    EXPECT_FALSE(black) << "padding bit " << x << " of width " << width;
                    continue;
                }
                const Rgb c = colour_at(x, y);
                const double luminance = (299 * c[0] + 587 * c[1] + 114 * c[2]) / 1000.0; // exact in thousandths
                EXPECT_EQ(black, luminance < 128) << "pixel " << x << "," << y << " of width " << width;
            }
        }
    }
}

} // namespace
} // namespace qf::writers
