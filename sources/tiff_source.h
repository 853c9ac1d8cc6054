// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include "engine/services.h"

namespace qf::sources {

// Opens a TIFF document once for all its pages (engine::SourceOpener). Pages are the file's
// images in order; a document marked "tiled~yes" is one page that shows the second image
// when the file has one, else the first. Throws engine::Error when the file is no readable TIFF.
std::unique_ptr<engine::PageSource> open_tiff_source(const engine::DocumentToOpen& document);

// Pictures larger than this many pixels are refused rather than decoded.
inline constexpr long long kMaxTiffPixels = 300'000'000;

} // namespace qf::sources
