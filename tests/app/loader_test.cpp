// SPDX-License-Identifier: GPL-3.0-or-later
// The loader as a front end meets it: requests in, events out, passwords asked on its thread.
#include "app/loader.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

// The events of one load as text, one per event, answering each password question from
// `answers` in turn (Cancel when they run out, or a cancel of the whole load when `cancel_at`
// is the question's number).
std::vector<std::string> drive(app::Loader& loader, std::vector<intake::PromptAnswer> answers, int cancel_at = 0)
{
    std::vector<std::string> seen;
    int asked = 0;
    for (;;) {
        auto event = loader.next_event(10s);
        if (!event) {
            seen.push_back("(no event in time)");
            return seen;
        }
        if (auto* row = std::get_if<app::RowAdmitted>(&*event)) {
            seen.push_back("row " + row->row.cells[0] + " " + row->row.cells[1] + " " + row->row.cells[6]);
        } else if (auto* done = std::get_if<app::CandidateDone>(&*event)) {
            seen.push_back("count " + std::to_string(done->rows_added));
        } else if (auto* problem = std::get_if<app::ProblemLine>(&*event)) {
            seen.push_back("problem " + fs::path(problem->line).filename().string());
        } else if (auto* question = std::get_if<app::PasswordAsked>(&*event)) {
            seen.push_back("asked " + question->file_name);
            if (++asked == cancel_at) {
                loader.send(app::CancelLoad{});
                continue;
            }
            const std::size_t index = static_cast<std::size_t>(asked - 1);
            loader.send(app::AnswerPassword{question->question, index < answers.size() ? answers[index]
                                                                                       : intake::PromptAnswer::cancel()});
        } else if (auto* finished = std::get_if<app::LoadFinished>(&*event)) {
            seen.push_back(finished->summary.report + (finished->summary.cancelled ? " (cancelled)" : ""));
            return seen;
        }
    }
}

class Loading : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::create_directories(folder / "in");
        make_tiff(folder / "in" / "a.tif", {TiffPage{}, TiffPage{}});
        write_numbered_pdf(folder / "plain.pdf", 3);
        write_encrypted_copy(folder / "plain.pdf", folder / "in" / "b-locked.pdf", PdfEncryption::Aes128, "pw", "owner");
        std::ofstream(folder / "in" / "c-notes.txt") << "not a document";
        make_tiff(folder / "in" / "d.tif", {TiffPage{}});
    }
    app::LoadRequest request(std::vector<std::string> extra = {}) const
    {
        app::LoadRequest load;
        load.paths = {(folder / "in").string()};
        load.paths.insert(load.paths.end(), extra.begin(), extra.end());
        load.report_missing_paths = true;
        return load;
    }
    TempFolder folder;
};

TEST_F(Loading, RowsQuestionsAndTheReportComeInTheOrderOfTheLoad)
{
    app::Loader loader;
    loader.send(request({(folder / "gone.pdf").string()}));
    const auto seen = drive(loader, {intake::PromptAnswer::try_password("wrong"), intake::PromptAnswer::try_password("pw")});
    const std::vector<std::string> expected = {
        "row a.tif 2 ",   "count 1", "asked b-locked.pdf", "asked b-locked.pdf", "row b-locked.pdf 3 pw",
        "count 2",        "count 2", "row d.tif 1 ",       "count 3",
        "problem gone.pdf: no such file or folder", "3 Images added to the list",
    };
    EXPECT_EQ(seen, expected);
}

TEST_F(Loading, CancelAnswersTheOpenQuestionAndEndsTheLoad)
{
    app::Loader loader;
    loader.send(request());
    const auto seen = drive(loader, {}, 1);
    const std::vector<std::string> expected = {"row a.tif 2 ", "count 1", "asked b-locked.pdf", "count 1",
                                               "1 Image added to the list (cancelled)"};
    EXPECT_EQ(seen, expected);

    // The loader takes the next load afresh.
    loader.send(request());
    EXPECT_EQ(drive(loader, {intake::PromptAnswer::try_password("pw")}).back(), "3 Images added to the list");
}

// A window closed while its password question is open must not hang on the loader.
TEST_F(Loading, TeardownWithAnOpenQuestionReturnsPromptly)
{
    const auto start = std::chrono::steady_clock::now();
    {
        app::Loader loader;
        loader.send(request());
        for (auto event = loader.next_event(10s); event && !std::holds_alternative<app::PasswordAsked>(*event);
             event = loader.next_event(10s)) {
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, app::Loader::kTeardownWait);
}

} // namespace
} // namespace qf::test
