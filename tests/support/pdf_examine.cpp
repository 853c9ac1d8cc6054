// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/pdf_examine.h"

#include <algorithm>
#include <fstream>
#include <memory>

#include <qpdf/Pl_Discard.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <tiffio.h>

#include "tests/support/image_checks.h"

namespace qf::test {

std::string pdf_header_version(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::string line;
    std::getline(in, line);
    line.erase(line.find_last_not_of("\r ") + 1);
    return line.rfind("%PDF-", 0) == 0 ? line.substr(5) : std::string();
}

std::string structural_problems(const std::filesystem::path &path, const std::string &password)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(path.c_str(), password.c_str());
        for (auto &page : QPDFPageDocumentHelper(pdf).getAllPages()) {
            page.getObjectHandle().getKey("/MediaBox");
        }
        for (auto &object : pdf.getAllObjects()) {
            Pl_Discard discard;
            bool attempted = false;
            if (object.isStream() &&
                !object.pipeStreamData(&discard, &attempted, 0, qpdf_dl_generalized)) {
                return "a stream cannot be read: " + object.unparse();
            }
        }
        std::string problems;
        for (const auto &warning : pdf.getWarnings()) {
            problems += warning.what() + std::string("\n");
        }
        return problems;
    } catch (const std::exception &e) {
        return e.what();
    }
}

std::string stream_text(QPDFObjectHandle stream)
{
    const auto data = stream.getStreamData(qpdf_dl_generalized);
    return std::string(reinterpret_cast<const char *>(data->getBuffer()), data->getSize());
}

QPDFObjectHandle new_stream(QPDF &pdf, const std::string &data, const std::string &dict)
{
    auto stream = QPDFObjectHandle::newStream(&pdf);
    stream.replaceDict(QPDFObjectHandle::parse(&pdf, dict));
    stream.replaceStreamData(data, stream.getDict().getKey("/Filter"), QPDFObjectHandle::newNull());
    return stream;
}

std::vector<QPDFObjectHandle> page_images(QPDFPageObjectHelper page)
{
    std::vector<QPDFObjectHandle> images;
    for (auto &[name, image] : page.getImages()) {
        images.push_back(image);
    }
    return images;
}

std::string page_content(QPDFPageObjectHelper page)
{
    std::string content;
    for (auto &stream : page.getPageContents()) {
        content += stream_text(stream) + '\n';
    }
    return content;
}

std::vector<double> page_box(QPDFPageObjectHelper page, const std::string &key)
{
    std::vector<double> box;
    QPDFObjectHandle array = page.getObjectHandle().getKey(key);
    for (auto &item : array.isArray() ? array.getArrayAsVector() : std::vector<QPDFObjectHandle>()) {
        box.push_back(item.getNumericValue());
    }
    return box;
}

engine::PagePicture decode_g4(const std::string &data, int width, int height,
                              const std::filesystem::path &scratch_folder)
{
    using TiffPtr = std::unique_ptr<TIFF, decltype(&TIFFClose)>;
    const auto file = scratch_folder / "g4-check.tif";
    {
        const TiffPtr out(TIFFOpen(file.c_str(), "w"), &TIFFClose);
        TIFFSetField(out.get(), TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(width));
        TIFFSetField(out.get(), TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(height));
        TIFFSetField(out.get(), TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(out.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(out.get(), TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
        TIFFSetField(out.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(out.get(), TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(height));
        TIFFWriteRawStrip(out.get(), 0, const_cast<char *>(data.data()), tmsize_t(data.size()));
    }
    engine::PagePicture picture{.width = width, .height = height,
                                .format = engine::PixelFormat::Bilevel};
    picture.pixels.assign(picture.stride() * static_cast<std::size_t>(height), 0);
    const TiffPtr in(TIFFOpen(file.c_str(), "r"), &TIFFClose);
    for (int y = 0; in && y < height; ++y) {
        if (TIFFReadScanline(in.get(), &picture.pixels[picture.stride() * y], y, 0) != 1) {
            picture.pixels.clear();
            break;
        }
    }
    return picture;
}

engine::PagePicture patterned_bilevel(int width, int height)
{
    engine::PagePicture picture{.width = width, .height = height,
                                .format = engine::PixelFormat::Bilevel};
    picture.pixels.assign(picture.stride() * static_cast<std::size_t>(height), 0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool black = x < 3 || y < 3 || x >= width - 3 || y >= height - 3 || // border
                               ((x + 2 * y) / 9) % 4 == 0;                            // band
            picture.pixels[picture.stride() * y + (x >> 3)] |= std::uint8_t(black << (7 - (x & 7)));
        }
    }
    return picture;
}

engine::PagePicture gradient_rgb(int width, int height)
{
    return make_rgb_picture(width, height, [&](int x, int y) {
        return std::array<std::uint8_t, 3>{static_cast<std::uint8_t>(x * 255 / std::max(1, width - 1)),
                                           static_cast<std::uint8_t>(y * 255 / std::max(1, height - 1)),
                                           static_cast<std::uint8_t>((x + y) % 256)};
    });
}

PreflightVerdict run_preflight_a1b(const std::filesystem::path &pdf)
{
    std::string class_path;
    for (const char *jar : {"pdfbox2", "preflight", "xmpbox", "fontbox2", "commons-logging",
                            "javax.activation", "jaxb-api"}) {
        const std::string path = "/usr/share/java/" + std::string(jar) + ".jar";
        if (!std::filesystem::exists(path)) {
            return {};
        }
        class_path += (class_path.empty() ? "" : ":") + path;
    }
    const CliOutcome java = run_process(
        {"java", "-cp", class_path, "org.apache.pdfbox.preflight.Validator_A1b", pdf.string()});
    if (java.status == 127) { // no java on PATH
        return {};
    }
    return {true, java.status, java.output + java.err};
}

} // namespace qf::test
