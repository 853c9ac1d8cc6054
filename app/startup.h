// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

// What either program does before anything else: memory tuning, the work folder and the
// resources folder.
namespace qf::app {

struct Startup {
    std::filesystem::path work_folder; // created, with the scratch of ended runs cleared
    std::filesystem::path resources;   // ICC profiles and the other files the program carries
};

// Ignores SIGXFSZ (see ignore_file_size_signal), tunes the allocator for page buffers, makes the
// work folder and removes the scratch folders that runs killed outright left in it, and finds the
// resources. Call once, first thing in main(), before any thread starts. Throws
// engine::Error(Output) when the work folder cannot be made.
Startup start_up();

// Lets a write past the file size limit fail with "File too large" instead of killing the
// program. Part of start_up(); on its own for a program that starts otherwise.
void ignore_file_size_signal();

// The folder of the application's resources: <prefix>/share/quirefold beside an installed
// program; the source tree's resources/ only for a program run from the build tree.
std::filesystem::path resources_folder();

} // namespace qf::app
