// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/range_editing.h"

#include <gtest/gtest.h>

namespace qf::intake {
namespace {

engine::ListRow row_of(const char* pages, const char* from, const char* to, const char* ranges)
{
    engine::ListRow row;
    row.cells = {"doc.pdf", pages, from, to, ranges, "/docs", ""};
    row.tag = engine::kTiledNo;
    return row;
}

TEST(RangeEditing, PopupChoiceRefusesCrossedValuesAndRewritesRanges)
{
    // message: empty when accepted
    const struct { const char* pages; const char* from; const char* to; int column; int chosen;
                   const char* message; const char* from_after; const char* to_after;
                   const char* ranges_after; } cases[] = {
        {"12", "5", "9", 3, 3, "The To Page value cannot be smaller than the From Page value", "5", "9", "2,4"},
        {"12", "5", "9", 2, 12, "The To Page value cannot be larger than the From Page value", "5", "9", "2,4"},
        {"12", "5", "9", 2, 9, "", "9", "9", "9-9"},
        {"12", "5", "9", 3, 11, "", "5", "11", "5-11"},
        {"1", "1", "1", 3, 1, "", "1", "1", "1"},
    };
    for (const auto& c : cases) {
        engine::ListRow row = row_of(c.pages, c.from, c.to, "2,4");
        const PageChoice choice = choose_page(row, c.column, c.chosen);
        const std::string label = std::string("column ") + std::to_string(c.column) + " chose " + std::to_string(c.chosen);
        EXPECT_EQ(choice.accepted, *c.message == '\0') << label;
        EXPECT_EQ(choice.message, c.message) << label;
        EXPECT_EQ(row.cells[2], c.from_after) << label;
        EXPECT_EQ(row.cells[3], c.to_after) << label;
        EXPECT_EQ(row.cells[4], c.ranges_after) << label;
    }
}

TEST(RangeEditing, PopupOffersEveryPage)
{
    EXPECT_EQ(page_choices(row_of("1", "1", "1", "1")), (std::vector<std::string>{"1"}));
    EXPECT_EQ(page_choices(row_of("4", "1", "4", "1-4")), (std::vector<std::string>{"1", "2", "3", "4"}));
    EXPECT_TRUE(page_choices(row_of("0", "1", "0", "1")).empty());
}

TEST(RangeEditing, EditedRangesAreNormalisedAndFromToKept)
{
    const struct { const char* typed; const char* kept; } cases[] = {
        {"abc", "1"}, {"5-99", "5-12"}, {"4-4", "4"}, {"9-2,3", "9-2,3"},
    };
    for (const auto& c : cases) {
        engine::ListRow row = row_of("12", "3", "6", c.typed);
        finish_range_edit(row);
        EXPECT_EQ(row.cells[4], c.kept) << c.typed;
        EXPECT_EQ(row.cells[2], "3") << c.typed;
        EXPECT_EQ(row.cells[3], "6") << c.typed;
    }
}

} // namespace
} // namespace qf::intake
