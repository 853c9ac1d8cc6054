// SPDX-License-Identifier: GPL-3.0-or-later
#include "preview/picture_request.h"

#include <algorithm>
#include <cmath>

#include "engine/text_rules.h"

namespace qf::preview {
namespace {

// A side in pixels: truncated, as the reader is asked for whole pixels, and at least 1.
int whole_pixels(double side)
{
    return std::max(1, static_cast<int>(std::min(side, 1e9)));
}

bool tiled_row(const engine::ListRow& row)
{
    return row.tag == engine::kTiledYes;
}

PictureRequest pdf_pane_picture(int page, PaneSize pane, PictureEvent event, const FirstPage& first)
{
    PictureRequest request;
    request.type = DocumentType::Pdf;
    const bool larger = first.width > pane.width && first.height > pane.height;
    if (event == PictureEvent::Selection) {
        // The first picture is four times the pane, whatever the page's rotation.
        request.pageno = 1;
        request.width = larger ? 4 * pane.width : whole_pixels(first.width * 4.0);
        request.height = larger ? 4 * pane.height : whole_pixels(first.height * 4.0);
        return request;
    }
    request.pageno = page;
    request.width = larger ? 2 * pane.width : whole_pixels(first.width * 2.0);
    request.height = larger ? 2 * pane.height : whole_pixels(first.height * 2.0);
    // A document whose first page lies on its side gets a box turned the same way; a resize
    // does not look at the rotation.
    const bool on_side = first.rotation == 90 || first.rotation == 270;
    if (event == PictureEvent::PageChange && on_side) {
        std::swap(request.width, request.height);
    }
    return request;
}

PictureRequest tiff_pane_picture(const engine::ListRow& row, int page, PaneSize pane, PictureEvent event,
                                 const FirstPage& first)
{
    PictureRequest request;
    request.type = DocumentType::Tiff;
    // The first picture is judged against a pane twice the size, as it is read at more detail.
    const int doubling = event == PictureEvent::Selection ? 2 : 1;
    const int pane_side = std::max(doubling * pane.width, doubling * pane.height);
    request.reduce_factor = tiff_reduce_factor(std::max(first.width, first.height), pane_side);
    if (event == PictureEvent::Selection) {
        request.tiled_image = tiled_row(row);
        request.image_index = 0;
    } else {
        // A page change and a resize go by the page number, for a tiled row too.
        request.image_index = page - 1;
    }
    request.pageno = request.image_index + 1;
    return request;
}

} // namespace

DocumentType document_type(const std::string& name)
{
    if (engine::iends_with(name, ".PDF")) {
        return DocumentType::Pdf;
    }
    if (engine::iends_with(name, ".TIF") || engine::iends_with(name, ".TIFF")) {
        return DocumentType::Tiff;
    }
    return DocumentType::Other;
}

std::filesystem::path row_file(const engine::ListRow& row)
{
    return std::filesystem::path(row.cells[engine::column::folder]) / row.cells[engine::column::name];
}

PopupFill plan_popup(const engine::ListRow& row, bool file_exists)
{
    if (!file_exists) {
        return {true, 0, false};
    }
    int rows = tiled_row(row) ? 1 : engine::whole_val(row.cells[engine::column::pages]);
    rows = std::max(rows, 1);
    return {false, rows, rows > 1};
}

PictureRequest plan_pane_picture(const engine::ListRow& row, int page, PaneSize pane, PictureEvent event,
                                 const FirstPage& first_page)
{
    page = std::max(page, 1);
    switch (document_type(row.cells[engine::column::name])) {
    case DocumentType::Pdf:
        return pdf_pane_picture(page, pane, event, first_page);
    case DocumentType::Tiff:
        return tiff_pane_picture(row, page, pane, event, first_page);
    case DocumentType::Other:
        break;
    }
    return {};
}

PictureRequest plan_enlarged_picture(const engine::ListRow& row, int page, double pixels_per_point)
{
    PictureRequest request;
    request.type = document_type(row.cells[engine::column::name]);
    request.pageno = std::max(page, 1);
    request.image_index = request.pageno - 1;
    if (request.type == DocumentType::Pdf) {
        request.scale = pixels_per_point;
    }
    return request;
}

int tiff_reduce_factor(double image_side, int pane_side)
{
    const int ratio = static_cast<int>(image_side / std::max(pane_side, 1));
    if (ratio >= 9) {
        return 8;
    }
    if (ratio >= 5) {
        return 4;
    }
    if (ratio >= 3) {
        return 2;
    }
    return 1;
}

int fit_dpi(double page_width, double page_height, int box_width, int box_height)
{
    if (page_width <= 0 || page_height <= 0) {
        return 72;
    }
    const double fit = std::min(box_width / page_width, box_height / page_height);
    return std::max(1, static_cast<int>(std::floor(fit * 72.0 + 1e-9)));
}

} // namespace qf::preview
