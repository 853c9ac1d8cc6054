// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

namespace qf::writers::pdf {

// What one page of a document uses, as far as PDF/A and PDF/X care: the device colour
// families its content paints in, transparency, fonts and the objects a conformance pass
// may have to adjust. Reads dictionaries and content streams only, never image data.
struct PageSurvey
{
    bool device_gray = false;
    bool device_rgb = false;
    bool device_cmyk = false;
    bool transparency = false; // soft masks, constant alpha below 1, blend modes other than Normal
    bool jpeg2000 = false;
    bool postscript = false;                   // PostScript XObjects
    std::vector<std::string> unembedded_fonts; // base font names, subset prefix removed
    std::vector<std::string> fonts_without_unicode;
    std::vector<QPDFObjectHandle> resources;   // every resource dictionary reached
    std::vector<QPDFObjectHandle> images;      // image XObjects
    std::vector<QPDFObjectHandle> forms;       // form XObjects
    std::vector<QPDFObjectHandle> ext_gstates; // graphics state parameter dictionaries
};

// Surveys the page, its form XObjects, patterns and Type 3 fonts, each object once.
// Damaged content streams are read as far as they go.
PageSurvey survey_page(QPDFPageObjectHelper page);

} // namespace qf::writers::pdf
