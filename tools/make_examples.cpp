// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the sample documents of examples/: make_examples [FOLDER]
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <tiffio.h>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

namespace fs = std::filesystem;

namespace {

// A page picture: a tinted background, a dark frame and a diagonal band, so that pages differ.
std::vector<unsigned char> picture(int width, int height, int page)
{
    std::vector<unsigned char> rgb(static_cast<std::size_t>(width) * height * 3);
    const unsigned char tint[3][3] = {{235, 240, 255}, {255, 240, 225}, {230, 255, 235}};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            unsigned char* p = rgb.data() + (static_cast<std::size_t>(y) * width + x) * 3;
            const bool frame = x < 12 || y < 12 || x >= width - 12 || y >= height - 12;
            const bool band = std::abs(x * height / width - y) < height / 20 + 4 * page;
            for (int c = 0; c < 3; ++c) {
                p[c] = frame ? 40 : band ? static_cast<unsigned char>(60 + 60 * c) : tint[page % 3][c];
            }
        }
    }
    return rgb;
}

void write_rgb_page(TIFF* tif, int width, int height, int page, bool tiled)
{
    const auto rgb = picture(width, height, page);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, 100.0f);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, 100.0f);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tif, TIFFTAG_DOCUMENTNAME, "Quirefold sample");
    if (tiled) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, 128);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, 128);
        std::vector<unsigned char> tile(static_cast<std::size_t>(TIFFTileSize(tif)));
        for (int top = 0; top < height; top += 128) {
            for (int left = 0; left < width; left += 128) {
                std::fill(tile.begin(), tile.end(), 255);
                for (int row = 0; row < 128 && top + row < height; ++row) {
                    const int columns = std::min(128, width - left);
                    std::copy_n(rgb.data() + (static_cast<std::size_t>(top + row) * width + left) * 3, columns * 3,
                                tile.data() + static_cast<std::size_t>(row) * 128 * 3);
                }
                TIFFWriteTile(tif, tile.data(), left, top, 0, 0);
            }
        }
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 32);
        for (int y = 0; y < height; ++y) {
            TIFFWriteScanline(tif, const_cast<unsigned char*>(rgb.data()) + static_cast<std::size_t>(y) * width * 3, y);
        }
    }
    TIFFWriteDirectory(tif);
}

void write_bilevel_page(TIFF* tif, int width, int height, int page)
{
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, 200.0f);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, 200.0f);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, height);
    std::vector<unsigned char> row((width + 7) / 8);
    for (int y = 0; y < height; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (int x = 0; x < width; ++x) {
            // Ruled lines like a form, a frame, and one block per page number.
            const bool black = x < 8 || y < 8 || x >= width - 8 || y >= height - 8 || (y % 80 < 3 && x > 100) ||
                               (x > 100 && x < 100 + 60 * (page + 1) && y > 100 && y < 160);
            if (black) {
                row[x / 8] |= static_cast<unsigned char>(0x80 >> (x % 8));
            }
        }
        TIFFWriteScanline(tif, row.data(), y);
    }
    TIFFWriteDirectory(tif);
}

void write_tiffs(const fs::path& folder)
{
    TIFF* colour = TIFFOpen((folder / "colour-multipage.tif").c_str(), "w");
    for (int page = 0; page < 3; ++page) {
        write_rgb_page(colour, 425, 550, page, false);
    }
    TIFFClose(colour);

    TIFF* bilevel = TIFFOpen((folder / "scan-bilevel.tif").c_str(), "w");
    for (int page = 0; page < 2; ++page) {
        write_bilevel_page(bilevel, 1700, 2200, page);
    }
    TIFFClose(bilevel);

    // A tiled file shows its second image as its one page.
    TIFF* tiled = TIFFOpen((folder / "tiled.tif").c_str(), "w");
    write_rgb_page(tiled, 300, 300, 0, true);
    write_rgb_page(tiled, 300, 300, 1, true);
    TIFFClose(tiled);
}

QPDFObjectHandle content_stream(QPDF& pdf, const std::string& text)
{
    return QPDFObjectHandle::newStream(&pdf, text);
}

QPDFObjectHandle font(QPDF& pdf)
{
    return pdf.makeIndirectObject(
        QPDFObjectHandle::parse("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"));
}

QPDFObjectHandle page(QPDF& pdf, double width, double height, const std::string& text, QPDFObjectHandle helvetica)
{
    auto resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/Font", QPDFObjectHandle::parse("<< >>"));
    resources.getKey("/Font").replaceKey("/F1", helvetica);
    auto dict = QPDFObjectHandle::parse("<< /Type /Page >>");
    dict.replaceKey("/MediaBox", QPDFObjectHandle::newArray(std::vector<QPDFObjectHandle>{
                                     QPDFObjectHandle::newInteger(0), QPDFObjectHandle::newInteger(0),
                                     QPDFObjectHandle::newReal(width, 2), QPDFObjectHandle::newReal(height, 2)}));
    dict.replaceKey("/Resources", resources);
    dict.replaceKey("/Contents", content_stream(pdf, text));
    return pdf.makeIndirectObject(dict);
}

