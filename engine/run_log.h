// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "engine/run_events.h"

namespace qf::engine {

// A text as a log line shows it: control characters (a line end in a file name, for one) and
// bytes that are not UTF-8 become "?", so that one line stays one line of valid UTF-8.
std::string loggable(std::string_view text);

// What texttoadd gained since a version a front end has shown, at a cost that grows with
// what is new rather than with the whole log.
struct LogChanges {
    std::uint64_t version = 0; // the version the caller has shown once it applies these
    bool replaced = false;     // the whole text was replaced: `added` is all there is to show
    std::string added;         // to put in front of what is shown; newest first, as texttoadd
};

// texttoadd: the status log, newest line first, each line ending in a line break. It lives as
// long as its owner, across runs, and carries a version that moves with every change.
// Thread-safe; the listener is called on the writing thread, and set_listener waits for a call
// under way, so that a listener that was replaced is never called again.
class RunLog {
public:
    void set_listener(RunListener listener);

    // Puts the event's line in front of the log, as loggable() shows it, and tells the listener.
    void write(RunEvent event);
    // Replaces the whole log by the event's line, with no line break ("No Text Found").
    void replace(RunEvent event);
    // Tells the listener of an event that writes no line.
    void notify(const RunEvent& event);

    // The log as one text, newest first.
    std::string texttoadd() const;
    std::uint64_t version() const;
    // What changed since `version` (0: since the log began).
    LogChanges changes_since(std::uint64_t version) const;

private:
    void tell(const RunEvent& event);

    mutable std::mutex mutex_;
    std::vector<std::string> lines_; // oldest first
    bool oldest_unbroken_ = false;   // the oldest line came from replace() and has no line break
    std::uint64_t version_ = 0;      // one step per line and per replacement
    std::uint64_t replaced_at_ = 0;  // the version the last replacement made
    std::recursive_mutex listener_mutex_; // held while the listener runs
    RunListener listener_;
};

} // namespace qf::engine
