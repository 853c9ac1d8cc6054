// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "engine/options.h"

// The one table of everything a user can set: controls, defaults, preference keys and their
// places in the stored orders, profile attributes, command-line flags and their help. Adding an
// option is one row here (and its OptionId); the checks in option_table.cpp refuse to compile a
// table whose rows disagree with each other.
namespace qf::settings {

enum class OptionKind { Popup, Check, Text };

// What a control is and the state it has when the window is created, before preferences are
// restored. Only the member of its kind counts.
struct OptionDefault {
    OptionKind kind;
    int row = 0;           // a popup's selected row
    bool on = false;       // a check box
    std::string_view text; // a text field
};

constexpr OptionDefault popup(int default_row) { return {OptionKind::Popup, default_row, false, {}}; }
constexpr OptionDefault check(bool default_on) { return {OptionKind::Check, 0, default_on, {}}; }
constexpr OptionDefault text(std::string_view default_text) { return {OptionKind::Text, 0, false, default_text}; }

// A short command-line name for a popup row: "--imageformat jpeg" for "JPEG".
struct RowAlias {
    std::string_view alias;
    int row;
};

inline constexpr int kNowhere = -1; // the place of an option that a stored order leaves out

struct OptionSpec {
    engine::OptionId id;
    std::string_view control;      // "DotsPerInch"
    OptionDefault initial;         // the kind and the default
    std::string_view pref_key;     // "dotsperinch" (empty: not stored)
    int pref_restore;              // place in the order loadsettings restores keys in
    int pref_write;                // place in the order Savesettings writes keys in
    std::string_view profile_attr; // "dotsperinch" (empty: not in profiles)
    int profile_place;             // place among a profile's elements, counted after the version
    std::string_view cli_flag;     // "dotsperinch": the long flag without its dashes
    std::span<const RowAlias> aliases; // popup short names
    std::string_view help;             // one line for --help

