// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/release_later.h"

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace qf::engine {
namespace {

struct Releases {
    std::mutex mutex;
    std::condition_variable none_left;
    int under_way = 0;
};

// Never destroyed: a release still running when the process ends must find it in place.
Releases& releases()
{
    static auto* const state = new Releases;
    return *state;
}

void drain_at_exit()
{
    wait_for_releases();
}

} // namespace

void release_later(std::unique_ptr<Releasable> value) noexcept
{
    // Registered only now, after whatever the value's destruction uses was built, so that
    // exit() runs it before any of that is torn down.
    static const bool registered = std::atexit(drain_at_exit) == 0;
    if (!registered) {
        return; // freed here
    }
    Releases& state = releases();
    {
        const std::lock_guard lock(state.mutex);
        ++state.under_way;
    }
    try {
        std::thread([held = std::move(value), &state]() mutable {
            held.reset();
            const std::lock_guard lock(state.mutex);
            if (--state.under_way == 0) {
                state.none_left.notify_all();
            }
        }).detach();
    } catch (...) {
        const std::lock_guard lock(state.mutex);
        --state.under_way; // no thread: `value`, not moved from, is freed on return
    }
}

void wait_for_releases() noexcept
{
    Releases& state = releases();
    std::unique_lock lock(state.mutex);
    state.none_left.wait(lock, [&] { return state.under_way == 0; });
}

} // namespace qf::engine
