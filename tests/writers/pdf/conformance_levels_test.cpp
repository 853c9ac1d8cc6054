// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_merge.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

std::filesystem::path resources()
{
    return std::filesystem::path(QF_SOURCE_DIR) / "resources";
}

engine::OptionSnapshot snapshot_for(int code)
{
    engine::OptionSnapshot snapshot;
    snapshot.mpdfversionnumber = code;
    snapshot.mpdftitle = "Quarterly scans";
    snapshot.mpdfauthorname = "Records office";
    return snapshot;
}

enum class Content { Bilevel, Colour, Copied, CopiedFills };

// A one-source document of the given kind: picture pages, or copies of a PDF's pages.
std::vector<std::string> assemble(const std::filesystem::path &target, int code,
                                  const std::vector<Content> &pages,
                                  const std::filesystem::path &source = {})
{
    auto assembler = make_pdf_assembler(target, snapshot_for(code), resources());
    for (const auto content : pages) {
        switch (content) {
        case Content::Bilevel:
            assembler->add_image_page(test::patterned_bilevel(850, 1100), 72.0 / 100);
            break;
        case Content::Colour:
            assembler->add_image_page(test::gradient_rgb(120, 90), 72.0 / 30);
            break;
        case Content::Copied:
        case Content::CopiedFills:
            assembler->add_pdf_page(source, "", 1);
            break;
        }
    }
    return assembler->close();
}

// A page with an RGB square and no font; painted through a graphics state with 50 % fill
// opacity when translucent.
void write_painted_pdf(const std::filesystem::path &target, bool translucent)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFObjectHandle state = QPDFObjectHandle::parse(translucent ? "<< /Type /ExtGState /ca 0.5 >>"
                                                                 : "<< /Type /ExtGState /ca 1 >>");
    QPDFObjectHandle resources = QPDFObjectHandle::newDictionary();
    QPDFObjectHandle states = QPDFObjectHandle::newDictionary();
    states.replaceKey("/GS0", state);
    resources.replaceKey("/ExtGState", states);
    QPDFObjectHandle page = QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 200 200] >>");
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents", pdf.newStream("/GS0 gs 1 0 0 rg 20 20 100 100 re f\n"));
    pdf.addPage(pdf.makeIndirectObject(page), false);
    QPDFWriter writer(pdf, target.c_str());
    writer.write();
}

TEST(Conformance, HeaderIsTheChosenVersionUnlessTheContentNeedsMore)
{
    const struct
    {
        int code;
        Content content;
        const char *header;
        bool object_streams;
    } cases[] = {
        {0, Content::Copied, "1.0", false},
        {1, Content::Copied, "1.1", false},
        {2, Content::Copied, "1.2", false},
        {3, Content::Copied, "1.3", false},
        {4, Content::Copied, "1.4", false},
        {5, Content::Copied, "1.5", true},
        {6, Content::Copied, "1.6", true},
        {7, Content::Copied, "1.7", true},
        {8, Content::Copied, "2.0", true},
        {0, Content::Bilevel, "1.0", false},
        {3, Content::Bilevel, "1.3", false},
        {8, Content::Bilevel, "2.0", true},
        // Flate-compressed colour pictures need PDF 1.2.
        {0, Content::Colour, "1.2", false},
        {1, Content::Colour, "1.2", false},
        {6, Content::Colour, "1.6", true},
        // An unknown code reads as PDF 1.4.
        {42, Content::Copied, "1.4", false},
    };
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "source.pdf", 1);
    for (const auto &c : cases) {
        const auto target = folder / "out.pdf";
        const auto reasons =
            assemble(target, c.code, {c.content, c.content}, folder / "source.pdf");
        EXPECT_TRUE(reasons.empty()) << c.code;
        EXPECT_EQ(test::pdf_header_version(target), c.header) << "code " << c.code;
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(test::uses_object_streams(pdf), c.object_streams) << "code " << c.code;
        EXPECT_FALSE(pdf.getRoot().hasKey("/OutputIntents")) << c.code;
        EXPECT_EQ(test::structural_problems(target), "") << c.code;
    }
}

