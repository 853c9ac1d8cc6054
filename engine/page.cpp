// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/page.h"

namespace qf::engine {

PagePicture to_rgb(const PagePicture& picture)
{
    if (picture.format == PixelFormat::Rgb8) {
        return picture;
    }
    PagePicture rgb;
    rgb.width = picture.width;
    rgb.height = picture.height;
    rgb.format = PixelFormat::Rgb8;
    rgb.pixels.resize(rgb.stride() * static_cast<std::size_t>(rgb.height));
    const std::size_t in_stride = picture.stride();
    for (int y = 0; y < picture.height; ++y) {
        const std::uint8_t* in = picture.pixels.data() + in_stride * static_cast<std::size_t>(y);
        std::uint8_t* out = rgb.pixels.data() + rgb.stride() * static_cast<std::size_t>(y);
        for (int x = 0; x < picture.width; ++x) {
            const bool black = (in[x >> 3] >> (7 - (x & 7))) & 1;
            const std::uint8_t value = black ? 0 : 255;
            out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = value;
        }
    }
    return rgb;
}

} // namespace qf::engine
