// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/help_document.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QUrl>

namespace qf::shell {
namespace fs = std::filesystem;

fs::path help_document_path()
{
    // bin/quirefold installed, shell/quirefold or tests/... in the build tree: both two levels
    // below the folder that holds the document's folder.
    const fs::path top = fs::path(QCoreApplication::applicationDirPath().toStdString()).parent_path();
    for (const fs::path& candidate : {top / "share" / "quirefold" / "quirefold.pdf", top / "resources" / "quirefold.pdf"}) {
        std::error_code error;
        if (fs::is_regular_file(candidate, error)) {
            return candidate;
        }
    }
    return {};
}

void open_help(QWidget*)
{
    const fs::path document = help_document_path();
    if (!document.empty()) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(document.string())));
    }
}

} // namespace qf::shell
