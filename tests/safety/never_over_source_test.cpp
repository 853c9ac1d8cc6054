// SPDX-License-Identifier: GPL-3.0-or-later
// An output whose path is a source document's takes the numbered name instead; the source
// stays byte for byte as it was, with its time and inode.
#include <gtest/gtest.h>
#include <map>

#include "engine/options.h"
#include "tests/support/engine_run.h"
#include "tests/support/output_checks.h"
#include "tests/support/process.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using engine::OptionId;

struct Collision {
    const char *title;
    const char *format;
    std::vector<const char *> sources; // created in "in/", run in this order
    bool combine = false;
    const char *combined_name = "";
    std::vector<const char *> expected; // what the run adds to "in/"
};

// The sources: PDFs of two pages (one when the name says "one"), TIFFs of one page (three when
// the name says "three").
void make_source(const fs::path &file)
{
    const std::string name = file.filename().string();
    if (name.find(".pdf") != std::string::npos || name.find(".PDF") != std::string::npos) {
        write_numbered_pdf(file, name.find("one") != std::string::npos ? 1 : 2);
    } else {
        const int pages = name.find("three") != std::string::npos ? 3 : 1;
        make_tiff(file, std::vector<TiffPage>(static_cast<std::size_t>(pages), TiffPage{}));
    }
}

TEST(NeverOverASource, EveryOutputKindTakesTheNumberedName)
{
    const Collision cases[] = {
        {"single-page TIFF of a one-page TIFF", "TIFF (Single Page)", {"scan.TIF"}, false, "", {"scan 1.TIF"}},
        {"multipage TIFF of a whole TIFF", "TIFF (Multipage)", {"three.TIF"}, false, "", {"three 1.TIF"}},
        {"single-page PDF of a one-page PDF", "PDF (Single Page)", {"one.PDF"}, false, "", {"one 1.PDF"}},
        {"multipage PDF of a whole PDF", "PDF (Multipage)", {"memo.PDF"}, false, "", {"memo 1.PDF"}},
        // A TIFF kept under a picture's name: the engine guards it whatever the extension.
        {"JPEG of a TIFF named .JPG", "JPEG", {"photo.JPG"}, false, "", {"photo 1.JPG"}},
        {"PNG of a TIFF named .PNG", "PNG", {"photo.PNG"}, false, "", {"photo 1.PNG"}},
        {"combined TIFF named as a source", "TIFF (Multipage)", {"a.tif", "Combine.tif"}, true, "", {"Combine 1.tif"}},
        {"combined PDF named as a source", "PDF (Multipage)", {"a.pdf", "memo.pdf"}, true, "memo.pdf", {"memo 1.pdf"}},
        // The first document's output would take the name of a source listed after it.
        {"a later source's name", "PDF (Multipage)", {"memo.pdf", "memo.PDF"}, false, "", {"memo 1.PDF", "memo 2.PDF"}},
        // A numbered name is one no file has yet, not even the run's own.
        {"a later source's name, per page", "TIFF (Single Page)", {"x.tif", "x.TIF"}, false, "", {"x 1.TIF", "x 2.TIF"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.title);
        TempFolder folder;
        const fs::path in = folder / "in";
        fs::create_directories(in);
        std::vector<engine::ListRow> rows;
        std::map<std::string, FileSeal> seals;
        for (const char *name : c.sources) {
            make_source(in / name);
            const bool picture_named =
                fs::path(name).extension() == ".JPG" || fs::path(name).extension() == ".PNG";
            rows.push_back(picture_named ? raw_row(in / name, 1) : admitted_row(in / name));
        }
        for (const char *name : c.sources) {
            seals[name] = seal_of(in / name);
        }
        RunHarness harness;
        auto values = options_for(in, c.format);
        values.set(OptionId::savein, std::string(engine::kSourceFolder));
        values.set(OptionId::combineall, c.combine);
        values.set(OptionId::combinedfilename, std::string(c.combined_name));
        harness.run(values, rows);

        for (const auto &[name, seal] : seals) {
            EXPECT_TRUE(seal_of(in / name) == seal) << name << " was changed";
        }
        std::vector<std::string> added;
        for (const auto &name : tree_of(in)) {
            if (!seals.count(name)) {
                added.push_back(name);
            }
        }
        std::vector<std::string> expected(c.expected.begin(), c.expected.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(added, expected) << ::testing::PrintToString(harness.lines);
        for (const auto &name : added) {
            EXPECT_EQ(undecodable(in / name), "") << name;
        }
        EXPECT_EQ(harness.batch.failures(), 0) << ::testing::PrintToString(harness.lines);
    }
}

TEST(NeverOverASource, TextAndPicturesBesideLinksToTheSourcesLeaveThemAlone)
{
    // An output folder holding links to the sources (symbolic and hard): the links name the
    // same files as the sources, so outputs take numbered names and the sources keep their bytes.
    TempFolder folder;
    fs::create_directories(folder / "in");
    fs::create_directories(folder / "out");
    write_numbered_pdf(folder / "in" / "notes.pdf", 2);
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}});
    fs::create_symlink(folder / "in" / "notes.pdf", folder / "out" / "notes.TXT");
    fs::create_hard_link(folder / "in" / "scan.tif", folder / "out" / "scan Page 001.PNG");
    const FileSeal notes = seal_of(folder / "in" / "notes.pdf");
    const FileSeal scan = seal_of(folder / "in" / "scan.tif");

    RunHarness harness;
    harness.run(options_for(folder / "out", "TEXT"), {admitted_row(folder / "in" / "notes.pdf")});
    harness.run(options_for(folder / "out", "PNG"), {admitted_row(folder / "in" / "scan.tif")});

    EXPECT_TRUE(seal_of(folder / "in" / "notes.pdf") == notes);
    EXPECT_TRUE(seal_of(folder / "in" / "scan.tif") == scan);
    EXPECT_TRUE(fs::is_symlink(folder / "out" / "notes.TXT"));
    EXPECT_EQ(undecodable(folder / "out" / "notes 1.TXT"), "");
    EXPECT_EQ(undecodable(folder / "out" / "scan Page 001 1.PNG"), "");
    EXPECT_EQ(undecodable(folder / "out" / "scan Page 002.PNG"), "");
}

} // namespace
} // namespace qf::test
