// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/picture_checks.h"

#include <bit>
#include <cstdint>
#include <cstring>

#include "engine/error.h"

namespace qf::writers {

void check_picture(const engine::PagePicture& picture, const std::filesystem::path& target)
{
    if (picture.empty()) {
        throw engine::Error(engine::ErrorKind::Output, "the page has no pixels", target);
    }
    if (picture.pixels.size() < picture.stride() * static_cast<std::size_t>(picture.height)) {
        throw engine::Error(engine::ErrorKind::Output, "the page's pixels are incomplete", target);
    }
}

const engine::PagePicture& rgb_pixels(const engine::PagePicture& picture,
                                      engine::PagePicture& storage)
{
    if (picture.format == engine::PixelFormat::Rgb8) {
        return picture;
    }
    storage = engine::to_rgb(picture);
    return storage;
}

namespace {

// 1 where a pixel's luminance (weights 0.299, 0.587, 0.114) is below mid-grey. Integer form of
// the threshold: 299 r + 587 g + 114 b < 128000.
inline bool is_dark(const std::uint8_t* rgb)
{
    return 299u * rgb[0] + 587u * rgb[1] + 114u * rgb[2] < 128000u;
}

// The top bits of eight bytes, the first byte's in bit 0.
inline unsigned top_bits(const std::uint8_t* bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) {
        word = __builtin_bswap64(word);
    }
    // The multiplier moves each byte's top bit into the top byte without carries.
    return static_cast<unsigned>(((word & 0x8080808080808080u) * 0x0002040810204081u) >> 56);
}

// One output byte from eight RGB pixels. Pages are mostly white paper, so a group of eight
// white pixels is recognised by comparing its 24 bytes at once.
inline std::uint8_t dark_bits(const std::uint8_t* rgb)
{
    static constexpr std::uint8_t kWhite[24] = {255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
                                                255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};
    if (std::memcmp(rgb, kWhite, sizeof kWhite) == 0) {
        return 0;
    }
    // The weights sum to 1000, so a pixel whose samples are all below 128 is dark and one whose
    // samples are all 128 or more is not: only where a pixel's samples straddle mid-grey, rare
    // on paper and in grey anti-aliasing, is the weighted sum needed.
    const unsigned high = top_bits(rgb) | top_bits(rgb + 8) << 8 | top_bits(rgb + 16) << 16;
    const unsigned red_high = high & 0x249249u; // every third bit: each pixel's first sample
    if (high == red_high * 7) { // times 7 copies each first bit over its pixel's three
        unsigned light = 0;
#pragma GCC unroll 8
        for (int i = 0; i < 8; ++i) {
            light = (light << 1) | ((red_high >> (3 * i)) & 1u);
        }
        return static_cast<std::uint8_t>(~light);
    }
    unsigned bits = 0;
    for (int i = 0; i < 8; ++i) {
        bits = (bits << 1) | (is_dark(rgb + 3 * i) ? 1u : 0u);
    }
    return static_cast<std::uint8_t>(bits);
}

} // namespace

engine::PagePicture to_bilevel(const engine::PagePicture& picture)
{
    if (picture.format == engine::PixelFormat::Bilevel) {
        return picture;
    }
    engine::PagePicture bilevel;
    bilevel.width = picture.width;
    bilevel.height = picture.height;
    bilevel.format = engine::PixelFormat::Bilevel;
    const std::size_t out_stride = bilevel.stride();
    const std::size_t in_stride = picture.stride();
    bilevel.pixels.resize(out_stride * static_cast<std::size_t>(bilevel.height));
    const int whole_bytes = picture.width / 8;
    for (int y = 0; y < picture.height; ++y) {
        const std::uint8_t* in = picture.pixels.data() + in_stride * static_cast<std::size_t>(y);
        std::uint8_t* out = bilevel.pixels.data() + out_stride * static_cast<std::size_t>(y);
        for (int i = 0; i < whole_bytes; ++i) {
            out[i] = dark_bits(in + 24 * i);
        }
        if (whole_bytes < static_cast<int>(out_stride)) {
            unsigned bits = 0;
            for (int x = whole_bytes * 8; x < picture.width; ++x) {
                bits |= (is_dark(in + 3 * x) ? 0x80u : 0u) >> (x & 7);
            }
            out[whole_bytes] = static_cast<std::uint8_t>(bits);
        }
    }
    return bilevel;
}

} // namespace qf::writers
