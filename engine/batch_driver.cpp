// SPDX-License-Identifier: GPL-3.0-or-later
// processall: the worker's walk over the documents and their selected pages.
#include <deque>
#include <future>
#include <new>
#include <system_error>

#include "engine/batch_run.h"
#include "engine/batch_work.h"
#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/output_naming.h"
#include "engine/page_selection.h"
#include "engine/text_rules.h"
#include "engine/work_folder.h"
#include "engine/work_pool.h"

namespace qf::engine {
namespace fs = std::filesystem;

using namespace batch;
using enum OutputFormat;

void BatchRun::processall() noexcept
{
    try {
        walk_documents();
    } catch (...) {
        try {
            fail(about(RunEventKind::Failed, nullptr), unexpected_reason(std::current_exception()),
                 "The run could not go on: " + unexpected_reason(std::current_exception()));
        } catch (...) {
        }
    }
    pool_.reset();
    multitiff_.reset(); // a file still open is discarded
    stamper_.reset();
    {
        const std::lock_guard lock(scratch_mutex_);
        scratch_.reset();
    }
    try {
        log_.notify(about(RunEventKind::AllDone, nullptr));
    } catch (...) {
    }
    {
        const std::lock_guard lock(finished_mutex_);
        boliao_ = true;
    }
    finished_.notify_all();
}

void BatchRun::walk_documents()
{
    isrunning_ = true;
    zoom_ = whole_val(snapshot_.mzoomfactor);
    if (!combined_name_usable() || !make_scratch()) {
        return; // said once; nothing is touched
    }
    multitiff_ = services_.multipage_tiff ? services_.multipage_tiff() : nullptr;
    pool_ = jobs_ > 1 ? std::make_unique<WorkPool>(jobs_) : nullptr;
    if (snapshot_.mformat == TiffMultipage && snapshot_.mcombineall) {
        open_combined_tiff();
    }
    for (int row = 0; row <= llistcount_; ++row) {
        if (pleasestop_) {
            say(about(RunEventKind::Terminated, nullptr), "Processing Terminated by User ");
            break;
        }
        run_document(row);
    }
    combined_tail();
}

bool BatchRun::combined_name_usable()
{
    const bool combined =
        snapshot_.mcombineall && (snapshot_.mformat == PdfMultipage || snapshot_.mformat == TiffMultipage);
    if (!combined || snapshot_.mcombinedfilename.find('/') == std::string::npos) {
        return true;
    }
    // A name is not a place: one that holds a folder would put the file outside the folder
    // chosen for the outputs. Refused before anything is written, so no work is lost.
    fail(about(RunEventKind::Failed, nullptr), "a file name cannot hold \"/\"",
         "The combined file name \"" + snapshot_.mcombinedfilename +
             "\" cannot be used: a file name cannot hold \"/\"");
    return false;
}

bool BatchRun::make_scratch()
{
    std::unique_ptr<ScratchFolder> scratch;
    try {
        scratch = std::make_unique<ScratchFolder>();
    } catch (const Error& e) {
        // Only a combined PDF run keeps files of its own there; any other writes beside its
        // outputs and goes on.
        if (!(snapshot_.mcombineall && snapshot_.mformat == PdfMultipage)) {
            fail(about(RunEventKind::Failed, nullptr), e.reason(),
                 "The work folder could not be prepared: " + e.reason());
            return true;
        }
        try {
            scratch = std::make_unique<ScratchFolder>(combined_pdf_path().first);
        } catch (const Error& beside) {
            fail(about(RunEventKind::Failed, nullptr), e.reason(),
                 "The work folder could not be prepared: " + e.reason() +
                     "; nor a scratch folder beside the combined file: " + beside.reason());
            return false;
        }
    }
    const std::lock_guard lock(scratch_mutex_);
    scratch_ = std::move(scratch);
    return true;
}

void BatchRun::run_document(int row)
{
    Document doc;
    doc.row = row;
    doc.data = &filelist_[static_cast<std::size_t>(row)];
    // Whatever goes wrong inside one document ends that document with a line, not the run.
    try {
        if (!open_document(doc)) {
            return;
        }
        read_ahead_after(row);
        walk_pages(doc);
        if (aborted_) {
            abandon_document(doc);
            return;
        }
        document_end(doc);
    } catch (...) {
        const std::string reason = unexpected_reason(std::current_exception());
        abandon_document(doc);
        if (doc.page_under_way > 0) {
            fail_page(doc, doc.page_under_way, reason);
        } else {
            fail_open(doc, reason);
        }
    }
}

void BatchRun::read_ahead_after(int row)
{
    if (snapshot_.mformat != PdfMultipage || !services_.read_ahead || row >= llistcount_ || pleasestop_) {
        return;
    }
    const DocumentRow& next = filelist_[static_cast<std::size_t>(row + 1)];
    if (iends_with(next[column::name], ".PDF")) {
        services_.read_ahead(fs::path(next[column::folder]) / next[column::name], next[column::password]);
    }
}

bool BatchRun::open_document(Document& doc)
{
    const DocumentRow& data = *doc.data;
    doc.path = fs::path(data[column::folder]) / data[column::name];
    std::error_code error;
    if (!fs::exists(doc.path, error)) {
        fail(about(RunEventKind::Skipped, &doc), "moved or deleted",
             doc.name() + " cannot be processed as it could have been moved or deleted");
        return false;
    }
    doc.docpassword = data[column::password];
    doc.tiffcode = tiff_compression_code(snapshot_.mtiffcompression);
    doc.pagesarray = threadgetpages(data, snapshot_.musepageranges);
    if (doc.pagesarray.empty()) {
        fail_open(doc, "no pages are selected");
        return false;
    }
    doc.whole_document = checkifallpages(data, doc.pagesarray);
    if (!snapshot_.mcombineall) {
        totalpage_ = 0;
    }
    doc.ispdf = iends_with(data[column::folder] + data[column::name], ".PDF");
    const SourceOpener& opener = doc.ispdf ? services_.open_pdf : services_.open_tiff;
    try {
        if (!opener) {
            throw Error(ErrorKind::Unsupported, doc.ispdf ? "PDF documents cannot be read by this build"
                                                          : "TIFF documents cannot be read by this build");
        }
        doc.source = opener({doc.path, doc.docpassword, data[column::tile_marker]});
        if (!doc.ispdf) {
            doc.tags = doc.source->tags();
        }
        doc.copyright = doc.ispdf ? ccopyright_ : doc.tags.copyright;
        doc.document_name = doc.ispdf ? cdocumentname_ : doc.tags.document_name;
    } catch (const std::exception& e) {
        const auto* error_with_reason = dynamic_cast<const Error*>(&e);
        fail_open(doc, error_with_reason ? error_with_reason->reason() : unexpected_reason(std::current_exception()));
        return false;
    }
    std::lock_guard lock(scratch_mutex_);
    if (snapshot_.mcombineall && snapshot_.mformat == PdfMultipage && scratch_) {
        doc.work_subfolder = scratch_->path() / ("document-" + std::to_string(doc.row + 1));
        fs::create_directories(doc.work_subfolder, error);
    }
    return true;
}

void BatchRun::walk_pages(Document& doc)
{
    const int selectedcount = static_cast<int>(doc.pagesarray.size());
    const int window = jobs_ <= 1 ? 1 : jobs_ + 1;
    std::deque<std::future<PageWork>> ahead;
    // Pages still being prepared refer to `doc`; however the loop is left, they finish first,
    // and the files of those never committed go.
    struct DropPagesAhead {
        std::deque<std::future<PageWork>>& ahead;
        ~DropPagesAhead()
        {
            for (auto& prepared : ahead) {
                try {
                    const PageWork page = prepared.get();
                    if (!page.encoded.empty()) {
                        discard_temp(page.encoded);
                    }
                } catch (...) {
                }
            }
        }
    } drop_pages_ahead{ahead};
    // A PDF page copied into a PDF needs nothing prepared: handing it to the pool would cost
    // more than the check it makes.
    const bool inline_pages = !pool_ || (doc.ispdf && holds_pdf(snapshot_.mformat));
    int next = 1;
    for (int pageindex = 1; pageindex <= selectedcount && !aborted_; ++pageindex) {
        while (next <= selectedcount && next < pageindex + window) {
            PageWork page = page_at(doc, next++);
            if (inline_pages) {
                prepare_page(doc, page);
                std::promise<PageWork> ready;
                ready.set_value(std::move(page));
                ahead.push_back(ready.get_future());
            } else {
                ahead.push_back(pool_->submit([this, &doc, page = std::move(page)]() mutable {
                    prepare_page(doc, page);
                    return std::move(page);
                }));
            }
        }
        PageWork page = ahead.front().get();
        ahead.pop_front();
        if (aborted_) {
            if (!page.encoded.empty()) {
                discard_temp(page.encoded);
            }
            break;
        }
        doc.page_under_way = page.pageno;
        run_page(doc, page);
        doc.page_under_way = 0;
        RunEvent done = about(RunEventKind::PageDone, &doc, page.pageno);
        done.pages_done = pageindex;
        done.pages_total = selectedcount;
        log_.notify(done);
    }
}

void BatchRun::abandon_document(Document& doc)
{
    doc.outpdf.reset();
    drop_claim(doc);
    if (multitiff_ && multitiff_->is_open() && !snapshot_.mcombineall) {
        // The document's unfinished TIFF is discarded with its writer.
        multitiff_ = services_.multipage_tiff ? services_.multipage_tiff() : nullptr;
    }
}

BatchRun::PageWork BatchRun::page_at(const Document& doc, int pageindex) const
{
    PageWork page;
    page.pageindex = pageindex;
    page.pageno = doc.pagesarray[static_cast<std::size_t>(pageindex - 1)];
    page.first = pageindex == 1;
    page.last = pageindex == static_cast<int>(doc.pagesarray.size());
    return page;
}

NamingRequest BatchRun::naming_request(const Document& doc, const PageWork& page, OutputFormat format,
                                       const std::string& outputname) const
{
    return NamingRequest{snapshot_,
                         *doc.data,
                         filelist_.front(),
                         format_text(format),
                         page.pageno,
                         page.first,
                         doc.pagesarray.front(),
                         doc.pagesarray.back(),
                         doc.whole_document,
                         outputname,
                         &source_paths_,
                         doc.work_subfolder};
}

void BatchRun::run_page(Document& doc, PageWork& page)
{
    theimageformat_ = snapshot_.mformat;
    if (!doc.ispdf) {
        // The source's tags, as the last TIFF read left them, for the writers and the stamp.
        ccopyright_ = doc.tags.copyright;
        cdocumentname_ = doc.tags.document_name;
    }
    ++totalpage_;
    name_page(doc, page);
    if (page.first) {
        say(about(RunEventKind::DocumentStarted, &doc), doc.name() + " is being Processed");
    }
    if (!page.failed && holds_pdf(theimageformat_)) {
        add_to_pdf(doc, page);
    }
    if (doc.ispdf) {
        say(about(RunEventKind::PageStarted, &doc, page.pageno), "Page " + std::to_string(page.pageno) + " is being Processed ");
    } else if (page.first) {
        say(about(RunEventKind::PageStarted, &doc, page.pageno), "Page " + std::to_string(page.pageno) + " is being Processed");
    }
    if (aborted_) {
        // Abandoned before it is committed; its document is dropped.
        if (!page.encoded.empty()) {
            discard_temp(page.encoded);
        }
        return;
    }
    if (page.failed) {
        fail_page(doc, page.pageno, page.text);
    } else {
        output_stage(doc, page);
    }
    if (holds_pdf(theimageformat_)) {
        pdf_page_end(doc, page);
    }
    if (theimageformat_ == TiffMultipage && !snapshot_.mcombineall && page.last) {
        close_document_tiff(doc);
    }
    if (theimageformat_ == Text && page.last) {
        save_text(doc);
    }
}

void BatchRun::name_page(Document& doc, const PageWork& page)
{
    const NamingResult named = name_output(naming_request(doc, page, theimageformat_, outputname_));
    outputname_ = named.outputname;
    doc.outputpath = named.outputpath;
    doc.issinglepage = named.issinglepage;
    doc.numbered = named.numbered_when_taken;
    doc.number_stem = named.number_stem;
    const bool opens_output = theimageformat_ == PdfSinglePage || page.first;
    const bool combined_pdf = snapshot_.mcombineall && theimageformat_ == PdfMultipage;
    // Picture files are written ahead beside their names and need no claim, nor does a PDF that
    // may replace an earlier file: it is made and secured in one write under a temporary name
    // beside its own, which it takes only when complete. A numbered name is claimed, since it
    // is taken only while no file has it.
    const bool picture = theimageformat_ == Jpeg || theimageformat_ == Png || theimageformat_ == TiffSinglePage;
    if (opens_output && !combined_pdf && !picture && named.numbered_when_taken) {
        claim_output(doc, named.numbered_when_taken);
    }
    if (combined_pdf && page.first) {
        countlist_.push_back(doc.outputpath);
    }
    // The open step: a new PDF for every page of a single-page document, once for a multipage one.
    if (holds_pdf(theimageformat_) && opens_output) {
        doc.outpdf = services_.pdf_assembler ? services_.pdf_assembler(doc.write_path(), snapshot_) : nullptr;
    }
}

void BatchRun::add_to_pdf(Document& doc, PageWork& page)
{
    try {
        if (!doc.outpdf) {
            throw Error(ErrorKind::Unsupported, "PDF output is not available in this build");
        }
        if (doc.ispdf) {
            doc.outpdf->add_pdf_page(doc.path, doc.docpassword, page.pageno);
        } else {
            // Sized from the first image's resolution, one scale for both axes.
            const bool has_resolution = doc.tags.xres > 0 && doc.tags.yres > 0;
            const double pagexres = has_resolution ? doc.tags.xres : 72;
            doc.outpdf->add_image_page(page.picture, 72.0 / pagexres);
        }
    } catch (const Error& e) {
        page.failed = true;
        page.text = e.reason();
    }
}

void BatchRun::prepare_page(const Document& doc, PageWork& page) const
{
    if (aborted_) {
        page.failed = true; // never committed: the document is being abandoned
        return;
    }
    RenderRequest request;
    request.dpi = whole_val(snapshot_.mdotsperinch);
    request.zoom = zoom_;
    request.abort = &abort_flag_;
    const OutputFormat format = snapshot_.mformat;
    bool wants_picture = true;
    if (format == Jpeg) {
        request.jpeg_order = true;
    } else if (format == Png) {
        request.flatten = false;
    } else if (format == TiffMultipage) {
        request.flatten = snapshot_.mflattenpdf;
    } else if (holds_pdf(format)) {
        wants_picture = !doc.ispdf;   // PDF pages are copied, not rendered
        request.compressed_ok = true; // a PDF page carries G4 data as the TIFF holds it
    } else if (format == Text) {
        wants_picture = false;
    }
    try {
        if (page.pageno < 1 || page.pageno > doc.source->page_count()) {
            throw Error(ErrorKind::BadInput, "the document has " + std::to_string(doc.source->page_count()) +
                                                 (doc.source->page_count() == 1 ? " page" : " pages"));
        }
        if (wants_picture) {
            page.picture = doc.source->picture(page.pageno, request);
            encode_ahead(doc, page);
        } else if (format == Text && doc.ispdf) {
            page.text = doc.source->text(page.pageno);
        }
    } catch (const std::bad_alloc&) {
        page.failed = true;
        page.text = "not enough memory for the page";
    } catch (...) {
        page.failed = true;
        page.text = unexpected_reason(std::current_exception());
    }
}

} // namespace qf::engine