void write_form_pdf(const fs::path& path)
{
    QPDF pdf;
    pdf.emptyPDF();
    auto helvetica = font(pdf);
    auto first = page(pdf, 612, 792,
                      "BT /F1 24 Tf 72 700 Td (Quirefold sample form) Tj ET\n"
                      "BT /F1 12 Tf 72 650 Td (Name:) Tj ET\n"
                      "0.2 0.2 0.6 RG 2 w 72 560 m 540 560 l S\n",
                      helvetica);
    auto field_appearance = pdf.makeIndirectObject(QPDFObjectHandle::newStream(
        &pdf, "/Tx BMC BT /F1 12 Tf 0 g 2 6 Td (Ada Lovelace) Tj ET EMC\n"));
    field_appearance.getDict().replaceKey("/BBox", QPDFObjectHandle::parse("[0 0 300 22]"));
    field_appearance.getDict().replaceKey("/Resources", QPDFObjectHandle::parse("<< /Font << >> >>"));
    field_appearance.getDict().getKey("/Resources").getKey("/Font").replaceKey("/F1", helvetica);
    auto field = pdf.makeIndirectObject(QPDFObjectHandle::parse(
        "<< /Type /Annot /Subtype /Widget /FT /Tx /T (name) /V (Ada Lovelace) /DA (/F1 12 Tf 0 g) "
        "/Rect [120 640 420 662] /F 4 /MK << /BC [0 0 1] >> >>"));
    field.replaceKey("/AP", QPDFObjectHandle::newDictionary());
    field.getKey("/AP").replaceKey("/N", field_appearance);
    auto square_appearance = pdf.makeIndirectObject(
        QPDFObjectHandle::newStream(&pdf, "1 0 0 RG 4 w 2 2 116 76 re S\n"));
    square_appearance.getDict().replaceKey("/BBox", QPDFObjectHandle::parse("[0 0 120 80]"));
    auto square = pdf.makeIndirectObject(QPDFObjectHandle::parse(
        "<< /Type /Annot /Subtype /Square /Rect [400 400 520 480] /C [1 0 0] /F 4 /Contents (Checked) >>"));
    square.replaceKey("/AP", QPDFObjectHandle::newDictionary());
    square.getKey("/AP").replaceKey("/N", square_appearance);
    first.replaceKey("/Annots", QPDFObjectHandle::newArray(std::vector<QPDFObjectHandle>{field, square}));
    field.replaceKey("/P", first);

    auto acroform = QPDFObjectHandle::parse("<< /DA (/F1 12 Tf 0 g) >>");
    acroform.replaceKey("/Fields", QPDFObjectHandle::newArray(std::vector<QPDFObjectHandle>{field}));
    acroform.replaceKey("/DR", QPDFObjectHandle::parse("<< /Font << >> >>"));
    acroform.getKey("/DR").getKey("/Font").replaceKey("/F1", helvetica);
    pdf.getRoot().replaceKey("/AcroForm", pdf.makeIndirectObject(acroform));
    QPDFPageDocumentHelper(pdf).addPage(first, false);
    QPDFWriter writer(pdf, path.c_str());
    writer.setStaticID(true);
    writer.write();
}

void write_rotated_pdf(const fs::path& path)
{
    QPDF pdf;
    pdf.emptyPDF();
    auto helvetica = font(pdf);
    QPDFPageDocumentHelper pages(pdf);
    pages.addPage(page(pdf, 595.28, 841.89, "BT /F1 28 Tf 72 760 Td (Page 1, upright) Tj ET\n", helvetica), false);
    auto turned = page(pdf, 595.28, 841.89, "BT /F1 28 Tf 72 760 Td (Page 2, turned a quarter) Tj ET\n", helvetica);
    turned.replaceKey("/Rotate", QPDFObjectHandle::newInteger(90));
    pages.addPage(turned, false);
    pages.addPage(page(pdf, 612, 396, "BT /F1 28 Tf 72 300 Td (Page 3, half letter) Tj ET\n", helvetica), false);
    QPDFWriter writer(pdf, path.c_str());
    writer.setStaticID(true);
    writer.write();
}

} // namespace

int main(int argc, char** argv)
{
    const fs::path folder = argc > 1 ? fs::path(argv[1]) : fs::path("examples");
    fs::create_directories(folder);
    write_tiffs(folder);
    write_form_pdf(folder / "form-and-annotation.pdf");
    write_rotated_pdf(folder / "rotated-pages.pdf");
    std::printf("Sample documents written to %s\n", folder.c_str());
    return 0;
}