TEST(Conformance, EachStandardIsIdentifiedAndGetsTheProfileItsContentNeeds)
{
    const struct
    {
        int code;
        Content content;
        const char *header;
        const char *identification; // as written in the XMP
        const char *intent;
        const char *profile;
    } cases[] = {
        {14, Content::Bilevel, "1.4", "<pdfaid:part>1</pdfaid:part>", "/GTS_PDFA1",
         "Generic Gray Profile.icc"},
        {14, Content::Colour, "1.4", "<pdfaid:conformance>B</pdfaid:conformance>", "/GTS_PDFA1",
         "Generic RGB Profile.icc"},
        {16, Content::Bilevel, "1.4", "<pdfaid:conformance>A</pdfaid:conformance>", "/GTS_PDFA1",
         "Generic Gray Profile.icc"},
        {17, Content::Colour, "1.7", "<pdfaid:part>2</pdfaid:part>", "/GTS_PDFA1",
         "Generic RGB Profile.icc"},
        {18, Content::Bilevel, "1.7", "<pdfaid:conformance>B</pdfaid:conformance>", "/GTS_PDFA1",
         "Generic Gray Profile.icc"},
        {19, Content::Colour, "1.7", "<pdfaid:conformance>U</pdfaid:conformance>", "/GTS_PDFA1",
         "Generic RGB Profile.icc"},
        {20, Content::Bilevel, "1.7", "<pdfaid:part>3</pdfaid:part>", "/GTS_PDFA1",
         "Generic Gray Profile.icc"},
        {21, Content::Colour, "1.7", "<pdfaid:part>3</pdfaid:part>", "/GTS_PDFA1",
         "Generic RGB Profile.icc"},
        {22, Content::CopiedFills, "1.7", "<pdfaid:conformance>U</pdfaid:conformance>",
         "/GTS_PDFA1", "Generic RGB Profile.icc"},
        {15, Content::Colour, "1.6", "<pdfxid:GTS_PDFXVersion>PDF/X-4</pdfxid:GTS_PDFXVersion>",
         "/GTS_PDFX", "Generic CMYK Profile.icc"},
        {15, Content::Bilevel, "1.6", "<pdfxid:GTS_PDFXVersion>PDF/X-4</pdfxid:GTS_PDFXVersion>",
         "/GTS_PDFX", "Generic CMYK Profile.icc"},
    };
    test::TempFolder folder;
    write_painted_pdf(folder / "fills.pdf", false);
    for (const auto &c : cases) {
        const auto target = folder / "out.pdf";
        const auto reasons = assemble(target, c.code, {c.content}, folder / "fills.pdf");
        EXPECT_TRUE(reasons.empty()) << c.code << ": " << (reasons.empty() ? "" : reasons[0]);
        EXPECT_EQ(test::pdf_header_version(target), c.header) << c.code;
        EXPECT_EQ(test::structural_problems(target), "") << c.code;

        QPDF pdf;
        test::open_pdf(pdf, target);
        const std::string xmp = test::xmp_packet_of(pdf);
        EXPECT_NE(xmp.find(c.identification), std::string::npos) << c.code << "\n" << xmp;
        // The XMP says what Info says.
        EXPECT_EQ(test::info_entry(pdf, "/Title"), "Quarterly scans");
        EXPECT_NE(xmp.find(">Quarterly scans<"), std::string::npos) << c.code;
        EXPECT_NE(xmp.find("<rdf:li>Records office</rdf:li>"), std::string::npos) << c.code;
        EXPECT_EQ(pdf.getRoot().getKey("/Metadata").getDict().getKey("/Filter").isNull(), true)
            << c.code;
        EXPECT_TRUE(pdf.getTrailer().getKey("/ID").isArray()) << c.code;
        EXPECT_EQ(pdf.getTrailer().hasKey("/Encrypt"), false);

        QPDFObjectHandle intents = pdf.getRoot().getKey("/OutputIntents");
        ASSERT_TRUE(intents.isArray()) << c.code;
        ASSERT_EQ(intents.getArrayNItems(), 1) << c.code;
        QPDFObjectHandle intent = intents.getArrayItem(0);
        EXPECT_TRUE(intent.getKey("/S").isNameAndEquals(c.intent)) << c.code;
        QPDFObjectHandle profile = intent.getKey("/DestOutputProfile");
        ASSERT_TRUE(profile.isStream()) << c.code;
        const auto bytes = profile.getStreamData(qpdf_dl_generalized);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(bytes->getBuffer()), bytes->getSize()),
                  test::file_bytes(resources() / "icc" / c.profile))
            << c.code;
        // /N matches the profile's colour space, which the header of an ICC profile names at
        // byte 16.
        const std::string space(reinterpret_cast<const char *>(bytes->getBuffer()) + 16, 4);
        const int components = space == "GRAY" ? 1 : space == "RGB " ? 3 : 4;
        EXPECT_EQ(profile.getDict().getKey("/N").getIntValue(), components) << c.code;
    }
}

