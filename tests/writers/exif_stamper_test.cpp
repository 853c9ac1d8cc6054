// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "writers/exif_stamper.h"
#include "writers/jpeg_writer.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

using namespace std::chrono_literals;
using test::file_bytes;

engine::PagePicture small_page()
{
    return test::make_rgb_picture(16, 12, [](int x, int) {
        return std::array<std::uint8_t, 3>{static_cast<std::uint8_t>(x * 10), 80, 160};
    });
}

void write_tiff(const std::filesystem::path& file, const std::string& global_copyright = "")
{
    engine::OptionSnapshot snapshot;
    snapshot.thedpi = 72;
    snapshot.mtiffcopyright = global_copyright;
    write_tiff_single(small_page(), file, {snapshot, 5, "", ""});
}

void write_script(const std::filesystem::path& file, const std::string& text)
{
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
}

std::filesystem::path system_exiftool()
{
    return find_exiftool({});
}

TEST(ExifStamper, StampsResolutionCopyrightAndAuthorIntoTiffAndJpeg)
{
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    snapshot.thedpi = 72;
    write_jpeg(small_page(), folder / "page.jpg", {snapshot, 1, "", ""});
    write_tiff(folder / "page.tif");
    {
        ExifStamper stamper(system_exiftool());
        const engine::StampRequest request{"50", "  Owner 2024 ", "  Ann Author "};
        stamper.updatedpinonstore(folder / "page.jpg", request);
        stamper.updatedpinonstore(folder / "page.tif", request);
    }
    const test::TiffImage tiff = test::read_tiff(folder / "page.tif").at(0);
    EXPECT_FLOAT_EQ(tiff.x_resolution, 50);
    EXPECT_FLOAT_EQ(tiff.y_resolution, 50);
    EXPECT_EQ(tiff.copyright, "Owner 2024");
    EXPECT_EQ(tiff.artist, "Ann Author");
    EXPECT_EQ(tiff.image.samples, test::read_tiff(folder / "page.tif").at(0).image.samples);

    const auto jpeg = folder / "page.jpg";
    EXPECT_EQ(test::exiftool_tag(jpeg, "EXIF:XResolution"), "50");
    EXPECT_EQ(test::exiftool_tag(jpeg, "EXIF:YResolution"), "50");
    EXPECT_EQ(test::exiftool_tag(jpeg, "EXIF:Copyright"), "Owner 2024");
    EXPECT_EQ(test::exiftool_tag(jpeg, "EXIF:Artist"), "Ann Author");
    EXPECT_EQ(test::exiftool_tag(jpeg, "XMP:Author"), "Ann Author");
    EXPECT_EQ(test::read_jpeg(jpeg).image.width, 16);
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"page.jpg", "page.tif"}));
}

TEST(ExifStamper, HostileTextsArriveAsOneTagValueAndNeverRun)
{
    test::OutputFolder folder;
    const std::string marker = (folder / "pwned").string();
    const struct {
        std::string text;
        std::string expected;           // as santitext makes it
        std::string expected_copyright; // EXIF keeps a single line break between Copyright's parts
    } cases[] = {
        {"He said \"hi\", it's `x`\nnext $(touch " + marker + ") @home",
         "He said \\\"hi\\\", it's 'x'\nnext $(touch " + marker + ") @home", ""},
        {"'; touch " + marker + "; echo '", "'; touch " + marker + "; echo '", ""},
        {"\u201CCurly\u201D \u2018single\u2019 \u201Elow", "\\\"Curly\\\" 'single' \"low", ""},
        {"x\n-artist=Mallory\n-execute", "x\n-artist=Mallory\n-execute", ""},
        {"line one\r\nline two\\", "line one\r\nline two\\", "line one\nline two\\"},
        {"-copyright=twice", "-copyright=twice", ""},
        {"#not a comment", "#not a comment", ""},
        {"\t  tabbed and spaced \t", "tabbed and spaced", ""},
        {"$HOME @ `id` \\n", "$HOME @ 'id' \\n", ""},
    };
    ExifStamper stamper(system_exiftool());
    int index = 0;
    for (const auto& c : cases) {
        const auto file = folder / ("hostile" + std::to_string(index++) + ".tif");
        write_tiff(file);
        stamper.updatedpinonstore(file, {"300", c.text, c.text});
        const test::TiffImage tiff = test::read_tiff(file).at(0);
        EXPECT_EQ(tiff.artist, c.expected) << c.text;
        EXPECT_FLOAT_EQ(tiff.x_resolution, 300) << c.text;
        // EXIF stores a line break of Copyright as the zero byte between its two parts, so
        // Copyright is read back through ExifTool's reader.
        const std::string copyright =
            c.expected_copyright.empty() ? c.expected : c.expected_copyright;
        EXPECT_EQ(test::exiftool_tag(file, "EXIF:Copyright"), copyright) << c.text;
    }
    EXPECT_FALSE(std::filesystem::exists(marker));
}

TEST(ExifStamper, BlankTextsLeaveTheirTagsAlone)
{
    test::OutputFolder folder;
    write_tiff(folder / "page.tif", "Global copyright");
    ExifStamper(system_exiftool()).updatedpinonstore(folder / "page.tif", {"240", " \t ", "   "});
    const test::TiffImage tiff = test::read_tiff(folder / "page.tif").at(0);
    EXPECT_FLOAT_EQ(tiff.x_resolution, 240);
    EXPECT_EQ(tiff.copyright, "Global copyright");
    EXPECT_FALSE(tiff.artist.has_value());
}

