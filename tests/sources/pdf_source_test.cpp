// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_source.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "engine/error.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace qf::sources {
namespace {

namespace fs = std::filesystem;
using engine::Error;
using engine::ErrorKind;
using engine::PagePicture;
using engine::RenderRequest;
using test::PdfPageSpec;
using ScratchDir = test::TempFolder;

using Rgb = std::array<int, 3>;

Rgb pixel(const PagePicture& picture, int x, int y)
{
    const std::size_t at = static_cast<std::size_t>(y) * picture.stride() +
                           static_cast<std::size_t>(x) * 3;
    return {picture.pixels[at], picture.pixels[at + 1], picture.pixels[at + 2]};
}

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kRed{255, 0, 0};

// Dark pixels within a rectangle of the picture: where text or lines were drawn.
int dark_pixels(const PagePicture& picture, int x0, int y0, int x1, int y1)
{
    int count = 0;
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            const Rgb p = pixel(picture, x, y);
            count += (p[0] + p[1] + p[2]) < 3 * 128 ? 1 : 0;
        }
    }
    return count;
}

std::unique_ptr<engine::PageSource> open(const fs::path& path, const std::string& password = {})
{
    return open_pdf_source({path, password, "tiled~no"});
}

// A blank page of this MediaBox, with `fills` drawn on it.
PdfPageSpec page_box(double width, double height, int rotate = 0, double origin_x = 0,
                     double origin_y = 0, std::vector<test::PdfFill> fills = {})
{
    PdfPageSpec spec;
    spec.width = width;
    spec.height = height;
    spec.rotate = rotate;
    spec.origin_x = origin_x;
    spec.origin_y = origin_y;
    spec.fills = std::move(fills);
    return spec;
}

RenderRequest at_dpi(int dpi, int zoom = 1, bool jpeg_order = false)
{
    RenderRequest request;
    request.dpi = dpi;
    request.zoom = zoom;
    request.jpeg_order = jpeg_order;
    return request;
}

// The picture's size follows the page box, the resolution, the zoom and /Rotate; a point is
// truncated, not rounded, after multiplying in the order the writer uses.
TEST(PdfSource, RendersPagesAtTheirPixelSize)
{
    ScratchDir dir;
    const struct {
        PdfPageSpec page;
        RenderRequest request;
        int width, height;
    } cases[] = {
        {page_box(612, 792), at_dpi(150), 1275, 1650},
        {page_box(595.28, 841.89), at_dpi(300), 2480, 3507}, // 2480.33, not rounded up
        {page_box(100, 100), at_dpi(96, 3), 399, 399},       // 100 * (4/3) * 3 falls just short
        {page_box(100, 100), at_dpi(96, 3, true), 400, 400}, // the JPEG writer's order reaches it
        {page_box(612, 792, 90), at_dpi(72), 792, 612},
        {page_box(612, 792, 270), at_dpi(72), 792, 612},
        {page_box(612, 792, 180), at_dpi(72), 612, 792},
        {page_box(612, 792, -90), at_dpi(72), 792, 612},
        {page_box(612, 792, 450), at_dpi(72), 792, 612},
        {page_box(612, 792), at_dpi(50), 425, 550}, // below 72 dpi: smaller than the points
        {page_box(612, 792), at_dpi(75, 2), 1275, 1650},
        {page_box(300, 200, 0, 1000, -50), at_dpi(144), 600, 400}, // MediaBox off the origin
    };
    std::vector<PdfPageSpec> pages;
    for (const auto& c : cases) {
        pages.push_back(c.page);
    }
    const fs::path file = dir / "sizes.pdf";
    test::write_pdf(file, pages);

    const auto source = open(file);
    ASSERT_EQ(source->page_count(), static_cast<int>(std::size(cases)));
    for (int i = 0; i < source->page_count(); ++i) {
        const PagePicture picture = source->picture(i + 1, cases[i].request);
        EXPECT_EQ(picture.width, cases[i].width) << "page " << i + 1;
        EXPECT_EQ(picture.height, cases[i].height) << "page " << i + 1;
        EXPECT_EQ(picture.format, engine::PixelFormat::Rgb8);
        EXPECT_EQ(picture.pixels.size(), picture.stride() * picture.height);
    }
    // Sizes beyond any render saturate instead of overflowing.
    EXPECT_EQ(render_size(1e9, 1e9, 0, 7200, 10, false).width, INT32_MAX);
}

