// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "engine/services.h"
#include "sources/pdf_mupdf.h"

namespace qf::sources {

struct PixelSize {
    int width = 0;
    int height = 0;
};

// Pixel size of a rendered PDF page from its box in points (before rotation). Sides are
// truncated toward zero, not rounded; pages rotated by 90 or 270 degrees swap width and
// height before scaling, 180 does not. The side is points * (dpi / 72.0) * zoom, multiplied
// left to right in double precision; jpeg_order multiplies by zoom before the resolution
// factor, as the JPEG writer does, which can differ by one pixel (a 100-point side at 96 dpi
// and zoom 3 is 399 pixels, 400 in JPEG order). Sides beyond the range of int are clamped.
PixelSize render_size(double width_pt, double height_pt, int rotation, int dpi, int zoom,
                      bool jpeg_order);

// The largest render attempted: no side above kMaxRenderSide pixels, no picture above
// kMaxRenderBytes bytes of RGB.
inline constexpr int kMaxRenderSide = 100000;
inline constexpr std::size_t kMaxRenderBytes = 1'000'000'000;

// The longest the drawing or the text of one page may take; past it the page is abandoned
// with Error(Unsupported) and MuPDF's memory of it is freed. Two minutes, unless the
// environment variable QUIREFOLD_PAGE_SECONDS (read once, decimal seconds) says otherwise;
// set_page_time_limit changes it for the whole process from then on. Thread-safe.
std::chrono::milliseconds page_time_limit();
void set_page_time_limit(std::chrono::milliseconds limit);

// Opens a PDF for pictures and text of its pages; matches engine::SourceOpener. The document
// is read once here and kept open. Throws Error(BadInput) when there is no such file,
// Error(Damaged) when it cannot be read or has no pages, Error(Password) when
// document.password is missing or does not open it (the message never holds the password).
//
// The source's members throw Error: BadInput for a page outside 1..page_count() ("the
// document has only N pages"), Unsupported for a render beyond the limits above or with a
// side below one pixel, Damaged when a page cannot be drawn or read. picture() draws the
// page with its annotations and form widgets, missing field appearances made from their
// values, onto white; request.flatten does not change that. Its pixel size is render_size of
// the page's box (CropBox clipped to MediaBox) with the box's numbers read as the file writes
// them, in double precision. Several threads may call the members at once: each call works
// on a parse of the document that no other call is using.
std::unique_ptr<engine::PageSource> open_pdf_source(const engine::DocumentToOpen& document);

// The box and rotation from which `source`, opened by open_pdf_source, draws page `pageno`
// (the sizes picture() renders are render_size of it), without drawing the page. Throws as
// picture() for a page it cannot load, and std::invalid_argument for another kind of source.
PageBox pdf_page_box(engine::PageSource& source, int pageno);

} // namespace qf::sources
