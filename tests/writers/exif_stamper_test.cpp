// SPDX-License-Identifier: GPL-3.0-or-later
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "engine/text_rules.h"
#include "tests/support/hostile_files.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "writers/exif_stamper.h"
#include "writers/jpeg_writer.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

namespace fs = std::filesystem;
using test::file_bytes;

engine::PagePicture small_page()
{
    return test::make_rgb_picture(16, 12, [](int x, int) {
        return std::array<std::uint8_t, 3>{static_cast<std::uint8_t>(x * 10), 80, 160};
    });
}

// The files a run stamps: a JPEG, a single-page TIFF with a Copyright of its own, and a
// multipage TIFF of two images.
std::vector<fs::path> write_outputs(const fs::path& folder, const std::string& stem)
{
    engine::OptionSnapshot snapshot;
    snapshot.thedpi = 72;
    snapshot.mtiffcopyright = "Global copyright";
    const std::vector<fs::path> files = {folder / (stem + ".jpg"), folder / (stem + "-lzw.tif"),
                                         folder / (stem + "-multi.tif")};
    write_jpeg(small_page(), files[0], {snapshot, 1, "", ""});
    write_tiff_single(small_page(), files[1], {snapshot, 5, "Source copyright", ""});
    MultipageTiff multipage;
    multipage.open(files[2], {snapshot, 8, "", ""});
    multipage.add_page(small_page(), {snapshot, 8, "", ""});
    multipage.add_page(small_page(), {snapshot, 8, "", ""});
    multipage.close();
    return files;
}

// The stamp as ExifTool makes it from the same texts, each text one argument of its own.
void stamp_with_exiftool(const std::vector<fs::path>& files, const engine::StampRequest& request)
{
    std::vector<std::string> argv = {"exiftool", "-q", "-q",
                                     "-XResolution=" + request.dots_per_inch,
                                     "-YResolution=" + request.dots_per_inch};
    if (const std::string copyright = engine::trim(request.copyright); !copyright.empty()) {
        argv.push_back("-copyright=" + engine::santitext(copyright));
    }
    if (const std::string author = engine::trim(request.author); !author.empty()) {
        argv.push_back("-artist=" + engine::santitext(author));
        argv.push_back("-author=" + engine::santitext(author));
    }
    argv.push_back("-overwrite_original");
    argv.insert(argv.end(), files.begin(), files.end());
    test::run_program(argv);
}

using Tags = std::set<std::string>;

// "exiftool -j -a -G1" of each file, by its name: its lines "GROUP:TAG": VALUE, leaving
// out what describes the file rather than its content: its name, folder, size, dates and
// permissions, the reader's version, where the image data lies (strip offsets), and which
// program wrote the XMP packet (the toolkit is kept as present, not by value).
std::map<std::string, Tags> read_back(const std::vector<fs::path>& files)
{
    std::vector<std::string> argv = {"exiftool", "-j", "-a", "-G1"};
    argv.insert(argv.end(), files.begin(), files.end());
    std::map<std::string, Tags> result;
    std::istringstream lines(test::run_program(argv).output);
    Tags* current = nullptr;
    for (std::string line; std::getline(lines, line);) {
        if (line.size() < 4) {
            continue;
        }
        line = line.substr(2, line.size() - 2 - (line.back() == ',' ? 1 : 0));
        if (line.starts_with("\"SourceFile\": ")) {
            current = &result[line.substr(15, line.size() - 16)];
        } else if (current != nullptr && line.starts_with("\"") && !line.starts_with("\"System:") &&
                   !line.starts_with("\"ExifTool:") && line.find(":StripOffsets\"") == std::string::npos) {
            current->insert(line.starts_with("\"XMP-x:XMPToolkit\"") ? "toolkit present" : line);
        }
    }
    return result;
}

