// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include "engine/services.h"
#include "worker/worker_client.h"

// Page sources whose documents are read by the workers of a pool. They answer as the
// in-process sources do (the same pixels, text, tags and errors); a page whose worker
// crashed, overran its time or its memory fails alone, with its reason.
namespace qf::worker {

class RemotePageSource final : public engine::PageSource {
public:
    // Opens the document in a worker. Throws engine::Error as the in-process opener does.
    RemotePageSource(std::shared_ptr<WorkerPool> pool, DocumentRef document);

    int page_count() const override { return page_count_; }
    engine::PagePicture picture(int pageno, const engine::RenderRequest& request) override;
    std::string text(int pageno) override;
    engine::SourceTags tags() const override { return tags_; }

private:
    std::shared_ptr<WorkerPool> pool_;
    DocumentRef document_;
    int page_count_ = 0;
    engine::SourceTags tags_;
};

// Openers for the run's services (engine::RunServices::open_pdf and open_tiff). A PDF opener
// made with copies_pages also has the worker walk the page tree with the page-copying reader.
engine::SourceOpener remote_pdf_opener(std::shared_ptr<WorkerPool> pool, bool copies_pages = false);
engine::SourceOpener remote_tiff_opener(std::shared_ptr<WorkerPool> pool);

} // namespace qf::worker
