// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/update_check.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace qf::app {
namespace {

using namespace std::chrono_literals;

constexpr const char* kUnreachable = "Our Update Server cannot be reached at the moment. Please try again later";
constexpr const char* kUpToDate = "You are currently up to date";

// What the server's text means against a local version of four parts.
TEST(UpdateCheck, EachServerTextGivesItsMessage)
{
    const struct { const char* local; const char* server; std::string message; } cases[] = {
        {"2.0.1.5", "2.0.2\n", "There is an Updated Version 2.0.2 available. Do You Want to Download It Now ?"},
        {"2.0.1.5", " 2.0.1\r\n", kUpToDate},     // the fourth part is not compared
        {"2.0.1.5", "10.0.0", kUpToDate},         // compared as text: "10" sorts before "2"
        {"1.0.0B", "1.0.0b", kUpToDate},          // nor is case
        {"2.0.1.5", " \n", kUnreachable},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(update_message(compare_with_server(c.local, c.server)), c.message) << c.server;
    }
}

// A server on 127.0.0.1 that answers one request with `response`; with none it never takes the
// connection, which waits unanswered in the queue.
class OneReplyServer {
public:
    explicit OneReplyServer(std::string response = "")
    {
        sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}};
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(listener_, generic, length) != 0 || ::listen(listener_, 4) != 0 ||
            ::getsockname(listener_, generic, &length) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/ver/quirefold.txt";
        if (!response.empty()) {
            thread_ = std::thread([this, response] {
                const int connection = ::accept(listener_, nullptr, nullptr);
                std::string request;
                char buffer[1024];
                for (ssize_t n = 1; n > 0 && request.find("\r\n\r\n") == std::string::npos;) {
                    n = ::recv(connection, buffer, sizeof buffer, 0);
                    request.append(buffer, n > 0 ? std::size_t(n) : 0);
                }
                (void)!::send(connection, response.data(), response.size(), MSG_NOSIGNAL);
                ::close(connection);
            });
        }
    }
    ~OneReplyServer()
    {
        ::shutdown(listener_, SHUT_RDWR); // wakes an accept still waiting
        if (thread_.joinable()) {
            thread_.join();
        }
        ::close(listener_);
    }

    std::string url;

private:
    int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread_;
};

std::string reply(const std::string& status, const std::string& body, const std::string& headers = "")
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers +
           "Connection: close\r\n\r\n" + body;
}

// The text fetched for each answer a server can give, and for none; no wait outlasts its limit
// or a cancel.
TEST(UpdateCheck, FetchKeepsOnlyAWholeVersionText)
{
    const OneReplyServer plain_http(reply("200 OK", "9.9.9")); // where a redirect must not lead
    std::string gone_url = OneReplyServer().url;
    std::atomic<bool> cancelled{true};
    // response: "-" for no server at all
    const struct { const char* what; std::string response; std::string text;
                   std::chrono::milliseconds wait = 5s; const std::atomic<bool>* cancel = nullptr;
                   } cases[] = {
        {"version", reply("200 OK", " 2.0.2\r\n"), "2.0.2"},
        {"read to 64 bytes", reply("200 OK", std::string(100, '9')), std::string(64, '9')},
        {"error page", reply("404 Not Found", "Not Found"), ""},
        {"redirect away from https", reply("302 Found", "", "Location: " + plain_http.url + "\r\n"), ""},
        {"no server", "-", ""},
        {"too slow", "", "", 500ms},
        {"cancelled", "", "", 20s, &cancelled},
    };
    for (const auto& c : cases) {
        const OneReplyServer server(c.response == "-" ? "" : c.response);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(fetch_version_text(c.response == "-" ? gone_url : server.url, c.wait, c.cancel), c.text) << c.what;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 4s) << c.what;
    }
    EXPECT_EQ(check_for_updates("", "0.1.0").outcome, UpdateOutcome::ServerUnreachable);
}

} // namespace
} // namespace qf::app
