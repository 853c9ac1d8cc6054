// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "engine/error.h"
#include "sources/pdf_probe.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace qf::sources {
namespace {

namespace fs = std::filesystem;
using engine::Error;
using engine::ErrorKind;
using engine::PagePicture;
using engine::RenderRequest;
using Rgb = std::array<int, 3>;

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kRed{255, 0, 0};

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
            count += p[0] + p[1] + p[2] < 3 * 128;
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
        {{"[0 0 612 792]", ""}, at_dpi(150), 1275, 1650},
        {{"[0 0 595.28 841.89]", ""}, at_dpi(300), 2480, 3507}, // 2480.33, not rounded up
        {{"[0 0 100 100]", ""}, at_dpi(96, 3), 399, 399},       // 100 * (4/3) * 3 falls short
        {{"[0 0 100 100]", ""}, at_dpi(96, 3, true), 400, 400}, // the JPEG writer's order
        {{"[0 0 612 792]", "", 90}, at_dpi(72), 792, 612},
        {{"[0 0 612 792]", "", 270}, at_dpi(72), 792, 612},
        {{"[0 0 612 792]", "", 180}, at_dpi(72), 612, 792},
        {{"[0 0 612 792]", "", -90}, at_dpi(72), 792, 612},
        {{"[0 0 612 792]", "", 450}, at_dpi(72), 792, 612},
        {{"[0 0 612 792]", ""}, at_dpi(50), 425, 550},
        {{"[0 0 612 792]", ""}, at_dpi(75, 2), 1275, 1650},
        {{"[1000 -50 1300 150]", ""}, at_dpi(144), 600, 400},
        // A float reading would make 611.99999 into 612, and its shortest decimal would make
        // 680.400024 - 248.400009 fall short of 432.000015.
        {{"[0 0 1000 1000]", "[248.400009 100 680.400024 400]"}, at_dpi(36), 216, 150},
        {{"[0 0 1000 1000]", "[248.400009 0 680.400024 100]", 90}, at_dpi(36), 50, 216},
        {{"[0 0 611.99999 792]", ""}, at_dpi(72), 611, 792},
        {{"[0 0 432.3 100]", ""}, at_dpi(720), 4323, 1000},
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
        EXPECT_EQ(picture.pixels.size(), picture.stride() * picture.height);
    }
    // Sizes beyond any render saturate instead of overflowing.
    EXPECT_EQ(render_size(1e9, 1e9, 0, 7200, 10, false).width, INT32_MAX);
}

// A page whose lower-left quarter is red: the red must land in the pixels' lower-left
// quarter (or where /Rotate turns it), whatever the MediaBox origin, with white elsewhere. A
// blank page is opaque white and has no text; lines of text come out one a line.
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
    pages.push_back({.texts = {{72, 700, 18, "First line"}, {72, 650, 18, "Second (line) \\ end"}}});
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
    EXPECT_EQ(source->text(7), "First line\nSecond (line) \\ end");
}

// Annotations and form fields show in the pixels whether or not they carry an appearance,
// flattened or not; a field's value is also the page's text.
TEST(PdfSource, DrawsAnnotationsAndFormFieldsWithAndWithoutAppearance)
{
    test::TempFolder dir;
    const std::string value = "Field Value 42";
    const fs::path file = dir / "page.pdf";
    using test::FieldForm;
    const std::function<void()> makers[] = {
        [&] { test::write_square_annotation_pdf(file, test::AnnotationForm::WithAppearance); },
        [&] { test::write_square_annotation_pdf(file, test::AnnotationForm::WithoutAppearance); },
        [&] { test::write_text_field_pdf(file, value, FieldForm::WithAppearance); },
        [&] { test::write_text_field_pdf(file, value, FieldForm::NeedAppearances); },
        [&] { test::write_text_field_pdf(file, value, FieldForm::NoAppearance); },
    };
    for (int form = 0; form < 5; ++form) {
        makers[form]();
        for (const bool flatten : {true, false}) {
            SCOPED_TRACE("form " + std::to_string(form) + (flatten ? ", flattened" : ""));
            const auto source = open(file);
            const PagePicture picture = source->picture(1, {.dpi = 72, .flatten = flatten});
            const bool field = form >= 2;
            const test::PdfRect r = field ? test::kFieldRect : test::kAnnotationRect;
            const int x0 = static_cast<int>(r.x), y0 = static_cast<int>(792 - r.y - r.height);
            if (field) {
                EXPECT_GT(dark_pixels(picture, x0, y0, x0 + static_cast<int>(r.width),
                                      y0 + static_cast<int>(r.height)), 50);
                EXPECT_EQ(dark_pixels(picture, 0, 0, picture.width, y0), 0);
                EXPECT_EQ(source->text(1), value);
            } else {
                EXPECT_EQ(pixel(picture, x0 + 100, y0 + 100), kRed);
                EXPECT_EQ(pixel(picture, x0 + 250, y0 - 50), kWhite);
            }
        }
    }
}

