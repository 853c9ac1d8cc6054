// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/options.h"

#include "engine/text_rules.h"

namespace qf::engine {
namespace {

struct CodedRow {
    std::string_view text;
    int code;
};

constexpr std::array<CodedRow, 18> kConformanceCodes = {{
    {"PDF 1.0", 0},   {"PDF 1.1", 1},   {"PDF 1.2", 2},   {"PDF 1.3", 3},   {"PDF 1.4", 4},   {"PDF 1.5", 5},
    {"PDF 1.6", 6},   {"PDF 1.7", 7},   {"PDF 2.0", 8},   {"PDF/X-4", 15},  {"PDF/A 1a", 16}, {"PDF/A 1b", 14},
    {"PDF/A 2a", 17}, {"PDF/A 2b", 18}, {"PDF/A 2u", 19}, {"PDF/A 3a", 20}, {"PDF/A 3b", 21}, {"PDF/A 3u", 22},
}};

constexpr std::array<CodedRow, 7> kTiffCodes = {{
    {"CCITT G4", 4},
    {"CCITT G3", 3},
    {"LZW", 5},
    {"Packbits", 32773},
    {"JPEG", 7},
    {"CCITT RLE", 2},
    {"Deflate", 8},
}};

} // namespace

std::string row_text(const OptionValues& values, OptionId id)
{
    const auto rows = popup_rows(id);
    const int index = values.row(id);
    if (index < 0 || static_cast<std::size_t>(index) >= rows.size()) {
        return {};
    }
    return std::string(rows[static_cast<std::size_t>(index)]);
}

int conformance_code(std::string_view text)
{
    for (const auto& row : kConformanceCodes) {
        if (iequals(row.text, text)) {
            return row.code;
        }
    }
    return 4;
}

std::string_view conformance_name(int code)
{
    for (const auto& row : kConformanceCodes) {
        if (row.code == code) {
            return row.text;
        }
    }
    return {};
}

int encryption_code(int row_index)
{
    switch (row_index) {
    case 0:
        return 0;
    case 1:
        return 1;
    case 2:
        return 3;
    case 3:
        return 4;
    default:
        return -1;
    }
}

int tiff_compression_code(std::string_view text)
{
    for (const auto& row : kTiffCodes) {
        if (iequals(row.text, text)) {
            return row.code;
        }
    }
    return 1;
}

} // namespace qf::engine
