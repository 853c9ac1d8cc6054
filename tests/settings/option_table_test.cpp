// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/option_table.h"

#include <string>

#include <gtest/gtest.h>

#include "engine/options.h"

namespace qf::settings {
namespace {

using engine::OptionId;

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

} // namespace
} // namespace qf::settings
