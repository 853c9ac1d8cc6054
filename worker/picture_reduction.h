// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "engine/page.h"

namespace qf::worker {

// The picture reduced by `factor` in each direction, each pixel the rounded mean of a
// factor x factor block (the blocks of the last row and column cut short by the picture's
// edge). 8-bit RGB in and out; factor 1 returns it as it is. The worker reduces a picture
// request with a reduction factor this way before the picture leaves it.
engine::PagePicture reduce_picture(const engine::PagePicture& picture, int factor);

} // namespace qf::worker
