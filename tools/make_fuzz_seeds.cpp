// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the seed corpora of the fuzz targets: make_fuzz_seeds FOLDER (fuzz/corpus) fills
// FOLDER/<target>/ with small valid inputs of the forms each reader accepts, and a few damaged
// ones. Documents come from the test fixtures' writers plus a few kinds only seeds need.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <tiffio.h>

#include "engine/options.h"
#include "settings/option_table.h"
#include "settings/profile_file.h"
#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace {

namespace fs = std::filesystem;
using qf::test::TiffKind;
using qf::test::TiffPage;
using qf::test::write_text_file;

// Page count, From, To and the range text, one a line.
void write_range_seeds(const fs::path &folder)
{
    const std::pair<const char *, const char *> seeds[] = {
        {"all-pages", "12\n1\n12\n1-12"},
        {"repeats", "12\n1\n12\n3,5,3"},
        {"beyond-end", "12\n1\n12\n5-99"},
        {"open-start", "12\n2\n4\n-7"},
        {"open-end", "12\n1\n12\n7-"},
        {"falling", "12\n1\n12\n12-8,9-2"},
        {"not-numbers", "12\n1\n12\n x , 0 ,4-4"},
        {"blanks", "3\n1\n3\n 1 - 2 ,, 3"},
        {"no-pages", "0\n1\n0\n1"},
        {"fractions", "1e2\n2.5\n7.9\n1e1-3.5,2-"},
        {"long-document", "100000\n1\n100000\n1-100000,50000"},
    };
    for (const auto &[name, text] : seeds) {
        write_text_file(folder / name, text);
    }
}

void write_profile_seeds(const fs::path &folder)
{
    using qf::engine::OptionId;
    qf::engine::OptionValues values = qf::settings::default_values();
    qf::settings::savetoxml(folder / "defaults.qfk", values);
    values.set(OptionId::imageformat, 4);
    values.set(OptionId::tiffcompression, 4);
    values.set(OptionId::combineall, true);
    values.set(OptionId::combinedfilename, std::string("All scans"));
    values.set(OptionId::pdfpassword, std::string("open sesame"));
    values.set(OptionId::pdffullpassword, std::string("m\xC3\xA4ster"));
    values.set(OptionId::pdfauthor, std::string("A. Writer & <Co>"));
    qf::settings::savetoxml(folder / "passwords-and-choices.qfk", values);

    const std::pair<const char *, const char *> seeds[] = {
        {"hand-made-clear-passwords.qfk", "<S><QF pdfpassword=\"plain\"/><QF "
                                          "pdffullpassword=\"owner\"/><QF imageformat=\"2\"/></S>"},
        {"any-case-names.qfk",
         "<?xml version=\"1.0\"?><X><e VERSION=\"1.0\"/><e CombineAll=\"TRUE\"/>"
         "<e encryptionlevel=\"3\"/><e ZoomFactor=\"1\"/></X>"},
        {"rows-out-of-range.qfk",
         "<R><QF version=\"1\"/><QF zoomfactor=\"99\"/><QF imageformat=\"-1\"/>"
         "<QF tiffcompression=\"2.9\"/><QF jpgquality=\"abc\"/></R>"},
        {"later-duplicate-wins.qfk", "<R><QF dotsperinch=\"300\"/><!-- note --><QF dotsperinch=\" "
                                     "600 \"/>text<QF x=\"1\"/></R>"},
        {"entry-without-setting.qfk", "<R><QF imageformat=\"3\"/><QF/></R>"},
        {"not-xml.qfk", "<R><QF imageformat=\"3\"></R>"},
        {"no-root.qfk", "<?xml version=\"1.0\"?><!-- nothing -->"},
        {"bom-and-entities.qfk",
         "\xEF\xBB\xBF<R><QF version=\" \"/><QF pdftitle=\"&lt;&#x263A;&gt;&amp;\"/></R>"},
    };
    for (const auto &[name, text] : seeds) {
        write_text_file(folder / name, text);
    }
}

// A TIFF of one 16 x 12 picture of a kind the fixtures do not write.
enum class ExtraTiff { Palette, Cmyk, Gray4, BigEndianRgb };

