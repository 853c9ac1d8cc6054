// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/terminal.h"

#include <cstdio>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "cli/cli_options.h"

namespace qf::cli {
namespace {

// Reads a line from the terminal with echo off; false at the end of input or with no terminal.
bool read_masked_line(const std::string& question, std::string& answer)
{
    const int tty = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (tty < 0) {
        return false;
    }
    (void)!::write(tty, question.data(), question.size());
    termios saved{};
    const bool has_termios = ::tcgetattr(tty, &saved) == 0;
    if (has_termios) {
        termios quiet = saved;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        ::tcsetattr(tty, TCSAFLUSH, &quiet);
    }
    answer.clear();
    bool ended_by_newline = false;
    char c = 0;
    while (::read(tty, &c, 1) == 1) {
        if (c == '\n' || c == '\r') {
            ended_by_newline = true;
            break;
        }
        answer += c;
    }
    if (has_termios) {
        ::tcsetattr(tty, TCSAFLUSH, &saved);
    }
    (void)!::write(tty, "\n", 1);
    ::close(tty);
    return ended_by_newline;
}

} // namespace

intake::PromptAnswer CliPasswordPrompt::ask(const std::string& prompt_text, const std::string& file_name)
{
    if (file_name != file_in_hand_) {
        file_in_hand_ = file_name;
        next_ = 0;
    }
    if (next_ < passwords_.size()) {
        return intake::PromptAnswer::try_password(passwords_[next_++]);
    }
    if (::isatty(STDIN_FILENO) == 0) {
        return intake::PromptAnswer::unanswered();
    }
    refuse_core_dumps(); // the typed password stays in memory
    std::string answer;
    if (!read_masked_line(prompt_text + "\nPassword (Ctrl-D skips the file): ", answer)) {
        return intake::PromptAnswer::cancel();
    }
    return intake::PromptAnswer::try_password(answer);
}

ProgressBar::ProgressBar() : enabled_(::isatty(STDERR_FILENO) != 0) {}

void ProgressBar::draw(int done, int total)
{
    if (!enabled_ || total <= 0) {
        return;
    }
    constexpr int kWidth = 30;
    const int filled = done * kWidth / total;
    std::string bar = "\r[" + std::string(static_cast<std::size_t>(filled), '#') +
                      std::string(static_cast<std::size_t>(kWidth - filled), '.') + "] " + std::to_string(done) +
                      "/" + std::to_string(total) + " documents";
    std::fputs(bar.c_str(), stderr);
    std::fflush(stderr);
    shown_ = true;
}

void ProgressBar::clear()
{
    if (shown_) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        shown_ = false;
    }
}

} // namespace qf::cli
