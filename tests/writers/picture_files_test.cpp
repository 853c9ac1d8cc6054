// SPDX-License-Identifier: GPL-3.0-or-later
// The picture files a run writes, and the stamp they get afterwards.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "engine/error.h"
#include "engine/run_model.h"
#include "engine/text_rules.h"
#include "engine/version.h"
#include "settings/option_table.h"
#include "tests/support/hostile_files.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "tests/support/tiff_fixtures.h"
#include "writers/deep_colour.h"
#include "writers/exif_stamper.h"
#include "writers/jpeg_writer.h"
#include "writers/picture_checks.h"
#include "writers/png_writer.h"
#include "writers/tiff_writer.h"

namespace qf::writers {
namespace {

namespace fs = std::filesystem;
using engine::PagePicture;
using test::file_bytes;
using Rgb = std::array<std::uint8_t, 3>;

constexpr Rgb kRed{220, 20, 30}, kGreen{10, 200, 40}, kBlue{30, 40, 210}, kWhite{255, 255, 255},
              kBlack{0, 0, 0};

// 64 x 48 pixels in four flat quadrants, which a JPEG encoder keeps close to their colours.
PagePicture quadrants()
{
    return test::make_rgb_picture(64, 48, [](int x, int y) {
        return y < 24 ? (x < 32 ? kRed : kGreen) : (x < 32 ? kBlue : kWhite);
    });
}

// The page's own colour at (x, y), bilevel pages as black and white.
Rgb colour_of(const PagePicture& page, int x, int y)
{
    const PagePicture rgb = engine::to_rgb(page);
    const auto* p = rgb.pixels.data() + rgb.stride() * y + 3 * x;
    return {p[0], p[1], p[2]};
}

// Progressive JFIF in RGB whatever the page, the run's resolution as its density.
TEST(JpegWriter, WritesProgressiveRgbWithTheRunsResolution)
{
    // A bilevel page (left half black) goes through the same expansion to RGB.
    PagePicture bilevel{.width = 64, .height = 48, .format = engine::PixelFormat::Bilevel};
    for (int y = 0; y < 48; ++y) {
        bilevel.pixels.insert(bilevel.pixels.end(), {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0});
    }
    const struct { int thedpi, density; bool bilevel; } cases[] = {
        {150, 150, false}, {100000, 65535, true}};
    test::OutputFolder folder;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.thedpi);
        engine::OptionSnapshot snapshot;
        snapshot.mjpgquality = "90";
        snapshot.thedpi = c.thedpi;
        const PagePicture page = c.bilevel ? bilevel : quadrants();
        write_jpeg(page, folder / "page.jpg", {snapshot, 1, "", ""});

        const test::JpegFile jpeg = test::read_jpeg(folder / "page.jpg");
        EXPECT_EQ(std::tuple(jpeg.progressive, jpeg.jfif, jpeg.density_unit, jpeg.x_density,
                             jpeg.y_density, jpeg.image.components, jpeg.image.width, jpeg.image.height),
                  std::tuple(true, true, 1, c.density, c.density, 3, 64, 48));
        for (const auto& [x, y] : {std::pair{8, 8}, {56, 8}, {8, 40}, {56, 40}}) {
            const Rgb expected = colour_of(page, x, y), actual = jpeg.image.rgb_at(x, y);
            for (int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(actual[channel], expected[channel], 12) << x << "," << y;
            }
        }
        // The run's quality reaches the encoder.
        snapshot.mjpgquality = "5";
        write_jpeg(page, folder / "low.jpg", {snapshot, 1, "", ""});
        EXPECT_LT(file_bytes(folder / "low.jpg").size(), file_bytes(folder / "page.jpg").size());
    }
}

