// SPDX-License-Identifier: GPL-3.0-or-later
// Admission of PDF bytes: whether the file enters the document list and with how many pages.
#include <cstddef>
#include <cstdint>

#include "fuzz/admission_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    qf::fuzz::admit_one(data, size, "input.pdf");
    return 0;
}