TEST(Conformance, PdfXPagesHaveATrimBoxAndDeviceIndependentColour)
{
    test::TempFolder folder;
    const auto target = folder / "print run.pdf";
    auto snapshot = snapshot_for(15);
    snapshot.mpdftitle.clear(); // PDF/X needs a title all the same
    auto assembler = make_pdf_assembler(target, snapshot, resources());
    assembler->add_image_page(test::gradient_rgb(60, 40), 1.0);
    assembler->add_image_page(test::patterned_bilevel(60, 40), 1.0);
    EXPECT_TRUE(assembler->close().empty());

    QPDF pdf;
    test::open_pdf(pdf, target);
    EXPECT_EQ(test::info_entry(pdf, "/GTS_PDFXVersion"), "PDF/X-4");
    EXPECT_TRUE(pdf.getTrailer().getKey("/Info").getKey("/Trapped").isNameAndEquals("/False"));
    EXPECT_EQ(test::info_entry(pdf, "/Title"), "print run");
    EXPECT_NE(test::xmp_packet_of(pdf).find("<pdf:Trapped>False</pdf:Trapped>"), std::string::npos);
    auto pages = QPDFPageDocumentHelper(pdf).getAllPages();
    for (auto &page : pages) {
        EXPECT_EQ(test::page_box(page, "/TrimBox"), test::page_box(page, "/MediaBox"));
    }
    // RGB under a CMYK output intent is tied to the RGB profile.
    QPDFObjectHandle default_rgb =
        pages[0].getObjectHandle().getKey("/Resources").getKey("/ColorSpace").getKey("/DefaultRGB");
    ASSERT_TRUE(default_rgb.isArray());
    EXPECT_TRUE(default_rgb.getArrayItem(0).isNameAndEquals("/ICCBased"));
    EXPECT_EQ(default_rgb.getArrayItem(1).getDict().getKey("/N").getIntValue(), 3);
}

TEST(Conformance, LevelATagsEachPicturePageAsAFigureWithAlternateText)
{
    for (const int code : {16, 17, 20}) {
        test::TempFolder folder;
        const auto target = folder / "tagged.pdf";
        EXPECT_TRUE(
            assemble(target, code, {Content::Bilevel, Content::Colour, Content::Bilevel}).empty());
        QPDF pdf;
        test::open_pdf(pdf, target);
        QPDFObjectHandle root = pdf.getRoot();
        EXPECT_TRUE(root.getKey("/MarkInfo").getKey("/Marked").getBoolValue()) << code;
        EXPECT_FALSE(root.getKey("/Lang").getUTF8Value().empty()) << code;
        QPDFObjectHandle tree = root.getKey("/StructTreeRoot");
        ASSERT_TRUE(tree.isDictionary()) << code;
        QPDFObjectHandle figures = tree.getKey("/K").getKey("/K");
        auto pages = QPDFPageDocumentHelper(pdf).getAllPages();
        ASSERT_EQ(figures.getArrayNItems(), 3) << code;
        QPDFObjectHandle nums = tree.getKey("/ParentTree").getKey("/Nums");
        for (int i = 0; i < 3; ++i) {
            QPDFObjectHandle figure = figures.getArrayItem(i);
            EXPECT_TRUE(figure.getKey("/S").isNameAndEquals("/Figure"));
            EXPECT_FALSE(figure.getKey("/Alt").getUTF8Value().empty());
            QPDFObjectHandle page = pages[static_cast<std::size_t>(i)].getObjectHandle();
            EXPECT_EQ(figure.getKey("/Pg").getObjGen(), page.getObjGen());
            // The page's marked content is the one the figure names, found back through the
            // parent tree from the page's StructParents key.
            const int mcid = static_cast<int>(figure.getKey("/K").getIntValue());
            EXPECT_NE(test::page_content(pages[static_cast<std::size_t>(i)])
                          .find("/Figure <</MCID " + std::to_string(mcid) + ">> BDC"),
                      std::string::npos);
            const long long key = page.getKey("/StructParents").getIntValue();
            bool found = false;
            for (int n = 0; n + 1 < nums.getArrayNItems(); n += 2) {
                if (nums.getArrayItem(n).getIntValue() == key) {
                    found = nums.getArrayItem(n + 1).getArrayItem(mcid).getObjGen() ==
                            figure.getObjGen();
                }
            }
            EXPECT_TRUE(found) << "page " << i + 1;
        }
        EXPECT_EQ(test::structural_problems(target), "") << code;
    }
}