// Point (x, y) of the page in PDF points, as a pixel of a 72 dpi render of a Letter page.
Rgb page_point(const PagePicture& picture, double x, double y)
{
    return pixel(picture, static_cast<int>(x), static_cast<int>(792 - y));
}

// Box edges count as the file writes them, in double precision: a float reading would make
// 611.99999 into 612, and its shortest decimal would make 680.400024 - 248.400009 fall short
// of 432.000015.
TEST(PdfSource, SizesPagesFromTheBoxAsWritten)
{
    ScratchDir dir;
    const struct {
        test::PdfBoxesSpec page;
        int dpi, width, height;
    } cases[] = {
        {{"[0 0 1000 1000]", "[248.400009 100 680.400024 400]"}, 36, 216, 150},
        {{"[0 0 1000 1000]", "[248.400009 0 680.400024 100]", 90}, 36, 50, 216},
        {{"[0 0 611.99999 792]", ""}, 72, 611, 792},
        {{"[0 0 432.3 100]", ""}, 720, 4323, 1000},
        {{"[0 0 432.000015 300]", "[-10 -10 1000 1000]"}, 36, 216, 150}, // clipped to the MediaBox
    };
    std::vector<test::PdfBoxesSpec> pages;
    for (const auto& c : cases) {
        pages.push_back(c.page);
    }
    const fs::path file = dir / "boxes.pdf";
    test::write_boxed_pdf(file, pages);

    const auto source = open(file);
    for (int i = 0; i < source->page_count(); ++i) {
        const PagePicture picture = source->picture(i + 1, at_dpi(cases[i].dpi));
        EXPECT_EQ(picture.width, cases[i].width) << "page " << i + 1;
        EXPECT_EQ(picture.height, cases[i].height) << "page " << i + 1;
    }
}

// A page whose lower-left quarter is red: the red must land in the pixels' lower-left
// quarter (or where /Rotate turns it), whatever the MediaBox origin, with white elsewhere.
TEST(PdfSource, PlacesContentWhereThePageShowsIt)
{
    ScratchDir dir;
    const test::PdfFill lower_left{{0, 0, 100, 50}, test::kPdfRed};
    const struct {
        PdfPageSpec page;
        double red_x, red_y;     // a point inside the red quarter, as a fraction of the picture
        double white_x, white_y; // and one outside it
    } cases[] = {
        {page_box(200, 100, 0, 0, 0, {lower_left}), 0.25, 0.75, 0.75, 0.25},
        {page_box(200, 100, 0, 500, 300, {lower_left}), 0.25, 0.75, 0.75, 0.25},
        {page_box(200, 100, 90, 0, 0, {lower_left}), 0.25, 0.25, 0.75, 0.75}, // clockwise
        {page_box(200, 100, 180, 0, 0, {lower_left}), 0.75, 0.25, 0.25, 0.75},
        {page_box(200, 100, 270, 0, 0, {lower_left}), 0.75, 0.75, 0.25, 0.25},
    };
    std::vector<PdfPageSpec> pages;
    for (const auto& c : cases) {
        pages.push_back(c.page);
    }
    const fs::path file = dir / "quarters.pdf";
    test::write_pdf(file, pages);

    const auto source = open(file);
    for (int i = 0; i < source->page_count(); ++i) {
        const auto& c = cases[i];
        const PagePicture picture = source->picture(i + 1, at_dpi(72));
        const auto at = [&](double fx, double fy) {
            return pixel(picture, static_cast<int>(fx * picture.width),
                         static_cast<int>(fy * picture.height));
        };
        EXPECT_EQ(at(c.red_x, c.red_y), kRed) << "page " << i + 1;
        EXPECT_EQ(at(c.white_x, c.white_y), kWhite) << "page " << i + 1;
        // The page fills the picture edge to edge: the corner pixels belong to the page.
        EXPECT_EQ(at(c.red_x < 0.5 ? 0 : 0.999, c.red_y < 0.5 ? 0 : 0.999), kRed)
            << "page " << i + 1;
    }
    // A blank page is opaque white.
    test::write_pdf(file, {PdfPageSpec{}});
    const PagePicture blank = open(file)->picture(1, at_dpi(36));
    EXPECT_EQ(std::count(blank.pixels.begin(), blank.pixels.end(), 255),
              static_cast<std::ptrdiff_t>(blank.pixels.size()));
}

