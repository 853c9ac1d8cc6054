// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/pdf_examine.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/wait.h>

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
    if (line.rfind("%PDF-", 0) != 0) {
        return {};
    }
    std::string version = line.substr(5);
    while (!version.empty() && (version.back() == '\r' || version.back() == ' ')) {
        version.pop_back();
    }
    return version;
}

std::string structural_problems(const std::filesystem::path &path)
{
    return structural_problems(path, "");
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
        if (pdf.anyWarnings()) {
            std::string problems;
            for (const auto &warning : pdf.getWarnings()) {
                problems += warning.what() + std::string("\n");
            }
            return problems;
        }
    } catch (const std::exception &e) {
        return e.what();
    }
    return {};
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
        const auto data = stream.getStreamData(qpdf_dl_generalized);
        content.append(reinterpret_cast<const char *>(data->getBuffer()), data->getSize());
        content += '\n';
    }
    return content;
}

std::vector<double> page_box(QPDFPageObjectHelper page, const std::string &key)
{
    std::vector<double> box;
    QPDFObjectHandle array = page.getObjectHandle().getKey(key);
    if (array.isArray()) {
        for (auto &item : array.getArrayAsVector()) {
            box.push_back(item.getNumericValue());
        }
    }
    return box;
}

engine::PagePicture decode_g4(const std::string &data, int width, int height,
                              const std::filesystem::path &scratch_folder)
{
    const auto file = scratch_folder / "g4-check.tif";
    TIFF *out = TIFFOpen(file.c_str(), "w");
    TIFFSetField(out, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(width));
    TIFFSetField(out, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(height));
    TIFFSetField(out, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(out, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(out, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(height));
    TIFFWriteRawStrip(out, 0, const_cast<char *>(data.data()), static_cast<tmsize_t>(data.size()));
    TIFFClose(out);

    engine::PagePicture picture;
    picture.width = width;
    picture.height = height;
    picture.format = engine::PixelFormat::Bilevel;
    picture.pixels.assign(picture.stride() * static_cast<std::size_t>(height), 0);
    TIFF *in = TIFFOpen(file.c_str(), "r");
    for (int y = 0; in != nullptr && y < height; ++y) {
        if (TIFFReadScanline(in,
                             picture.pixels.data() + picture.stride() * static_cast<std::size_t>(y),
                             static_cast<uint32_t>(y), 0) != 1) {
            picture.pixels.clear();
            break;
        }
    }
    if (in != nullptr) {
        TIFFClose(in);
    }
    return picture;
}

engine::PagePicture patterned_bilevel(int width, int height)
{
    return make_bilevel_picture(width, height, [&](int x, int y) {
        const bool border = x < 3 || y < 3 || x >= width - 3 || y >= height - 3;
        const bool band = ((x + 2 * y) / 9) % 4 == 0;
        return border || band;
    });
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
    static const char *jars[] = {
        "/usr/share/java/pdfbox2.jar",         "/usr/share/java/preflight.jar",
        "/usr/share/java/xmpbox.jar",          "/usr/share/java/fontbox2.jar",
        "/usr/share/java/commons-logging.jar", "/usr/share/java/javax.activation.jar",
        "/usr/share/java/jaxb-api.jar"};
    std::string class_path;
    for (const char *jar : jars) {
        if (!std::filesystem::exists(jar)) {
            return {};
        }
        class_path += (class_path.empty() ? "" : ":") + std::string(jar);
    }
    if (std::system("java -version >/dev/null 2>&1") != 0) {
        return {};
    }
    const auto report = pdf.parent_path() / "preflight.txt";
    const std::string command = "java -cp '" + class_path +
                                "' org.apache.pdfbox.preflight.Validator_A1b '" + pdf.string() +
                                "' >'" + report.string() + "' 2>&1";
    const int status = std::system(command.c_str());
    std::ifstream in(report);
    PreflightVerdict verdict;
    verdict.ran = true;
    verdict.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    verdict.output.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return verdict;
}

} // namespace qf::test
