// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

namespace qf::writers {

// writergb48: rewrites a finished TIFF so that every image holds 16-bit RGB samples (48 bits a
// pixel), bilevel and grey images included; the 8-bit values are widened, nothing is gained.
// Each image keeps its compression where that can hold 16-bit samples (none, LZW, Deflate,
// Packbits); JPEG and the CCITT codes cannot, and such images are written with LZW. The new
// file replaces the old one by a rename, so a failure leaves the old file as it was. A
// missing file does nothing. Throws Error(ErrorKind::Output). Safe to call from several
// threads at once.
void writergb48(const std::filesystem::path& file);

} // namespace qf::writers
