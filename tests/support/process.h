// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

// The one way the tests run a program: a child with no terminal (standard input empty,
// standard output and error read through pipes, which no file size limit touches), limits
// and environment of its own, and a deadline.
namespace qf::test {

struct CliLimits {
    std::filesystem::path data_home;      // XDG_DATA_HOME of the child (its work folder)
    rlim_t file_size = RLIM_INFINITY;     // RLIMIT_FSIZE in bytes; SIGXFSZ is ignored
    std::filesystem::path working_folder; // the child's current folder; empty: the parent's
    bool core_dumps = false;              // RLIMIT_CORE unlimited instead of as inherited
    std::vector<std::string> environment; // "NAME=value" entries replacing this process's
};

// quirefold-cli as built beside the tests, with these arguments.
std::vector<std::string> cli_command(const std::vector<std::string>& arguments);

// A running child; argv[0] is looked up in PATH when it holds no '/'.
class Process {
public:
    Process(const std::vector<std::string>& argv, const CliLimits& limits);
    ~Process(); // kills and reaps a child still running
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    // Reads output until standard output holds `text` or the child ends; true when found.
    bool wait_for_output(const std::string& text, std::chrono::milliseconds timeout);
    void send(int signal_number) const { ::kill(pid_, signal_number); }
    // Waits for the end, reading all output, and kills the child at the deadline; the exit
    // status, or 128 + the signal. 127 when the program could not be started.
    int finish(std::chrono::seconds deadline = std::chrono::seconds(120));

    const std::string& out() const { return out_; }
    const std::string& err() const { return err_; }
    std::vector<std::string> out_lines() const;
    long peak_kib() const { return peak_kib_; } // peak resident memory, after finish()

private:
    // Reads what is ready within the timeout; false when both pipes have closed.
    bool pump(std::chrono::milliseconds timeout);

    pid_t pid_ = -1;
    int fds_[2] = {-1, -1}; // standard output, standard error
    int status_ = -1;
    long peak_kib_ = 0;
    std::chrono::steady_clock::time_point started_;
    std::string out_;
    std::string err_;
};

// quirefold-cli running as a child.
class CliChild : public Process {
public:
    CliChild(const std::vector<std::string>& arguments, const CliLimits& limits)
        : Process(cli_command(arguments), limits)
    {
    }
};

// A finished run.
struct CliOutcome {
    int status = -1;
    long peak_kib = 0;
    std::string output;           // standard output as it came
    std::vector<std::string> out; // standard output line by line
    std::string err;
};

CliOutcome run_process(const std::vector<std::string>& argv, const CliLimits& limits = {},
                       std::chrono::seconds deadline = std::chrono::seconds(120));
CliOutcome run_cli(const std::vector<std::string>& arguments, const CliLimits& limits = {},
                   std::chrono::seconds deadline = std::chrono::seconds(120));
// A program from PATH with these arguments; standard error is passed through.
CliOutcome run_program(const std::vector<std::string>& argv);

} // namespace qf::test
