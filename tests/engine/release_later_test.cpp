// SPDX-License-Identifier: GPL-3.0-or-later
// Freeing in the background: off the caller's thread, and never cut short by a normal exit.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "engine/release_later.h"
#include "tests/support/temp_folder.h"

namespace qf::engine {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Its destruction waits for `go` (at most a few seconds), then reports the thread it ran on.
struct SlowToFree {
    std::shared_future<void> go;
    std::shared_ptr<std::promise<std::thread::id>> freed_on;
    SlowToFree(std::shared_future<void> g, std::shared_ptr<std::promise<std::thread::id>> f)
        : go(std::move(g)), freed_on(std::move(f))
    {
    }
    SlowToFree(SlowToFree&&) = default;
    ~SlowToFree()
    {
        if (freed_on) {
            go.wait_for(5s);
            freed_on->set_value(std::this_thread::get_id());
        }
    }
};

TEST(ReleaseLater, FreesOffTheCallersThreadAndAnExitWaitsForIt)
{
    std::promise<void> go;
    auto freed_on = std::make_shared<std::promise<std::thread::id>>();
    std::future<std::thread::id> freed = freed_on->get_future();
    const auto called = std::chrono::steady_clock::now();
    release_later(SlowToFree{go.get_future().share(), freed_on});
    // Freed here, the call would have waited the destructor's five seconds out.
    EXPECT_LT(std::chrono::steady_clock::now() - called, 4s);
    go.set_value();
    wait_for_releases();
    ASSERT_EQ(freed.wait_for(0s), std::future_status::ready);
    EXPECT_NE(freed.get(), std::this_thread::get_id());

    // A process that returns from main() while something is still being freed frees it first.
    test::TempFolder folder;
    const fs::path mark = folder / "freed";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        struct MarksWhenFreed {
            std::unique_ptr<fs::path> mark; // none once moved from
            explicit MarksWhenFreed(const fs::path& where) : mark(std::make_unique<fs::path>(where)) {}
            MarksWhenFreed(MarksWhenFreed&&) = default;
            ~MarksWhenFreed()
            {
                if (mark) {
                    std::this_thread::sleep_for(300ms);
                    std::ofstream(*mark) << "freed";
                }
            }
        };
        release_later(MarksWhenFreed(mark));
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(fs::exists(mark));
}

} // namespace
} // namespace qf::engine
