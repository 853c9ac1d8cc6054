// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/mupdf_guard.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

#include "sources/pdf_source.h"

namespace qf::sources {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kGiB = std::size_t{1} << 30;

// Each block carries its size in a header, so that a free knows what to give back; the header
// keeps the alignment malloc gives.
constexpr std::size_t kHeader = alignof(std::max_align_t);

std::atomic<std::size_t> g_in_use{0};
thread_local bool t_refused = false;

std::size_t limit_from_environment()
{
    if (const char *text = std::getenv("QUIREFOLD_PDF_MEMORY_MB")) {
        char *end = nullptr;
        const unsigned long long mib = std::strtoull(text, &end, 10);
        if (end != text && *end == '\0' && mib > 0 && mib < (SIZE_MAX / kMiB)) {
            return static_cast<std::size_t>(mib) * kMiB;
        }
    }
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long page_size = ::sysconf(_SC_PAGESIZE);
    const std::size_t physical =
        pages > 0 && page_size > 0
            ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(page_size)
            : 2 * kGiB;
    return std::clamp(physical / 2, kGiB, 4 * kGiB);
}

// Takes `bytes` more from the ceiling; false, and nothing taken, when they do not fit.
bool take(std::size_t bytes)
{
    const std::size_t limit = mupdf_memory_limit();
    std::size_t used = g_in_use.load(std::memory_order_relaxed);
    do {
        if (bytes > limit || used > limit - bytes) {
            t_refused = true;
            return false;
        }
    } while (!g_in_use.compare_exchange_weak(used, used + bytes, std::memory_order_relaxed));
    return true;
}

void give_back(std::size_t bytes)
{
    g_in_use.fetch_sub(bytes, std::memory_order_relaxed);
}

std::size_t block_size(void *block)
{
    std::size_t size = 0;
    std::memcpy(&size, block, sizeof size);
    return size;
}

void *counted_malloc(void *, std::size_t size)
{
    if (size > SIZE_MAX - kHeader || !take(size)) {
        return nullptr;
    }
    void *block = std::malloc(size + kHeader);
    if (block == nullptr) {
        give_back(size);
        return nullptr;
    }
    std::memcpy(block, &size, sizeof size);
    return static_cast<char *>(block) + kHeader;
}

void counted_free(void *, void *pointer)
{
    if (pointer == nullptr) {
        return;
    }
    void *block = static_cast<char *>(pointer) - kHeader;
    give_back(block_size(block));
    std::free(block);
}

void *counted_realloc(void *user, void *pointer, std::size_t size)
{
    if (pointer == nullptr) {
        return counted_malloc(user, size);
    }
    if (size == 0) {
        counted_free(user, pointer);
        return nullptr;
    }
    void *block = static_cast<char *>(pointer) - kHeader;
    const std::size_t old_size = block_size(block);
    if (size > SIZE_MAX - kHeader || (size > old_size && !take(size - old_size))) {
        return nullptr;
    }
    void *grown = std::realloc(block, size + kHeader);
    if (grown == nullptr) {
        if (size > old_size) {
            give_back(size - old_size);
        }
        return nullptr;
    }
    if (size < old_size) {
        give_back(old_size - size);
    }
    std::memcpy(grown, &size, sizeof size);
    return static_cast<char *>(grown) + kHeader;
}

const fz_alloc_context kCountingAllocator{nullptr, counted_malloc, counted_realloc, counted_free};

constexpr std::chrono::milliseconds kDefaultPageTime{120'000};

std::chrono::milliseconds time_limit_from_environment()
{
    if (const char *text = std::getenv("QUIREFOLD_PAGE_SECONDS")) {
        char *end = nullptr;
        const double seconds = std::strtod(text, &end);
        if (end != text && *end == '\0' && seconds > 0 && seconds < 1e7) {
            return std::chrono::milliseconds(std::max(1LL, std::llround(seconds * 1000)));
        }
    }
    return kDefaultPageTime;
}

std::atomic<std::chrono::milliseconds::rep> &time_limit_ms()
{
    static std::atomic<std::chrono::milliseconds::rep> ms{time_limit_from_environment().count()};
    return ms;
}

} // namespace

std::chrono::milliseconds page_time_limit()
{
    return std::chrono::milliseconds(time_limit_ms().load());
}

void set_page_time_limit(std::chrono::milliseconds limit)
{
    time_limit_ms().store(std::max<std::chrono::milliseconds::rep>(1, limit.count()));
}

const fz_alloc_context *mupdf_allocator()
{
    return &kCountingAllocator;
}

std::size_t mupdf_memory_limit()
{
    static const std::size_t limit = limit_from_environment();
    return limit;
}

bool mupdf_memory_refused()
{
    return t_refused;
}

void reset_mupdf_memory_refused()
{
    t_refused = false;
}

namespace {

// The one thread that watches every page under way: it sleeps until the nearest deadline or
// until a watchdog comes.
class Watcher
{
  public:
    static Watcher &instance()
    {
        static Watcher watcher;
        return watcher;
    }

    void add(PageWatchdog *watchdog)
    {
        {
            const std::lock_guard lock(mutex_);
            watched_.push_back(watchdog);
        }
        wake_.notify_one();
    }

    void remove(PageWatchdog *watchdog)
    {
        const std::lock_guard lock(mutex_);
        watched_.erase(std::remove(watched_.begin(), watched_.end(), watchdog), watched_.end());
    }

    bool fired(const PageWatchdog *watchdog)
    {
        const std::lock_guard lock(mutex_);
        return watchdog->fired_;
    }

  private:
    Watcher() : thread_([this] { watch(); }) {}

    ~Watcher()
    {
        {
            const std::lock_guard lock(mutex_);
            closing_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }

    void watch()
    {
        std::unique_lock lock(mutex_);
        while (!closing_) {
            const auto now = std::chrono::steady_clock::now();
            auto next = std::chrono::steady_clock::time_point::max();
            for (PageWatchdog *watchdog : watched_) {
                if (watchdog->fired_) {
                    continue;
                }
                if (watchdog->deadline <= now) {
                    watchdog->fired_ = true;
                    // MuPDF reads the flag as a plain int between operators.
                    std::atomic_ref<int>(*watchdog->abort_flag).store(1);
                } else {
                    next = std::min(next, watchdog->deadline);
                }
            }
            if (next == std::chrono::steady_clock::time_point::max()) {
                wake_.wait(lock);
            } else {
                wake_.wait_until(lock, next);
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<PageWatchdog *> watched_;
    bool closing_ = false;
    std::thread thread_; // last, so that it starts once the rest is ready
};

} // namespace

PageWatchdog::PageWatchdog(int *abort_flag, std::chrono::milliseconds limit)
    : deadline(std::chrono::steady_clock::now() + limit), abort_flag(abort_flag)
{
    Watcher::instance().add(this);
}

PageWatchdog::~PageWatchdog()
{
    Watcher::instance().remove(this);
}

bool PageWatchdog::fired() const
{
    return Watcher::instance().fired(this);
}

} // namespace qf::sources
