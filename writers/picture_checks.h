// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "engine/page.h"

namespace qf::writers {

// Refuses a page that no encoder can take: no pixels, or fewer bytes than its sides need.
// Throws Error(ErrorKind::Output) naming `target`.
void check_picture(const engine::PagePicture& picture, const std::filesystem::path& target);

// The page as packed 8-bit RGB without copying a page that already is: returns `picture`
// itself, or `storage` filled with the black and white expansion of a bilevel page.
const engine::PagePicture& rgb_pixels(const engine::PagePicture& picture,
                                      engine::PagePicture& storage);

// The page as 1 bit a pixel, 1 = black, rows padded to a whole byte. A colour pixel is black
// when its luminance (ITU-R BT.601 weights) is below mid-grey, 128 of 255.
engine::PagePicture to_bilevel(const engine::PagePicture& picture);

} // namespace qf::writers
