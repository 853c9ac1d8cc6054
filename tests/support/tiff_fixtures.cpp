// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/tiff_fixtures.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <cstdlib>
#include <stdexcept>
#include <tiffio.h>

namespace qf::test {
namespace fs = std::filesystem;
namespace {

bool in_black_square(int x, int y, const TiffPage& page)
{
    return x < page.width / 2 && y < page.height / 2 && x >= page.width / 8 && y >= page.height / 8;
}

std::vector<std::uint8_t> page_bytes(const TiffPage& page, int index, std::size_t& stride)
{
    const Rgb colour = page_colour(index);
    std::vector<std::uint8_t> bytes;
    switch (page.kind) {
    case TiffKind::Rgb:
        stride = static_cast<std::size_t>(page.width) * 3;
        bytes.resize(stride * page.height);
        for (int y = 0; y < page.height; ++y) {
            for (int x = 0; x < page.width; ++x) {
                const bool black = in_black_square(x, y, page);
                std::uint8_t* p = bytes.data() + stride * y + 3 * x;
                p[0] = black ? 0 : colour.r;
                p[1] = black ? 0 : colour.g;
                p[2] = black ? 0 : colour.b;
            }
        }
        break;
    case TiffKind::Bilevel:
    case TiffKind::BilevelMinIsBlack:
        stride = (static_cast<std::size_t>(page.width) + 7) / 8;
        bytes.assign(stride * page.height, page.kind == TiffKind::Bilevel ? 0 : 0xFF);
        for (int y = 0; y < page.height; ++y) {
            for (int x = 0; x < page.width; ++x) {
                if (in_black_square(x, y, page)) {
                    bytes[stride * y + x / 8] ^= static_cast<std::uint8_t>(0x80 >> (x % 8));
                }
            }
        }
        break;
    case TiffKind::Gray16:
        stride = static_cast<std::size_t>(page.width) * 2;
        bytes.resize(stride * page.height);
        for (int y = 0; y < page.height; ++y) {
            for (int x = 0; x < page.width; ++x) {
                const std::uint16_t value = in_black_square(x, y, page) ? 0 : static_cast<std::uint16_t>(colour.r * 257);
                std::memcpy(bytes.data() + stride * y + 2 * x, &value, 2);
            }
        }
        break;
    case TiffKind::RgbAlpha:
        stride = static_cast<std::size_t>(page.width) * 4;
        bytes.resize(stride * page.height);
        for (int y = 0; y < page.height; ++y) {
            for (int x = 0; x < page.width; ++x) {
                std::uint8_t* p = bytes.data() + stride * y + 4 * x;
                const bool opaque = x < page.width / 2;
                p[0] = colour.r;
                p[1] = colour.g;
                p[2] = colour.b;
                p[3] = opaque ? 255 : 0;
            }
        }
        break;
    }
    return bytes;
}

void write_page(TIFF* tif, const TiffPage& page, int index)
{
    std::size_t stride = 0;
    const std::vector<std::uint8_t> bytes = page_bytes(page, index, stride);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(page.width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(page.height));
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, page.compression);
    switch (page.kind) {
    case TiffKind::Rgb:
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        break;
    case TiffKind::Bilevel:
    case TiffKind::BilevelMinIsBlack:
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                     page.kind == TiffKind::Bilevel ? PHOTOMETRIC_MINISWHITE : PHOTOMETRIC_MINISBLACK);
        break;
    case TiffKind::Gray16:
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        break;
    case TiffKind::RgbAlpha: {
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 4);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        const std::uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
        break;
    }
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
    if (page.tiled) {
        constexpr std::uint32_t kTile = 16;
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, kTile);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, kTile);
        const std::size_t bytes_per_pixel_row = stride;
        std::vector<std::uint8_t> tile(static_cast<std::size_t>(TIFFTileSize(tif)), 0);
        const std::size_t tile_stride = tile.size() / kTile;
        for (int top = 0; top < page.height; top += kTile) {
            for (int left = 0; left < page.width; left += kTile) {
                std::fill(tile.begin(), tile.end(), 0);
                const std::size_t offset = bytes_per_pixel_row * left / page.width;
                for (std::uint32_t row = 0; row < kTile && top + static_cast<int>(row) < page.height; ++row) {
                    const std::size_t available = std::min(tile_stride, stride - offset);
                    std::memcpy(tile.data() + tile_stride * row, bytes.data() + stride * (top + row) + offset, available);
                }
                ok = ok && TIFFWriteTile(tif, tile.data(), static_cast<std::uint32_t>(left),
                                         static_cast<std::uint32_t>(top), 0, 0) >= 0;
            }
        }
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
        for (int y = 0; y < page.height; ++y) {
            ok = ok && TIFFWriteScanline(tif, const_cast<std::uint8_t*>(bytes.data() + stride * y),
                                         static_cast<std::uint32_t>(y), 0) >= 0;
        }
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
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (tif == nullptr) {
        throw std::runtime_error("cannot create " + path.string());
    }
    try {
        for (std::size_t i = 0; i < pages.size(); ++i) {
            write_page(tif, pages[i], static_cast<int>(i));
        }
    } catch (...) {
        TIFFClose(tif);
        throw;
    }
    TIFFClose(tif);
}

void make_raw_tiff(const fs::path& path, const std::vector<RawTiffImage>& images)
{
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (tif == nullptr) {
        throw std::runtime_error("cannot create " + path.string());
    }
    bool ok = true;
    for (const RawTiffImage& image : images) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.width));
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.height));
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, image.bits_per_sample);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, image.samples_per_pixel);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, image.photometric);
        TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, image.sample_format);
        TIFFSetField(tif, TIFFTAG_ORIENTATION, image.orientation);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(image.height));
        if (!image.extra_samples.empty()) {
            TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, static_cast<std::uint16_t>(image.extra_samples.size()),
                         image.extra_samples.data());
        }
        if (!image.colour_map.empty()) {
            const std::size_t n = image.colour_map.size() / 3;
            TIFFSetField(tif, TIFFTAG_COLORMAP, image.colour_map.data(), image.colour_map.data() + n,
                         image.colour_map.data() + 2 * n);
        }
        if (image.xres > 0) {
            TIFFSetField(tif, TIFFTAG_XRESOLUTION, image.xres);
            TIFFSetField(tif, TIFFTAG_YRESOLUTION, image.yres);
            TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        }
        auto* data = const_cast<std::uint8_t*>(image.data.data());
        ok = ok && TIFFWriteEncodedStrip(tif, 0, data, static_cast<tmsize_t>(image.data.size())) >= 0 &&
             TIFFWriteDirectory(tif) == 1;
    }
    TIFFClose(tif);
    if (!ok) {
        throw std::runtime_error("libtiff could not write " + path.string());
    }
}

std::vector<std::uint8_t> pack_samples(const std::vector<std::uint64_t>& samples, int per_row, int bits)
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
