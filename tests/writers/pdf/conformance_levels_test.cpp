// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_merge.h"
#include "writers/pdf/pdf_metadata.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

namespace fs = std::filesystem;

fs::path resources()
{
    return fs::path(QF_SOURCE_DIR) / "resources";
}

engine::OptionSnapshot snapshot_for(int code)
{
    engine::OptionSnapshot snapshot;
    snapshot.mpdfversionnumber = code;
    return snapshot;
}

enum class Content { Bilevel, Colour, Copied };

// A document of picture pages, or of copies of page 1 of `source`; the reasons close gives.
std::vector<std::string> assemble(const fs::path &target, int code,
                                  const std::vector<Content> &pages, const fs::path &source = {})
{
    auto assembler = make_pdf_assembler(target, snapshot_for(code), resources());
    for (const auto content : pages) {
        if (content == Content::Bilevel) {
            assembler->add_image_page(test::patterned_bilevel(850, 1100), 72.0 / 100);
        } else if (content == Content::Colour) {
            assembler->add_image_page(test::gradient_rgb(120, 90), 72.0 / 30);
        } else {
            assembler->add_pdf_page(source, "", 1);
        }
    }
    return assembler->close();
}

// One page for each paint ("0 1 1 0 k") filling a square, no font; `state` is the page's
// ExtGState /GS0 when not empty; the first page has a CMYK thumbnail 7 pixels wide when asked.
void write_painted_pdf(const fs::path &target, const std::vector<std::string> &paints,
                       const std::string &state = "", bool thumbnail = false)
{
    QPDF pdf;
    pdf.emptyPDF();
    for (const auto &paint : paints) {
        const bool gs = !state.empty();
        QPDFObjectHandle page = QPDFObjectHandle::parse(
            "<< /Type /Page /MediaBox [0 0 200 200] /Resources << " +
            (gs ? "/ExtGState << /GS0 " + state + " >>" : "") + " >> >>");
        page.replaceKey("/Contents",
                        pdf.newStream((gs ? "/GS0 gs " : "") + paint + " 20 20 100 100 re f\n"));
        if (thumbnail && pdf.getAllPages().empty()) {
            QPDFObjectHandle thumb = pdf.newStream(std::string(7 * 5 * 4, '\x40'));
            thumb.replaceDict(QPDFObjectHandle::parse(
                "<< /Width 7 /Height 5 /ColorSpace /DeviceCMYK /BitsPerComponent 8 >>"));
            page.replaceKey("/Thumb", thumb);
        }
        pdf.addPage(pdf.makeIndirectObject(page), false);
    }
    QPDFWriter(pdf, target.c_str()).write();
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// Level a: the document is marked and has a language, and each picture page is a Figure with
// alternate text whose marked content on the page is found back through the parent tree from
// the page's StructParents key.
void expect_tagged_figures(QPDF &pdf)
{
    QPDFObjectHandle root = pdf.getRoot();
    EXPECT_TRUE(root.getKey("/MarkInfo").getKey("/Marked").getBoolValue());
    EXPECT_FALSE(root.getKey("/Lang").getUTF8Value().empty());
    QPDFObjectHandle tree = root.getKey("/StructTreeRoot");
    QPDFObjectHandle figures = tree.getKey("/K").getKey("/K");
    QPDFObjectHandle nums = tree.getKey("/ParentTree").getKey("/Nums");
    const auto pages = pdf.getAllPages();
    ASSERT_EQ(figures.isArray() ? figures.getArrayNItems() : 0, static_cast<int>(pages.size()));
    for (std::size_t i = 0; i < pages.size(); ++i) {
        QPDFObjectHandle figure = figures.getArrayItem(static_cast<int>(i)), page = pages[i];
        EXPECT_TRUE(figure.getKey("/S").isNameAndEquals("/Figure"));
        EXPECT_FALSE(figure.getKey("/Alt").getUTF8Value().empty());
        EXPECT_EQ(figure.getKey("/Pg").getObjGen(), page.getObjGen());
        const int mcid = static_cast<int>(figure.getKey("/K").getIntValue());
        EXPECT_TRUE(contains(test::page_content(page),
                             "/Figure <</MCID " + std::to_string(mcid) + ">> BDC"));
        const long long key = page.getKey("/StructParents").getIntValue();
        bool found = false;
        for (int n = 0; n + 1 < nums.getArrayNItems(); n += 2) {
            found |= nums.getArrayItem(n).getIntValue() == key &&
                     nums.getArrayItem(n + 1).getArrayItem(mcid).getObjGen() == figure.getObjGen();
        }
        EXPECT_TRUE(found) << "page " << i + 1;
    }
}

// The header is the chosen version unless the content needs more; each standard is identified
// in the XMP and gets the output intent and profile its content needs, the others none. A page
// thumbnail's colour space need not fit the output intent, so PDF/A files go without. PDF/X
// also needs a title (the file's name when the run gives none), a TrimBox and RGB tied to a
// profile of its own under the CMYK intent.
TEST(Conformance, EachCodeGivesItsVersionAndStandard)
{
    using enum Content;
    const char *a1 = "<pdfaid:part>1</pdfaid:part>", *b = "<pdfaid:conformance>B</pdfaid:conformance>",
               *u = "<pdfaid:conformance>U</pdfaid:conformance>", *x4 = "PDF/X-4</pdfxid:GTS_PDFXVersion>";
    // The identification as written in the XMP (empty: no standard) and the profile of the
    // intent, "Generic NAME Profile.icc"; CMYK under /GTS_PDFX.
    const struct { int code; Content content; const char *header; bool object_streams;
                   const char *identification = "", *profile = ""; bool level_a = false; } cases[] = {
        {0, Copied, "1.0", false}, {1, Copied, "1.1", false},  {2, Copied, "1.2", false},
        {3, Copied, "1.3", false}, {4, Copied, "1.4", false},  {5, Copied, "1.5", true},
        {6, Copied, "1.6", true},  {7, Copied, "1.7", true},   {8, Copied, "2.0", true},
        {0, Bilevel, "1.0", false}, {8, Bilevel, "2.0", true}, {42, Copied, "1.4", false},
        {0, Colour, "1.2", false}, {1, Colour, "1.2", false},  {6, Colour, "1.6", true}, // Flate
        {14, Bilevel, "1.4", false, a1, "Gray"},
        {14, Colour, "1.4", false, b, "RGB"},
        {16, Bilevel, "1.4", false, "<pdfaid:conformance>A</pdfaid:conformance>", "Gray", true},
        {17, Colour, "1.7", true, "<pdfaid:part>2</pdfaid:part>", "RGB", true},
        {18, Bilevel, "1.7", true, b, "Gray"},
        {19, Colour, "1.7", true, u, "RGB"},
        {20, Bilevel, "1.7", true, "<pdfaid:part>3</pdfaid:part>", "Gray", true},
        {21, Colour, "1.7", true, "<pdfaid:part>3</pdfaid:part>", "RGB"},
        {22, Copied, "1.7", true, u, "RGB"},
        {15, Colour, "1.6", true, x4, "CMYK"},
        {15, Bilevel, "1.6", true, x4, "CMYK"},
        {15, Copied, "1.6", true, x4, "CMYK"},
    };
    test::TempFolder folder;
    write_painted_pdf(folder / "fills.pdf", {"1 0 0 rg"}, "<< /Type /ExtGState /ca 1 >>", true);
    for (const auto &c : cases) {
        SCOPED_TRACE("code " + std::to_string(c.code));
        const auto target = folder / "out.pdf";
        EXPECT_EQ(assemble(target, c.code, {c.content, c.content}, folder / "fills.pdf"),
                  std::vector<std::string>{});
        EXPECT_EQ(test::pdf_header_version(target), c.header);
        EXPECT_EQ(test::structural_problems(target), "");
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(test::uses_object_streams(pdf), c.object_streams);
        EXPECT_EQ(pdf.getRoot().hasKey("/StructTreeRoot"), c.level_a);
        if (c.level_a) {
            expect_tagged_figures(pdf);
        }
        int thumbnails = 0; // a file holds only the objects it reaches
        for (auto &object : pdf.getAllObjects()) {
            thumbnails += object.isStream() && object.getDict().getKey("/Width").isInteger() &&
                          object.getDict().getKey("/Width").getIntValue() == 7;
        }
        EXPECT_EQ(thumbnails, c.content == Copied && !contains(c.identification, "pdfaid"));
        QPDFObjectHandle intents = pdf.getRoot().getKey("/OutputIntents");
        ASSERT_EQ(intents.isArray() ? intents.getArrayNItems() : 0, *c.profile ? 1 : 0);
        if (!*c.profile) {
            continue;
        }
        EXPECT_TRUE(contains(test::xmp_packet_of(pdf), c.identification));
        EXPECT_TRUE(pdf.getRoot().getKey("/Metadata").getDict().getKey("/Filter").isNull());
        EXPECT_TRUE(pdf.getTrailer().getKey("/ID").isArray());
        QPDFObjectHandle intent = intents.getArrayItem(0);
        EXPECT_TRUE(intent.getKey("/S").isNameAndEquals(c.code == 15 ? "/GTS_PDFX" : "/GTS_PDFA1"));
        QPDFObjectHandle profile = intent.getKey("/DestOutputProfile");
        const auto bytes = profile.getStreamData(qpdf_dl_generalized);
        const std::string icc(reinterpret_cast<const char *>(bytes->getBuffer()), bytes->getSize());
        EXPECT_EQ(icc, test::file_bytes(resources() / "icc" /
                                        (std::string("Generic ") + c.profile + " Profile.icc")));
        // /N matches the colour space the profile's header names at byte 16.
        const std::string space = icc.substr(16, 4);
        EXPECT_EQ(profile.getDict().getKey("/N").getIntValue(),
                  space == "GRAY" ? 1 : space == "RGB " ? 3 : 4);
        if (c.code == 15) {
            EXPECT_EQ(test::info_entry(pdf, "/Title"), "out");
            EXPECT_TRUE(pdf.getTrailer().getKey("/Info").getKey("/Trapped").isNameAndEquals("/False"));
            EXPECT_TRUE(contains(test::xmp_packet_of(pdf), "<pdf:Trapped>False</pdf:Trapped>"));
            QPDFPageObjectHelper page(pdf.getAllPages().at(0));
            EXPECT_EQ(test::page_box(page, "/TrimBox"), test::page_box(page, "/MediaBox"));
            QPDFObjectHandle rgb = page.getObjectHandle().getKey("/Resources");
            rgb = rgb.getKey("/ColorSpace").getKey("/DefaultRGB");
            EXPECT_EQ(rgb.isArray() && rgb.getArrayItem(0).isNameAndEquals("/ICCBased") &&
                          rgb.getArrayItem(1).getDict().getKey("/N").getIntValue() == 3,
                      c.content != Bilevel);
        }
    }
}

TEST(Conformance, ReportsWhatKeepsCopiedPagesFromConforming)
{
    const std::string font = "page 1 uses the font Helvetica which is not embedded",
                      untagged = "page 1 has no tagged structure",
                      transparency = "page 1 uses transparency, which PDF/A-1 does not allow";
    const struct { int code; const char *source; std::vector<std::string> reasons; } cases[] = {
        {7, "numbered.pdf", {}},           {14, "numbered.pdf", {font}},
        {19, "numbered.pdf", {font}},      {15, "numbered.pdf", {font}},
        {16, "numbered.pdf", {font, untagged}}, {14, "translucent.pdf", {transparency}},
        {16, "translucent.pdf", {transparency, untagged}},
        {18, "translucent.pdf", {}},       {15, "translucent.pdf", {}},
    };
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "numbered.pdf", 3);
    write_painted_pdf(folder / "translucent.pdf", {"1 0 0 rg"}, "<< /Type /ExtGState /ca 0.5 >>");
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.code) + " " + c.source);
        const auto target = folder / "out.pdf";
        auto assembler = make_pdf_assembler(target, snapshot_for(c.code), resources());
        for (int pageno = 1; pageno <= 3; ++pageno) {
            assembler->add_pdf_page(folder / c.source, "", c.source[0] == 'n' ? pageno : 1);
        }
        // Each reason once, at the first page that shows it; the file is written regardless.
        EXPECT_EQ(assembler->close(), c.reasons);
        EXPECT_EQ(test::pdf_page_count(target), 3);
    }
}

