// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/terminal.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "app/interrupt.h"
#include "cli/cli_options.h"

namespace qf::cli {
namespace {

// The terminal whose echo is off while a password is typed, for restore_terminal().
std::atomic<int> g_quiet_tty{-1};
termios g_saved_termios{};

enum class LineRead { line, ended, interrupted };

// Reads one byte, waking every so often to see whether the user pressed Ctrl-C.
LineRead read_byte(int tty, char& c)
{
    for (;;) {
        if (app::interrupt_count() > 0) {
            return LineRead::interrupted;
        }
        pollfd ready{tty, POLLIN, 0};
        const int polled = ::poll(&ready, 1, 200);
        if (polled < 0 && errno != EINTR) {
            return LineRead::ended;
        }
        if (polled > 0) {
            const ssize_t got = ::read(tty, &c, 1);
            if (got == 1) {
                return LineRead::line;
            }
            if (got == 0 || errno != EINTR) {
                return LineRead::ended;
            }
        }
    }
}

// Reads a line from the terminal with echo off; ended at the end of input or with no
// terminal, interrupted at a Ctrl-C.
LineRead read_masked_line(const std::string& question, std::string& answer)
{
    const int tty = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (tty < 0) {
        return LineRead::ended;
    }
    (void)!::write(tty, question.data(), question.size());
    termios saved{};
    const bool has_termios = ::tcgetattr(tty, &saved) == 0;
    if (has_termios) {
        g_saved_termios = saved;
        g_quiet_tty = tty;
        termios quiet = saved;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        ::tcsetattr(tty, TCSAFLUSH, &quiet);
    }
    answer.clear();
    LineRead result = LineRead::ended;
    char c = 0;
    while ((result = read_byte(tty, c)) == LineRead::line) {
        if (c == '\n' || c == '\r') {
            break;
        }
        answer += c;
    }
    if (has_termios) {
        g_quiet_tty = -1;
        ::tcsetattr(tty, TCSAFLUSH, &saved);
    }
    (void)!::write(tty, "\n", 1);
    ::close(tty);
    return result;
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
    if (read_masked_line(prompt_text + "\nPassword (Ctrl-D skips the file): ", answer) != LineRead::line) {
        return intake::PromptAnswer::cancel();
    }
    return intake::PromptAnswer::try_password(answer);
}

void restore_terminal() noexcept
{
    const int tty = g_quiet_tty.load();
    if (tty >= 0) {
        ::tcsetattr(tty, TCSANOW, &g_saved_termios);
    }
}

ProgressBar::ProgressBar() : enabled_(::isatty(STDERR_FILENO) != 0) {}

void ProgressBar::set_pages(int done, int total)
{
    pages_done_ = done;
    pages_total_ = total;
}

void ProgressBar::draw(int done, int total)
{
    if (!enabled_ || total <= 0) {
        return;
    }
    constexpr int kWidth = 30;
    // The document under way counts by the share of its pages that are through.
    const bool within = done < total && pages_total_ > 0 && pages_done_ < pages_total_;
    const double share = within ? static_cast<double>(pages_done_) / pages_total_ : 0.0;
    const int filled = std::min(kWidth, static_cast<int>((done + share) * kWidth / total));
    std::string bar = "\r[" + std::string(static_cast<std::size_t>(filled), '#') +
                      std::string(static_cast<std::size_t>(kWidth - filled), '.') + "] " + std::to_string(done) +
                      "/" + std::to_string(total) + " documents";
    if (within) {
        bar += ", page " + std::to_string(pages_done_) + " of " + std::to_string(pages_total_);
    }
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
