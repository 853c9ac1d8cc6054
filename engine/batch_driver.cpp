// SPDX-License-Identifier: GPL-3.0-or-later
// processall: the worker's walk over the documents and their selected pages.
#include <deque>
#include <future>
#include <new>
#include <system_error>

#include "engine/batch_run.h"
#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/output_naming.h"
#include "engine/page_selection.h"
#include "engine/text_rules.h"
#include "engine/work_folder.h"
#include "engine/work_pool.h"

namespace qf::engine {
namespace fs = std::filesystem;

struct BatchRun::Document {
    int row = 0;
    const DocumentRow* data = nullptr;
    fs::path path;
    bool ispdf = false;
    std::string docpassword;
    int tiffcode = 1;
    std::vector<int> pagesarray;
    bool whole_document = false;
    std::unique_ptr<PageSource> source;
    SourceTags tags;
    std::unique_ptr<PdfAssembler> outpdf;
    bool issinglepage = false;
    std::string pagetext;
    std::string copyright;     // the Copyright and DocumentName tags its pages are written with:
    std::string document_name; // its own for a TIFF, the last TIFF's before it for a PDF
    fs::path outputpath;
    fs::path work_subfolder; // a combined PDF's per-document scratch folder
    // A private folder beside the output where its file is written (and secured) before it
    // takes its name, so that a failure leaves an earlier file of that name as it was; empty
    // when written in place.
    fs::path claim;
    bool claim_numbered = false; // the name is never to replace a file (the collision rule)
    int page_under_way = 0;      // the page being committed, for a failure that ends the document

    // The path the output is written to: outputpath, or the same name inside the claim.
    fs::path write_path() const { return claim.empty() ? outputpath : claim / outputpath.filename(); }

