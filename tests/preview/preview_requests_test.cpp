// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "preview/picture_fetcher.h"
#include "preview/picture_request.h"
#include "worker/picture_reduction.h"

namespace qf::preview {
namespace {

engine::ListRow row_of(const std::string& name, const std::string& pages, const std::string& tag = "tiled~no")
{
    engine::ListRow row;
    row.cells = {name, pages, "1", pages, "", "/docs", ""};
    row.tag = tag;
    return row;
}

constexpr PaneSize kPane{324, 400};

TEST(PreviewRequests, SizesByDocumentPageAndEvent)
{
    using E = PictureEvent;
    // pageno, width, height: for a PDF, its page and box
    // index, factor: for a TIFF, its image and reduction
    const struct { const char* what; const char* name; const char* tag; FirstPage first; E event; int page;
                   int pageno, width, height; int index, factor; bool tiled_image; } cases[] = {
        {"portrait selected", "a.pdf", "tiled~no", {612, 792, 0}, E::Selection, 1, 1, 1296, 1600, 0, 1, false},
        {"portrait page 3", "a.pdf", "tiled~no", {612, 792, 0}, E::PageChange, 3, 3, 648, 800, 0, 1, false},
        // Selection takes no account of rotation; a page change turns the box; a resize does not.
        {"rotated selected", "r.pdf", "tiled~no", {612, 792, 90}, E::Selection, 1, 1, 1296, 1600, 0, 1, false},
        {"rotated page 2", "r.pdf", "tiled~no", {612, 792, 90}, E::PageChange, 2, 2, 800, 648, 0, 1, false},
        {"upside down page 2", "r.pdf", "tiled~no", {612, 792, 180}, E::PageChange, 2, 2, 648, 800, 0, 1, false},
        {"rotated resized", "r.pdf", "tiled~no", {612, 792, 90}, E::Resize, 2, 2, 648, 800, 0, 1, false},
        // A page smaller than the pane in either direction goes by its own size.
        {"small selected", "s.pdf", "tiled~no", {200.6, 300, 0}, E::Selection, 1, 1, 802, 1200, 0, 1, false},
        {"small rotated page 2", "s.pdf", "tiled~no", {200, 300, 90}, E::PageChange, 2, 2, 600, 400, 0, 1, false},
        {"wide but low selected", "w.pdf", "tiled~no", {500, 300, 0}, E::Selection, 1, 1, 2000, 1200, 0, 1, false},
        // TIFF: 3000 / 800 -> 3 at selection, 3000 / 400 -> 7 at a page change.
        {"3000 px selected", "t.tif", "tiled~no", {2000, 3000, 0}, E::Selection, 1, 1, 0, 0, 0, 2, false},
        {"3000 px page 2", "t.tif", "tiled~no", {2000, 3000, 0}, E::PageChange, 2, 2, 0, 0, 1, 4, false},
        {"4000 px selected", "t.tiff", "tiled~no", {4000, 100, 0}, E::Selection, 1, 1, 0, 0, 0, 4, false},
        {"4000 px resized", "t.tiff", "tiled~no", {4000, 100, 0}, E::Resize, 1, 1, 0, 0, 0, 8, false},
        {"small page 5", "t.tif", "tiled~no", {640, 480, 0}, E::PageChange, 5, 5, 0, 0, 4, 1, false},
        // A tiled row shows the run's image at selection, and goes by the page number after.
        {"tiled selected", "t.tif", "tiled~yes", {640, 480, 0}, E::Selection, 1, 1, 0, 0, 0, 1, true},
        {"tiled resized", "t.tif", "tiled~yes", {640, 480, 0}, E::Resize, 1, 1, 0, 0, 0, 1, false},
    };
    for (const auto& c : cases) {
        const PictureRequest request = plan_pane_picture(row_of(c.name, "9", c.tag), c.page, kPane, c.event, c.first);
        const bool pdf = document_type(c.name) == DocumentType::Pdf;
        EXPECT_EQ(request.type, pdf ? DocumentType::Pdf : DocumentType::Tiff) << c.what;
        EXPECT_EQ(request.pageno, c.pageno) << c.what;
        if (pdf) {
            EXPECT_EQ(request.width, c.width) << c.what;
            EXPECT_EQ(request.height, c.height) << c.what;
        } else {
            EXPECT_EQ(request.image_index, c.index) << c.what;
            EXPECT_EQ(request.reduce_factor, c.factor) << c.what;
            EXPECT_EQ(request.tiled_image, c.tiled_image) << c.what;
        }
    }
}

TEST(PreviewRequests, EnlargedViewAndOtherFiles)
{
    const PictureRequest tiled = plan_enlarged_picture(row_of("t.tif", "1", "tiled~yes"), 1, 2.0);
    EXPECT_EQ(tiled.image_index, 0);
    EXPECT_FALSE(tiled.tiled_image);
    EXPECT_EQ(tiled.reduce_factor, 1);
    const PictureRequest pdf = plan_enlarged_picture(row_of("a.pdf", "4"), 3, 1.5);
    EXPECT_EQ(pdf.pageno, 3);
    EXPECT_DOUBLE_EQ(pdf.scale, 1.5);
    EXPECT_EQ(plan_pane_picture(row_of("notes.txt", "1"), 1, kPane, PictureEvent::Selection, {}).type,
              DocumentType::Other);
}

TEST(PreviewRequests, PopupAfterSelection)
{
    const struct { const char* pages; const char* tag; bool exists; int rows; bool enabled; } cases[] = {
        {"1", "tiled~no", true, 1, false},  {"12", "tiled~no", true, 12, true},
        {"3", "tiled~yes", true, 1, false}, {"12", "tiled~no", false, 0, false},
        {"x", "tiled~no", true, 1, false},
    };
    for (const auto& c : cases) {
        const PopupFill fill = plan_popup(row_of("a.pdf", c.pages, c.tag), c.exists);
        EXPECT_EQ(fill.file_missing, !c.exists) << c.pages;
        EXPECT_EQ(fill.rows, c.rows) << c.pages;
        EXPECT_EQ(fill.enabled, c.enabled) << c.pages;
    }
    EXPECT_EQ(row_file(row_of("a b.pdf", "1")), std::filesystem::path("/docs/a b.pdf"));
}

TEST(PreviewRequests, FittingAndReducing)
{
    EXPECT_EQ(fit_dpi(612, 792, 1296, 1600), 145); // height binds: 1600 / 792 * 72
    EXPECT_EQ(fit_dpi(200, 300, 800, 1200), 288);   // four times the page's own size
    EXPECT_EQ(fit_dpi(792, 612, 800, 648), 72);

    engine::PagePicture picture{5, 3, engine::PixelFormat::Rgb8, {}, {}};
    for (int i = 0; i < 15; ++i) {
        const auto value = static_cast<std::uint8_t>(i * 10);
        picture.pixels.insert(picture.pixels.end(), {value, value, 255});
    }
    const engine::PagePicture reduced = worker::reduce_picture(picture, 2);
    ASSERT_EQ(reduced.width, 3);
    ASSERT_EQ(reduced.height, 2);
    EXPECT_EQ(reduced.pixels[0], 30);                   // (0 + 10 + 50 + 60) / 4
    EXPECT_EQ(reduced.pixels[2 * 3], 65);                 // the short last column: (40 + 90) / 2
    EXPECT_EQ(reduced.pixels[reduced.stride() + 3], 125); // the short last row: (120 + 130) / 2
    EXPECT_EQ(reduced.pixels[2], 255);
}

} // namespace
} // namespace qf::preview
