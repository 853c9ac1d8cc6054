// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/program_location.h"

#include <system_error>

#include "engine/version.h"

namespace qf::engine {
namespace fs = std::filesystem;

fs::path program_file()
{
    std::error_code error;
    fs::path program = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : program;
}

bool runs_from_build_tree()
{
    const fs::path program = program_file().lexically_normal();
    const fs::path root = fs::path(kBuildRoot).lexically_normal();
    if (program.empty() || root.empty()) {
        return false;
    }
    // Component by component, so a sibling "build-other" is not taken for "build".
    auto inside = program.begin();
    for (const auto& part : root) {
        if (part.empty()) {
            continue; // the trailing separator's empty name
        }
        if (inside == program.end() || *inside != part) {
            return false;
        }
        ++inside;
    }
    return true;
}

} // namespace qf::engine