TEST(ExifStamper, StampReadsBackAsExifToolsStampOfTheSameTexts)
{
    const std::string hostile = "He said \"hi\", it's `id` $HOME $(touch pwned) @home";
    const engine::StampRequest cases[] = {
        {"300", "", ""}, {"50", "  Owner 2024 ", "  Ann Author "}, {"150.5", hostile, hostile},
        {"", "Owner", "Ann"}, {"72", "\u201CCurly\u201D \u2018single\u2019 \u201Alow\u201E", ""},
        {"600", "M\u00FCller \u00A9 2024 \u2014 Zo\u00EB \u5317\u4EAC",
         "J\u00FCrgen \u00C5str\u00F6m \u5317\u4EAC"},
        {"96", "line one\r\nline two\\", "first\nsecond\ttab"},
        {"1200", "caf\xe9 \xff", "caf\xe9 \xc3"},
        {"72.3333333", "-copyright=twice", "#not a comment"},
        {"abc", "Owner", "Ann"}, {"72,5", "Owner", ""}, {"-5", "Owner", ""},
    };
    test::OutputFolder folder;
    std::vector<fs::path> all;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const std::string stem = "case" + std::to_string(i);
        const auto oracle = write_outputs(folder.path(), stem + "-exiftool");
        const auto native = write_outputs(folder.path(), stem + "-native");
        stamp_with_exiftool(oracle, cases[i]);
        for (const auto& file : native) {
            EXPECT_TRUE(stamp_file(file, cases[i])) << file;
        }
        all.insert(all.end(), oracle.begin(), oracle.end());
        all.insert(all.end(), native.begin(), native.end());
    }
    const auto tags = read_back(all);
    for (std::size_t i = 0; i < all.size(); i += 6) { // each case's oracle files, then its own
        for (std::size_t kind = 0; kind < 3; ++kind) {
            const auto& c = cases[i / 6];
            EXPECT_EQ(tags.at(all[i + 3 + kind].string()), tags.at(all[i + kind].string()))
                << all[i + 4 + kind] << ": resolution \"" << c.dots_per_inch << "\", copyright \""
                << c.copyright << "\", author \"" << c.author << "\"";
        }
    }
    // The readings compared are the stamped tags themselves.
    for (const char* line : {"\"IFD0:Artist\": \"Ann Author\"", "\"XMP-pdf:Author\": \"Ann Author\"",
                             "\"IFD0:XResolution\": 50", "\"JFIF:XResolution\": 50"}) {
        EXPECT_TRUE(tags.at((folder / "case1-native.jpg").string()).contains(line)) << line;
    }
    EXPECT_TRUE(
        tags.at((folder / "case1-native-multi.tif").string()).contains("\"IFD1:XResolution\": 72"));
    EXPECT_FALSE(fs::exists(folder / "pwned"));
}

TEST(ExifStamper, FilesItCannotStampStayAsTheyWere)
{
    test::OutputFolder folder;
    const auto whole = write_outputs(folder.path(), "whole");
    const std::string jpeg = file_bytes(whole[0]), tiff = file_bytes(whole[1]);
    const std::pair<const char*, std::string> cases[] = {
        {"empty.jpg", ""}, {"text.tif", "not a picture"}, {"cut-header.jpg", jpeg.substr(0, 12)},
        {"cut-directory.tif", tiff.substr(0, tiff.size() - 20)},
        {"bigtiff.tif", std::string("II\x2b\0\x08\0\0\0", 8) + tiff.substr(8)},
        {"far-directory.tif", std::string("II\x2a\0\xff\xff\xff\x7f", 8) + tiff.substr(8)},
    };
    for (const auto& [name, content] : cases) {
        test::write_text_file(folder / name, content);
        EXPECT_FALSE(stamp_file(folder / name, {"300", "Owner", "Ann"})) << name;
        EXPECT_EQ(file_bytes(folder / name), content) << name;
    }
    EXPECT_FALSE(stamp_file(folder / "missing.tif", {"300", "Owner", "Ann"}));
    EXPECT_FALSE(fs::exists(folder / "missing.tif"));
    EXPECT_EQ(folder.entries().size(), std::size(cases) + whole.size());
}

} // namespace
} // namespace qf::writers
