// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

// What admission needs to know of a TIFF before it becomes a row: how many images, whether it
// is tiled. (PDFs are probed by sources/pdf_probe.h, the reader the run itself uses.)
namespace qf::intake {

struct TiffProbe {
    bool readable = false; // a TIFF whose first image could be read
    int image_count = 0;   // images (directories) in the file
    bool tiled = false;    // the first image is stored in tiles
};

// Never throws; a file that is not a TIFF is not readable. libtiff's messages are kept quiet.
TiffProbe probe_tiff(const std::filesystem::path& path);

} // namespace qf::intake
