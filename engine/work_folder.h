// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

namespace qf::engine {

// The work folder: $XDG_DATA_HOME/org.quirefold.extract, by default
// ~/.local/share/org.quirefold.extract. Created when missing; throws Error(Output) if it cannot be.
std::filesystem::path work_folder();

// A run's own scratch folder inside the work folder, so that two runs never share a file.
// Removed with everything in it when the object goes. It holds a lock for as long as it lives;
// creating one first removes the folders of runs that ended without removing theirs.
class ScratchFolder {
public:
    ScratchFolder();
    // A hidden folder beside `target` instead (see hidden_scratch_folder), for a run that cannot
    // have the work folder: a later run into that folder removes it if this run is killed.
    explicit ScratchFolder(const std::filesystem::path& target);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    int lock_fd_ = -1; // open, locked while the run lives
};

// Removes the scratch folders in `work` whose runs have ended (their lock is free); those of
// runs under way, here or in other programs, stay. Never throws.
void remove_abandoned_scratch(const std::filesystem::path& work) noexcept;

// Removes the scratch folders of every run under way in this process, for a program that ends
// at once. Safe in a signal handler; never throws.
void remove_scratch_folders() noexcept;

} // namespace qf::engine
