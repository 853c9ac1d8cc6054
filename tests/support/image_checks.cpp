// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/image_checks.h"

#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include <jpeglib.h>
#include <spng.h>
#include <tiffio.h>

namespace qf::test {
namespace fs = std::filesystem;
namespace {

using FilePtr = std::unique_ptr<std::FILE, decltype(&std::fclose)>;
using TiffPtr = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

FilePtr open_for_reading(const fs::path& file)
{
    FilePtr handle(std::fopen(file.c_str(), "rb"), &std::fclose);
    if (!handle) {
        throw std::runtime_error("cannot open " + file.string());
    }
    return handle;
}

struct JpegReadFailure { jpeg_error_mgr manager; std::jmp_buf jump; };

// Only plain C data in this frame, so that the long jump out of libjpeg skips no destructor.
bool decode_jpeg(std::FILE* file, JpegFile& result)
{
    jpeg_decompress_struct cinfo;
    JpegReadFailure failure;
    cinfo.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = [](j_common_ptr c) {
        std::longjmp(reinterpret_cast<JpegReadFailure*>(c->err)->jump, 1);
    };
    failure.manager.output_message = [](j_common_ptr) {};
    if (setjmp(failure.jump) != 0) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, file);
    jpeg_read_header(&cinfo, TRUE);
    result.progressive = cinfo.progressive_mode != 0;
    result.jfif = cinfo.saw_JFIF_marker != 0;
    result.density_unit = cinfo.density_unit;
    result.x_density = cinfo.X_density;
    result.y_density = cinfo.Y_density;
    jpeg_start_decompress(&cinfo);
    DecodedImage& image = result.image;
    image.width = static_cast<int>(cinfo.output_width);
    image.height = static_cast<int>(cinfo.output_height);
    image.components = cinfo.output_components;
    const std::size_t stride = std::size_t(cinfo.output_width) * cinfo.output_components;
    image.samples.resize(stride * cinfo.output_height);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = image.samples.data() + stride * cinfo.output_scanline;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

std::optional<std::string> tiff_text(TIFF* tif, ttag_t tag)
{
    const char* value = nullptr;
    return TIFFGetField(tif, tag, &value) && value != nullptr ? std::optional<std::string>(value)
                                                              : std::nullopt;
}

int tiff_short(TIFF* tif, ttag_t tag)
{
    std::uint16_t value = 0;
    return TIFFGetFieldDefaulted(tif, tag, &value) ? value : -1;
}

TiffPtr open_tiff(const fs::path& file)
{
    // Warnings (such as a zero byte inside an EXIF Copyright) are not the test's concern.
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetWarningHandlerExtR(
        options, [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
    TiffPtr tif(TIFFOpenExt(file.c_str(), "r", options), &TIFFClose);
    TIFFOpenOptionsFree(options);
    if (!tif) {
        throw std::runtime_error("not a readable TIFF: " + file.string());
    }
    return tif;
}

DecodedImage tiff_rgb(TIFF* tif, int width, int height)
{
    std::vector<std::uint32_t> raster(std::size_t(width) * std::size_t(height));
    if (!TIFFReadRGBAImageOriented(tif, std::uint32_t(width), std::uint32_t(height),
                                   raster.data(), ORIENTATION_TOPLEFT, 1)) {
        throw std::runtime_error("TIFF pixels cannot be decoded");
    }
    DecodedImage image{width, height, 3, {}};
    for (const std::uint32_t pixel : raster) {
        image.samples.insert(image.samples.end(), {std::uint8_t(TIFFGetR(pixel)),
                                                   std::uint8_t(TIFFGetG(pixel)),
                                                   std::uint8_t(TIFFGetB(pixel))});
    }
    return image;
}

} // namespace

std::array<std::uint8_t, 3> DecodedImage::rgb_at(int x, int y) const
{
    const std::size_t at = (static_cast<std::size_t>(y) * width + x) * components;
    const std::size_t step = components < 3 ? 0 : 1; // grey: the one sample three times
    return {samples[at], samples[at + step], samples[at + 2 * step]};
}

JpegFile read_jpeg(const fs::path& file)
{
    JpegFile result;
    if (!decode_jpeg(open_for_reading(file).get(), result)) {
        throw std::runtime_error("not a decodable JPEG: " + file.string());
    }
    return result;
}

PngFile read_png(const fs::path& file)
{
    const FilePtr handle = open_for_reading(file);
    const std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> decoder(spng_ctx_new(0),
                                                                      &spng_ctx_free);
    spng_set_png_file(decoder.get(), handle.get());
    spng_ihdr header{};
    if (spng_get_ihdr(decoder.get(), &header) != 0) {
        throw std::runtime_error("not a PNG: " + file.string());
    }
    PngFile result;
    std::size_t size = 0;
    if (spng_decoded_image_size(decoder.get(), SPNG_FMT_RGB8, &size) != 0) {
        throw std::runtime_error("PNG size unknown: " + file.string());
    }
    result.image = {int(header.width), int(header.height), 3, std::vector<std::uint8_t>(size)};
    if (spng_decode_image(decoder.get(), result.image.samples.data(), size, SPNG_FMT_RGB8, 0)) {
        throw std::runtime_error("PNG pixels cannot be decoded: " + file.string());
    }
    return result;
}

std::vector<TiffImage> read_tiff(const fs::path& file)
{
    const auto tif = open_tiff(file);
    TIFF* t = tif.get();
    std::vector<TiffImage> images;
    do {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(t, TIFFTAG_IMAGELENGTH, &height);
        TiffImage image{int(width), int(height), tiff_short(t, TIFFTAG_COMPRESSION),
                        tiff_short(t, TIFFTAG_PHOTOMETRIC), tiff_short(t, TIFFTAG_BITSPERSAMPLE),
                        tiff_short(t, TIFFTAG_SAMPLESPERPIXEL),
                        tiff_short(t, TIFFTAG_PLANARCONFIG), tiff_short(t, TIFFTAG_FILLORDER)};
        TIFFGetFieldDefaulted(t, TIFFTAG_ROWSPERSTRIP, &image.rows_per_strip);
        TIFFGetField(t, TIFFTAG_XRESOLUTION, &image.x_resolution);
        TIFFGetField(t, TIFFTAG_YRESOLUTION, &image.y_resolution);
        image.resolution_unit = tiff_short(t, TIFFTAG_RESOLUTIONUNIT);
        image.software = tiff_text(t, TIFFTAG_SOFTWARE);
        image.copyright = tiff_text(t, TIFFTAG_COPYRIGHT);
        image.document_name = tiff_text(t, TIFFTAG_DOCUMENTNAME);
        const std::size_t row_samples = std::size_t(TIFFScanlineSize(t)) / 2;
        if (image.bits_per_sample == 16 && image.planar_config == PLANARCONFIG_CONTIG &&
            !TIFFIsTiled(t)) {
            image.samples16.resize(row_samples * height);
            for (std::uint32_t row = 0; row < height; ++row) {
                if (TIFFReadScanline(t, &image.samples16[row_samples * row], row) < 0) {
                    throw std::runtime_error("16-bit samples cannot be read: " + file.string());
                }
            }
        }
        image.image = tiff_rgb(t, image.width, image.height);
        images.push_back(std::move(image));
    } while (TIFFReadDirectory(t));
    return images;
}

engine::PagePicture
make_rgb_picture(int width, int height,
                 const std::function<std::array<std::uint8_t, 3>(int x, int y)>& colour)
{
    engine::PagePicture picture{.width = width, .height = height,
                                .format = engine::PixelFormat::Rgb8};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto rgb = colour(x, y);
            picture.pixels.insert(picture.pixels.end(), rgb.begin(), rgb.end());
        }
    }
    return picture;
}

} // namespace qf::test
