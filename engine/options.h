// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace qf::engine {

// Every option a user can set, named after its control. The order is that of the option table.
enum class OptionId {
    imageformat,
    ZeroPadding,
    combinedfilename,
    jpgquality,
    DotsPerInch,
    zoomfactor,
    combineall,
    tiffcompression,
    colordepth48,
    tiffcopyright,
    tiffdocumentname,
    showpdf,
    pdfversionnumber,
    flattenpdf,
    pdfauthor,
    pdftitle,
    pdfsubject,
    pdfpassword,
    hidepassword,
    pdffullpassword,
    hidepassword1,
    encryptionlevel,
    allowcopy,
    allowprint,
    allowannotation,
    savein,
    usepageranges,
    onefileonefolder, // the last: kOptionCount counts up to it
};
inline constexpr std::size_t kOptionCount = static_cast<std::size_t>(OptionId::onefileonefolder) + 1;

// A popup's selected row index, a check box, or a text field's text.
using OptionValue = std::variant<int, bool, std::string>;

// The live values of all options: what the window's controls hold, or what the command line
// and a profile made of them. preprocesscheck reads them; nothing here is validated. The
// engine knows no option's default: the option table (settings::default_values) makes the
// first set of values, and everything else copies and changes it.
class OptionValues {
public:
    explicit OptionValues(std::array<OptionValue, kOptionCount> values) : values_(std::move(values)) {}

    int row(OptionId id) const { return std::get<int>(at(id)); }
    bool flag(OptionId id) const { return std::get<bool>(at(id)); }
    const std::string& text(OptionId id) const { return std::get<std::string>(at(id)); }
    const OptionValue& at(OptionId id) const { return values_[static_cast<std::size_t>(id)]; }

    void set(OptionId id, OptionValue value) { values_[static_cast<std::size_t>(id)] = std::move(value); }

    bool operator==(const OptionValues&) const = default;

private:
    std::array<OptionValue, kOptionCount> values_;
};

// Row texts of the popups, in stored order: a popup persists as the index into these.
inline constexpr std::array<std::string_view, 7> kImageFormatRows = {
    "PDF (Multipage)", "PDF (Single Page)", "JPEG", "PNG", "TIFF (Multipage)", "TIFF (Single Page)", "TEXT"};
inline constexpr std::array<std::string_view, 8> kTiffCompressionRows = {
    "None", "Packbits", "LZW", "CCITT G3", "CCITT G4", "JPEG", "Deflate", "CCITT RLE"};
inline constexpr std::array<std::string_view, 10> kOneToTenRows = {"1", "2", "3", "4", "5",
                                                                   "6", "7", "8", "9", "10"};
inline constexpr std::array<std::string_view, 3> kShowPdfRows = {"No", "Yes", "Only if TIFF or PDF"};
inline constexpr std::array<std::string_view, 4> kEncryptionLevelRows = {"40 Bit", "128 Bit RC4", "128 Bit AES",
                                                                         "256 Bit AES"};
inline constexpr std::array<std::string_view, 18> kPdfVersionRows = {
    "PDF 1.0", "PDF 1.1", "PDF 1.2", "PDF 1.3",  "PDF 1.4",  "PDF 1.5",  "PDF 1.6",  "PDF 1.7",  "PDF 2.0",
    "PDF/X-4", "PDF/A 1a", "PDF/A 1b", "PDF/A 2a", "PDF/A 2b", "PDF/A 2u", "PDF/A 3a", "PDF/A 3b", "PDF/A 3u"};

// The rows of a popup option; empty for check boxes and texts. The run compares these texts,
// so they live here, beside the codes the run makes of them; the option table reads them.
constexpr std::span<const std::string_view> popup_rows(OptionId id)
{
    switch (id) {
    case OptionId::imageformat:
        return kImageFormatRows;
    case OptionId::tiffcompression:
        return kTiffCompressionRows;
    case OptionId::ZeroPadding:
    case OptionId::zoomfactor:
        return kOneToTenRows;
    case OptionId::showpdf:
        return kShowPdfRows;
    case OptionId::encryptionlevel:
        return kEncryptionLevelRows;
    case OptionId::pdfversionnumber:
        return kPdfVersionRows;
    default:
        return {};
    }
}

// The text of a popup's selected row; empty when the index is outside the rows.
std::string row_text(const OptionValues& values, OptionId id);

// The conformance code of a pdfversionnumber row text; 4 for a text that names no row.
int conformance_code(std::string_view row_text);

// The row text of a conformance code ("PDF/A 1b" for 14); empty for an unknown code.
std::string_view conformance_name(int code);

// The encryption level code of an encryptionlevel row index: 0, 1, 3 or 4; -1 for any other
// index, which leaves the level as it was.
int encryption_code(int row_index);

// The TIFF Compression tag value of a tiffcompression row text; 1 for "None" and anything else.
int tiff_compression_code(std::string_view row_text);

} // namespace qf::engine
