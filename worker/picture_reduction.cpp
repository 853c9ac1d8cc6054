// SPDX-License-Identifier: GPL-3.0-or-later
#include "worker/picture_reduction.h"

#include <algorithm>

namespace qf::worker {

engine::PagePicture reduce_picture(const engine::PagePicture& picture, int factor)
{
    if (factor <= 1 || picture.empty() || picture.format != engine::PixelFormat::Rgb8) {
        return picture;
    }
    engine::PagePicture reduced;
    reduced.width = (picture.width + factor - 1) / factor;
    reduced.height = (picture.height + factor - 1) / factor;
    reduced.pixels.resize(reduced.stride() * static_cast<std::size_t>(reduced.height));
    const std::size_t source_stride = picture.stride();
    for (int y = 0; y < reduced.height; ++y) {
        const int top = y * factor;
        const int bottom = std::min(top + factor, picture.height);
        for (int x = 0; x < reduced.width; ++x) {
            const int left = x * factor;
            const int right = std::min(left + factor, picture.width);
            unsigned sums[3] = {0, 0, 0};
            for (int sy = top; sy < bottom; ++sy) {
                const std::uint8_t* pixel = picture.pixels.data() + sy * source_stride + left * 3;
                for (int sx = left; sx < right; ++sx, pixel += 3) {
                    sums[0] += pixel[0];
                    sums[1] += pixel[1];
                    sums[2] += pixel[2];
                }
            }
            const unsigned count = static_cast<unsigned>((bottom - top) * (right - left));
            std::uint8_t* out = reduced.pixels.data() + y * reduced.stride() + x * 3;
            for (int c = 0; c < 3; ++c) {
                out[c] = static_cast<std::uint8_t>((sums[c] + count / 2) / count);
            }
        }
    }
    return reduced;
}

} // namespace qf::worker