void write_extra_tiff(const fs::path &target, ExtraTiff kind)
{
    constexpr std::uint32_t kWidth = 16;
    constexpr std::uint32_t kHeight = 12;
    TIFF *tif = TIFFOpen(target.c_str(), kind == ExtraTiff::BigEndianRgb ? "wb" : "wl");
    if (tif == nullptr) {
        throw std::runtime_error("cannot create " + target.string());
    }
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kWidth);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHeight);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    std::uint16_t samples = 1;
    std::uint16_t bits = 8;
    std::vector<std::uint16_t> map(256);
    switch (kind) {
    case ExtraTiff::Palette:
        for (std::size_t i = 0; i < map.size(); ++i) {
            map[i] = static_cast<std::uint16_t>(i * 257);
        }
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
        break;
    case ExtraTiff::Cmyk:
        samples = 4;
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
        TIFFSetField(tif, TIFFTAG_INKSET, INKSET_CMYK);
        break;
    case ExtraTiff::Gray4:
        bits = 4;
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        break;
    case ExtraTiff::BigEndianRgb:
        samples = 3;
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        break;
    }
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits);
    if (kind == ExtraTiff::Palette) {
        // libtiff sizes the colour map by the bits per sample set when it is given.
        TIFFSetField(tif, TIFFTAG_COLORMAP, map.data(), map.data(), map.data());
    }
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kHeight);
    const std::size_t stride = (kWidth * samples * bits + 7) / 8;
    std::vector<std::uint8_t> row(stride);
    bool ok = true;
    for (std::uint32_t y = 0; y < kHeight; ++y) {
        for (std::size_t x = 0; x < stride; ++x) {
            row[x] = static_cast<std::uint8_t>(x * 16 + y * 8);
        }
        ok = ok && TIFFWriteScanline(tif, row.data(), y, 0) >= 0;
    }
    ok = ok && TIFFWriteDirectory(tif) == 1;
    TIFFClose(tif);
    if (!ok) {
        throw std::runtime_error("libtiff could not write " + target.string());
    }
}

void write_tiff_seeds(const fs::path &folder)
{
    using qf::test::make_tiff;
    const TiffPage rgb{.width = 24, .height = 16};
    const TiffPage bilevel{.width = 40, .height = 24, .kind = TiffKind::Bilevel, .compression = 4};
    make_tiff(folder / "rgb-lzw-three-pages.tif", {rgb, rgb, rgb});
    make_tiff(folder / "bilevel-g4.tif", {bilevel});
    auto with = [](TiffPage page, std::uint16_t compression) {
        page.compression = compression;
        return page;
    };
    make_tiff(folder / "bilevel-g3.tif", {with(bilevel, COMPRESSION_CCITTFAX3)});
    make_tiff(folder / "bilevel-rle.tif", {with(bilevel, COMPRESSION_CCITTRLE)});
    TiffPage min_is_black = with(bilevel, COMPRESSION_NONE);
    min_is_black.kind = TiffKind::BilevelMinIsBlack;
    make_tiff(folder / "bilevel-min-is-black.tif", {min_is_black});
    make_tiff(folder / "gray16-deflate.tif",
              {TiffPage{.width = 16, .height = 12, .kind = TiffKind::Gray16, .compression = 8}});
    make_tiff(
        folder / "rgb-alpha-packbits.tif",
        {TiffPage{.width = 16, .height = 12, .kind = TiffKind::RgbAlpha, .compression = 32773}});
    make_tiff(folder / "rgb-jpeg.tif", {with(rgb, COMPRESSION_JPEG)});
    TiffPage tiled = rgb;
    tiled.tiled = true;
    make_tiff(folder / "tiled-then-strips.tif", {tiled, rgb});
    TiffPage tagged = with(bilevel, COMPRESSION_CCITTFAX4);
    tagged.xres = 118.11f;
    tagged.yres = 78.74f;
    tagged.resolution_unit = RESUNIT_CENTIMETER;
    tagged.copyright = "(c) Fuzz";
    tagged.document_name = "Seed";
    make_tiff(folder / "bilevel-tags-centimetres.tif", {tagged, rgb});
    write_extra_tiff(folder / "palette.tif", ExtraTiff::Palette);
    write_extra_tiff(folder / "cmyk.tif", ExtraTiff::Cmyk);
    write_extra_tiff(folder / "gray4.tif", ExtraTiff::Gray4);
    write_extra_tiff(folder / "rgb-big-endian.tif", ExtraTiff::BigEndianRgb);
    write_text_file(folder / "no-images.tif", std::string("II*\0\0\0\0\0", 8));
}

