// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once
// The document and the page under way, and the small helpers the driver's files share. Only
// batch_driver.cpp and batch_outputs.cpp include it.

#include <exception>
#include <filesystem>
#include <new>
#include <string>

#include "engine/batch_run.h"
#include "engine/error.h"

namespace qf::engine {

struct BatchRun::Document {
    int row = 0;
    const DocumentRow* data = nullptr;
    std::filesystem::path path;
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
    std::filesystem::path outputpath;
    std::filesystem::path work_subfolder; // a combined PDF's per-document scratch folder
    // A private folder beside the output where a numbered file is written before it takes the
    // name, which it does only while no file has it; empty when written in place (a temporary
    // beside the name that takes it only when complete).
    std::filesystem::path claim;
    bool claim_numbered = false; // the name is never to replace a file (the collision rule)
    bool numbered = false;       // the same for the page under way, whether claimed or not
    std::string number_stem;     // what a renumbering starts from
    int page_under_way = 0;      // the page being committed, for a failure that ends the document

    // The path the output is written to: outputpath, or the same name inside the claim.
    std::filesystem::path write_path() const { return claim.empty() ? outputpath : claim / outputpath.filename(); }

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
    std::filesystem::path encoded;
    std::string save_error;
    std::string deep_colour_error;
};

namespace batch {

inline bool holds_pdf(OutputFormat format)
{
    return format == OutputFormat::PdfMultipage || format == OutputFormat::PdfSinglePage;
}

// The format's row text, as naming and the lines show it.
inline std::string format_text(OutputFormat format)
{
    return std::string(kImageFormatRows[static_cast<std::size_t>(format)]);
}

inline PageWriteContext write_context(const OptionSnapshot& snapshot, int tiffcode, const std::string& copyright,
                                      const std::string& document_name)
{
    return PageWriteContext{snapshot, tiffcode, copyright, document_name};
}

// The reason an unexpected exception gives in a line: its message when it has one meant for
// people, never the name of a type.
inline std::string unexpected_reason(std::exception_ptr error)
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

} // namespace batch
} // namespace qf::engine
