// SPDX-License-Identifier: GPL-3.0-or-later
// Documents the assembler builds: their pages, versions and conformance levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "engine/error.h"
#include "tests/support/hostile_files.h"
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

using engine::ErrorKind;
using engine::PixelFormat;

// Steps are pages of a.pdf (1, 2, ...) and b.pdf (13 is its page 3) or 0, a picture page. The
// assemblers of one factory share their sources' parse, yet a source that changes on disk
// between them (a.pdf grows to a_pages) must be read as it now is.
TEST(PdfAssembler, HoldsTheAddedPagesInOrder)
{
    const struct { int a_pages; std::vector<int> steps; std::vector<std::string> expected; } cases[] = {
        {2, {2, 0, 13, 2}, {"Hello page 2", "", "Hello page 3", "Hello page 2"}},
        {5, {5, 13}, {"Hello page 5", "Hello page 3"}},
    };
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "b.pdf", 3);
    const auto factory = pdf_assembler_factory(resources());
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.steps));
        test::write_numbered_pdf(folder / "a.pdf", c.a_pages);
        const auto target = folder / "out.pdf";
        auto assembler = factory(target, snapshot_for(7));
        for (const int step : c.steps) {
            if (step == 0) {
                assembler->add_image_page(test::patterned_bilevel(40, 40), 1.0);
            } else {
                assembler->add_pdf_page(folder / (step > 10 ? "b.pdf" : "a.pdf"), "", step % 10);
            }
        }
        EXPECT_EQ(assembler->page_count(), static_cast<int>(c.steps.size()));
        EXPECT_TRUE(assembler->close().empty());
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(test::page_labels(pdf), c.expected);
    }
}

// Picture pages measure pixels times the page scale, the picture drawn over the whole page;
// bilevel ones stay one bit (CCITT G4), colour ones 8-bit RGB, each keeping every pixel.
TEST(PdfAssembler, PicturePagesKeepTheirSizeDepthAndEveryPixel)
{
    const struct { engine::PagePicture picture; double pagescale, points_wide, points_high; } cases[] = {
        {test::gradient_rgb(200, 100), 72.0 / 96, 150, 75},
        {test::patterned_bilevel(101, 51), 72.0 / 200, 36.36, 18.36}, // not a multiple of 8
    };
    test::TempFolder folder;
    const auto target = folder / "scan.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    for (const auto &c : cases) {
        assembler->add_image_page(c.picture, c.pagescale);
    }
    assembler->close();
    QPDF pdf;
    test::open_pdf(pdf, target);
    const auto pages = QPDFPageDocumentHelper(pdf).getAllPages();
    ASSERT_EQ(pages.size(), std::size(cases));
    for (std::size_t i = 0; i < pages.size(); ++i) {
        const auto &[picture, pagescale, points_wide, points_high] = cases[i];
        SCOPED_TRACE(picture.width);
        const auto box = test::page_box(pages[i], "/MediaBox");
        ASSERT_EQ(box.size(), 4u);
        EXPECT_NEAR(box[2] - box[0], points_wide, 0.001);
        EXPECT_NEAR(box[3] - box[1], points_high, 0.001);
        std::ostringstream matrix;
        matrix << points_wide << " 0 0 " << points_high << " 0 0 cm";
        EXPECT_NE(test::page_content(pages[i]).find(matrix.str()), std::string::npos);

        const bool bilevel = picture.format == PixelFormat::Bilevel;
        auto images = test::page_images(pages[i]);
        ASSERT_EQ(images.size(), 1u);
        QPDFObjectHandle dict = images[0].getDict();
        EXPECT_EQ(dict.getKey("/BitsPerComponent").getIntValue(), bilevel ? 1 : 8);
        EXPECT_TRUE(dict.getKey("/ColorSpace").isNameAndEquals(bilevel ? "/DeviceGray" : "/DeviceRGB"));
        if (bilevel) {
            EXPECT_TRUE(dict.getKey("/Filter").isNameAndEquals("/CCITTFaxDecode"));
            EXPECT_EQ(dict.getKey("/DecodeParms").getKey("/K").getIntValue(), -1);
            EXPECT_EQ(dict.getKey("/DecodeParms").getKey("/Columns").getIntValue(), picture.width);
        }
        const auto data =
            bilevel ? images[0].getRawStreamData() : images[0].getStreamData(qpdf_dl_generalized);
        const std::string bytes(reinterpret_cast<const char *>(data->getBuffer()), data->getSize());
        EXPECT_EQ(bilevel ? test::decode_g4(bytes, picture.width, picture.height, folder.path()).pixels
                          : std::vector<std::uint8_t>(bytes.begin(), bytes.end()),
                  picture.pixels);
    }
}

