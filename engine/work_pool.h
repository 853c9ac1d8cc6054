// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

namespace qf::engine {

// A fixed set of threads that take tasks in the order they were given. A run keeps one for its
// whole length, so preparing a page costs a queue entry rather than a new thread.
class WorkPool {
public:
    explicit WorkPool(int threads);
    ~WorkPool(); // finishes the queued tasks, then joins

    WorkPool(const WorkPool&) = delete;
    WorkPool& operator=(const WorkPool&) = delete;

    // Queues `task`; its result, or the exception it threw, arrives through the future.
    template <typename Task>
    std::future<std::invoke_result_t<Task>> submit(Task task)
    {
        using Result = std::invoke_result_t<Task>;
        auto packaged = std::make_shared<std::packaged_task<Result()>>(std::move(task));
        std::future<Result> result = packaged->get_future();
        enqueue([packaged] { (*packaged)(); });
        return result;
    }

private:
    void enqueue(std::function<void()> task);
    void work();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool closing_ = false;
    std::vector<std::thread> threads_;
};

} // namespace qf::engine
