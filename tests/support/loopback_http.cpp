// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/loopback_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qf::test {
namespace {

using Clock = std::chrono::steady_clock;

bool readable(int fd, int milliseconds)
{
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, milliseconds) > 0;
}

// The request line's target, read from a request whose headers end within 8 KiB.
std::string read_request_target(int connection)
{
    std::string request;
    char buffer[1024];
    for (ssize_t got = 1; got > 0 && request.find("\r\n\r\n") == std::string::npos &&
                          request.size() < 8192 && readable(connection, 2000);) {
        got = ::recv(connection, buffer, sizeof buffer, 0);
        request.append(buffer, got > 0 ? std::size_t(got) : 0);
    }
    const auto first = request.find(' ');
    const auto second = request.find(' ', first + 1);
    return second == std::string::npos ? std::string()
                                       : request.substr(first + 1, second - first - 1);
}

} // namespace

LoopbackHttpServer::LoopbackHttpServer(HttpReply reply) : reply_(std::move(reply))
{
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, generic, sizeof address) != 0 ||
        ::listen(listener_, 8) != 0 || ::getsockname(listener_, generic, &length) != 0) {
        if (listener_ >= 0) {
            ::close(listener_);
        }
        throw std::runtime_error("cannot listen on 127.0.0.1");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

LoopbackHttpServer::~LoopbackHttpServer()
{
    stop_ = true;
    thread_.join();
    ::close(listener_);
}

std::string LoopbackHttpServer::url(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<std::string> LoopbackHttpServer::requested_paths() const
{
    const std::lock_guard lock(mutex_);
    return paths_;
}

void LoopbackHttpServer::serve()
{
    const auto end = Clock::now() + std::chrono::minutes(1);
    while (!stop_ && Clock::now() < end) {
        const int connection =
            readable(listener_, 50) ? ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (connection >= 0) {
            answer(connection);
            ::close(connection);
        }
    }
}

void LoopbackHttpServer::answer(int connection)
{
    const std::string target = read_request_target(connection);
    {
        const std::lock_guard lock(mutex_);
        paths_.push_back(target);
    }
    const auto reply_at = Clock::now() + reply_.delay;
    while (!stop_ && Clock::now() < reply_at) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const std::string response = "HTTP/1.1 " + std::to_string(reply_.status) +
                                 " Reply\r\nContent-Type: text/plain\r\nContent-Length: " +
                                 std::to_string(reply_.body.size()) + "\r\n" +
                                 reply_.extra_headers + "Connection: close\r\n\r\n" + reply_.body;
    for (std::size_t sent = 0; sent < response.size();) {
        const ssize_t put =
            ::send(connection, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
        sent = put > 0 ? sent + std::size_t(put) : response.size(); // the peer has gone
    }
}

std::string unanswered_loopback_url(const std::string& path)
{
    return LoopbackHttpServer(HttpReply{}).url(path);
}

} // namespace qf::test
