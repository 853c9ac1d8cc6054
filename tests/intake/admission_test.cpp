// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/admission.h"

#include <deque>
#include <filesystem>

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

    struct Question {
        std::string text;
        std::string file_name;
    };
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

TEST(Admission, AdmitsByExtensionWhateverTheCase)
{
    TempFolder folder;
    enum class Kind { Pdf, Tiff };
    const struct {
        const char* name;
        Kind kind;
        bool admitted;
    } cases[] = {
        {"report.PDF", Kind::Pdf, true},   {"SCAN.Tiff", Kind::Tiff, true},  {"lower.tif", Kind::Tiff, true},
        {"Mixed.pDf", Kind::Pdf, true},    {"a.tiff.bak", Kind::Tiff, false}, {"pdf", Kind::Pdf, false},
        {"scan.tiffx", Kind::Tiff, false}, {"report.pdfa", Kind::Pdf, false}, {"scan.ti", Kind::Tiff, false},
    };
    for (const auto& c : cases) {
        const fs::path path = folder / c.name;
        if (c.kind == Kind::Pdf) {
            test::write_blank_pdf(path, 2);
        } else {
            test::make_tiff(path, 2);
        }
        std::vector<engine::ListRow> rows;
        ScriptedPrompt prompt;
        const AdmissionReport report = addtolist({candidate_for(path)}, rows, prompt);
        EXPECT_EQ(report.rows_added, c.admitted ? 1 : 0) << c.name;
        EXPECT_EQ(rows.size(), c.admitted ? 1u : 0u) << c.name;
        if (!c.admitted) {
            ASSERT_EQ(report.dropped.size(), 1u) << c.name;
            EXPECT_EQ(report.dropped[0].reason, "not a PDF or TIFF file") << c.name;
        }
        EXPECT_TRUE(prompt.asked.empty()) << c.name;
    }
}

TEST(Admission, RowCellsFollowThePageCountAndTiling)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "one.pdf", 1);
    test::write_blank_pdf(folder / "twelve.pdf", 12);
    test::make_tiff(folder / "three.tif", 3);
    test::make_tiff(folder / "tiled.tiff", 4, true);
    const struct {
        const char* name;
        const char* pages;
        const char* ranges;
        const char* tag;
    } expected[] = {
        {"one.pdf", "1", "1", "tiled~no"},
        {"twelve.pdf", "12", "1-12", "tiled~no"},
        {"three.tif", "3", "1-3", "tiled~no"},
        {"tiled.tiff", "1", "1", "tiled~yes"}, // a tiled document counts as one page
    };
    CandidateTable candidates;
    for (const auto& e : expected) {
        candidates.push_back(candidate_for(folder / e.name));
    }
    std::vector<engine::ListRow> rows;
    ScriptedPrompt prompt;
    const AdmissionReport report = addtolist(candidates, rows, prompt);
    ASSERT_EQ(report.rows_added, 4);
    ASSERT_EQ(rows.size(), 4u);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto& cells = rows[i].cells;
        const auto& e = expected[i];
        EXPECT_EQ(cells[0], e.name);
        EXPECT_EQ(cells[1], e.pages) << e.name;
        EXPECT_EQ(cells[2], "1") << e.name;
        EXPECT_EQ(cells[3], e.pages) << e.name;
        EXPECT_EQ(cells[4], e.ranges) << e.name;
        EXPECT_EQ(cells[5], folder.path().string()) << e.name;
        EXPECT_EQ(cells[6], "") << e.name;
        EXPECT_EQ(rows[i].tag, e.tag) << e.name;
    }
}

