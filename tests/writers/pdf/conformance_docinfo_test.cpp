// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <regex>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"
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
        {texts("", "Only a title", ""),
         {">Only a title</rdf:li>"},
         {"<dc:creator>", "<dc:description>"}},
        {texts("", "", ""), {}, {"<dc:title>", "<dc:creator>", "<dc:description>"}},
    };
    for (const auto &c : cases) {
        QPDF pdf;
        pdf.emptyPDF();
        applydocinfo(pdf, c.snapshot);
        EXPECT_EQ(test::info_entry(pdf, "/Author"), c.snapshot.mpdfauthorname);
        EXPECT_EQ(test::info_entry(pdf, "/Title"), c.snapshot.mpdftitle);
        EXPECT_EQ(test::info_entry(pdf, "/Subject"), c.snapshot.msubject);
        EXPECT_EQ(test::info_entry(pdf, "/Creator"), "Quirefold");
        EXPECT_EQ(test::info_entry(pdf, "/Producer"), "Quirefold");
        QPDFObjectHandle info = pdf.getTrailer().getKey("/Info");
        for (const char *key : {"/Author", "/Title", "/Subject"}) {
            // An empty text leaves no entry behind, rather than an empty one.
            EXPECT_EQ(info.hasKey(key), !test::info_entry(pdf, key).empty()) << key;
        }
        const std::string xmp = test::xmp_packet_of(pdf);
        EXPECT_TRUE(contains(xmp, "<xmp:CreatorTool>Quirefold</xmp:CreatorTool>"));
        EXPECT_TRUE(contains(xmp, "<pdf:Producer>Quirefold</pdf:Producer>"));
        for (const auto &part : c.xmp_has) {
            EXPECT_TRUE(contains(xmp, part)) << part << "\n" << xmp;
        }
        for (const auto &part : c.xmp_lacks) {
            EXPECT_FALSE(contains(xmp, part)) << part;
        }
        QPDFObjectHandle metadata = pdf.getRoot().getKey("/Metadata");
        EXPECT_TRUE(metadata.getDict().getKey("/Type").isNameAndEquals("/Metadata"));
        EXPECT_TRUE(metadata.getDict().getKey("/Subtype").isNameAndEquals("/XML"));
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
            QPDFWriter writer(pdf, second.c_str());
            writer.write();
        }
        QPDF pdf;
        test::open_pdf(pdf, second);
        const std::string xmp = test::xmp_packet_of(pdf);
        if (*c.claim) {
            EXPECT_TRUE(contains(xmp, c.claim)) << c.code << "\n" << xmp;
        } else {
            EXPECT_FALSE(contains(xmp, "pdfaid")) << c.code;
            EXPECT_FALSE(contains(xmp, "pdfxid")) << c.code;
        }
        EXPECT_EQ(test::info_entry(pdf, "/Author"), "Bob");
        EXPECT_TRUE(contains(xmp, "<rdf:li>Bob</rdf:li>"));
        EXPECT_FALSE(contains(xmp, "Ann<"));
        EXPECT_EQ(test::info_entry(pdf, "/Title"), c.title_after) << c.code;
        EXPECT_EQ(contains(xmp, "<dc:title>"), *c.title_after != '\0') << c.code;
        EXPECT_EQ(read_identification(pdf).pdfa_part.empty(), c.code == 15 || c.code == 7);
    }
}

} // namespace
} // namespace qf::writers::pdf
