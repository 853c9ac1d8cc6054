// SPDX-License-Identifier: GPL-3.0-or-later
// What the command line says and returns when inputs are refused or a run is interrupted.
#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/pdf_fixtures.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

// quirefold-cli with its work folder in `folder`; when `interrupt_at` is given, one SIGINT as
// soon as standard output holds it.
Outcome run_cli(const std::vector<std::string>& arguments, const fs::path& folder, const std::string& interrupt_at = {})
{
    CliChild child(arguments, {.data_home = folder / "data"});
    if (!interrupt_at.empty() && child.wait_for_output(interrupt_at, std::chrono::seconds(60))) {
        child.send(SIGINT);
    }
    const int status = child.finish(std::chrono::seconds(120));
    return {status, child.out(), child.err()};
}

class CliStatus : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(folder / "in"); }
    TempFolder folder;
};

// A file that is not encrypted is never said to want a password, and no password is tried on
// it; a path that never existed is not taken for a document moved away.
TEST_F(CliStatus, RefusedInputsSayWhatIsWrongWithThem)
{
    write_garbage_pdf(folder / "in" / "broken.pdf");
    std::ofstream(folder / "in" / "empty.pdf").close();
    make_tiff(folder / "in" / "good.tif", {TiffPage{}});
    const struct {
        std::string input;
        std::string line;
    } cases[] = {
        {"broken.pdf", "broken.pdf could not be opened: not a readable PDF: "},
        {"empty.pdf", "empty.pdf could not be opened: the file is empty\n"},
        {"never.pdf", "never.pdf: no such file or folder\n"},
        {"never.tif", "never.tif: no such file or folder\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        const auto result = run_cli({"--format", "png", "--password", "guess", "-o", (folder / "out").string(),
                                     (folder / "in" / "good.tif").string(), (folder / "in" / c.input).string()},
                                    folder.path());
        EXPECT_EQ(result.status, 3);
        EXPECT_NE(result.err.find(c.line), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find("password"), std::string::npos) << result.err;
        EXPECT_EQ(result.out.find("moved or deleted"), std::string::npos) << result.out;
        EXPECT_NE(result.out.find("1 Image added to the list\n"), std::string::npos) << result.out;
    }
}

// Ctrl-C stops after the document under way: when that is the last one, everything asked for
// was written and the run succeeded; otherwise the documents never reached make it status 3.
TEST_F(CliStatus, AnInterruptCostsOnlyTheDocumentsNeverReached)
{
    for (const char* name : {"slow1.tif", "slow2.tif"}) {
        make_tiff(folder / "in" / name, std::vector<TiffPage>(8, TiffPage{.width = 1700, .height = 2200}));
    }
    const struct {
        const char* interrupt_at;
        int status;
        std::size_t files;
    } cases[] = {
        {"slow1.tif is being Processed", 3, 8},
        {"slow2.tif is being Processed", 0, 16},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.interrupt_at);
        const fs::path out = folder / "out";
        fs::remove_all(out);
        const auto result = run_cli({"--format", "png", "--jobs", "1", "-o", out.string(),
                                     (folder / "in" / "slow1.tif").string(), (folder / "in" / "slow2.tif").string()},
                                    folder.path(), c.interrupt_at);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_NE(result.err.find("Stopping after the document under way"), std::string::npos) << result.err;
        const auto written = std::distance(fs::directory_iterator(out), fs::directory_iterator());
        EXPECT_EQ(static_cast<std::size_t>(written), c.files);
    }
}

} // namespace
} // namespace qf::test
