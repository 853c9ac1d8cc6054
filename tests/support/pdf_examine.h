// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include "engine/page.h"

// Reading back the PDFs that the page assembler writes, and the pictures that feed it.
namespace qf::test {

// The version of the file's "%PDF-x.y" header line; empty when it has none.
std::string pdf_header_version(const std::filesystem::path &path);

// Reopens the file as a reader would: no warning from QPDF, every page reachable and every
// stream's data readable (decoded where QPDF can). Empty when sound, else what went wrong.
std::string structural_problems(const std::filesystem::path &path, const std::string &password = "");

// A stream's data, decoded where QPDF can.
std::string stream_text(QPDFObjectHandle stream);

// A new stream of `data` whose dictionary is `dict` (PDF syntax; a /Filter there says how
// `data` is encoded).
QPDFObjectHandle new_stream(QPDF &pdf, const std::string &data, const std::string &dict);

// The image XObjects a page's resources name, in name order.
std::vector<QPDFObjectHandle> page_images(QPDFPageObjectHelper page);

// The page's content streams joined, decoded.
std::string page_content(QPDFPageObjectHelper page);

// The numbers of a page box as [llx lly urx ury]; empty when the page has none.
std::vector<double> page_box(QPDFPageObjectHelper page, const std::string &key);

// Decodes CCITT Group 4 data (K -1, 0 = white) with libtiff into a Bilevel picture.
engine::PagePicture decode_g4(const std::string &data, int width, int height,
                              const std::filesystem::path &scratch_folder);

// A bilevel picture with a pattern that shows a swapped, shifted or inverted row: black
// diagonal bands and a black border, rest white. A Rgb8 picture of colour gradients.
engine::PagePicture patterned_bilevel(int width, int height);
engine::PagePicture gradient_rgb(int width, int height);

// Apache PDFBox Preflight's verdict on a PDF/A-1b file: its exit status and what it printed.
struct PreflightVerdict
{
    bool ran = false; // false when java or the PDFBox jars are not installed
    int status = -1;
    std::string output;
};
PreflightVerdict run_preflight_a1b(const std::filesystem::path &pdf);

} // namespace qf::test
