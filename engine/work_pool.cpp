// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/work_pool.h"

namespace qf::engine {

WorkPool::WorkPool(int threads)
{
    threads_.reserve(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i) {
        threads_.emplace_back([this] { work(); });
    }
}

WorkPool::~WorkPool()
{
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
    }
    wake_.notify_all();
    for (auto& thread : threads_) {
        thread.join();
    }
}

void WorkPool::enqueue(std::function<void()> task)
{
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void WorkPool::work()
{
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return closing_ || !tasks_.empty(); });
            if (tasks_.empty()) {
                return; // closing, and nothing left to do
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task(); // a packaged task keeps its own exception for its future
    }
}

} // namespace qf::engine
