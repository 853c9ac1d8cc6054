// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qf::writers {

// Encodes `rows` rows of a 1-bit image as one CCITT Group 4 (T.6) block, the form of one strip
// of a Compression=4 TIFF: the first row is coded against an all-white line, the block ends
// with EOFB and is padded with zero bits to a whole byte, bits most significant first.
// Pixels are most significant bit first, 1 = black, each row `stride` bytes after the last;
// bits beyond `width` are ignored. `out` is replaced by the block.
void encode_g4_block(const std::uint8_t* first_row, std::size_t stride, int width, int rows,
                     std::vector<std::uint8_t>& out);

} // namespace qf::writers
