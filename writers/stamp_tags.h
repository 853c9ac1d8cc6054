// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/services.h"

namespace qf::writers {

struct Rational {
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 1;
};

// What a stamp writes, worked out once from the request. The rules are those of the EXIF and
// XMP conventions every reader of these files follows (and that ExifTool applies when it is
// given the same texts), so that a stamped file reads back as the tools expect:
// - the resolution text sets IFD0 XResolution and YResolution when it is a non-negative
//   decimal number (a comma may stand for the point), a fraction "N/D", "inf" or "undef";
//   an empty text removes them; any other text leaves them as they are. Decimals become the
//   nearest fraction good to eight significant figures.
// - the JFIF density of a JPEG follows the same text read as a 16-bit whole number: digits,
//   else hexadecimal digits, else a decimal rounded; outside 0..65535 it is left alone.
// - Copyright (trimmed, santitext) keeps a line break as EXIF's separator of the
//   photographer's and the editor's notices; Artist and XMP pdf:Author get the trimmed author
//   text after santitext, XMP with characters XML cannot hold replaced.
struct StampTags {
    enum class Resolution { Keep, Set, Remove };
    Resolution resolution = Resolution::Keep;
    Rational resolution_value;
    std::optional<std::uint16_t> jfif_density;
    std::optional<std::string> copyright; // the EXIF value's bytes, terminating zero included
    std::optional<std::string> artist;    // without the terminating zero
    std::string xmp_packet;               // empty when there is no author

    // True when a file's EXIF block has anything to hold.
    bool writes_exif() const
    {
        return resolution == Resolution::Set || copyright.has_value() || artist.has_value();
    }
};

StampTags stamp_tags(const engine::StampRequest& request);

} // namespace qf::writers
