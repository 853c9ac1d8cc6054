// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/run_log.h"

namespace qf::engine {
namespace {

// Length of the well-formed UTF-8 sequence at the start of `text`, 0 when there is none.
std::size_t utf8_length(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead < 0x80) {
        return 1;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;  // no overlong forms
        high = lead == 0xED ? 0x9F : 0xBF; // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF; // nothing above U+10FFFF
    } else {
        return 0;
    }
    if (text.size() < length || byte(1) < low || byte(1) > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) {
            return 0;
        }
    }
    return length;
}

} // namespace

std::string loggable(std::string_view text)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = utf8_length(text);
        const auto first = static_cast<unsigned char>(text.front());
        if (length == 0 || first < 0x20 || first == 0x7F) {
            shown += '?';
            text.remove_prefix(1);
        } else {
            shown.append(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
    return shown;
}

void RunLog::set_listener(RunListener listener)
{
    const std::lock_guard lock(listener_mutex_);
    listener_ = std::move(listener);
}

void RunLog::tell(const RunEvent& event)
{
    const std::lock_guard lock(listener_mutex_);
    if (listener_) {
        listener_(event);
    }
}

void RunLog::write(RunEvent event)
{
    event.line = loggable(event.line);
    {
        const std::lock_guard lock(mutex_);
        lines_.push_back(event.line);
        ++version_;
    }
    tell(event);
}

void RunLog::replace(RunEvent event)
{
    event.line = loggable(event.line);
    {
        const std::lock_guard lock(mutex_);
        lines_.assign(1, event.line);
        oldest_unbroken_ = true;
        replaced_at_ = ++version_;
    }
    tell(event);
}

void RunLog::notify(const RunEvent& event)
{
    tell(event);
}

std::string RunLog::texttoadd() const
{
    return changes_since(0).added;
}

std::uint64_t RunLog::version() const
{
    const std::lock_guard lock(mutex_);
    return version_;
}

LogChanges RunLog::changes_since(std::uint64_t seen) const
{
    const std::lock_guard lock(mutex_);
    LogChanges changes;
    changes.version = version_;
    if (seen >= version_) {
        return changes;
    }
    // Each version since `seen` added one line, unless a replacement came after it: then the
    // whole log is new.
    changes.replaced = seen < replaced_at_;
    const std::size_t fresh = changes.replaced || seen == 0 ? lines_.size()
                                                            : static_cast<std::size_t>(version_ - seen);
    for (std::size_t i = lines_.size(); i-- > lines_.size() - fresh;) {
        changes.added += lines_[i];
        if (!(i == 0 && oldest_unbroken_)) {
            changes.added += '\n';
        }
    }
    return changes;
}

} // namespace qf::engine