TEST(Conformance, ReportsWhatKeepsCopiedPagesFromConforming)
{
    const struct
    {
        int code;
        const char *source;
        std::vector<std::string> reasons;
    } cases[] = {
        {7, "numbered.pdf", {}},
        {14, "numbered.pdf", {"page 1 uses the font Helvetica which is not embedded"}},
        {19, "numbered.pdf", {"page 1 uses the font Helvetica which is not embedded"}},
        {15, "numbered.pdf", {"page 1 uses the font Helvetica which is not embedded"}},
        {16,
         "numbered.pdf",
         {"page 1 uses the font Helvetica which is not embedded",
          "page 1 has no tagged structure"}},
        {14, "translucent.pdf", {"page 1 uses transparency, which PDF/A-1 does not allow"}},
        {16,
         "translucent.pdf",
         {"page 1 uses transparency, which PDF/A-1 does not allow",
          "page 1 has no tagged structure"}},
        {18, "translucent.pdf", {}},
        {15, "translucent.pdf", {}},
    };
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "numbered.pdf", 3);
    write_painted_pdf(folder / "translucent.pdf", true);
    for (const auto &c : cases) {
        const auto target = folder / "out.pdf";
        auto assembler = make_pdf_assembler(target, snapshot_for(c.code), resources());
        for (int pageno = 1; pageno <= 3; ++pageno) {
            assembler->add_pdf_page(folder / c.source, "",
                                    std::min(pageno, c.source[0] == 'n' ? 3 : 1));
        }
        // Each reason once, at the first page that shows it; the file is written regardless.
        EXPECT_EQ(assembler->close(), c.reasons) << c.code << " " << c.source;
        EXPECT_EQ(test::structural_problems(target), "") << c.code;
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(pdf.getAllPages().size(), 3u);
    }
}

// One page for each paint ("0 1 1 0 k"), no font; the first page has a CMYK thumbnail of
// 7 x 5 pixels when asked.
void write_device_colour_pdf(const std::filesystem::path &target,
                             const std::vector<std::string> &paints, bool thumbnail = false)
{
    QPDF pdf;
    pdf.emptyPDF();
    for (const auto &paint : paints) {
        QPDFObjectHandle page = QPDFObjectHandle::parse(
            "<< /Type /Page /MediaBox [0 0 200 200] /Resources << >> >>");
        page.replaceKey("/Contents", pdf.newStream(paint + " 20 20 100 100 re f\n"));
        if (thumbnail && pdf.getAllPages().empty()) {
            QPDFObjectHandle thumb = pdf.newStream(std::string(7 * 5 * 4, '\x40'));
            thumb.replaceDict(QPDFObjectHandle::parse(
                "<< /Width 7 /Height 5 /ColorSpace /DeviceCMYK /BitsPerComponent 8 >>"));
            page.replaceKey("/Thumb", thumb);
        }
        pdf.addPage(pdf.makeIndirectObject(page), false);
    }
    QPDFWriter writer(pdf, target.c_str());
    writer.write();
}

// The thumbnail's colour space need not fit the output intent, so PDF/A files go without:
// neither the page nor any other object of the file keeps it.
TEST(Conformance, PdfADropsPageThumbnails)
{
    const struct { int code; bool kept; } cases[] = {{14, false}, {18, false}, {21, false},
                                                     {15, true}, {4, true}};
    test::TempFolder folder;
    write_device_colour_pdf(folder / "thumbnailed.pdf", {"0.5 g"}, true);
    for (const auto &c : cases) {
        const auto target = folder / "out.pdf";
        EXPECT_TRUE(assemble(target, c.code, {Content::Copied}, folder / "thumbnailed.pdf").empty());
        QPDF pdf;
        test::open_pdf(pdf, target);
        int thumbnails = 0; // a file holds only the objects it reaches
        for (auto &object : pdf.getAllObjects()) {
            thumbnails += object.isStream() && object.getDict().getKey("/Width").isInteger() &&
                          object.getDict().getKey("/Width").getIntValue() == 7;
        }
        EXPECT_EQ(thumbnails, c.kept ? 1 : 0) << c.code;
    }
}

