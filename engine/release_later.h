// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <utility>

namespace qf::engine {

// Something whose destruction may take a while (a merge's parsed inputs: millions of small
// objects, a fifth of a second to take apart).
struct Releasable {
    virtual ~Releasable() = default;
};

// Destroys `value` on a thread of its own, so that taking it apart holds up no one. What is
// given must own all it refers to. A process ending through exit() (a return from main())
// first waits for what is still being released; one ending through _Exit() does not, and the
// memory goes back to the system with the process. Should no thread start, `value` is
// destroyed here. Thread-safe.
void release_later(std::unique_ptr<Releasable> value) noexcept;

template <typename T>
void release_later(T value) noexcept
{
    struct Held final : Releasable {
        explicit Held(T&& held) : value(std::move(held)) {}
        T value;
    };
    std::unique_ptr<Releasable> held;
    try {
        held = std::make_unique<Held>(std::move(value));
    } catch (...) {
        return; // `value` goes here, at the end of this call
    }
    release_later(std::move(held));
}

// Waits until everything given to release_later() has been destroyed.
void wait_for_releases() noexcept;

} // namespace qf::engine
