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

std::map<std::string, std::string> folder_bytes(const fs::path& folder)
{
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            files[fs::relative(entry.path(), folder).string()] = file_bytes(entry.path());
        }
    }
    return files;
}

TEST(ParallelRuns, EveryFormatGivesTheSameFilesAndLogWithOneOrManyThreads)
{
    TempFolder folder;
    const auto pdf = folder / "pages.pdf";
    write_numbered_pdf(pdf, 7);
    const auto tiff = folder / "scan.tif";
    make_tiff(tiff, {TiffPage{}, TiffPage{.kind = TiffKind::Bilevel, .compression = 4}, TiffPage{.width = 90},
                     TiffPage{}, TiffPage{}});
    const auto broken = folder / "broken.tif";
    std::ofstream(broken) << "not a tiff";

    // Byte-identical formats; PDF files carry their time of writing, so their pages are compared
    // through the log and page counts elsewhere.
    for (const char* format : {"JPEG", "PNG", "TIFF (Single Page)", "TIFF (Multipage)", "TEXT"}) {
        for (const bool combine : {false, true}) {
            std::map<std::string, std::string> results[2];
            std::vector<std::string> logs[2];
            for (const int jobs : {1, 4}) {
                const fs::path out = folder / "out";
                fs::remove_all(out);
                auto values = options_for(out, format);
                values.set(OptionId::DotsPerInch, std::string("30"));
                values.set(OptionId::combineall, combine);
                values.set(OptionId::usepageranges, true);
                auto pdf_row = admitted_row(pdf);
                pdf_row.cells[4] = "7-2,5";
                RunHarness harness;
                harness.batch.set_jobs(jobs);
                harness.run(values, {pdf_row, admitted_row(tiff), raw_row(broken, 1), admitted_row(tiff)});
                results[jobs == 1 ? 0 : 1] = folder_bytes(out);
                logs[jobs == 1 ? 0 : 1] = harness.lines;
            }
            EXPECT_FALSE(results[0].empty()) << format;
            EXPECT_EQ(results[0], results[1]) << format << (combine ? " combined" : "");
            EXPECT_EQ(logs[0], logs[1]) << format << (combine ? " combined" : "");
        }
    }
}

TEST(ParallelRuns, PdfOutputsHoldTheSamePagesInTheSameOrder)
{
    TempFolder folder;
    const auto pdf = folder / "pages.pdf";
    write_numbered_pdf(pdf, 6);
    const auto tiff = folder / "scan.tif";
    make_tiff(tiff, {TiffPage{}, TiffPage{}});
    for (const char* format : {"PDF (Multipage)", "PDF (Single Page)"}) {
        std::vector<std::string> logs[2];
        for (const int jobs : {1, 3}) {
            const fs::path out = folder / "out";
            fs::remove_all(out);
            auto values = options_for(out, format);
            values.set(OptionId::combineall, true);
            RunHarness harness;
            harness.batch.set_jobs(jobs);
            harness.run(values, {admitted_row(pdf), admitted_row(tiff)});
            logs[jobs == 1 ? 0 : 1] = harness.lines;
            for (auto& line : logs[jobs == 1 ? 0 : 1]) {
                if (line.rfind("Merging ", 0) == 0) {
                    line = "Merging"; // the scratch folder differs from run to run
                }
            }
        }
        EXPECT_EQ(logs[0], logs[1]) << format;
    }
}

} // namespace
} // namespace qf::test
