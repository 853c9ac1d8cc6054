// SPDX-License-Identifier: GPL-3.0-or-later
// Writes that fail part-way (a folder that is not one, a folder that goes away, a file size
// limit, also on an encrypted PDF's one write) leave earlier files as they were, leave no
// temporary behind, are reported as not saved, and the run goes on.
#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/resource.h>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

enum class Fault { ThroughAFile, Vanishes, FileSizeLimit };

struct OutputKind { const char *format; bool combine; };

// The one table of destinations that cannot take the outputs, for every kind of output: a
// folder that cannot be made (its path goes through a file, which stops even root), a folder
// that vanishes while the first document's pages are under way, a file size limit over the
// whole run over files of the same names from an earlier run (a PDF's one write, which also
// secures it, fails there). Nothing is reported saved, earlier files stay, the run goes on to the next
// document, and no scratch folder is left.
TEST(FailedWrites, AnUnwritableDestinationIsReportedAndTheRunGoesOn)
{
    std::signal(SIGXFSZ, SIG_IGN);
    TempFolder folder;
    fs::create_directories(folder / "in");
    std::vector<engine::ListRow> rows;
    for (const char *name : {"report.pdf", "memo.pdf"}) {
        write_numbered_pdf(folder / "in" / name, 3);
        rows.push_back(admitted_row(folder / "in" / name));
        rows.back().cells[engine::column::ranges] = "1-2";
    }
    std::ofstream(folder / "plain.txt") << "a file, not a folder";
    const std::vector<OutputKind> every_kind = {
        {"JPEG", false}, {"PNG", false}, {"TIFF (Single Page)", false}, {"TIFF (Multipage)", false},
        {"PDF (Single Page)", false}, {"PDF (Multipage)", false}, {"TEXT", false},
        {"TIFF (Multipage)", true}, {"PDF (Multipage)", true},
    };
    // reason: the end of each failure line
    const struct { const char *title; Fault fault; std::string reason; } cases[] = {
        {"folder through a file", Fault::ThroughAFile, " could not be saved: Not a directory"},
        {"folder vanishes", Fault::Vanishes, ""},
        {"file size limit", Fault::FileSizeLimit, " could not be saved: File too large"},
    };
    for (const auto &c : cases) {
        for (const auto &kind : every_kind) {
            SCOPED_TRACE(std::string(c.title) + ", " + kind.format + (kind.combine ? " combined" : ""));
            const fs::path out = folder / (c.fault == Fault::ThroughAFile ? "plain.txt/out" : "out");
            fs::remove_all(folder / "out");
            auto values = options_for(out, kind.format);
            values.set(OptionId::combineall, kind.combine);
            values.set(OptionId::DotsPerInch, std::string("36"));
            values.set(OptionId::usepageranges, true);
            // PDFs are encrypted in the write that delivers them; it is that write the limit fails.
            values.set(OptionId::pdfpassword, std::string(c.fault == Fault::FileSizeLimit ? "open-sesame" : ""));
            // An earlier run's files, given recognisable contents.
            std::map<std::string, FileSeal> earlier;
            if (c.fault == Fault::FileSizeLimit) {
                RunHarness().run(values, rows);
                for (const auto &name : tree_of(out)) {
                    std::ofstream(out / name, std::ios::binary | std::ios::trunc) << "earlier " << name;
                    earlier[name] = seal_of(out / name);
                }
                ASSERT_FALSE(earlier.empty());
            }

            engine::BatchRun batch(real_services());
            batch.set_jobs(1);
            std::vector<std::string> lines;
            batch.set_listener([&](const engine::RunEvent &event) {
                if (!event.line.empty()) {
                    lines.push_back(event.line);
                }
                if (c.fault == Fault::Vanishes && event.line == "Page 1 is being Processed ") {
                    std::error_code ignored;
                    fs::remove_all(out, ignored);
                }
            });
            batch.prepare(values, rows);
            // Past the limit every write fails with EFBIG, as under a shell's file size limit.
            rlimit saved{};
            ::getrlimit(RLIMIT_FSIZE, &saved);
            const rlimit tight{c.fault == Fault::FileSizeLimit ? 16 : saved.rlim_cur, saved.rlim_max};
            ::setrlimit(RLIMIT_FSIZE, &tight);
            batch.processall();
            EXPECT_TRUE(batch.Timer1_Action().ended);
            ::setrlimit(RLIMIT_FSIZE, &saved);
            const std::string log = ::testing::PrintToString(lines);

            EXPECT_GT(batch.failures(), 0) << log;
            EXPECT_TRUE(has_line(lines, "memo.pdf is being Processed")) << log;
            for (const auto &line : lines) {
                // A combined run saves each document's part in the work folder first.
                const bool part = kind.combine && !line.starts_with("Combine");
                EXPECT_TRUE(part || !line.ends_with("has been Saved")) << line;
            }
            EXPECT_TRUE(c.reason.empty() || std::any_of(lines.begin(), lines.end(), [&](const std::string &line) {
                return line.ends_with(c.reason);
            })) << log;
            if (earlier.empty()) {
                EXPECT_FALSE(fs::exists(out));
            } else {
                EXPECT_EQ(tree_of(out).size(), earlier.size()) << log;
            }
            for (const auto &[name, seal] : earlier) {
                EXPECT_TRUE(seal_of(out / name) == seal) << name << " was replaced";
                EXPECT_TRUE(kind.combine || has_line(lines, name + c.reason)) << name << "\n" << log;
            }
            EXPECT_EQ(scratch_left(isolated_work_folder()), std::vector<std::string>{});
        }
    }
}

} // namespace
} // namespace qf::test
