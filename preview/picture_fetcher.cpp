// SPDX-License-Identifier: GPL-3.0-or-later
#include "preview/picture_fetcher.h"

#include <cmath>
#include <utility>

#include "engine/error.h"
#include "worker/picture_reduction.h"

namespace qf::preview {
namespace {

// The reader draws a PDF page at this resolution to learn its size: one pixel per point.
constexpr int kMeasureDpi = 72;

class Superseded {};

struct Reading {
    worker::WorkerPool& pool;
    const PictureJob& job;
    const std::function<bool()>& current;

    // Called before each read too: an abort reaches only a request already under way.
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

    // The image as a run reads it for a tiled row, or the image at `index`.
    engine::PagePicture tiff_image(bool tiled_image, int index) const
    {
        const auto ref = document(worker::DocumentKind::Tiff, tiled_image ? engine::kTiledYes : engine::kTiledNo);
        check_current();
        return pool.picture({ref, tiled_image ? 1 : index + 1, {}});
    }

    // The shown size of a PDF page in points, from a picture drawn at one pixel per point. The
    // reader turns pages by their rotation as it draws them, so this is the page as shown.
    FirstPage measure_pdf_page(int pageno) const
    {
        const engine::PagePicture measured = pdf_page(pageno, kMeasureDpi);
        return {static_cast<double>(measured.width), static_cast<double>(measured.height), 0};
    }
};

engine::PagePicture read_pdf(const Reading& reading, const PictureRequest& request, const FirstPage& first)
{
    if (request.scale > 0) {
        return reading.pdf_page(request.pageno, std::max(1, static_cast<int>(std::lround(72.0 * request.scale))));
    }
    FirstPage shown = first;
    if (first.rotation == 90 || first.rotation == 270) {
        std::swap(shown.width, shown.height);
    }
    if (request.pageno != 1) {
        shown = reading.measure_pdf_page(request.pageno);
        reading.check_current();
    }
    return reading.pdf_page(request.pageno, fit_dpi(shown.width, shown.height, request.width, request.height));
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
        engine::PagePicture first_image; // a TIFF's first image, when it was read to measure it
        if (job.event != PictureEvent::Enlarged) {
            if (job.first_page) {
                fetched.first_page = *job.first_page;
            } else if (type == DocumentType::Pdf) {
                fetched.first_page = reading.measure_pdf_page(1);
            } else {
                first_image = reading.tiff_image(false, 0);
                fetched.first_page = {static_cast<double>(first_image.width),
                                      static_cast<double>(first_image.height), 0};
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
        } else if (!first_image.empty() && !request.tiled_image && request.image_index == 0) {
            picture = std::move(first_image);
        } else {
            picture = reading.tiff_image(request.tiled_image, request.image_index);
        }
        reading.check_current();
        fetched.picture = worker::reduce_picture(engine::to_rgb(picture), request.reduce_factor);
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
