// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <regex>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_metadata.h"

namespace qf::writers::pdf {
namespace {

std::filesystem::path resources()
{
    return std::filesystem::path(QF_SOURCE_DIR) / "resources";
}

engine::OptionSnapshot texts(const std::string &author, const std::string &title,
                             const std::string &subject)
{
    engine::OptionSnapshot snapshot;
    snapshot.mpdfauthorname = author;
    snapshot.mpdftitle = title;
    snapshot.msubject = subject;
    return snapshot;
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// Info and XMP say the same texts, XML-escaped; an empty text leaves no entry in either.
TEST(DocInfo, InfoAndXmpSayTheSame)
{
    const struct
    {
        engine::OptionSnapshot snapshot;
        std::vector<std::string> xmp_has;
        std::vector<std::string> xmp_lacks;
    } cases[] = {
        {texts("Zoë Ångström", "Costs & <Benefits>", "Q3 \"final\""),
         {"<rdf:li>Zoë Ångström</rdf:li>", ">Costs &amp; &lt;Benefits&gt;</rdf:li>",
          ">Q3 &quot;final&quot;</rdf:li>"},
         {}},
        {texts("", "Only a title", ""), {">Only a title</rdf:li>"}, {"<dc:creator>", "<dc:description>"}},
        {texts("", "", ""), {}, {"<dc:title>", "<dc:creator>", "<dc:description>"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.snapshot.mpdftitle);
        QPDF pdf;
        pdf.emptyPDF();
        applydocinfo(pdf, c.snapshot);
        QPDFObjectHandle info = pdf.getTrailer().getKey("/Info");
        const std::pair<const char *, std::string> entries[] = {
            {"/Author", c.snapshot.mpdfauthorname}, {"/Title", c.snapshot.mpdftitle},
            {"/Subject", c.snapshot.msubject}, {"/Creator", "Quirefold"}, {"/Producer", "Quirefold"}};
        for (const auto &[key, text] : entries) {
            EXPECT_EQ(test::info_entry(pdf, key), text) << key;
            EXPECT_EQ(info.hasKey(key), !text.empty()) << key;
        }
        std::vector<std::string> has = c.xmp_has;
        has.push_back("<xmp:CreatorTool>Quirefold</xmp:CreatorTool>");
        has.push_back("<pdf:Producer>Quirefold</pdf:Producer>");
        const std::string xmp = test::xmp_packet_of(pdf);
        for (const auto &part : has) {
            EXPECT_TRUE(contains(xmp, part)) << part << "\n" << xmp;
        }
        for (const auto &part : c.xmp_lacks) {
            EXPECT_FALSE(contains(xmp, part)) << part;
        }
        QPDFObjectHandle metadata = pdf.getRoot().getKey("/Metadata").getDict();
        EXPECT_TRUE(metadata.getKey("/Type").isNameAndEquals("/Metadata"));
        EXPECT_TRUE(metadata.getKey("/Subtype").isNameAndEquals("/XML"));
    }
}

TEST(DocInfo, DatesMatchAndTheCreationDateSurvivesARewrite)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFObjectHandle info = pdf.makeIndirectObject(QPDFObjectHandle::newDictionary());
    info.replaceKey("/CreationDate", QPDFObjectHandle::newString("D:20200102030405+01'00'"));
    pdf.getTrailer().replaceKey("/Info", info);
    applydocinfo(pdf, texts("a", "b", "c"));
    EXPECT_EQ(test::info_entry(pdf, "/CreationDate"), "D:20200102030405+01'00'");
    const std::string xmp = test::xmp_packet_of(pdf);
    EXPECT_TRUE(contains(xmp, "<xmp:CreateDate>2020-01-02T03:04:05+01:00</xmp:CreateDate>")) << xmp;

    // ModDate is now, and the XMP carries the same instant.
    const std::string mod = test::info_entry(pdf, "/ModDate");
    std::smatch parts;
    ASSERT_TRUE(
        std::regex_match(mod, parts, std::regex(R"(D:(\d{4})(\d\d)(\d\d)(\d\d)(\d\d)(\d\d).*)")))
        << mod;
    const std::string iso = parts[1].str() + "-" + parts[2].str() + "-" + parts[3].str() + "T" +
                            parts[4].str() + ":" + parts[5].str() + ":" + parts[6].str();
    EXPECT_TRUE(contains(xmp, "<xmp:ModifyDate>" + iso)) << xmp;
}

TEST(DocInfo, RewritingKeepsTheConformanceClaim)
{
    const struct
    {
        int code;
        const char *claim;
        const char *title_after; // after a rewrite with an empty title
    } cases[] = {
        {18, "<pdfaid:part>2</pdfaid:part>", ""},
        {14, "<pdfaid:conformance>B</pdfaid:conformance>", ""},
        {15, "<pdfxid:GTS_PDFXVersion>PDF/X-4</pdfxid:GTS_PDFXVersion>",
         "Annual report"}, // PDF/X needs one
        {7, "", ""},
    };
    test::TempFolder folder;
    for (const auto &c : cases) {
        const auto first = folder / "first.pdf";
        engine::OptionSnapshot snapshot = texts("Ann", "Annual report", "");
        snapshot.mpdfversionnumber = c.code;
        auto assembler = make_pdf_assembler(first, snapshot, resources());
        assembler->add_image_page(test::patterned_bilevel(64, 64), 1.0);
        assembler->close();

        // What the security pass does: open, apply the run's texts, write anew.
        const auto second = folder / "second.pdf";
        {
            QPDF pdf;
            test::open_pdf(pdf, first);
            applydocinfo(pdf, texts("Bob", "", "Figures"));
            QPDFWriter(pdf, second.c_str()).write();
        }
        QPDF pdf;
        test::open_pdf(pdf, second);
        const std::string xmp = test::xmp_packet_of(pdf);
        EXPECT_TRUE(*c.claim ? contains(xmp, c.claim)
                             : !contains(xmp, "pdfaid") && !contains(xmp, "pdfxid"))
            << c.code << "\n" << xmp;
        EXPECT_EQ(test::info_entry(pdf, "/Author"), "Bob");
        EXPECT_TRUE(contains(xmp, "<rdf:li>Bob</rdf:li>") && !contains(xmp, "Ann<"));
        EXPECT_EQ(test::info_entry(pdf, "/Title"), c.title_after) << c.code;
        EXPECT_EQ(contains(xmp, "<dc:title>"), *c.title_after != '\0') << c.code;
    }
}

} // namespace
} // namespace qf::writers::pdf
