// SPDX-License-Identifier: GPL-3.0-or-later
// Admission of TIFF bytes: whether the file enters the document list, with how many pages and
// whether it counts as tiled.
#include <cstddef>
#include <cstdint>

#include "fuzz/admission_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    qf::fuzz::admit_one(data, size, "input.tif");
    return 0;
}
