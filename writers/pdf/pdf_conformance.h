// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

namespace qf::writers::pdf {

enum class Standard { None, PdfA, PdfX };

// What a conformance code of the pdfversionnumber rows asks of a file.
struct ConformanceLevel
{
    Standard standard = Standard::None;
    std::string version; // header version the code sets, "1.0" to "2.0"
    int part = 0;        // PDF/A part, 1 to 3
    char level = 0;      // PDF/A level: 'A', 'B' or 'U'
};

// The level of a code; an unknown code is read as 4 ("PDF 1.4"), as an unknown row text is.
ConformanceLevel conformance_level(int code);

// The higher of two versions written "major.minor".
std::string higher_version(const std::string &a, const std::string &b);

struct ConformanceRequest
{
    int code = 7;                        // mpdfversionnumber
    std::filesystem::path icc_folder;    // holds the three "Generic ... Profile.icc" files
    std::vector<bool> image_pages;       // by page, 1-based order: the page is one picture alone
    std::string minimum_version = "1.0"; // what the document's own features need
    std::string fallback_title;          // for PDF/X, which requires a title, when Info has none
};

struct ConformanceResult
{
    ConformanceLevel level;
    std::string version;              // the header to write
    std::vector<std::string> reasons; // "page N REASON": what keeps the file from conforming
};

// applyconformance: brings a document to the version or PDF/A / PDF/X level of the code.
// For PDF/A and PDF/X it writes the XMP identification (keeping Info and XMP in step), an
// OutputIntent with the profile the content needs, the structure tree of level "a" for
// picture pages, and removes or neutralises what the standard forbids where that changes
// nothing visible. What cannot be made conformant (unembedded fonts, transparency under
// PDF/A-1, untagged imported pages under level "a", ...) is left and reported, one reason
// each, at the first page that shows it. Throws Error(Output) when a profile is missing.
ConformanceResult applyconformance(QPDF &pdf, const ConformanceRequest &request);

// The level a file claims: that of `code` when it is a PDF/A or PDF/X row, else what the
// file's XMP identification says.
ConformanceLevel claimed_level(QPDF &pdf, int code);

// For a document put together from files with output intents of their own (a merge): gives
// it the one output intent of `level` that fits every page, chosen as applyconformance
// chooses it, and ties each device colour family the intent does not describe to a profile
// of its own through the default colour spaces of the page's resources. Does nothing when
// `level` is no standard. Throws Error(Output) when a profile is missing.
void fit_output_intent(QPDF &pdf, const ConformanceLevel &level,
                       const std::filesystem::path &icc_folder);

// What keeps the output intent of a PDF/A or PDF/X file from describing its pages: for each
// device colour family painted where neither the intent's profile nor a device independent
// default space of every resource dictionary involved describes it, "page N REASON" at the
// first page that shows it. Empty when the level is no standard, the file has no output
// intent of that standard to judge, or everything fits.
std::vector<std::string> output_intent_misfits(QPDF &pdf, const ConformanceLevel &level);

// Settings of a writer for a document of that result: the header version, object streams
// only where the version allows them and never for PDF/A-1, the stream layout PDF/A needs.
void configure_writer(QPDFWriter &writer, const ConformanceResult &result);

} // namespace qf::writers::pdf