TEST(Admission, DropsTiffsThatCannotBeConvertedAndListsAMissingPdf)
{
    TempFolder folder;
    test::write_text_file(folder / "empty.tif", std::string("II*\0\0\0\0\0", 8)); // no image
    test::write_text_file(folder / "notes.tif", "these are notes, not an image\n");
    test::write_text_file(folder / "blank.tiff", "");
    const struct {
        const char* name;
        const char* reason; // empty: admitted
    } cases[] = {
        {"empty.tif", "not a readable TIFF"},
        {"notes.tif", "not a readable TIFF"},
        {"blank.tiff", "not a readable TIFF"},
        {"gone.tif", "no longer exists"},
        {"gone.pdf", ""},
    };
    CandidateTable candidates;
    for (const auto& c : cases) {
        candidates.push_back(candidate_for(folder / c.name));
    }
    std::vector<engine::ListRow> rows;
    ScriptedPrompt prompt;
    const AdmissionReport report = addtolist(candidates, rows, prompt);

    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].cells[0], "gone.pdf");
    EXPECT_EQ(rows[0].cells[1], "1");
    EXPECT_EQ(rows[0].cells[4], "1");
    std::size_t dropped = 0;
    for (const auto& c : cases) {
        if (*c.reason == '\0') {
            continue;
        }
        ASSERT_LT(dropped, report.dropped.size());
        EXPECT_EQ(report.dropped[dropped].candidate.name, c.name);
        EXPECT_EQ(report.dropped[dropped].reason, c.reason) << c.name;
        ++dropped;
    }
    EXPECT_EQ(report.dropped.size(), dropped);
    EXPECT_TRUE(prompt.asked.empty());
}

TEST(Admission, WrongAndEmptyPasswordsBringThePromptBack)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "locked.pdf", 3, "right horse");
    ScriptedPrompt prompt({PromptAnswer::try_password("wrong"), PromptAnswer::try_password(""),
                           PromptAnswer::try_password("right horse")});
    std::vector<engine::ListRow> rows;
    const AdmissionReport report = addtolist({candidate_for(folder / "locked.pdf")}, rows, prompt);

    ASSERT_EQ(prompt.asked.size(), 3u);
    for (const auto& question : prompt.asked) {
        EXPECT_EQ(question.text,
                  "locked.pdf is encrypted. Please Enter It's Unlock Password to include this file to the list");
        EXPECT_EQ(question.file_name, "locked.pdf");
    }
    ASSERT_EQ(report.rows_added, 1);
    EXPECT_EQ(rows[0].cells[1], "3");
    EXPECT_EQ(rows[0].cells[4], "1-3");
    EXPECT_EQ(rows[0].cells[6], "right horse");
}

TEST(Admission, EncryptedPdfThatOpensWithoutAPasswordIsNotPrompted)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "owner-only.pdf", 2, "", "owner secret");
    ScriptedPrompt prompt;
    std::vector<engine::ListRow> rows;
    addtolist({candidate_for(folder / "owner-only.pdf")}, rows, prompt);
    EXPECT_TRUE(prompt.asked.empty());
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].cells[1], "2");
    EXPECT_EQ(rows[0].cells[6], "");
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

TEST(Admission, GivingUpSaysWhyTheFileWasLeftOut)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "locked.pdf", 1, "secret");
    test::write_text_file(folder / "damaged.pdf", "%PDF-1.4\nthis is no PDF body at all\n");
    const struct {
        const char* name;
        std::deque<PromptAnswer> answers;
        const char* reason;
        std::size_t asks;
    } cases[] = {
        {"locked.pdf", {}, "could not be opened without a password", 1},
        {"locked.pdf", {PromptAnswer::try_password("guess")}, "the password does not open it", 2},
        {"locked.pdf", {PromptAnswer::try_password("guess"), PromptAnswer::cancel()}, "cancelled", 2},
        // Damage that keeps a file from opening leads to the prompt as well.
        {"damaged.pdf", {PromptAnswer::try_password("secret")}, "the password does not open it", 2},
    };
    for (const auto& c : cases) {
        ScriptedPrompt prompt(c.answers);
        std::vector<engine::ListRow> rows;
        const AdmissionReport report = addtolist({candidate_for(folder / c.name)}, rows, prompt);
        EXPECT_TRUE(rows.empty()) << c.reason;
        ASSERT_EQ(report.dropped.size(), 1u) << c.reason;
        EXPECT_EQ(report.dropped[0].reason, c.reason);
        EXPECT_EQ(prompt.asked.size(), c.asks) << c.reason;
    }
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
