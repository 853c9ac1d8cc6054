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
    const struct {
        const char* text;
        const char* pages;
        const char* expected;
    } cases[] = {
        {"0", "12", "1"},          {"5-99", "12", "5-12"},   {"x", "12", "1"},          {"-7", "12", "1-7"},
        {"7-", "12", "7-12"},      {"4-4", "12", "4"},       {"9-2", "12", "9-2"},      {"", "12", "1"},
        {"1,", "12", "1,1"},       {" 3 - 5 ", "12", "3-5"}, {"1-3,8,12-8", "12", "1-3,8,12-8"},
        {"2-9-5", "12", "2-9-5"},  {"abc", "1", "1"},        {"3,3", "12", "3,3"},      {"14", "12", "12"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(checkrange(c.pages, c.text), c.expected) << c.text;
    }
}

TEST(Expansion, FollowsTheTextInOrder)
{
    const struct {
        const char* text;
        std::vector<int> expected;
    } cases[] = {
        {"3", {3}},
        {"3-3", {3}},
        {"3,3", {3, 3}},
        {"1-3,2", {1, 2, 3, 2}},
        {"5-3", {5, 4, 3}},
        {"2-9-5", {2, 3, 4, 5}},
        {"1-3,a-b", {1, 2, 3, 1, 2, 3}}, // a token of no numbers keeps the one before
        {"x-5", {0, 1, 2, 3, 4, 5}},    // a first token with no first number starts from 0
        {"1-3,8,12-8", {1, 2, 3, 8, 12, 11, 10, 9, 8}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(threadgetpages(row_of("12", "1", "12", c.text), true), c.expected) << c.text;
    }
}

TEST(Expansion, UsesFromAndToUnlessRangesAreChosen)
{
    const DocumentRow row = row_of("12", "4", "6", "9-10");
    EXPECT_EQ(threadgetpages(row, false), (std::vector<int>{4, 5, 6}));
    EXPECT_EQ(threadgetpages(row, true), (std::vector<int>{9, 10}));
    EXPECT_TRUE(threadgetpages(row_of("12", "7", "3", "1"), false).empty());
}

TEST(CheckIfAllPages, ComparesOnlyTheEnds)
{
    const struct {
        const char* text;
        bool whole;
    } cases[] = {
        {"1-12", true}, {"1,5,12", true}, {"1-6,7-12", true}, {"12-1", false}, {"2-12", false}, {"1-11", false},
    };
    for (const auto& c : cases) {
        const DocumentRow row = row_of("12", "1", "12", c.text);
        EXPECT_EQ(checkifallpages(row, threadgetpages(row, true)), c.whole) << c.text;
    }
    EXPECT_EQ(threadgetpages(row_of("12", "1", "12", "12-1"), true).size(), 12u);
}

} // namespace
} // namespace qf::engine
