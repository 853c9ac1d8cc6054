// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace qf::sources {

struct PdfProbe {
    bool opened = false; // the file reads as a PDF and `password` opens it
    int page_count = 0;  // 0 unless opened
};

// Tries a PDF with a password (empty for none). Never throws for a bad file: damage, a
// missing or wrong password, an empty page tree and an unreadable file all give opened false.
PdfProbe probe_pdf(const std::filesystem::path& path, const std::string& password);

} // namespace qf::sources
