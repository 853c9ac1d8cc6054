// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/copy_ahead.h"

#include <system_error>
#include <utility>

namespace qf::app {

CopyAhead::CopyAhead(Keeper keeper, std::function<void()> abort_reading)
    : keeper_(std::move(keeper)), abort_reading_(std::move(abort_reading))
{
}

CopyAhead::~CopyAhead()
{
    if (!ahead_ || !ahead_->copied.valid()) {
        return;
    }
    if (ahead_->copied.wait_for(std::chrono::seconds(0)) != std::future_status::ready && abort_reading_) {
        abort_reading_();
    }
    ahead_->copied.wait();
}

void CopyAhead::expect(const std::filesystem::path& source, const std::string& password)
{
    expected_ = Wanted{source, password};
}

std::optional<worker::CopiedReply> CopyAhead::claim(const std::filesystem::path& source, const std::string& password)
{
    std::optional<Ahead> ahead = std::exchange(ahead_, std::nullopt);
    if (!ahead) {
        return std::nullopt;
    }
    const bool same = ahead->wanted.source == source && ahead->wanted.password == password;
    if (!same) {
        // Read ahead for a document that did not come: its copy stays in its worker until newer
        // ones push it out.
        ahead->copied.wait();
        return std::nullopt;
    }
    try {
        worker::CopiedReply copied = ahead->copied.get();
        if (writers::pdf::stamp_of(source) == ahead->stamp) {
            return copied;
        }
    } catch (...) {
        if (writers::pdf::stamp_of(source) == ahead->stamp) {
            throw; // the document's own failure, as reading it now would give
        }
    }
    return std::nullopt; // the file changed meanwhile: read anew
}

worker::CopiedReply CopyAhead::keep(const std::filesystem::path& source, const std::string& password)
{
    std::optional<worker::CopiedReply> copied = claim(source, password);
    if (!copied) {
        copied = keeper_(source, password, 0);
    }
    const std::optional<Wanted> next = std::exchange(expected_, std::nullopt);
    if (next && !(next->source == source && next->password == password)) {
        start(*next, static_cast<pid_t>(copied->worker));
    }
    return std::move(*copied);
}

void CopyAhead::start(const Wanted& wanted, pid_t avoid)
{
    Ahead ahead{wanted, writers::pdf::stamp_of(wanted.source), {}};
    try {
        ahead.copied = std::async(std::launch::async, [keeper = keeper_, wanted, avoid] {
            return keeper(wanted.source, wanted.password, avoid);
        });
    } catch (const std::system_error&) {
        return; // no thread to spare: the document is read when it comes
    }
    ahead_ = std::move(ahead);
}

} // namespace qf::app