// A page replaces an earlier file of its name; a page no encoder can take throws and leaves
// the earlier file whole, with no temporary beside it.
TEST(PictureWriters, ReplaceTheEarlierFileOnlyWithAWholeOne)
{
    const struct { engine::PictureFileWriter write; const char* name;
                   int (*width)(const std::filesystem::path&); } writers[] = {
        {write_jpeg, "kept.jpg", [](const std::filesystem::path& file) { return test::read_jpeg(file).image.width; }},
        {write_png, "kept.png", [](const std::filesystem::path& file) { return test::read_png(file).image.width; }},
        {write_tiff_single, "kept.tif", [](const std::filesystem::path& file) { return test::read_tiff(file).at(0).width; }},
    };
    test::OutputFolder folder;
    engine::OptionSnapshot snapshot;
    PagePicture truncated = quadrants();
    truncated.pixels.resize(truncated.pixels.size() / 2);
    for (const auto& writer : writers) {
        const auto target = folder / writer.name;
        writer.write(test::make_rgb_picture(8, 8, [](int, int) { return kRed; }), target,
                     {snapshot, 1, "", ""});
        writer.write(quadrants(), target, {snapshot, 1, "", ""});
        EXPECT_EQ(writer.width(target), 64) << writer.name;
        const std::string before = file_bytes(target);
        for (const auto& bad : {PagePicture{}, truncated}) {
            EXPECT_THROW(writer.write(bad, target, {snapshot, 1, "", ""}), engine::Error);
            EXPECT_EQ(file_bytes(target), before) << writer.name;
        }
    }
    // What the JPEG library itself refuses (wider than 65,500 pixels) fails the same way.
    const auto kept = file_bytes(folder / "kept.jpg");
    EXPECT_THROW(write_jpeg(test::make_rgb_picture(70000, 1, [](int, int) { return kRed; }), folder / "kept.jpg",
                            {snapshot, 1, "", ""}),
                 engine::Error);
    EXPECT_EQ(file_bytes(folder / "kept.jpg"), kept);
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"kept.jpg", "kept.png", "kept.tif"}));
}

// The threshold is taken eight pixels at a time with a shortcut for white; every width's tail,
// pixels just either side of mid-grey and saturated colours must come out as the luminance says.
TEST(PictureWriters, BilevelThresholdFollowsLuminanceAtEveryWidth)
{
    const Rgb palette[] = {kWhite, {0, 0, 0}, {128, 128, 128}, {127, 128, 128},
                           kRed,   kGreen,    kBlue,           {255, 255, 254}};
    for (const int width : {1, 7, 8, 9, 16, 23, 64, 101}) {
        // Mostly white, so the shortcut is taken, with runs of other colours.
        const auto colour_at = [&](int x, int y) {
            return (x / 3 + y) % 4 == 0 ? palette[(x * 7 + y * 3) % 8] : kWhite;
        };
        const PagePicture bilevel = to_bilevel(test::make_rgb_picture(width, 5, colour_at));
        ASSERT_EQ(bilevel.format, engine::PixelFormat::Bilevel);
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < width; ++x) {
                const Rgb c = colour_at(x, y);
                EXPECT_EQ(colour_of(bilevel, x, y) == kBlack,
                          299 * c[0] + 587 * c[1] + 114 * c[2] < 128000)
                    << "pixel " << x << "," << y << " of width " << width;
            }
        }
    }
}

const std::string kSoftware = std::string("Quirefold v") + engine::kLongVersion;

// Columns of dark and light colours, 8 pixels wide each; the pattern survives thresholding.
const Rgb kStripes[] = {{10, 10, 10},    {250, 240, 230}, {180, 0, 0},
                        {100, 255, 120}, {0, 0, 255},     {255, 255, 0}};

PagePicture striped(int width, int height)
{
    return test::make_rgb_picture(width, height, [](int x, int) { return kStripes[(x / 8) % 6]; });
}

PagePicture flat(Rgb colour, int side = 16)
{
    return test::make_rgb_picture(side, side, [colour](int, int) { return colour; });
}

engine::OptionSnapshot run_snapshot()
{
    engine::OptionSnapshot snapshot;
    snapshot.mjpgquality = "92";
    snapshot.thedpi = 200;
    snapshot.mtiffcopyright = "Global copyright";
    snapshot.mtiffdocumentname = "Global name";
    return snapshot;
}

