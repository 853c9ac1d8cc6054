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

// The shared memory through which a worker hands pictures back: an anonymous file (memfd)
// that the main process makes once per worker and sends with every picture request. It is
// sealed at its full size, so the worker can neither shrink it under the reader's feet nor
// grow it; its pages are only taken when written, and stay for the next picture. It is
// kPictureRegionBytes long (protocol.h).

// Makes a sealed region of kPictureRegionBytes, or of the file size limit when that is lower.
// Throws std::system_error.
UniqueFd make_picture_region();

// The region's size in bytes. Throws std::system_error.
std::uint64_t region_size(int fd);

// Copies `size` bytes to or from `offset` of a region. Throws std::system_error; ProtocolError
// when the range passes the end of the region.
void write_region(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size);
void read_region(int fd, std::uint64_t offset, std::size_t size, std::uint8_t* out);

// Gives back the region's pages from `offset` on, so that one large picture does not keep its
// memory for the life of the worker.
void release_region_tail(int fd, std::uint64_t offset);

} // namespace qf::worker
