// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <string>
#include <vector>

#include "engine/options.h"

namespace qf::engine {

// One document of the run, eight text columns: 0 file name, 1 page count, 2 From, 3 To,
// 4 page-range text, 5 folder path (no trailing "/"), 6 unlock password, 7 tile marker.
using DocumentRow = std::array<std::string, 8>;

namespace column {
inline constexpr int name = 0;
inline constexpr int pages = 1;
inline constexpr int from = 2;
inline constexpr int to = 3;
inline constexpr int ranges = 4;
inline constexpr int folder = 5;
inline constexpr int password = 6;
inline constexpr int tile_marker = 7;
} // namespace column

inline constexpr const char* kTiledYes = "tiled~yes";
inline constexpr const char* kTiledNo = "tiled~no";
inline constexpr const char* kSourceFolder = "[Source Folder]";

// A row of the document list: the seven visible cells and the row tag (the tile marker).
struct ListRow {
    std::array<std::string, 7> cells;
    std::string tag;
};

// The output format of a run: the imageformat rows in their stored order.
enum class OutputFormat { PdfMultipage, PdfSinglePage, Jpeg, Png, TiffMultipage, TiffSinglePage, Text };
static_assert(kImageFormatRows.size() == 7, "one OutputFormat per imageformat row");

// The option snapshot a run works from, copied from the option values by preprocesscheck.
struct OptionSnapshot {
    bool mcombineall = false;
    bool mcolordepth48 = false;
    std::string mcombinedfilename;
    std::string mimageformat;   // the row text, for the log, profiles and preferences
    OutputFormat mformat = OutputFormat::PdfMultipage; // what the driver decides by
    std::string mshowpdf;
    std::string mtiffcompression;
    std::string msavein;
    std::string mjpgquality;
    std::string mdotsperinch;
    bool monefileonefolder = false;
    std::string mzoomfactor;
    bool mflattenpdf = false;
    int mzeropad = 3;
    std::string mtiffdocumentname;
    std::string mtiffcopyright;
    bool mallowannotation = true;
    bool mallowcopy = true;
    bool mallowprinting = true;
    std::string mpdfauthorname;
    std::string mpdffullpassword;
    std::string mpdfpassword;
    std::string mpdftitle;
    std::string msubject;
    bool musepageranges = false;
    int enlvl = 0;              // encryption level code: 0 RC4-40, 1 RC4-128, 3 AES-128, 4 AES-256
    int mpdfversionnumber = 7;  // version or conformance code of the pdfversionnumber rows
    int thedpi = 150;           // output resolution, never below 72
};

// Fills a snapshot from the option values, in the order and by the copy rules of a run's start.
// list_rows is the number of documents; combining needs two or more. enlvl keeps its value
// when the encryption row is not one of the four.
void take_snapshot(const OptionValues& values, int list_rows, OptionSnapshot& snapshot);

// The format of an imageformat row index; PDF (Multipage), the first row, for an index outside
// the rows.
OutputFormat output_format(int imageformat_row);

// The floor of 72 on the output resolution.
int resolution_with_floor(const std::string& dots_per_inch);

// The rows of the document table for a run: cells 0 to 6 and the tag as column 7.
std::vector<DocumentRow> populatelist(const std::vector<ListRow>& rows);

} // namespace qf::engine
