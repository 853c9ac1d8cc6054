// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/option_table.h"

#include <array>
#include <cassert>

#include "engine/text_rules.h"

namespace qf::settings {
namespace {

using engine::OptionId;

constexpr std::array<RowAlias, 9> kImageFormatAliases = {{
    {"pdf", 0},
    {"pdf-single", 1},
    {"jpeg", 2},
    {"jpg", 2},
    {"png", 3},
    {"tiff", 4},
    {"tiff-single", 5},
    {"text", 6},
    {"txt", 6},
}};

constexpr std::array<RowAlias, 8> kTiffCompressionAliases = {{
    {"none", 0},
    {"packbits", 1},
    {"lzw", 2},
    {"g3", 3},
    {"g4", 4},
    {"jpeg", 5},
    {"deflate", 6},
    {"rle", 7},
}};

constexpr std::array<RowAlias, 3> kShowPdfAliases = {{
    {"no", 0},
    {"yes", 1},
    {"tiff-or-pdf", 2},
}};

constexpr std::array<RowAlias, 4> kEncryptionLevelAliases = {{
    {"rc4-40", 0},
    {"rc4-128", 1},
    {"aes-128", 2},
    {"aes-256", 3},
}};

constexpr std::array<RowAlias, 18> kPdfVersionAliases = {{
    {"1.0", 0},      {"1.1", 1},      {"1.2", 2},      {"1.3", 3},      {"1.4", 4},      {"1.5", 5},
    {"1.6", 6},      {"1.7", 7},      {"2.0", 8},      {"pdfx-4", 9},   {"pdfa-1a", 10}, {"pdfa-1b", 11},
    {"pdfa-2a", 12}, {"pdfa-2b", 13}, {"pdfa-2u", 14}, {"pdfa-3a", 15}, {"pdfa-3b", 16}, {"pdfa-3u", 17},
}};

constexpr std::span<const RowAlias> kNoAliases{};
constexpr std::span<const std::string_view> kNoRows{};

constexpr OptionKind Popup = OptionKind::Popup;
constexpr OptionKind Check = OptionKind::Check;
constexpr OptionKind Text = OptionKind::Text;

// One row per option, in the order of OptionId. Defaults live in engine::OptionValues.
const std::array<OptionSpec, engine::kOptionCount> kOptionTable = {{
    {OptionId::imageformat, "imageformat", "imageformat", "imageformat", "imageformat", Popup,
     engine::kImageFormatRows, kImageFormatAliases,
     "output format: pdf, pdf-single, jpeg, png, tiff, tiff-single or text"},
    {OptionId::ZeroPadding, "ZeroPadding", "zeropadding", "zeropadding", "zeropadding", Popup,
     engine::kOneToTenRows, kNoAliases, "digits of the page number in output names, 1 to 10"},
    {OptionId::combinedfilename, "combinedfilename", "combinedfilename", "combinedfilename",
     "combinedfilename", Text, kNoRows, kNoAliases, "name of the combined file of a combined run"},
    {OptionId::jpgquality, "jpgquality", "jpgquality", "jpgquality", "jpgquality", Text, kNoRows,
     kNoAliases, "JPEG quality in percent, 10 to 100"},
    {OptionId::DotsPerInch, "DotsPerInch", "dotsperinch", "dotsperinch", "dotsperinch", Text, kNoRows,
     kNoAliases, "output resolution in dots per inch; below 72 runs as 72"},
    {OptionId::zoomfactor, "zoomfactor", "zoomfactor", "zoomfactor", "zoomfactor", Popup,
     engine::kOneToTenRows, kNoAliases, "zoom factor of rendered PDF pages, 1 to 10"},
    {OptionId::combineall, "combineall", "combineall", "combineall", "combineall", Check, kNoRows,
     kNoAliases, "combine all documents into one file (multipage PDF and TIFF only)"},
    {OptionId::tiffcompression, "tiffcompression", "tiffcompression", "tiffcompression",
     "tiffcompression", Popup, engine::kTiffCompressionRows, kTiffCompressionAliases,
     "TIFF compression: none, packbits, lzw, g3, g4, jpeg, deflate or rle"},
    {OptionId::colordepth48, "colordepth48", "colordepth48", "colordepth48", "colordepth48", Check,
     kNoRows, kNoAliases, "write TIFF files at 48 bits per pixel"},
    {OptionId::tiffcopyright, "tiffcopyright", "tiffcopyright", "tiffcopyright", "tiffcopyright", Text,
     kNoRows, kNoAliases, "copyright text of TIFF and JPEG output"},
    {OptionId::tiffdocumentname, "tiffdocumentname", "", "", "tiffdocumentname", Text, kNoRows,
     kNoAliases, "document name of TIFF output"},
    {OptionId::showpdf, "showpdf", "showpdf", "", "showpdf", Popup, engine::kShowPdfRows,
     kShowPdfAliases, "show the created file: no, yes or tiff-or-pdf"},
    {OptionId::pdfversionnumber, "pdfversionnumber", "pdfversionnumber", "", "pdfversionnumber", Popup,
     engine::kPdfVersionRows, kPdfVersionAliases,
     "PDF version or conformance: 1.0 to 2.0, pdfx-4, pdfa-1a, pdfa-1b, pdfa-2a, pdfa-2b, pdfa-2u, "
     "pdfa-3a, pdfa-3b or pdfa-3u"},
    {OptionId::flattenpdf, "flattenpdf", "flattenpdf", "flattenpdf", "flattenpdf", Check, kNoRows,
     kNoAliases, "flatten forms and annotations of PDF output"},
    {OptionId::pdfauthor, "pdfauthor", "pdfauthor", "pdfauthor", "pdfauthor", Text, kNoRows, kNoAliases,
     "author of PDF and JPEG output"},
    {OptionId::pdftitle, "pdftitle", "pdftitle", "pdftitle", "pdftitle", Text, kNoRows, kNoAliases,
     "title of PDF output"},
    {OptionId::pdfsubject, "pdfsubject", "pdfsubject", "pdfsubject", "pdfsubject", Text, kNoRows,
     kNoAliases, "subject of PDF output"},
    {OptionId::pdfpassword, "pdfpassword", "pdfpassword", "pdfpassword", "pdfpassword", Text, kNoRows,
     kNoAliases, "viewing password of PDF output"},
    {OptionId::hidepassword, "hidepassword", "hidepassword", "hidepassword", "hidepassword", Check,
     kNoRows, kNoAliases, "mask the viewing password in the window"},
    {OptionId::pdffullpassword, "pdffullpassword", "pdffullpassword", "pdffullpassword",
     "pdffullpassword", Text, kNoRows, kNoAliases, "master password of PDF output"},
    {OptionId::hidepassword1, "hidepassword1", "hidepassword1", "hidepassword1", "hidepassword1", Check,
     kNoRows, kNoAliases, "mask the master password in the window"},
    {OptionId::encryptionlevel, "encryptionlevel", "encryptionlevel", "encrytpionlevel",
     "encryptionlevel", Popup, engine::kEncryptionLevelRows, kEncryptionLevelAliases,
     "PDF encryption: rc4-40, rc4-128, aes-128 or aes-256"},
    {OptionId::allowcopy, "allowcopy", "allowcopy", "allowcopy", "allowcopy", Check, kNoRows, kNoAliases,
     "allow copying from encrypted PDF output"},
    {OptionId::allowprint, "allowprint", "allowprint", "allowprint", "allowprint", Check, kNoRows,
     kNoAliases, "allow printing of encrypted PDF output"},
    {OptionId::allowannotation, "allowannotation", "allowannotation", "allowannotation",
     "allowannotation", Check, kNoRows, kNoAliases, "allow annotating encrypted PDF output"},
    {OptionId::savein, "savein", "savein", "", "savein", Text, kNoRows, kNoAliases,
     "folder to save in, or [Source Folder] for each document's own folder"},
    {OptionId::usepageranges, "usepageranges", "usepageranges", "usepageranges", "usepageranges", Check,
     kNoRows, kNoAliases, "take pages from each document's page-range text, not From and To"},
    {OptionId::onefileonefolder, "onefileonefolder", "onefileonefolder", "onefileonefolder",
     "onefileonefolder", Check, kNoRows, kNoAliases, "put each document's pages in a folder of its own"},
}};

const OptionSpec* find_by(std::string_view OptionSpec::*field, std::string_view name)
{
    if (name.empty()) {
        return nullptr;
    }
    for (const auto& spec : kOptionTable) {
        if (engine::iequals(spec.*field, name)) {
            return &spec;
        }
    }
    return nullptr;
}

} // namespace

std::span<const OptionSpec> option_table()
{
    return kOptionTable;
}

const OptionSpec& option_spec(engine::OptionId id)
{
    const auto index = static_cast<std::size_t>(id);
    assert(index < kOptionTable.size() && kOptionTable[index].id == id);
    return kOptionTable[index];
}

const OptionSpec* find_by_flag(std::string_view name)
{
    return find_by(&OptionSpec::cli_flag, name);
}

const OptionSpec* find_by_pref_key(std::string_view name)
{
    return find_by(&OptionSpec::pref_key, name);
}

const OptionSpec* find_by_profile_attr(std::string_view name)
{
    return find_by(&OptionSpec::profile_attr, name);
}

int popup_row_by_name(const OptionSpec& spec, std::string_view name)
{
    for (std::size_t row = 0; row < spec.rows.size(); ++row) {
        if (engine::iequals(spec.rows[row], name)) {
            return static_cast<int>(row);
        }
    }
    for (const auto& alias : spec.aliases) {
        if (engine::iequals(alias.alias, name)) {
            return alias.row;
        }
    }
    return -1;
}

bool selects_row(const OptionSpec& spec, int row)
{
    return row >= 0 && static_cast<std::size_t>(row) < spec.rows.size();
}

} // namespace qf::settings