// Annotations and form fields show in the pixels whether or not they carry an appearance,
// flattened or not; a field's value is also the page's text.
TEST(PdfSource, DrawsAnnotationsAndFormFieldsWithAndWithoutAppearance)
{
    ScratchDir dir;
    const std::string value = "Field Value 42";
    const fs::path file = dir / "page.pdf";
    const struct {
        std::function<void()> make;
        const char* what;
        bool field;
    } cases[] = {
        {[&] { test::write_square_annotation_pdf(file, test::AnnotationForm::WithAppearance); },
         "annotation with appearance", false},
        {[&] { test::write_square_annotation_pdf(file, test::AnnotationForm::WithoutAppearance); },
         "annotation without appearance", false},
        {[&] { test::write_text_field_pdf(file, value, test::FieldForm::WithAppearance); },
         "field with appearance", true},
        {[&] { test::write_text_field_pdf(file, value, test::FieldForm::NeedAppearances); },
         "field that needs appearances", true},
        {[&] { test::write_text_field_pdf(file, value, test::FieldForm::NoAppearance); },
         "field without appearance", true},
    };
    for (const auto& c : cases) {
        c.make();
        for (const bool flatten : {true, false}) {
            RenderRequest request = at_dpi(72);
            request.flatten = flatten;
            const auto source = open(file);
            const PagePicture picture = source->picture(1, request);
            const std::string where = std::string(c.what) + (flatten ? ", flattened" : "");
            if (c.field) {
                const auto& r = test::kFieldRect;
                const int x0 = static_cast<int>(r.x);
                const int y0 = static_cast<int>(792 - r.y - r.height);
                EXPECT_GT(dark_pixels(picture, x0, y0, x0 + static_cast<int>(r.width),
                                      y0 + static_cast<int>(r.height)),
                          50)
                    << where;
                EXPECT_EQ(dark_pixels(picture, 0, 0, picture.width, y0), 0) << where;
                EXPECT_EQ(source->text(1), value) << where;
            } else {
                const auto& r = test::kAnnotationRect;
                EXPECT_EQ(page_point(picture, r.x + r.width / 2, r.y + r.height / 2), kRed) << where;
                EXPECT_EQ(page_point(picture, r.x + r.width + 50, r.y + r.height + 50), kWhite)
                    << where;
            }
        }
    }
}

TEST(PdfSource, GivesTheTextOfEachPage)
{
    ScratchDir dir;
    const fs::path file = dir / "numbered.pdf";
    test::write_numbered_pdf(file, 3);
    const auto source = open(file);
    ASSERT_EQ(source->page_count(), 3);
    for (const int pageno : {3, 1, 2}) {
        EXPECT_EQ(source->text(pageno), test::numbered_page_line(pageno));
    }

    PdfPageSpec two_lines;
    two_lines.texts = {{72, 700, 18, "First line"}, {72, 650, 18, "Second (line) \\ end"}};
    const fs::path lines_file = dir / "lines.pdf";
    test::write_pdf(lines_file, {two_lines, PdfPageSpec{}});
    const auto lines = open(lines_file);
    EXPECT_EQ(lines->text(1), "First line\nSecond (line) \\ end");
    EXPECT_EQ(lines->text(2), "");
}