// Every way a document, a password, a page or a render is refused: the error's kind and
// reason, and the source still serves the pages it has afterwards. The probe opens what the
// source opens, with the same passwords.
TEST(PdfSource, RefusesWhatItCannotServeWithTheReason)
{
    test::TempFolder dir;
    test::write_numbered_pdf(dir / "three.pdf", 3);
    test::write_garbage_pdf(dir / "garbage.pdf");
    test::write_truncated_copy(dir / "three.pdf", dir / "stub.pdf", 9);
    test::write_truncated_copy(dir / "three.pdf", dir / "empty.pdf", 0);
    const std::pair<const char*, test::PdfEncryption> encryptions[] = {
        {"rc4.pdf", test::PdfEncryption::Rc4_128},
        {"aes128.pdf", test::PdfEncryption::Aes128},
        {"aes256.pdf", test::PdfEncryption::Aes256}};
    for (const auto& [name, encryption] : encryptions) {
        test::write_encrypted_copy(dir / "three.pdf", dir / name, encryption, "user-pw", "owner-pw");
    }
    test::write_encrypted_copy(dir / "three.pdf", dir / "owner-only.pdf",
                               test::PdfEncryption::Aes128, "", "owner-pw");
    const char* bad_password = "the password does not open it";
    const struct {
        const char *file, *password;
        int pageno; // 0: the opening is refused
        RenderRequest request;
        ErrorKind kind;
        const char* reason; // nullptr: any
    } cases[] = {
        {"garbage.pdf", "", 0, {}, ErrorKind::Damaged, nullptr},
        {"stub.pdf", "", 0, {}, ErrorKind::Damaged, nullptr},
        {"empty.pdf", "", 0, {}, ErrorKind::Damaged, nullptr},
        {"missing.pdf", "", 0, {}, ErrorKind::BadInput, nullptr},
        {"rc4.pdf", "wrong-secret", 0, {}, ErrorKind::Password, bad_password},
        {"aes128.pdf", "USER-PW", 0, {}, ErrorKind::Password, bad_password},
        {"aes256.pdf", "", 0, {}, ErrorKind::Password, "the document needs a password"},
        {"aes256.pdf", "wrong-secret", 0, {}, ErrorKind::Password, bad_password},
        {"three.pdf", "", 4, at_dpi(72), ErrorKind::BadInput, "the document has only 3 pages"},
        {"three.pdf", "", -1, at_dpi(72), ErrorKind::BadInput, "the document has only 3 pages"},
        {"three.pdf", "", 1, at_dpi(20000), ErrorKind::Unsupported,
         "page too large to render: 170000 x 220000 pixels"},
        {"three.pdf", "", 1, at_dpi(7200, 3), ErrorKind::Unsupported,
         "page too large to render: 183600 x 237600 pixels"},
        {"three.pdf", "", 1, at_dpi(3000), ErrorKind::Unsupported, // 2.5 GB of RGB
         "page too large to render: 25500 x 33000 pixels"},
        {"three.pdf", "", 1, at_dpi(0), ErrorKind::Unsupported, "page too small to render: 0 x 0 pixels"},
        {"three.pdf", "", 1, at_dpi(-72), ErrorKind::Unsupported,
         "page too small to render: -612 x -792 pixels"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " page " + std::to_string(c.pageno));
        const PdfProbe probe = probe_pdf(dir / c.file, c.password);
        EXPECT_EQ(probe.opened, c.pageno != 0);
        EXPECT_EQ(probe.page_count, c.pageno != 0 ? 3 : 0);
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
        {"rc4.pdf", "user-pw"},    {"rc4.pdf", "owner-pw"},    {"aes128.pdf", "user-pw"},
        {"aes128.pdf", "owner-pw"}, {"aes256.pdf", "user-pw"}, {"aes256.pdf", "owner-pw"},
        {"owner-only.pdf", ""},    {"three.pdf", "not needed"}};
    for (const auto& [name, password] : openings) {
        EXPECT_EQ(open(dir / name, password)->picture(1, at_dpi(72)).width, 612) << name;
        EXPECT_EQ(open(dir / name, password)->text(3), test::numbered_page_line(3)) << name;
        EXPECT_EQ(probe_pdf(dir / name, password).page_count, 3) << name << " " << password;
    }
}

} // namespace
} // namespace qf::sources
