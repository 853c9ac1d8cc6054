// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/admission.h"

#include <deque>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::intake {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;

// Answers prompts from a script, as a user (or the command line's password list) would, and
// remembers what it was asked. An exhausted script gives up.
class ScriptedPrompt : public PasswordPrompt {
public:
    explicit ScriptedPrompt(std::deque<PromptAnswer> answers = {}) : answers_(std::move(answers)) {}

    PromptAnswer ask(const std::string& prompt_text, const std::string& file_name) override
    {
        asked.push_back({prompt_text, file_name});
        if (answers_.empty()) {
            return PromptAnswer::unanswered();
        }
        PromptAnswer answer = answers_.front();
        answers_.pop_front();
        return answer;
    }

    struct Question { std::string text; std::string file_name; };
    std::vector<Question> asked;

private:
    std::deque<PromptAnswer> answers_;
};

Candidate candidate_for(const fs::path& path)
{
    return {path.string(), path.filename().string()};
}

std::vector<std::string> names_of(const std::vector<engine::ListRow>& rows)
{
    std::vector<std::string> names;
    for (const auto& row : rows) {
        names.push_back(row.cells[engine::column::name]);
    }
    return names;
}

// Each file admitted with the row its page count and tiling give, or dropped with the reason:
// by extension whatever its case, TIFFs that cannot be converted, a missing TIFF. A missing
// PDF is listed (as one page) and fails when the run reaches it.
TEST(Admission, EachFileIsListedWithItsRowOrDroppedWithTheReason)
{
    TempFolder folder;
    const auto pdf = [](int pages) { return [pages](const fs::path& f) { test::write_blank_pdf(f, pages); }; };
    const auto tiff = [](int pages, bool tiled = false) {
        return [=](const fs::path& f) { test::make_tiff(f, pages, tiled); };
    };
    const auto bytes = [](std::string text) { return [=](const fs::path& f) { test::write_text_file(f, text); }; };
    const auto nothing = [](const fs::path&) {};
    // reason: empty when admitted
    const struct { const char* name; std::function<void(const fs::path&)> make; const char* reason;
                   const char* pages = ""; const char* ranges = ""; const char* tag = "tiled~no";
                   } cases[] = {
        {"one.pdf", pdf(1), "", "1", "1"},
        {"twelve.pdf", pdf(12), "", "12", "1-12"},
        {"three.tif", tiff(3), "", "3", "1-3"},
        {"tiled.tiff", tiff(4, true), "", "1", "1", "tiled~yes"}, // a tiled document is one page
        {"SCAN.Tiff", tiff(2), "", "2", "1-2"},
        {"gone.pdf", nothing, "", "1", "1"},
        {"a.tiff.bak", tiff(2), "not a PDF or TIFF file"},
        {"scan.tiffx", tiff(2), "not a PDF or TIFF file"},
        {"scan.ti", tiff(2), "not a PDF or TIFF file"},
        {"empty.tif", bytes(std::string("II*\0\0\0\0\0", 8)), "not a readable TIFF"}, // no image
        {"notes.tif", bytes("these are notes, not an image\n"), "not a readable TIFF"},
        {"gone.tif", nothing, "no longer exists"},
    };
    CandidateTable candidates;
    for (const auto& c : cases) {
        c.make(folder / c.name);
        candidates.push_back(candidate_for(folder / c.name));
    }
    std::vector<engine::ListRow> rows;
    ScriptedPrompt prompt;
    const AdmissionReport report = addtolist(candidates, rows, prompt);

    auto row = rows.begin();
    auto dropped = report.dropped.begin();
    for (const auto& c : cases) {
        if (*c.reason != '\0') {
            ASSERT_NE(dropped, report.dropped.end()) << c.name;
            EXPECT_EQ(dropped->candidate.name, c.name);
            EXPECT_EQ(dropped->reason, c.reason) << c.name;
            ++dropped;
            continue;
        }
        ASSERT_NE(row, rows.end()) << c.name;
        const std::array<std::string, 7> cells{c.name, c.pages, "1", c.pages, c.ranges, folder.path().string(), ""};
        EXPECT_EQ(row->cells, cells);
        EXPECT_EQ(row->tag, c.tag) << c.name;
        ++row;
    }
    EXPECT_EQ(row, rows.end());
    EXPECT_EQ(dropped, report.dropped.end());
    EXPECT_EQ(report.rows_added, static_cast<int>(rows.size()));
    EXPECT_TRUE(prompt.asked.empty());
}

