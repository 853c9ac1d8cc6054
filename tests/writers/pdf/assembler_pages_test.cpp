// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <sstream>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "engine/error.h"
#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/pdf_assembler.h"

namespace qf::writers::pdf {
namespace {

using engine::ErrorKind;
using engine::PixelFormat;

std::filesystem::path resources()
{
    return std::filesystem::path(QF_SOURCE_DIR) / "resources";
}

engine::OptionSnapshot snapshot_for(int code)
{
    engine::OptionSnapshot snapshot;
    snapshot.mpdfversionnumber = code;
    return snapshot;
}

// Steps are pages of a.pdf (1, 2, ...) and b.pdf (13 is its page 3) or 0, a picture page. The
// assemblers of one factory share their sources' parse, yet a source that changes on disk
// between them (a.pdf grows to a_pages) must be read as it now is.
TEST(PdfAssembler, HoldsTheAddedPagesInOrder)
{
    const struct { int a_pages; std::vector<int> steps; std::vector<std::string> expected; } cases[] = {
        {2, {2, 2, 2}, {"Hello page 2", "Hello page 2", "Hello page 2"}},
        {2, {2, 0, 13, 1}, {"Hello page 2", "", "Hello page 3", "Hello page 1"}},
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
        EXPECT_THROW(assembler->add_pdf_page(folder / "a.pdf", "", c.a_pages + 1), engine::Error);
        EXPECT_EQ(assembler->page_count(), static_cast<int>(c.steps.size()));
        EXPECT_TRUE(assembler->close().empty());
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(test::page_labels(pdf), c.expected);
        EXPECT_EQ(test::structural_problems(target), "");
    }
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"a.pdf", "b.pdf", "out.pdf"}));
}

// Picture pages measure pixels times the page scale, the picture drawn over the whole page;
// bilevel ones stay one bit (CCITT G4), colour ones 8-bit RGB, each keeping every pixel.
TEST(PdfAssembler, PicturePagesKeepTheirSizeDepthAndEveryPixel)
{
    const struct { engine::PagePicture picture; double pagescale, points_wide, points_high; } cases[] = {
        {test::patterned_bilevel(2550, 3300), 72.0 / 300, 612, 792},
        {test::gradient_rgb(200, 100), 72.0 / 96, 150, 75},
        {test::patterned_bilevel(101, 51), 72.0 / 200, 36.36, 18.36}, // not a multiple of 8
        {test::gradient_rgb(640, 480), 1.0, 640, 480},
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
    test::write_text_field_pdf(folder / "drawn.pdf", "Grace Hopper", test::FieldForm::WithAppearance);
    test::PdfPageSpec turned{.width = 300, .height = 500, .rotate = 90};
    turned.fills.push_back({{10, 10, 50, 50}, test::kPdfRed});
    test::write_pdf(folder / "turned.pdf", {turned});
    const auto filled_before = test::file_bytes(folder / "filled.pdf");

    const auto target = folder / "flat.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    for (const char *source : {"annotated.pdf", "filled.pdf", "drawn.pdf", "turned.pdf"}) {
        assembler->add_pdf_page(folder / source, "", 1);
    }
    assembler->close();

    QPDF pdf;
    test::open_pdf(pdf, target);
    EXPECT_FALSE(pdf.getRoot().hasKey("/AcroForm"));
    auto pages = QPDFPageDocumentHelper(pdf).getAllPages();
    ASSERT_EQ(pages.size(), 4u);
    for (auto &page : pages) {
        EXPECT_FALSE(page.getObjectHandle().hasKey("/Annots"));
    }
    EXPECT_NE(drawn_forms(pages[0]).find(" re"), std::string::npos); // the square's appearance
    EXPECT_NE(drawn_forms(pages[1]).find("Ada Lovelace"), std::string::npos);
    EXPECT_NE(drawn_forms(pages[2]).find("Grace Hopper"), std::string::npos);
    EXPECT_EQ(pages[3].getObjectHandle().getKey("/Rotate").getIntValue(), 90);
    EXPECT_EQ(test::page_box(pages[3], "/MediaBox"), (std::vector<double>{0, 0, 300, 500}));
    EXPECT_EQ(test::structural_problems(target), "");
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
        {"locked.pdf", "wrong", 1, ErrorKind::Password}, {"locked.pdf", "", 1, ErrorKind::Password},
        {"three.pdf", "", 4, ErrorKind::BadInput},       {"three.pdf", "", 0, ErrorKind::BadInput},
        {"garbage.pdf", "", 1, ErrorKind::Damaged},      {"missing.pdf", "", 1, ErrorKind::Damaged},
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
        EXPECT_EQ(assembler->page_count(), 1);
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

} // namespace
} // namespace qf::writers::pdf
