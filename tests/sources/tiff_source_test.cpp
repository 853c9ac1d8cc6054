// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdlib>
#include <utility>
#include <gtest/gtest.h>

#include "engine/error.h"
#include "intake/tiff_probe.h"
#include "engine/run_model.h"
#include "sources/tiff_source.h"
#include "tests/support/hostile_files.h"
#include "tests/support/output_checks.h"
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

// Every page of a multipage file in order, in any order and again: bilevel pages stay one bit,
// deep and transparent ones become opaque 8-bit RGB over white.
TEST(TiffSource, ReadsEveryPageOfAMultipageFile)
{
    const TiffPage pages[] = {
        {}, {.width = 80, .height = 40}, {.compression = 8},
        {.kind = TiffKind::Bilevel, .compression = 4},
        {.kind = TiffKind::Bilevel, .compression = 4, .tiled = true},
        {.kind = TiffKind::BilevelMinIsBlack}, {.kind = TiffKind::Gray16}, {.kind = TiffKind::RgbAlpha},
    };
    test::TempFolder folder;
    test::make_tiff(folder / "pages.tif", {std::begin(pages), std::end(pages)});
    auto source = open(folder / "pages.tif");
    ASSERT_EQ(source->page_count(), 8);
    for (const int page : {8, 2, 1, 3, 4, 5, 6, 7, 1}) {
        const TiffKind kind = pages[page - 1].kind;
        const test::Rgb colour = test::page_colour(page - 1), white{255, 255, 255};
        const bool bilevel = kind == TiffKind::Bilevel || kind == TiffKind::BilevelMinIsBlack;
        const auto picture = source->picture(page, {});
        EXPECT_EQ(picture.format, bilevel ? PixelFormat::Bilevel : PixelFormat::Rgb8) << page;
        const auto rgb = engine::to_rgb(picture);
        EXPECT_EQ(rgb.width, pages[page - 1].width) << page;
        // The page's colour at the bottom right, the black square at a quarter of each side.
        const test::Rgb grey{colour.r, colour.r, colour.r}; // bilevel, or clear over white:
        const test::Rgb corner = kind == TiffKind::Rgb ? colour : kind == TiffKind::Gray16 ? grey : white;
        EXPECT_EQ(rgb_at(rgb, rgb.width - 1, rgb.height - 1), corner) << page;
        const test::Rgb square = kind == TiffKind::RgbAlpha ? colour : test::Rgb{0, 0, 0};
        EXPECT_EQ(rgb_at(rgb, rgb.width / 4, rgb.height / 4), square) << page;
        EXPECT_EQ(rgb_at(rgb, 2, 2), kind == TiffKind::RgbAlpha ? colour : corner) << page;
    }
    EXPECT_THROW(source->picture(9, {}), engine::Error);
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
    test::make_tiff(folder / "good.tif", {TiffPage{.width = 400, .height = 300, .compression = 1}});
    const std::string good = test::file_bytes(folder / "good.tif");
    for (const std::string& bytes : {std::string("this is not an image\n"), std::string(),
                                     good.substr(0, good.size() / 3), good.substr(0, good.size() / 2),
                                     good.substr(0, good.size() - 10)}) {
        test::write_text_file(folder / "bad.tif", bytes);
        try {
            (void)open(folder / "bad.tif")->picture(1, {});
            ADD_FAILURE() << "a file of " << bytes.size() << " bytes read as whole";
        } catch (const engine::Error& e) {
            EXPECT_FALSE(e.reason().empty());
        }
    }
}

// A picture as letters, rows separated by "/", each channel counting as full above 127: K black,
// B blue, G green, C cyan, R red, M magenta, Y yellow, W white.
std::string letters(const engine::PagePicture& picture)
{
    const engine::PagePicture rgb = engine::to_rgb(picture);
    std::string text;
    for (int y = 0; y < rgb.height; ++y) {
        text += y == 0 ? "" : "/";
        for (int x = 0; x < rgb.width; ++x) {
            const test::Rgb p = rgb_at(rgb, x, y);
            text += "KBGCRMYW"[(p.r > 127) * 4 + (p.g > 127) * 2 + (p.b > 127)];
        }
    }
    return text;
}

