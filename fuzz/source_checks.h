// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "engine/page.h"
#include "fuzz/fuzz_support.h"

namespace qf::fuzz {

// A picture a writer can take: a size, and exactly a stride's worth of bytes for every row
// (pixels may be left out only when the source's compressed data stands in for them).
inline void check_picture(const engine::PagePicture &picture)
{
    require(!picture.empty(), "a page has a size");
    if (!picture.has_pixels()) {
        require(picture.compressed != nullptr, "a page without pixels has its compressed data");
        return;
    }
    require(picture.pixels.size() == picture.stride() * static_cast<std::size_t>(picture.height),
            "a page's pixels fill its rows exactly");
}

} // namespace qf::fuzz
