// SPDX-License-Identifier: GPL-3.0-or-later
// Two command lines at once, sharing the work folder, and sometimes the output folder.
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/output_checks.h"
#include "tests/support/process.h"
#include "tests/support/image_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

// A PDF whose pages show "<tag> N" for N from 1.
void write_tagged_pdf(const fs::path &file, const std::string &tag, int pages)
{
    std::vector<PdfPageSpec> specs;
    for (int n = 1; n <= pages; ++n) {
        specs.push_back(PdfPageSpec{.texts = {PdfText{.text = tag + " " + std::to_string(n)}}});
    }
    write_pdf(file, specs);
}

std::vector<std::string> labels_of(const fs::path &pdf)
{
    QPDF document;
    open_pdf(document, pdf);
    return page_labels(document);
}

std::vector<std::string> expected_labels(const std::vector<std::string> &tags, int pages)
{
    std::vector<std::string> labels;
    for (const auto &tag : tags) {
        for (int n = 1; n <= pages; ++n) {
            labels.push_back(tag + " " + std::to_string(n));
        }
    }
    return labels;
}

class TwoRunsAtOnce : public ::testing::Test
{
  protected:
    // Documents "<side>/<name>.pdf" tagged "<side> <name>", of `pages` pages each.
    std::vector<std::string> documents(const std::string &side,
                                       const std::vector<std::string> &names, int pages)
    {
        fs::create_directories(folder / side);
        std::vector<std::string> paths;
        for (const auto &name : names) {
            const fs::path file = folder / side / (name + ".pdf");
            write_tagged_pdf(file, side + " " + name, pages);
            paths.push_back(file.string());
        }
        return paths;
    }

    TempFolder folder;
    const fs::path data_home = folder / "data";
};

TEST_F(TwoRunsAtOnce, SeparateFoldersDoNotDisturbEachOther)
{
    const std::vector<std::string> names{"a", "b", "c", "d", "e", "f"};
    const auto left = documents("left", names, 4);
    const auto right = documents("right", names, 4);
    for (const char *format : {"PDF (Multipage)", "TIFF (Multipage)"}) {
        SCOPED_TRACE(format);
        fs::remove_all(folder / "out-left");
        fs::remove_all(folder / "out-right");
        auto arguments = [&](const std::string &side, const std::vector<std::string> &inputs) {
            std::vector<std::string> list{"--format",
                                          format,
                                          "--combineall",
                                          "--dpi",
                                          "36",
                                          "-o",
                                          (folder / ("out-" + side)).string()};
            list.insert(list.end(), inputs.begin(), inputs.end());
            return list;
        };
        CliChild one(arguments("left", left), {data_home});
        CliChild two(arguments("right", right), {data_home});
        EXPECT_EQ(one.finish(), 0) << one.err();
        EXPECT_EQ(two.finish(), 0) << two.err();
        for (const std::string side : {"left", "right"}) {
            const fs::path out = folder / ("out-" + side);
            const bool pdf = std::string(format).find("PDF") != std::string::npos;
            const std::string combined = pdf ? "Combine.PDF" : "Combine.tif";
            EXPECT_EQ(tree_of(out), std::vector<std::string>{combined});
            EXPECT_EQ(undecodable(out / combined), "");
            if (pdf) {
                std::vector<std::string> tags;
                for (const auto &name : names) {
                    tags.push_back(side + " " + name);
                }
                EXPECT_EQ(labels_of(out / combined), expected_labels(tags, 4)) << side;
            } else {
                EXPECT_EQ(read_tiff(out / combined).size(), names.size() * 4) << side;
            }
        }
        EXPECT_EQ(scratch_left(data_home), std::vector<std::string>{});
    }
}

// What a whole-document output of a tagged document shows, one entry a page: its labels for a
// PDF, its lines for a text file, and for a TIFF only how many pages it has.
std::vector<std::string> shown_by(const fs::path &file)
{
    if (file.extension() == ".PDF") {
        return labels_of(file);
    }
    std::vector<std::string> shown;
    if (file.extension() == ".TXT") {
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            shown.push_back(line);
        }
        return shown;
    }
    return std::vector<std::string>(read_tiff(file).size(), "a page");
}

TEST_F(TwoRunsAtOnce, CollidingNamesInOneFolderGiveDistinctWholeFiles)
{
    // Both runs convert a document named "a" as a whole into the same folder: the numbering
    // rule must give each its own file even when both look for a free name at once.
    const struct
    {
        const char *format;
        const char *extension;
    } kinds[] = {{"PDF (Multipage)", ".PDF"}, {"TIFF (Multipage)", ".TIF"}, {"TEXT", ".TXT"}};
    for (const auto &kind : kinds) {
        for (int round = 0; round < 3; ++round) {
            SCOPED_TRACE(std::string(kind.format) + ", round " + std::to_string(round));
            fs::remove_all(folder / "out");
            fs::remove_all(folder / "left");
            fs::remove_all(folder / "right");
            const auto left = documents("left", {"a"}, 3);
            const auto right = documents("right", {"a"}, 3);
            const std::string out = (folder / "out").string();
            CliChild one({"--format", kind.format, "--dpi", "36", "-o", out, left[0]}, {data_home});
            CliChild two({"--format", kind.format, "--dpi", "36", "-o", out, right[0]},
                         {data_home});
            EXPECT_EQ(one.finish(), 0) << one.err();
            EXPECT_EQ(two.finish(), 0) << two.err();
            const std::string first = std::string("a") + kind.extension;
            const std::string second = std::string("a 1") + kind.extension;
            ASSERT_EQ(tree_of(folder / "out"), (std::vector<std::string>{second, first}))
                << one.out() << two.out();
            std::vector<std::vector<std::string>> found{shown_by(folder / "out" / first),
                                                        shown_by(folder / "out" / second)};
            std::sort(found.begin(), found.end());
            if (std::string(kind.extension) == ".TIF") {
                EXPECT_EQ(found, std::vector<std::vector<std::string>>(
                                     2, std::vector<std::string>(3, "a page")));
            } else {
                EXPECT_EQ(found,
                          (std::vector<std::vector<std::string>>{expected_labels({"left a"}, 3),
                                                                 expected_labels({"right a"}, 3)}));
            }
        }
    }
}

TEST_F(TwoRunsAtOnce, PagesOfTheSameNameInOneFolderAreNeverHalfWritten)
{
    const auto left = documents("left", {"a"}, 6);
    const auto right = documents("right", {"a"}, 6);
    for (const char *format : {"JPEG", "PNG", "TIFF (Single Page)"}) {
        SCOPED_TRACE(format);
        fs::remove_all(folder / "out");
        const std::string out = (folder / "out").string();
        CliChild one({"--format", format, "--dpi", "50", "-o", out, left[0]}, {data_home});
        CliChild two({"--format", format, "--dpi", "50", "-o", out, right[0]}, {data_home});
        EXPECT_EQ(one.finish(), 0) << one.err();
        EXPECT_EQ(two.finish(), 0) << two.err();
        // One run's page replaces the other's, each whole: six files, no temporary.
        const auto names = tree_of(folder / "out");
        EXPECT_EQ(names.size(), 6u) << ::testing::PrintToString(names);
        for (const auto &name : names) {
            EXPECT_EQ(undecodable(folder / "out" / name), "") << name;
        }
        EXPECT_EQ(temporaries_in(folder / "out"), std::vector<std::string>{});
    }
}

} // namespace
} // namespace qf::test
