// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

class QWidget;

namespace qf::shell {

// The help document quirefold.pdf: <prefix>/share/quirefold beside an installed program, else
// the build tree's resources/ (two levels above the program there too). Empty when neither
// holds it.
std::filesystem::path help_document_path();

// Opens the help document in the desktop's viewer for PDF files. Without the document nothing
// happens.
void open_help(QWidget* window);

} // namespace qf::shell