// One page showing an 8 x 8 RGB picture over most of it, and a 1-bit stencil mask.
void write_image_pdf(const fs::path &target)
{
    QPDF pdf;
    pdf.emptyPDF();
    std::string rgb;
    for (int i = 0; i < 64; ++i) {
        rgb += static_cast<char>(i * 4);
        rgb += static_cast<char>(255 - i * 4);
        rgb += static_cast<char>(i % 8 * 32);
    }
    auto image = QPDFObjectHandle::newStream(&pdf, rgb);
    image.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    image.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    image.getDict().replaceKey("/Width", QPDFObjectHandle::newInteger(8));
    image.getDict().replaceKey("/Height", QPDFObjectHandle::newInteger(8));
    image.getDict().replaceKey("/ColorSpace", QPDFObjectHandle::newName("/DeviceRGB"));
    image.getDict().replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(8));
    auto mask =
        QPDFObjectHandle::newStream(&pdf, std::string("\xF0\x0F\xAA\x55\xFF\x00\x81\x7E", 8));
    mask.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    mask.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    mask.getDict().replaceKey("/Width", QPDFObjectHandle::newInteger(8));
    mask.getDict().replaceKey("/Height", QPDFObjectHandle::newInteger(8));
    mask.getDict().replaceKey("/ImageMask", QPDFObjectHandle::newBool(true));
    auto xobjects = QPDFObjectHandle::newDictionary();
    xobjects.replaceKey("/Im1", image);
    xobjects.replaceKey("/Im2", mask);
    auto resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/XObject", xobjects);
    auto page = QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 200 150] >>");
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents",
                    QPDFObjectHandle::newStream(
                        &pdf, "q 160 0 0 120 20 15 cm /Im1 Do Q q 0 0 1 rg 40 0 0 40 150 100 cm "
                              "/Im2 Do Q\n"));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pdf.makeIndirectObject(page)), false);
    QPDFWriter writer(pdf, target.c_str());
    writer.setStaticID(true);
    writer.write();
}

void write_pdf_seeds(const fs::path &folder, const fs::path &scratch)
{
    using namespace qf::test;
    write_numbered_pdf(folder / "numbered-three-pages.pdf", 3);
    PdfPageSpec rotated{.width = 300, .height = 200, .origin_x = -50, .origin_y = 20, .rotate = 90};
    rotated.fills = {{{10, 10, 100, 50}, kPdfRed}, {{150, 100, 80, 60}, kPdfBlue}};
    rotated.texts = {{20, 150, 14, "Rotated (and) shifted"}};
    write_pdf(folder / "rotated-offset-fills.pdf",
              {rotated, PdfPageSpec{.width = 100, .height = 100}});
    write_image_pdf(folder / "images.pdf");
    write_square_annotation_pdf(folder / "annotation-appearance.pdf",
                                AnnotationForm::WithAppearance);
    write_square_annotation_pdf(folder / "annotation-colours-only.pdf",
                                AnnotationForm::WithoutAppearance);
    write_text_field_pdf(folder / "field-appearance.pdf", "Filled", FieldForm::WithAppearance);
    write_text_field_pdf(folder / "field-needs-appearance.pdf", "Needs",
                         FieldForm::NeedAppearances);
    const fs::path plain = scratch / "plain.pdf";
    write_numbered_pdf(plain, 1);
    write_encrypted_copy(plain, folder / "rc4-128-no-user-password.pdf", PdfEncryption::Rc4_128, "",
                         "owner");
    write_encrypted_copy(plain, folder / "aes-128-no-user-password.pdf", PdfEncryption::Aes128, "",
                         "owner");
    write_encrypted_copy(plain, folder / "aes-256-no-user-password.pdf", PdfEncryption::Aes256, "",
                         "owner");
    write_encrypted_copy(plain, folder / "aes-128-user-password.pdf", PdfEncryption::Aes128,
                         "secret", "owner");
    write_truncated_copy(folder / "numbered-three-pages.pdf", folder / "truncated.pdf", 700);
}

void write_seeds(const fs::path &corpus)
{
    const fs::path scratch = corpus / ".scratch";
    for (const char *target : {"range_text", "profile", "admission_pdf", "admission_tiff",
                               "tiff_source", "pdf_source"}) {
        fs::create_directories(corpus / target);
    }
    fs::create_directories(scratch);
    write_range_seeds(corpus / "range_text");
    write_profile_seeds(corpus / "profile");
    // Admission reads the same documents the sources do.
    for (const char *target : {"tiff_source", "admission_tiff"}) {
        write_tiff_seeds(corpus / target);
    }
    for (const char *target : {"pdf_source", "admission_pdf"}) {
        write_pdf_seeds(corpus / target, scratch);
    }
    fs::remove_all(scratch);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
        return 2;
    }
    try {
        write_seeds(argv[1]);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "make_fuzz_seeds: %s\n", error.what());
        return 1;
    }
    return 0;
}
