// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qf::engine {

enum class PixelFormat {
    Rgb8,    // 3 bytes a pixel, R G B, rows packed with no padding
    Bilevel, // 1 bit a pixel, most significant bit first, 1 = black, rows padded to a whole byte
};

// One page as pixels: a rendered PDF page or a decoded TIFF image. Always opaque.
struct PagePicture {
    int width = 0;  // pixels
    int height = 0; // pixels
    PixelFormat format = PixelFormat::Rgb8;
    std::vector<std::uint8_t> pixels;

    std::size_t stride() const
    {
        return format == PixelFormat::Rgb8 ? static_cast<std::size_t>(width) * 3
                                           : (static_cast<std::size_t>(width) + 7) / 8;
    }
    bool empty() const { return width <= 0 || height <= 0; }
};

// The page as 8-bit RGB, whatever its form: a bilevel page becomes black and white pixels.
PagePicture to_rgb(const PagePicture& picture);

} // namespace qf::engine
