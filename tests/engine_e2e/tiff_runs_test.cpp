// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs over TIFF documents: names, pixels and log lines of what was written.
#include <algorithm>
#include <typeinfo>
#include <gtest/gtest.h>

#include "tests/support/engine_run.h"
#include "tests/support/image_checks.h"
#include "tests/support/output_checks.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

class TiffRuns : public ::testing::Test {
protected:
    TempFolder folder;
    RunHarness harness;
    fs::path out() const { return folder.path() / "out"; }
};

// The picture `index` of an output file, whatever its kind.
DecodedImage picture_in(const fs::path &file, std::size_t index)
{
    const std::string extension = file.extension().string();
    if (extension == ".PNG") {
        return read_png(file).image;
    }
    return extension == ".JPG" ? read_jpeg(file).image : read_tiff(file).at(index).image;
}

// Selections keep their order and repeats, outputs are named by page number, one-page
// documents by the document alone, a tiled file is one page showing its second image, and a
// combined run appends every document to the one file.
TEST_F(TiffRuns, OutputsFollowTheSelectionAndTheKind)
{
    make_tiff(folder / "book.tif", std::vector<TiffPage>(4, TiffPage{}));
    make_tiff(folder / "single.tif", {TiffPage{}});
    make_tiff(folder / "tiled.tiff", {TiffPage{.tiled = true}, TiffPage{.width = 32, .height = 32, .tiled = true}});
    make_tiff(folder / "b.tif", {TiffPage{.width = 20, .height = 10}});
    // ranges: empty for every page
    // picture: one of `written`, its image `index`: width and lower right pixel
    const struct { const char *format; std::vector<const char *> documents; const char *ranges;
                   const char *combined; std::vector<std::string> written; const char *last_line;
                   const char *picture; std::size_t index; int width; std::array<std::uint8_t, 3> corner;
                   } cases[] = {
        {"PNG", {"book.tif"}, "4,2", "", {"book Page 002.PNG", "book Page 004.PNG"}, "book Page 002.PNG has been Saved",
         "book Page 004.PNG", 0, 64, {230, 200, 20}},
        {"TIFF (Multipage)", {"book.tif"}, "2,3,2", "", {"book Page 002 to 002.TIF"}, "Close TIFF",
         "book Page 002 to 002.TIF", 1, 64, {40, 60, 210}},
        {"JPEG", {"single.tif", "tiled.tiff"}, "", "", {"single.JPG", "tiled.JPG"}, "tiled.JPG has been Saved",
         "tiled.JPG", 0, 32, {}},
        {"TIFF (Multipage)", {"book.tif", "b.tif"}, "", "All", {"All.tif"}, "b.TIF has been Saved", "All.tif", 4, 20, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.format) + " of " + c.documents[0]);
        fs::remove_all(out());
        auto values = options_for(out(), c.format);
        values.set(OptionId::usepageranges, c.ranges[0] != '\0');
        values.set(OptionId::combineall, c.combined[0] != '\0');
        values.set(OptionId::combinedfilename, std::string(c.combined));
        std::vector<engine::ListRow> rows;
        for (const char *document : c.documents) {
            rows.push_back(admitted_row(folder / document));
            if (c.ranges[0] != '\0') {
                rows.back().cells[engine::column::ranges] = c.ranges;
            }
        }
        harness.run(values, rows);
        EXPECT_EQ(tree_of(out()), c.written);
        EXPECT_EQ(harness.lines.back(), c.last_line);
        EXPECT_EQ(std::count(harness.lines.begin(), harness.lines.end(), "Close TIFF"), c.last_line == std::string("Close TIFF"));
        const DecodedImage picture = picture_in(out() / c.picture, c.index);
        EXPECT_EQ(picture.width, c.width);
        if (c.corner != std::array<std::uint8_t, 3>{}) {
            EXPECT_EQ(picture.rgb_at(63, 47), c.corner);
        }
    }
}

TEST_F(TiffRuns, AnUnexpectedErrorFailsItsDocumentAndTheRunGoesOn)
{
    const auto first = folder / "first.tif";
    const auto second = folder / "second.tif";
    make_tiff(first, {TiffPage{}});
    make_tiff(second, {TiffPage{}});
    struct NotAStdException {};
    // Where a library throws something of its own, and the line its document then gets.
    // opening: else writing
    const struct { const char* title; bool opening; void (*raise)(); const char* line; } cases[] = {
        {"out of memory while opening", true, [] { throw std::bad_alloc(); },
         "first.tif could not be opened: not enough memory"},
        {"a type of its own while opening", true, [] { throw NotAStdException(); },
         "first.tif could not be opened: an unexpected internal error"},
        {"a standard error while writing", false, [] { throw std::bad_cast(); },
         "first.tif page 1 could not be converted: an unexpected internal error"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        fs::remove_all(out());
        engine::RunServices services = real_services();
        if (c.opening) {
            services.open_tiff = [open = services.open_tiff, &c](const engine::DocumentToOpen& document) {
                if (document.path.filename() == "first.tif") {
                    c.raise();
                }
                return open(document);
            };
        } else {
            services.write_png = [write = services.write_png, &c](const engine::PagePicture& picture, const fs::path& target,
                                                                  const engine::PageWriteContext& context) {
                if (target.filename().string().find("first") != std::string::npos) {
                    c.raise();
                }
                write(picture, target, context);
            };
        }
        engine::BatchRun batch(std::move(services));
        std::vector<std::string> lines;
        batch.set_listener([&](const engine::RunEvent& event) { lines.push_back(event.line); });
        batch.prepare(options_for(out(), "PNG"), {admitted_row(first), admitted_row(second)});
        batch.processall();
        EXPECT_TRUE(batch.Timer1_Action().ended);
        EXPECT_TRUE(has_line(lines, c.line)) << ::testing::PrintToString(lines);
        EXPECT_TRUE(has_line(lines, "second.PNG has been Saved"));
        EXPECT_EQ(batch.failures(), 1);
    }
}

} // namespace
} // namespace qf::test
