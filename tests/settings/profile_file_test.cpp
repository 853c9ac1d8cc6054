// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/profile_file.h"

#include <map>

#include <pugixml.hpp>

#include <gtest/gtest.h>

#include "settings/base64.h"
#include "settings/preference_store.h"
#include "settings_fixtures.h"
#include "tests/support/hostile_files.h"
#include "tests/support/temp_folder.h"

namespace qf::settings {
namespace {

using engine::OptionId;
using test::TempFolder;

bool travels_in_profiles(OptionId id)
{
    return id != OptionId::pdfversionnumber && id != OptionId::showpdf && id != OptionId::savein &&
           id != OptionId::tiffdocumentname;
}

// Every option a profile holds comes back; the file holds one attribute an element, the
// version first, passwords encoded and texts trimmed, under the names other writers read.
TEST(ProfileFile, RoundTripRestoresEveryProfileOption)
{
    TempFolder folder;
    engine::OptionValues saved = fixtures::all_changed();
    saved.set(OptionId::pdfpassword, std::string("  open sesame "));
    const ProfileOutcome save = savetoxml(folder / "my setup.qfk", saved);
    EXPECT_TRUE(save.ok);
    EXPECT_EQ(save.message, "Settings File my setup.qfk Saved");
    saved.set(OptionId::pdfpassword, std::string("open sesame"));

    engine::OptionValues loaded = default_values();
    const ProfileOutcome load = loadfromxml(folder / "my setup.qfk", loaded);
    EXPECT_TRUE(load.ok);
    EXPECT_EQ(load.message, "Settings Loaded");
    const engine::OptionValues defaults = default_values();
    for (const OptionSpec& spec : option_table()) {
        const auto& expected = travels_in_profiles(spec.id) ? saved.at(spec.id) : defaults.at(spec.id);
        EXPECT_EQ(loaded.at(spec.id), expected) << spec.control;
    }

    pugi::xml_document document;
    ASSERT_TRUE(document.load_file((folder / "my setup.qfk").c_str()));
    std::map<std::string, std::string> attributes;
    for (const pugi::xml_node& element : document.document_element().children()) {
        EXPECT_FALSE(element.first_attribute().next_attribute()) << element.first_attribute().name();
        attributes[element.first_attribute().name()] = element.first_attribute().value();
    }
    EXPECT_STREQ(document.document_element().first_child().first_attribute().name(), "version");
    EXPECT_EQ(attributes["pdfpassword"], "b3BlbiBzZXNhbWU="); // "open sesame", trimmed first
    EXPECT_EQ(attributes["encrytpionlevel"], std::to_string(saved.row(OptionId::encryptionlevel)));
    for (const char* absent : {"pdfversionnumber", "showpdf", "savein", "tiffdocumentname"}) {
        EXPECT_EQ(attributes.count(absent), 0u) << absent;
    }
}

// Each entry as the option it sets, from this program's files and another writer's: names in
// any case, the first attribute of an element, the last element of a name, the misspelt
// encryption name, passwords decoded only after a version was read, popup rows outside the
// popup falling back. Before loading the format is row 4, the encryption level 3, the title
// "kept"; a profile leaves what it does not hold as it was.
TEST(ProfileFile, EachEntrySetsItsOptionOrFallsBack)
{
    TempFolder folder;
    const std::string secret = R"(<QF pdfpassword="c2VjcmV0"/>)";
    const struct { std::string entries; OptionId id; engine::OptionValue expected; } cases[] = {
        {R"(<option IMAGEFORMAT="3"/>)", OptionId::imageformat, 3},
        {R"(<option CombineAll="TRUE"/>)", OptionId::combineall, true},
        {R"(<option allowprint="yes"/>)", OptionId::allowprint, false}, // only "true" checks a box
        {R"(<option dotsperinch=" 300 "/>)", OptionId::DotsPerInch, std::string(" 300 ")},
        {R"(<option ZoomFactor="5" ignored="9"/>)", OptionId::zoomfactor, 5},
        {R"(<option colour="blue"/><option savein="/elsewhere/"/>)", OptionId::savein, std::string("")},
        {R"(<option pdfversionnumber="12"/><option showpdf="0"/>)", OptionId::pdfversionnumber, 7},
        {R"(<option PdfPassword="in clear"/>)", OptionId::pdfpassword, std::string("in clear")},
        {R"(<QF version="   "/>)" + secret, OptionId::pdfpassword, std::string("c2VjcmV0")},
        {secret + R"(<QF VERSION="x"/>)", OptionId::pdfpassword, std::string("secret")},
        {R"(<QF version="9"/><QF version=" "/>)" + secret, OptionId::pdfpassword, std::string("c2VjcmV0")},
        {R"(<QF zoomfactor="abc"/>)", OptionId::zoomfactor, 0},
        {R"(<QF zoomfactor="6"/><QF zoomfactor="-1"/>)", OptionId::zoomfactor, 3},
        {R"(<QF imageformat="2"/><QF imageformat="6.9"/>)", OptionId::imageformat, 6},
        {R"(<QF encrytpionlevel="1"/><QF encryptionlevel="2"/>)", OptionId::encryptionlevel, 2},
        {R"(<QF encrytpionlevel="4"/>)", OptionId::encryptionlevel, 3},
        {R"(<QF combineall="true"/>)", OptionId::pdftitle, std::string("kept")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.entries);
        engine::OptionValues values = default_values();
        values.set(OptionId::pdftitle, std::string("kept"));
        values.set(OptionId::imageformat, 4);
        values.set(OptionId::encryptionlevel, 3);
        test::write_text_file(folder / "p.qfk", "<settings>" + c.entries + "</settings>");
        ASSERT_TRUE(loadfromxml(folder / "p.qfk", values).ok);
        EXPECT_EQ(values.at(c.id), c.expected);
    }
}

// A stored popup row outside the popup's rows falls back when the preferences are read.
TEST(Preferences, StoredRowsOutsideThePopupsFallBack)
{
    const struct { const char* key; const char* stored; OptionId id; int expected_row; } cases[] = {
        {"zoomfactor", "-1", OptionId::zoomfactor, 3},
        {"imageformat", "99", OptionId::imageformat, 5}, // the row it had
    };
    for (const auto& c : cases) {
        engine::OptionValues values = default_values();
        values.set(OptionId::imageformat, 5);
        MemoryPreferenceStore store;
        store.set_string(c.key, c.stored);
        loadsettings(store, values);
        EXPECT_EQ(values.row(c.id), c.expected_row) << c.key << " " << c.stored;
    }
}

TEST(ProfileFile, BrokenProfilesChangeNothing)
{
    TempFolder folder;
    std::filesystem::create_directories(folder / "a folder.qfk");
    // content: nullptr when not written
    const struct { const char* file; const char* content; const char* message; } cases[] = {
        {"cut.qfk", "<QUIREFOLDSETTINGS><QF imageformat=\"3\"/><QF", "The settings file cut.qfk is not an XML file"},
        {"empty.qfk", "", "The settings file empty.qfk holds no settings"},
        {"bare.qfk", "<R><QF imageformat=\"3\"/><QF/><QF zoomfactor=\"5\"/></R>",
         "The settings file bare.qfk has an entry without a setting"},
        {"missing.qfk", nullptr, "The settings file missing.qfk could not be read: no such file or directory"},
        {"a folder.qfk", nullptr, "The settings file a folder.qfk could not be read: it is a folder"},
    };
    for (const auto& c : cases) {
        if (c.content != nullptr) {
            test::write_text_file(folder / c.file, c.content);
        }
        engine::OptionValues values = fixtures::all_changed();
        const engine::OptionValues before = values;
        const ProfileOutcome outcome = loadfromxml(folder / c.file, values);
        EXPECT_FALSE(outcome.ok) << c.file;
        EXPECT_EQ(outcome.message, c.message);
        EXPECT_TRUE(values == before) << c.file;
    }
}

TEST(ProfileFile, FailedSaveLeavesNoFileAndSaysSo)
{
    TempFolder folder;
    const ProfileOutcome outcome = savetoxml(folder / "no folder" / "p.qfk", default_values());
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message.rfind("Settings File p.qfk could not be saved: ", 0), 0u) << outcome.message;
    EXPECT_FALSE(std::filesystem::exists(folder / "no folder"));

    // Saving over an earlier profile replaces it whole and leaves no temporary beside it.
    test::write_text_file(folder / "p.qfk", std::string(10000, 'x'));
    ASSERT_TRUE(savetoxml(folder / "p.qfk", default_values()).ok);
    engine::OptionValues values = fixtures::all_changed();
    ASSERT_TRUE(loadfromxml(folder / "p.qfk", values).ok);
    EXPECT_EQ(values.row(OptionId::imageformat), 0);
    int files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder / "")) {
        ++files;
    }
    EXPECT_EQ(files, 1);
}

// Encoding is seen by the profile round trip; reading is lenient with what hands and other
// writers leave: line breaks, blanks, missing padding, text after the padding.
TEST(Base64, LenientDecoding)
{
    const struct { const char* text; const char* decoded; } cases[] = {
        {" Zm9v\r\nYmE ", "fooba"}, {"Zg", "f"}, {"Zg==Zm9v", "f"}, {"//4/Pg==", "\xFF\xFE?>"},
        {"not base64!", "\x9e\x8b\x5b\x6a\xc7\xba"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(decode_base64(c.text), c.decoded) << c.text;
    }
}

} // namespace
} // namespace qf::settings
