// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>

#include <jpeglib.h>

namespace qf::writers {

// Puts our own progressive Huffman coder in place of libjpeg's in a compression just started
// (call right after jpeg_start_compress). It writes the very bytes libjpeg's coder writes,
// optimised tables included, and passes over a block whose coefficients in the scan's band are
// all zero at once: most blocks of a text page. Returns false, leaving libjpeg's coder, for a
// compression it does not code: not progressive, arithmetic coding, restart markers, or a
// sample size other than 8 bits. Errors go to the compression's error manager, as libjpeg's do.
bool use_fast_progressive_coder(jpeg_compress_struct& cinfo);

} // namespace qf::writers