// The reason of the output error `action` throws; empty when it throws none.
std::string reason_of(const std::function<void()>& action)
{
    try {
        action();
    } catch (const engine::Error& error) {
        EXPECT_EQ(error.kind(), engine::ErrorKind::Output);
        return error.reason();
    }
    return "";
}

void expect_near(const Rgb& actual, const Rgb& expected, int tolerance)
{
    for (int channel = 0; channel < 3; ++channel) {
        EXPECT_NEAR(actual[channel], expected[channel], tolerance) << "channel " << channel;
    }
}

// Each row of the compression popup through the run's coding to the file, then codes the
// writer does not know, which fall back to no compression. The source's copyright and
// document name are the file's unless blank, when the run's are.
TEST(TiffWriter, EveryCompressionCodeGivesAReadableFileOfItsForm)
{
    // row: of the popup; -1 takes `code` as it stands
    // source_text: the source's copyright and document name
    const struct { int row, code, compression; bool bilevel; const char* source_text = ""; } cases[] = {
        {0, 0, 1, false, "  Source (c) "}, {1, 0, 32773, false, " \t"}, {2, 0, 5, false},
        {3, 0, 3, true},   {4, 0, 4, true},   {5, 0, 7, false},   {6, 0, 8, false},  {7, 0, 2, true},
        {-1, 6, 1, false},
    };
    test::OutputFolder folder;
    const auto target = folder / "page.tif";
    for (const auto& c : cases) {
        int tiffcode = c.code;
        if (c.row >= 0) {
            engine::OptionValues values = settings::default_values();
            values.set(engine::OptionId::tiffcompression, c.row);
            engine::OptionSnapshot taken;
            engine::take_snapshot(values, 1, taken);
            tiffcode = engine::tiff_compression_code(taken.mtiffcompression);
        }
        SCOPED_TRACE("code " + std::to_string(tiffcode));
        write_tiff_single(striped(100, 70), target,
                          {run_snapshot(), tiffcode, c.source_text, c.source_text});

        const auto images = test::read_tiff(target);
        ASSERT_EQ(images.size(), 1u);
        const test::TiffImage& tiff = images[0];
        EXPECT_EQ(std::tuple(tiff.compression, tiff.photometric, tiff.bits_per_sample, tiff.y_resolution,
                             tiff.resolution_unit, tiff.software.value_or("")),
                  std::tuple(c.compression, c.bilevel ? 0 : 2, c.bilevel ? 1 : 8, 200.0f, 2, kSoftware));
        const bool own = c.row == 0; // the one row whose source has texts, kept as they are
        EXPECT_EQ(tiff.copyright.value_or(""), own ? c.source_text : "Global copyright");
        EXPECT_EQ(tiff.document_name.value_or(""), own ? c.source_text : "Global name");
        if (c.compression == 7) {
            EXPECT_EQ(tiff.rows_per_strip, 32u);
            EXPECT_EQ(tiff.fill_order, 2);
        }
        for (int stripe = 0; stripe < 6; ++stripe) {
            const Rgb expected = !c.bilevel ? kStripes[stripe] : stripe % 2 ? kWhite : kBlack;
            expect_near(tiff.image.rgb_at(stripe * 8 + 4, 35), expected, c.compression == 7 ? 16 : 0);
        }
    }
}

