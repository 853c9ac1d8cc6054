// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_source.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "engine/error.h"
#include "tests/support/pdf_fixtures.h"

namespace qf::sources {
namespace {

namespace fs = std::filesystem;
using engine::Error;
using engine::ErrorKind;
using engine::PagePicture;
using engine::RenderRequest;
using test::PdfPageSpec;

// A fresh folder under the system's temporary folder, removed with everything in it.
class ScratchDir {
public:
    ScratchDir()
    {
        std::string pattern = (fs::temp_directory_path() / "qf-pdf-source-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a scratch folder");
        }
        path_ = pattern;
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    fs::path operator/(const std::string& name) const { return path_ / name; }

private:
    fs::path path_;
};

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

TEST(PdfRenderSize, TruncatesSwapsAndKeepsMultiplicationOrder)
{
    const struct {
        double width, height;
        int rotation, dpi, zoom;
        bool jpeg_order;
        int expected_width, expected_height;
    } cases[] = {
        {612, 792, 0, 150, 1, false, 1275, 1650},     // US Letter at 150 dpi
        {595.28, 841.89, 0, 300, 1, false, 2480, 3507}, // A4 at 300: 2480.33, not rounded up
        {100, 100, 0, 96, 3, false, 399, 399},         // 100 * (4/3) * 3 falls just short of 400
        {100, 100, 0, 96, 3, true, 400, 400},          // the JPEG writer's order reaches it
        {612, 792, 90, 72, 1, false, 792, 612},
        {612, 792, 270, 72, 1, false, 792, 612},
        {612, 792, 180, 72, 1, false, 612, 792},
        {612, 792, -90, 72, 1, false, 792, 612},
        {612, 792, 450, 72, 1, false, 792, 612},
        {612, 792, 0, 50, 1, false, 425, 550},         // below 72 dpi: smaller than the points
        {612, 792, 0, 150, 2, false, 2550, 3300},
        {612, 792, 0, 0, 1, false, 0, 0},
        {1e9, 1e9, 0, 7200, 10, false, INT32_MAX, INT32_MAX},
    };
    for (const auto& c : cases) {
        const PixelSize size =
            render_size(c.width, c.height, c.rotation, c.dpi, c.zoom, c.jpeg_order);
        EXPECT_EQ(size.width, c.expected_width)
            << c.width << "x" << c.height << " rot " << c.rotation << " dpi " << c.dpi;
        EXPECT_EQ(size.height, c.expected_height)
            << c.width << "x" << c.height << " rot " << c.rotation << " dpi " << c.dpi;
    }
}

TEST(PdfSource, RendersPagesAtTheirPixelSize)
{
    ScratchDir dir;
    const struct {
        PdfPageSpec page;
        RenderRequest request;
        int width, height;
    } cases[] = {
        {page_box(612, 792), at_dpi(150), 1275, 1650},
        {page_box(595.28, 841.89), at_dpi(300), 2480, 3507},
        {page_box(100, 100), at_dpi(96, 3), 399, 399},
        {page_box(100, 100), at_dpi(96, 3, true), 400, 400},
        {page_box(612, 792, 90), at_dpi(72), 792, 612},
        {page_box(612, 792, 270), at_dpi(72), 792, 612},
        {page_box(612, 792, 180), at_dpi(72), 612, 792},
        {page_box(612, 792, -90), at_dpi(72), 792, 612},
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
}

TEST(PdfSource, BlankPageIsOpaqueWhite)
{
    ScratchDir dir;
    const fs::path file = dir / "blank.pdf";
    test::write_pdf(file, {PdfPageSpec{}});
    const PagePicture picture = open(file)->picture(1, at_dpi(36));
    ASSERT_FALSE(picture.empty());
    for (const std::uint8_t value : picture.pixels) {
        ASSERT_EQ(value, 255);
    }
}

// Point (x, y) of the page in PDF points, as a pixel of a 72 dpi render of a Letter page.
Rgb page_point(const PagePicture& picture, double x, double y)
{
    return pixel(picture, static_cast<int>(x), static_cast<int>(792 - y));
}

TEST(PdfSource, DrawsAnnotationsWithAndWithoutAppearance)
{
    ScratchDir dir;
    for (const auto form : {test::AnnotationForm::WithAppearance,
                            test::AnnotationForm::WithoutAppearance}) {
        const fs::path file = dir / "annotated.pdf";
        test::write_square_annotation_pdf(file, form);
        const auto& r = test::kAnnotationRect;
        for (const bool flatten : {true, false}) {
            RenderRequest request = at_dpi(72);
            request.flatten = flatten;
            const PagePicture picture = open(file)->picture(1, request);
            EXPECT_EQ(page_point(picture, r.x + r.width / 2, r.y + r.height / 2), kRed)
                << "form " << static_cast<int>(form) << " flatten " << flatten;
            EXPECT_EQ(page_point(picture, r.x + r.width + 50, r.y + r.height + 50), kWhite);
        }
    }
}

TEST(PdfSource, ShowsFormFieldValuesInPixelsAndText)
{
    ScratchDir dir;
    const std::string value = "Field Value 42";
    for (const auto form : {test::FieldForm::WithAppearance, test::FieldForm::NeedAppearances,
                            test::FieldForm::NoAppearance}) {
        const fs::path file = dir / "form.pdf";
        test::write_text_field_pdf(file, value, form);
        const auto source = open(file);
        const PagePicture picture = source->picture(1, at_dpi(72));
        const auto& r = test::kFieldRect;
        const int x0 = static_cast<int>(r.x);
        const int y0 = static_cast<int>(792 - r.y - r.height);
        EXPECT_GT(dark_pixels(picture, x0, y0, x0 + static_cast<int>(r.width),
                              y0 + static_cast<int>(r.height)),
                  50)
            << "form " << static_cast<int>(form);
        EXPECT_EQ(dark_pixels(picture, 0, 0, picture.width, y0), 0)
            << "form " << static_cast<int>(form);
        EXPECT_EQ(source->text(1), value) << "form " << static_cast<int>(form);
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

TEST(PdfSource, RefusesPagesOutsideTheDocument)
{
    ScratchDir dir;
    const fs::path file = dir / "three.pdf";
    test::write_numbered_pdf(file, 3);
    const auto source = open(file);
    for (const int pageno : {0, 4, -1}) {
        try {
            source->picture(pageno, at_dpi(72));
            ADD_FAILURE() << "page " << pageno << " rendered";
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::BadInput);
            EXPECT_EQ(error.reason(), "the document has only 3 pages");
            EXPECT_EQ(error.page(), pageno);
        }
        EXPECT_THROW(source->text(pageno), Error);
    }
    // The source still works after a refused page.
    EXPECT_EQ(source->text(2), test::numbered_page_line(2));
}

TEST(PdfSource, RefusesRendersBeyondTheLimits)
{
    ScratchDir dir;
    const fs::path file = dir / "letter.pdf";
    test::write_pdf(file, {PdfPageSpec{}});
    const auto source = open(file);
    const struct {
        RenderRequest request;
        const char* reason;
    } cases[] = {
        {at_dpi(20000), "page too large to render: 170000 x 220000 pixels"},
        {at_dpi(7200, 3), "page too large to render: 183600 x 237600 pixels"},
        {at_dpi(3000), "page too large to render: 25500 x 33000 pixels"}, // 2.5 GB of RGB
        {at_dpi(0), "page too small to render: 0 x 0 pixels"},
        {at_dpi(-72), "page too small to render: -612 x -792 pixels"},
    };
    for (const auto& c : cases) {
        try {
            source->picture(1, c.request);
            ADD_FAILURE() << c.reason;
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::Unsupported);
            EXPECT_EQ(error.reason(), c.reason);
        }
    }
}

TEST(PdfSource, OpensEncryptedDocumentsOnlyWithTheirPassword)
{
    ScratchDir dir;
    const fs::path plain = dir / "plain.pdf";
    test::write_numbered_pdf(plain, 2);
    const struct {
        test::PdfEncryption encryption;
        const char* name;
    } cases[] = {
        {test::PdfEncryption::Rc4_128, "rc4.pdf"},
        {test::PdfEncryption::Aes128, "aes128.pdf"},
        {test::PdfEncryption::Aes256, "aes256.pdf"},
    };
    for (const auto& c : cases) {
        const fs::path file = dir / c.name;
        test::write_encrypted_copy(plain, file, c.encryption, "user-pw", "owner-pw");
        for (const char* password : {"user-pw", "owner-pw"}) {
            const auto source = open(file, password);
            EXPECT_EQ(source->page_count(), 2) << c.name;
            EXPECT_EQ(source->text(2), test::numbered_page_line(2)) << c.name;
            EXPECT_EQ(source->picture(1, at_dpi(72)).width, 612) << c.name;
        }
        const struct {
            const char* password;
            const char* reason;
        } refusals[] = {
            {"wrong-secret", "the password does not open it"},
            {"USER-PW", "the password does not open it"},
            {"", "the document needs a password"},
        };
        for (const auto& refusal : refusals) {
            try {
                open(file, refusal.password);
                ADD_FAILURE() << c.name << " opened with '" << refusal.password << "'";
            } catch (const Error& error) {
                EXPECT_EQ(error.kind(), ErrorKind::Password) << c.name;
                EXPECT_EQ(error.reason(), refusal.reason) << c.name;
                EXPECT_EQ(std::string(error.what()).find("wrong-secret"), std::string::npos);
            }
        }
    }
}

TEST(PdfSource, DamagedFilesGiveErrors)
{
    ScratchDir dir;
    const fs::path garbage = dir / "garbage.pdf";
    test::write_garbage_pdf(garbage);
    const fs::path stub = dir / "stub.pdf";
    const fs::path good = dir / "good.pdf";
    test::write_numbered_pdf(good, 4);
    test::write_truncated_copy(good, stub, 9);
    const fs::path empty = dir / "empty.pdf";
    test::write_truncated_copy(good, empty, 0);

    for (const auto& file : {garbage, stub, empty}) {
        try {
            open(file);
            ADD_FAILURE() << file << " opened";
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::Damaged) << file;
            EXPECT_EQ(error.file(), file);
        }
    }
    try {
        open(dir / "missing.pdf");
        ADD_FAILURE() << "a missing file opened";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::BadInput);
    }
}

// Files cut off at any point either open (MuPDF repairs what it can) and give whole pages,
// or fail with Error: never a crash, never another exception.
TEST(PdfSource, TruncatedFilesFailCleanlyOrRepair)
{
    ScratchDir dir;
    const fs::path good = dir / "good.pdf";
    test::write_numbered_pdf(good, 4);
    const auto size = fs::file_size(good);
    for (int tenth = 1; tenth < 10; ++tenth) {
        const fs::path cut = dir / ("cut" + std::to_string(tenth) + ".pdf");
        test::write_truncated_copy(good, cut, size * tenth / 10);
        try {
            const auto source = open(cut);
            for (int pageno = 1; pageno <= source->page_count(); ++pageno) {
                try {
                    const PagePicture picture = source->picture(pageno, at_dpi(36));
                    EXPECT_EQ(picture.width, 306);
                    source->text(pageno);
                } catch (const Error& error) {
                    EXPECT_EQ(error.page(), pageno);
                }
            }
        } catch (const Error& error) {
            EXPECT_NE(error.kind(), ErrorKind::Password) << cut;
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
