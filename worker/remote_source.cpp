// SPDX-License-Identifier: GPL-3.0-or-later
#include "worker/remote_source.h"

namespace qf::worker {
namespace {

// A page number the worker would not be asked for fails here as the in-process source fails
// it; a TIFF page past the end is left to the worker, whose reader says why.
void check_page(const DocumentRef& document, int pageno, int page_count)
{
    const bool pdf = document.kind == DocumentKind::Pdf;
    if (pageno < 1 && !pdf) {
        throw engine::Error(engine::ErrorKind::Damaged, "the image cannot be read", document.document.path, pageno);
    }
    if (pageno < 1 || (pdf && pageno > page_count)) {
        throw engine::Error(engine::ErrorKind::BadInput,
                            "the document has only " + std::to_string(page_count) + " pages",
                            document.document.path, pageno);
    }
}

} // namespace

RemotePageSource::RemotePageSource(std::shared_ptr<WorkerPool> pool, DocumentRef document)
    : pool_(std::move(pool)), document_(std::move(document))
{
    const OpenedReply opened = pool_->open(document_);
    page_count_ = opened.page_count;
    tags_ = opened.tags;
}

engine::PagePicture RemotePageSource::picture(int pageno, const engine::RenderRequest& request)
{
    check_page(document_, pageno, page_count_);
    if (request.abort != nullptr && request.abort->load() != 0) {
        throw engine::Error(engine::ErrorKind::Unsupported, kStoppedReason, document_.document.path, pageno);
    }
    return pool_->picture({document_, pageno, request});
}

std::string RemotePageSource::text(int pageno)
{
    check_page(document_, pageno, page_count_);
    return pool_->text({document_, pageno});
}

engine::SourceOpener remote_pdf_opener(std::shared_ptr<WorkerPool> pool, bool copies_pages)
{
    return [pool = std::move(pool), copies_pages](const engine::DocumentToOpen& document) {
        return std::make_unique<RemotePageSource>(pool, DocumentRef{DocumentKind::Pdf, document, copies_pages});
    };
}

engine::SourceOpener remote_tiff_opener(std::shared_ptr<WorkerPool> pool)
{
    return [pool = std::move(pool)](const engine::DocumentToOpen& document) {
        return std::make_unique<RemotePageSource>(pool, DocumentRef{DocumentKind::Tiff, document, false});
    };
}

} // namespace qf::worker