    constexpr OptionKind kind() const { return initial.kind; }
    // Popup row texts, in stored order: the run's own (engine::popup_rows).
    constexpr std::span<const std::string_view> rows() const { return engine::popup_rows(id); }
};

inline constexpr std::size_t kPreferenceCount = 27; // every option but tiffdocumentname
inline constexpr std::size_t kProfileCount = 24;    // a profile's elements besides its version

namespace table {

inline constexpr std::array<RowAlias, 9> kImageFormatAliases = {{
    {"pdf", 0}, {"pdf-single", 1}, {"jpeg", 2}, {"jpg", 2}, {"png", 3},
    {"tiff", 4}, {"tiff-single", 5}, {"text", 6}, {"txt", 6},
}};
inline constexpr std::array<RowAlias, 8> kTiffCompressionAliases = {{
    {"none", 0}, {"packbits", 1}, {"lzw", 2}, {"g3", 3}, {"g4", 4}, {"jpeg", 5}, {"deflate", 6}, {"rle", 7},
}};
inline constexpr std::array<RowAlias, 3> kShowPdfAliases = {{{"no", 0}, {"yes", 1}, {"tiff-or-pdf", 2}}};
inline constexpr std::array<RowAlias, 4> kEncryptionLevelAliases = {{
    {"rc4-40", 0}, {"rc4-128", 1}, {"aes-128", 2}, {"aes-256", 3},
}};
inline constexpr std::array<RowAlias, 18> kPdfVersionAliases = {{
    {"1.0", 0},      {"1.1", 1},      {"1.2", 2},      {"1.3", 3},      {"1.4", 4},      {"1.5", 5},
    {"1.6", 6},      {"1.7", 7},      {"2.0", 8},      {"pdfx-4", 9},   {"pdfa-1a", 10}, {"pdfa-1b", 11},
    {"pdfa-2a", 12}, {"pdfa-2b", 13}, {"pdfa-2u", 14}, {"pdfa-3a", 15}, {"pdfa-3b", 16}, {"pdfa-3u", 17},
}};
inline constexpr std::span<const RowAlias> kNone{};
inline constexpr int no = kNowhere;

using enum engine::OptionId;

// One row per option, in the order of OptionId. The columns after the default: preference
// key, its place when restored and when written; profile attribute and its place; flag.
inline constexpr std::array<OptionSpec, engine::kOptionCount> kOptionTable = {{
    {imageformat, "imageformat", popup(0), "imageformat", 0, 6, "imageformat", 5, "imageformat",
     kImageFormatAliases, "output format: pdf, pdf-single, jpeg, png, tiff, tiff-single or text"},
    {ZeroPadding, "ZeroPadding", popup(2), "zeropadding", 5, 12, "zeropadding", 9, "zeropadding", kNone,
     "digits of the page number in output names, 1 to 10"},
    {combinedfilename, "combinedfilename", text("Combine"), "combinedfilename", 11, 2, "combinedfilename", 2,
     "combinedfilename", kNone, "name of the combined file of a combined run"},
    {jpgquality, "jpgquality", text("75"), "jpgquality", 3, 10, "jpgquality", 7, "jpgquality", kNone,
     "JPEG quality in percent, 10 to 100"},
    {DotsPerInch, "DotsPerInch", text("150"), "dotsperinch", 7, 11, "dotsperinch", 8, "dotsperinch", kNone,
     "output resolution in dots per inch; below 72 runs as 72"},
    {zoomfactor, "zoomfactor", popup(2), "zoomfactor", 6, 3, "zoomfactor", 3, "zoomfactor", kNone,
     "zoom factor of rendered PDF pages, 1 to 10"},
    {combineall, "combineall", check(false), "combineall", 10, 0, "combineall", 0, "combineall", kNone,
     "combine all documents into one file (multipage PDF and TIFF only)"},
    {tiffcompression, "tiffcompression", popup(0), "tiffcompression", 4, 8, "tiffcompression", 6,
     "tiffcompression", kTiffCompressionAliases,
     "TIFF compression: none, packbits, lzw, g3, g4, jpeg, deflate or rle"},
    {colordepth48, "colordepth48", check(false), "colordepth48", 9, 4, "colordepth48", 4, "colordepth48", kNone,
     "write TIFF files at 48 bits per pixel"},
    {tiffcopyright, "tiffcopyright", text(""), "tiffcopyright", 12, 23, "tiffcopyright", 20, "tiffcopyright",
     kNone, "copyright text of TIFF and JPEG output"},
    {tiffdocumentname, "tiffdocumentname", text(""), "", no, no, "", no, "tiffdocumentname", kNone,
     "document name of TIFF output"},
    {showpdf, "showpdf", popup(2), "showpdf", 1, 7, "", no, "showpdf", kShowPdfAliases,
     "show the created file: no, yes or tiff-or-pdf"},
    {pdfversionnumber, "pdfversionnumber", popup(7), "pdfversionnumber", 2, 5, "", no, "pdfversionnumber",
     kPdfVersionAliases,
     "PDF version or conformance: 1.0 to 2.0, pdfx-4, pdfa-1a, pdfa-1b, pdfa-2a, pdfa-2b, pdfa-2u, "
     "pdfa-3a, pdfa-3b or pdfa-3u"},
    {flattenpdf, "flattenpdf", check(false), "flattenpdf", 8, 1, "flattenpdf", 1, "flattenpdf", kNone,
     "flatten forms and annotations of PDF output"},
    {pdfauthor, "pdfauthor", text(""), "pdfauthor", 13, 24, "pdfauthor", 21, "pdfauthor", kNone,
     "author of PDF and JPEG output"},
    {pdftitle, "pdftitle", text(""), "pdftitle", 15, 26, "pdftitle", 23, "pdftitle", kNone, "title of PDF output"},
    {pdfsubject, "pdfsubject", text(""), "pdfsubject", 14, 25, "pdfsubject", 22, "pdfsubject", kNone,
     "subject of PDF output"},
    {pdfpassword, "pdfpassword", text(""), "pdfpassword", 17, 15, "pdfpassword", 12, "pdfpassword", kNone,
     "viewing password of PDF output"},
    {hidepassword, "hidepassword", check(false), "hidepassword", 16, 16, "hidepassword", 13, "hidepassword",
     kNone, "mask the viewing password in the window"},
    {pdffullpassword, "pdffullpassword", text(""), "pdffullpassword", 19, 17, "pdffullpassword", 14,
     "pdffullpassword", kNone, "master password of PDF output"},
    {hidepassword1, "hidepassword1", check(false), "hidepassword1", 18, 18, "hidepassword1", 15, "hidepassword1",
     kNone, "mask the master password in the window"},
    {encryptionlevel, "encryptionlevel", popup(0), "encryptionlevel", 23, 20, "encrytpionlevel", 19,
     "encryptionlevel", kEncryptionLevelAliases, "PDF encryption: rc4-40, rc4-128, aes-128 or aes-256"},
    {allowcopy, "allowcopy", check(true), "allowcopy", 21, 22, "allowcopy", 18, "allowcopy", kNone,
     "allow copying from encrypted PDF output"},
    {allowprint, "allowprint", check(true), "allowprint", 22, 21, "allowprint", 17, "allowprint", kNone,
     "allow printing of encrypted PDF output"},
    {allowannotation, "allowannotation", check(true), "allowannotation", 20, 19, "allowannotation", 16,
     "allowannotation", kNone, "allow annotating encrypted PDF output"},
    {savein, "savein", text(""), "savein", 26, 9, "", no, "savein", kNone,
     "folder to save in, or [Source Folder] for the first document's folder"},
    {usepageranges, "usepageranges", check(false), "usepageranges", 24, 13, "usepageranges", 10, "usepageranges",
     kNone, "take pages from each document's page-range text, not From and To"},
    {onefileonefolder, "onefileonefolder", check(false), "onefileonefolder", 25, 14, "onefileonefolder", 11,
     "onefileonefolder", kNone, "put each document's pages in a folder of its own"},
}};

} // namespace table

using table::kOptionTable;

// The options that have a place in one of the stored orders (pref_restore, pref_write,
// profile_place), in that order. Count must be how many have one; option_table.cpp checks it.
template <std::size_t Count>
constexpr std::array<engine::OptionId, Count> options_in_order(int OptionSpec::*place)
{
    std::array<engine::OptionId, Count> order{};
    for (const OptionSpec& spec : kOptionTable) {
        if (spec.*place != kNowhere) {
            order.at(static_cast<std::size_t>(spec.*place)) = spec.id;
        }
    }
    return order;
}

// Every option, in the order of the option values.
constexpr std::span<const OptionSpec> option_table() { return kOptionTable; }

constexpr const OptionSpec& option_spec(engine::OptionId id) { return kOptionTable[static_cast<std::size_t>(id)]; }

// Every option at its default: the state of the controls when the window is created.
engine::OptionValues default_values();

// A zoomfactor that a restore leaves without a row takes this one ("4", not the default "3").
inline constexpr int kZoomFallbackRow = 3;

// Sets a popup from a stored row index, the integer reading of `stored` ("x" is row 0). An
// index that selects no row keeps the value, except zoomfactor, which is left without a row
// until finish_restore.
void restore_row(const OptionSpec& spec, std::string_view stored, engine::OptionValues& values);

// After the last stored value of a restore: a zoomfactor without a row takes the fallback row.
void finish_restore(engine::OptionValues& values);

// The option whose flag, preference key or profile attribute is `name`, compared without
// regard to case; nullptr when none.
const OptionSpec* find_by_flag(std::string_view name);
const OptionSpec* find_by_pref_key(std::string_view name);
const OptionSpec* find_by_profile_attr(std::string_view name);

// The row of a popup named by its row text or an alias, without regard to case; -1 if none.
int popup_row_by_name(const OptionSpec& spec, std::string_view name);

// Whether `row` is one of the popup's rows. A stored index outside them selects no row.
constexpr bool selects_row(const OptionSpec& spec, int row)
{
    return row >= 0 && static_cast<std::size_t>(row) < spec.rows().size();
}

} // namespace qf::settings
