// SPDX-License-Identifier: GPL-3.0-or-later
// The PDF and TIFF page sources: pictures, text and tags of pages, and what they refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "engine/error.h"
#include "engine/run_model.h"
#include "intake/tiff_probe.h"
#include "sources/pdf_source.h"
#include "sources/tiff_source.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::sources {
namespace {

namespace fs = std::filesystem;
using engine::Error;
using engine::ErrorKind;
using engine::PagePicture;
using engine::RenderRequest;
using test::Rgb;

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kRed{255, 0, 0};

// The pixel at (x, y) of an RGB picture.
Rgb pixel(const PagePicture& picture, int x, int y)
{
    const std::uint8_t* p = picture.pixels.data() + y * picture.stride() + x * 3u;
    return {p[0], p[1], p[2]};
}

// Dark pixels within a rectangle of the picture: where text or lines were drawn.
int dark_pixels(const PagePicture& picture, int x0, int y0, int x1, int y1)
{
    int count = 0;
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            const Rgb p = pixel(picture, x, y);
            count += p.r + p.g + p.b < 3 * 128;
        }
    }
    return count;
}

std::unique_ptr<engine::PageSource> open(const fs::path& path, const std::string& password = {})
{
    return open_pdf_source({path, password, "tiled~no"});
}

RenderRequest at_dpi(int dpi, int zoom = 1, bool jpeg_order = false)
{
    return {.dpi = dpi, .zoom = zoom, .jpeg_order = jpeg_order};
}

// The picture's size follows the page box (CropBox clipped to the MediaBox, its numbers read
// in double precision as written), the resolution, the zoom and /Rotate; sides are truncated,
// not rounded, after multiplying in the order the writer uses.
TEST(PdfSource, RendersPagesAtTheirPixelSize)
{
    const struct { test::PdfBoxesSpec page; RenderRequest request; int width, height; } cases[] = {
        {{"[0 0 595.28 841.89]", ""}, at_dpi(300), 2480, 3507}, // 2480.33, not rounded up
        {{"[0 0 100 100]", ""}, at_dpi(96, 3), 399, 399},       // 100 * (4/3) * 3 falls short
        {{"[0 0 100 100]", ""}, at_dpi(96, 3, true), 400, 400}, // the JPEG writer's order
        {{"[0 0 612 792]", "", -90}, at_dpi(72), 792, 612},
        // A float reading would make 611.99999 into 612, and its shortest decimal would make
        // 680.400024 - 248.400009 fall short of 432.000015.
        {{"[0 0 1000 1000]", "[248.400009 100 680.400024 400]"}, at_dpi(36), 216, 150},
        {{"[0 0 1000 1000]", "[248.400009 0 680.400024 100]", 90}, at_dpi(36), 50, 216},
        {{"[0 0 611.99999 792]", ""}, at_dpi(72), 611, 792},
        {{"[0 0 432.000015 300]", "[-10 -10 1000 1000]"}, at_dpi(36), 216, 150},
    };
    std::vector<test::PdfBoxesSpec> pages;
    for (const auto& c : cases) {
        pages.push_back(c.page);
    }
    test::TempFolder dir;
    test::write_boxed_pdf(dir / "sizes.pdf", pages);
    const auto source = open(dir / "sizes.pdf");
    ASSERT_EQ(source->page_count(), static_cast<int>(std::size(cases)));
    for (int i = 0; i < source->page_count(); ++i) {
        const PagePicture picture = source->picture(i + 1, cases[i].request);
        EXPECT_EQ(picture.width, cases[i].width) << "page " << i + 1;
        EXPECT_EQ(picture.height, cases[i].height) << "page " << i + 1;
    }
    // Sizes beyond any render saturate instead of overflowing.
    EXPECT_EQ(render_size(1e9, 1e9, 0, 7200, 10, false).width, INT32_MAX);
}