TEST(Conformance, PdfA1bFromPicturesPassesPreflight)
{
    test::TempFolder folder;
    write_painted_pdf(folder / "fills.pdf", false);
    const auto target = folder / "archive.pdf";
    ASSERT_TRUE(assemble(target, 14, {Content::Bilevel, Content::Colour, Content::CopiedFills},
                         folder / "fills.pdf")
                    .empty());
    const auto verdict = test::run_preflight_a1b(target);
    if (!verdict.ran) {
        GTEST_SKIP() << "java or Apache PDFBox Preflight is not installed";
    }
    EXPECT_EQ(verdict.status, 0) << verdict.output;

    // The validator is not lenient: a file that uses an unembedded font fails it.
    test::write_numbered_pdf(folder / "numbered.pdf", 1);
    const auto failing = folder / "failing.pdf";
    EXPECT_FALSE(assemble(failing, 14, {Content::Copied}, folder / "numbered.pdf").empty());
    EXPECT_NE(test::run_preflight_a1b(failing).status, 0);
}

TEST(Conformance, BilevelOnlyPdfA1bPassesPreflight)
{
    test::TempFolder folder;
    const auto target = folder / "scans.pdf";
    ASSERT_TRUE(assemble(target, 14, {Content::Bilevel, Content::Bilevel}).empty());
    const auto verdict = test::run_preflight_a1b(target);
    if (!verdict.ran) {
        GTEST_SKIP() << "java or Apache PDFBox Preflight is not installed";
    }
    EXPECT_EQ(verdict.status, 0) << verdict.output;
}

// Each PDF/A-1b input took the output intent of its own pages (gray and RGB: RGB; CMYK:
// CMYK; gray: Gray); the merged file has one that fits every page, whichever comes first.
TEST(Conformance, CombinedPdfAHasAnOutputIntentThatFitsEveryPage)
{
    test::TempFolder folder;
    write_device_colour_pdf(folder / "cmyk-source.pdf", {"0 1 1 0 k"});
    const auto rgb = folder / "rgb.pdf", cmyk = folder / "cmyk.pdf", gray = folder / "gray.pdf";
    ASSERT_TRUE(assemble(rgb, 14, {Content::Bilevel, Content::Colour}).empty());
    ASSERT_TRUE(assemble(cmyk, 14, {Content::Copied}, folder / "cmyk-source.pdf").empty());
    ASSERT_TRUE(assemble(gray, 14, {Content::Bilevel}).empty());
    const struct { std::vector<std::filesystem::path> inputs; int components; } cases[] = {
        {{rgb, cmyk}, 3}, {{cmyk, rgb}, 3}, {{gray, cmyk, gray}, 4}, {{gray, gray}, 1}};
    for (const auto &c : cases) {
        const auto target = folder / "Combine.PDF";
        merge_pdfs(c.inputs, target, snapshot_for(14), [](const std::filesystem::path &) {});
        EXPECT_EQ(encryptpdfnow(target, snapshot_for(14)), std::vector<std::string>{});
        QPDF pdf;
        test::open_pdf(pdf, target);
        QPDFObjectHandle intent = pdf.getRoot().getKey("/OutputIntents").getArrayItem(0);
        EXPECT_EQ(intent.getKey("/DestOutputProfile").getDict().getKey("/N").getIntValue(),
                  c.components);
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
    write_device_colour_pdf(folder / "page.pdf", {"0.5 g"});
    for (const auto &c : cases) {
        // A gray page given the Gray output intent, the pages of `paints` behind it.
        const auto target = folder / "gray.pdf";
        assemble(folder / "assembled.pdf", c.code, {Content::Copied}, folder / "page.pdf");
        write_device_colour_pdf(folder / "more.pdf", c.paints);
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

} // namespace
} // namespace qf::writers::pdf
