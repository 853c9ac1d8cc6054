// SPDX-License-Identifier: GPL-3.0-or-later
#include <fstream>

#include <gtest/gtest.h>

#include "engine/error.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "writers/deep_colour.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

using Rgb = std::array<std::uint8_t, 3>;

const Rgb kColours[] = {{0, 0, 0}, {255, 255, 255}, {200, 100, 50}, {1, 254, 128}};

// Four columns of 8 pixels; the first two are pure black and white, which survive every code.
engine::PagePicture columns()
{
    return test::make_rgb_picture(32, 16, [](int x, int) { return kColours[x / 8]; });
}

std::uint16_t widened(std::uint8_t value)
{
    return static_cast<std::uint16_t>(value * 257);
}

TEST(DeepColour, EveryCompressionBecomesSixteenBitRgb)
{
    const struct {
        int tiffcode;
        int compression_after;
        bool lossless; // the 8-bit colours come back exactly, widened
    } cases[] = {
        {1, 1, true},  {5, 5, true},  {8, 8, true},  {32773, 32773, true},
        {7, 5, false}, {2, 5, false}, {3, 5, false}, {4, 5, false},
    };
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    snapshot.thedpi = 300;
    snapshot.mjpgquality = "90";
    for (const auto& c : cases) {
        const auto file = folder / ("deep" + std::to_string(c.tiffcode) + ".tif");
        write_tiff_single(columns(), file, {snapshot, c.tiffcode, "", ""});
        writergb48(file);

        const auto images = test::read_tiff(file);
        ASSERT_EQ(images.size(), 1u) << c.tiffcode;
        EXPECT_EQ(images[0].bits_per_sample, 16) << c.tiffcode;
        EXPECT_EQ(images[0].samples_per_pixel, 3) << c.tiffcode;
        EXPECT_EQ(images[0].photometric, 2) << c.tiffcode;
        EXPECT_EQ(images[0].compression, c.compression_after) << c.tiffcode;
        EXPECT_EQ(images[0].width, 32) << c.tiffcode;
        EXPECT_EQ(images[0].height, 16) << c.tiffcode;

        const std::vector<std::uint16_t> samples = test::read_tiff_samples16(file, 0);
        ASSERT_EQ(samples.size(), 32u * 16u * 3u) << c.tiffcode;
        const int checked_columns = c.lossless ? 4 : 2;
        for (int column = 0; column < checked_columns; ++column) {
            const std::size_t at = (5u * 32u + static_cast<std::size_t>(column) * 8u + 3u) * 3u;
            for (int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(samples[at + channel], widened(kColours[column][channel]),
                            c.lossless ? 0 : 1028)
                    << "code " << c.tiffcode << " column " << column << " channel " << channel;
            }
        }
    }
    EXPECT_EQ(folder.entries().size(), std::size(cases)) << "a temporary was left behind";
}

TEST(DeepColour, EveryImageOfAMultipageFileIsRewrittenInOrder)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    MultipageTiff writer;
    writer.open(folder / "pages.tif", {snapshot, 5, "", ""});
    for (const Rgb& colour : kColours) {
        writer.add_page(test::make_rgb_picture(8, 8, [&](int, int) { return colour; }),
                        {snapshot, 5, "", ""});
    }
    writer.close();
    writergb48(folder / "pages.tif");

    const auto images = test::read_tiff(folder / "pages.tif");
    ASSERT_EQ(images.size(), 4u);
    for (int page = 0; page < 4; ++page) {
        EXPECT_EQ(images[page].bits_per_sample, 16) << page;
        EXPECT_EQ(test::read_tiff_samples16(folder / "pages.tif", page).at(0),
                  widened(kColours[page][0]))
            << page;
    }
}

TEST(DeepColour, MissingFileIsLeftMissing)
{
    test::OutputFolder folder;
    EXPECT_NO_THROW(writergb48(folder / "absent.tif"));
    EXPECT_TRUE(folder.entries().empty());
}

TEST(DeepColour, UnreadableFileGivesAnOutputErrorAndStaysAsItWas)
{
    test::OutputFolder folder;
    const std::string garbage = "II*\0 this is not really a TIFF";
    std::ofstream(folder / "broken.tif", std::ios::binary) << garbage;
    try {
        writergb48(folder / "broken.tif");
        ADD_FAILURE() << "rewrote a broken file";
    } catch (const engine::Error& error) {
        EXPECT_EQ(error.kind(), engine::ErrorKind::Output);
    }
    EXPECT_EQ(test::file_bytes(folder / "broken.tif"), garbage);
    EXPECT_EQ(folder.entries(), std::vector<std::string>{"broken.tif"});
}

TEST(DeepColour, FileNamesMeanNothingToTheImageLibrary)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    for (const char* name : {"scan[0].tif", "page 1 é.tif", "png:odd.tif", "x.tif[0]"}) {
        write_tiff_single(columns(), folder / name, {snapshot, 5, "", ""});
        writergb48(folder / name);
        const auto images = test::read_tiff(folder / name);
        ASSERT_EQ(images.size(), 1u) << name;
        EXPECT_EQ(images[0].bits_per_sample, 16) << name;
    }
    EXPECT_EQ(folder.entries().size(), 4u);
}

} // namespace
} // namespace qf::writers
