// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qf::writers {

// A running "exiftool -stay_open True -@ -": argument lines go to its standard input, its
// standard output and error come back through one pipe. Started with fork and exec, no shell.
// A dead child never raises SIGPIPE here. The destructor asks the tool to end, waits a few
// seconds for it, then kills it. The tool gets SIGINT when the thread that made the object
// ends, so it never outlives a program ended abruptly: make and destroy it on one thread.
class ExifToolProcess {
public:
    // Throws std::system_error when the program cannot be started.
    explicit ExifToolProcess(const std::filesystem::path& tool);
    ~ExifToolProcess();
    ExifToolProcess(const ExifToolProcess&) = delete;
    ExifToolProcess& operator=(const ExifToolProcess&) = delete;

    // Writes the whole text; false when the tool no longer reads.
    bool send(std::string_view text);
    // Reads output until `marker` followed by a line end; false when the tool's output ends or
    // the time runs out first. What came before the marker is returned through `output`.
    bool read_until(std::string_view marker, std::chrono::milliseconds timeout,
                    std::string& output);
    // Ends the process at once.
    void kill() noexcept;

private:
    bool wait_for_exit(std::chrono::milliseconds timeout) noexcept;

    pid_t pid_ = -1;
    int input_ = -1;  // our end of the tool's standard input
    int output_ = -1; // our end of the tool's standard output and error
    std::string pending_;
};

} // namespace qf::writers
