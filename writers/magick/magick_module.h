// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "writers/magick/magick_read_tiff.h"

namespace qf::writers {

// The image module's entry points. The module is loaded on the first call, from beside the
// program (<prefix>/lib/quirefold) or else where this build made it, and stays loaded for the
// rest of the process. When it cannot be loaded, the pointers are null and `problem` says why.
// Safe to call from several threads at once.
struct MagickModule {
    decltype(&qf_deep_tiff) deep_tiff = nullptr;
    decltype(&qf_magick_read_tiff) read_tiff = nullptr;
    decltype(&qf_deep_tiff_free) release = nullptr;
    std::string problem;
};

const MagickModule& magick_module();

} // namespace qf::writers
