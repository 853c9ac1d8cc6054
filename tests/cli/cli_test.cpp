// SPDX-License-Identifier: GPL-3.0-or-later
// The command line as a script meets it: arguments, output lines, files and exit status.
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/hostile_files.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/process.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

class Cli : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(folder / "in"); }
    CliOutcome cli(const std::vector<std::string>& arguments) { return run_cli(arguments, {.data_home = data}); }
    std::string in(const char* name) const { return (folder / "in" / name).string(); }
    std::string out() const { return (folder / "out").string(); }

    TempFolder folder;
    const fs::path data = folder / "data";
};

TEST_F(Cli, ConvertsAMultipageTiffToJpegPages)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}, TiffPage{}});
    const auto result = cli({"--imageformat", "JPEG", "-o", out(), in("scan.tif")});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<std::string> expected = {
        "1 Image added to the list",        "scan.tif is being Processed",      "Page 1 is being Processed",
        "scan Page 001.JPG has been Saved", "scan Page 002.JPG has been Saved", "scan Page 003.JPG has been Saved",
        "All Done",
    };
    EXPECT_EQ(result.out, expected);
}

// The 16-bit rewrite lives in a module the program loads on first use.
TEST_F(Cli, FortyEightBitTiffOutputLoadsItsModule)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}});
    const auto result = cli({"--format", "tiff-single", "--colordepth48", "-o", out(), in("scan.tif")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read_tiff(folder / "out" / "scan.TIF").at(0).bits_per_sample, 16);
}

TEST_F(Cli, WithoutAFolderOutputsGoBesideTheFirstDocument)
{
    fs::create_directories(folder / "in" / "sub");
    make_tiff(folder / "in" / "a.tif", {TiffPage{}});
    make_tiff(folder / "in" / "sub" / "b.tif", {TiffPage{}});
    const auto result = cli({"--format", "png", "--recursive", (folder / "in").string()});
    EXPECT_EQ(result.status, 0) << result.err;
    // Sub-folders come first, and every output lands in the first document's folder.
    ASSERT_GE(result.out.size(), 2u);
    EXPECT_EQ(result.out[1], "b.tif is being Processed");
    EXPECT_EQ(tree_of(folder / "in" / "sub"), (std::vector<std::string>{"a.PNG", "b.PNG", "b.tif"}));
}

// The command line's row of the bad-document table: refusals go to standard error, failures
// in the run to standard output, the image bomb meets the memory ceiling set through the
// environment, a password is never tried on a file that is not encrypted, and the good
// document is converted.
TEST_F(Cli, BadInputsGetALineAndStatusThree)
{
    make_tiff(folder / "in" / "good.tif", {TiffPage{}});
    write_text_file(folder / "in" / "empty.pdf", "");
    // An image that claims 60000 x 60000 pixels and holds three bytes: over a gigabyte drawn.
    write_image_bomb_pdf(folder / "in" / "bomb.pdf", 60000, 60000);
    // One job: its one reader has the whole ceiling, and the PDF reader seven eighths of it.
    const auto result = run_cli({"--format", "png", "--dpi", "300", "--jobs", "1", "--password", "guess", "-o", out(),
                                 (folder / "in").string(), in("missing.tif")},
                                {.data_home = data, .environment = {"QUIREFOLD_PDF_MEMORY_MB=256"}});
    EXPECT_EQ(result.status, 3);
    for (const char* line : {"missing.tif: no such file or folder\n", "empty.pdf could not be opened: the file is empty\n"}) {
        EXPECT_NE(result.err.find(line), std::string::npos) << line << "\n" << result.err;
    }
    EXPECT_EQ(result.err.find("password"), std::string::npos) << result.err;
    EXPECT_EQ(result.output.find("moved or deleted"), std::string::npos) << result.output;
    EXPECT_TRUE(has_line(result.out, "bomb.pdf page 1 could not be converted: the page needs more "
                                     "memory than the limit of 224 MB"));
    EXPECT_EQ(undecodable(folder / "out" / "good.PNG"), "");
    EXPECT_EQ(result.out.back(), "All Done");
    EXPECT_LT(result.peak_kib, 700 * 1024); // the ceiling and the bomb page's own picture
}

// The command line's row of the unwritable-destination table, started with SIGXFSZ at its
// default as a shell starts it: the signal would end the program.
TEST_F(Cli, AFileSizeLimitFailsTheWriteWithALine)
{
    make_tiff(folder / "in" / "big.tif", {TiffPage{.width = 2000, .height = 2000}});
    auto argv = cli_command({"--format", "jpeg", "-o", out(), in("big.tif")});
    argv.insert(argv.begin(), {"env", "--default-signal=XFSZ"});
    const auto result = run_process(argv, {.data_home = data, .file_size = 4096});
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_TRUE(has_line(result.out, "big.JPG could not be saved: File too large")) << result.output << result.err;
}

TEST_F(Cli, UsageErrorsEndWithStatusTwo)
{
    make_tiff(folder / "in" / "a.tif", {TiffPage{}});
    std::ofstream(folder / "bad.qfk") << "this is not xml <";
    fs::create_directories(folder / "none");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--dpi", "12.5", in("a.tif")}, ""},
        {{"--bogus", in("a.tif")}, ""},
        {{}, ""},
        {{"--profile", (folder / "bad.qfk").string(), in("a.tif")}, ""},
        {{"-o", out(), (folder / "none").string()}, "There is Nothing to Process\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = cli(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments);
        EXPECT_FALSE(result.err.empty()) << ::testing::PrintToString(arguments);
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    }
    EXPECT_EQ(tree_of(folder / "in"), std::vector<std::string>{"a.tif"});
}

TEST_F(Cli, ProfilesLoadBeforeTheFlagsAndSaveTheEffectiveOptions)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}});
    const std::string profile = (folder / "png.qfk").string();
    const auto saved = cli({"--format", "png", "--zeropadding", "1", "--pdfpassword", " secret ", "--save-profile", profile});
    EXPECT_EQ(saved.status, 0) << saved.err;
    EXPECT_EQ(saved.out, std::vector<std::string>{"Settings File png.qfk Saved"});
    // The profile's PNG and padding apply; a flag given after it still wins over it.
    const auto used = cli({"--profile", profile, "--zeropadding", "2", "-o", out(), in("scan.tif")});
    EXPECT_EQ(used.status, 0) << used.err;
    EXPECT_EQ(used.out.front(), "Settings Loaded");
    EXPECT_TRUE(fs::exists(folder / "out" / "scan Page 01.PNG"));
}

} // namespace
} // namespace qf::test