TEST(TiffSource, PagesReadAsViewersShowThemInEveryOrientation)
{
    // Both store "RGB/KWY": as 8-bit RGB, and as 1-bit MinIsWhite where only K is black.
    const test::RawTiffImage colour{.width = 3, .height = 2, .samples_per_pixel = 3, .photometric = 2, .xres = 300,
                                    .yres = 200, .data = {255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255, 255, 0}};
    const test::RawTiffImage bilevel{.width = 3, .height = 2, .bits_per_sample = 1, .photometric = 0, .xres = 300,
                                     .yres = 200, .data = {0x00, 0x80}};
    const struct {
        std::uint16_t orientation;
        const char* shown;
        const char* bilevel;
    } cases[] = {
        {1, "RGB/KWY", "WWW/KWW"},  {2, "BGR/YWK", "WWW/WWK"},  {3, "YWK/BGR", "WWK/WWW"},  {4, "KWY/RGB", "KWW/WWW"},
        {5, "RK/GW/BY", "WK/WW/WW"}, {6, "KR/WG/YB", "KW/WW/WW"}, {7, "YB/WG/KR", "WW/WW/KW"}, {8, "BY/GW/RK", "WW/WW/WK"},
    };
    test::TempFolder folder;
    for (const auto& c : cases) {
        for (test::RawTiffImage image : {colour, bilevel}) {
            image.orientation = c.orientation;
            test::make_raw_tiff(folder / "turned.tif", {image});
            auto source = open(folder / "turned.tif");
            const auto picture = source->picture(1, {});
            const bool one_bit = image.bits_per_sample == 1;
            EXPECT_EQ(letters(picture), one_bit ? c.bilevel : c.shown) << c.orientation;
            EXPECT_EQ(picture.format, one_bit ? PixelFormat::Bilevel : PixelFormat::Rgb8) << c.orientation;
            // Each resolution follows the side it measures.
            const auto resolution = std::pair(source->tags().xres, source->tags().yres);
            EXPECT_EQ(resolution, c.orientation >= 5 ? std::pair(200, 300) : std::pair(300, 200)) << c.orientation;
        }
    }
}

