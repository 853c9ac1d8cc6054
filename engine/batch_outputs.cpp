// SPDX-License-Identifier: GPL-3.0-or-later
// The output stage of the driver: how a committed page reaches its file, how files take their
// names, and the log's events.
#include <system_error>

#include "engine/batch_run.h"

#include <utility>
#include "engine/batch_work.h"
#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/output_naming.h"
#include "engine/text_rules.h"

namespace qf::engine {
namespace fs = std::filesystem;
using namespace batch;
using enum OutputFormat;

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
        if (!doc.numbered) {
            commit_temp(page.encoded, doc.outputpath);
        }
        while (doc.numbered && !commit_temp_if_free(page.encoded, doc.outputpath)) {
            renumber(doc);
        }
    } catch (const Error& e) {
        discard_temp(page.encoded);
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

void BatchRun::renumber(Document& doc)
{
    outputname_ = free_numbered_name(doc.number_stem, docext_of(format_text(theimageformat_)),
                                     doc.outputpath.parent_path(), source_paths_);
    doc.outputpath = doc.outputpath.parent_path() / outputname_;
}

bool BatchRun::publish(Document& doc)
{
    if (doc.claim.empty()) {
        return true;
    }
    const fs::path written = doc.write_path();
    bool published = false;
    try {
        if (!doc.claim_numbered) {
            commit_temp(written, doc.outputpath);
        }
        // Another program may have taken the name since it was chosen: the next free one then.
        while (doc.claim_numbered && !commit_temp_if_free(written, doc.outputpath)) {
            renumber(doc);
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
    // A delivered file is secured in the write that makes it, before it takes its name: a
    // write that fails delivers nothing and leaves an earlier file of that name as it was.
    const std::string written_name = doc.write_path().filename().string();
    PdfClosed closed;
    try {
        if (secure) {
            closed = assembler->close_secured();
        } else {
            closed.reasons = assembler->close();
        }
    } catch (const Error& e) {
        fail_save(&doc, outputname_, e.reason());
        drop_claim(doc);
        return;
    }
    if (!publish(doc)) {
        return;
    }
    if (!secure && services_.part_written) {
        services_.part_written(doc.outputpath, !std::exchange(part_written_, true));
    }
    say(about(RunEventKind::Saved, &doc), outputname_ + " has been Saved");
    log_pdf_notes(doc, closed.reasons, closed.lines, written_name);
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
