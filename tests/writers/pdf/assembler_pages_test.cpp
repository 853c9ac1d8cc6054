// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "engine/error.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"
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

std::vector<QPDFPageObjectHelper> pages_of(QPDF &pdf)
{
    return QPDFPageDocumentHelper(pdf).getAllPages();
}

TEST(PdfAssembler, CopiesSelectedPagesInSelectionOrder)
{
    const struct
    {
        std::vector<int> selection;
        std::vector<std::string> expected;
    } cases[] = {
        {{1, 2, 3}, {"Hello page 1", "Hello page 2", "Hello page 3"}},
        {{3, 1}, {"Hello page 3", "Hello page 1"}},
        {{2, 2, 2}, {"Hello page 2", "Hello page 2", "Hello page 2"}},
    };
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "source.pdf", 3);
    for (const auto &c : cases) {
        const auto target = folder / "out.pdf";
        auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
        for (const int pageno : c.selection) {
            assembler->add_pdf_page(folder / "source.pdf", "", pageno);
        }
        EXPECT_EQ(assembler->page_count(), static_cast<int>(c.selection.size()));
        EXPECT_TRUE(assembler->close().empty());
        QPDF pdf;
        test::open_pdf(pdf, target);
        EXPECT_EQ(test::page_labels(pdf), c.expected);
        EXPECT_EQ(test::structural_problems(target), "");
    }
}

// One-page files made one after another share their source's parse; a source that changes on
// disk between them, or another document, must still be read as it now is.
TEST(PdfAssembler, AssemblersOfOneFactoryReadEachSourceAsItIsNow)
{
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "source.pdf", 3);
    test::write_numbered_pdf(folder / "other.pdf", 5);
    const auto factory = pdf_assembler_factory(resources());
    const auto one_page = [&](const std::filesystem::path &source, int pageno) {
        const auto target = folder / "out.pdf";
        auto assembler = factory(target, snapshot_for(7));
        assembler->add_pdf_page(source, "", pageno);
        EXPECT_TRUE(assembler->close().empty());
        QPDF pdf;
        test::open_pdf(pdf, target);
        return test::page_labels(pdf);
    };
    using Labels = std::vector<std::string>;
    EXPECT_EQ(one_page(folder / "source.pdf", 3), Labels{"Hello page 3"});
    EXPECT_EQ(one_page(folder / "source.pdf", 1), Labels{"Hello page 1"});
    EXPECT_EQ(one_page(folder / "other.pdf", 5), Labels{"Hello page 5"});
    EXPECT_EQ(one_page(folder / "source.pdf", 2), Labels{"Hello page 2"});

    // The same name now holds a longer document: its fifth page exists and is found.
    test::write_numbered_pdf(folder / "source.pdf", 6);
    EXPECT_EQ(one_page(folder / "source.pdf", 5), Labels{"Hello page 5"});
    auto assembler = factory(folder / "bad.pdf", snapshot_for(7));
    try {
        assembler->add_pdf_page(folder / "other.pdf", "", 6);
        ADD_FAILURE() << "a page past the end was accepted";
    } catch (const engine::Error &e) {
        EXPECT_EQ(e.kind(), ErrorKind::BadInput);
    }
}

TEST(PdfAssembler, ImagePagesMeasurePixelsTimesPageScale)
{
    const struct
    {
        int width, height;
        PixelFormat format;
        double pagescale;
        double points_wide, points_high;
    } cases[] = {
        {2550, 3300, PixelFormat::Bilevel, 72.0 / 300, 612, 792},
        {200, 100, PixelFormat::Rgb8, 72.0 / 96, 150, 75},
        {101, 51, PixelFormat::Bilevel, 72.0 / 200, 36.36, 18.36},
        {640, 480, PixelFormat::Rgb8, 1.0, 640, 480},
    };
    test::TempFolder folder;
    for (const auto &c : cases) {
        const auto target = folder / "scan.pdf";
        auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
        assembler->add_image_page(c.format == PixelFormat::Bilevel
                                      ? test::patterned_bilevel(c.width, c.height)
                                      : test::gradient_rgb(c.width, c.height),
                                  c.pagescale);
        assembler->close();
        QPDF pdf;
        test::open_pdf(pdf, target);
        auto pages = pages_of(pdf);
        ASSERT_EQ(pages.size(), 1u);
        const auto box = test::page_box(pages[0], "/MediaBox");
        ASSERT_EQ(box.size(), 4u);
        EXPECT_NEAR(box[2] - box[0], c.points_wide, 0.001) << c.width;
        EXPECT_NEAR(box[3] - box[1], c.points_high, 0.001) << c.height;
        // The picture is drawn over the whole page: its matrix scales it to the page size.
        const std::string content = test::page_content(pages[0]);
        std::ostringstream matrix;
        matrix << c.points_wide << " 0 0 " << c.points_high << " 0 0 cm";
        EXPECT_NE(content.find(matrix.str()), std::string::npos) << content;
        ASSERT_EQ(test::page_images(pages[0]).size(), 1u);
        EXPECT_EQ(test::structural_problems(target), "");
    }
}

