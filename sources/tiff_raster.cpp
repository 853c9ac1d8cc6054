// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/tiff_raster.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace qf::sources {
namespace {

// Where the pixels shown along a row and down a column lie in the stored raster: the index of
// the top-left pixel shown, and the index steps for one pixel right and one row down.
struct Walk {
    std::ptrdiff_t start, right, down;
};

Walk walk_for(int orientation, std::ptrdiff_t w, std::ptrdiff_t h)
{
    const std::ptrdiff_t last_row = (h - 1) * w;
    switch (orientation) {
    case ORIENTATION_TOPRIGHT: return {w - 1, -1, w};
    case ORIENTATION_BOTRIGHT: return {last_row + w - 1, -1, -w};
    case ORIENTATION_BOTLEFT: return {last_row, 1, -w};
    case ORIENTATION_LEFTTOP: return {0, w, 1};
    case ORIENTATION_RIGHTTOP: return {last_row, -w, 1};
    case ORIENTATION_RIGHTBOT: return {last_row + w - 1, -w, -1};
    case ORIENTATION_LEFTBOT: return {w - 1, w, -1};
    default: return {0, 1, w};
    }
}

// One channel over white.
unsigned over_white(unsigned colour, unsigned alpha, bool premultiplied)
{
    if (premultiplied) {
        return std::min(255u, colour + 255 - alpha);
    }
    return (colour * alpha + 255 * (255 - alpha) + 127) / 255;
}

// One 64-bit sample as 8 bits.
unsigned sample_to_8bit(const std::uint8_t* at, bool is_float)
{
    if (is_float) {
        double value = 0;
        std::memcpy(&value, at, sizeof value);
        return std::isnan(value) ? 0u : static_cast<unsigned>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
    }
    std::uint64_t value = 0;
    std::memcpy(&value, at, sizeof value);
    return static_cast<unsigned>(value >> 56);
}

} // namespace

WideRead read_64bit_samples(TIFF* tif, std::uint32_t width, std::uint32_t height, TiffRaster& raster)
{
    std::uint16_t bits = 0, samples = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG, model = 0;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &model);
    const bool grey = (model == PHOTOMETRIC_MINISBLACK || model == PHOTOMETRIC_MINISWHITE) && samples == 1;
    const bool rgb = model == PHOTOMETRIC_RGB && samples == 3;
    if (bits != 64 || (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_IEEEFP) ||
        planar != PLANARCONFIG_CONTIG || TIFFIsTiled(tif) || !(grey || rgb)) {
        return WideRead::OtherForm;
    }
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize64(tif)));
    if (line.size() != static_cast<std::size_t>(width) * samples * 8) {
        return WideRead::Damaged;
    }
    raster = TiffRaster{width, height, std::vector<std::uint32_t>(static_cast<std::size_t>(width) * height), false};
    for (std::uint32_t y = 0; y < height; ++y) {
        if (TIFFReadScanline(tif, line.data(), y, 0) < 0) {
            return WideRead::Damaged;
        }
        for (std::uint32_t x = 0; x < width; ++x) {
            unsigned rgba[3];
            for (unsigned s = 0; s < 3; ++s) {
                rgba[s] = sample_to_8bit(line.data() + (static_cast<std::size_t>(x) * samples + (grey ? 0 : s)) * 8,
                                         format == SAMPLEFORMAT_IEEEFP);
                rgba[s] = model == PHOTOMETRIC_MINISWHITE ? 255 - rgba[s] : rgba[s];
            }
            raster.pixels[static_cast<std::size_t>(y) * width + x] = rgba[0] | rgba[1] << 8 | rgba[2] << 16 | 0xFFu << 24;
        }
    }
    return WideRead::Done;
}

engine::PagePicture displayed_page(const TiffRaster& raster, int orientation, bool bilevel)
{
    const bool turns = orientation_turns(orientation);
    engine::PagePicture picture;
    picture.width = static_cast<int>(turns ? raster.height : raster.width);
    picture.height = static_cast<int>(turns ? raster.width : raster.height);
    picture.format = bilevel ? engine::PixelFormat::Bilevel : engine::PixelFormat::Rgb8;
    const std::size_t stride = picture.stride();
    picture.pixels.assign(stride * static_cast<std::size_t>(picture.height), 0);
    const Walk walk = walk_for(orientation, raster.width, raster.height);
    for (int y = 0; y < picture.height; ++y) {
        std::ptrdiff_t at = walk.start + walk.down * y;
        std::uint8_t* out = picture.pixels.data() + stride * static_cast<std::size_t>(y);
        for (int x = 0; x < picture.width; ++x, at += walk.right) {
            const std::uint32_t pixel = raster.pixels[static_cast<std::size_t>(at)];
            const unsigned alpha = TIFFGetA(pixel);
            const unsigned r = over_white(TIFFGetR(pixel), alpha, raster.premultiplied);
            const unsigned g = over_white(TIFFGetG(pixel), alpha, raster.premultiplied);
            const unsigned b = over_white(TIFFGetB(pixel), alpha, raster.premultiplied);
            if (bilevel) {
                if (r + g + b < 3 * 128) {
                    out[x >> 3] |= static_cast<std::uint8_t>(0x80 >> (x & 7));
                }
            } else {
                out[3 * x] = static_cast<std::uint8_t>(r);
                out[3 * x + 1] = static_cast<std::uint8_t>(g);
                out[3 * x + 2] = static_cast<std::uint8_t>(b);
            }
        }
    }
    return picture;
}

} // namespace qf::sources