// Group 4 pages decode in libtiff to exactly their pixels, whichever mode and run codes the
// rows call for, at any width, across strip boundaries, whatever the bits past the last column.
TEST(TiffWriter, GroupFourPagesDecodeToExactlyTheirPixels)
{
    const auto edge = [](int y) { return 50 + (y % 2) * (y / 2 % 7 - 3); }; // moves -3 to +3
    const struct {
        const char* name;
        int width, height;
        std::function<bool(int x, int y)> black;
    } cases[] = {
        {"all white", 1, 3, [](int, int) { return false; }},
        {"all black", 70, 3, [](int, int) { return true; }},
        {"first and last columns", 129, 4, [](int x, int) { return x == 0 || x == 128; }},
        {"alternating", 63, 4, [](int x, int y) { return (x + y) % 2 == 0; }},
        {"each make-up code", 1800, 28, [](int x, int y) { return x >= 64 * y + 10; }},
        {"runs past 2560", 6000, 5, [](int x, int y) { return y % 2 ? x >= 3 * y && x < 5900 : x >= 5990; }},
        {"vertical", 100, 28, [&](int x, int y) { return x >= edge(y) && x < edge(y) + 9; }},
        {"pass", 80, 6, [](int x, int y) { return y % 2 ? x >= 40 && x < 50 : x >= 9 && x < 15; }},
        {"blocks", 1001, 150, [](int x, int y) { return (x / (3 + y % 4) + y / 5) % 3 == 0; }},
        {"noise", 777, 200, [](int x, int y) { return (x * 2654435761u ^ y * 40503u) >> 29 == 0; }},
    };
    test::OutputFolder folder;
    for (const auto& c : cases) {
        PagePicture page{.width = c.width, .height = c.height, .format = engine::PixelFormat::Bilevel};
        const std::size_t stride = page.stride();
        page.pixels.assign(stride * c.height, 0);
        for (int y = 0; y < c.height; ++y) {
            for (int x = 0; x < static_cast<int>(stride * 8); ++x) {
                if (x >= c.width || c.black(x, y)) {
                    page.pixels[stride * y + x / 8] |= 0x80 >> (x % 8);
                }
            }
        }
        write_tiff_single(page, folder / "g4.tif", {run_snapshot(), 4, "", ""});
        const test::TiffImage tiff = test::read_tiff(folder / "g4.tif").at(0);
        ASSERT_EQ(std::tuple(tiff.compression, tiff.width, tiff.height), std::tuple(4, c.width, c.height));
        int wrong = 0;
        for (int y = 0; y < c.height; ++y) {
            for (int x = 0; x < c.width; ++x) {
                wrong += (tiff.image.rgb_at(x, y)[0] == 0) != c.black(x, y);
            }
        }
        EXPECT_EQ(wrong, 0) << c.name;
    }
}

