// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "intake/password_prompt.h"

namespace qf::cli {

// Answers the password prompt of admission: the passwords given on the command line first,
// in order, then a masked prompt on the terminal when there is one; otherwise nobody can
// answer and the file is skipped. A Ctrl-C while it waits for the terminal cancels.
class CliPasswordPrompt final : public intake::PasswordPrompt {
public:
    explicit CliPasswordPrompt(std::vector<std::string> passwords) : passwords_(std::move(passwords)) {}
    intake::PromptAnswer ask(const std::string& prompt_text, const std::string& file_name) override;

private:
    std::vector<std::string> passwords_;
    std::string file_in_hand_;
    std::size_t next_ = 0;
};

// Gives the terminal its echo back when a password is being typed; safe in a signal handler,
// for a program that ends at once.
void restore_terminal() noexcept;

// A one-line progress bar on standard error, drawn only when that is a terminal: the
// documents finished, and the pages of the document under way.
class ProgressBar {
public:
    ProgressBar();
    // The pages of the document under way's selection that are through.
    void set_pages(int done, int total);
    void draw(int done, int total);
    // Clears the bar so that a log line can be printed in its place.
    void clear();

private:
    bool enabled_ = false;
    bool shown_ = false;
    int pages_done_ = 0;
    int pages_total_ = 0;
};

} // namespace qf::cli
