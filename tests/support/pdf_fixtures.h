// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// Small PDF documents written on the fly with QPDF, from hand-made content streams, for tests
// that need real PDF input. Coordinates are PDF points from the lower-left corner of the
// page's MediaBox; colours are RGB components from 0 to 1. Every writer throws (a QPDF or
// std::filesystem exception) when the file cannot be written.
namespace qf::test {

struct PdfColor {
    double r = 0, g = 0, b = 0;
};

inline constexpr PdfColor kPdfRed{1, 0, 0};
inline constexpr PdfColor kPdfBlue{0, 0, 1};

struct PdfRect {
    double x = 0, y = 0; // lower-left corner, points
    double width = 0, height = 0;
};

// A rectangle filled with one colour, drawn by the page's content stream.
struct PdfFill {
    PdfRect rect;
    PdfColor color;
};

// A line of text in Helvetica (a standard font, not embedded), black, WinAnsi encoding:
// keep it to printable ASCII. (x, y) is the baseline start.
struct PdfText {
    double x = 72, y = 700, size = 24;
    std::string text;
};

struct PdfPageSpec {
    double width = 612, height = 792; // MediaBox size, points
    // MediaBox lower-left corner; fills and texts are placed relative to it.
    double origin_x = 0, origin_y = 0;
    int rotate = 0; // written as /Rotate when not 0
    std::vector<PdfFill> fills; // drawn first, in order
    std::vector<PdfText> texts; // drawn after the fills, in order
};

// Writes a PDF 1.4 file of these pages, in order.
void write_pdf(const std::filesystem::path& target, const std::vector<PdfPageSpec>& pages);

// The line that page `pageno` of write_numbered_pdf shows: "Hello page N".
std::string numbered_page_line(int pageno);

// A US Letter document of page_count pages; page N shows numbered_page_line(N) in 24-point
// Helvetica at (72, 700) and nothing else.
void write_numbered_pdf(const std::filesystem::path& target, int page_count);

// One US Letter page whose content is blank apart from an annotation: a Square annotation
// over kAnnotationRect with red border and interior colours. With an appearance stream, the
// stream fills the square with red; without one, a reader has only /C and /IC to go by.
inline constexpr PdfRect kAnnotationRect{100, 100, 200, 200};
enum class AnnotationForm { WithAppearance, WithoutAppearance };
void write_square_annotation_pdf(const std::filesystem::path& target, AnnotationForm form);

// One US Letter page, blank content, with one text form field named "name" over kFieldRect
// holding `value` (printable ASCII) in 18-point Helvetica, black. The AcroForm has a /DR
// with the font. WithAppearance: the widget has an /AP showing the value. NeedAppearances:
// no /AP and the AcroForm asks readers to make one. NoAppearance: no /AP and no request.
inline constexpr PdfRect kFieldRect{72, 600, 300, 40};
enum class FieldForm { WithAppearance, NeedAppearances, NoAppearance };
void write_text_field_pdf(const std::filesystem::path& target, const std::string& value,
                          FieldForm form);

// A copy of `source` encrypted with the standard security handler: RC4 128-bit (R3),
// AES 128-bit (R4) or AES 256-bit (R6). All permissions are granted. The owner password
// must not be empty for Aes256.
enum class PdfEncryption { Rc4_128, Aes128, Aes256 };
void write_encrypted_copy(const std::filesystem::path& source, const std::filesystem::path& target,
                          PdfEncryption encryption, const std::string& user_password,
                          const std::string& owner_password);

// The first keep_bytes bytes of `source` (all of it when shorter): a file cut off in transfer.
void write_truncated_copy(const std::filesystem::path& source, const std::filesystem::path& target,
                          std::size_t keep_bytes);

// A US Letter document of `pages` blank pages (parent folders made). With a user password it is
// encrypted with AES 128-bit (R4); with only an owner password it is encrypted yet opens
// without one. An empty owner password with a user password becomes "USER-owner".
void write_blank_pdf(const std::filesystem::path& target, int pages,
                     const std::string& user_password = {}, const std::string& owner_password = {});

// A file that begins like a PDF ("%PDF-1.4") and holds nothing a reader can use.
void write_garbage_pdf(const std::filesystem::path& target);

// Blank pages whose boxes are written exactly as given, such as "[0 0 680.400024 300]"; an
// empty crop_box writes no CropBox.
struct PdfBoxesSpec {
    std::string media_box;
    std::string crop_box;
    int rotate = 0;
};
void write_boxed_pdf(const std::filesystem::path& target, const std::vector<PdfBoxesSpec>& pages);

} // namespace qf::test
