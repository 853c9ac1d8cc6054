// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace qf::intake {

// What the user answered when asked for a PDF's unlock password.
struct PromptAnswer {
    enum class Outcome {
        try_password, // open again with `password` (possibly empty)
        cancel,       // the user gave up on this file
        unanswered,   // nobody can be asked (no terminal, no more passwords): give up too
    };
    Outcome outcome = Outcome::cancel;
    std::string password;

    static PromptAnswer try_password(std::string password) { return {Outcome::try_password, std::move(password)}; }
    static PromptAnswer cancel() { return {Outcome::cancel, {}}; }
    static PromptAnswer unanswered() { return {Outcome::unanswered, {}}; }
};

// Asks for the unlock password of one PDF. Called on the thread that runs the admission, once
// per attempt: after a wrong password it is asked again with the same text. The window shows
// a modal dialog; the command line answers from its options or a terminal.
class PasswordPrompt {
public:
    virtual ~PasswordPrompt() = default;
    // prompt_text begins with file_name, which the dialog may set apart.
    virtual PromptAnswer ask(const std::string& prompt_text, const std::string& file_name) = 0;
    // Asked in place of ask() for a PDF that is not encrypted but cannot be read, where the
    // front end keeps the question for such files; `reason` is the reader's. By default the
    // same question as for an encrypted file.
    virtual PromptAnswer ask_unreadable(const std::string& prompt_text, const std::string& file_name,
                                        const std::string& reason)
    {
        (void)reason;
        return ask(prompt_text, file_name);
    }
};

} // namespace qf::intake
