// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/tiff_source.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <tiffio.h>
#include <vector>

#include "engine/error.h"
#include "engine/run_model.h"
#include "sources/tiff_raster.h"
#include "writers/magick/magick_module.h"

namespace qf::sources {
namespace {

using engine::Error;
using engine::ErrorKind;
using engine::PagePicture;
using engine::PixelFormat;

// The first error libtiff reports on a handle, kept for the log; warnings are dropped.
struct TiffMessages {
    std::string first_error;
};

int on_tiff_error(TIFF*, void* user_data, const char*, const char* format, va_list args)
{
    auto* messages = static_cast<TiffMessages*>(user_data);
    if (messages != nullptr && messages->first_error.empty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, args);
        messages->first_error = text;
    }
    return 1;
}

int on_tiff_warning(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

std::string tag_text(TIFF* tif, ttag_t tag)
{
    const char* value = nullptr;
    if (TIFFGetField(tif, tag, &value) == 1 && value != nullptr) {
        return value;
    }
    return {};
}

class TiffSource final : public engine::PageSource {
public:
    explicit TiffSource(const engine::DocumentToOpen& document) : path_(document.path)
    {
        TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
        TIFFOpenOptionsSetErrorHandlerExtR(options, on_tiff_error, &messages_);
        TIFFOpenOptionsSetWarningHandlerExtR(options, on_tiff_warning, &messages_);
        handle_.reset(TIFFOpenExt(path_.c_str(), "r", options));
        TIFFOpenOptionsFree(options);
        tif_ = handle_.get();
        if (tif_ == nullptr) {
            throw Error(ErrorKind::Damaged, reason("not a readable TIFF file"), path_);
        }
        image_count_ = TIFFNumberOfDirectories(tif_);
        if (image_count_ < 1) {
            throw Error(ErrorKind::Damaged, "the file holds no image", path_);
        }
        tiled_ = document.tile_marker == engine::kTiledYes;
        read_tags();
    }

    int page_count() const override { return tiled_ ? 1 : image_count_; }

    engine::SourceTags tags() const override { return tags_; }

    std::string text(int) override { return {}; }

    PagePicture picture(int pageno, const engine::RenderRequest& request) override
    {
        // One libtiff handle: callers on several threads take turns.
        const std::lock_guard lock(mutex_);
        const int index = tiled_ ? tiled_index() : pageno - 1;
        select_image(index, pageno);
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        TIFFGetField(tif_, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tif_, TIFFTAG_IMAGELENGTH, &height);
        if (width == 0 || height == 0) {
            throw Error(ErrorKind::Damaged, "the image has no pixels", path_, pageno);
        }
        if (static_cast<long long>(width) * height > kMaxTiffPixels) {
            throw Error(ErrorKind::Unsupported,
                        "the image is too large: " + std::to_string(width) + " x " + std::to_string(height) + " pixels",
                        path_, pageno);
        }
        std::uint16_t bits = 1;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_BITSPERSAMPLE, &bits);
        if (request.compressed_ok) {
            if (auto compressed = read_g4_strip()) {
                PagePicture picture;
                picture.width = static_cast<int>(width);
                picture.height = static_cast<int>(height);
                picture.format = PixelFormat::Bilevel;
                picture.compressed = std::move(compressed);
                return picture;
            }
        }
        if (bits < 2) {
            PagePicture bilevel;
            if (read_bilevel(width, height, bilevel)) {
                return bilevel;
            }
        }
        return read_rgb(width, height, index, pageno, bits < 2);
    }

private:
    std::string reason(const std::string& fallback)
    {
        std::string text = messages_.first_error.empty() ? fallback : messages_.first_error;
        messages_.first_error.clear();
        return text;
    }

    // The image a tiled document shows: the second when there is one.
    int tiled_index() const { return image_count_ > 1 ? 1 : 0; }

    void select_image(int index, int pageno)
    {
        messages_.first_error.clear();
        if (index < 0 || index >= image_count_ || TIFFSetDirectory(tif_, static_cast<tdir_t>(index)) != 1) {
            throw Error(ErrorKind::Damaged, reason("the image cannot be read"), path_, pageno);
        }
    }

    void read_tags()
    {
        select_image(0, 0);
        float xres = 0;
        float yres = 0;
        std::uint16_t unit = RESUNIT_INCH;
        const bool has_x = TIFFGetField(tif_, TIFFTAG_XRESOLUTION, &xres) == 1;
        const bool has_y = TIFFGetField(tif_, TIFFTAG_YRESOLUTION, &yres) == 1;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_RESOLUTIONUNIT, &unit);
        // Both values or none: a file with only one of them counts as having no resolution.
        if (has_x && has_y && unit != RESUNIT_NONE && std::isfinite(xres) && std::isfinite(yres) && xres > 0 &&
            yres > 0) {
            const double factor = unit == RESUNIT_CENTIMETER ? 2.54 : 1.0;
            tags_.xres = static_cast<int>(std::lround(std::clamp(xres * factor, 0.0, 1.0e6)));
            tags_.yres = static_cast<int>(std::lround(std::clamp(yres * factor, 0.0, 1.0e6)));
            // Each value measures a side as stored; a turned image shows the other side across.
            std::uint16_t orientation = ORIENTATION_TOPLEFT;
            TIFFGetFieldDefaulted(tif_, TIFFTAG_ORIENTATION, &orientation);
            if (orientation_turns(orientation)) {
                std::swap(tags_.xres, tags_.yres);
            }
        }
        if (tiled_ && tiled_index() != 0) {
            select_image(tiled_index(), 0);
        }
        tags_.copyright = tag_text(tif_, TIFFTAG_COPYRIGHT);
        tags_.document_name = tag_text(tif_, TIFFTAG_DOCUMENTNAME);
    }