TEST(ExifStamper, AwkwardAndRelativeFileNamesAreStamped)
{
    test::OutputFolder folder;
    const std::filesystem::path names[] = {
        "My Files \u00FC/Scan r\u00E9sum\u00E9 1.tif",
        "it's $(touch pwned) `x`.tif",
        " leading blank.tif",
        "new\nline.tif",
        "-overwrite_original.tif",
        "#hash.tif",
    };
    ExifStamper stamper(system_exiftool());
    for (const auto& name : names) {
        const auto file = folder / name;
        std::filesystem::create_directories(file.parent_path());
        write_tiff(file);
        stamper.updatedpinonstore(file, {"96", "Owner", ""});
        const test::TiffImage tiff = test::read_tiff(file).at(0);
        EXPECT_FLOAT_EQ(tiff.x_resolution, 96) << name;
        EXPECT_EQ(tiff.copyright, "Owner") << name;
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "pwned"));
    EXPECT_EQ(folder.entries().size(), std::size(names));

    // A path relative to the current folder.
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    stamper.updatedpinonstore("#hash.tif", {"123", "", ""});
    std::filesystem::current_path(previous);
    EXPECT_FLOAT_EQ(test::read_tiff(folder / "#hash.tif").at(0).x_resolution, 123);
}

TEST(ExifStamper, WithoutAToolFilesStayAsTheyAre)
{
    test::OutputFolder folder;
    write_tiff(folder / "page.tif");
    const std::string before = file_bytes(folder / "page.tif");
    ExifStamper(std::filesystem::path{})
        .updatedpinonstore(folder / "page.tif", {"300", "Owner", "Ann"});
    ExifStamper(folder / "no such tool")
        .updatedpinonstore(folder / "page.tif", {"300", "Owner", "Ann"});
    EXPECT_EQ(file_bytes(folder / "page.tif"), before);
}

TEST(ExifStamper, BundledToolComesBeforeThePath)
{
    test::OutputFolder folder;
    const auto bundled = folder / "resources" / "exiftool" / "exiftool";
    write_script(bundled, "#!/bin/sh\nexec exiftool \"$@\"\n");
    EXPECT_EQ(find_exiftool(folder / "resources"), bundled);

    const auto fallback = find_exiftool(folder / "elsewhere");
    EXPECT_EQ(fallback.filename(), "exiftool");
    EXPECT_NE(fallback, bundled);

    write_tiff(folder / "page.tif");
    make_exif_stamper(folder / "resources")
        ->updatedpinonstore(folder / "page.tif", {"600", "", ""});
    EXPECT_FLOAT_EQ(test::read_tiff(folder / "page.tif").at(0).x_resolution, 600);
}

TEST(ExifStamper, ToolThatDiesIsRestartedOnceAndNeverHangs)
{
    test::OutputFolder folder;
    const auto starts = folder / "starts";
    const auto tool = folder / "tools" / "exiftool";
    write_script(tool, "#!/bin/sh\necho started >> '" + starts.string() + "'\nexit 3\n");
    write_tiff(folder / "page.tif");
    const std::string before = file_bytes(folder / "page.tif");
    {
        ExifStamper stamper(tool);
        for (int file = 0; file < 4; ++file) {
            stamper.updatedpinonstore(folder / "page.tif", {"300", "Owner", ""});
        }
    }
    EXPECT_EQ(file_bytes(starts), "started\nstarted\n");
    EXPECT_EQ(file_bytes(folder / "page.tif"), before);
}

TEST(ExifStamper, ToolThatNeverAnswersIsEndedAfterTheTimeout)
{
    test::OutputFolder folder;
    const auto tool = folder / "tools" / "exiftool";
    write_script(tool, "#!/bin/sh\nexec sleep 60\n");
    write_tiff(folder / "page.tif");
    const auto start = std::chrono::steady_clock::now();
    {
        ExifStamper stamper(tool, 300ms);
        stamper.updatedpinonstore(folder / "page.tif", {"300", "", ""});
        stamper.updatedpinonstore(folder / "page.tif", {"300", "", ""});
        stamper.updatedpinonstore(folder / "page.tif", {"300", "", ""});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

// One tool process serves the whole run: the tool, wrapped to note each start, starts once
// for many files, and every file is stamped.
TEST(ExifStamper, OneProcessServesTheWholeRun)
{
    test::OutputFolder folder;
    const auto starts = folder / "starts";
    const auto tool = folder / "tools" / "exiftool";
    write_script(tool, "#!/bin/sh\necho started >> '" + starts.string() + "'\nexec '" +
                           system_exiftool().string() + "' \"$@\"\n");
    engine::OptionSnapshot snapshot;
    {
        ExifStamper stamper(tool);
        for (int file = 0; file < 5; ++file) {
            const auto page = folder / ("p" + std::to_string(file) + ".jpg");
            write_jpeg(small_page(), page, {snapshot, 1, "", ""});
            stamper.updatedpinonstore(page, {"300", "Owner", "Ann"});
        }
    }
    EXPECT_EQ(file_bytes(starts), "started\n");
    EXPECT_EQ(test::exiftool_tag(folder / "p4.jpg", "EXIF:Copyright"), "Owner");
}

} // namespace
} // namespace qf::writers