// A page whose lower-left quarter is red: the red must land in the pixels' lower-left
// quarter (or where /Rotate turns it), whatever the MediaBox origin, with white elsewhere. A
// blank page is opaque white and has no text.
TEST(PdfSource, PlacesContentWhereThePageShowsIt)
{
    // The MediaBox's origin (both coordinates), /Rotate, and a point inside the red quarter as a
    // fraction of the picture.
    const struct { double origin; int rotate; double red_x, red_y; } cases[] = {
        {0, 0, 0.25, 0.75}, {500, 0, 0.25, 0.75}, {0, 90, 0.25, 0.25}, {0, 180, 0.75, 0.25},
        {0, 270, 0.75, 0.75}};
    std::vector<test::PdfPageSpec> pages;
    for (const auto& c : cases) {
        pages.push_back({.width = 200, .height = 100, .origin_x = c.origin, .origin_y = c.origin,
                         .rotate = c.rotate, .fills = {{{0, 0, 100, 50}, test::kPdfRed}}});
    }
    pages.push_back({});
    test::TempFolder dir;
    test::write_pdf(dir / "quarters.pdf", pages);
    const auto source = open(dir / "quarters.pdf");
    for (int i = 0; i < static_cast<int>(std::size(cases)); ++i) {
        const auto& c = cases[i];
        const PagePicture picture = source->picture(i + 1, at_dpi(72));
        const auto at = [&](double fx, double fy) {
            return pixel(picture, static_cast<int>(fx * picture.width),
                         static_cast<int>(fy * picture.height));
        };
        EXPECT_EQ(at(c.red_x, c.red_y), kRed) << "page " << i + 1;
        EXPECT_EQ(at(1 - c.red_x, 1 - c.red_y), kWhite) << "page " << i + 1;
        // The page fills the picture edge to edge: the corner pixels belong to the page.
        EXPECT_EQ(at(c.red_x < 0.5 ? 0 : 0.999, c.red_y < 0.5 ? 0 : 0.999), kRed) << i + 1;
    }
    const PagePicture blank = source->picture(6, at_dpi(36));
    EXPECT_EQ(std::count(blank.pixels.begin(), blank.pixels.end(), 255),
              static_cast<std::ptrdiff_t>(blank.pixels.size()));
    EXPECT_EQ(source->text(6), "");
}

// An annotation without an appearance and a field asking for one show in the pixels, flattened
// or not; the field's value is also the page's text.
TEST(PdfSource, DrawsAnnotationsAndFormFields)
{
    test::TempFolder dir;
    test::write_square_annotation_pdf(dir / "note.pdf", test::AnnotationForm::WithoutAppearance);
    test::write_text_field_pdf(dir / "field.pdf", "Field Value 42",
                               test::FieldForm::NeedAppearances);
    for (const bool flatten : {true, false}) {
        SCOPED_TRACE(flatten ? "flattened" : "as is");
        const PagePicture note =
            open(dir / "note.pdf")->picture(1, {.dpi = 72, .flatten = flatten});
        const test::PdfRect a = test::kAnnotationRect;
        const int x0 = static_cast<int>(a.x), y0 = static_cast<int>(792 - a.y - a.height);
        EXPECT_EQ(pixel(note, x0 + 100, y0 + 100), kRed);
        EXPECT_EQ(pixel(note, x0 + 250, y0 - 50), kWhite);
        const auto source = open(dir / "field.pdf");
        const PagePicture field = source->picture(1, {.dpi = 72, .flatten = flatten});
        const test::PdfRect r = test::kFieldRect;
        const int top = static_cast<int>(792 - r.y - r.height);
        EXPECT_GT(dark_pixels(field, static_cast<int>(r.x), top, static_cast<int>(r.x + r.width),
                              static_cast<int>(792 - r.y)), 50);
        EXPECT_EQ(dark_pixels(field, 0, 0, field.width, top), 0);
        EXPECT_EQ(source->text(1), "Field Value 42");
    }
}

