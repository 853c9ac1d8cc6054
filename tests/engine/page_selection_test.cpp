// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/page_selection.h"

namespace qf::engine {
namespace {

DocumentRow row_of(const char* pages, const char* from, const char* to, const char* ranges)
{
    DocumentRow row;
    row[column::name] = "report.pdf";
    row[column::pages] = pages;
    row[column::from] = from;
    row[column::to] = to;
    row[column::ranges] = ranges;
    return row;
}

TEST(CheckRange, ClampsAndShortens)
{
    const struct { const char* text; const char* pages; const char* expected; } cases[] = {
        {"0", "12", "1"},          {"5-99", "12", "5-12"},   {"x", "12", "1"},          {"-7", "12", "1-7"},
        {"7-", "12", "7-12"},      {"4-4", "12", "4"},       {"9-2", "12", "9-2"},      {"", "12", "1"},
        {"1,", "12", "1,1"},       {" 3 - 5 ", "12", "3-5"}, {"1-3,8,12-8", "12", "1-3,8,12-8"},
        {"2-9-5", "12", "2-9-5"},  {"abc", "1", "1"},        {"3,3", "12", "3,3"},      {"14", "12", "12"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(checkrange(c.pages, c.text), c.expected) << c.text;
    }
}

// The pages a row selects, in order, and whether the selection counts as the whole document
// (only its ends are compared).
TEST(Expansion, FollowsTheTextInOrderAndJudgesTheWholeByItsEnds)
{
    // text: Page Ranges; "from-to" of the popups when prefixed by '#'
    const struct { const char* text; std::vector<int> expected; bool whole; } cases[] = {
        {"3-3", {3}, false},
        {"3,3", {3, 3}, false},
        {"1-3,2", {1, 2, 3, 2}, false},
        {"2-9-5", {2, 3, 4, 5}, false},
        {"1-3,a-b", {1, 2, 3, 1, 2, 3}, false}, // a token of no numbers keeps the one before
        {"x-5", {0, 1, 2, 3, 4, 5}, false},     // a first token with no first number starts from 0
        {"1-3,8,12-8", {1, 2, 3, 8, 12, 11, 10, 9, 8}, false},
        {"1,5,12", {1, 5, 12}, true},
        {"12-1", {12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}, false},
        {"1-11", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}, false},
        {"#4-6", {4, 5, 6}, false},
        {"#1-12", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, true},
        {"#7-3", {}, false},
    };
    for (const auto& c : cases) {
        const std::string text = c.text;
        const bool popups = text[0] == '#';
        const std::string from = popups ? text.substr(1, text.find('-') - 1) : "1";
        const std::string to = popups ? text.substr(text.find('-') + 1) : "12";
        const DocumentRow row = row_of("12", from.c_str(), to.c_str(), popups ? "9-10" : c.text);
        const std::vector<int> pages = threadgetpages(row, !popups);
        EXPECT_EQ(pages, c.expected) << c.text;
        if (!pages.empty()) {
            EXPECT_EQ(checkifallpages(row, pages), c.whole) << c.text;
        }
    }
}

} // namespace
} // namespace qf::engine
