// SPDX-License-Identifier: GPL-3.0-or-later
#include "worker/channel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/falloc.h>
#include <poll.h>
#include <sys/mman.h> // memfd_create
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace qf::worker {
namespace {

[[noreturn]] void throw_errno(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// Waits until the socket can be read, or the deadline passes.
void wait_readable(int socket, const Deadline& deadline)
{
    for (;;) {
        int timeout_ms = -1;
        if (deadline) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                *deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                throw ChannelTimeout("no reply before the deadline");
            }
            timeout_ms = static_cast<int>(std::min<long long>(left.count(), 1 << 30));
        }
        pollfd watched{socket, POLLIN, 0};
        const int ready = ::poll(&watched, 1, timeout_ms);
        if (ready > 0) {
            return;
        }
        if (ready < 0 && errno != EINTR) {
            throw ChannelClosed(std::string("poll: ") + std::strerror(errno));
        }
    }
}

// Reads exactly `size` bytes; descriptors passed with any part go to *attached.
void receive_exactly(int socket, std::uint8_t* buffer, std::size_t size, const Deadline& deadline,
                     UniqueFd* attached)
{
    std::size_t done = 0;
    while (done < size) {
        wait_readable(socket, deadline);
        iovec part{buffer + done, size - done};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 4)];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t got = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (got <= 0) {
            throw ChannelClosed("the channel closed");
        }
        bool unexpected = (message.msg_flags & MSG_CTRUNC) != 0;
        for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
            if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) {
                continue;
            }
            const std::size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t i = 0; i < count; ++i) {
                int fd = -1;
                std::memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof fd);
                if (attached != nullptr && !*attached) {
                    attached->reset(fd);
                } else {
                    ::close(fd);
                    unexpected = true;
                }
            }
        }
        if (unexpected) {
            throw ProtocolError("unexpected descriptors on the channel");
        }
        done += static_cast<std::size_t>(got);
    }
}

} // namespace

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept
{
    reset(other.release());
    return *this;
}

int UniqueFd::release()
{
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void UniqueFd::reset(int fd)
{
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = fd;
}

void send_frame(int socket, const Frame& frame, int attached)
{
    std::uint8_t header[kFrameHeaderBytes];
    encode_header(frame.type, frame.payload.size(), header);
    iovec parts[2] = {{header, sizeof header},
                      {const_cast<std::uint8_t*>(frame.payload.data()), frame.payload.size()}};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = frame.payload.empty() ? 1 : 2;
    if (attached >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr* c = CMSG_FIRSTHDR(&message);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(c), &attached, sizeof attached);
    }
    std::size_t total = sizeof header + frame.payload.size();
    while (total > 0) {
        const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            throw ChannelClosed(std::string("the channel closed: ") + std::strerror(errno));
        }
        // The descriptor went with the first bytes; the rest follows without it.
        message.msg_control = nullptr;
        message.msg_controllen = 0;
        std::size_t left = static_cast<std::size_t>(sent);
        total -= left;
        while (message.msg_iovlen > 0 && left >= message.msg_iov->iov_len) {
            left -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0) {
            message.msg_iov->iov_base = static_cast<std::uint8_t*>(message.msg_iov->iov_base) + left;
            message.msg_iov->iov_len -= left;
        }
    }
}

Frame receive_frame(int socket, const Deadline& deadline, UniqueFd* attached)
{
    std::uint8_t header[kFrameHeaderBytes];
    receive_exactly(socket, header, sizeof header, deadline, attached);
    Frame frame;
    frame.payload.resize(decode_header(header, frame.type));
    receive_exactly(socket, frame.payload.data(), frame.payload.size(), deadline, attached);
    return frame;
}

UniqueFd make_picture_region()
{
    UniqueFd region(::memfd_create("quirefold-pictures", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!region) {
        throw_errno("memfd_create");
    }
    // A file size limit applies to the region too; what does not fit then travels in frames.
    std::uint64_t size = kPictureRegionBytes;
    rlimit file_size{};
    if (::getrlimit(RLIMIT_FSIZE, &file_size) == 0 && file_size.rlim_cur != RLIM_INFINITY) {
        size = std::min<std::uint64_t>(size, file_size.rlim_cur);
    }
    if (::ftruncate(region.get(), static_cast<off_t>(size)) != 0 ||
        ::fcntl(region.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        throw_errno("picture region");
    }
    return region;
}

namespace {

void check_range(int fd, std::uint64_t offset, std::size_t size)
{
    const std::uint64_t length = region_size(fd);
    if (offset > length || size > length - offset) {
        throw ProtocolError("a picture larger than its shared memory");
    }
}

} // namespace

void write_region(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size)
{
    check_range(fd, offset, size);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t put = ::pwrite(fd, data + done, size - done, static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            throw_errno("pwrite");
        }
        done += static_cast<std::size_t>(put);
    }
}

void read_region(int fd, std::uint64_t offset, std::size_t size, std::uint8_t* out)
{
    check_range(fd, offset, size);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(fd, out + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw_errno("pread");
        }
        if (got == 0) {
            // Sealed at its full size, the region cannot end early; unwritten bytes read as 0.
            throw ProtocolError("the picture's shared memory ended early");
        }
        done += static_cast<std::size_t>(got);
    }
}

void release_region_tail(int fd, std::uint64_t offset)
{
    const std::uint64_t length = region_size(fd);
    if (offset < length) {
        ::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                    static_cast<off_t>(length - offset));
    }
}

std::uint64_t region_size(int fd)
{
    struct stat status{};
    if (::fstat(fd, &status) != 0) {
        throw_errno("fstat");
    }
    return static_cast<std::uint64_t>(status.st_size);
}

} // namespace qf::worker