// Each PDF/A-1b file passes the validator, which is not lenient: an unembedded font fails it.
// Each input took the output intent of its own pages (gray and RGB: RGB; CMYK: CMYK; gray:
// Gray); the merged file has one that fits every page, whichever comes first.
TEST(Conformance, PdfA1bFilesAndTheirMergesPassTheValidator)
{
    test::TempFolder folder;
    write_painted_pdf(folder / "cmyk-source.pdf", {"0 1 1 0 k"}, "<< /Type /ExtGState /ca 1 >>");
    test::write_numbered_pdf(folder / "numbered.pdf", 1);
    const auto rgb = folder / "rgb.pdf", cmyk = folder / "cmyk.pdf", gray = folder / "gray.pdf";
    ASSERT_TRUE(assemble(rgb, 14, {Content::Bilevel, Content::Colour}).empty());
    ASSERT_TRUE(assemble(cmyk, 14, {Content::Copied}, folder / "cmyk-source.pdf").empty());
    ASSERT_TRUE(assemble(gray, 14, {Content::Bilevel}).empty());
    EXPECT_FALSE(assemble(folder / "font.pdf", 14, {Content::Copied}, folder / "numbered.pdf").empty());
    for (const auto &[file, passes] : {std::pair{rgb, true}, {cmyk, true}, {gray, true},
                                      {folder / "font.pdf", false}}) {
        const auto verdict = test::run_preflight_a1b(file);
        if (!verdict.ran) {
            GTEST_SKIP() << "java or Apache PDFBox Preflight is not installed";
        }
        EXPECT_EQ(verdict.status == 0, passes) << file << verdict.output;
    }
    const struct { std::vector<fs::path> inputs; int components; } cases[] = {
        {{rgb, cmyk}, 3}, {{cmyk, rgb}, 3}, {{gray, cmyk, gray}, 4}, {{gray, gray}, 1}};
    for (const auto &c : cases) {
        const auto target = folder / "Combine.PDF";
        merge_pdfs(c.inputs, target, snapshot_for(14), [](const fs::path &) {});
        EXPECT_EQ(encryptpdfnow(target, snapshot_for(14)), std::vector<std::string>{});
        QPDF pdf;
        test::open_pdf(pdf, target);
        QPDFObjectHandle intent = pdf.getRoot().getKey("/OutputIntents").getArrayItem(0);
        EXPECT_EQ(intent.getKey("/DestOutputProfile").getDict().getKey("/N").getIntValue(), c.components);
        const auto verdict = test::run_preflight_a1b(target);
        EXPECT_TRUE(!verdict.ran || verdict.status == 0) << verdict.output;
    }
}

