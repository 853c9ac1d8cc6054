// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <tiffio.h>
#include <vector>

#include "engine/page.h"

namespace qf::sources {

// A decoded TIFF image before it becomes a page: 8-bit RGBA packed as libtiff's RGBA reader
// packs it (TIFFGetR, TIFFGetG, TIFFGetB, TIFFGetA), rows as the file stores them.
struct TiffRaster {
    std::uint32_t width = 0;  // pixels, as stored
    std::uint32_t height = 0; // pixels, as stored
    std::vector<std::uint32_t> pixels;
    bool premultiplied = false; // colour already multiplied by alpha
};

// True for the Orientation values 5 to 8, whose rows run down the page: the image shows
// `height` pixels wide and `width` pixels high, and its resolutions swap likewise.
inline bool orientation_turns(int orientation)
{
    return orientation >= 5 && orientation <= 8;
}

// The page as viewers show it: `orientation` (the TIFF tag, 1 to 8; any other value counts as 1)
// applied, laid over white, as 8-bit RGB or, with `bilevel`, as 1-bit (black where the mean of
// red, green and blue falls below 128).
engine::PagePicture displayed_page(const TiffRaster& raster, int orientation, bool bilevel);

// Reads the current image of `tif` when it holds 64-bit unsigned integer or float samples, grey
// or RGB, pixel after pixel in strips: the forms neither libtiff's readers nor the image module
// read. Integers keep their top 8 bits; floats run from 0 to 1 (clamped), as the image module
// takes 32-bit floats. Opaque.
enum class WideRead { Done, OtherForm, Damaged };
WideRead read_64bit_samples(TIFF* tif, std::uint32_t width, std::uint32_t height, TiffRaster& raster);

} // namespace qf::sources
