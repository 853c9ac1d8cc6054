// SPDX-License-Identifier: GPL-3.0-or-later
// Two command lines at once, sharing the work folder, and sometimes the output folder.
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/process.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

// What an output shows, one entry a page: its labels for a PDF, its lines for a text file,
// and for a TIFF only how many pages it has.
std::vector<std::string> shown_by(const fs::path &file)
{
    std::vector<std::string> shown;
    if (file.extension() == ".PDF") {
        QPDF document;
        open_pdf(document, file);
        return page_labels(document);
    }
    if (file.extension() == ".TXT") {
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            shown.push_back(line);
        }
        return shown;
    }
    return std::vector<std::string>(read_tiff(file).size(), "a page");
}

// Each side converts documents "<side> <name>", whose pages show "<side> <name> N", into its
// own folder or into one both share: each whole output holds one side's pages in order, the
// numbering rule gives each run its own name even when both look for a free one at once, and
// pages of the same name replace each other whole.
TEST(TwoRunsAtOnce, NeitherDisturbsTheOther)
{
    const std::vector<std::string> six = {"a", "b", "c", "d", "e", "f"};
    const struct {
        const char *format;
        bool combine;
        std::vector<std::string> documents;
        int pages;
        bool one_folder;
        std::vector<std::string> names; // in each output folder; empty: pages, six of them
    } cases[] = {
        {"PDF (Multipage)", true, six, 4, false, {"Combine.PDF"}},
        {"TIFF (Multipage)", true, six, 4, false, {"Combine.tif"}},
        {"PDF (Multipage)", false, {"a"}, 3, true, {"a 1.PDF", "a.PDF"}},
        {"TEXT", false, {"a"}, 3, true, {"a 1.TXT", "a.TXT"}},
        {"JPEG", false, {"a"}, 6, true, {}},
    };
    for (const auto &c : cases) {
        for (int round = 0; round < (c.one_folder ? 3 : 1); ++round) {
            SCOPED_TRACE(std::string(c.format) + ", round " + std::to_string(round));
            TempFolder folder;
            std::vector<std::vector<std::string>> expected;
            std::vector<std::unique_ptr<CliChild>> runs;
            for (const std::string side : {"left", "right"}) {
                const fs::path out = folder / (c.one_folder ? "out" : "out-" + side);
                std::vector<std::string> arguments{"--format", c.format, "--dpi", "36", "-o", out.string()};
                if (c.combine) {
                    arguments.push_back("--combineall");
                }
                fs::create_directories(folder / side);
                expected.emplace_back();
                for (const auto &name : c.documents) {
                    std::vector<PdfPageSpec> specs;
                    for (int n = 1; n <= c.pages; ++n) {
                        expected.back().push_back(side + " " + name + " " + std::to_string(n));
                        specs.push_back(PdfPageSpec{.texts = {PdfText{.text = expected.back().back()}}});
                    }
                    write_pdf(folder / side / (name + ".pdf"), specs);
                    arguments.push_back((folder / side / (name + ".pdf")).string());
                }
                runs.push_back(std::make_unique<CliChild>(arguments, CliLimits{folder / "data"}));
            }
            for (const auto &run : runs) {
                EXPECT_EQ(run->finish(), 0) << run->err();
            }
            std::vector<std::vector<std::string>> found;
            for (const std::string out : {"out", "out-left", "out-right"}) {
                if (!fs::exists(folder / out)) {
                    continue;
                }
                const auto names = tree_of(folder / out);
                EXPECT_EQ(names.size(), c.names.empty() ? 6u : c.names.size()) << ::testing::PrintToString(names);
                EXPECT_TRUE(c.names.empty() || names == c.names) << ::testing::PrintToString(names);
                EXPECT_EQ(temporaries_in(folder / out), std::vector<std::string>{});
                for (const auto &name : names) {
                    EXPECT_EQ(undecodable(folder / out / name), "") << name;
                    if (!c.names.empty()) {
                        found.push_back(shown_by(folder / out / name));
                    }
                }
            }
            if (!c.names.empty()) {
                if (std::string(c.format).starts_with("TIFF")) {
                    expected.assign(2, std::vector<std::string>(expected[0].size(), "a page"));
                }
                std::sort(found.begin(), found.end());
                EXPECT_EQ(found, expected);
            }
            EXPECT_EQ(scratch_left(folder / "data"), std::vector<std::string>{});
        }
    }
}

} // namespace
} // namespace qf::test
