// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

#include <mupdf/fitz.h>

// What keeps a hostile PDF from taking the machine: a ceiling on MuPDF's own memory and a
// watchdog that abandons a page after a time limit. Used by pdf_mupdf.cpp only.
namespace qf::sources {

// MuPDF's allocator for every context: each block MuPDF takes (decoded images, fonts, caches,
// scratch pixmaps) counts against one ceiling shared by all contexts and threads, and a
// request that would pass it is refused as if the machine had no more memory. MuPDF then
// empties its caches and tries again before it gives up.
const fz_alloc_context *mupdf_allocator();

// The ceiling in bytes: half of the physical memory, at most 4 GiB, at least 1 GiB, unless
// QUIREFOLD_PDF_MEMORY_MB sets it in mebibytes. Read once.
std::size_t mupdf_memory_limit();

// Whether the ceiling refused a request on this thread since the last reset. A refusal is
// not a failure by itself: MuPDF retries after freeing its caches.
bool mupdf_memory_refused();
void reset_mupdf_memory_refused();

// Sets *abort_flag to 1 from another thread when `limit` passes before the watchdog goes.
// The flag is MuPDF's fz_cookie.abort, which its interpreter reads between operators. All
// watchdogs share one thread, started with the first, so a page costs no thread of its own.
class PageWatchdog
{
  public:
    PageWatchdog(int *abort_flag, std::chrono::milliseconds limit);
    ~PageWatchdog();
    PageWatchdog(const PageWatchdog &) = delete;
    PageWatchdog &operator=(const PageWatchdog &) = delete;

    // True when the limit passed and the flag was set.
    bool fired() const;

    // Guarded by the shared thread's mutex.
    std::chrono::steady_clock::time_point deadline;
    int *abort_flag = nullptr;
    bool fired_ = false;
};

} // namespace qf::sources
