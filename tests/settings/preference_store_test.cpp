// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/preference_store.h"

#include <gtest/gtest.h>

#include "settings_fixtures.h"

namespace qf::settings {
namespace {

using engine::OptionId;

TEST(Preferences, EmptyStoreKeepsEveryDefault)
{
    MemoryPreferenceStore store;
    engine::OptionValues values;
    loadsettings(store, values);
    EXPECT_TRUE(values == engine::OptionValues());
    EXPECT_EQ(values.row(OptionId::zoomfactor), 2); // the built-in default, not the fallback row
}

TEST(Preferences, SaveThenLoadRestoresAllButTheDocumentName)
{
    MemoryPreferenceStore store;
    engine::OptionValues saved = fixtures::all_changed();
    saved.set(OptionId::pdfpassword, std::string("  blanks kept  "));
    Savesettings(store, saved);
    engine::OptionValues loaded;
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

TEST(Preferences, StoredRowsOutsideThePopupsFallBack)
{
    const struct {
        const char* key;
        const char* stored;
        OptionId id;
        int expected_row;
    } cases[] = {
        {"zoomfactor", "-1", OptionId::zoomfactor, 3},
        {"zoomfactor", "10", OptionId::zoomfactor, 3},
        {"zoomfactor", "9", OptionId::zoomfactor, 9},
        {"zoomfactor", "", OptionId::zoomfactor, 0},
        {"imageformat", "x", OptionId::imageformat, 0},
        {"imageformat", "99", OptionId::imageformat, 5},
        {"imageformat", "-1", OptionId::imageformat, 5},
        {"tiffcompression", "2.9", OptionId::tiffcompression, 2},
        {"encryptionlevel", " 3", OptionId::encryptionlevel, 3},
        {"pdfversionnumber", "18", OptionId::pdfversionnumber, 7},
        {"showpdf", "1", OptionId::showpdf, 1},
    };
    for (const auto& c : cases) {
        MemoryPreferenceStore store;
        store.set_string(c.key, c.stored);
        engine::OptionValues values;
        values.set(OptionId::imageformat, 5);
        loadsettings(store, values);
        EXPECT_EQ(values.row(c.id), c.expected_row) << c.key << " = \"" << c.stored << "\"";
    }
}

TEST(Preferences, ValuesOfTheWrongKindCountAsAbsent)
{
    MemoryPreferenceStore store;
    store.set_string("allowprint", "false"); // a check box stored as text
    store.set_bool("imageformat", true);      // a popup stored as a boolean
    store.set_bool("pdftitle", true);
    engine::OptionValues values;
    loadsettings(store, values);
    EXPECT_TRUE(values == engine::OptionValues());
}

} // namespace
} // namespace qf::settings
