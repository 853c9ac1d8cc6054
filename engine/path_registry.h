// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

// The paths this process has under way (temporaries beside outputs, private folders, scratch
// folders), kept where a signal handler can reach them: a program that ends at once removes
// them so that no half-written file is left behind. Any number of paths; registering may
// allocate, removing never does.
namespace qf::engine {

enum class Removal {
    File,        // unlinked
    EmptyFolder, // removed once the files in it are gone
    Tree,        // removed with everything in it
};

// Never throws; a path that cannot be kept (too long, no memory) is simply not registered.
void register_path(const std::filesystem::path& path, Removal removal) noexcept;
// Forgets a path (its first registration).
void unregister_path(const std::filesystem::path& path) noexcept;
// Forgets a folder and every path registered inside it.
void unregister_tree(const std::filesystem::path& folder) noexcept;

// Removes every registered path of that kind. Async-signal-safe; never throws.
void remove_registered(Removal removal) noexcept;

} // namespace qf::engine