TEST(PdfAssembler, BilevelPagesStayOneBitAndKeepEveryPixel)
{
    test::TempFolder folder;
    const auto target = folder / "bilevel.pdf";
    const auto picture = test::patterned_bilevel(301, 97); // width not a multiple of 8
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    assembler->add_image_page(picture, 72.0 / 200);
    assembler->close();

    QPDF pdf;
    test::open_pdf(pdf, target);
    auto images = test::page_images(pages_of(pdf).at(0));
    ASSERT_EQ(images.size(), 1u);
    QPDFObjectHandle dict = images[0].getDict();
    EXPECT_EQ(dict.getKey("/BitsPerComponent").getIntValue(), 1);
    EXPECT_TRUE(dict.getKey("/ColorSpace").isNameAndEquals("/DeviceGray"));
    EXPECT_TRUE(dict.getKey("/Filter").isNameAndEquals("/CCITTFaxDecode"));
    EXPECT_EQ(dict.getKey("/DecodeParms").getKey("/K").getIntValue(), -1);
    EXPECT_EQ(dict.getKey("/DecodeParms").getKey("/Columns").getIntValue(), 301);

    const auto raw = images[0].getRawStreamData();
    const std::string data(reinterpret_cast<const char *>(raw->getBuffer()), raw->getSize());
    const auto decoded = test::decode_g4(data, 301, 97, folder.path());
    EXPECT_EQ(decoded.pixels, picture.pixels);
}

TEST(PdfAssembler, RgbPagesKeepEveryPixel)
{
    test::TempFolder folder;
    const auto target = folder / "colour.pdf";
    const auto picture = test::gradient_rgb(123, 45);
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    assembler->add_image_page(picture, 0.5);
    assembler->add_image_page(test::patterned_bilevel(64, 64), 0.5);
    assembler->close();

    QPDF pdf;
    test::open_pdf(pdf, target);
    auto pages = pages_of(pdf);
    ASSERT_EQ(pages.size(), 2u);
    auto images = test::page_images(pages[0]);
    ASSERT_EQ(images.size(), 1u);
    QPDFObjectHandle dict = images[0].getDict();
    EXPECT_EQ(dict.getKey("/BitsPerComponent").getIntValue(), 8);
    EXPECT_TRUE(dict.getKey("/ColorSpace").isNameAndEquals("/DeviceRGB"));
    const auto data = images[0].getStreamData(qpdf_dl_generalized);
    EXPECT_EQ(std::vector<std::uint8_t>(data->getBuffer(), data->getBuffer() + data->getSize()),
              picture.pixels);
    // The bilevel page after it is not promoted to colour.
    EXPECT_EQ(test::page_images(pages[1]).at(0).getDict().getKey("/BitsPerComponent").getIntValue(),
              1);
}

TEST(PdfAssembler, MixesCopiedAndPicturePagesInOrder)
{
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "a.pdf", 2);
    test::write_numbered_pdf(folder / "b.pdf", 3);
    const auto target = folder / "mixed.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    assembler->add_pdf_page(folder / "a.pdf", "", 2);
    assembler->add_image_page(test::patterned_bilevel(40, 40), 1.0);
    assembler->add_pdf_page(folder / "b.pdf", "", 3);
    assembler->add_pdf_page(folder / "a.pdf", "", 1);
    assembler->close();
    QPDF pdf;
    test::open_pdf(pdf, target);
    EXPECT_EQ(test::page_labels(pdf),
              (std::vector<std::string>{"Hello page 2", "", "Hello page 3", "Hello page 1"}));
    EXPECT_EQ(test::page_images(pages_of(pdf).at(1)).size(), 1u);
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

TEST(PdfAssembler, AnnotationsAndFormFieldsBecomePageContent)
{
    test::TempFolder folder;
    test::write_square_annotation_pdf(folder / "annotated.pdf",
                                      test::AnnotationForm::WithAppearance);
    test::write_text_field_pdf(folder / "filled.pdf", "Ada Lovelace",
                               test::FieldForm::NeedAppearances);
    test::write_text_field_pdf(folder / "drawn.pdf", "Grace Hopper",
                               test::FieldForm::WithAppearance);
    const auto annotated_before = test::file_bytes(folder / "annotated.pdf");
    const auto filled_before = test::file_bytes(folder / "filled.pdf");

    const auto target = folder / "flat.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    assembler->add_pdf_page(folder / "annotated.pdf", "", 1);
    assembler->add_pdf_page(folder / "filled.pdf", "", 1);
    assembler->add_pdf_page(folder / "drawn.pdf", "", 1);
    assembler->close();

    QPDF pdf;
    test::open_pdf(pdf, target);
    EXPECT_FALSE(pdf.getRoot().hasKey("/AcroForm"));
    auto pages = pages_of(pdf);
    ASSERT_EQ(pages.size(), 3u);
    for (auto &page : pages) {
        EXPECT_FALSE(page.getObjectHandle().hasKey("/Annots"));
    }
    EXPECT_NE(drawn_forms(pages[0]).find(" re"), std::string::npos); // the square's appearance
    EXPECT_NE(drawn_forms(pages[1]).find("Ada Lovelace"), std::string::npos);
    EXPECT_NE(drawn_forms(pages[2]).find("Grace Hopper"), std::string::npos);
    EXPECT_EQ(test::structural_problems(target), "");
    // The sources were read, never written.
    EXPECT_EQ(test::file_bytes(folder / "annotated.pdf"), annotated_before);
    EXPECT_EQ(test::file_bytes(folder / "filled.pdf"), filled_before);
}

