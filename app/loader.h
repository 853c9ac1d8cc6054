// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>

#include "app/load_loop.h"
#include "engine/run_model.h"
#include "intake/password_prompt.h"

// Loads off the caller's thread. The front end sends requests and reads events; both are plain
// values, so that the loop could as well run in another process without a change to callers.
namespace qf::app {

struct LoaderState; // the state the loader shares with its thread

// ---- Requests

// Starts a load; a load sent while one is under way starts when it ends.
using StartLoad = LoadRequest;

// The reply to a PasswordAsked event. A reply to a question no longer open is ignored.
struct AnswerPassword {
    std::uint64_t question = 0;
    intake::PromptAnswer answer;
};

// Ends the load under way (an open password question counts as cancelled) and drops those
// waiting. Its LoadFinished says cancelled.
struct CancelLoad {};

using LoaderRequest = std::variant<StartLoad, AnswerPassword, CancelLoad>;

// ---- Events, in the order they happened

struct RowAdmitted {
    engine::ListRow row; // to be appended to the list
};

// After every candidate: rows this load has added so far, for the running count.
struct CandidateDone {
    std::size_t rows_added = 0;
};

using ProblemLine = LoadProblem;

// The loop waits for an AnswerPassword with this question number.
struct PasswordAsked {
    std::uint64_t question = 0;
    std::string prompt_text;       // begins with file_name
    std::string file_name;
    std::string unreadable_reason; // the file is not encrypted but cannot be read; empty otherwise
};

struct LoadFinished {
    LoadSummary summary; // the report line "N Images added to the list" among it
};

using LoaderEvent = std::variant<RowAdmitted, CandidateDone, ProblemLine, PasswordAsked, LoadFinished>;

// Runs loads on a thread of its own. Requests and events may be sent and read from any thread;
// one reader of events at a time.
class Loader {
public:
    Loader();
    // Cancels (an open question counts as cancelled) and waits a bounded time for the thread;
    // a thread still inside a reader then is left to end by itself, so this never hangs.
    ~Loader();
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;

    void send(LoaderRequest request);

    // The next event, waiting up to `timeout` for one; nothing when none came.
    std::optional<LoaderEvent> next_event(std::chrono::milliseconds timeout);

    // Called on the loader's thread whenever an event is queued, so that a window can schedule
    // a read on its own thread instead of polling; it must not call the loader. Set before the
    // first load.
    void set_event_ready(std::function<void()> notify);

    // How long teardown waits for the thread.
    static constexpr std::chrono::milliseconds kTeardownWait{2000};

private:
    std::shared_ptr<LoaderState> shared_; // shared with the thread, which may outlive this
    std::thread thread_;
};

} // namespace qf::app
