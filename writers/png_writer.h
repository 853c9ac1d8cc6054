// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "engine/page.h"
#include "engine/services.h"

namespace qf::writers {

// Writes the page as an 8-bit truecolour PNG, not interlaced, every row with the "up" filter,
// compressed at zlib level 3. A bilevel page becomes black and white pixels. The file carries
// no resolution: the context is accepted for the writer's common signature only. The file
// appears under `target` only when complete. Throws Error(ErrorKind::Output). Safe to call
// from several threads at once.
void write_png(const engine::PagePicture& picture, const std::filesystem::path& target,
               const engine::PageWriteContext& context);

} // namespace qf::writers
