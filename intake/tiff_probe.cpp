// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/tiff_probe.h"

#include <memory>

#include <tiffio.h>

namespace qf::intake {
namespace {

// Per-handle handlers that swallow libtiff's diagnostics: a probe only wants the answer, and
// a damaged file is reported by the caller in its own words.
int quiet_tiff_handler(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

struct OptionsFreer {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

} // namespace

TiffProbe probe_tiff(const std::filesystem::path& path)
{
    std::unique_ptr<TIFFOpenOptions, OptionsFreer> options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), quiet_tiff_handler, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), quiet_tiff_handler, nullptr);
    // Header only: a file of zero images opens and counts 0 instead of failing to open.
    std::unique_ptr<TIFF, TiffCloser> tiff(TIFFOpenExt(path.c_str(), "rh", options.get()));
    TiffProbe probe;
    if (!tiff) {
        return probe;
    }
    probe.image_count = static_cast<int>(TIFFNumberOfDirectories(tiff.get()));
    if (probe.image_count > 0 && TIFFSetDirectory(tiff.get(), 0)) {
        probe.readable = true;
        probe.tiled = TIFFIsTiled(tiff.get()) != 0;
    }
    return probe;
}

} // namespace qf::intake