// The writer's life through a run: files of the pages that could be added, in order, each with
// its own compression and the run's texts (never the source's; an empty global copyright is an
// empty tag), one file a document when reused, the open file finished by the next open, and
// nothing visible of a file before its close, nor left of one that had no page or was never
// closed. Steps: "o NAME" open, "+" a page, "x" a page it refuses (empty, or too wide for
// JPEG), "c" close, "e" a close that must fail.
TEST(MultipageTiff, EveryFileHoldsThePagesThatWereAddedOrIsNotThere)
{
    // files: name and page count
    const struct { std::vector<std::string> steps; std::vector<std::pair<std::string, std::size_t>> files;
                   } cases[] = {
        {{"o mixed.tif", "+", "x", "x", "+", "c"}, {{"mixed.tif", 2}}},
        {{"o none.tif", "x", "e"}, {}},
        {{"o abandoned.tif", "+"}, {}},
        {{"o a.tif", "+", "o b.tif", "+", "+", "+", "+", "c", "o c.tif", "+", "c"},
         {{"a.tif", 1}, {"b.tif", 4}, {"c.tif", 1}}},
    };
    engine::OptionSnapshot snapshot = run_snapshot();
    snapshot.mtiffcopyright = "";
    const Rgb colours[] = {{200, 30, 30}, {20, 20, 20}, {30, 30, 200}, {30, 200, 30}};
    const int codes[] = {5, 4, 7, 32773};
    const PagePicture too_wide = test::make_rgb_picture(70000, 1, [](int, int) { return kWhite; });
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.steps));
        test::OutputFolder folder;
        {
            MultipageTiff writer;
            bool refused_empty = false;
            int added = 0;
            std::filesystem::path current;
            for (const std::string& step : c.steps) {
                if (step.starts_with("o ")) {
                    current = folder / step.substr(2);
                    writer.open(current, {snapshot, 5, "", ""});
                    added = 0;
                } else if (step == "+") {
                    writer.add_page(flat(colours[added % 4]),
                                    {snapshot, codes[added % 4], "Source (c)", "Source name"});
                    ++added;
                } else if (step == "x") {
                    EXPECT_THROW(refused_empty ? writer.add_page(too_wide, {snapshot, 7, "", ""})
                                               : writer.add_page(PagePicture{}, {snapshot, 5, "", ""}),
                                 engine::Error);
                    refused_empty = !refused_empty;
                } else if (step == "c") {
                    EXPECT_FALSE(std::filesystem::exists(current)) << "visible before close";
                    writer.close();
                } else {
                    EXPECT_EQ(reason_of([&] { writer.close(); }), "no page could be added");
                }
            }
        }
        std::vector<std::string> names;
        for (const auto& [name, pages] : c.files) {
            names.push_back(name);
            const auto images = test::read_tiff(folder / name);
            EXPECT_EQ(images.size(), pages) << name;
            for (std::size_t page = 0; page < images.size(); ++page) {
                const test::TiffImage& tiff = images[page];
                EXPECT_EQ(std::tuple(tiff.compression, tiff.copyright, tiff.document_name,
                                     tiff.x_resolution, tiff.software.value_or("")),
                          std::tuple(codes[page % 4], "", "Global name", 200.0f, kSoftware));
                expect_near(tiff.image.rgb_at(10, 8), codes[page % 4] == 4 ? kBlack : colours[page % 4],
                            codes[page % 4] == 7 ? 8 : 0);
            }
        }
        EXPECT_EQ(folder.entries(), names);
    }
}

// A multipage file that grows past the 4 GiB a TIFF can address is refused in libtiff's own
// words, and nothing of it is left. (The open file is grown sparsely to get there at once.)
TEST(MultipageTiff, AFilePastFourGibIsRefusedWithTheLibrarysReason)
{
    test::OutputFolder folder;
    const engine::OptionSnapshot snapshot = run_snapshot();
    MultipageTiff writer;
    writer.open(folder / "huge.tif", {snapshot, 1, "", ""});
    writer.add_page(flat(kRed), {snapshot, 1, "", ""});
    ASSERT_EQ(folder.entries().size(), 1u);
    fs::resize_file(folder / folder.entries()[0], std::uintmax_t{1} << 32);
    EXPECT_EQ(reason_of([&] { writer.add_page(flat(kRed), {snapshot, 1, "", ""}); }),
              "TIFFAppendToStrip: Maximum TIFF file size exceeded");
    EXPECT_NE(reason_of([&] { writer.close(); }), "");
    EXPECT_EQ(folder.entries(), std::vector<std::string>{});
}

