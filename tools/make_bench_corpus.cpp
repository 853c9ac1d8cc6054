// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the benchmark documents: make_bench_corpus FOLDER
//   scan-g4-100.tif     100 pages, 2550 x 3300 at 300 dpi, 1-bit CCITT G4, lines of word-like marks
//   colour-lzw-5.tif    5 pages, 2480 x 3508 at 300 dpi, 8-bit RGB LZW, smooth colour with grain
//   colour-lzw-20.tif   20 pages of the same
//   text-200.pdf        200 Letter pages of Helvetica text with vector rules
//   mixed-40.pdf        40 Letter pages, every other one a full-page colour photo-like image
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <tiffio.h>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

namespace fs = std::filesystem;

namespace {

void write_g4_pages(const fs::path& path, int pages)
{
    constexpr int kWidth = 2550;
    constexpr int kHeight = 3300;
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    std::mt19937 random(7);
    std::vector<unsigned char> row((kWidth + 7) / 8);
    for (int page = 0; page < pages; ++page) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kWidth);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHeight);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
        TIFFSetField(tif, TIFFTAG_XRESOLUTION, 300.0f);
        TIFFSetField(tif, TIFFTAG_YRESOLUTION, 300.0f);
        TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kHeight);
        // Lines of text: 50 px tall, words of 30 to 220 px with 25 px gaps, glyph strokes inside.
        std::vector<std::pair<int, int>> words;
        for (int y = 0; y < kHeight; ++y) {
            std::fill(row.begin(), row.end(), 0);
            const int line = (y - 300) / 75;
            const int in_line = (y - 300) % 75;
            if (y >= 300 && y < kHeight - 300 && in_line == 0) {
                words.clear();
                for (int x = 300; x < kWidth - 300;) {
                    const int length = 30 + static_cast<int>(random() % 190);
                    words.emplace_back(x, std::min(x + length, kWidth - 300));
                    x += length + 25;
                }
            }
            if (y >= 300 && y < kHeight - 300 && in_line < 40 && line >= 0) {
                for (const auto& [start, end] : words) {
                    for (int x = start; x < end; ++x) {
                        const bool stroke = ((x - start) % 14 < 4) || in_line < 4 || (in_line > 34 && (x / 7) % 3 == 0);
                        if (stroke) {
                            row[x / 8] |= static_cast<unsigned char>(0x80 >> (x % 8));
                        }
                    }
                }
            }
            TIFFWriteScanline(tif, row.data(), y);
        }
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
}

void write_colour_pages(const fs::path& path, int pages)
{
    constexpr int kWidth = 2480;
    constexpr int kHeight = 3508;
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    std::mt19937 random(11);
    std::vector<unsigned char> row(static_cast<std::size_t>(kWidth) * 3);
    for (int page = 0; page < pages; ++page) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kWidth);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHeight);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        TIFFSetField(tif, TIFFTAG_XRESOLUTION, 300.0f);
        TIFFSetField(tif, TIFFTAG_YRESOLUTION, 300.0f);
        TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const double u = static_cast<double>(x) / kWidth;
                const double v = static_cast<double>(y) / kHeight;
                const int grain = static_cast<int>(random() % 9) - 4;
                row[3 * x] = static_cast<unsigned char>(std::clamp(int(128 + 100 * std::sin(6 * u + page)) + grain, 0, 255));
                row[3 * x + 1] = static_cast<unsigned char>(std::clamp(int(128 + 90 * std::cos(5 * v)) + grain, 0, 255));
                row[3 * x + 2] = static_cast<unsigned char>(std::clamp(int(255 * u * v) + grain, 0, 255));
            }
            TIFFWriteScanline(tif, row.data(), y);
        }
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
}

QPDFObjectHandle letter_page(QPDF& pdf, QPDFObjectHandle resources, const std::string& content)
{
    auto page = QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 612 792] >>");
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content));
    return pdf.makeIndirectObject(page);
}

