// SPDX-License-Identifier: GPL-3.0-or-later
// Two command lines at once, sharing the work folder where combined runs keep their parts.
#include <gtest/gtest.h>

#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/process.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

// Each side combines documents "<side> <name>", whose pages show "<side> <name> N", into its
// own folder: each combined file holds only its own side's pages, in order, and neither run
// leaves or takes the other's scratch.
TEST(TwoRunsAtOnce, CombinedRunsKeepTheirOwnParts)
{
    TempFolder folder;
    std::vector<std::unique_ptr<CliChild>> runs;
    std::vector<std::vector<std::string>> expected;
    for (const std::string side : {"left", "right"}) {
        fs::create_directories(folder / side);
        std::vector<std::string> arguments{"--format", "PDF (Multipage)", "--combineall", "--dpi", "36",
                                           "-o", (folder / ("out-" + side)).string()};
        expected.emplace_back();
        for (const std::string name : {"a", "b", "c", "d", "e", "f"}) {
            std::vector<PdfPageSpec> specs;
            for (int n = 1; n <= 4; ++n) {
                expected.back().push_back(side + " " + name + " " + std::to_string(n));
                specs.push_back(PdfPageSpec{.texts = {PdfText{.text = expected.back().back()}}});
            }
            write_pdf(folder / side / (name + ".pdf"), specs);
            arguments.push_back((folder / side / (name + ".pdf")).string());
        }
        runs.push_back(std::make_unique<CliChild>(arguments, CliLimits{folder / "data"}));
    }
    for (std::size_t n = 0; n < runs.size(); ++n) {
        EXPECT_EQ(runs[n]->finish(), 0) << runs[n]->err();
        const fs::path out = folder / (n == 0 ? "out-left" : "out-right");
        ASSERT_EQ(tree_of(out), std::vector<std::string>{"Combine.PDF"});
        QPDF document;
        open_pdf(document, out / "Combine.PDF");
        EXPECT_EQ(page_labels(document), expected[n]);
    }
    EXPECT_EQ(scratch_left(folder / "data"), std::vector<std::string>{});
}

} // namespace
} // namespace qf::test
