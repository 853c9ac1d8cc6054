// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/tiff_fixtures.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <tiffio.h>

namespace qf::test {
namespace fs = std::filesystem;
namespace {

using TiffPtr = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

TiffPtr create_tiff(const fs::path& path)
{
    TiffPtr tif(TIFFOpen(path.c_str(), "w"), &TIFFClose);
    if (!tif) {
        throw std::runtime_error("cannot create " + path.string());
    }
    return tif;
}

// Bits per sample, samples per pixel and photometric interpretation of each kind, in the
// order of TiffKind.
struct KindLayout { std::uint16_t bits, samples, photometric; };
constexpr KindLayout kLayouts[] = {{8, 3, PHOTOMETRIC_RGB},
                                   {1, 1, PHOTOMETRIC_MINISWHITE},
                                   {1, 1, PHOTOMETRIC_MINISBLACK},
                                   {16, 1, PHOTOMETRIC_MINISBLACK},
                                   {8, 4, PHOTOMETRIC_RGB}};

bool in_black_square(int x, int y, const TiffPage& page)
{
    return x < page.width / 2 && y < page.height / 2 && x >= page.width / 8 &&
           y >= page.height / 8;
}

// The rows of page `index` as the file holds them, `stride` bytes each.
std::vector<std::uint8_t> page_bytes(const TiffPage& page, int index, std::size_t stride)
{
    const Rgb colour = page_colour(index);
    const int pixel_bits = kLayouts[int(page.kind)].bits * kLayouts[int(page.kind)].samples;
    std::vector<std::uint8_t> bytes(stride * page.height,
                                    page.kind == TiffKind::BilevelMinIsBlack ? 0xFF : 0);
    for (int y = 0; y < page.height; ++y) {
        for (int x = 0; x < page.width; ++x) {
            const bool black = page.kind != TiffKind::RgbAlpha && in_black_square(x, y, page);
            std::uint8_t* at = bytes.data() + stride * y + std::size_t(x) * pixel_bits / 8;
            const std::uint16_t grey = black ? 0 : std::uint16_t(colour.r * 257);
            const std::uint8_t rgba[4] = {std::uint8_t(black ? 0 : colour.r),
                                          std::uint8_t(black ? 0 : colour.g),
                                          std::uint8_t(black ? 0 : colour.b),
                                          std::uint8_t(x < page.width / 2 ? 255 : 0)};
            if (pixel_bits == 1) {
                *at ^= black ? std::uint8_t(0x80 >> (x % 8)) : 0;
            } else {
                std::memcpy(at, pixel_bits == 16 ? static_cast<const void*>(&grey) : rgba,
                            std::size_t(pixel_bits) / 8);
            }
        }
    }
    return bytes;
}

void write_page(TIFF* tif, const TiffPage& page, int index)
{
    const KindLayout layout = kLayouts[int(page.kind)];
    const std::size_t stride = (std::size_t(page.width) * layout.bits * layout.samples + 7) / 8;
    const std::vector<std::uint8_t> bytes = page_bytes(page, index, stride);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, std::uint32_t(page.width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, std::uint32_t(page.height));
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, page.compression);
    TIFFSetField(tif, TIFFTAG_FILLORDER, page.fill_order);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, layout.bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, layout.samples);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, layout.photometric);
    const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    if (page.kind == TiffKind::RgbAlpha) {
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &alpha);
    }
    if (page.xres > 0) {
        TIFFSetField(tif, TIFFTAG_XRESOLUTION, page.xres);
        TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, page.resolution_unit);
    }
    if (page.yres > 0) {
        TIFFSetField(tif, TIFFTAG_YRESOLUTION, page.yres);
    }
    if (!page.copyright.empty()) {
        TIFFSetField(tif, TIFFTAG_COPYRIGHT, page.copyright.c_str());
    }
    if (!page.document_name.empty()) {
        TIFFSetField(tif, TIFFTAG_DOCUMENTNAME, page.document_name.c_str());
    }
    bool ok = true;
    constexpr int kTile = 16;
    if (page.tiled) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, kTile);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, kTile);
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    }
    std::vector<std::uint8_t> tile(page.tiled ? std::size_t(TIFFTileSize(tif)) : 0);
    const std::size_t tile_stride = tile.size() / kTile;
    for (int top = 0; page.tiled && top < page.height; top += kTile) {
        for (int left = 0; left < page.width; left += kTile) {
            std::fill(tile.begin(), tile.end(), 0);
            const std::size_t offset = stride * left / page.width;
            for (int row = 0; row < kTile && top + row < page.height; ++row) {
                std::memcpy(tile.data() + tile_stride * row, &bytes[stride * (top + row) + offset],
                            std::min(tile_stride, stride - offset));
            }
            ok = ok && TIFFWriteTile(tif, tile.data(), left, top, 0, 0) >= 0;
        }
    }
    for (int y = 0; !page.tiled && y < page.height; ++y) {
        ok = ok && TIFFWriteScanline(tif, const_cast<std::uint8_t*>(&bytes[stride * y]), y, 0) >= 0;
    }
    if (!ok || TIFFWriteDirectory(tif) != 1) {
        throw std::runtime_error("libtiff could not write a fixture page");
    }
}

} // namespace