std::string text_page_content(int page, std::mt19937& random)
{
    static const char* kWords[] = {"quire", "folio", "margin", "gutter", "signature", "recto", "verso", "colophon",
                                   "binding", "leaf", "spine", "imprint", "octavo", "vellum", "rubric", "gloss"};
    std::string content = "0.3 0.3 0.3 RG 0.8 w 72 740 m 540 740 l S 72 60 m 540 60 l S\n";
    content += "BT /F1 16 Tf 72 750 Td (Chapter " + std::to_string(page + 1) + ") Tj ET\n";
    content += "BT /F1 10 Tf 12 TL 72 720 Td\n";
    for (int line = 0; line < 52; ++line) {
        std::string text;
        while (text.size() < 95) {
            text += kWords[random() % 16];
            text += ' ';
        }
        content += "(" + text + ") '\n";
    }
    content += "ET\n";
    for (int box = 0; box < 4; ++box) {
        content += "0.1 0.2 0.7 rg " + std::to_string(400 + 30 * box) + " 66 20 20 re f\n";
    }
    return content;
}

QPDFObjectHandle photo_image(QPDF& pdf, int seed)
{
    constexpr int kSide = 1200;
    std::string pixels(static_cast<std::size_t>(kSide) * kSide * 3, '\0');
    std::mt19937 random(static_cast<unsigned>(seed));
    for (int y = 0; y < kSide; ++y) {
        for (int x = 0; x < kSide; ++x) {
            const int grain = static_cast<int>(random() % 5) - 2;
            char* p = pixels.data() + (static_cast<std::size_t>(y) * kSide + x) * 3;
            p[0] = static_cast<char>(std::clamp(int(120 + 110 * std::sin(x * 0.01 + seed)) + grain, 0, 255));
            p[1] = static_cast<char>(std::clamp(int(120 + 100 * std::cos(y * 0.013)) + grain, 0, 255));
            p[2] = static_cast<char>(std::clamp(int((x + y) * 255 / (2 * kSide)) + grain, 0, 255));
        }
    }
    auto image = QPDFObjectHandle::newStream(&pdf, pixels);
    image.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    image.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    image.getDict().replaceKey("/Width", QPDFObjectHandle::newInteger(kSide));
    image.getDict().replaceKey("/Height", QPDFObjectHandle::newInteger(kSide));
    image.getDict().replaceKey("/ColorSpace", QPDFObjectHandle::newName("/DeviceRGB"));
    image.getDict().replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(8));
    return image;
}

void write_pdf(const fs::path& path, int pages, bool photos)
{
    QPDF pdf;
    pdf.emptyPDF();
    auto font = pdf.makeIndirectObject(
        QPDFObjectHandle::parse("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"));
    QPDFPageDocumentHelper helper(pdf);
    std::mt19937 random(3);
    for (int page = 0; page < pages; ++page) {
        auto resources = QPDFObjectHandle::parse("<< /Font << >> >>");
        resources.getKey("/Font").replaceKey("/F1", font);
        std::string content;
        if (photos && page % 2 == 1) {
            resources.replaceKey("/XObject", QPDFObjectHandle::newDictionary());
            resources.getKey("/XObject").replaceKey("/Im1", photo_image(pdf, page));
            content = "q 540 0 0 720 36 36 cm /Im1 Do Q\nBT /F1 12 Tf 40 20 Td (Plate " + std::to_string(page) + ") Tj ET\n";
        } else {
            content = text_page_content(page, random);
        }
        helper.addPage(letter_page(pdf, resources, content), false);
    }
    QPDFWriter writer(pdf, path.c_str());
    writer.setStreamDataMode(qpdf_s_compress);
    writer.setStaticID(true);
    writer.write();
}

} // namespace

int main(int argc, char** argv)
{
    const fs::path folder = argc > 1 ? fs::path(argv[1]) : fs::path("bench/corpus");
    fs::create_directories(folder);
    const auto make = [&](const char* name, auto&& write) {
        if (!fs::exists(folder / name)) {
            write(folder / name);
            std::printf("made %s\n", (folder / name).c_str());
        }
    };
    make("scan-g4-100.tif", [](const fs::path& p) { write_g4_pages(p, 100); });
    make("colour-lzw-5.tif", [](const fs::path& p) { write_colour_pages(p, 5); });
    make("colour-lzw-20.tif", [](const fs::path& p) { write_colour_pages(p, 20); });
    make("text-200.pdf", [](const fs::path& p) { write_pdf(p, 200, false); });
    make("mixed-40.pdf", [](const fs::path& p) { write_pdf(p, 40, true); });
    return 0;
}
