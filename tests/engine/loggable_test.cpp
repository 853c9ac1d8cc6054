// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/run_log.h"

namespace qf::engine {
namespace {

TEST(Loggable, KeepsUtf8AndMarksEverythingElse)
{
    const struct { std::string text; std::string shown; } cases[] = {
        {"report.pdf page 2", "report.pdf page 2"},
        {"r\xC3\xA9sum\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\x84",
         "r\xC3\xA9sum\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\x84"},
        {"line\nend\r.pdf", "line?end?.pdf"},
        {std::string("nul\0byte", 8), "nul?byte"},
        {"del\x7F", "del?"},
        {"latin1 \xE9t\xE9", "latin1 ?t?"},
        {"overlong \xC0\xAF \xE0\x80\xAF", "overlong ?? ???"},
        {"surrogate \xED\xA0\x80", "surrogate ???"},
        {"beyond \xF4\x90\x80\x80", "beyond ????"},
        {"cut \xE2\x82", "cut ??"},
        {"lone \x80 continuation", "lone ? continuation"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(loggable(c.text), c.shown) << c.shown;
    }
}

TEST(Loggable, EveryLineTheLogListenerSeesIsClean)
{
    RunLog log;
    std::vector<std::string> seen;
    log.set_listener([&](const RunEvent &event) { seen.push_back(event.line); });
    log.write({.line = "new\nline.pdf is being Processed"});
    log.replace({.kind = RunEventKind::NoTextFound, .line = "bad\xFF.pdf"});
    EXPECT_EQ(seen, (std::vector<std::string>{"new?line.pdf is being Processed", "bad?.pdf"}));
    EXPECT_EQ(log.texttoadd(), "bad?.pdf");
}

} // namespace
} // namespace qf::engine
