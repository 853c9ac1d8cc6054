// SPDX-License-Identifier: GPL-3.0-or-later
// processall: the worker's walk over the documents and their selected pages.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <future>
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

bool holds_pdf(const std::string& format)
{
    return format.find("PDF") != std::string::npos;
}

PageWriteContext write_context(const OptionSnapshot& snapshot, int tiffcode, const std::string& copyright,
                               const std::string& document_name)
{
    return PageWriteContext{snapshot, tiffcode, copyright, document_name};
}

} // namespace

void BatchRun::processall()
{
    isrunning_ = true;
    zoom_ = whole_val(snapshot_.mzoomfactor);
    try {
        scratch_ = std::make_unique<ScratchFolder>();
    } catch (const Error& e) {
        scratch_.reset();
        fail(std::string("The work folder could not be prepared: ") + e.reason());
    }
    multitiff_ = services_.multipage_tiff ? services_.multipage_tiff() : nullptr;
    pool_ = jobs_ > 1 ? std::make_unique<WorkPool>(jobs_) : nullptr;
    if (snapshot_.mimageformat == kTiffMultipage && snapshot_.mcombineall) {
        open_combined_tiff();
    }
    for (int row = 0; row <= llistcount_; ++row) {
        if (pleasestop_) {
            log_.line("Processing Terminated by User ");
            break;
        }
        run_document(row);
    }
    combined_tail();
    pool_.reset();
    multitiff_.reset();
    stamper_.reset();
    scratch_.reset();
    {
        const std::lock_guard lock(finished_mutex_);
        boliao_ = true;
    }
    finished_.notify_all();
}

