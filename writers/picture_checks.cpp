// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/picture_checks.h"

#include <cstdint>

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
    bilevel.pixels.assign(out_stride * static_cast<std::size_t>(bilevel.height), 0);
    for (int y = 0; y < picture.height; ++y) {
        const std::uint8_t* in = picture.pixels.data() + in_stride * static_cast<std::size_t>(y);
        std::uint8_t* out = bilevel.pixels.data() + out_stride * static_cast<std::size_t>(y);
        for (int x = 0; x < picture.width; ++x) {
            const unsigned luminance =
                (299u * in[3 * x] + 587u * in[3 * x + 1] + 114u * in[3 * x + 2]) / 1000u;
            if (luminance < 128) {
                out[x >> 3] |= static_cast<std::uint8_t>(0x80u >> (x & 7));
            }
        }
    }
    return bilevel;
}

} // namespace qf::writers
