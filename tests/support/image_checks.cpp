// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/image_checks.h"

#include <cstdarg>
#include <csetjmp>
#include <cstdio>
#include <memory>
#include <algorithm>
#include <stdexcept>

#include <jpeglib.h>
#include <spng.h>
#include <tiffio.h>
#include <unistd.h>

namespace qf::test {
namespace {

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

FilePtr open_for_reading(const std::filesystem::path& file)
{
    FilePtr handle(std::fopen(file.c_str(), "rb"));
    if (!handle) {
        throw std::runtime_error("cannot open " + file.string());
    }
    return handle;
}

struct JpegReadFailure {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

void jpeg_read_error(j_common_ptr cinfo)
{
    std::longjmp(reinterpret_cast<JpegReadFailure*>(cinfo->err)->jump, 1);
}

void jpeg_quiet(j_common_ptr) {}

// Only plain C data in this frame, so that the long jump out of libjpeg skips no destructor.
bool decode_jpeg(std::FILE* file, JpegFile& result, std::uint8_t* (*grow)(JpegFile&, std::size_t))
{
    jpeg_decompress_struct cinfo;
    JpegReadFailure failure;
    cinfo.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = jpeg_read_error;
    failure.manager.output_message = jpeg_quiet;
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
    result.image.width = static_cast<int>(cinfo.output_width);
    result.image.height = static_cast<int>(cinfo.output_height);
    result.image.components = cinfo.output_components;
    const std::size_t stride =
        static_cast<std::size_t>(cinfo.output_width) * cinfo.output_components;
    std::uint8_t* pixels = grow(result, stride * cinfo.output_height);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = pixels + stride * cinfo.output_scanline;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

std::uint8_t* grow_samples(JpegFile& result, std::size_t size)
{
    result.image.samples.resize(size);
    return result.image.samples.data();
}

struct SpngFree {
    void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};

std::optional<std::string> tiff_text(TIFF* tif, ttag_t tag)
{
    const char* value = nullptr;
    if (TIFFGetField(tif, tag, &value) && value != nullptr) {
        return std::string(value);
    }
    return std::nullopt;
}

int tiff_short(TIFF* tif, ttag_t tag)
{
    std::uint16_t value = 0;
    return TIFFGetFieldDefaulted(tif, tag, &value) ? value : -1;
}

int ignore_tiff_warning(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

struct TiffClose {
    void operator()(TIFF* tif) const { TIFFClose(tif); }
};

std::unique_ptr<TIFF, TiffClose> open_tiff(const std::filesystem::path& file)
{
    // Warnings (such as a zero byte inside an EXIF Copyright) are not the test's concern.
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetWarningHandlerExtR(options, ignore_tiff_warning, nullptr);
    std::unique_ptr<TIFF, TiffClose> tif(TIFFOpenExt(file.c_str(), "r", options));
    TIFFOpenOptionsFree(options);
    if (!tif) {
        throw std::runtime_error("not a readable TIFF: " + file.string());
    }
    return tif;
}

DecodedImage tiff_rgb(TIFF* tif, int width, int height)
{
    std::vector<std::uint32_t> raster(static_cast<std::size_t>(width) *
                                      static_cast<std::size_t>(height));
    if (!TIFFReadRGBAImageOriented(tif, static_cast<std::uint32_t>(width),
                                   static_cast<std::uint32_t>(height), raster.data(),
                                   ORIENTATION_TOPLEFT, 1)) {
        throw std::runtime_error("TIFF pixels cannot be decoded");
    }
    DecodedImage image{width, height, 3, {}};
    image.samples.reserve(raster.size() * 3);
    for (const std::uint32_t pixel : raster) {
        image.samples.push_back(static_cast<std::uint8_t>(TIFFGetR(pixel)));
        image.samples.push_back(static_cast<std::uint8_t>(TIFFGetG(pixel)));
        image.samples.push_back(static_cast<std::uint8_t>(TIFFGetB(pixel)));
    }
    return image;
}

} // namespace

std::array<std::uint8_t, 3> DecodedImage::rgb_at(int x, int y) const
{
    const std::size_t at = (static_cast<std::size_t>(y) * width + x) * components;
    if (components < 3) {
        return {samples[at], samples[at], samples[at]};
    }
    return {samples[at], samples[at + 1], samples[at + 2]};
}

JpegFile read_jpeg(const std::filesystem::path& file)
{
    const FilePtr handle = open_for_reading(file);
    JpegFile result;
    if (!decode_jpeg(handle.get(), result, grow_samples)) {
        throw std::runtime_error("not a decodable JPEG: " + file.string());
    }
    return result;
}

PngFile read_png(const std::filesystem::path& file)
{
    const FilePtr handle = open_for_reading(file);
    std::unique_ptr<spng_ctx, SpngFree> decoder(spng_ctx_new(0));
    spng_set_png_file(decoder.get(), handle.get());
    spng_ihdr header{};
    if (spng_get_ihdr(decoder.get(), &header) != 0) {
        throw std::runtime_error("not a PNG: " + file.string());
    }
    PngFile result;
    result.bit_depth = header.bit_depth;
    result.color_type = header.color_type;
    result.interlaced = header.interlace_method != 0;
    std::size_t size = 0;
    if (spng_decoded_image_size(decoder.get(), SPNG_FMT_RGB8, &size) != 0) {
        throw std::runtime_error("PNG size unknown: " + file.string());
    }
    result.image = {static_cast<int>(header.width), static_cast<int>(header.height), 3,
                    std::vector<std::uint8_t>(size)};
    if (spng_decode_image(decoder.get(), result.image.samples.data(), size, SPNG_FMT_RGB8, 0) !=
        0) {
        throw std::runtime_error("PNG pixels cannot be decoded: " + file.string());
    }
    spng_phys phys{};
    result.has_phys = spng_get_phys(decoder.get(), &phys) == 0;
    return result;
}

std::vector<TiffImage> read_tiff(const std::filesystem::path& file)
{
    const auto tif = open_tiff(file);
    std::vector<TiffImage> images;
    do {
        TiffImage image;
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height);
        image.width = static_cast<int>(width);
        image.height = static_cast<int>(height);
        image.compression = tiff_short(tif.get(), TIFFTAG_COMPRESSION);
        image.photometric = tiff_short(tif.get(), TIFFTAG_PHOTOMETRIC);
        image.bits_per_sample = tiff_short(tif.get(), TIFFTAG_BITSPERSAMPLE);
        image.samples_per_pixel = tiff_short(tif.get(), TIFFTAG_SAMPLESPERPIXEL);
        image.planar_config = tiff_short(tif.get(), TIFFTAG_PLANARCONFIG);
        image.fill_order = tiff_short(tif.get(), TIFFTAG_FILLORDER);
        TIFFGetFieldDefaulted(tif.get(), TIFFTAG_ROWSPERSTRIP, &image.rows_per_strip);
        TIFFGetField(tif.get(), TIFFTAG_XRESOLUTION, &image.x_resolution);
        TIFFGetField(tif.get(), TIFFTAG_YRESOLUTION, &image.y_resolution);
        image.resolution_unit = tiff_short(tif.get(), TIFFTAG_RESOLUTIONUNIT);
        image.software = tiff_text(tif.get(), TIFFTAG_SOFTWARE);
        image.copyright = tiff_text(tif.get(), TIFFTAG_COPYRIGHT);
        image.document_name = tiff_text(tif.get(), TIFFTAG_DOCUMENTNAME);
        image.artist = tiff_text(tif.get(), TIFFTAG_ARTIST);
        image.image = tiff_rgb(tif.get(), image.width, image.height);
        images.push_back(std::move(image));
    } while (TIFFReadDirectory(tif.get()));
    return images;
}

std::vector<std::uint16_t> read_tiff_samples16(const std::filesystem::path& file, int directory)
{
    const auto tif = open_tiff(file);
    if (!TIFFSetDirectory(tif.get(), static_cast<tdir_t>(directory)) ||
        tiff_short(tif.get(), TIFFTAG_BITSPERSAMPLE) != 16 ||
        tiff_short(tif.get(), TIFFTAG_PLANARCONFIG) != PLANARCONFIG_CONTIG ||
        TIFFIsTiled(tif.get())) {
        throw std::runtime_error("not a contiguous 16-bit strip image: " + file.string());
    }
    std::uint32_t height = 0;
    TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height);
    const tmsize_t row_bytes = TIFFScanlineSize(tif.get());
    std::vector<std::uint16_t> samples(static_cast<std::size_t>(row_bytes / 2) * height);
    for (std::uint32_t row = 0; row < height; ++row) {
        if (TIFFReadScanline(tif.get(),
                             samples.data() + static_cast<std::size_t>(row_bytes / 2) * row,
                             row) < 0) {
            throw std::runtime_error("16-bit samples cannot be read: " + file.string());
        }
    }
    return samples;
}

engine::PagePicture
make_rgb_picture(int width, int height,
                 const std::function<std::array<std::uint8_t, 3>(int x, int y)>& colour)
{
    engine::PagePicture picture;
    picture.width = width;
    picture.height = height;
    picture.format = engine::PixelFormat::Rgb8;
    picture.pixels.reserve(picture.stride() * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto rgb = colour(x, y);
            picture.pixels.insert(picture.pixels.end(), rgb.begin(), rgb.end());
        }
    }
    return picture;
}

engine::PagePicture make_bilevel_picture(int width, int height,
                                         const std::function<bool(int x, int y)>& black)
{
    engine::PagePicture picture;
    picture.width = width;
    picture.height = height;
    picture.format = engine::PixelFormat::Bilevel;
    picture.pixels.assign(picture.stride() * static_cast<std::size_t>(height), 0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (black(x, y)) {
                picture.pixels[picture.stride() * static_cast<std::size_t>(y) + (x >> 3)] |=
                    static_cast<std::uint8_t>(0x80u >> (x & 7));
            }
        }
    }
    return picture;
}

std::string exiftool_tag(const std::filesystem::path& file, const std::string& tag)
{
    return run_program({"exiftool", "-b", "-" + tag, file.string()}).output;
}

} // namespace qf::test
