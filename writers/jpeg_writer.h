// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "engine/page.h"
#include "engine/services.h"

namespace qf::writers {

// Writes the page as a progressive baseline-Huffman JPEG: 8-bit RGB, three components (a
// bilevel page becomes black and white pixels), quality the whole part of the quality text
// clamped to 1..100, JFIF density in dots per inch from snapshot.thedpi (at most 65535).
// The file appears under `target` only when complete; an earlier file stays as it was on
// failure. Throws Error(ErrorKind::Output). Safe to call from several threads at once.
void write_jpeg(const engine::PagePicture& picture, const std::filesystem::path& target,
                const engine::PageWriteContext& context);

} // namespace qf::writers
