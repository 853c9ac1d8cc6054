// SPDX-License-Identifier: GPL-3.0-or-later
// The command line as a script meets it: arguments, output lines, files and exit status.
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/hostile_files.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "tests/support/process.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::create_directories(folder / "in");
    }
    CliOutcome cli(const std::vector<std::string>& arguments)
    {
        return run_cli(arguments, {.data_home = folder / "data"});
    }

    TempFolder folder;
};

TEST_F(Cli, ConvertsAMultipageTiffToJpegPages)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}, TiffPage{}});
    const auto result = cli({"--imageformat", "JPEG", "-o", (folder / "out").string(), (folder / "in" / "scan.tif").string()});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<std::string> expected = {
        "1 Image added to the list",        "scan.tif is being Processed",      "Page 1 is being Processed",
        "scan Page 001.JPG has been Saved", "scan Page 002.JPG has been Saved", "scan Page 003.JPG has been Saved",
        "All Done",
    };
    EXPECT_EQ(result.out, expected);
    EXPECT_EQ(read_jpeg(folder / "out" / "scan Page 003.JPG").image.width, 64);
}

// The 16-bit rewrite lives in a module the program loads on first use; the installed program
// must find it and the files must come out at 16 bits a sample.
TEST_F(Cli, FortyEightBitTiffOutputLoadsItsModule)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}});
    const auto result = cli({"--format", "tiff-single", "--colordepth48", "-o", (folder / "out").string(),
                             (folder / "in" / "scan.tif").string()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    for (const char* name : {"scan Page 001.TIF", "scan Page 002.TIF"}) {
        const auto images = read_tiff(folder / "out" / name);
        ASSERT_EQ(images.size(), 1u) << name;
        EXPECT_EQ(images[0].bits_per_sample, 16) << name;
    }
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
    EXPECT_EQ(result.out[0], "2 Images added to the list");
    EXPECT_EQ(result.out[1], "b.tif is being Processed");
    EXPECT_TRUE(fs::exists(folder / "in" / "sub" / "a.PNG"));
    EXPECT_TRUE(fs::exists(folder / "in" / "sub" / "b.PNG"));
}

// --pages is normalised for each document; an empty text is page 1, and a later
// --no-usepageranges goes back to all pages.
TEST_F(Cli, PagesAreNormalisedForEachDocument)
{
    make_tiff(folder / "in" / "four.tif", {TiffPage{}, TiffPage{}, TiffPage{}, TiffPage{}});
    const struct {
        std::vector<std::string> flags;
        std::vector<std::string> written;
    } cases[] = {
        {{"--pages", "3-99"}, {"four Page 003.PNG", "four Page 004.PNG"}},
        {{"--pages", ""}, {"four Page 001.PNG"}},
        {{"--pages", "2", "--no-usepageranges"},
         {"four Page 001.PNG", "four Page 002.PNG", "four Page 003.PNG", "four Page 004.PNG"}},
    };
    for (const auto& c : cases) {
        fs::remove_all(folder / "out");
        std::vector<std::string> arguments = c.flags;
        arguments.insert(arguments.end(), {"--format", "png", "-o", (folder / "out").string(),
                                           (folder / "in" / "four.tif").string()});
        const auto result = cli(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        std::vector<std::string> written;
        std::error_code no_folder;
        for (const auto& entry : fs::directory_iterator(folder / "out", no_folder)) {
            written.push_back(entry.path().filename().string());
        }
        std::sort(written.begin(), written.end());
        EXPECT_EQ(written, c.written) << ::testing::PrintToString(c.flags);
    }
}

// The command line's row of the bad-document table: refusals go to standard error, failures
// in the run to standard output, the image bomb meets the memory ceiling set through the
// environment, and the good document is converted.
TEST_F(Cli, BadInputsGetALineAndStatusThree)
{
    make_tiff(folder / "in" / "good.tif", {TiffPage{}});
    write_text_file(folder / "in" / "empty.tif", "");
    write_text_file(folder / "in" / "notes.tif", "plain text");
    write_garbage_pdf(folder / "in" / "broken.pdf");
    // An image that claims 60000 x 60000 pixels and holds three bytes: decoded at the size it
    // is shown, over a gigabyte.
    write_image_bomb_pdf(folder / "in" / "bomb.pdf", 60000, 60000);
    // One job: its one reader has the whole ceiling, and the PDF reader seven eighths of it.
    const auto result = run_cli({"--format", "png", "--dpi", "300", "--jobs", "1", "-o", (folder / "out").string(),
                                 (folder / "in").string(), (folder / "in" / "missing.tif").string()},
                                {.data_home = folder / "data", .environment = {"QUIREFOLD_PDF_MEMORY_MB=256"}});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("missing.tif: no such file or folder\n"), std::string::npos) << result.err;
    for (const char* name : {"empty.tif", "notes.tif", "broken.pdf"}) {
        EXPECT_NE(result.err.find(std::string(name) + " could not be opened: "), std::string::npos) << name << "\n"
                                                                                                   << result.err;
    }
    EXPECT_TRUE(has_line(result.out, "bomb.pdf page 1 could not be converted: the page needs more "
                                     "memory than the limit of 224 MB"));
    EXPECT_EQ(undecodable(folder / "out" / "good.PNG"), "");
    EXPECT_EQ(result.out.back(), "All Done");
    // The ceiling and the bomb page's own RGB picture, little more.
    EXPECT_LT(result.peak_kib, 700 * 1024);
}

TEST_F(Cli, AFileSizeLimitFailsTheWriteWithALine)
{
    make_tiff(folder / "in" / "big.tif", {TiffPage{.width = 2000, .height = 2000}});
    // Started with SIGXFSZ at its default, as a shell starts it: the signal would end the program.
    auto argv = cli_command({"--format", "jpeg", "-o", (folder / "out").string(), (folder / "in/big.tif").string()});
    argv.insert(argv.begin(), {"env", "--default-signal=XFSZ"});
    const auto result = run_process(argv, {.data_home = folder / "data", .file_size = 4096});
    EXPECT_TRUE(has_line(result.out, "big.JPG could not be saved: File too large")) << result.output << result.err;
}

TEST_F(Cli, UsageErrorsEndWithStatusTwo)
{
    make_tiff(folder / "in" / "a.tif", {TiffPage{}});
    const std::string input = (folder / "in" / "a.tif").string();
    const std::vector<std::vector<std::string>> cases = {
        {"--dpi", "12.5", input}, {"--jpgquality", "high", input}, {"--imageformat", "gif", input},
        {"--bogus", input},       {"--combineall=yes", input},     {},
        {"--format"},
    };
    for (const auto& arguments : cases) {
        const auto result = cli(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments);
        EXPECT_FALSE(result.err.empty()) << ::testing::PrintToString(arguments);
    }
    EXPECT_FALSE(fs::exists(folder / "in" / "a.PDF"));
}

} // namespace
} // namespace qf::test

