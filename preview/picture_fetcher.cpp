// SPDX-License-Identifier: GPL-3.0-or-later
#include "preview/picture_fetcher.h"

#include <cmath>
#include <utility>

#include "engine/error.h"

namespace qf::preview {
namespace {

class Superseded {};

struct Reading {
    worker::WorkerPool& pool;
    const PictureJob& job;
    const std::function<bool()>& current;

    // Called before each read too: an abort reaches only the requests made before it.
    void check_current() const
    {
        if (!current()) {
            throw Superseded();
        }
    }

    worker::DocumentRef document(worker::DocumentKind kind, const std::string& tile_marker) const
    {
        worker::DocumentRef ref;
        ref.kind = kind;
        ref.document.path = row_file(job.row);
        ref.document.password = job.row.cells[engine::column::password];
        ref.document.tile_marker = tile_marker;
        return ref;
    }

    engine::PagePicture pdf_page(int pageno, int dpi) const
    {
        engine::RenderRequest render;
        render.dpi = dpi;
        render.zoom = 1;
        check_current();
        return pool.picture({document(worker::DocumentKind::Pdf, engine::kTiledNo), pageno, render});
    }

    // The image as a run reads it for a tiled row, or the image at `index`, reduced by
    // `reduce_factor` in the worker.
    engine::PagePicture tiff_image(bool tiled_image, int index, int reduce_factor) const
    {
        const auto ref = document(worker::DocumentKind::Tiff, tiled_image ? engine::kTiledYes : engine::kTiledNo);
        check_current();
        worker::PictureCall call{ref, tiled_image ? 1 : index + 1, {}};
        call.reduce_factor = reduce_factor;
        return pool.picture(call);
    }

    // A PDF page's box in points before its rotation, and the rotation; a TIFF image's size
    // in pixels, rotation 0. Nothing is drawn.
    FirstPage facts(worker::DocumentKind kind, int pageno) const
    {
        check_current();
        const worker::PageFacts facts = pool.page_facts({document(kind, engine::kTiledNo), pageno});
        return {facts.width, facts.height, facts.rotation};
    }
};

// The page as shown: a page turned by a quarter shows its box's sides swapped.
FirstPage shown(FirstPage page)
{
    if (page.rotation == 90 || page.rotation == 270) {
        std::swap(page.width, page.height);
    }
    return page;
}

engine::PagePicture read_pdf(const Reading& reading, const PictureRequest& request, const FirstPage& first)
{
    if (request.scale > 0) {
        return reading.pdf_page(request.pageno, std::max(1, static_cast<int>(std::lround(72.0 * request.scale))));
    }
    const FirstPage page = request.pageno == 1 ? shown(first)
                                               : shown(reading.facts(worker::DocumentKind::Pdf, request.pageno));
    return reading.pdf_page(request.pageno, fit_dpi(page.width, page.height, request.width, request.height));
}

} // namespace

FetchedPicture PictureFetcher::fetch(worker::WorkerPool& pool, const PictureJob& job,
                                     const std::function<bool()>& current)
{
    FetchedPicture fetched;
    const Reading reading{pool, job, current};
    const DocumentType type = document_type(job.row.cells[engine::column::name]);
    try {
        if (type == DocumentType::Other) {
            fetched.failure = "the file is neither a PDF nor a TIFF";
            return fetched;
        }
        if (job.event != PictureEvent::Enlarged) {
            if (job.first_page) {
                fetched.first_page = *job.first_page;
            } else {
                fetched.first_page = reading.facts(
                    type == DocumentType::Pdf ? worker::DocumentKind::Pdf : worker::DocumentKind::Tiff, 1);
            }
            reading.check_current();
            fetched.request = plan_pane_picture(job.row, job.page, job.pane, job.event, fetched.first_page);
        } else {
            fetched.request = plan_enlarged_picture(job.row, job.page, job.pixels_per_point);
        }
        const PictureRequest& request = fetched.request;
        engine::PagePicture picture;
        if (type == DocumentType::Pdf) {
            picture = read_pdf(reading, request, fetched.first_page);
        } else {
            picture = reading.tiff_image(request.tiled_image, request.image_index, request.reduce_factor);
        }
        reading.check_current();
        fetched.picture = engine::to_rgb(picture);
    } catch (const engine::Error& error) {
        fetched.failure = error.reason();
    } catch (const Superseded&) {
        fetched.failure = "a newer picture was asked for";
    } catch (const std::bad_alloc&) {
        fetched.failure = "not enough memory";
    }
    return fetched;
}

PictureFetcher::PictureFetcher(worker::WorkerSettings settings)
    : pool_(std::make_unique<worker::WorkerPool>([&] {
          settings.workers = 1;
          return settings;
      }())),
      thread_([this] { serve(); })
{
}

PictureFetcher::~PictureFetcher()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        if (in_flight_) {
            pool_->abort_requests();
        }
    }
    wake_.notify_one();
    thread_.join();
}

std::uint64_t PictureFetcher::submit(Channel channel, PictureJob job, Delivery deliver)
{
    const auto slot = static_cast<std::size_t>(channel);
    std::uint64_t number = 0;
    {
        const std::lock_guard lock(mutex_);
        number = ++next_number_;
        newest_[slot] = number;
        waiting_[slot] = {std::move(job), std::move(deliver), number};
        if (in_flight_ == channel) {
            pool_->abort_requests();
        }
    }
    wake_.notify_one();
    return number;
}

void PictureFetcher::cancel(Channel channel)
{
    const auto slot = static_cast<std::size_t>(channel);
    const std::lock_guard lock(mutex_);
    newest_[slot] = ++next_number_;
    waiting_[slot] = {};
    if (in_flight_ == channel) {
        pool_->abort_requests();
    }
}

bool PictureFetcher::is_newest(Channel channel, std::uint64_t number)
{
    const std::lock_guard lock(mutex_);
    return !stopping_ && newest_[static_cast<std::size_t>(channel)] == number;
}

void PictureFetcher::serve()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || waiting_[0].job || waiting_[1].job; });
        if (stopping_) {
            return;
        }
        // The pane's picture first: the enlarged view follows it.
        const Channel channel = waiting_[0].job ? Channel::Pane : Channel::Enlarged;
        Waiting taken = std::exchange(waiting_[static_cast<std::size_t>(channel)], {});
        in_flight_ = channel;
        lock.unlock();
        FetchedPicture fetched =
            fetch(*pool_, *taken.job, [this, channel, number = taken.number] { return is_newest(channel, number); });
        fetched.number = taken.number;
        lock.lock();
        in_flight_.reset();
        if (stopping_ || newest_[static_cast<std::size_t>(channel)] != taken.number) {
            continue;
        }
        lock.unlock();
        taken.deliver(std::move(fetched));
        lock.lock();
    }
}

worker::WorkerSettings preview_worker_settings()
{
    constexpr std::size_t kCeilingMb = 1024;
    worker::WorkerSettings settings = worker::default_worker_settings(1);
    if (settings.memory_limit_mb > kCeilingMb) {
        const std::size_t excess = settings.memory_limit_mb - kCeilingMb;
        settings.memory_limit_mb = kCeilingMb;
        if (settings.data_limit_mb > excess) {
            settings.data_limit_mb -= excess;
        }
    }
    return settings;
}

} // namespace qf::preview
