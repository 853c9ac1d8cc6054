// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include "worker/protocol.h"

// Frames over one connected stream socket, with at most one descriptor passed beside a frame
// (SCM_RIGHTS), and the sealed shared memory that carries a picture's bytes.
namespace qf::worker {

// Owns one file descriptor.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    int release();
    void reset(int fd = -1);
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// The other side closed the channel (or the socket failed) before a whole frame arrived.
class ChannelClosed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// No whole frame arrived before the deadline.
class ChannelTimeout : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// Writes one frame, with `attached` (when not -1) passed to the other side. Throws
// ChannelClosed when the other side is gone.
void send_frame(int socket, const Frame& frame, int attached = -1);

// Reads one frame; a descriptor passed with it goes to *attached (close-on-exec). Throws
// ChannelClosed, ChannelTimeout when `deadline` passes first, ProtocolError on a bad header or
// on a descriptor where none was expected or more than one.
Frame receive_frame(int socket, const Deadline& deadline, UniqueFd* attached = nullptr);

// An anonymous shared-memory file (memfd) of `bytes` bytes. seal() forbids any later change of
// its size or content, so that the reading side can trust what it reads. Throws
// std::system_error.
class SharedPages {
public:
    explicit SharedPages(std::size_t bytes);
    void write(std::size_t offset, const std::uint8_t* data, std::size_t size);
    // Returns the descriptor to pass; this object still owns it.
    int seal();
    int fd() const { return fd_.get(); }

private:
    UniqueFd fd_;
};

// Copies `bytes` bytes from `offset` of a shared-memory file received from the other side,
// after checking that it is sealed and holds that many. Throws ProtocolError.
void read_shared_pages(int fd, std::uint64_t offset, std::size_t bytes, std::uint8_t* out);

} // namespace qf::worker