// All form XObjects a page draws, and the ones they draw, as decoded text.
std::string drawn_forms(QPDFPageObjectHelper page)
{
    std::string text;
    page.forEachFormXObject(
        true, [&](QPDFObjectHandle &form, QPDFObjectHandle &, const std::string &) {
            const auto data = form.getStreamData(qpdf_dl_generalized);
            text.append(reinterpret_cast<const char *>(data->getBuffer()), data->getSize());
        });
    return text;
}

// Annotations and fields become page content; rotation and boxes are kept; sources are only read.
TEST(PdfAssembler, CopiedPagesShowWhatTheSourceShows)
{
    test::TempFolder folder;
    test::write_square_annotation_pdf(folder / "annotated.pdf", test::AnnotationForm::WithAppearance);
    test::write_text_field_pdf(folder / "filled.pdf", "Ada Lovelace", test::FieldForm::NeedAppearances);
    test::PdfPageSpec turned{.width = 300, .height = 500, .rotate = 90};
    turned.fills.push_back({{10, 10, 50, 50}, test::kPdfRed});
    test::write_pdf(folder / "turned.pdf", {turned});
    const auto filled_before = test::file_bytes(folder / "filled.pdf");

    const auto target = folder / "flat.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    for (const char *source : {"annotated.pdf", "filled.pdf", "turned.pdf"}) {
        assembler->add_pdf_page(folder / source, "", 1);
    }
    assembler->close();

    QPDF pdf;
    test::open_pdf(pdf, target);
    EXPECT_FALSE(pdf.getRoot().hasKey("/AcroForm"));
    auto pages = QPDFPageDocumentHelper(pdf).getAllPages();
    ASSERT_EQ(pages.size(), 3u);
    for (auto &page : pages) {
        EXPECT_FALSE(page.getObjectHandle().hasKey("/Annots"));
    }
    EXPECT_NE(drawn_forms(pages[0]).find(" re"), std::string::npos); // the square's appearance
    EXPECT_NE(drawn_forms(pages[1]).find("Ada Lovelace"), std::string::npos);
    EXPECT_EQ(pages[2].getObjectHandle().getKey("/Rotate").getIntValue(), 90);
    EXPECT_EQ(test::page_box(pages[2], "/MediaBox"), (std::vector<double>{0, 0, 300, 500}));
    EXPECT_EQ(test::file_bytes(folder / "filled.pdf"), filled_before);
}

// Each refusal has its kind and never shows the password; it spoils nothing, and a protected
// source opens with its password.
TEST(PdfAssembler, RefusesPagesItCannotRead)
{
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "three.pdf", 3);
    test::write_encrypted_copy(folder / "three.pdf", folder / "locked.pdf",
                               test::PdfEncryption::Aes128, "right", "owner");
    test::write_garbage_pdf(folder / "garbage.pdf");
    const struct { const char *file, *password; int pageno; ErrorKind kind; } cases[] = {
        {"locked.pdf", "wrong", 1, ErrorKind::Password}, {"three.pdf", "", 4, ErrorKind::BadInput},
        {"three.pdf", "", 0, ErrorKind::BadInput},       {"garbage.pdf", "", 1, ErrorKind::Damaged},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.file) + " page " + std::to_string(c.pageno));
        const auto target = folder / "out.pdf";
        auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
        try {
            assembler->add_pdf_page(folder / c.file, c.password, c.pageno);
            ADD_FAILURE() << "accepted";
        } catch (const engine::Error &e) {
            EXPECT_EQ(e.kind(), c.kind) << e.what();
            EXPECT_EQ(e.reason().find(c.password[0] ? c.password : "\x01"), std::string::npos);
        }
        assembler->add_pdf_page(folder / "locked.pdf", "right", 2);
        assembler->close();
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(test::page_labels(pdf), std::vector<std::string>{"Hello page 2"});
    }
}

