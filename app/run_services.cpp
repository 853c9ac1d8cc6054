// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/run_services.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <thread>

#include "worker/remote_source.h"
#include "writers/deep_colour.h"
#include "writers/exif_stamper.h"
#include "writers/jpeg_writer.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_merge.h"
#include "writers/png_writer.h"
#include "writers/text_writer.h"
#include "writers/tiff_writer.h"

namespace qf::app {
namespace fs = std::filesystem;

namespace {

// The copy request of a PDF page copy: its file, or kept in the worker (keep), then on
// another worker than `avoid` when one is free.
worker::CopiedReply copy_pages(worker::WorkerPool& readers, const fs::path& source, const std::string& password,
                               const fs::path& copy, bool keep, pid_t avoid = 0)
{
    try {
        return readers.copy_pages(
            {{worker::DocumentKind::Pdf, {source, password, engine::kTiledNo}, false}, copy.native(), keep}, avoid);
    } catch (const engine::Error& error) {
        if (error.reason() == worker::kStoppedReason) {
            throw std::runtime_error(error.reason()); // the run's abort, not the document's
        }
        throw;
    }
}

} // namespace

std::shared_ptr<CopyAhead> copy_ahead(std::shared_ptr<worker::WorkerPool> readers)
{
    return std::make_shared<CopyAhead>(
        [readers](const fs::path& source, const std::string& password, pid_t avoid) {
            // The copy stays in the worker: the path only satisfies the request's form.
            return copy_pages(*readers, source, password, "/", true, avoid);
        },
        [readers] { readers->abort_requests(); });
}

engine::PdfAssemblerFactory worker_pdf_assemblers(const fs::path& resources, std::shared_ptr<worker::WorkerPool> readers,
                                                  std::shared_ptr<CopyAhead> ahead)
{
    writers::pdf::WorkerDelivery delivery;
    delivery.keep = [readers, ahead](const fs::path& source, const std::string& password) {
        worker::CopiedReply copied =
            ahead ? ahead->keep(source, password) : copy_pages(*readers, source, password, "/", true);
        return writers::pdf::KeptCopy{{copied.page_count, std::move(copied.uncopyable), {}},
                                      copied.token,
                                      static_cast<int>(copied.worker)};
    };
    delivery.deliver = [readers](const writers::pdf::KeptCopy& copy, const std::vector<int>& pages,
                                 const writers::pdf::DeliveryOrder& order, const fs::path& temp) {
        const auto delivered = readers->deliver(
            {copy.token, pages, temp.native(), order.target.native(), order.resources.native(), order.secured,
             order.snapshot},
            copy.worker);
        if (!delivered) {
            throw writers::pdf::CopyGone("the worker that kept the copy has gone");
        }
        return engine::PdfClosed{delivered->reasons, delivered->lines};
    };
    return writers::pdf::pdf_assembler_factory(
        resources,
        [readers](const fs::path& source, const std::string& password, const fs::path& copy) {
            worker::CopiedReply copied = copy_pages(*readers, source, password, copy, false);
            return writers::pdf::FlattenedCopy{copied.page_count, std::move(copied.uncopyable),
                                               std::move(copied.in_frame)};
        },
        std::move(delivery));
}

engine::RunServices make_run_services(const fs::path& resources, int jobs)
{
    if (jobs < 1) {
        jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    }
    const auto readers = std::make_shared<worker::WorkerPool>(worker::default_worker_settings(jobs));
    engine::RunServices services;
    services.open_tiff = worker::remote_tiff_opener(readers);
    services.open_pdf = worker::remote_pdf_opener(readers);
    services.abort_reading = [readers] { readers->abort_requests(); };
    services.write_jpeg = writers::write_jpeg;
    services.write_png = writers::write_png;
    services.write_tiff_single = writers::write_tiff_single;
    services.write_text = writers::write_text;
    services.multipage_tiff = [] { return std::make_unique<writers::MultipageTiff>(); };
    // With two workers or more, the next document's copy is read ahead on another one.
    std::shared_ptr<CopyAhead> ahead;
    if (readers->settings().workers > 1) {
        ahead = copy_ahead(readers);
        services.read_ahead = [ahead](const fs::path& source, const std::string& password) {
            ahead->expect(source, password);
        };
    }
    services.pdf_assembler = worker_pdf_assemblers(resources, readers, ahead);
    const auto merge_ahead = std::make_shared<writers::pdf::MergeAhead>();
    services.part_written = [merge_ahead](const fs::path& part, bool first) { merge_ahead->prepare(part, first); };
    services.merge_pdfs = [merge_ahead](const std::vector<fs::path>& inputs, const fs::path& target,
                                        const engine::OptionSnapshot& snapshot,
                                        const std::function<void(const fs::path&)>& merged) {
        return merge_ahead->merge_and_secure(inputs, target, snapshot, merged);
    };
    services.stamper = [] { return writers::make_exif_stamper(); };
    services.writergb48 = writers::writergb48;
    return services;
}

} // namespace qf::app
