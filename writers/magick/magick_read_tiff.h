// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The image module's TIFF reader: the images whose samples libtiff's own readers refuse (odd bit
// depths, 32- and 64-bit integers and floats, deep CMYK) are decoded by the module's image
// library. Plain C types only, and no exception crosses the boundary.

#include <cstddef>

#include "writers/magick/magick_deep_tiff.h"

extern "C" {

// Results of qf_magick_read_tiff.
enum QfReadResult { kQfReadDone = 0, kQfReadUnreadable = 1, kQfReadTooLarge = 2 };

// Decodes image `index` (0-based) of the TIFF file held in `tiff` as 8-bit RGBA: 4 bytes a
// pixel, colour not multiplied by alpha, rows as the file stores them (the Orientation tag is
// not applied), CMYK converted to RGB. Refuses images of more than `max_pixels` pixels. On
// kQfReadDone, *rgba holds width * height pixels, to be given back with qf_deep_tiff_free.
QF_DEEP_EXPORT int qf_magick_read_tiff(const unsigned char* tiff, std::size_t length, unsigned index,
                                       unsigned long long max_pixels, unsigned* width, unsigned* height,
                                       unsigned char** rgba);
}
