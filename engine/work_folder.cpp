// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/work_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <unistd.h>

#include "engine/error.h"

namespace qf::engine {
namespace fs = std::filesystem;

fs::path work_folder()
{
    fs::path data_home;
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && xdg[0] == '/') {
        data_home = xdg;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') {
        data_home = fs::path(home) / ".local" / "share";
    } else {
        data_home = fs::temp_directory_path();
    }
    const fs::path folder = data_home / "org.quirefold.extract";
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw Error(ErrorKind::Output, "cannot create the work folder: " + error.message(), folder);
    }
    return folder;
}

ScratchFolder::ScratchFolder()
{
    std::string pattern = (work_folder() / "run-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw Error(ErrorKind::Output, std::string("cannot create a scratch folder: ") + std::strerror(errno));
    }
    path_ = pattern;
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace qf::engine
