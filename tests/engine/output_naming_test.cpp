// SPDX-License-Identifier: GPL-3.0-or-later
#include <fstream>
#include <gtest/gtest.h>

#include "engine/output_naming.h"
#include "engine/page_selection.h"

namespace qf::engine {
namespace {
namespace fs = std::filesystem;

class OutputNaming : public ::testing::Test {
protected:
    void SetUp() override
    {
        folder_ = fs::temp_directory_path() /
                  ("qf-naming-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(folder_);
        fs::create_directories(folder_ / "src");
        fs::create_directories(folder_ / "out");
        snapshot_.mzeropad = 3;
        snapshot_.msavein = (folder_ / "out").string() + "/";
    }
    void TearDown() override { fs::remove_all(folder_); }

    DocumentRow row(const std::string& name, const std::string& pages, const std::string& folder = "src")
    {
        DocumentRow r;
        r[column::name] = name;
        r[column::pages] = pages;
        r[column::folder] = (folder_ / folder).string();
        return r;
    }

    NamingResult name(const DocumentRow& doc, const std::string& format, int pageno, int first, int last,
                      bool whole)
    {
        sources_ = {fs::path(doc[column::folder]) / doc[column::name]};
        NamingRequest request{snapshot_, doc, doc, format, pageno, pageno == first, first, last, whole, {},
                              &sources_, folder_ / "work"};
        return name_output(request);
    }

    void touch(const fs::path& path) { std::ofstream(path) << "x"; }

    fs::path folder_;
    OptionSnapshot snapshot_;
    std::vector<fs::path> sources_;
};

TEST_F(OutputNaming, NamesFollowFormatAndSelection)
{
    const DocumentRow report = row("report.pdf", "12");
    const struct {
        const char* format;
        int pageno, first, last;
        bool whole;
        const char* expected;
        bool single;
    } cases[] = {
        {kJpeg, 7, 7, 7, false, "report Page 007.JPG", false},
        {kPng, 12, 1, 12, true, "report Page 012.PNG", false},
        {kTiffSinglePage, 3, 3, 4, false, "report Page 003.TIF", true},
        {kPdfSinglePage, 1, 1, 12, true, "report Page 001.PDF", true},
        {kTiffMultipage, 1, 1, 12, false, "report Page 001 to 012.TIF", false},
        {kPdfMultipage, 5, 5, 5, false, "report Page 005 to 005.PDF", false},
        {kText, 2, 2, 12, false, "report Page 002 to 012.TXT", false},
        {kPdfMultipage, 1, 1, 12, true, "report.PDF", false},
    };
    for (const auto& c : cases) {
        const NamingResult result = name(report, c.format, c.pageno, c.first, c.last, c.whole);
        EXPECT_EQ(result.outputname, c.expected) << c.format;
        EXPECT_EQ(result.issinglepage, c.single) << c.format;
    }
}

TEST_F(OutputNaming, OnePageDocumentsNeverGetPageInTheName)
{
    for (const char* format : {kJpeg, kPng, kTiffSinglePage, kPdfSinglePage, kTiffMultipage, kText}) {
        const NamingResult result = name(row("memo.v2.tif", "1"), format, 1, 1, 1, true);
        EXPECT_EQ(result.outputname, "memo.v2" + docext_of(format)) << format;
        EXPECT_FALSE(result.issinglepage) << format;
    }
}

TEST_F(OutputNaming, WholeSelectionTakesTheFirstFreeNumber)
{
    const DocumentRow report = row("report.pdf", "12");
    touch(folder_ / "out" / "report.PDF");
    EXPECT_EQ(name(report, kPdfMultipage, 1, 1, 12, true).outputname, "report 1.PDF");
    touch(folder_ / "out" / "report 1.PDF");
    EXPECT_EQ(name(report, kPdfMultipage, 1, 1, 12, true).outputname, "report 2.PDF");
    // A partial selection overwrites without asking.
    touch(folder_ / "out" / "report Page 002 to 012.PDF");
    EXPECT_EQ(name(report, kPdfMultipage, 2, 2, 12, false).outputname, "report Page 002 to 012.PDF");
}

TEST_F(OutputNaming, AnOutputNeverTakesASourceDocumentsPlace)
{
    snapshot_.msavein = "[Source Folder]";
    const DocumentRow memo = row("memo.PDF", "3");
    const NamingResult result = name(memo, kPdfMultipage, 1, 1, 3, true);
    EXPECT_EQ(result.outputname, "memo 1.PDF");
    EXPECT_EQ(result.outputpath, folder_ / "src" / "memo 1.PDF");

    const DocumentRow scan = row("scan.TIF", "1");
    EXPECT_EQ(name(scan, kTiffSinglePage, 1, 1, 1, true).outputname, "scan 1.TIF");
}

TEST_F(OutputNaming, PathsFollowTheDestinationRules)
{
    const DocumentRow report = row("report.pdf", "12");
    EXPECT_EQ(name(report, kJpeg, 2, 2, 2, false).outputpath, folder_ / "out" / "report Page 002.JPG");

    snapshot_.monefileonefolder = true;
    EXPECT_EQ(name(report, kJpeg, 2, 2, 2, false).outputpath, folder_ / "out" / "report" / "report Page 002.JPG");
    EXPECT_TRUE(fs::is_directory(folder_ / "out" / "report"));
    EXPECT_EQ(name(report, kText, 1, 1, 12, true).outputpath, folder_ / "out" / "report" / "report.TXT");
    EXPECT_EQ(name(report, kTiffMultipage, 1, 1, 12, true).outputpath, folder_ / "out" / "report.TIF");

    snapshot_.mcombineall = true;
    EXPECT_EQ(name(report, kPdfMultipage, 1, 1, 12, true).outputpath, folder_ / "work" / "report.PDF");

    snapshot_.mcombineall = false;
    snapshot_.msavein = "[source folder]";
    EXPECT_EQ(name(report, kJpeg, 2, 2, 2, false).outputpath, folder_ / "src" / "report Page 002.JPG");
}

TEST_F(OutputNaming, SourceFolderMeansTheFirstDocumentsFolder)
{
    snapshot_.msavein = "  ";
    fs::create_directories(folder_ / "other");
    const DocumentRow first = row("a.pdf", "2");
    const DocumentRow second = row("b.pdf", "2", "other");
    snapshot_.monefileonefolder = true;
    sources_ = {};
    NamingRequest request{snapshot_, second, first, kJpeg, 1, true, 1, 2, true, {}, &sources_, {}};
    EXPECT_EQ(name_output(request).outputpath, folder_ / "src" / "b Page 001.JPG");
}

TEST_F(OutputNaming, LaterPagesKeepTheMultipageName)
{
    const DocumentRow report = row("report.pdf", "12");
    sources_ = {};
    NamingRequest request{snapshot_, report, report, kTiffMultipage, 6, false, 4, 6, false, "report Page 004 to 006.TIF",
                          &sources_, {}};
    EXPECT_EQ(name_output(request).outputname, "report Page 004 to 006.TIF");
}

} // namespace
} // namespace qf::engine