Rgb page_colour(int index)
{
    static constexpr std::array<Rgb, 6> kColours = {{
        {200, 30, 30}, {30, 160, 40}, {40, 60, 210}, {230, 200, 20}, {150, 40, 170}, {20, 170, 180},
    }};
    return kColours[static_cast<std::size_t>(index) % kColours.size()];
}

void make_tiff(const fs::path& path, const std::vector<TiffPage>& pages)
{
    fs::create_directories(path.parent_path());
    const TiffPtr tif = create_tiff(path);
    for (std::size_t i = 0; i < pages.size(); ++i) {
        write_page(tif.get(), pages[i], static_cast<int>(i));
    }
}

void make_raw_tiff(const fs::path& path, const std::vector<RawTiffImage>& images)
{
    const TiffPtr file = create_tiff(path);
    TIFF* tif = file.get();
    bool ok = true;
    for (const RawTiffImage& image : images) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, std::uint32_t(image.width));
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, std::uint32_t(image.height));
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, image.bits_per_sample);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, image.samples_per_pixel);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, image.photometric);
        TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, image.sample_format);
        TIFFSetField(tif, TIFFTAG_ORIENTATION, image.orientation);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, std::uint32_t(image.height));
        if (!image.extra_samples.empty()) {
            TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, std::uint16_t(image.extra_samples.size()),
                         image.extra_samples.data());
        }
        const std::uint16_t* map = image.colour_map.data();
        const std::size_t entries = image.colour_map.size() / 3;
        if (entries > 0) {
            TIFFSetField(tif, TIFFTAG_COLORMAP, map, map + entries, map + 2 * entries);
        }
        if (image.xres > 0) {
            TIFFSetField(tif, TIFFTAG_XRESOLUTION, image.xres);
            TIFFSetField(tif, TIFFTAG_YRESOLUTION, image.yres);
            TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        }
        auto* data = const_cast<std::uint8_t*>(image.data.data());
        ok = ok && TIFFWriteEncodedStrip(tif, 0, data, tmsize_t(image.data.size())) >= 0 &&
             TIFFWriteDirectory(tif) == 1;
    }
    if (!ok) {
        throw std::runtime_error("libtiff could not write " + path.string());
    }
}

std::vector<std::uint8_t> pack_samples(const std::vector<std::uint64_t>& samples, int per_row,
                                       int bits)
{
    std::vector<std::uint8_t> bytes;
    int used = 8; // bits used in the last byte
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (bits % 8 == 0) { // whole bytes, least significant first on this machine
            const auto* raw = reinterpret_cast<const std::uint8_t*>(&samples[i]);
            bytes.insert(bytes.end(), raw, raw + bits / 8);
            continue;
        }
        for (int bit = bits - 1; bit >= 0; --bit, ++used) {
            if (used == 8) {
                bytes.push_back(0);
                used = 0;
            }
            bytes.back() |= static_cast<std::uint8_t>(((samples[i] >> bit) & 1) << (7 - used));
        }
        used = (i + 1) % static_cast<std::size_t>(per_row) == 0 ? 8 : used; // rows start on a byte
    }
    return bytes;
}

void make_tiff(const fs::path& path, int images, bool tiled)
{
    make_tiff(path, std::vector<TiffPage>(static_cast<std::size_t>(images),
                                          TiffPage{.width = 16, .height = 16, .tiled = tiled}));
}

} // namespace qf::test
