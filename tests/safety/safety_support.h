// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

// What the safety tests share: proof that a file was left alone, decoding whatever a run left
// in a folder, and the command line run as a child process that can be limited and signalled.
namespace qf::test {

// A file as found: its bytes, modification time and inode. Equal seals taken before and after
// a run prove the run neither wrote nor replaced the file.
struct FileSeal
{
    std::string bytes;
    std::int64_t mtime_ns = 0;
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

struct CliLimits
{
    std::filesystem::path data_home;      // XDG_DATA_HOME of the child (its work folder)
    rlim_t file_size = RLIM_INFINITY;     // RLIMIT_FSIZE in bytes; SIGXFSZ is ignored
    std::filesystem::path working_folder; // the child's current folder; empty: the parent's
    bool core_dumps = false;              // RLIMIT_CORE unlimited instead of as inherited
};

// quirefold-cli running as a child, with no terminal: standard input empty, standard output
// and error read through pipes (which no file size limit touches).
class CliChild
{
  public:
    CliChild(const std::vector<std::string> &arguments, const CliLimits &limits);
    ~CliChild(); // kills and reaps a child still running
    CliChild(const CliChild &) = delete;
    CliChild &operator=(const CliChild &) = delete;

    pid_t pid() const { return pid_; }
    // Reads output until standard output holds `text` or the child ends; true when found.
    bool wait_for_output(const std::string &text, std::chrono::milliseconds timeout);
    void send(int signal_number) const;
    // Waits for the end, reading all output; the exit status, or 128 + the signal.
    int finish(std::chrono::seconds timeout = std::chrono::seconds(120));

    const std::string &out() const { return out_; }
    const std::string &err() const { return err_; }
    // Standard output line by line.
    std::vector<std::string> out_lines() const;

  private:
    // Reads what is ready within the timeout; false when both pipes have closed.
    bool pump(std::chrono::milliseconds timeout);

    pid_t pid_ = -1;
    int out_fd_ = -1;
    int err_fd_ = -1;
    int status_ = -1;
    std::string out_;
    std::string err_;
};

struct CliOutcome
{
    int status = -1;
    std::vector<std::string> out;
    std::string err;
};
CliOutcome run_cli(const std::vector<std::string> &arguments, const CliLimits &limits);

// True when some line of `lines` is exactly `line`.
bool has_line(const std::vector<std::string> &lines, const std::string &line);

} // namespace qf::test