// Sample forms libtiff's own readers refuse are read by the image module instead, reduced to
// 8 bits a sample, and admitted; what neither reads fails its page with libtiff's reason.
// 1-bit images that the 1-bit reader leaves to the colour reader keep their colours, and stay
// bilevel when they are black and white.
// Semi-transparent pixels lie over white: 200 at alpha 128 shows as 227.
TEST(TiffSource, EveryPixelFormBecomesEightBitRgbOverWhite)
{
    const std::uint64_t full = 65535;
    const struct {
        const char* name;
        test::RawTiffImage image; // one row as stored
        std::vector<int> grey;    // expected value of each pixel shown: red, green and blue alike
        const char* shown;        // or the letters expected, or the refusal
        PixelFormat format = PixelFormat::Rgb8;
    } cases[] = {
        {"white and green map", {.width = 3, .bits_per_sample = 1, .photometric = 3,
                                 .colour_map = {65535, 0, 65535, 65535, 65535, 0}, .data = test::pack_samples({0, 1, 1}, 3, 1)},
         {}, "WGG"},
        {"black and white map", {.width = 3, .bits_per_sample = 1, .photometric = 3,
                                 .colour_map = {0, 65535, 0, 65535, 0, 65535}, .data = test::pack_samples({0, 1, 0}, 3, 1)},
         {}, "KWK", PixelFormat::Bilevel},
        {"grey with alpha", {.width = 4, .bits_per_sample = 1, .samples_per_pixel = 2, .extra_samples = {2},
                             .data = test::pack_samples({0, 1, 0, 0, 1, 1, 1, 0}, 8, 1)},
         {}, "KWWW", PixelFormat::Bilevel},
        {"12-bit grey", {.width = 3, .bits_per_sample = 12, .data = test::pack_samples({0, 2048, 4095}, 3, 12)},
         {0, 128, 255}, ""},
        {"3-bit grey", {.width = 3, .bits_per_sample = 3, .data = test::pack_samples({7, 3, 0}, 3, 3)}, {255, 109, 0}, ""},
        {"5-bit RGB", {.width = 3, .bits_per_sample = 5, .samples_per_pixel = 3, .photometric = 2,
                       .data = test::pack_samples({31, 0, 0, 0, 31, 0, 31, 31, 31}, 9, 5)}, {}, "RGW"},
        {"16-bit CMYK", {.width = 4, .bits_per_sample = 16, .samples_per_pixel = 4, .photometric = 5,
                         .data = test::pack_samples({0, full, full, 0, full, 0, full, 0, 0, 0, 0, full, 0, 0, 0, 0}, 16, 16)},
         {}, "RGKW"},
        {"32-bit integer grey", {.width = 3, .bits_per_sample = 32, .data = test::pack_samples({~0u, 1u << 31, 0}, 3, 32)},
         {255, 128, 0}, ""},
        // The bit patterns of the floats 0, 0.5 and 1.
        {"32-bit float grey", {.width = 3, .bits_per_sample = 32, .sample_format = 3,
                               .data = test::pack_samples({0, 0x3F000000, 0x3F800000}, 3, 32)}, {0, 128, 255}, ""},
        {"12-bit grey turned", {.width = 3, .bits_per_sample = 12, .orientation = 8,
                                .data = test::pack_samples({0, 2048, 4095}, 3, 12)}, {255, 128, 0}, ""},
        {"grey, unassociated alpha", {.samples_per_pixel = 2, .extra_samples = {2}, .data = {200, 128}}, {227}, ""},
        {"grey, associated alpha", {.samples_per_pixel = 2, .extra_samples = {1}, .data = {100, 128}}, {227}, ""},
        {"16-bit grey, unassociated alpha", {.bits_per_sample = 16, .samples_per_pixel = 2, .extra_samples = {2},
                                             .data = test::pack_samples({200 * 257, 128 * 257}, 2, 16)}, {227}, ""},
        // The bit patterns of the doubles 1, 0.5 and 0.
        {"64-bit float grey", {.width = 3, .bits_per_sample = 64, .sample_format = 3,
                               .data = test::pack_samples({0x3FF0000000000000, 0x3FE0000000000000, 0}, 3, 64)},
         {255, 128, 0}, ""},
        {"64-bit integer RGB", {.width = 3, .bits_per_sample = 64, .samples_per_pixel = 3, .photometric = 2,
                                .data = test::pack_samples({~0ull, 0, 0, 0, 0, ~0ull, 0, ~0ull >> 1, 0}, 9, 64)},
         {}, "RBK"},
        {"64-bit signed grey", {.bits_per_sample = 64, .sample_format = 2, .data = test::pack_samples({0}, 1, 64)},
         {}, "64-bit samples"},
        {"16-bit CMY", {.bits_per_sample = 16, .samples_per_pixel = 3, .photometric = 5,
                        .data = test::pack_samples({0, 0, 0}, 3, 16)}, {}, "Samples/pixel=3"},
    };
    test::TempFolder folder;
    for (const auto& c : cases) {
        const auto path = folder / "deep.tif";
        test::make_raw_tiff(path, {c.image, c.image});
        EXPECT_TRUE(intake::probe_tiff(path).readable) << c.name;
        engine::PagePicture picture;
        try {
            picture = open(path)->picture(2, {});
        } catch (const engine::Error& e) {
            EXPECT_TRUE(c.grey.empty() && e.reason().find(c.shown) != std::string::npos) << c.name << ": " << e.reason();
            continue;
        }
        ASSERT_EQ(picture.format, c.format) << c.name;
        if (c.grey.empty()) {
            EXPECT_EQ(letters(picture), c.shown) << c.name;
            continue;
        }
        // A turned row shows as a column.
        const bool turned = c.image.orientation >= 5;
        ASSERT_EQ(turned ? picture.height : picture.width, static_cast<int>(c.grey.size())) << c.name;
        ASSERT_EQ(turned ? picture.width : picture.height, 1) << c.name;
        for (std::size_t i = 0; i < c.grey.size(); ++i) {
            const std::uint8_t* p = picture.pixels.data() + 3 * i;
            EXPECT_TRUE(std::abs(p[0] - c.grey[i]) <= 1 && p[0] == p[1] && p[1] == p[2])
                << c.name << " pixel " << i << ": " << +p[0] << " " << +p[1] << " " << +p[2];
        }
    }
}

} // namespace
} // namespace qf::sources
