// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/preference_store.h"

#include <gtest/gtest.h>

#include "settings_fixtures.h"

namespace qf::settings {
namespace {

using engine::OptionId;

TEST(Preferences, SaveThenLoadRestoresAllButTheDocumentName)
{
    MemoryPreferenceStore store;
    engine::OptionValues saved = fixtures::all_changed();
    saved.set(OptionId::pdfpassword, std::string("  blanks kept  "));
    Savesettings(store, saved);
    engine::OptionValues loaded = default_values();
    loadsettings(store, loaded);
    for (const OptionSpec& spec : option_table()) {
        if (spec.id == OptionId::tiffdocumentname) {
            EXPECT_EQ(loaded.text(spec.id), "");
        } else {
            EXPECT_EQ(loaded.at(spec.id), saved.at(spec.id)) << spec.control;
        }
    }
    EXPECT_EQ(store.string_value("pdfpassword"), "  blanks kept  "); // clear, untrimmed
    EXPECT_EQ(store.string_value("imageformat"), "6");                // a row index, not its text
    EXPECT_EQ(store.bool_value("allowcopy"), false);
    EXPECT_FALSE(store.contains("tiffdocumentname"));
}

// A value of the wrong kind is as good as none: the option keeps its default.
TEST(Preferences, ValuesOfTheWrongKindCountAsAbsent)
{
    MemoryPreferenceStore store;
    store.set_string("allowprint", "false"); // a check box stored as text
    store.set_bool("imageformat", true);      // a popup stored as a boolean
    store.set_bool("pdftitle", true);
    engine::OptionValues values = default_values();
    loadsettings(store, values);
    EXPECT_TRUE(values == default_values());
}

} // namespace
} // namespace qf::settings
