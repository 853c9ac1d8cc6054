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
        {"DOTSPERINCH", find_by_flag, "DotsPerInch"},
        {"zeropadding", find_by_pref_key, "ZeroPadding"},
        {"tiffdocumentname", find_by_pref_key, nullptr},
        {"ENCRYTPIONLEVEL", find_by_profile_attr, "encryptionlevel"},
        {"savein", find_by_profile_attr, nullptr},
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