// One PDF and the answers given: the row it gets (pages, password) or the reason it is left
// out, and how often the question was put. A file that is not encrypted but cannot be read is
// never said to want a password: the window still asks (every unopened PDF does there), the
// command line does not, and both give what the reader found wrong.
TEST(Admission, PasswordAnswersAndUnreadablePdfs)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "locked.pdf", 3, "right horse");
    test::write_blank_pdf(folder / "owner-only.pdf", 2, "", "owner secret");
    test::write_text_file(folder / "damaged.pdf", "%PDF-1.4\nthis is no PDF body at all\n");
    test::write_text_file(folder / "empty.pdf", "");
    const auto pw = [](const char* text) { return PromptAnswer::try_password(text); };
    // outcome: "row PAGES PASSWORD", or the start of the reason
    const struct { const char* name; std::deque<PromptAnswer> answers; bool ask_for_unreadable;
                   std::size_t asks; const char* outcome; } cases[] = {
        {"locked.pdf", {pw("wrong"), pw(""), pw("right horse")}, true, 3, "row 3 right horse"},
        {"owner-only.pdf", {}, true, 0, "row 2 "},
        {"locked.pdf", {}, true, 1, "could not be opened without a password"},
        {"locked.pdf", {pw("guess")}, true, 2, "the password does not open it"},
        {"locked.pdf", {pw("guess"), PromptAnswer::cancel()}, true, 2, "cancelled"},
        {"damaged.pdf", {pw("guess")}, false, 0, "not a readable PDF: "},
        {"empty.pdf", {pw("guess")}, false, 0, "the file is empty"},
        {"damaged.pdf", {pw("guess")}, true, 2, "not a readable PDF: "},
        {"empty.pdf", {pw("guess")}, true, 2, "the file is empty"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + c.outcome);
        ScriptedPrompt prompt(c.answers);
        std::vector<engine::ListRow> rows;
        const AdmissionRules rules{.ask_for_unreadable_pdf = c.ask_for_unreadable};
        const AdmissionReport report = addtolist({candidate_for(folder / c.name)}, rows, prompt, {}, rules);
        ASSERT_EQ(prompt.asked.size(), c.asks);
        for (const auto& question : prompt.asked) {
            EXPECT_EQ(question.text, std::string(c.name) +
                                         " is encrypted. Please Enter It's Unlock Password to include this file to the list");
            EXPECT_EQ(question.file_name, c.name);
        }
        if (rows.size() == 1) {
            EXPECT_EQ("row " + rows[0].cells[1] + " " + rows[0].cells[6], c.outcome);
            EXPECT_EQ(rows[0].cells[4], "1-" + rows[0].cells[1]);
        } else {
            ASSERT_EQ(report.dropped.size(), 1u);
            EXPECT_EQ(report.dropped[0].reason.rfind(c.outcome, 0), 0u) << report.dropped[0].reason;
        }
    }
}

TEST(Admission, CancelSkipsOneFileAndTheLoadGoesOn)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "1 plain.pdf", 2);
    test::write_blank_pdf(folder / "2 locked.pdf", 2, "first");
    test::make_tiff(folder / "3 scan.tif", 1);
    test::write_blank_pdf(folder / "4 locked.pdf", 5, "second");
    test::write_blank_pdf(folder / "5 plain.PDF", 1);
    CandidateTable candidates;
    for (const char* name : {"1 plain.pdf", "2 locked.pdf", "3 scan.tif", "4 locked.pdf", "5 plain.PDF"}) {
        candidates.push_back(candidate_for(folder / name));
    }
    // The password given for the fourth file is never tried on the second.
    ScriptedPrompt prompt({PromptAnswer::cancel(), PromptAnswer::try_password("second")});
    std::vector<engine::ListRow> rows(1); // rows already in the list stay first
    rows[0].cells[0] = "earlier.pdf";
    std::vector<std::size_t> counts;
    const AdmissionReport report =
        addtolist(candidates, rows, prompt, [&](std::size_t row_count) { counts.push_back(row_count); });

    EXPECT_EQ(names_of(rows),
              (std::vector<std::string>{"earlier.pdf", "1 plain.pdf", "3 scan.tif", "4 locked.pdf", "5 plain.PDF"}));
    EXPECT_EQ(report.rows_added, 4);
    EXPECT_EQ(rows_added_report(report.rows_added), "4 Images added to the list");
    ASSERT_EQ(report.dropped.size(), 1u);
    EXPECT_EQ(report.dropped[0].candidate.name, "2 locked.pdf");
    EXPECT_EQ(report.dropped[0].reason, "cancelled");
    EXPECT_EQ(rows[3].cells[6], "second");
    EXPECT_EQ(rows[3].cells[1], "5");
    ASSERT_EQ(prompt.asked.size(), 2u);
    EXPECT_EQ(prompt.asked[0].file_name, "2 locked.pdf");
    EXPECT_EQ(prompt.asked[1].file_name, "4 locked.pdf");
    EXPECT_EQ(counts, (std::vector<std::size_t>{2, 2, 3, 4, 5}));
    EXPECT_EQ(count_label(rows.size()), "Number of Documents : 5");
}

TEST(Admission, SameFileTwiceAndRelativePathsGiveAbsoluteFolders)
{
    TempFolder folder;
    test::make_tiff(folder / "sub" / "page.tif", 2);
    const fs::path previous = fs::current_path();
    fs::current_path(folder.path());
    std::vector<engine::ListRow> rows;
    ScriptedPrompt prompt;
    const AdmissionReport report =
        addtolist({{"sub/page.tif", "page.tif"}, {"./sub/../sub/page.tif", "page.tif"}}, rows, prompt);
    fs::current_path(previous);

    ASSERT_EQ(report.rows_added, 2);
    for (const auto& row : rows) {
        EXPECT_EQ(row.cells[5], (folder.path() / "sub").string());
        EXPECT_EQ(row.cells[1], "2");
    }
}

} // namespace
} // namespace qf::intake
