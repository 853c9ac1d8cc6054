// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace qf::test {
namespace fs = std::filesystem;

TempFolder::TempFolder()
{
    std::string pattern = (fs::temp_directory_path() / "qf-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary folder");
    }
    path_ = pattern;
}

TempFolder::~TempFolder()
{
    // A folder's permissions are given back before the walk goes into it.
    std::error_code ignored;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
    std::error_code walk;
    for (fs::recursive_directory_iterator it(path_, walk), end; !walk && it != end;
         it.increment(walk)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    fs::remove_all(path_, ignored);
}

std::vector<std::string> TempFolder::entries() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

const fs::path& isolated_work_folder()
{
    static const TempFolder folder;
    [[maybe_unused]] static const int set = ::setenv("XDG_DATA_HOME", folder.path().c_str(), 1);
    return folder.path();
}

} // namespace qf::test
