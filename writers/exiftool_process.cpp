// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/exiftool_process.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace qf::writers {
namespace {

using Clock = std::chrono::steady_clock;

void close_fd(int& fd) noexcept
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

int remaining_ms(Clock::time_point deadline)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

[[noreturn]] void throw_errno(int code, const char* what)
{
    throw std::system_error(code, std::generic_category(), what);
}

} // namespace

ExifToolProcess::ExifToolProcess(const std::filesystem::path& tool)
{
    // The input is a socket rather than a pipe so that send() can refuse to raise SIGPIPE
    // when the tool has died; both our ends are closed in the child by close-on-exec.
    int input_pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input_pair) != 0) {
        throw_errno(errno, "socketpair");
    }
    int output_pipe[2];
    if (::pipe2(output_pipe, O_CLOEXEC) != 0) {
        const int code = errno;
        ::close(input_pair[0]);
        ::close(input_pair[1]);
        throw_errno(code, "pipe");
    }
    int exec_error[2]; // tells the parent why exec failed; closed by a successful exec
    if (::pipe2(exec_error, O_CLOEXEC) != 0) {
        const int code = errno;
        for (const int fd : {input_pair[0], input_pair[1], output_pipe[0], output_pipe[1]}) {
            ::close(fd);
        }
        throw_errno(code, "pipe");
    }
    std::string program = tool.string();
    char stay_open[] = "-stay_open";
    char yes[] = "True";
    char argfile[] = "-@";
    char from_input[] = "-";
    char* argv[] = {program.data(), stay_open, yes, argfile, from_input, nullptr};
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
        // Only calls that are safe after fork in a program with threads, up to exec. With
        // -stay_open the tool polls its input for ever once it is closed, so it is told to end
        // (as by Ctrl-C, which removes its temporary file) when the thread that started it
        // ends: a program killed outright leaves no tool behind.
        ::prctl(PR_SET_PDEATHSIG, SIGINT);
        if (::getppid() != parent) {
            ::_exit(127);
        }
        ::dup2(input_pair[1], STDIN_FILENO);
        ::dup2(output_pipe[1], STDOUT_FILENO);
        ::dup2(output_pipe[1], STDERR_FILENO);
        ::execve(program.c_str(), argv, environ);
        const int code = errno;
        (void)!::write(exec_error[1], &code, sizeof code);
        ::_exit(127);
    }
    int status = pid_ < 0 ? errno : 0;
    ::close(exec_error[1]);
    if (pid_ > 0) {
        ssize_t got = 0;
        do {
            got = ::read(exec_error[0], &status, sizeof status);
        } while (got < 0 && errno == EINTR);
        if (got == sizeof status) {
            ::waitpid(pid_, nullptr, 0);
        } else {
            status = 0;
        }
    }
    ::close(exec_error[0]);
    ::close(input_pair[1]);
    ::close(output_pipe[1]);
    input_ = input_pair[0];
    output_ = output_pipe[0];
    if (status != 0) {
        pid_ = -1;
        close_fd(input_);
        close_fd(output_);
        throw_errno(status, "exec");
    }
}

ExifToolProcess::~ExifToolProcess()
{
    if (pid_ < 0) {
        return;
    }
    send("-stay_open\nFalse\n");
    close_fd(input_);
    if (!wait_for_exit(std::chrono::seconds(5))) {
        kill();
    }
    close_fd(output_);
}

bool ExifToolProcess::send(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t sent = ::send(input_, text.data(), text.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool ExifToolProcess::read_until(std::string_view marker, std::chrono::milliseconds timeout,
                                 std::string& output)
{
    const std::string line = std::string(marker) + "\n";
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        const std::size_t at = pending_.find(line);
        if (at != std::string::npos && (at == 0 || pending_[at - 1] == '\n')) {
            output = pending_.substr(0, at);
            pending_.erase(0, at + line.size());
            return true;
        }
        pollfd wait{output_, POLLIN, 0};
        const int ready = ::poll(&wait, 1, remaining_ms(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return false;
        }
        char buffer[4096];
        const ssize_t got = ::read(output_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        pending_.append(buffer, static_cast<std::size_t>(got));
    }
}

void ExifToolProcess::kill() noexcept
{
    if (pid_ < 0) {
        return;
    }
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    close_fd(input_);
    close_fd(output_);
}

// Waits for the end of the tool's output, which comes when it exits, then reaps it.
bool ExifToolProcess::wait_for_exit(std::chrono::milliseconds timeout) noexcept
{
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        pollfd wait{output_, POLLIN, 0};
        const int ready = ::poll(&wait, 1, remaining_ms(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return false;
        }
        char buffer[4096];
        const ssize_t got = ::read(output_, buffer, sizeof buffer);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            break;
        }
    }
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return true;
}

} // namespace qf::writers
