// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

namespace qf::engine {

// The work folder: $XDG_DATA_HOME/org.quirefold.extract, by default
// ~/.local/share/org.quirefold.extract. Created when missing; throws Error(Output) if it cannot be.
std::filesystem::path work_folder();

// A run's own scratch folder inside the work folder, so that two runs never share a file.
// Removed with everything in it when the object goes.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace qf::engine
