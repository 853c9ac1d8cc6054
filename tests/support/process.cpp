// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/process.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace qf::test {
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
namespace {

// NULL-terminated pointers into `texts`, as exec takes them.
std::vector<char*> exec_array(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (auto& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// This process's environment with the entries of `limits` replacing those of the same name.
std::vector<std::string> child_environment(const CliLimits& limits)
{
    std::vector<std::string> added = limits.environment;
    if (!limits.data_home.empty()) {
        added.push_back("XDG_DATA_HOME=" + limits.data_home.string());
    }
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::none_of(added.begin(), added.end(), [&](const std::string& mine) {
                return std::strncmp(*entry, mine.c_str(), mine.find('=') + 1) == 0;
            })) {
            entries.emplace_back(*entry);
        }
    }
    entries.insert(entries.end(), added.begin(), added.end());
    return entries;
}

} // namespace

std::vector<std::string> cli_command(const std::vector<std::string>& arguments)
{
    std::vector<std::string> argv{QF_CLI_PATH};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return argv;
}

Process::Process(const std::vector<std::string>& argv, const CliLimits& limits)
{
    std::vector<std::string> argv_text = argv;
    std::vector<std::string> env_text = child_environment(limits);
    const std::vector<char*> args = exec_array(argv_text);
    const std::vector<char*> envp = exec_array(env_text);
    const std::string working = limits.working_folder.string();
    int out_pipe[2];
    int err_pipe[2];
    if (::pipe2(out_pipe, O_CLOEXEC) != 0 || ::pipe2(err_pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    started_ = Clock::now();
    pid_ = ::fork();
    if (pid_ == 0) {
        // Only async-signal-safe calls between fork and exec.
        ::dup2(::open("/dev/null", O_RDONLY), 0);
        ::dup2(out_pipe[1], 1);
        ::dup2(err_pipe[1], 2);
        ::signal(SIGXFSZ, SIG_IGN); // a write past the limit then fails with EFBIG
        ::signal(SIGINT, SIG_DFL);
        const rlimit limit{limits.file_size, limits.file_size};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
        if (limits.core_dumps) {
            ::setrlimit(RLIMIT_CORE, &unlimited);
        }
        if (!working.empty() && ::chdir(working.c_str()) != 0) {
            ::_exit(126);
        }
        ::execvpe(args[0], args.data(), envp.data());
        ::_exit(127);
    }
    ::close(out_pipe[1]);
    ::close(err_pipe[1]);
    fds_[0] = out_pipe[0];
    fds_[1] = err_pipe[0];
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
}

Process::~Process()
{
    if (status_ < 0 && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    for (const int fd : fds_) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool Process::pump(milliseconds timeout)
{
    pollfd polled[2] = {{fds_[0], POLLIN, 0}, {fds_[1], POLLIN, 0}}; // poll skips fd -1
    if (fds_[0] < 0 && fds_[1] < 0) {
        return false;
    }
    if (::poll(polled, 2, static_cast<int>(timeout.count())) <= 0) {
        return true;
    }
    for (int i = 0; i < 2; ++i) {
        char buffer[4096];
        const ssize_t got = polled[i].revents == 0 ? 0 : ::read(fds_[i], buffer, sizeof buffer);
        if (got > 0) {
            (i == 0 ? out_ : err_).append(buffer, static_cast<std::size_t>(got));
        } else if (polled[i].revents != 0) { // the end of the pipe, or an error on it
            ::close(fds_[i]);
            fds_[i] = -1;
        }
    }
    return true;
}

bool Process::wait_for_output(const std::string& text, milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;
    while (out_.find(text) == std::string::npos) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !pump(std::min(left, milliseconds(50)))) {
            return out_.find(text) != std::string::npos;
        }
    }
    return true;
}

int Process::finish(std::chrono::seconds deadline)
{
    if (status_ >= 0) {
        return status_;
    }
    bool killed = false;
    const auto kill_when_late = [&] {
        if (!killed && Clock::now() >= started_ + deadline) {
            killed = true; // over its time: fail the test, not hang it
            ::kill(pid_, SIGKILL);
        }
    };
    while (pump(milliseconds(50))) {
        kill_when_late();
    }
    int raw = 0;
    rusage usage{};
    while (::wait4(pid_, &raw, WNOHANG, &usage) == 0) {
        kill_when_late();
        ::usleep(10000);
    }
    peak_kib_ = usage.ru_maxrss;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return status_;
}

std::vector<std::string> Process::out_lines() const
{
    std::vector<std::string> lines;
    std::istringstream in(out_);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

CliOutcome run_process(const std::vector<std::string>& argv, const CliLimits& limits,
                       std::chrono::seconds deadline)
{
    Process child(argv, limits);
    const int status = child.finish(deadline);
    return {status, child.peak_kib(), child.out(), child.out_lines(), child.err()};
}

CliOutcome run_cli(const std::vector<std::string>& arguments, const CliLimits& limits,
                   std::chrono::seconds deadline)
{
    return run_process(cli_command(arguments), limits, deadline);
}

CliOutcome run_program(const std::vector<std::string>& argv)
{
    auto outcome = run_process(argv);
    std::cerr << outcome.err;
    return outcome;
}

} // namespace qf::test
