// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace qf::engine {

// One event of a run's log as it happens: a new line, or the whole log replaced by a text.
struct LogEvent {
    enum class Kind { Line, Replace };
    Kind kind = Kind::Line;
    std::string text;
};

using LogListener = std::function<void(const LogEvent&)>;

// A text as a log line shows it: control characters (a line end in a file name, for one) and
// bytes that are not UTF-8 become "?", so that one line stays one line of valid UTF-8.
std::string loggable(std::string_view text);

// texttoadd: the status log, newest line first, each line ending in a line break. It lives as
// long as its owner, across runs. Thread-safe; the listener is called on the writing thread.
class RunLog {
public:
    void set_listener(LogListener listener);

    // Puts a line in front of the log, as loggable() shows it.
    void line(const std::string& text);
    // Replaces the whole log by a text with no line break ("No Text Found").
    void replace(const std::string& text);
    // The log as one text, newest first.
    std::string texttoadd() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_; // oldest first
    bool oldest_unbroken_ = false;   // the oldest line came from replace() and has no line break
    LogListener listener_;
};

} // namespace qf::engine