// Every way a document, a password, a page or a render is refused: the error's kind and
// reason, and the source still serves the pages it has afterwards.
TEST(PdfSource, RefusesWhatItCannotServeWithTheReason)
{
    ScratchDir dir;
    test::write_numbered_pdf(dir / "three.pdf", 3);
    test::write_garbage_pdf(dir / "garbage.pdf");
    test::write_truncated_copy(dir / "three.pdf", dir / "stub.pdf", 9);
    test::write_truncated_copy(dir / "three.pdf", dir / "empty.pdf", 0);
    test::write_encrypted_copy(dir / "three.pdf", dir / "rc4.pdf", test::PdfEncryption::Rc4_128,
                               "user-pw", "owner-pw");
    test::write_encrypted_copy(dir / "three.pdf", dir / "aes128.pdf", test::PdfEncryption::Aes128,
                               "user-pw", "owner-pw");
    test::write_encrypted_copy(dir / "three.pdf", dir / "aes256.pdf", test::PdfEncryption::Aes256,
                               "user-pw", "owner-pw");
    const struct {
        const char* file;
        const char* password;
        int pageno; // 0: the opening is refused
        RenderRequest request;
        ErrorKind kind;
        const char* reason; // nullptr: any
    } cases[] = {
        {"garbage.pdf", "", 0, {}, ErrorKind::Damaged, nullptr},
        {"stub.pdf", "", 0, {}, ErrorKind::Damaged, nullptr},
        {"empty.pdf", "", 0, {}, ErrorKind::Damaged, nullptr},
        {"missing.pdf", "", 0, {}, ErrorKind::BadInput, nullptr},
        {"rc4.pdf", "wrong-secret", 0, {}, ErrorKind::Password, "the password does not open it"},
        {"aes128.pdf", "USER-PW", 0, {}, ErrorKind::Password, "the password does not open it"},
        {"aes256.pdf", "", 0, {}, ErrorKind::Password, "the document needs a password"},
        {"aes256.pdf", "wrong-secret", 0, {}, ErrorKind::Password, "the password does not open it"},
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
        const std::string where = std::string(c.file) + " page " + std::to_string(c.pageno);
        try {
            const auto source = open(dir / c.file, c.password);
            ASSERT_NE(c.pageno, 0) << where << " opened";
            try {
                source->picture(c.pageno, c.request);
                ADD_FAILURE() << where << " rendered";
            } catch (const Error& error) {
                EXPECT_EQ(error.kind(), c.kind) << where;
                EXPECT_EQ(error.reason(), c.reason) << where;
                EXPECT_EQ(error.page(), c.pageno) << where;
            }
            EXPECT_EQ(source->text(2), test::numbered_page_line(2)) << where;
        } catch (const Error& error) {
            EXPECT_EQ(c.pageno, 0) << where << ": " << error.what();
            EXPECT_EQ(error.kind(), c.kind) << where;
            if (c.reason != nullptr) {
                EXPECT_EQ(error.reason(), c.reason) << where;
            }
            EXPECT_EQ(std::string(error.what()).find("wrong-secret"), std::string::npos);
        }
    }
    // Both passwords open every encryption.
    for (const char* name : {"rc4.pdf", "aes128.pdf", "aes256.pdf"}) {
        for (const char* password : {"user-pw", "owner-pw"}) {
            const auto source = open(dir / name, password);
            EXPECT_EQ(source->text(2), test::numbered_page_line(2)) << name;
            EXPECT_EQ(source->picture(1, at_dpi(72)).width, 612) << name;
        }
    }
}

// Several threads on one source: each page's pixels and text are those of a lone render.
TEST(PdfSource, ServesSeveralThreadsAtOnce)
{
    ScratchDir dir;
    const fs::path file = dir / "numbered.pdf";
    test::write_numbered_pdf(file, 8);
    const auto source = open(file);

    std::vector<PagePicture> expected;
    for (int pageno = 1; pageno <= 8; ++pageno) {
        expected.push_back(source->picture(pageno, at_dpi(50)));
    }
    std::vector<std::vector<std::uint8_t>> pixels(8);
    std::vector<std::string> texts(8);
    std::vector<std::string> failures(4);
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&, t] {
            try {
                for (int pageno = t + 1; pageno <= 8; pageno += 4) {
                    pixels[pageno - 1] = source->picture(pageno, at_dpi(50)).pixels;
                    texts[pageno - 1] = source->text(pageno);
                }
            } catch (const std::exception& error) {
                failures[t] = error.what();
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    for (const auto& failure : failures) {
        EXPECT_EQ(failure, "");
    }
    for (int pageno = 1; pageno <= 8; ++pageno) {
        EXPECT_EQ(pixels[pageno - 1], expected[pageno - 1].pixels) << "page " << pageno;
        EXPECT_EQ(texts[pageno - 1], test::numbered_page_line(pageno));
    }
}

} // namespace
} // namespace qf::sources
