// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// The one temporary folder of the tests, the tools and the fuzz targets.
namespace qf::test {

// A fresh folder under the system's temporary folder, removed with everything in it (made
// writable first, so a test may take its permissions away). Throws std::runtime_error when
// it cannot be made.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    // The names of the folder's entries, sorted, hidden ones included.
    std::vector<std::string> entries() const;

private:
    std::filesystem::path path_;
};

// Earlier names of the same folder.
using OutputFolder = TempFolder;
using ScratchFolder = TempFolder;

// The work folder of this process's runs: made on first use, set as XDG_DATA_HOME (where runs
// keep their scratch folders) and removed at exit. Every RunHarness and test program sets it up.
const std::filesystem::path& isolated_work_folder();

} // namespace qf::test