// A document without pages leaves an older file alone; an abandoned one leaves nothing.
TEST(PdfAssembler, LeavesNoPartialFileBehind)
{
    test::TempFolder folder;
    const auto target = folder / "report.pdf";
    test::write_text_file(target, "an older report");
    auto empty = make_pdf_assembler(target, snapshot_for(7), resources());
    try {
        empty->close();
        ADD_FAILURE() << "an empty document was written";
    } catch (const engine::Error &e) {
        EXPECT_EQ(e.kind(), ErrorKind::Output);
        EXPECT_EQ(e.reason(), "no page could be converted");
    }
    EXPECT_EQ(test::file_bytes(target), "an older report");
    {
        auto abandoned = make_pdf_assembler(folder / "abandoned.pdf", snapshot_for(7), resources());
        abandoned->add_image_page(test::gradient_rgb(30, 30), 1.0);
    }
    EXPECT_EQ(folder.entries(), std::vector<std::string>{"report.pdf"});
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
        {0, Copied, "1.0", false}, {4, Copied, "1.4", false},  {5, Copied, "1.5", true},
        {8, Copied, "2.0", true},  {42, Copied, "1.4", false}, {1, Colour, "1.2", false}, // Flate
        {14, Bilevel, "1.4", false, a1, "Gray"},
        {14, Colour, "1.4", false, b, "RGB"},
        {16, Bilevel, "1.4", false, "<pdfaid:conformance>A</pdfaid:conformance>", "Gray", true},
        {17, Colour, "1.7", true, "<pdfaid:part>2</pdfaid:part>", "RGB", true},
        {18, Bilevel, "1.7", true, b, "Gray"},
        {19, Colour, "1.7", true, u, "RGB"},
        {20, Bilevel, "1.7", true, "<pdfaid:part>3</pdfaid:part>", "Gray", true},
        {21, Colour, "1.7", true, "<pdfaid:part>3</pdfaid:part>", "RGB"},
        {22, Copied, "1.7", true, u, "RGB"},
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
        QPDFObjectHandle intent = intents.getArrayItem(0);
        EXPECT_TRUE(intent.getKey("/S").isNameAndEquals(c.code == 15 ? "/GTS_PDFX" : "/GTS_PDFA1"));
        const std::string profile = c.profile;
        EXPECT_EQ(intent.getKey("/DestOutputProfile").getDict().getKey("/N").getIntValue(),
                  profile == "Gray" ? 1 : profile == "RGB" ? 3 : 4);
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

// One page showing text in a subset font (written inside the page's resources, with no font
// descriptor) and in a Type 3 font whose glyph shows text in a font
// of the Type 3 font's own resources, none embedded, and in an embedded CID font of the
// Identity ordering without a ToUnicode map; a gray image that asks for interpolation and an
// RGB inline image.
void write_fonts_and_images_pdf(const fs::path &target)
{
    QPDF pdf;
    pdf.emptyPDF();
    const auto font = [&](const std::string &entries) {
        return pdf.makeIndirectObject(QPDFObjectHandle::parse(&pdf, "<< /Type /Font " + entries +
                                                                        " >>")).unparse();
    };
    const std::string cid_font = font("/Subtype /Type0 /BaseFont /Gothic /Encoding /Identity-H "
        "/DescendantFonts [<< /Type /Font /Subtype /CIDFontType2 /BaseFont /Gothic /CIDSystemInfo "
        "<< /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> /FontDescriptor << /FontFile2 " +
        test::new_stream(pdf, "glyphs", "<< >>").unparse() + " >> >>]");
    auto glyph = test::new_stream(pdf, "500 0 d0 BT /F2 10 Tf (x) Tj ET", "<< >>");
    auto type3 = pdf.makeIndirectObject(QPDFObjectHandle::parse(&pdf,
        "<< /Type /Font /Subtype /Type3 /FontBBox [0 0 500 500] /FontMatrix [0.001 0 0 0.001 0 0] "
        "/CharProcs << /a " + glyph.unparse() + " >> /Encoding << /Differences [97 /a] >> "
        "/FirstChar 97 /LastChar 97 /Widths [500] "
        "/Resources << /Font << /F2 " + font("/Subtype /Type1 /BaseFont /Courier") + " >> >> >>"));
    auto image = test::new_stream(pdf, "\x20\x80\xc0\xff",
        "<< /Type /XObject /Subtype /Image /Width 2 /Height 2 /ColorSpace /DeviceGray "
        "/BitsPerComponent 8 /Interpolate true >>");
    QPDFObjectHandle page = QPDFObjectHandle::parse(&pdf,
        "<< /Type /Page /MediaBox [0 0 200 200] /Resources << /Font << /F1 "
        "<< /Type /Font /Subtype /Type1 /BaseFont /ABCDEF+Helvetica >> /F3 " + type3.unparse() +
        " /F4 " + cid_font + " >> /XObject << /Im1 " + image.unparse() + " >> >> >>");
    page.replaceKey("/Contents", pdf.newStream("BT /F1 10 Tf (Hi) Tj /F3 10 Tf (a) Tj "
        "/F4 10 Tf <0001> Tj ET 20 0 0 20 0 0 cm /Im1 Do BI /W 1 /H 1 /CS /RGB /BPC 8 ID \xff\x10\x10 EI\n"));
    pdf.addPage(pdf.makeIndirectObject(page), false);
    QPDFWriter(pdf, target.c_str()).write();
}

// Each reason once, at the first page that shows it; the file is written regardless, with the
// output intent its pages' colours need (components; 0: none) and no image interpolated.
TEST(Conformance, ReportsWhatKeepsCopiedPagesFromConforming)
{
    const std::string font = "page 1 uses the font Helvetica which is not embedded",
                      untagged = "page 1 has no tagged structure",
                      transparency = "page 1 uses transparency, which PDF/A-1 does not allow",
                      courier = "page 1 uses the font Courier which is not embedded",
                      no_unicode = "whose text has no Unicode mapping";
    const struct { int code; const char *source; std::vector<std::string> reasons; int intent;
    } cases[] = {
        {7, "numbered.pdf", {}, 0},              {14, "numbered.pdf", {font}, 1},
        {15, "numbered.pdf", {font}, 4},         {14, "translucent.pdf", {transparency}, 3},
        {16, "translucent.pdf", {transparency, untagged}, 3},
        {18, "translucent.pdf", {}, 3},
        {14, "fonts.pdf", {font, courier}, 3},
        {19, "fonts.pdf", {font, courier, "page 1 uses the font (unnamed) " + no_unicode,
                           "page 1 uses the font Gothic " + no_unicode}, 3},
    };
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "numbered.pdf", 3);
    write_painted_pdf(folder / "translucent.pdf", {"1 0 0 rg"}, "<< /Type /ExtGState /ca 0.5 >>");
    write_fonts_and_images_pdf(folder / "fonts.pdf");
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.code) + " " + c.source);
        const auto target = folder / "out.pdf";
        auto assembler = make_pdf_assembler(target, snapshot_for(c.code), resources());
        for (int pageno = 1; pageno <= 3; ++pageno) {
            assembler->add_pdf_page(folder / c.source, "", c.source[0] == 'n' ? pageno : 1);
        }
        EXPECT_EQ(assembler->close(), c.reasons);
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(pdf.getAllPages().size(), 3u);
        QPDFObjectHandle intents = pdf.getRoot().getKey("/OutputIntents");
        EXPECT_EQ(intents.isArray() ? intents.getArrayItem(0).getKey("/DestOutputProfile").getDict()
                                          .getKey("/N").getIntValue() : 0, c.intent);
        for (auto &object : pdf.getAllObjects()) {
            EXPECT_FALSE(object.isStream() && object.getDict().hasKey("/Interpolate"));
        }
    }
}