namespace qf::test {
namespace {

TEST_F(Cli, ProfilesLoadBeforeTheFlagsAndSaveTheEffectiveOptions)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}});
    const std::string profile = (folder / "png.qfk").string();
    const auto saved = cli({"--format", "png", "--zeropadding", "1", "--pdfpassword", " secret ", "--save-profile", profile});
    EXPECT_EQ(saved.status, 0) << saved.err;
    EXPECT_EQ(saved.out, std::vector<std::string>{"Settings File png.qfk Saved"});
    const std::string xml = file_bytes(profile);
    EXPECT_NE(xml.find("QUIREFOLDSETTINGS"), std::string::npos);
    EXPECT_NE(xml.find("c2VjcmV0"), std::string::npos); // "secret", trimmed, in Base64
    EXPECT_EQ(xml.find("secret"), std::string::npos);

    // The profile's PNG and padding apply; a flag given after it still wins over it.
    const auto used = cli({"--profile", profile, "--zeropadding", "2", "-o", (folder / "out").string(),
                           (folder / "in" / "scan.tif").string()});
    EXPECT_EQ(used.status, 0) << used.err;
    EXPECT_EQ(used.out.front(), "Settings Loaded");
    EXPECT_TRUE(fs::exists(folder / "out" / "scan Page 01.PNG"));

    std::ofstream(folder / "bad.qfk") << "this is not xml <";
    const auto bad = cli({"--profile", (folder / "bad.qfk").string(), (folder / "in" / "scan.tif").string()});
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("bad.qfk"), std::string::npos) << bad.err;
}

} // namespace
} // namespace qf::test
