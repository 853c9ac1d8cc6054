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

extern char **environ;

namespace qf::test {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
namespace {

// The child's arguments and environment as the arrays exec takes, made before fork.
struct ExecText
{
    std::vector<std::string> argv_text;
    std::vector<std::string> env_text;
    std::vector<char *> argv;
    std::vector<char *> envp;

    ExecText(const std::vector<std::string> &arguments, const ProcessOptions &options)
        : argv_text(arguments)
    {
        std::vector<std::string> added = options.environment;
        if (!options.data_home.empty()) {
            added.push_back("XDG_DATA_HOME=" + options.data_home.string());
        }
        const auto replaced = [&](const char *entry) {
            return std::any_of(added.begin(), added.end(), [&](const std::string &mine) {
                const std::size_t name = mine.find('=') + 1;
                return std::strncmp(entry, mine.c_str(), name) == 0;
            });
        };
        for (char **entry = environ; *entry != nullptr; ++entry) {
            if (!replaced(*entry)) {
                env_text.emplace_back(*entry);
            }
        }
        env_text.insert(env_text.end(), added.begin(), added.end());
        for (auto &text : argv_text) {
            argv.push_back(text.data());
        }
        argv.push_back(nullptr);
        for (auto &text : env_text) {
            envp.push_back(text.data());
        }
        envp.push_back(nullptr);
    }
};

} // namespace

std::string cli_program()
{
    return QF_CLI_PATH;
}

std::vector<std::string> cli_command(const std::vector<std::string> &arguments)
{
    std::vector<std::string> argv{cli_program()};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return argv;
}

Process::Process(const std::vector<std::string> &argv, const ProcessOptions &options)
{
    ExecText text(argv, options);
    const std::string working = options.working_folder.string();
    int out_pipe[2];
    int err_pipe[2];
    if (::pipe2(out_pipe, O_CLOEXEC) != 0 || ::pipe2(err_pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    started_ = Clock::now();
    pid_ = ::fork();
    if (pid_ == 0) {
        // Only async-signal-safe calls between fork and exec.
        const int null_input = ::open("/dev/null", O_RDONLY);
        ::dup2(null_input, 0);
        ::dup2(out_pipe[1], 1);
        ::dup2(err_pipe[1], 2);
        ::signal(SIGXFSZ, SIG_IGN); // a write past the limit then fails with EFBIG
        ::signal(SIGINT, SIG_DFL);
        const rlimit limit{options.file_size, options.file_size};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        if (options.core_dumps) {
            const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
            ::setrlimit(RLIMIT_CORE, &unlimited);
        }
        if (!working.empty() && ::chdir(working.c_str()) != 0) {
            ::_exit(126);
        }
        ::execvpe(text.argv[0], text.argv.data(), text.envp.data());
        ::_exit(127);
    }
    ::close(out_pipe[1]);
    ::close(err_pipe[1]);
    out_fd_ = out_pipe[0];
    err_fd_ = err_pipe[0];
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
    for (const int fd : {out_fd_, err_fd_}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool Process::pump(std::chrono::milliseconds timeout)
{
    std::vector<pollfd> fds;
    for (const int fd : {out_fd_, err_fd_}) {
        if (fd >= 0) {
            fds.push_back({fd, POLLIN, 0});
        }
    }
    if (fds.empty()) {
        return false;
    }
    if (::poll(fds.data(), fds.size(), static_cast<int>(timeout.count())) <= 0) {
        return true;
    }
    for (const auto &ready : fds) {
        if (ready.revents == 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = ::read(ready.fd, buffer, sizeof buffer);
        int &fd = ready.fd == out_fd_ ? out_fd_ : err_fd_;
        std::string &sink = ready.fd == out_fd_ ? out_ : err_;
        if (got > 0) {
            sink.append(buffer, static_cast<std::size_t>(got));
        } else {
            ::close(fd);
            fd = -1;
        }
    }
    return true;
}

bool Process::wait_for_output(const std::string &text, std::chrono::milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;
    while (out_.find(text) == std::string::npos) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !pump(std::min(left, std::chrono::milliseconds(50)))) {
            return out_.find(text) != std::string::npos;
        }
    }
    return true;
}

void Process::send(int signal_number) const
{
    ::kill(pid_, signal_number);
}

int Process::finish(std::chrono::seconds deadline)
{
    if (status_ >= 0) {
        return status_;
    }
    const auto end = started_ + deadline;
    const auto kill_when_late = [&] {
        if (!timed_out_ && Clock::now() >= end) {
            timed_out_ = true; // over its time: fail the test, not hang it
            ::kill(pid_, SIGKILL);
        }
    };
    while (pump(std::chrono::milliseconds(50))) {
        kill_when_late();
    }
    int raw = 0;
    rusage usage{};
    while (::wait4(pid_, &raw, WNOHANG, &usage) == 0) {
        kill_when_late();
        ::usleep(10000);
    }
    elapsed_ = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_);
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

ProcessOutcome run_process(const std::vector<std::string> &argv, const ProcessOptions &options,
                           std::chrono::seconds deadline)
{
    Process child(argv, options);
    ProcessOutcome outcome;
    outcome.status = child.finish(deadline);
    outcome.timed_out = child.timed_out();
    outcome.peak_kib = child.peak_kib();
    outcome.elapsed = child.elapsed();
    outcome.output = child.out();
    outcome.out = child.out_lines();
    outcome.err = child.err();
    return outcome;
}

CliOutcome run_cli(const std::vector<std::string> &arguments, const CliLimits &limits,
                   std::chrono::seconds deadline)
{
    return run_process(cli_command(arguments), limits, deadline);
}

ProgramResult run_program(const std::vector<std::string> &argv)
{
    auto outcome = run_process(argv);
    std::cerr << outcome.err;
    return outcome;
}

} // namespace qf::test