TEST(PdfAssembler, KeepsPageRotationAndBoxes)
{
    test::TempFolder folder;
    test::PdfPageSpec turned;
    turned.width = 300;
    turned.height = 500;
    turned.rotate = 90;
    turned.fills.push_back({{10, 10, 50, 50}, test::kPdfRed});
    test::write_pdf(folder / "turned.pdf", {turned});
    const auto target = folder / "out.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    assembler->add_pdf_page(folder / "turned.pdf", "", 1);
    assembler->close();
    QPDF pdf;
    test::open_pdf(pdf, target);
    auto page = pages_of(pdf).at(0);
    EXPECT_EQ(page.getObjectHandle().getKey("/Rotate").getIntValue(), 90);
    EXPECT_EQ(test::page_box(page, "/MediaBox"), (std::vector<double>{0, 0, 300, 500}));
}

TEST(PdfAssembler, OpensProtectedSourcesWithTheirPassword)
{
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "plain.pdf", 2);
    test::write_encrypted_copy(folder / "plain.pdf", folder / "locked.pdf",
                               test::PdfEncryption::Aes256, "open sesame", "owner");
    const auto target = folder / "out.pdf";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    assembler->add_pdf_page(folder / "locked.pdf", "open sesame", 2);
    assembler->close();
    EXPECT_TRUE(test::opens_with(target, ""));
    QPDF pdf;
    test::open_pdf(pdf, target);
    EXPECT_EQ(test::page_labels(pdf), std::vector<std::string>{"Hello page 2"});
}

TEST(PdfAssembler, RefusesPagesItCannotRead)
{
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "three.pdf", 3);
    test::write_encrypted_copy(folder / "three.pdf", folder / "locked.pdf",
                               test::PdfEncryption::Aes128, "right", "owner");
    test::write_garbage_pdf(folder / "garbage.pdf");
    const struct
    {
        const char *file;
        const char *password;
        int pageno;
        ErrorKind kind;
    } cases[] = {
        {"locked.pdf", "wrong", 1, ErrorKind::Password}, {"locked.pdf", "", 1, ErrorKind::Password},
        {"three.pdf", "", 4, ErrorKind::BadInput},       {"three.pdf", "", 0, ErrorKind::BadInput},
        {"garbage.pdf", "", 1, ErrorKind::Damaged},      {"missing.pdf", "", 1, ErrorKind::Damaged},
    };
    for (const auto &c : cases) {
        auto assembler = make_pdf_assembler(folder / "out.pdf", snapshot_for(7), resources());
        try {
            assembler->add_pdf_page(folder / c.file, c.password, c.pageno);
            ADD_FAILURE() << c.file << " page " << c.pageno << " was accepted";
        } catch (const engine::Error &e) {
            EXPECT_EQ(e.kind(), c.kind) << c.file << ": " << e.what();
            EXPECT_EQ(e.reason().find(c.password[0] ? c.password : "\x01"), std::string::npos);
        }
        // A failed page spoils nothing: the next one still goes in.
        assembler->add_pdf_page(folder / "three.pdf", "", 2);
        EXPECT_EQ(assembler->page_count(), 1);
    }
}

TEST(PdfAssembler, DocumentWithoutPagesLeavesTheOldFileAlone)
{
    test::TempFolder folder;
    const auto target = folder / "report.pdf";
    std::ofstream(target) << "an older report";
    auto assembler = make_pdf_assembler(target, snapshot_for(7), resources());
    try {
        assembler->close();
        ADD_FAILURE() << "an empty document was written";
    } catch (const engine::Error &e) {
        EXPECT_EQ(e.kind(), ErrorKind::Output);
        EXPECT_EQ(e.reason(), "no page could be converted");
    }
    EXPECT_EQ(test::file_bytes(target), "an older report");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(PdfAssembler, LeavesNoScratchFilesBehind)
{
    test::TempFolder folder;
    test::write_numbered_pdf(folder / "source.pdf", 1);
    {
        auto assembler = make_pdf_assembler(folder / "done.pdf", snapshot_for(7), resources());
        assembler->add_image_page(test::gradient_rgb(30, 30), 1.0);
        assembler->add_pdf_page(folder / "source.pdf", "", 1);
        assembler->close();
    }
    {
        // Abandoned before close: nothing appears under the target's name.
        auto assembler = make_pdf_assembler(folder / "abandoned.pdf", snapshot_for(7), resources());
        assembler->add_image_page(test::gradient_rgb(30, 30), 1.0);
    }
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder.path())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"done.pdf", "source.pdf"}));
}

} // namespace
} // namespace qf::writers::pdf