    // A damaged file can claim a strip far larger than itself; memory is not sized by that claim.
    bool strip_within_file(tmsize_t size) const
    {
        std::error_code ec;
        const std::uintmax_t file_size = std::filesystem::file_size(path_, ec);
        const std::uint64_t offset = TIFFGetStrileOffset(tif_, 0);
        return !ec && offset <= file_size && static_cast<std::uint64_t>(size) <= file_size - offset;
    }

    // The CCITT G4 data of the current image as it stands in the file, when a PDF can carry it
    // unchanged: one strip, grey, top row first, no uncompressed mode. Null otherwise.
    std::shared_ptr<const engine::CompressedImage> read_g4_strip()
    {
        std::uint16_t compression = 0;
        std::uint16_t samples = 1;
        std::uint16_t bits = 1;
        std::uint16_t photometric = 0;
        std::uint16_t orientation = ORIENTATION_TOPLEFT;
        std::uint16_t fill_order = FILLORDER_MSB2LSB;
        std::uint32_t options = 0;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_COMPRESSION, &compression);
        TIFFGetFieldDefaulted(tif_, TIFFTAG_SAMPLESPERPIXEL, &samples);
        TIFFGetFieldDefaulted(tif_, TIFFTAG_BITSPERSAMPLE, &bits);
        TIFFGetFieldDefaulted(tif_, TIFFTAG_ORIENTATION, &orientation);
        TIFFGetFieldDefaulted(tif_, TIFFTAG_FILLORDER, &fill_order);
        TIFFGetFieldDefaulted(tif_, TIFFTAG_GROUP4OPTIONS, &options);
        if (compression != COMPRESSION_CCITTFAX4 || samples != 1 || bits != 1 || TIFFIsTiled(tif_) ||
            orientation != ORIENTATION_TOPLEFT || (options & GROUP4OPT_UNCOMPRESSED) != 0 ||
            TIFFGetField(tif_, TIFFTAG_PHOTOMETRIC, &photometric) != 1 ||
            (photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK) ||
            TIFFNumberOfStrips(tif_) != 1) {
            return nullptr;
        }
        const tmsize_t size = TIFFRawStripSize(tif_, 0);
        if (size <= 0 || !strip_within_file(size)) {
            return nullptr;
        }
        auto image = std::make_shared<engine::CompressedImage>();
        image->data.resize(static_cast<std::size_t>(size));
        if (TIFFReadRawStrip(tif_, 0, image->data.data(), size) != size) {
            return nullptr;
        }
        if (fill_order == FILLORDER_LSB2MSB) {
            TIFFReverseBits(image->data.data(), size);
        }
        image->black_is_1 = photometric == PHOTOMETRIC_MINISWHITE;
        return image;
    }

    // 1-bit grey images stay 1-bit, top row first. False when the image is of another kind.
    bool read_bilevel(std::uint32_t width, std::uint32_t height, PagePicture& picture)
    {
        std::uint16_t samples = 1;
        std::uint16_t photometric = PHOTOMETRIC_MINISWHITE;
        std::uint16_t orientation = ORIENTATION_TOPLEFT;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_SAMPLESPERPIXEL, &samples);
        TIFFGetFieldDefaulted(tif_, TIFFTAG_ORIENTATION, &orientation);
        if (TIFFGetField(tif_, TIFFTAG_PHOTOMETRIC, &photometric) != 1) {
            photometric = PHOTOMETRIC_MINISWHITE;
        }
        if (samples != 1 || orientation != ORIENTATION_TOPLEFT ||
            (photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK)) {
            return false;
        }
        picture.width = static_cast<int>(width);
        picture.height = static_cast<int>(height);
        picture.format = PixelFormat::Bilevel;
        const std::size_t stride = picture.stride();
        picture.pixels.assign(stride * height, 0);
        if (TIFFIsTiled(tif_) ? !read_bilevel_tiles(picture) : !read_bilevel_strips(picture)) {
            return false;
        }
        if (photometric == PHOTOMETRIC_MINISBLACK) {
            for (auto& byte : picture.pixels) {
                byte = static_cast<std::uint8_t>(~byte);
            }
        }
        // Bits past the right edge stay clear, whatever the file held there.
        if (const int spare = static_cast<int>(stride * 8 - width); spare > 0) {
            const auto mask = static_cast<std::uint8_t>(0xFF << spare);
            for (std::uint32_t y = 0; y < height; ++y) {
                picture.pixels[stride * y + stride - 1] &= mask;
            }
        }
        return true;
    }

    bool read_bilevel_strips(PagePicture& picture)
    {
        const std::size_t stride = picture.stride();
        if (static_cast<std::size_t>(TIFFScanlineSize64(tif_)) != stride) {
            return false;
        }
        for (int y = 0; y < picture.height; ++y) {
            if (TIFFReadScanline(tif_, picture.pixels.data() + stride * y, static_cast<std::uint32_t>(y), 0) < 0) {
                return false;
            }
        }
        return true;
    }

    bool read_bilevel_tiles(PagePicture& picture)
    {
        std::uint32_t tile_width = 0;
        std::uint32_t tile_height = 0;
        TIFFGetField(tif_, TIFFTAG_TILEWIDTH, &tile_width);
        TIFFGetField(tif_, TIFFTAG_TILELENGTH, &tile_height);
        if (tile_width == 0 || tile_height == 0 || tile_width % 8 != 0) {
            return false;
        }
        const std::size_t tile_stride = tile_width / 8;
        std::vector<std::uint8_t> tile(static_cast<std::size_t>(TIFFTileSize64(tif_)));
        if (tile.size() < tile_stride * tile_height) {
            return false;
        }
        const std::size_t stride = picture.stride();
        for (std::uint32_t top = 0; top < static_cast<std::uint32_t>(picture.height); top += tile_height) {
            for (std::uint32_t left = 0; left < static_cast<std::uint32_t>(picture.width); left += tile_width) {
                if (TIFFReadTile(tif_, tile.data(), left, top, 0, 0) < 0) {
                    return false;
                }
                const std::size_t bytes = std::min(tile_stride, stride - left / 8);
                for (std::uint32_t row = 0; row < tile_height && top + row < static_cast<std::uint32_t>(picture.height);
                     ++row) {
                    std::copy_n(tile.data() + tile_stride * row, bytes, picture.pixels.data() + stride * (top + row) + left / 8);
                }
            }
        }
        return true;
    }

    // Any other image, laid over white and turned as its Orientation tag says. A 1-bit image
    // read this way is made bilevel again when it is grey (a colour map of greys included).
    PagePicture read_rgb(std::uint32_t width, std::uint32_t height, int index, int pageno, bool one_bit)
    {
        std::uint16_t orientation = ORIENTATION_TOPLEFT;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_ORIENTATION, &orientation);
        const TiffRaster raster = decode_raster(width, height, orientation, index, pageno);
        return displayed_page(raster, orientation, one_bit && shows_grey());
    }

    std::uint16_t photometric(std::uint16_t fallback) const
    {
        std::uint16_t value = fallback;
        return TIFFGetField(tif_, TIFFTAG_PHOTOMETRIC, &value) == 1 ? value : fallback;
    }

    bool is_grey() const
    {
        const std::uint16_t model = photometric(PHOTOMETRIC_MINISWHITE);
        return model == PHOTOMETRIC_MINISWHITE || model == PHOTOMETRIC_MINISBLACK;
    }

    // Grey, or a colour map of greys only.
    bool shows_grey() const
    {
        if (is_grey()) {
            return true;
        }
        std::uint16_t bits = 1;
        const std::uint16_t* red = nullptr;
        const std::uint16_t* green = nullptr;
        const std::uint16_t* blue = nullptr;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_BITSPERSAMPLE, &bits);
        if (photometric(PHOTOMETRIC_MINISWHITE) != PHOTOMETRIC_PALETTE || bits > 8 ||
            TIFFGetField(tif_, TIFFTAG_COLORMAP, &red, &green, &blue) != 1) {
            return false;
        }
        for (std::size_t i = 0; i < (std::size_t{1} << bits); ++i) {
            if (red[i] != green[i] || green[i] != blue[i]) {
                return false;
            }
        }
        return true;
    }

    // What the first extra sample, the alpha of libtiff's RGBA reader, says it is.
    std::uint16_t alpha_kind() const
    {
        std::uint16_t count = 0;
        const std::uint16_t* kinds = nullptr;
        if (TIFFGetField(tif_, TIFFTAG_EXTRASAMPLES, &count, &kinds) != 1 || count == 0 || kinds == nullptr) {
            return EXTRASAMPLE_UNSPECIFIED;
        }
        return kinds[0];
    }

    // libtiff's RGBA reader where it can read the image, else the image module. The reader
    // ignores the alpha of 16-bit grey images, which therefore go to the module too.
    TiffRaster decode_raster(std::uint32_t width, std::uint32_t height, std::uint16_t orientation, int index,
                             int pageno)
    {
        messages_.first_error.clear();
        char refusal[1024] = "";
        std::uint16_t bits = 1;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_BITSPERSAMPLE, &bits);
        const std::uint16_t alpha = alpha_kind();
        const bool grey_alpha_dropped =
            is_grey() && bits == 16 && (alpha == EXTRASAMPLE_ASSOCALPHA || alpha == EXTRASAMPLE_UNASSALPHA);
        TIFFRGBAImage reader{};
        if (TIFFRGBAImageOK(tif_, refusal) != 1 || TIFFRGBAImageBegin(&reader, tif_, 0, refusal) != 1) {
            return decode_refused(width, height, index, pageno, refusal);
        }
        const std::unique_ptr<TIFFRGBAImage, decltype(&TIFFRGBAImageEnd)> end_reader(&reader, TIFFRGBAImageEnd);
        if (grey_alpha_dropped) {
            return decode_with_module(index, pageno, "the image cannot be decoded");
        }
        TiffRaster raster;
        raster.width = width;
        raster.height = height;
        raster.pixels.resize(static_cast<std::size_t>(width) * height);
        // Asked for in the file's own orientation, the reader gives the rows as stored.
        reader.req_orientation = orientation;
        if (TIFFRGBAImageGet(&reader, raster.pixels.data(), width, height) != 1) {
            throw Error(ErrorKind::Damaged, reason("the image cannot be decoded"), path_, pageno);
        }
        // The reader leaves associated alpha's colour as stored (multiplied), multiplies colour
        // by unassociated alpha itself except in grey images, and takes an unspecified extra
        // sample of RGB as alpha without multiplying.
        raster.premultiplied =
            alpha == EXTRASAMPLE_ASSOCALPHA || (alpha == EXTRASAMPLE_UNASSALPHA && !is_grey());
        return raster;
    }

    // What libtiff's readers refuse: 64-bit samples are read here (the image library refuses
    // 64-bit integers and misreads 64-bit floats), the rest by the image module. `refusal` is
    // libtiff's reason, given when neither can read the image.
    TiffRaster decode_refused(std::uint32_t width, std::uint32_t height, int index, int pageno,
                              const std::string& refusal)
    {
        TiffRaster wide;
        switch (read_64bit_samples(tif_, width, height, wide)) {
        case WideRead::Done: return wide;
        case WideRead::Damaged: throw Error(ErrorKind::Damaged, reason("the image cannot be decoded"), path_, pageno);
        case WideRead::OtherForm: break;
        }
        std::uint16_t bits = 0;
        TIFFGetFieldDefaulted(tif_, TIFFTAG_BITSPERSAMPLE, &bits);
        if (bits > 32) {
            throw Error(ErrorKind::Unsupported, refusal, path_, pageno);
        }
        return decode_with_module(index, pageno, refusal);
    }

    TiffRaster decode_with_module(int index, int pageno, const std::string& refusal)
    {
        const writers::MagickModule& module = writers::magick_module();
        if (!module.problem.empty()) {
            throw Error(ErrorKind::Unsupported, refusal + " (" + module.problem + ")", path_, pageno);
        }
        std::ifstream in(path_, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        unsigned width = 0;
        unsigned height = 0;
        unsigned char* rgba = nullptr;
        const int result = module.read_tiff(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                                            static_cast<unsigned>(index), kMaxTiffPixels, &width, &height, &rgba);
        if (result != kQfReadDone) {
            throw Error(ErrorKind::Unsupported, refusal, path_, pageno);
        }
        const std::unique_ptr<unsigned char, decltype(module.release)> owned(rgba, module.release);
        TiffRaster raster;
        raster.width = width;
        raster.height = height;
        raster.pixels.resize(static_cast<std::size_t>(width) * height);
        for (std::size_t i = 0; i < raster.pixels.size(); ++i) {
            const unsigned char* p = rgba + 4 * i;
            raster.pixels[i] = static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
                               static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
        }
        return raster;
    }

    std::filesystem::path path_;
    std::mutex mutex_;
    TiffMessages messages_;
    struct CloseTiff {
        void operator()(TIFF* tif) const { TIFFClose(tif); }
    };
    std::unique_ptr<TIFF, CloseTiff> handle_;
    TIFF* tif_ = nullptr;
    int image_count_ = 0;
    bool tiled_ = false;
    engine::SourceTags tags_;
};

} // namespace

std::unique_ptr<engine::PageSource> open_tiff_source(const engine::DocumentToOpen& document)
{
    return std::make_unique<TiffSource>(document);
}

} // namespace qf::sources
