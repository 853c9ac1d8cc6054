// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

// Where the running program sits. An installed program finds its companions (the worker, the
// image module, the resources) relative to its own file; only a program run from the build tree
// may use the paths the build gave them, so an installation that lacks a file fails plainly
// instead of quietly reading it from a source or build tree that happens to be on the machine.
namespace qf::engine {

// The running program's file, or an empty path when the system does not say.
std::filesystem::path program_file();

// Whether the running program lies inside the build tree it was built in.
bool runs_from_build_tree();

} // namespace qf::engine
