// SPDX-License-Identifier: GPL-3.0-or-later
// Writes that fail part-way (a file size limit, a folder that is not one, a folder that goes
// away, a security pass that cannot write) leave earlier files as they were, leave no
// temporary behind, are reported as not saved, and the run goes on.
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

#include "app/run_services.h"
#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/process.h"
#include "tests/support/image_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

struct OutputKind
{
    const char *format;
    bool combine;
};

const OutputKind kOutputKinds[] = {
    {"JPEG", false},
    {"PNG", false},
    {"TIFF (Single Page)", false},
    {"TIFF (Multipage)", false},
    {"PDF (Single Page)", false},
    {"PDF (Multipage)", false},
    {"TEXT", false},
    {"TIFF (Multipage)", true},
    {"PDF (Multipage)", true},
};

std::vector<std::string> kind_arguments(const OutputKind &kind, const fs::path &out)
{
    std::vector<std::string> arguments{"--format", kind.format, "--dpi", "36",
                                       "--pages",  "1-2",       "-o",    out.string()};
    if (kind.combine) {
        arguments.push_back("--combineall");
    }
    return arguments;
}

std::string kind_title(const OutputKind &kind)
{
    return std::string(kind.format) + (kind.combine ? " combined" : "");
}

// The lines that report `name` as written.
bool reports_saved(const std::vector<std::string> &lines, const std::string &name)
{
    for (const auto &line : lines) {
        if (line.rfind(name, 0) == 0 && line.find("has been Saved") != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool reports_not_saved(const std::vector<std::string> &lines, const std::string &name,
                       const std::string &reason)
{
    return has_line(lines, name + " could not be saved: " + reason);
}

class FailedWrites : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        fs::create_directories(folder / "in");
        write_numbered_pdf(folder / "in" / "report.pdf", 3);
        write_numbered_pdf(folder / "in" / "memo.pdf", 3);
        inputs = {(folder / "in" / "report.pdf").string(), (folder / "in" / "memo.pdf").string()};
        for (const auto &input : inputs) {
            sources[input] = seal_of(input);
        }
    }
    void expect_sources_untouched()
    {
        for (const auto &[input, seal] : sources) {
            EXPECT_TRUE(seal_of(input) == seal) << input;
        }
    }
    std::vector<std::string> with_inputs(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        return arguments;
    }

    TempFolder folder;
    std::vector<std::string> inputs;
    std::map<std::string, FileSeal> sources;
    const fs::path data_home = folder / "data";
};

TEST_F(FailedWrites, FileSizeLimitKeepsTheEarlierFilesOfEveryKind)
{
    for (const auto &kind : kOutputKinds) {
        SCOPED_TRACE(kind_title(kind));
        const fs::path out = folder / "out";
        fs::remove_all(out);
        // A first run makes the files; they are then given recognisable earlier contents.
        const auto first = run_cli(with_inputs(kind_arguments(kind, out)), {data_home});
        ASSERT_EQ(first.status, 0) << first.err;
        const std::vector<std::string> names = tree_of(out);
        ASSERT_FALSE(names.empty());
        std::map<std::string, FileSeal> earlier;
        for (const auto &name : names) {
            std::ofstream(out / name, std::ios::binary | std::ios::trunc)
                << "earlier contents of " << name;
            earlier[name] = seal_of(out / name);
        }

        // Every write now fails after 16 bytes with EFBIG.
        const auto failed = run_cli(with_inputs(kind_arguments(kind, out)), {data_home, 16});
        EXPECT_EQ(failed.status, 3) << failed.err;
        ASSERT_FALSE(failed.out.empty());
        EXPECT_EQ(failed.out.back(), "All Done");
        EXPECT_EQ(tree_of(out), names) << ::testing::PrintToString(failed.out);
        for (const auto &[name, seal] : earlier) {
            EXPECT_TRUE(seal_of(out / name) == seal) << name << " was overwritten";
            EXPECT_FALSE(reports_saved(failed.out, name)) << name;
        }
        // Every document was attempted: the run went on after the first failure.
        for (const char *document : {"report.pdf", "memo.pdf"}) {
            EXPECT_TRUE(has_line(failed.out, std::string(document) + " is being Processed"))
                << document;
        }
        if (!kind.combine) {
            for (const auto &name : names) {
                EXPECT_TRUE(reports_not_saved(failed.out, name, "File too large"))
                    << name << "\n"
                    << ::testing::PrintToString(failed.out);
            }
        } else {
            EXPECT_TRUE(std::any_of(failed.out.begin(), failed.out.end(),
                                    [](const std::string &line) {
                                        return line.rfind("Combine", 0) == 0 &&
                                               line.find(" could not be saved: ") !=
                                                   std::string::npos;
                                    }))
                << ::testing::PrintToString(failed.out);
        }
        EXPECT_EQ(scratch_left(data_home), std::vector<std::string>{});
    }
    expect_sources_untouched();
}

TEST_F(FailedWrites, AStampThatDoesNotFitLeavesTheFileWholeAndUnstamped)
{
    // The limit lets the picture be written but not its stamped copy.
    make_tiff(folder / "in" / "scan.tif", {TiffPage{.width = 300, .height = 200}});
    for (const char *format : {"JPEG", "TIFF (Single Page)"}) {
        SCOPED_TRACE(format);
        const std::vector<std::string> arguments{"--format",
                                                 format,
                                                 "--pdfauthor",
                                                 "Someone Stamped",
                                                 "-o",
                                                 (folder / "out").string(),
                                                 (folder / "in" / "scan.tif").string()};
        fs::remove_all(folder / "out");
        ASSERT_EQ(run_cli(arguments, {data_home}).status, 0);
        const std::string name = tree_of(folder / "out").front();
        const auto stamped_size = fs::file_size(folder / "out" / name);
        ASSERT_FALSE(exiftool_tag(folder / "out" / name, "Artist").empty())
            << "the stamp is read back with ExifTool";

        fs::remove_all(folder / "out");
        const auto limited = run_cli(arguments, {data_home, stamped_size - 1});
        EXPECT_EQ(limited.status, 0) << limited.err;
        EXPECT_EQ(tree_of(folder / "out"), std::vector<std::string>{name});
        EXPECT_EQ(undecodable(folder / "out" / name), "");
        EXPECT_LT(fs::file_size(folder / "out" / name), stamped_size);
    }
}

// The one table of destinations that cannot take the outputs, for every kind of output: a
// folder that cannot be made (its path goes through a file, which stops even root) and a
// folder that vanishes while the first document's pages are under way. Nothing is reported
// saved, the run goes on to the next document, and no scratch folder is left.
TEST_F(FailedWrites, AnUnwritableDestinationIsReportedAndTheRunGoesOn)
{
    std::ofstream(folder / "plain.txt") << "a file, not a folder";
    const FileSeal plain = seal_of(folder / "plain.txt");
    for (const bool vanishes : {false, true}) {
        for (const auto &kind : kOutputKinds) {
            SCOPED_TRACE(kind_title(kind) + (vanishes ? ", folder vanishes" : ", folder through a file"));
            const fs::path out = vanishes ? folder / "out" : folder / "plain.txt" / "out";
            RunHarness harness;
            harness.batch.set_jobs(1);
            harness.batch.set_listener([&](const engine::RunEvent &event) {
                if (!event.line.empty()) {
                    harness.lines.push_back(event.line);
                }
                if (vanishes && event.line == "Page 1 is being Processed ") {
                    std::error_code ignored;
                    fs::remove_all(out, ignored);
                }
            });
            auto values = options_for(out, kind.format);
            values.set(OptionId::combineall, kind.combine);
            values.set(OptionId::DotsPerInch, std::string("36"));
            harness.run(values, {admitted_row(inputs[0]), admitted_row(inputs[1])});
            EXPECT_FALSE(fs::exists(out));
            EXPECT_GT(harness.batch.failures(), 0) << ::testing::PrintToString(harness.lines);
            for (const auto &line : harness.lines) {
                // A combined PDF run saves each document's part in the work folder first.
                const bool part = kind.combine && line.rfind("Combine", 0) != 0;
                EXPECT_TRUE(part || line.find("has been Saved") == std::string::npos) << line;
            }
            EXPECT_TRUE(has_line(harness.lines, "memo.pdf is being Processed"))
                << ::testing::PrintToString(harness.lines);
            if (!vanishes) {
                EXPECT_TRUE(std::any_of(harness.lines.begin(), harness.lines.end(),
                                        [](const std::string &line) {
                                            return line.find(" could not be saved: Not a directory") !=
                                                   std::string::npos;
                                        }))
                    << ::testing::PrintToString(harness.lines);
            }
            EXPECT_EQ(scratch_left(isolated_work_folder()), std::vector<std::string>{});
        }
    }
    EXPECT_TRUE(seal_of(folder / "plain.txt") == plain);
    expect_sources_untouched();
}

// Runs `write` under a file size limit so low that the file it writes fails part-way.
template <typename Write>
auto under_tiny_file_limit(const Write &write)
{
    rlimit saved{};
    ::getrlimit(RLIMIT_FSIZE, &saved);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tight{64, saved.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &tight);
    struct Restore
    {
        rlimit limit;
        void (*handler)(int);
        ~Restore()
        {
            ::setrlimit(RLIMIT_FSIZE, &limit);
            std::signal(SIGXFSZ, handler);
        }
    } restore{saved, previous};
    return write();
}

// A real assembler whose secured write (the delivered file's only one) meets that limit.
class FailingSecuredWrite : public engine::PdfAssembler
{
  public:
    explicit FailingSecuredWrite(std::unique_ptr<engine::PdfAssembler> real) : real_(std::move(real)) {}
    void add_pdf_page(const fs::path &source, const std::string &password, int pageno) override
    {
        real_->add_pdf_page(source, password, pageno);
    }
    void add_image_page(const engine::PagePicture &picture, double pagescale) override
    {
        real_->add_image_page(picture, pagescale);
    }
    int page_count() const override { return real_->page_count(); }
    std::vector<std::string> close() override { return real_->close(); }
    engine::PdfClosed close_secured() override
    {
        return under_tiny_file_limit([this] { return real_->close_secured(); });
    }

  private:
    std::unique_ptr<engine::PdfAssembler> real_;
};

// The real writers, with the writes that secure a delivered file failing part-way.
engine::RunServices services_with_failing_security_pass()
{
    engine::RunServices services = real_services();
    services.pdf_assembler = [real = services.pdf_assembler](const fs::path &target,
                                                             const engine::OptionSnapshot &snapshot) {
        return std::unique_ptr<engine::PdfAssembler>(
            std::make_unique<FailingSecuredWrite>(real(target, snapshot)));
    };
    services.merge_pdfs = [real = services.merge_pdfs](const std::vector<fs::path> &inputs,
                                                       const fs::path &target,
                                                       const engine::OptionSnapshot &snapshot,
                                                       const std::function<void(const fs::path &)> &merged) {
        return under_tiny_file_limit([&] { return real(inputs, target, snapshot, merged); });
    };
    return services;
}

TEST_F(FailedWrites, AFailedSecurityPassDeliversNothingAndKeepsTheEarlierFile)
{
    const OutputKind kinds[] = {
        {"PDF (Multipage)", false}, {"PDF (Single Page)", false}, {"PDF (Multipage)", true}};
    for (const auto &kind : kinds) {
        SCOPED_TRACE(kind_title(kind));
        const fs::path out = folder / "out";
        fs::remove_all(out);
        auto run = [&](engine::RunServices services) {
            engine::BatchRun batch(std::move(services));
            std::vector<std::string> lines;
            batch.set_listener(
                [&](const engine::RunEvent &event) {
                    if (!event.line.empty()) {
                        lines.push_back(event.line);
                    }
                });
            auto values = options_for(out, kind.format);
            values.set(OptionId::pdfpassword, std::string("open-sesame"));
            values.set(OptionId::combineall, kind.combine);
            values.set(OptionId::usepageranges, true);
            std::vector<engine::ListRow> rows{admitted_row(inputs[0]), admitted_row(inputs[1])};
            for (auto &row : rows) {
                row.cells[engine::column::ranges] = "1-2"; // names that replace an earlier file
            }
            batch.prepare(values, rows);
            batch.processall();
            batch.Timer1_Action();
            return std::make_pair(lines, batch.failures());
        };
        run(real_services());
        const std::vector<std::string> names = tree_of(out);
        ASSERT_FALSE(names.empty());
        std::map<std::string, FileSeal> earlier;
        for (const auto &name : names) {
            std::ofstream(out / name, std::ios::binary | std::ios::trunc) << "earlier " << name;
            earlier[name] = seal_of(out / name);
        }

        const auto [lines, failures] = run(services_with_failing_security_pass());
        EXPECT_EQ(tree_of(out), names) << ::testing::PrintToString(lines);
        for (const auto &name : names) {
            EXPECT_TRUE(seal_of(out / name) == earlier[name]) << name << " was replaced";
            EXPECT_TRUE(has_line(lines, name + " could not be saved: File too large"))
                << ::testing::PrintToString(lines);
            EXPECT_FALSE(reports_saved(lines, name)) << name;
        }
        EXPECT_EQ(failures, static_cast<int>(names.size()));
    }
}

} // namespace
} // namespace qf::test
