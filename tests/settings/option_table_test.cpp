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

} // namespace
} // namespace qf::settings
