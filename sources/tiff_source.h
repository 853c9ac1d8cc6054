// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include "engine/services.h"

namespace qf::sources {

// Opens a TIFF document once for all its pages (engine::SourceOpener). Pages are the file's
// images in order; a document marked "tiled~yes" is one page that shows the second image
// when the file has one, else the first. Throws engine::Error when the file is no readable TIFF.
// Pages come out as viewers show them: the Orientation tag applied (5 to 8 swap the sides, and
// the resolutions with them), laid over white, 8 bits a sample, 1-bit grey kept bilevel. Images
// libtiff's readers refuse are read through the image module (writers/magick), loaded on first
// such image; a page that neither reads fails with libtiff's reason.
std::unique_ptr<engine::PageSource> open_tiff_source(const engine::DocumentToOpen& document);

// Pictures larger than this many pixels are refused rather than decoded.
inline constexpr long long kMaxTiffPixels = 300'000'000;

} // namespace qf::sources
