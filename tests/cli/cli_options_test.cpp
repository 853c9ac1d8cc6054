// SPDX-License-Identifier: GPL-3.0-or-later
// The command line's reading of its arguments, before anything runs.
#include "cli/cli_options.h"

#include <gtest/gtest.h>

#include "engine/run_model.h"

namespace qf::cli {
namespace {

using engine::OptionId;

// Parses, and gives the usage message instead when there is one. Any other exception fails
// the test: its text would reach the user as it is.
std::string parse(const std::vector<std::string>& arguments, CliRequest& request)
{
    try {
        request = parse_arguments(arguments);
    } catch (const UsageError& error) {
        return error.what();
    } catch (const std::exception& error) {
        ADD_FAILURE() << ::testing::PrintToString(arguments) << " ended in " << error.what();
        return "(internal)";
    }
    return {};
}

TEST(CliOptions, EmptyValuesAreTakenOrRefusedWithAUsageMessage)
{
    // usage: empty when accepted
    // option: when accepted: an option that must now be empty
    const struct { std::vector<std::string> arguments; std::string usage; OptionId option; } cases[] = {
        {{"--pdftitle=Report", "--pdftitle", "", "a.tif"}, "", OptionId::pdftitle},
        {{"-o", " ", "a.tif"}, "-o needs a folder; leave it out, or give \"[Source Folder]\", to save beside the "
                              "first document", OptionId::savein},
        {{"a.tif", ""}, "an empty argument stands where a file or folder was expected", OptionId::savein},
        {{"--save-profile", "", "a.tif"}, "--save-profile needs a file", OptionId::savein},
        {{"--dpi", "", "a.tif"}, "--dpi takes a whole number, not \"\"", OptionId::savein},
        {{"--jobs", ""}, "--jobs takes a whole number of 1 or more, not \"\"", OptionId::savein},
        {{"--pdftitle"}, "--pdftitle needs a value", OptionId::savein},
    };
    for (const auto& c : cases) {
        CliRequest request;
        const std::string usage = parse(c.arguments, request);
        EXPECT_EQ(usage, c.usage) << ::testing::PrintToString(c.arguments);
        if (c.usage.empty()) {
            EXPECT_EQ(request.values.text(c.option), "") << ::testing::PrintToString(c.arguments);
            EXPECT_EQ(request.paths, std::vector<std::string>{"a.tif"});
        }
    }
}

TEST(CliOptions, PagesAndUsePageRangesFollowTheirOrder)
{
    // pages: nullptr for no --pages
    const struct { std::vector<std::string> arguments; bool use_ranges; const char* pages; } cases[] = {
        {{"--pages", "2-3"}, true, "2-3"},
        {{"--pages", "2-3", "--no-usepageranges"}, false, "2-3"},
        {{"--no-usepageranges", "--pages=2-3"}, true, "2-3"},
        {{"--pages", ""}, true, ""},
        {{}, false, nullptr},
    };
    for (const auto& c : cases) {
        CliRequest request;
        ASSERT_EQ(parse(c.arguments, request), "") << ::testing::PrintToString(c.arguments);
        EXPECT_EQ(request.values.flag(OptionId::usepageranges), c.use_ranges) << ::testing::PrintToString(c.arguments);
        EXPECT_EQ(request.pages_given, c.pages != nullptr) << ::testing::PrintToString(c.arguments);
        EXPECT_EQ(request.pages, c.pages ? c.pages : "") << ::testing::PrintToString(c.arguments);
    }
}

} // namespace
} // namespace qf::cli
