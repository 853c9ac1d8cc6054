// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

#include "engine/run_model.h"

// What the preview asks of the reader for one row of the document list: which page or image,
// at what size. Pure functions of the row, the page, the pane's size, what caused the picture
// and what is known of the document's first page; no file is touched here.
namespace qf::preview {

enum class DocumentType { Pdf, Tiff, Other };

// What caused a picture: a row selected (the first page), another page chosen in the page
// popup, the pane resized, or the enlarged view asking for the page it shows.
enum class PictureEvent { Selection, PageChange, Resize, Enlarged };

// The picture well's size in logical pixels.
struct PaneSize {
    int width = 0;
    int height = 0;
};

// What the preview knows of the document's first page: for a PDF, page 1's box in points
// before its rotation, and the rotation in degrees (0, 90, 180 or 270); for a TIFF, the first
// image's size in pixels as shown.
struct FirstPage {
    double width = 0;
    double height = 0;
    int rotation = 0;
};

// One picture to read.
struct PictureRequest {
    DocumentType type = DocumentType::Other; // Other: nothing is read
    int pageno = 1;         // PDF page, 1-based
    int image_index = 0;    // TIFF image, 0-based
    // TIFF: read the image a run reads for a row tagged "tiled~yes" (the second image when the
    // file has one, else the first) instead of image_index.
    bool tiled_image = false;
    // PDF: the picture is the page fitted into width x height pixels, its proportions kept.
    int width = 0;
    int height = 0;
    // PDF in the enlarged view: pixels per point instead of a box (width and height are 0).
    double scale = 0;
    // TIFF: the image is read reduced by this factor (1, 2, 4 or 8).
    int reduce_factor = 1;
};

// By the name's ending, in any case: ".PDF"; ".TIF" or ".TIFF".
DocumentType document_type(const std::string& name);

// The file of a row: its folder (cell 5) joined with its name (cell 0).
std::filesystem::path row_file(const engine::ListRow& row);

// What selecting a row does to the page popup. A file that is gone gives an empty, disabled
// popup and the message; otherwise rows "1" to n (n from cell 1, 1 for a tiled row), the
// popup enabled only when n is above 1.
struct PopupFill {
    bool file_missing = false;
    int rows = 1;
    bool enabled = false;
};
PopupFill plan_popup(const engine::ListRow& row, bool file_exists);

inline constexpr const char* kFileMissingMessage = "This File has been moved or deleted";

// The picture of `page` (1-based, the popup's) of `row` for a pane event (Selection,
// PageChange or Resize). Selection reads page 1 at four times the pane (a PDF page smaller
// than the pane: four times its own size; a tiled TIFF: the image a run reads); a page change
// reads at twice the pane, turning the box for a PDF whose page 1 lies on its side; a resize
// reads as a page change without the turn.
PictureRequest plan_pane_picture(const engine::ListRow& row, int page, PaneSize pane, PictureEvent event,
                                 const FirstPage& first_page);

// The picture of `page` for the enlarged view at `pixels_per_point` (its zoom times the
// screen's pixel ratio): a PDF page drawn at that scale, a TIFF image read whole (a tiled
// row's page 1 is image 0).
PictureRequest plan_enlarged_picture(const engine::ListRow& row, int page, double pixels_per_point);

// The TIFF read reduction for an image whose longer side is `image_side` pixels in a pane
// whose longer side is `pane_side`: 8 from nine times the pane on, 4 from five, 2 from three,
// else 1.
int tiff_reduce_factor(double image_side, int pane_side);

// The whole dots per inch at which a page shown `page_width` x `page_height` points wide and
// high fits into `box_width` x `box_height` pixels; at least 1.
int fit_dpi(double page_width, double page_height, int box_width, int box_height);

} // namespace qf::preview