// Each input took the output intent of its own pages (gray and RGB: RGB; CMYK: CMYK; gray:
// Gray); the merged file has one that fits every page, whichever comes first, and passes the
// PDF/A-1b validator. No input stays mapped once merged (a deleted part would keep its space).
TEST(Conformance, PdfA1bFilesAndTheirMergesPassTheValidator)
{
    test::TempFolder folder;
    write_painted_pdf(folder / "cmyk-source.pdf", {"0 1 1 0 k"}, "<< /Type /ExtGState /ca 1 >>");
    const auto rgb = folder / "rgb.pdf", cmyk = folder / "cmyk.pdf", gray = folder / "gray.pdf";
    ASSERT_TRUE(assemble(rgb, 14, {Content::Bilevel, Content::Colour}).empty());
    ASSERT_TRUE(assemble(cmyk, 14, {Content::Copied}, folder / "cmyk-source.pdf").empty());
    ASSERT_TRUE(assemble(gray, 14, {Content::Bilevel}).empty());
    const struct { std::vector<fs::path> inputs; int components; } cases[] = {
        {{cmyk, rgb}, 3}, {{gray, cmyk, gray}, 4}, {{gray, gray}, 1}};
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
    EXPECT_FALSE(contains(test::file_bytes("/proc/self/maps"), folder.path().string()));
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
