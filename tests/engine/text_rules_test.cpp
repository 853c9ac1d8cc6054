// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/text_rules.h"

namespace qf::engine {
namespace {

TEST(Val, ReadsTheLeadingNumberOnly)
{
    const struct { const char* text; double expected; } cases[] = {
        {"  72dpi", 72}, {"abc", 0}, {"", 0}, {"-7", -7}, {"1e3x", 1000}, {"12-8", 12}, {".5", 0.5}, {"- 3", 0},
    };
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(Val(c.text), c.expected) << c.text;
    }
    EXPECT_EQ(whole_val("3.9"), 3);
    EXPECT_EQ(whole_val("-3.9"), -3);
    EXPECT_EQ(whole_val("99999999999999999999"), 2147483647);
}

TEST(IsNumeric, WantsTheWholeTextToBeANumber)
{
    for (const char* yes : {"1", " 12 ", "-3", "2.5", "1e3"}) {
        EXPECT_TRUE(IsNumeric(yes)) << yes;
    }
    for (const char* no : {"", " ", "1a", "a1", "1-2", "-", "."}) {
        EXPECT_FALSE(IsNumeric(no)) << no;
    }
}

TEST(Zeropad, PadsToTheWidthAndNeverCuts)
{
    const struct { const char* text; int width; const char* expected; } cases[] = {
        {"7", 3, "007"}, {"12", 3, "012"}, {"1234", 3, "1234"}, {"5", 1, "5"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(zeropad(c.text, c.width), c.expected) << c.text << " " << c.width;
    }
}

TEST(Santitext, ReplacesQuotesInOrder)
{
    const struct { const char* text; const char* expected; } cases[] = {
        {"say \"hi\"", "say \\\"hi\\\""},
        {"\u201Cquoted\u201D", "\\\"quoted\\\""},
        {"\u2018it\u2019s\u201A", "'it's'"},
        {"\u201Elow", "\"low"}, // the low double quote gets no backslash: its step comes after
        {"`cmd`", "'cmd'"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(santitext(c.text), c.expected) << c.text;
    }
}

TEST(TextHelpers, CaseInsensitiveComparisons)
{
    EXPECT_TRUE(iends_with("report.PdF", ".pdf"));
    EXPECT_FALSE(iends_with("pdf", ".pdf"));
    EXPECT_TRUE(icontains("/home/a.pdf/Combine", ".PDF"));
    EXPECT_EQ(split("", ',').size(), 1u);
    EXPECT_EQ(split("1,,2", ',').size(), 3u);
    EXPECT_EQ(trim(" \t x y \n"), "x y");
}

} // namespace
} // namespace qf::engine
