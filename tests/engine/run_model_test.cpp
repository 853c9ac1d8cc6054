// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/run_log.h"
#include "engine/run_model.h"

namespace qf::engine {
namespace {

TEST(Snapshot, CodesAndCopyRules)
{
    OptionValues values;
    values.set(OptionId::combineall, true);
    values.set(OptionId::pdfauthor, std::string("  Ann  "));
    values.set(OptionId::combinedfilename, std::string("  keep "));
    values.set(OptionId::pdfversionnumber, 11);
    values.set(OptionId::encryptionlevel, 2);
    OptionSnapshot s;
    take_snapshot(values, 1, s);
    EXPECT_FALSE(s.mcombineall); // combining needs two documents
    take_snapshot(values, 2, s);
    EXPECT_TRUE(s.mcombineall);
    EXPECT_EQ(s.mpdfauthorname, "Ann");
    EXPECT_EQ(s.mcombinedfilename, "  keep ");
    EXPECT_EQ(s.mpdfversionnumber, 14); // "PDF/A 1b"
    EXPECT_EQ(s.enlvl, 3);              // row 2 is "128 Bit AES"
    EXPECT_EQ(s.mimageformat, "PDF (Multipage)");
    EXPECT_EQ(s.mzeropad, 3);
    EXPECT_EQ(s.mzoomfactor, "3");

    values.set(OptionId::encryptionlevel, 9); // no such row: the level stays
    take_snapshot(values, 2, s);
    EXPECT_EQ(s.enlvl, 3);
    values.set(OptionId::pdfversionnumber, 9);
    take_snapshot(values, 2, s);
    EXPECT_EQ(s.mpdfversionnumber, 15); // "PDF/X-4"
}

TEST(Snapshot, ResolutionHasAFloorOf72)
{
    const struct {
        const char* text;
        int dpi;
    } cases[] = {{"71", 72}, {"0", 72}, {"abc", 72}, {"72", 72}, {"300", 300}, {"150.9", 150}, {"", 72}};
    for (const auto& c : cases) {
        OptionValues values;
        values.set(OptionId::DotsPerInch, std::string(c.text));
        OptionSnapshot s;
        take_snapshot(values, 1, s);
        EXPECT_EQ(s.thedpi, c.dpi) << c.text;
        EXPECT_EQ(s.mdotsperinch, c.text);
    }
}

TEST(RunLog, NewestFirstAndNoTextFoundReplacesAll)
{
    RunLog log;
    std::vector<std::string> heard;
    log.set_listener([&](const LogEvent& event) { heard.push_back(event.text); });
    log.line("one");
    log.line("two");
    EXPECT_EQ(log.texttoadd(), "two\none\n");
    log.replace("No Text Found");
    EXPECT_EQ(log.texttoadd(), "No Text Found");
    log.line("three");
    EXPECT_EQ(log.texttoadd(), "three\nNo Text Found");
    EXPECT_EQ(heard, (std::vector<std::string>{"one", "two", "No Text Found", "three"}));
}

} // namespace
} // namespace qf::engine
