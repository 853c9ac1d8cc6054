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

void RunLog::set_listener(LogListener listener)
{
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void RunLog::line(const std::string& raw)
{
    const std::string text = loggable(raw);
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

void RunLog::replace(const std::string& raw)
{
    const std::string text = loggable(raw);
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