// Deep colour rewrites every image of a file as 16-bit RGB, keeping lossless compressions and
// turning the others into LZW; the first two columns, black and white, survive every code.
TEST(DeepColour, EveryImageBecomesSixteenBitRgb)
{
    const Rgb colours[] = {{0, 0, 0}, {255, 255, 255}, {200, 100, 50}, {1, 254, 128}};
    const PagePicture columns =
        test::make_rgb_picture(32, 16, [&](int x, int) { return colours[x / 8]; });
    // Code and compression after; the first two are lossless: every colour comes back widened.
    const std::pair<int, int> cases[] = {{1, 1}, {32773, 32773}, {7, 5}, {4, 5}};
    test::OutputFolder folder;
    const engine::OptionSnapshot snapshot = run_snapshot();
    // Names mean nothing to the image library.
    const char* names[] = {"scan[0].tif", "png:odd.tif"};
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto [tiffcode, compression_after] = cases[i];
        const bool lossless = i < 2;
        SCOPED_TRACE(tiffcode);
        const auto file = folder / (lossless ? names[i] : "deep" + std::to_string(i) + ".tif");
        write_tiff_single(columns, file, {snapshot, tiffcode, "", ""});
        writergb48(file);

        const auto images = test::read_tiff(file);
        ASSERT_EQ(images.size(), 1u);
        EXPECT_EQ(std::tuple(images[0].bits_per_sample, images[0].photometric, images[0].compression),
                  std::tuple(16, 2, compression_after));
        const std::vector<std::uint16_t>& samples = images[0].samples16;
        ASSERT_EQ(samples.size(), 32u * 16u * 3u);
        for (int column = 0; column < (lossless ? 4 : 2); ++column) {
            const std::size_t at = (5u * 32u + column * 8u + 3u) * 3u;
            for (int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(samples[at + channel], colours[column][channel] * 257, lossless ? 0 : 1028)
                    << "column " << column << " channel " << channel;
            }
        }
    }
    EXPECT_EQ(folder.entries().size(), std::size(cases)) << "a temporary was left behind";

    test::make_tiff(folder / "pages.tif", {{}, {}, {}, {}});
    writergb48(folder / "pages.tif");
    const auto pages = test::read_tiff(folder / "pages.tif");
    ASSERT_EQ(pages.size(), 4u);
    for (int page = 0; page < 4; ++page) {
        EXPECT_EQ(pages[page].samples16.at(0), test::page_colour(page).r * 257);
    }
}

// A missing file is left missing; one the image library cannot read gives an output error and
// stays as it was.
TEST(DeepColour, FilesItCannotRewriteAreLeftAlone)
{
    test::OutputFolder folder;
    EXPECT_NO_THROW(writergb48(folder / "absent.tif"));
    const std::string garbage = std::string("II*\0", 4) + " this is not really a TIFF";
    test::write_text_file(folder / "broken.tif", garbage);
    EXPECT_NE(reason_of([&] { writergb48(folder / "broken.tif"); }), "");
    EXPECT_EQ(test::file_bytes(folder / "broken.tif"), garbage);
    EXPECT_EQ(folder.entries(), std::vector<std::string>{"broken.tif"});
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
    write_jpeg(quadrants(), files[0], {snapshot, 1, "", ""});
    write_tiff_single(quadrants(), files[1], {snapshot, 5, "Source copyright", ""});
    MultipageTiff multipage;
    multipage.open(files[2], {snapshot, 8, "", ""});
    multipage.add_page(quadrants(), {snapshot, 8, "", ""});
    multipage.add_page(quadrants(), {snapshot, 8, "", ""});
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
        {"300", "", ""}, {"1", "  Owner 2024 ", "  Ann Author "}, {"150.5", hostile, hostile},
        {"", "Owner", "Ann"}, {"72", "\u201CCurly\u201D \u2018single\u2019 \u201Alow\u201E", ""},
        {"600", "M\u00FCller \u00A9 2024 \u2014 Zo\u00EB \u5317\u4EAC", "first\nsecond\ttab"},
        {"1200", "caf\xe9 \xff", "caf\xe9 \xc3 \u30BF \xf0\x8f\xbf\xbf \xed\xa0\x80 \xf4\x90\x80\x80"},
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
    EXPECT_TRUE(tags.at((folder / "case1-native.jpg").string())
                    .contains("\"IFD0:Artist\": \"Ann Author\""));
    EXPECT_TRUE(
        tags.at((folder / "case1-native-multi.tif").string()).contains("\"IFD1:XResolution\": 72"));
    EXPECT_FALSE(fs::exists(folder / "pwned"));
    // An overlong, a surrogate and a too-high sequence in the author never reach the XMP
    // (readers would hide them).
    const std::string jpeg = file_bytes(folder / "case6-native.jpg");
    const std::string xmp = jpeg.substr(jpeg.find("http://ns.adobe.com/xap/1.0/"));
    for (const char* bad : {"\xf0\x8f\xbf\xbf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
        EXPECT_EQ(xmp.find(bad), std::string::npos);
    }
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
