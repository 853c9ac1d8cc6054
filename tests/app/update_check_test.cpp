// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/update_check.h"

#include <gtest/gtest.h>

#include "tests/support/loopback_http.h"

namespace qf::app {
namespace {

using namespace std::chrono_literals;
using test::HttpReply;
using test::LoopbackHttpServer;

constexpr const char* kUnreachable = "Our Update Server cannot be reached at the moment. Please try again later";
constexpr const char* kUpToDate = "You are currently up to date";

// Each answer a version server can give, against a local version of four parts.
TEST(UpdateCheck, EachServerAnswerGivesItsOutcomeAndMessage)
{
    const std::string long_body(100, '9');
    const LoopbackHttpServer plain_http({200, "9.9.9"}); // where a redirect must not lead
    const struct {
        const char* what;
        HttpReply reply;
        UpdateOutcome outcome;
        std::string message;
    } cases[] = {
        {"newer", {200, "2.0.2\n"}, UpdateOutcome::NewerVersion,
         "There is an Updated Version 2.0.2 available. Do You Want to Download It Now ?"},
        {"same, the fourth part ignored", {200, " 2.0.1\r\n"}, UpdateOutcome::UpToDate, kUpToDate},
        {"compared as text: 10 before 2", {200, "10.0.0"}, UpdateOutcome::UpToDate, kUpToDate},
        {"empty body", {200, " \n"}, UpdateOutcome::ServerUnreachable, kUnreachable},
        {"error page", {404, "Not Found"}, UpdateOutcome::ServerUnreachable, kUnreachable},
        {"redirect away from https", {302, "", "Location: " + plain_http.url("/v") + "\r\n"},
         UpdateOutcome::ServerUnreachable, kUnreachable},
        {"not a version: read to 64 bytes", {200, long_body}, UpdateOutcome::NewerVersion,
         "There is an Updated Version " + std::string(64, '9') + " available. Do You Want to Download It Now ?"},
    };
    for (const auto& c : cases) {
        LoopbackHttpServer server(c.reply);
        const UpdateCheck check = check_for_updates(server.url("/ver/quirefold.txt"), "2.0.1.5", 5s);
        EXPECT_EQ(check.outcome, c.outcome) << c.what;
        EXPECT_EQ(update_message(check), c.message) << c.what;
        EXPECT_EQ(server.requested_paths(), std::vector<std::string>{"/ver/quirefold.txt"}) << c.what;
    }
}

// The comparison ignores case: a local "1.0.0B" is the server's "1.0.0b".
TEST(UpdateCheck, ComparesWithoutRegardToCase)
{
    EXPECT_EQ(compare_with_server("1.0.0B", "1.0.0b").outcome, UpdateOutcome::UpToDate);
    EXPECT_EQ(compare_with_server("1.0.0a", "1.0.0B").outcome, UpdateOutcome::NewerVersion);
}

// No server, none configured, a server too slow and a check called off: all end soon and say
// the server cannot be reached.
TEST(UpdateCheck, NoAnswerEndsWithinTheWait)
{
    std::atomic<bool> cancelled{true};
    LoopbackHttpServer slow({200, "9.9.9", "", 20s});
    const struct {
        const char* what;
        std::string url;
        std::chrono::milliseconds wait;
        const std::atomic<bool>* cancel;
    } cases[] = {
        {"no server", test::unanswered_loopback_url("/ver/quirefold.txt"), 5s, nullptr},
        {"none configured", "", 5s, nullptr},
        {"too slow", slow.url("/ver/quirefold.txt"), 500ms, nullptr},
        {"cancelled", slow.url("/ver/quirefold.txt"), 20s, &cancelled},
    };
    for (const auto& c : cases) {
        const auto start = std::chrono::steady_clock::now();
        const UpdateCheck check = check_for_updates(c.url, "0.1.0", c.wait, c.cancel);
        EXPECT_EQ(check.outcome, UpdateOutcome::ServerUnreachable) << c.what;
        EXPECT_EQ(update_message(check), kUnreachable) << c.what;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 3s) << c.what;
    }
}

} // namespace
} // namespace qf::app
