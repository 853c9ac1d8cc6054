// SPDX-License-Identifier: GPL-3.0-or-later
#include <fstream>
#include <gtest/gtest.h>

#include "engine/error.h"
#include "engine/run_model.h"
#include "sources/tiff_source.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::sources {
namespace {
using engine::PixelFormat;
using test::TiffKind;
using test::TiffPage;

std::unique_ptr<engine::PageSource> open(const std::filesystem::path& path, const char* marker = engine::kTiledNo)
{
    return open_tiff_source({path, "", marker});
}

test::Rgb rgb_at(const engine::PagePicture& picture, int x, int y)
{
    const std::uint8_t* p = picture.pixels.data() + picture.stride() * y + 3 * x;
    return {p[0], p[1], p[2]};
}

bool black_at(const engine::PagePicture& picture, int x, int y)
{
    return (picture.pixels[picture.stride() * y + x / 8] >> (7 - x % 8)) & 1;
}

TEST(TiffSource, ReadsEveryPageOfAMultipageFileInOrder)
{
    test::TempFolder folder;
    const auto path = folder / "colour.tif";
    test::make_tiff(path, {TiffPage{}, TiffPage{.width = 80, .height = 40}, TiffPage{.compression = 8}});
    auto source = open(path);
    ASSERT_EQ(source->page_count(), 3);
    for (int page = 1; page <= 3; ++page) {
        const auto picture = source->picture(page, {});
        EXPECT_EQ(picture.format, PixelFormat::Rgb8);
        EXPECT_EQ(rgb_at(picture, picture.width - 1, picture.height - 1), test::page_colour(page - 1)) << page;
        EXPECT_EQ(rgb_at(picture, picture.width / 4, picture.height / 4), (test::Rgb{0, 0, 0})) << page;
    }
    EXPECT_EQ(source->picture(2, {}).width, 80);
    EXPECT_THROW(source->picture(4, {}), engine::Error);
    // Pages can be read in any order, repeats included.
    EXPECT_EQ(rgb_at(source->picture(1, {}), 63, 47), test::page_colour(0));
}

TEST(TiffSource, KeepsBilevelPagesOneBit)
{
    test::TempFolder folder;
    for (const bool tiled : {false, true}) {
        const auto path = folder / (tiled ? "tiled-g4.tif" : "g4.tif");
        test::make_tiff(path, {TiffPage{.kind = TiffKind::Bilevel, .compression = 4, .tiled = tiled}});
        const auto picture = open(path)->picture(1, {});
        ASSERT_EQ(picture.format, PixelFormat::Bilevel) << tiled;
        EXPECT_TRUE(black_at(picture, 16, 12)) << tiled;
        EXPECT_FALSE(black_at(picture, 60, 40)) << tiled;
        EXPECT_FALSE(black_at(picture, 2, 2)) << tiled;
    }
}

TEST(TiffSource, DeepAndTransparentImagesBecomeOpaqueEightBitRgb)
{
    test::TempFolder folder;
    const auto path = folder / "mixed.tif";
    test::make_tiff(path, {TiffPage{.kind = TiffKind::Gray16}, TiffPage{.kind = TiffKind::RgbAlpha}});
    auto source = open(path);
    const auto gray = source->picture(1, {});
    EXPECT_EQ(rgb_at(gray, 63, 47), (test::Rgb{200, 200, 200}));
    const auto clear = source->picture(2, {});
    EXPECT_EQ(rgb_at(clear, 2, 2), test::page_colour(1));
    EXPECT_EQ(rgb_at(clear, 60, 2), (test::Rgb{255, 255, 255})); // clear pixels lie on white
}

TEST(TiffSource, TiledDocumentsShowTheSecondImageWhenThereIsOne)
{
    test::TempFolder folder;
    const auto two = folder / "two.tif";
    test::make_tiff(two, {TiffPage{.tiled = true, .copyright = "first"}, TiffPage{.tiled = true, .copyright = "second"}});
    auto source = open(two, engine::kTiledYes);
    EXPECT_EQ(source->page_count(), 1);
    EXPECT_EQ(rgb_at(source->picture(1, {}), 63, 47), test::page_colour(1));
    EXPECT_EQ(source->tags().copyright, "second");

    const auto one = folder / "one.tif";
    test::make_tiff(one, {TiffPage{.tiled = true}});
    EXPECT_EQ(rgb_at(open(one, engine::kTiledYes)->picture(1, {}), 63, 47), test::page_colour(0));
}

TEST(TiffSource, ResolutionComesFromTheFirstImageInDotsPerInch)
{
    const struct {
        float xres, yres;
        std::uint16_t unit;
        int expected_x, expected_y;
    } cases[] = {
        {300, 200, 2, 300, 200}, {118.11f, 118.11f, 3, 300, 300}, {300, 0, 2, 0, 0}, {0, 0, 2, 0, 0}, {5, 5, 1, 0, 0},
    };
    test::TempFolder folder;
    for (const auto& c : cases) {
        const auto path = folder / "res.tif";
        test::make_tiff(path, {TiffPage{.xres = c.xres, .yres = c.yres, .resolution_unit = c.unit},
                               TiffPage{.xres = 600, .yres = 600}});
        const auto tags = open(path)->tags();
        EXPECT_EQ(tags.xres, c.expected_x) << c.xres << " unit " << c.unit;
        EXPECT_EQ(tags.yres, c.expected_y) << c.yres << " unit " << c.unit;
    }
}

TEST(TiffSource, DamagedFilesThrowInsteadOfCrashing)
{
    test::TempFolder folder;
    const auto text = folder / "notes.tif";
    std::ofstream(text) << "this is not an image\n";
    EXPECT_THROW(open(text), engine::Error);
    const auto empty = folder / "empty.tif";
    std::ofstream{empty};
    EXPECT_THROW(open(empty), engine::Error);

    const auto good = folder / "good.tif";
    test::make_tiff(good, {TiffPage{.width = 400, .height = 300, .compression = 1}});
    const auto size = std::filesystem::file_size(good);
    for (const auto cut : {size / 3, size / 2, size - 10}) {
        const auto truncated = folder / ("cut-" + std::to_string(cut) + ".tif");
        std::filesystem::copy_file(good, truncated);
        std::filesystem::resize_file(truncated, cut);
        try {
            auto source = open(truncated);
            (void)source->picture(1, {});
            ADD_FAILURE() << "a file cut at " << cut << " of " << size << " bytes read as whole";
        } catch (const engine::Error& e) {
            EXPECT_FALSE(e.reason().empty());
        }
    }
}

} // namespace
} // namespace qf::sources