    const std::string& name() const { return (*data)[column::name]; }
};

struct BatchRun::PageWork {
    int pageindex = 1; // 1-based position in the selection
    int pageno = 1;    // the page's own number
    bool first = false;
    bool last = false;
    bool failed = false;
    PagePicture picture;
    std::string text;
    // A picture file written ahead under a temporary name beside its final one, or why not.
    fs::path encoded;
    std::string save_error;
    std::string deep_colour_error;
};

namespace {

using enum OutputFormat;

bool holds_pdf(OutputFormat format)
{
    return format == PdfMultipage || format == PdfSinglePage;
}

// The format's row text, as naming and the lines show it.
std::string format_text(OutputFormat format)
{
    return std::string(kImageFormatRows[static_cast<std::size_t>(format)]);
}

PageWriteContext write_context(const OptionSnapshot& snapshot, int tiffcode, const std::string& copyright,
                               const std::string& document_name)
{
    return PageWriteContext{snapshot, tiffcode, copyright, document_name};
}

// The reason an unexpected exception gives in a line: its message when it has one meant for
// people, never the name of a type.
std::string unexpected_reason(std::exception_ptr error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Error& e) {
        return e.reason();
    } catch (const std::bad_alloc&) {
        return "not enough memory";
    } catch (const std::exception& e) {
        const std::string what = e.what();
        if (!what.empty() && what.rfind("std::", 0) != 0) {
            return what;
        }
    } catch (...) {
    }
    return "an unexpected internal error";
}

} // namespace

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
    try {
        auto scratch = std::make_unique<ScratchFolder>();
        const std::lock_guard lock(scratch_mutex_);
        scratch_ = std::move(scratch);
    } catch (const Error& e) {
        fail(about(RunEventKind::Failed, nullptr), e.reason(), "The work folder could not be prepared: " + e.reason());
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
    int next = 1;
    for (int pageindex = 1; pageindex <= selectedcount && !aborted_; ++pageindex) {
        while (next <= selectedcount && next < pageindex + window) {
            PageWork page = page_at(doc, next++);
            if (!pool_) {
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
    const bool opens_output = theimageformat_ == PdfSinglePage || page.first;
    const bool combined_pdf = snapshot_.mcombineall && theimageformat_ == PdfMultipage;
    if (opens_output && !combined_pdf && (holds_pdf(theimageformat_) || named.numbered_when_taken)) {
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

void BatchRun::close_document_tiff(Document& doc)
{
    if (!multitiff_ || !multitiff_->is_open()) {
        return;
    }
    try {
        multitiff_->close();
        if (publish(doc)) {
            say(about(RunEventKind::TiffClosed, &doc), "Close TIFF");
            stamp(doc.outputpath);
        }
    } catch (const Error& e) {
        fail_save(&doc, outputname_, e.reason());
    }
}

void BatchRun::save_text(Document& doc)
{
    if (trim(doc.pagetext).empty()) {
        RunEvent event = about(RunEventKind::NoTextFound, &doc);
        event.line = "No Text Found";
        log_.replace(std::move(event));
        return;
    }
    try {
        if (!services_.write_text) {
            throw Error(ErrorKind::Unsupported, "TEXT output is not available in this build");
        }
        services_.write_text(doc.pagetext, doc.write_path());
        if (publish(doc)) {
            say(about(RunEventKind::Saved, &doc), doc.outputpath.string() + " has been Saved");
        }
    } catch (const Error& e) {
        fail_save(&doc, outputname_, e.reason());
    }
}

void BatchRun::prepare_page(const Document& doc, PageWork& page) const
{
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

void BatchRun::output_stage(Document& doc, PageWork& page)
{
    switch (theimageformat_) {
    case PdfMultipage:
    case PdfSinglePage:
        say(about(RunEventKind::PageAdded, &doc, page.pageno), "Page " + std::to_string(page.pageindex) + " Added to PDF");
        break;
    case Jpeg:
    case TiffSinglePage:
        write_picture_file(doc, page, true);
        break;
    case Png:
        write_picture_file(doc, page, false);
        break;
    case TiffMultipage:
        add_to_multipage_tiff(doc, page);
        break;
    case Text:
        doc.pagetext += page.text + "\n";
        break;
    }
}

void BatchRun::add_to_multipage_tiff(Document& doc, PageWork& page)
{
    try {
        if (!multitiff_) {
            throw Error(ErrorKind::Unsupported, "TIFF output is not available in this build");
        }
        const auto context = write_context(snapshot_, doc.tiffcode, ccopyright_, cdocumentname_);
        if (!snapshot_.mcombineall && page.first) {
            try {
                multitiff_->open(doc.write_path(), context);
            } catch (const Error& e) {
                fail_save(&doc, outputname_, e.reason());
                return;
            }
        }
        if (!multitiff_->is_open()) {
            return; // its failure to open is in the log already
        }
        multitiff_->add_page(page.picture, context);
        say(about(RunEventKind::PageAdded, &doc, page.pageno),
            "Page " + std::to_string(page.pageindex) + " Added to Multipage TIFF");
    } catch (const Error& e) {
        fail_page(doc, page.pageno, e.reason());
    }
}

void BatchRun::encode_ahead(const Document& doc, PageWork& page) const
{
    const OutputFormat format = snapshot_.mformat;
    const PictureFileWriter* writer = format == Jpeg             ? &services_.write_jpeg
                                      : format == Png            ? &services_.write_png
                                      : format == TiffSinglePage ? &services_.write_tiff_single
                                                                 : nullptr;
    if (writer == nullptr) {
        return;
    }
    if (!*writer) {
        page.save_error = (format == TiffSinglePage ? std::string("TIFF") : format_text(format)) +
                          " output is not available in this build";
        return;
    }
    // The name depends on nothing the commit changes, so the file can be written ahead under
    // a temporary name beside it; the commit only renames it.
    const fs::path target = name_output(naming_request(doc, page, format, {})).outputpath;
    fs::path temp;
    try {
        temp = sibling_temp_name(target);
        (*writer)(page.picture, temp, write_context(snapshot_, doc.tiffcode, doc.copyright, doc.document_name));
        if (format == TiffSinglePage && snapshot_.mcolordepth48 && services_.writergb48) {
            try {
                services_.writergb48(temp);
            } catch (const Error& e) {
                page.deep_colour_error = e.reason();
            }
        }
        page.encoded = temp;
    } catch (const Error& e) {
        if (!temp.empty()) {
            discard_temp(temp);
        }
        page.save_error = e.reason();
    }
    page.picture = {}; // the file holds it now
}

void BatchRun::write_picture_file(Document& doc, PageWork& page, bool stamp_it)
{
    if (!page.save_error.empty() || page.encoded.empty()) {
        fail_save(&doc, outputname_, page.save_error.empty() ? "nothing was written" : page.save_error);
        return;
    }
    try {
        commit_temp(page.encoded, doc.outputpath);
    } catch (const Error& e) {
        fail_save(&doc, outputname_, e.reason());
        return;
    }
    if (!page.deep_colour_error.empty()) {
        RunEvent event = about(RunEventKind::Warning, &doc, page.pageno);
        event.reason = page.deep_colour_error;
        say(std::move(event), outputname_ + " could not be rewritten at 16 bits: " + page.deep_colour_error);
    }
    if (stamp_it) {
        stamp(doc.outputpath);
    }
    say(about(RunEventKind::Saved, &doc, page.pageno), outputname_ + " has been Saved");
}

void BatchRun::pdf_page_end(Document& doc, PageWork& page)
{
    if (!doc.issinglepage) {
        return;
    }
    if (page.failed || !doc.outpdf) {
        doc.outpdf.reset();
        drop_claim(doc);
        return;
    }
    save_pdf(doc, std::move(doc.outpdf), true);
    totalpage_ = 0;
}

void BatchRun::document_end(Document& doc)
{
    if (!doc.issinglepage && holds_pdf(theimageformat_) && doc.outpdf) {
        // Every delivered PDF is secured; a combined run's per-document files wait for the merge.
        const bool secure = !(snapshot_.mcombineall && theimageformat_ == PdfMultipage);
        save_pdf(doc, std::move(doc.outpdf), secure);
        totalpage_ = 0;
    }
    drop_claim(doc); // what a failed write left there
    progressb_ = doc.row + 1;
}

void BatchRun::claim_output(Document& doc, bool numbered)
{
    drop_claim(doc);
    try {
        doc.claim = sibling_temp_folder(doc.outputpath);
        doc.claim_numbered = numbered;
    } catch (const Error&) {
        doc.claim.clear(); // written in place; a folder that cannot be written shows then
    }
}

void BatchRun::drop_claim(Document& doc)
{
    if (!doc.claim.empty()) {
        discard_temp_folder(doc.claim);
        doc.claim.clear();
    }
}

bool BatchRun::publish(Document& doc)
{
    if (doc.claim.empty()) {
        return true;
    }
    const fs::path written = doc.write_path();
    const std::string docbase = docbase_of(doc.name());
    const std::string docext = docext_of(format_text(theimageformat_));
    bool published = false;
    try {
        if (!doc.claim_numbered) {
            commit_temp(written, doc.outputpath);
        }
        // Another program may have taken the name since it was chosen: the next free one then.
        while (doc.claim_numbered && !commit_temp_if_free(written, doc.outputpath)) {
            outputname_ = free_numbered_name(docbase, docext, doc.outputpath.parent_path(), source_paths_);
            doc.outputpath = doc.outputpath.parent_path() / outputname_;
        }
        published = true;
    } catch (const Error& e) {
        fail_save(&doc, outputname_, e.reason());
        discard_temp(written);
    }
    drop_claim(doc);
    return published;
}

void BatchRun::save_pdf(Document& doc, std::unique_ptr<PdfAssembler> assembler, bool secure)
{
    std::vector<std::string> notes;
    try {
        notes = assembler->close();
    } catch (const Error& e) {
        fail_save(&doc, outputname_, e.reason());
        drop_claim(doc);
        return;
    }
    // The file is secured before it takes its name: a pass that fails delivers nothing and
    // leaves an earlier file of that name as it was.
    const std::string written_name = doc.write_path().filename().string();
    std::vector<std::string> extra;
    if (secure && services_.encryptpdfnow) {
        try {
            extra = services_.encryptpdfnow(doc.write_path(), snapshot_);
        } catch (const Error& e) {
            fail(about(RunEventKind::Failed, &doc), e.reason(), outputname_ + " could not be secured: " + e.reason());
            drop_claim(doc);
            return;
        }
    }
    if (!publish(doc)) {
        return;
    }
    say(about(RunEventKind::Saved, &doc), outputname_ + " has been Saved");
    log_pdf_notes(doc, notes, extra, written_name);
}

void BatchRun::log_pdf_notes(const Document& doc, const std::vector<std::string>& notes,
                             const std::vector<std::string>& extra, const std::string& written_name)
{
    const std::string level(conformance_name(snapshot_.mpdfversionnumber));
    for (const auto& note : notes) {
        RunEvent event = about(RunEventKind::NotConforming, &doc);
        event.reason = note;
        say(std::move(event), outputname_ + " does not conform to " + level + ": " + note);
    }
    for (const auto& line : extra) {
        // The pass names the file as it was written; it may have taken a numbered name since.
        const bool names_it = line.rfind(written_name + " ", 0) == 0;
        say(about(RunEventKind::NoLongerConforming, &doc), names_it ? outputname_ + line.substr(written_name.size()) : line);
    }
}

RunEvent BatchRun::about(RunEventKind kind, const Document* doc, int page) const
{
    RunEvent event;
    event.kind = kind;
    event.page = page;
    if (doc != nullptr) {
        event.row = doc->row;
        event.document = doc->name();
        event.output = doc->outputpath;
    }
    return event;
}

void BatchRun::say(RunEvent event, std::string line)
{
    event.line = std::move(line);
    log_.write(std::move(event));
}

void BatchRun::fail(RunEvent event, const std::string& reason, std::string line)
{
    ++failures_;
    event.reason = loggable(reason);
    say(std::move(event), std::move(line));
}

void BatchRun::fail_open(const Document& doc, const std::string& reason)
{
    fail(about(RunEventKind::Failed, &doc), reason, doc.name() + " could not be opened: " + reason);
}

void BatchRun::fail_page(const Document& doc, int pageno, const std::string& reason)
{
    fail(about(RunEventKind::Failed, &doc, pageno), reason,
         doc.name() + " page " + std::to_string(pageno) + " could not be converted: " + reason);
}

void BatchRun::fail_save(const Document* doc, const std::string& name, const std::string& reason)
{
    fail(about(RunEventKind::Failed, doc), reason, name + " could not be saved: " + reason);
}

} // namespace qf::engine
