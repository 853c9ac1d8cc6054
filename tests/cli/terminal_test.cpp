// SPDX-License-Identifier: GPL-3.0-or-later
// The password prompt on a terminal: a pseudo-terminal whose other end the test types on.
#include "cli/terminal.h"

#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace qf::cli {
namespace {

// What a prompt answers in a child whose terminal gets `typed` once its echo is off: "try TEXT",
// "cancel", or "no answer" when the prompt has not ended 5 s later. In the background, with the
// job control signals ignored, the terminal refuses every read (EIO).
std::string prompt_answer(const std::string& typed, bool background)
{
    int result[2];
    EXPECT_EQ(::pipe(result), 0);
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        if (background) {
            std::signal(SIGTTIN, SIG_IGN);
            std::signal(SIGTTOU, SIG_IGN);
            const pid_t foreground = ::fork(); // a job that holds the terminal meanwhile
            if (foreground == 0) {
                ::setpgid(0, 0);
                ::pause();
            }
            ::setpgid(foreground, foreground);
            ::tcsetpgrp(STDIN_FILENO, foreground);
        }
        const intake::PromptAnswer answer = CliPasswordPrompt({}).ask("locked.pdf is protected", "locked.pdf");
        const bool tried = answer.outcome == intake::PromptAnswer::Outcome::try_password;
        const std::string said = tried ? "try " + answer.password : "cancel";
        (void)!::write(result[1], said.data(), said.size());
        ::_exit(0);
    }
    ::close(result[1]);
    termios mode{};
    for (int waited = 0; waited < 5000 && ::tcgetattr(terminal, &mode) == 0 && (mode.c_lflag & ECHO); waited += 10) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    (void)!::write(terminal, typed.data(), typed.size());
    pollfd ready{result[0], POLLIN, 0};
    std::string said = "no answer";
    if (::poll(&ready, 1, 5000) == 1) {
        char text[64];
        const ssize_t got = ::read(result[0], text, sizeof text);
        said.assign(text, got > 0 ? std::size_t(got) : 0);
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(result[0]);
    ::close(terminal); // the foreground job ends with its hung-up terminal
    return said;
}

TEST(TerminalPrompt, EndsWithTheLineCtrlDOrATerminalThatRefusesReads)
{
    const struct { const char* what; std::string typed; bool background; std::string answer; } cases[] = {
        {"a line", "pass word\n", false, "try pass word"},
        {"Ctrl-D", "\x04", false, "cancel"},
        {"read refused", "pass word\n", true, "cancel"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(prompt_answer(c.typed, c.background), c.answer) << c.what;
    }
}

} // namespace
} // namespace qf::cli
