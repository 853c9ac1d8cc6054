// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>

#include "engine/services.h"

namespace qf::writers {

// Writes the stamp of a finished JPEG or TIFF that this program wrote (see stamp_tags.h for
// the tags and their values):
// - JPEG: the JFIF density, and after the JFIF segment an EXIF segment (big-endian; IFD0 with
//   XResolution, YResolution, ResolutionUnit, Artist, YCbCrPositioning and Copyright as they
//   apply) and an XMP segment with pdf:Author when there is an author. EXIF and XMP segments
//   the file held are replaced.
// - TIFF (classic, either byte order, one image or many): the first image's tags. Its
//   directory is written anew at the end of the file, leaving the image data where it is;
//   the other images keep theirs.
// The stamped file replaces the old one in one rename. Returns false, leaving the file as it
// was, when it is neither kind, is damaged, or cannot be rewritten. Never throws.
bool stamp_file(const std::filesystem::path& file, const engine::StampRequest& request);

// updatedpinonstore by stamp_file. Safe to use from several threads on different files.
class ExifStamper : public engine::Stamper {
public:
    void updatedpinonstore(const std::filesystem::path& file,
                           const engine::StampRequest& request) override;
};

std::unique_ptr<engine::Stamper> make_exif_stamper();

} // namespace qf::writers