// A file whose output intent leaves a page's device colours undescribed says so, once.
TEST(Conformance, SecurityPassNamesThePageTheOutputIntentDoesNotFit)
{
    const struct { int code; std::vector<std::string> paints, lines; } cases[] = {
        {14, {"1 0 0 rg", "0 0 1 rg"},
         {"gray.pdf does not conform to PDF/A 1b: page 2 uses DeviceRGB colour, which the "
          "output intent does not describe"}},
        {18, {"0 1 1 0 k"},
         {"gray.pdf does not conform to PDF/A 2b: page 2 uses DeviceCMYK colour, which the "
          "output intent does not describe"}},
        {14, {"0.2 g"}, {}},
    };
    test::TempFolder folder;
    write_painted_pdf(folder / "page.pdf", {"0.5 g"});
    for (const auto &c : cases) {
        // A gray page given the Gray output intent, the pages of `paints` behind it.
        const auto target = folder / "gray.pdf";
        assemble(folder / "assembled.pdf", c.code, {Content::Copied}, folder / "page.pdf");
        write_painted_pdf(folder / "more.pdf", c.paints);
        QPDF pdf, more;
        test::open_pdf(pdf, folder / "assembled.pdf");
        test::open_pdf(more, folder / "more.pdf");
        for (auto &page : more.getAllPages()) {
            pdf.addPage(page, false);
        }
        QPDFWriter(pdf, target.c_str()).write();
        EXPECT_EQ(encryptpdfnow(target, snapshot_for(c.code)), c.lines) << c.code;
    }
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

// The run's texts replace those a file had ("Ann", "Annual report"): Info and XMP say the
// same, XML-escaped; an empty text leaves no entry in either, except the title PDF/X needs.
// The file's conformance claim and creation date are kept. The XMP holds each part, or lacks
// those marked "!".
TEST(DocInfo, InfoAndXmpSayTheRunsTextsAndKeepTheClaim)
{
    const struct { engine::OptionSnapshot snapshot; XmpIdentification claim; std::vector<std::string> xmp;
    } cases[] = {
        {texts("Zoë Ångström", "Costs & <Benefits>", "Q3 \"final\""), {},
         {"<rdf:li>Zoë Ångström</rdf:li>", ">Costs &amp; &lt;Benefits&gt;</rdf:li>",
          ">Q3 &quot;final&quot;</rdf:li>", "<xmp:CreatorTool>Quirefold</xmp:CreatorTool>",
          "<pdf:Producer>Quirefold</pdf:Producer>", "!<pdfaid:", "!Ann<"}},
        {texts("", "Only a title", ""), {"2", "B", ""},
         {">Only a title</rdf:li>", "!<dc:creator>", "!<dc:description>", "<pdfaid:part>2</pdfaid:part>"}},
        {texts("Bob", "", "Figures"), {"1", "B", ""},
         {"<rdf:li>Bob</rdf:li>", "!<dc:title>", "<pdfaid:conformance>B</pdfaid:conformance>"}},
        {texts("", "", ""), {"", "", "PDF/X-4"},
         {">Annual report</rdf:li>", "!<dc:creator>", "!<dc:description>",
          "<pdfxid:GTS_PDFXVersion>PDF/X-4</pdfxid:GTS_PDFXVersion>"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.snapshot.mpdftitle + c.claim.pdfa_part + c.claim.pdfx_version);
        QPDF pdf;
        pdf.emptyPDF();
        applydocinfo(pdf, texts("Ann", "Annual report", ""));
        set_identification(pdf, c.claim);
        pdf.getTrailer().getKey("/Info").replaceKey(
            "/CreationDate", QPDFObjectHandle::newString("D:20200102030405+01'00'"));
        applydocinfo(pdf, c.snapshot);
        QPDFObjectHandle info = pdf.getTrailer().getKey("/Info");
        const std::string title = c.claim.pdfx_version.empty() ? c.snapshot.mpdftitle : "Annual report";
        const std::pair<const char *, std::string> entries[] = {
            {"/Author", c.snapshot.mpdfauthorname}, {"/Title", title}, {"/Subject", c.snapshot.msubject},
            {"/Creator", "Quirefold"}, {"/Producer", "Quirefold"},
            {"/CreationDate", "D:20200102030405+01'00'"}};
        for (const auto &[key, text] : entries) {
            EXPECT_EQ(test::info_entry(pdf, key), text) << key;
            EXPECT_EQ(info.hasKey(key), !text.empty()) << key;
        }
        std::vector<std::string> parts = c.xmp;
        parts.push_back("<xmp:CreateDate>2020-01-02T03:04:05+01:00</xmp:CreateDate>");
        const std::string xmp = test::xmp_packet_of(pdf);
        for (const auto &part : parts) {
            EXPECT_NE(contains(xmp, part.substr(part[0] == '!')), part[0] == '!') << part << "\n" << xmp;
        }
    }
}

} // namespace
} // namespace qf::writers::pdf
