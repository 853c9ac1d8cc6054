// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

#include "engine/options.h"

// Settings profiles (.qfk): an XML root holding one element per option, each with a single
// attribute that names the option and holds its value. The window's Save and Load Settings
// commands and the command line's --profile share these two functions; neither shows a dialog.
namespace qf::settings {

struct ProfileOutcome {
    bool ok = false;
    std::string message; // what the user is told, in either case
};

// savetoxml: writes the options to `path` through a temporary beside it, replacing what is
// there only when complete. ok: "Settings File NAME Saved" (NAME without folder); otherwise
// "Settings File NAME could not be saved: REASON", and an earlier file is left as it was.
ProfileOutcome savetoxml(const std::filesystem::path& path, const engine::OptionValues& values);

// loadfromxml: applies a profile to `values` as a partial update: options the file does not
// hold keep their values; a later duplicate wins; attribute names and "true" ignore case.
// ok: "Settings Loaded". A file that cannot be read, is not XML, has no root element, or
// holds an element without an attribute changes nothing and gives a message naming the file.
//
// A popup index that selects no row leaves that popup as it was, except zoomfactor, which
// then falls back to row 3. The passwords are Base64-decoded when the profile carries a
// non-blank version; only passwords read from the file are decoded.
ProfileOutcome loadfromxml(const std::filesystem::path& path, engine::OptionValues& values);

} // namespace qf::settings
