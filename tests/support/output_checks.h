// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

// Checks on what a run leaves behind: proof that a file was left alone, decoding whatever a run
// left in a folder, page counts, leftovers and log lines.
namespace qf::test {

// A file as found: its bytes, modification time and inode. Equal seals taken before and after
// a run prove the run neither wrote nor replaced the file.
struct FileSeal
{
    std::string bytes;
    std::int64_t mtime_ns = 0; // modification time, nanoseconds
    std::uintmax_t inode = 0;
    bool operator==(const FileSeal &) const = default;
};
FileSeal seal_of(const std::filesystem::path &file);

// Empty when `file` decodes completely as what its extension says (".JPG", ".PNG", ".TIF",
// ".PDF" opened with `pdf_password`, ".TXT" non-empty), else why it does not. Any other
// name is reported as unexpected.
std::string undecodable(const std::filesystem::path &file, const std::string &pdf_password = {});

// Pages of a PDF as QPDF counts them; -1 when it does not open.
int pdf_page_count(const std::filesystem::path &file, const std::string &password = {});

// Every file and folder under `folder`, as paths relative to it, sorted.
std::vector<std::string> tree_of(const std::filesystem::path &folder);

// The entries of tree_of() that are temporaries: hidden names (".name.XXXXXX") and the files
// ExifTool writes beside the one it changes.
std::vector<std::string> temporaries_in(const std::filesystem::path &folder);

// The scratch folders of runs ("run-...") left in the work folder under `data_home`.
std::vector<std::string> scratch_left(const std::filesystem::path &data_home);

// Processes whose environment holds XDG_DATA_HOME=`data_home` (the command line and what it
// started) still alive after `grace`.
std::vector<pid_t> processes_left(const std::filesystem::path &data_home,
                                  std::chrono::milliseconds grace);

// True when some line of `lines` is exactly `line`.
bool has_line(const std::vector<std::string> &lines, const std::string &line);

// The bytes of a file; empty when it cannot be read.
std::string file_bytes(const std::filesystem::path &path);

} // namespace qf::test
