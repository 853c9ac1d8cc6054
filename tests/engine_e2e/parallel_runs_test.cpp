// SPDX-License-Identifier: GPL-3.0-or-later
// Preparing pages on several threads changes nothing a user can see: the same files, bytes
// and log lines as one thread gives.
#include <fstream>
#include <map>
#include <gtest/gtest.h>

#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

TEST(ParallelRuns, EveryFormatGivesTheSameFilesAndLogWithOneOrManyThreads)
{
    TempFolder folder;
    write_numbered_pdf(folder / "pages.pdf", 7);
    make_tiff(folder / "scan.tif", {TiffPage{}, TiffPage{.kind = TiffKind::Bilevel, .compression = 4},
                                    TiffPage{.width = 90}, TiffPage{}, TiffPage{}});
    std::ofstream(folder / "broken.tif") << "not a tiff";
    auto pdf_row = admitted_row(folder / "pages.pdf");
    pdf_row.cells[engine::column::ranges] = "7-2,5";
    const std::vector<engine::ListRow> rows = {pdf_row, admitted_row(folder / "scan.tif"),
                                               raw_row(folder / "broken.tif", 1), admitted_row(folder / "scan.tif")};
    for (const std::string format : {"JPEG", "PNG", "TIFF (Single Page)", "TIFF (Multipage)", "TEXT",
                                     "PDF (Single Page)", "PDF (Multipage)"}) {
        for (const bool combine : {false, true}) {
            SCOPED_TRACE(format + (combine ? " combined" : ""));
            std::map<std::string, std::string> files[2];
            std::vector<std::string> logs[2];
            for (const int jobs : {1, 4}) {
                const fs::path out = folder / "out";
                fs::remove_all(out);
                auto values = options_for(out, format);
                values.set(OptionId::DotsPerInch, std::string("30"));
                values.set(OptionId::combineall, combine);
                values.set(OptionId::usepageranges, true);
                RunHarness harness;
                harness.batch.set_jobs(jobs);
                harness.run(values, rows);
                for (const auto &name : tree_of(out)) {
                    // A PDF carries its time of writing: its pages are compared through the log.
                    files[jobs > 1][name] = format.starts_with("PDF") ? "" : file_bytes(out / name);
                }
                for (auto line : harness.lines) {
                    // The scratch folder of a merge differs from run to run.
                    logs[jobs > 1].push_back(line.starts_with("Merging ") ? "Merging" : line);
                }
            }
            EXPECT_FALSE(files[0].empty());
            EXPECT_EQ(files[0], files[1]);
            EXPECT_EQ(logs[0], logs[1]);
        }
    }
}

} // namespace
} // namespace qf::test
