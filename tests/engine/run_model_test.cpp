// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "engine/batch_run.h"
#include "engine/run_log.h"
#include "engine/run_model.h"
#include "settings/option_table.h"

namespace qf::engine {
namespace {

TEST(Snapshot, CodesAndCopyRules)
{
    OptionValues values = settings::default_values();
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

    values.set(OptionId::encryptionlevel, 9); // no such row: the level stays
    take_snapshot(values, 2, s);
    EXPECT_EQ(s.enlvl, 3);
    values.set(OptionId::pdfversionnumber, 9);
    take_snapshot(values, 2, s);
    EXPECT_EQ(s.mpdfversionnumber, 15); // "PDF/X-4"
}

TEST(Snapshot, ResolutionHasAFloorOf72)
{
    const struct { const char* text; int dpi;
                   } cases[] = {{"71", 72}, {"0", 72}, {"abc", 72}, {"72", 72}, {"300", 300}, {"150.9", 150}, {"", 72}};
    for (const auto& c : cases) {
        OptionValues values = settings::default_values();
        values.set(OptionId::DotsPerInch, std::string(c.text));
        OptionSnapshot s;
        take_snapshot(values, 1, s);
        EXPECT_EQ(s.thedpi, c.dpi) << c.text;
        EXPECT_EQ(s.mdotsperinch, c.text);
    }
}

// Steps: "+x" writes line x, "=x" replaces the log by x (No Text Found does), "tick" applies
// what changed since the last tick to the text shown, which must then be the log itself: the
// newest line first. The listener hears every line once, in order.
TEST(RunLog, ChangesSinceATickRebuildTheWholeLog)
{
    const struct { const char* title; std::vector<std::string> steps; std::string log; } cases[] = {
        {"lines over several ticks", {"+one", "tick", "+two", "+three", "tick", "tick"}, "three\ntwo\none\n"},
        {"a replacement between ticks", {"+one", "tick", "+two", "=No Text Found", "+three", "tick"},
         "three\nNo Text Found"},
        {"a replacement right after a tick", {"+one", "tick", "=No Text Found", "tick", "+two", "tick"},
         "two\nNo Text Found"},
        {"two replacements between ticks", {"+one", "tick", "=A", "+two", "=B", "tick", "+three", "tick"}, "three\nB"},
        {"nothing at all", {"tick", "tick"}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        RunLog log;
        std::string heard;
        log.set_listener([&](const RunEvent& event) { heard += event.line; });
        std::string shown;
        std::uint64_t seen = 0;
        for (const auto& step : c.steps) {
            if (step[0] == '+') {
                log.write({.line = step.substr(1)});
            } else if (step[0] == '=') {
                log.replace({.kind = RunEventKind::NoTextFound, .line = step.substr(1)});
            } else {
                const LogChanges changes = log.changes_since(seen);
                EXPECT_EQ(changes.version == seen, changes.added.empty());
                apply({.whole = changes.replaced, .text = changes.added}, shown);
                seen = changes.version;
                EXPECT_EQ(shown, log.texttoadd());
            }
        }
        EXPECT_EQ(shown, c.log);
        std::string written;
        for (const auto& step : c.steps) {
            written += step == "tick" ? "" : step.substr(1);
        }
        EXPECT_EQ(heard, written);
    }
}

} // namespace
} // namespace qf::engine
