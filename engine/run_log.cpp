// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/run_log.h"

namespace qf::engine {

void RunLog::set_listener(LogListener listener)
{
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void RunLog::line(const std::string& text)
{
    LogListener listener;
    {
        const std::lock_guard lock(mutex_);
        lines_.push_back(text);
        listener = listener_;
    }
    if (listener) {
        listener({LogEvent::Kind::Line, text});
    }
}

void RunLog::replace(const std::string& text)
{
    LogListener listener;
    {
        const std::lock_guard lock(mutex_);
        lines_.assign(1, text);
        oldest_unbroken_ = true;
        listener = listener_;
    }
    if (listener) {
        listener({LogEvent::Kind::Replace, text});
    }
}

std::string RunLog::texttoadd() const
{
    const std::lock_guard lock(mutex_);
    std::string text;
    for (std::size_t i = lines_.size(); i-- > 0;) {
        text += lines_[i];
        if (!(i == 0 && oldest_unbroken_)) {
            text += '\n';
        }
    }
    return text;
}

} // namespace qf::engine