// Every way a document, a password, a page or a render is refused: the error's kind and
// reason, and the source still serves the pages it has afterwards.
TEST(PdfSource, RefusesWhatItCannotServeWithTheReason)
{
    test::TempFolder dir;
    test::write_numbered_pdf(dir / "three.pdf", 3);
    using enum test::PdfEncryption;
    for (const auto& [name, encryption] : {std::pair{"rc4.pdf", Rc4_128}, {"aes128.pdf", Aes128},
                                           {"aes256.pdf", Aes256}}) {
        test::write_encrypted_copy(dir / "three.pdf", dir / name, encryption, "user-pw", "owner-pw");
    }
    test::write_encrypted_copy(dir / "three.pdf", dir / "owner-only.pdf",
                               test::PdfEncryption::Aes128, "", "owner-pw");
    // A page number 0 is a refused opening; a null reason is any.
    const struct { const char *file, *password; int pageno; RenderRequest request; ErrorKind kind;
                   const char* reason; } cases[] = {
        {"missing.pdf", "", 0, {}, ErrorKind::BadInput, nullptr},
        {"aes256.pdf", "wrong-secret", 0, {}, ErrorKind::Password,
         "the password does not open it"},
        {"three.pdf", "", 4, at_dpi(72), ErrorKind::BadInput, "the document has only 3 pages"},
        {"three.pdf", "", -1, at_dpi(72), ErrorKind::BadInput, "the document has only 3 pages"},
        {"three.pdf", "", 1, at_dpi(20000), ErrorKind::Unsupported,
         "page too large to render: 170000 x 220000 pixels"},
        {"three.pdf", "", 1, at_dpi(3000), ErrorKind::Unsupported, // 2.5 GB of RGB
         "page too large to render: 25500 x 33000 pixels"},
        {"three.pdf", "", 1, at_dpi(0), ErrorKind::Unsupported, "page too small to render: 0 x 0 pixels"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " page " + std::to_string(c.pageno));
        try {
            const auto source = open(dir / c.file, c.password);
            ASSERT_NE(c.pageno, 0) << "opened";
            try {
                source->picture(c.pageno, c.request);
                ADD_FAILURE() << "rendered";
            } catch (const Error& error) {
                EXPECT_EQ(error.kind(), c.kind);
                EXPECT_EQ(error.reason(), c.reason);
                EXPECT_EQ(error.page(), c.pageno);
            }
            EXPECT_EQ(source->text(2), test::numbered_page_line(2));
        } catch (const Error& error) {
            EXPECT_EQ(c.pageno, 0) << error.what();
            EXPECT_EQ(error.kind(), c.kind);
            EXPECT_TRUE(c.reason == nullptr || error.reason() == c.reason) << error.reason();
            EXPECT_EQ(std::string(error.what()).find("wrong-secret"), std::string::npos);
        }
    }
    // Either password opens every encryption; a password a file does not need is no harm.
    const std::pair<const char*, const char*> openings[] = {
        {"rc4.pdf", "user-pw"}, {"aes128.pdf", "owner-pw"}, {"aes256.pdf", "user-pw"},
        {"aes256.pdf", "owner-pw"}, {"owner-only.pdf", ""}, {"three.pdf", "not needed"}};
    for (const auto& [name, password] : openings) {
        EXPECT_EQ(open(dir / name, password)->text(3), test::numbered_page_line(3)) << name;
    }
}

using engine::PixelFormat;
using test::TiffKind;
using test::TiffPage;

std::unique_ptr<engine::PageSource> open_tiff(const std::filesystem::path& path, const char* marker = engine::kTiledNo)
{
    return open_tiff_source({path, "", marker});
}


