// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace qf::writers {

// The TEXT format's file: the document's text as it stands, UTF-8, written whole through a
// temporary beside the target. Throws engine::Error(Output) with the system's reason.
void write_text(const std::string& text, const std::filesystem::path& target);

} // namespace qf::writers
