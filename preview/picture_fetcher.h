// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "engine/page.h"
#include "engine/run_model.h"
#include "preview/picture_request.h"
#include "worker/worker_client.h"

// Draws the preview's pictures off the window's thread, in a reader worker of the preview's
// own (one job slot): a document that crashes or hangs the reader takes only that process
// down, and a run's pages never wait behind a preview. Each client (the pane, the enlarged
// view) has a channel; a newer job on a channel replaces the one waiting there and aborts the
// one in flight, and only the newest job of a channel is delivered.
namespace qf::preview {

enum class Channel { Pane = 0, Enlarged = 1 };

struct PictureJob {
    engine::ListRow row;   // the row shown: file from cells 5 and 0, password in cell 6, tag
    int page = 1;          // the popup's page, 1-based
    PictureEvent event = PictureEvent::Selection;
    PaneSize pane;         // the picture well's size (pane events)
    double pixels_per_point = 1; // the enlarged view's zoom times the screen's pixel ratio
    // What is known of the first page; asked of the reader (page facts) when absent.
    std::optional<FirstPage> first_page;
};

struct FetchedPicture {
    std::uint64_t number = 0;   // the job's number, as submit() returned it
    PictureRequest request;     // what was asked of the reader
    FirstPage first_page;       // what was known or asked of the first page
    engine::PagePicture picture; // 8-bit RGB; empty when the page could not be read
    std::string failure;         // the reader's reason when it could not
};

class PictureFetcher {
public:
    // Called on the fetcher's thread with the newest job's picture of a channel.
    using Delivery = std::function<void(FetchedPicture)>;

    explicit PictureFetcher(worker::WorkerSettings settings);
    // Aborts the job in flight and waits for the thread.
    ~PictureFetcher();
    PictureFetcher(const PictureFetcher&) = delete;
    PictureFetcher& operator=(const PictureFetcher&) = delete;

    // Queues a job for `channel` and returns its number (increasing, never 0). A job still
    // waiting on the channel is dropped; the channel's job in flight is aborted. Thread-safe.
    std::uint64_t submit(Channel channel, PictureJob job, Delivery deliver);
    // Drops the channel's waiting job and aborts its job in flight. Thread-safe.
    void cancel(Channel channel);

    // Reads one job's picture on the calling thread; `current` tells whether the job is still
    // wanted between its reads. Never throws for the document's sake.
    static FetchedPicture fetch(worker::WorkerPool& pool, const PictureJob& job,
                                const std::function<bool()>& current);

private:
    struct Waiting {
        std::optional<PictureJob> job;
        Delivery deliver;
        std::uint64_t number = 0;
    };
    void serve();
    bool is_newest(Channel channel, std::uint64_t number);

    std::unique_ptr<worker::WorkerPool> pool_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::array<Waiting, 2> waiting_;          // guarded by mutex_
    std::array<std::uint64_t, 2> newest_{};   // guarded by mutex_: the last number submitted
    std::optional<Channel> in_flight_;        // guarded by mutex_
    std::uint64_t next_number_ = 0;           // guarded by mutex_
    bool stopping_ = false;                   // guarded by mutex_
    std::thread thread_;
};

// The settings of the preview's worker: the run's defaults for one worker, its memory ceiling
// held to 1 GiB, as a preview needs no more and shares the machine with a run's workers.
worker::WorkerSettings preview_worker_settings();

} // namespace qf::preview