// Every page of a multipage file in order, in any order and again: bilevel pages stay one bit,
// deep and transparent ones become opaque 8-bit RGB over white.
TEST(TiffSource, ReadsEveryPageOfAMultipageFile)
{
    const TiffPage pages[] = {
        {}, {.width = 80, .height = 40, .copyright = "second"},
        {.kind = TiffKind::Bilevel, .compression = 4},
        {.kind = TiffKind::Bilevel, .compression = 4, .tiled = true},
        {.kind = TiffKind::BilevelMinIsBlack}, {.kind = TiffKind::Gray16}, {.kind = TiffKind::RgbAlpha},
    };
    test::TempFolder folder;
    test::make_tiff(folder / "pages.tif", {std::begin(pages), std::end(pages)});
    auto source = open_tiff(folder / "pages.tif");
    ASSERT_EQ(source->page_count(), 7);
    for (const int page : {7, 2, 1, 3, 4, 5, 6, 1}) {
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
        EXPECT_EQ(pixel(rgb, rgb.width - 1, rgb.height - 1), corner) << page;
        const test::Rgb square = kind == TiffKind::RgbAlpha ? colour : test::Rgb{0, 0, 0};
        EXPECT_EQ(pixel(rgb, rgb.width / 4, rgb.height / 4), square) << page;
    }
    EXPECT_THROW(source->picture(8, {}), engine::Error);
    // A tiled document shows its second image when it has one, and that image's tags.
    auto tiled = open_tiff(folder / "pages.tif", engine::kTiledYes);
    EXPECT_EQ(tiled->page_count(), 1);
    EXPECT_EQ(tiled->tags().copyright, "second");
    test::make_tiff(folder / "one.tif", {TiffPage{.tiled = true}});
    EXPECT_EQ(pixel(open_tiff(folder / "one.tif", engine::kTiledYes)->picture(1, {}), 63, 47),
              test::page_colour(0));
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
            const test::Rgb p = pixel(rgb, x, y);
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
    const struct { std::uint16_t orientation; const char *shown, *bilevel; } cases[] = {
        {1, "RGB/KWY", "WWW/KWW"},  {2, "BGR/YWK", "WWW/WWK"},  {3, "YWK/BGR", "WWK/WWW"},  {4, "KWY/RGB", "KWW/WWW"},
        {5, "RK/GW/BY", "WK/WW/WW"}, {6, "KR/WG/YB", "KW/WW/WW"}, {7, "YB/WG/KR", "WW/WW/KW"}, {8, "BY/GW/RK", "WW/WW/WK"},
    };
    test::TempFolder folder;
    for (const auto& c : cases) {
        for (test::RawTiffImage image : {colour, bilevel}) {
            image.orientation = c.orientation;
            test::make_raw_tiff(folder / "turned.tif", {image});
            auto source = open_tiff(folder / "turned.tif");
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
    // image: one row as stored
    // grey: expected value of each pixel shown: red, green and blue alike
    // shown: or the letters expected, or the refusal
    const struct { const char* name; test::RawTiffImage image; std::vector<int> grey; const char* shown;
                   PixelFormat format = PixelFormat::Rgb8; } cases[] = {
        {"white and green map", {.width = 3, .bits_per_sample = 1, .photometric = 3,
                                 .colour_map = {65535, 0, 65535, 65535, 65535, 0}, .data = test::pack_samples({0, 1, 1}, 3, 1)},
         {}, "WGG"},
        {"black and white map", {.width = 3, .bits_per_sample = 1, .photometric = 3,
                                 .colour_map = {0, 65535, 0, 65535, 0, 65535}, .data = test::pack_samples({0, 1, 0}, 3, 1)},
         {}, "KWK", PixelFormat::Bilevel},
        {"16-bit CMYK", {.width = 4, .bits_per_sample = 16, .samples_per_pixel = 4, .photometric = 5,
                         .data = test::pack_samples({0, full, full, 0, full, 0, full, 0, 0, 0, 0, full, 0, 0, 0, 0}, 16, 16)},
         {}, "RGKW"},
        // The bit patterns of the floats 0, 0.5 and 1.
        {"32-bit float grey", {.width = 3, .bits_per_sample = 32, .sample_format = 3,
                               .data = test::pack_samples({0, 0x3F000000, 0x3F800000}, 3, 32)}, {0, 128, 255}, ""},
        {"12-bit grey turned", {.width = 3, .bits_per_sample = 12, .orientation = 8,
                                .data = test::pack_samples({0, 2048, 4095}, 3, 12)}, {255, 128, 0}, ""},
        {"grey, unassociated alpha", {.samples_per_pixel = 2, .extra_samples = {2}, .data = {200, 128}}, {227}, ""},
        {"grey, associated alpha", {.samples_per_pixel = 2, .extra_samples = {1}, .data = {100, 128}}, {227}, ""},
        {"64-bit integer RGB", {.width = 3, .bits_per_sample = 64, .samples_per_pixel = 3, .photometric = 2,
                                .data = test::pack_samples({~0ull, 0, 0, 0, 0, ~0ull, 0, ~0ull >> 1, 0}, 9, 64)},
         {}, "RBK"},
        {"64-bit signed grey", {.bits_per_sample = 64, .sample_format = 2, .data = test::pack_samples({0}, 1, 64)},
         {}, "64-bit samples"},
    };
    test::TempFolder folder;
    for (const auto& c : cases) {
        const auto path = folder / "deep.tif";
        test::make_raw_tiff(path, {c.image, c.image});
        EXPECT_TRUE(intake::probe_tiff(path).readable) << c.name;
        engine::PagePicture picture;
        try {
            picture = open_tiff(path)->picture(2, {});
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
