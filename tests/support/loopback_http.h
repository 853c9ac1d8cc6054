// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A small HTTP server for the tests of network clients: it listens on 127.0.0.1 only, on a port
// the system picks, and gives every request the same reply. It stops when destroyed, and by
// itself after a minute in any case.
namespace qf::test {

struct HttpReply {
    int status = 200;
    std::string body;
    std::string extra_headers;             // whole lines, each ending in "\r\n"
    std::chrono::milliseconds delay{0};    // waited before replying
};

class LoopbackHttpServer {
public:
    explicit LoopbackHttpServer(HttpReply reply);
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // "http://127.0.0.1:PORT" + path.
    std::string url(const std::string& path) const;
    // The request targets received so far, in order.
    std::vector<std::string> requested_paths() const;

private:
    void serve();
    void answer(int connection);

    HttpReply reply_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> paths_;
    std::thread thread_;
};

// An address on 127.0.0.1 where nothing listens (a port just given up by a server).
std::string unanswered_loopback_url(const std::string& path);

} // namespace qf::test
