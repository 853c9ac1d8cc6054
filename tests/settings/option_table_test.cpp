// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/option_table.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "engine/options.h"
#include "engine/text_rules.h"

namespace qf::settings {
namespace {

using engine::OptionId;

TEST(OptionTable, KindsAgreeWithTheValuesAndNamesAreUnique)
{
    const engine::OptionValues defaults;
    std::set<std::string> flags;
    std::set<std::string> pref_keys;
    std::set<std::string> profile_attrs;
    std::size_t index = 0;
    for (const OptionSpec& spec : option_table()) {
        const std::string name(spec.control);
        EXPECT_EQ(static_cast<std::size_t>(spec.id), index++) << name;
        EXPECT_EQ(&option_spec(spec.id), &spec) << name;
        const auto& value = defaults.at(spec.id);
        switch (spec.kind) {
        case OptionKind::Popup:
            ASSERT_TRUE(std::holds_alternative<int>(value)) << name;
            EXPECT_TRUE(selects_row(spec, defaults.row(spec.id))) << name;
            EXPECT_EQ(spec.rows.size(), engine::popup_rows(spec.id).size()) << name;
            break;
        case OptionKind::Check:
            EXPECT_TRUE(std::holds_alternative<bool>(value)) << name;
            EXPECT_TRUE(spec.rows.empty()) << name;
            break;
        case OptionKind::Text:
            EXPECT_TRUE(std::holds_alternative<std::string>(value)) << name;
            EXPECT_TRUE(spec.rows.empty()) << name;
            break;
        }
        for (const RowAlias& alias : spec.aliases) {
            EXPECT_TRUE(selects_row(spec, alias.row)) << name << " " << alias.alias;
        }
        EXPECT_FALSE(spec.help.empty()) << name;
        EXPECT_TRUE(flags.insert(std::string(spec.cli_flag)).second) << name;
        if (!spec.pref_key.empty()) {
            EXPECT_TRUE(pref_keys.insert(std::string(spec.pref_key)).second) << name;
        }
        if (!spec.profile_attr.empty()) {
            EXPECT_TRUE(profile_attrs.insert(std::string(spec.profile_attr)).second) << name;
        }
    }
    EXPECT_EQ(index, engine::kOptionCount);
    EXPECT_EQ(pref_keys.size(), 27u);
    EXPECT_EQ(profile_attrs.size(), 24u); // plus the version, 25 elements in a profile
}

TEST(OptionTable, LookupsIgnoreCaseAndKeepTheStoredSpellings)
{
    const struct {
        const char* name;
        const OptionSpec* (*find)(std::string_view);
        const char* found_control; // nullptr: nothing found
    } cases[] = {
        {"ImageFormat", find_by_flag, "imageformat"},
        {"DOTSPERINCH", find_by_flag, "DotsPerInch"},
        {"tiffdocumentname", find_by_flag, "tiffdocumentname"},
        {"zeropadding", find_by_pref_key, "ZeroPadding"},
        {"tiffdocumentname", find_by_pref_key, nullptr},
        {"", find_by_pref_key, nullptr},
        {"ENCRYTPIONLEVEL", find_by_profile_attr, "encryptionlevel"},
        {"encryptionlevel", find_by_profile_attr, nullptr},
        {"pdfversionnumber", find_by_profile_attr, nullptr},
        {"showpdf", find_by_profile_attr, nullptr},
        {"savein", find_by_profile_attr, nullptr},
        {"version", find_by_profile_attr, nullptr},
        {"pdfversionnumber", find_by_pref_key, "pdfversionnumber"},
    };
    for (const auto& c : cases) {
        const OptionSpec* spec = c.find(c.name);
        if (c.found_control == nullptr) {
            EXPECT_EQ(spec, nullptr) << c.name;
        } else {
            ASSERT_NE(spec, nullptr) << c.name;
            EXPECT_EQ(spec->control, c.found_control) << c.name;
        }
    }
}

// A short name must reach the row whose coding the run then uses: the check goes through the
// run's own coding functions, so an alias pointing at a neighbouring row is caught.
TEST(OptionTable, PopupNamesReachTheRowsTheRunCodes)
{
    const auto row_of = [](OptionId id, std::string_view name) {
        return popup_row_by_name(option_spec(id), name);
    };
    const auto text_of = [&](OptionId id, std::string_view name) {
        const int row = row_of(id, name);
        return row < 0 ? std::string() : std::string(option_spec(id).rows[static_cast<std::size_t>(row)]);
    };
    const struct {
        const char* name;
        int code;
    } versions[] = {
        {"1.0", 0}, {"1.4", 4}, {"1.7", 7}, {"2.0", 8}, {"pdfx-4", 15}, {"PDFA-1A", 16}, {"pdfa-1b", 14},
        {"pdfa-2a", 17}, {"pdfa-2b", 18}, {"pdfa-2u", 19}, {"pdfa-3a", 20}, {"pdfa-3b", 21}, {"pdfa-3u", 22},
        {"PDF/A 1b", 14},
    };
    for (const auto& v : versions) {
        EXPECT_EQ(engine::conformance_code(text_of(OptionId::pdfversionnumber, v.name)), v.code) << v.name;
    }
    const struct {
        const char* name;
        int code;
    } compressions[] = {
        {"none", 1}, {"packbits", 32773}, {"lzw", 5}, {"g3", 3}, {"G4", 4}, {"jpeg", 7}, {"deflate", 8}, {"rle", 2},
    };
    for (const auto& c : compressions) {
        const std::string text = text_of(OptionId::tiffcompression, c.name);
        EXPECT_FALSE(text.empty()) << c.name;
        EXPECT_EQ(engine::tiff_compression_code(text), c.code) << c.name;
    }
    const struct {
        const char* name;
        int code;
    } levels[] = {{"rc4-40", 0}, {"rc4-128", 1}, {"aes-128", 3}, {"AES-256", 4}, {"128 bit aes", 3}};
    for (const auto& l : levels) {
        EXPECT_EQ(engine::encryption_code(row_of(OptionId::encryptionlevel, l.name)), l.code) << l.name;
    }
    const struct {
        OptionId id;
        const char* name;
        const char* text; // "" when the name is no row
    } others[] = {
        {OptionId::imageformat, "pdf", "PDF (Multipage)"},
        {OptionId::imageformat, "pdf-single", "PDF (Single Page)"},
        {OptionId::imageformat, "jpg", "JPEG"},
        {OptionId::imageformat, "JPEG", "JPEG"},
        {OptionId::imageformat, "png", "PNG"},
        {OptionId::imageformat, "tiff", "TIFF (Multipage)"},
        {OptionId::imageformat, "tiff-single", "TIFF (Single Page)"},
        {OptionId::imageformat, "txt", "TEXT"},
        {OptionId::imageformat, "bmp", ""},
        {OptionId::showpdf, "tiff-or-pdf", "Only if TIFF or PDF"},
        {OptionId::showpdf, "no", "No"},
        {OptionId::zoomfactor, "4", "4"},
        {OptionId::ZeroPadding, "10", "10"},
        {OptionId::ZeroPadding, "11", ""},
        {OptionId::combineall, "yes", ""},
    };
    for (const auto& o : others) {
        EXPECT_EQ(text_of(o.id, o.name), o.text) << o.name;
    }
}

} // namespace
} // namespace qf::settings
