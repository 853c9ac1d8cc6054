// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace qf::engine {

enum class PixelFormat {
    Rgb8,    // 3 bytes a pixel, R G B, rows packed with no padding
    Bilevel, // 1 bit a pixel, most significant bit first, 1 = black, rows padded to a whole byte
};

// A source image's compressed data that a PDF page can carry unchanged.
struct CompressedImage {
    enum class Codec { CcittG4 };
    Codec codec = Codec::CcittG4;
    std::vector<std::uint8_t> data; // one CCITT G4 stream, most significant bit first
    bool black_is_1 = true;         // 1 bits are black (TIFF MinIsWhite)
};

// One page as pixels: a rendered PDF page or a decoded TIFF image. Always opaque.
struct PagePicture {
    int width = 0;  // pixels
    int height = 0; // pixels
    PixelFormat format = PixelFormat::Rgb8;
    std::vector<std::uint8_t> pixels; // empty when only `compressed` was asked for and given
    // The source's own encoding of these pixels, when the caller asked for it and it exists.
    std::shared_ptr<const CompressedImage> compressed;

    std::size_t stride() const
    {
        return format == PixelFormat::Rgb8 ? static_cast<std::size_t>(width) * 3
                                           : (static_cast<std::size_t>(width) + 7) / 8;
    }
    bool empty() const { return width <= 0 || height <= 0; }
    bool has_pixels() const { return !pixels.empty(); }
};

// The page as 8-bit RGB, whatever its form: a bilevel page becomes black and white pixels.
PagePicture to_rgb(const PagePicture& picture);

} // namespace qf::engine