void BatchRun::run_document(int row)
{
    Document doc;
    doc.row = row;
    doc.data = &filelist_[static_cast<std::size_t>(row)];
    const DocumentRow& data = *doc.data;
    doc.path = fs::path(data[column::folder]) / data[column::name];
    std::error_code error;
    if (!fs::exists(doc.path, error)) {
        fail(doc.name() + " cannot be processed as it could have been moved or deleted");
        return;
    }
    doc.docpassword = data[column::password];
    doc.tiffcode = tiff_compression_code(snapshot_.mtiffcompression);
    doc.pagesarray = threadgetpages(data, snapshot_.musepageranges);
    if (doc.pagesarray.empty()) {
        fail(doc.name() + " could not be opened: no pages are selected");
        return;
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
        fail(doc.name() + " could not be opened: " + (error_with_reason ? error_with_reason->reason() : e.what()));
        return;
    }
    if (snapshot_.mcombineall && snapshot_.mimageformat == kPdfMultipage && scratch_) {
        doc.work_subfolder = scratch_->path() / ("document-" + std::to_string(row + 1));
        fs::create_directories(doc.work_subfolder, error);
    }
    // Pages are prepared (decoded, rendered, read) ahead on other threads, a bounded number at
    // a time, and committed here strictly in selection order.
    const int selectedcount = static_cast<int>(doc.pagesarray.size());
    const int window = jobs_ <= 1 ? 1 : jobs_ + 1;
    std::deque<std::future<PageWork>> ahead;
    // Pages still being prepared refer to `doc`; however the loop is left, they finish first.
    struct WaitForPages {
        std::deque<std::future<PageWork>>& ahead;
        ~WaitForPages()
        {
            for (auto& page : ahead) {
                if (page.valid()) {
                    page.wait();
                }
            }
        }
    } wait_for_pages{ahead};
    int next = 1;
    for (int pageindex = 1; pageindex <= selectedcount; ++pageindex) {
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
        run_page(doc, page);
    }
    document_end(doc);
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

NamingRequest BatchRun::naming_request(const Document& doc, const PageWork& page, const std::string& format,
                                       const std::string& outputname) const
{
    return NamingRequest{snapshot_,
                         *doc.data,
                         filelist_.front(),
                         format,
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
    theimageformat_ = snapshot_.mimageformat;
    if (!doc.ispdf) {
        // The source's tags, as the last TIFF read left them, for the writers and the stamp.
        ccopyright_ = doc.tags.copyright;
        cdocumentname_ = doc.tags.document_name;
    }
    ++totalpage_;

    const NamingResult named = name_output(naming_request(doc, page, theimageformat_, outputname_));
    outputname_ = named.outputname;
    doc.outputpath = named.outputpath;
    doc.issinglepage = named.issinglepage;
    const bool opens_output = theimageformat_ == kPdfSinglePage || page.first;
    const bool combined_pdf = snapshot_.mcombineall && theimageformat_ == kPdfMultipage;
    if (opens_output && !combined_pdf && (holds_pdf(theimageformat_) || named.numbered_when_taken)) {
        claim_output(doc, named.numbered_when_taken);
    }
    if (snapshot_.mcombineall && theimageformat_ == kPdfMultipage && page.first) {
        countlist_.push_back(doc.outputpath);
    }

    // The open step: a new PDF for every page of a single-page document, once for a multipage one.
    if (holds_pdf(theimageformat_) && (theimageformat_ == kPdfSinglePage || page.first)) {
        doc.outpdf = services_.pdf_assembler ? services_.pdf_assembler(doc.write_path(), snapshot_) : nullptr;
    }

    if (page.first) {
        log_.line(doc.name() + " is being Processed");
    }
    if (!page.failed && holds_pdf(theimageformat_)) {
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
    if (doc.ispdf) {
        log_.line("Page " + std::to_string(page.pageno) + " is being Processed ");
    } else if (page.first) {
        log_.line("Page " + std::to_string(page.pageno) + " is being Processed");
    }
    if (page.failed) {
        fail(doc.name() + " page " + std::to_string(page.pageno) + " could not be converted: " + page.text);
    } else {
        output_stage(doc, page);
    }
    if (holds_pdf(theimageformat_)) {
        pdf_page_end(doc, page);
    }
    if (theimageformat_ == kTiffMultipage && !snapshot_.mcombineall && page.last && multitiff_ &&
        multitiff_->is_open()) {
        try {
            multitiff_->close();
            if (publish(doc)) {
                log_.line("Close TIFF");
                stamp(doc.outputpath);
            }
        } catch (const Error& e) {
            fail(outputname_ + " could not be saved: " + e.reason());
        }
    }
    if (theimageformat_ == kText && page.last) {
        if (trim(doc.pagetext).empty()) {
            log_.replace("No Text Found");
        } else {
            try {
                write_atomically(doc.write_path(), [&](const fs::path& temp) {
                    std::FILE* file = std::fopen(temp.c_str(), "wb");
                    if (file == nullptr) {
                        throw Error(ErrorKind::Output, std::strerror(errno));
                    }
                    const bool written =
                        std::fwrite(doc.pagetext.data(), 1, doc.pagetext.size(), file) == doc.pagetext.size() &&
                        std::fflush(file) == 0;
                    const int write_error = errno;
                    if (std::fclose(file) != 0 || !written) {
                        throw Error(ErrorKind::Output, std::strerror(written ? errno : write_error));
                    }
                });
                if (publish(doc)) {
                    log_.line(doc.outputpath.string() + " has been Saved");
                }
            } catch (const Error& e) {
                fail(outputname_ + " could not be saved: " + e.reason());
            }
        }
    }
}

void BatchRun::prepare_page(const Document& doc, PageWork& page) const
{
    RenderRequest request;
    request.dpi = whole_val(snapshot_.mdotsperinch);
    request.zoom = zoom_;
    const std::string& format = snapshot_.mimageformat;
    bool wants_picture = false;
    if (format == kJpeg) {
        request.jpeg_order = true;
        wants_picture = true;
    } else if (format == kPng) {
        request.flatten = false;
        wants_picture = true;
    } else if (format == kTiffSinglePage) {
        wants_picture = true;
    } else if (format == kTiffMultipage) {
        request.flatten = snapshot_.mflattenpdf;
        wants_picture = true;
    } else if (holds_pdf(format)) {
        wants_picture = !doc.ispdf; // PDF pages are copied, not rendered
        request.compressed_ok = true; // a PDF page carries G4 data as the TIFF holds it
    }
    try {
        if (page.pageno < 1 || page.pageno > doc.source->page_count()) {
            throw Error(ErrorKind::BadInput, "the document has " + std::to_string(doc.source->page_count()) +
                                                 (doc.source->page_count() == 1 ? " page" : " pages"));
        }
        if (wants_picture) {
            page.picture = doc.source->picture(page.pageno, request);
            encode_ahead(doc, page);
        } else if (format == kText && doc.ispdf) {
            page.text = doc.source->text(page.pageno);
        }
    } catch (const Error& e) {
        page.failed = true;
        page.text = e.reason();
    } catch (const std::bad_alloc&) {
        page.failed = true;
        page.text = "not enough memory for the page";
    } catch (const std::exception& e) {
        page.failed = true;
        page.text = e.what();
    }
}

void BatchRun::output_stage(Document& doc, PageWork& page)
{
    const std::string& format = theimageformat_;
    const std::string index = std::to_string(page.pageindex);
    if (holds_pdf(format)) {
        log_.line("Page " + index + " Added to PDF");
    } else if (format == kJpeg) {
        write_picture_file(doc, page, true);
    } else if (format == kPng) {
        write_picture_file(doc, page, false);
    } else if (format == kTiffSinglePage) {
        write_picture_file(doc, page, true);
    } else if (format == kTiffMultipage) {
        try {
            if (!multitiff_) {
                throw Error(ErrorKind::Unsupported, "TIFF output is not available in this build");
            }
            const auto context = write_context(snapshot_, doc.tiffcode, ccopyright_, cdocumentname_);
            if (!snapshot_.mcombineall && page.first) {
                try {
                    multitiff_->open(doc.write_path(), context);
                } catch (const Error& e) {
                    fail(outputname_ + " could not be saved: " + e.reason());
                    return;
                }
            }
            if (!multitiff_->is_open()) {
                return; // its failure to open is in the log already
            }
            multitiff_->add_page(page.picture, context);
            log_.line("Page " + index + " Added to Multipage TIFF");
        } catch (const Error& e) {
            fail(doc.name() + " page " + std::to_string(page.pageno) + " could not be converted: " + e.reason());
        }
    } else if (format == kText) {
        doc.pagetext += page.text + "\n";
    }
}

void BatchRun::encode_ahead(const Document& doc, PageWork& page) const
{
    const std::string& format = snapshot_.mimageformat;
    const PictureFileWriter* writer = format == kJpeg              ? &services_.write_jpeg
                                      : format == kPng             ? &services_.write_png
                                      : format == kTiffSinglePage ? &services_.write_tiff_single
                                                                   : nullptr;
    if (writer == nullptr) {
        return;
    }
    if (!*writer) {
        page.save_error = (format == kTiffSinglePage ? std::string("TIFF") : format) + " output is not available in this build";
        return;
    }
    // The name depends on nothing the commit changes, so the file can be written ahead under
    // a temporary name beside it; the commit only renames it.
    const fs::path target = name_output(naming_request(doc, page, format, {})).outputpath;
    fs::path temp;
    try {
        temp = sibling_temp_name(target);
        (*writer)(page.picture, temp, write_context(snapshot_, doc.tiffcode, doc.copyright, doc.document_name));
        if (format == kTiffSinglePage && snapshot_.mcolordepth48 && services_.writergb48) {
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
        fail(outputname_ + " could not be saved: " + (page.save_error.empty() ? "nothing was written" : page.save_error));
        return;
    }
    try {
        commit_temp(page.encoded, doc.outputpath);
    } catch (const Error& e) {
        fail(outputname_ + " could not be saved: " + e.reason());
        return;
    }
    if (!page.deep_colour_error.empty()) {
        log_.line(outputname_ + " could not be rewritten at 16 bits: " + page.deep_colour_error);
    }
    if (stamp_it) {
        stamp(doc.outputpath);
    }
    log_.line(outputname_ + " has been Saved");
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
        const bool secure = !(snapshot_.mcombineall && theimageformat_ == kPdfMultipage);
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
    const std::string docext = docext_of(theimageformat_);
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
        fail(outputname_ + " could not be saved: " + e.reason());
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
        fail(outputname_ + " could not be saved: " + e.reason());
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
            fail(outputname_ + " could not be secured: " + e.reason());
            drop_claim(doc);
            return;
        }
    }
    if (!publish(doc)) {
        return;
    }
    log_.line(outputname_ + " has been Saved");
    const std::string level(conformance_name(snapshot_.mpdfversionnumber));
    for (const auto& note : notes) {
        log_.line(outputname_ + " does not conform to " + level + ": " + note);
    }
    for (const auto& line : extra) {
        // The pass names the file as it was written; it may have taken a numbered name since.
        const bool names_it = line.rfind(written_name + " ", 0) == 0;
        log_.line(names_it ? outputname_ + line.substr(written_name.size()) : line);
    }
}

} // namespace qf::engine
