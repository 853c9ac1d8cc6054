// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_merge.h"

#include <memory>
#include <utility>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>

#include "engine/error.h"
#include "engine/release_later.h"
#include "writers/pdf/mapped_pdf.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_conformance.h"
#include "writers/pdf/pdf_metadata.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

using engine::Error;
using engine::ErrorKind;

// One input of the merge, parsed from its file mapped into memory (the inputs are parts this
// program wrote): copied pages read their stream data from it when the merged file is written,
// and no descriptor stays open however many inputs there are.
using MergeInput = std::unique_ptr<MappedPdf>;

// Copies every page of `input` behind the pages of `output`; when one page cannot be copied,
// none is added. Returns the number of pages added.
std::size_t append_pages(QPDF& output, QPDF& input)
{
    input.pushInheritedAttributesToPage();
    std::vector<QPDFObjectHandle> copies;
    for (const auto& page : input.getAllPages()) {
        copies.push_back(output.copyForeignObject(page));
    }
    for (auto& copy : copies) {
        output.addPage(copy, false);
    }
    return copies.size();
}

// Opens an input and, unless it is the first, appends its pages to `base`. Returns the
// input, or an empty one when the file cannot be read as a PDF.
MergeInput merge_one(const std::filesystem::path& path, QPDF* base, std::size_t& page_total)
{
    MergeInput input;
    try {
        input = std::make_unique<MappedPdf>(path, "");
        page_total += base ? append_pages(*base, **input) : (*input)->getAllPages().size();
    } catch (const std::exception&) {
        return {};
    }
    return input;
}

std::vector<std::string> write_merged(std::vector<MergeInput>& opened, std::size_t page_total,
                                      const std::filesystem::path& target,
                                      const engine::OptionSnapshot& snapshot, bool secured);

// Merges `inputs` into `target`; `secured`, the write is the security pass's as well.
std::vector<std::string> merge(const std::vector<std::filesystem::path>& inputs,
                               const std::filesystem::path& target,
                               const engine::OptionSnapshot& snapshot,
                               const std::function<void(const std::filesystem::path&)>& merged,
                               bool secured)
{
    std::vector<MergeInput> opened;
    std::size_t page_total = 0;
    for (const auto& path : inputs) {
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(path, ignored)) {
            continue;
        }
        QPDF* base = opened.empty() ? nullptr : &**opened.front();
        MergeInput input = merge_one(path, base, page_total);
        if (!input) {
            continue;
        }
        opened.push_back(std::move(input));
        merged(path);
    }
    std::vector<std::string> lines = write_merged(opened, page_total, target, snapshot, secured);
    engine::release_later(std::move(opened));
    return lines;
}

// Writes the inputs merged into the first one to `target`.
std::vector<std::string> write_merged(std::vector<MergeInput>& opened, std::size_t page_total,
                                      const std::filesystem::path& target,
                                      const engine::OptionSnapshot& snapshot, bool secured)
{
    if (opened.empty() || page_total == 0) {
        throw Error(ErrorKind::Output, "no document could be merged", target);
    }

    // The first input is the base: its catalog, with XMP and OutputIntents, and its version
    // stay as they are.
    QPDF& base = **opened.front();
    const ConformanceClaim claim = conformance_claim(base, snapshot.mpdfversionnumber);
    try {
        // Each input chose the output intent its own pages needed. The first one's stays when
        // it fits every merged page; otherwise the merged file takes one that fits them all.
        // Should that fail, the security pass says which page does not fit.
        const ConformanceLevel level = claimed_level(base, snapshot.mpdfversionnumber);
        if (!output_intent_misfits(base, level).empty()) {
            fit_output_intent(base, level, default_resources_folder() / "icc");
        }
    } catch (const std::exception&) {
    }
    try {
        applydocinfo(base, snapshot);
    } catch (const Error&) {
        throw;
    } catch (const std::exception&) {
        throw Error(ErrorKind::Output, "the document information could not be set", target);
    }
    if (!secured) {
        write_pdf_atomically(base, target, [&](QPDFWriter& writer) {
            writer.setObjectStreamMode(claim.pdfa1 ? qpdf_o_disable : qpdf_o_preserve);
            writer.setNewlineBeforeEndstream(!claim.level.empty());
        });
        return {};
    }
    // The plain write would give the base's own version.
    SecuredWrite pass = prepare_secured_write(base, snapshot, target);
    write_pdf_atomically(base, target, pass.configure);
    return std::move(pass.lines);
}

} // namespace

void merge_pdfs(const std::vector<std::filesystem::path>& inputs,
                const std::filesystem::path& target, const engine::OptionSnapshot& snapshot,
                const std::function<void(const std::filesystem::path&)>& merged)
{
    merge(inputs, target, snapshot, merged, false);
}

std::vector<std::string> merge_and_secure(
    const std::vector<std::filesystem::path>& inputs, const std::filesystem::path& target,
    const engine::OptionSnapshot& snapshot,
    const std::function<void(const std::filesystem::path&)>& merged)
{
    return merge(inputs, target, snapshot, merged, true);
}

struct MergeAhead::Prepared {
    std::filesystem::path path;
    FileStamp stamp;
    MergeInput input; // empty when the part could not be read
    std::size_t pages = 0;
};

MergeAhead::MergeAhead() : thread_([this] { work(); }) {}

MergeAhead::~MergeAhead()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void MergeAhead::prepare(const std::filesystem::path& part, bool first)
{
    std::unique_lock lock(mutex_);
    if (first) {
        // An earlier run's parts: dropped once the thread has let go of them.
        queue_.clear();
        changed_.wait(lock, [this] { return !busy_; });
        if (!prepared_.empty()) {
            engine::release_later(std::exchange(prepared_, {}));
        }
    }
    queue_.push_back(part);
    changed_.notify_all();
}

void MergeAhead::work()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) {
            return;
        }
        auto prepared = std::make_unique<Prepared>();
        prepared->path = queue_.front();
        queue_.pop_front();
        QPDF* base = nullptr;
        for (const auto& earlier : prepared_) {
            if (earlier->input) {
                base = &**earlier->input;
                break;
            }
        }
        busy_ = true;
        lock.unlock();
        prepared->stamp = stamp_of(prepared->path);
        if (prepared->stamp.size > 0) {
            prepared->input = merge_one(prepared->path, base, prepared->pages);
        }
        lock.lock();
        busy_ = false;
        prepared_.push_back(std::move(prepared));
        changed_.notify_all();
    }
}

std::vector<std::string> MergeAhead::merge_and_secure(
    const std::vector<std::filesystem::path>& inputs, const std::filesystem::path& target,
    const engine::OptionSnapshot& snapshot,
    const std::function<void(const std::filesystem::path&)>& merged)
{
    std::vector<std::unique_ptr<Prepared>> prepared;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return queue_.empty() && !busy_; });
        prepared.swap(prepared_);
    }
    // What was merged ahead stands only for these very inputs, unchanged since.
    bool fits = prepared.size() == inputs.size();
    for (std::size_t index = 0; fits && index < inputs.size(); ++index) {
        fits = prepared[index]->path == inputs[index] && prepared[index]->stamp.size > 0 &&
               prepared[index]->stamp == stamp_of(inputs[index]);
    }
    if (!fits) {
        engine::release_later(std::move(prepared));
        return merge(inputs, target, snapshot, merged, true);
    }
    std::vector<MergeInput> opened;
    std::size_t page_total = 0;
    for (auto& part : prepared) {
        if (part->input) {
            opened.push_back(std::move(part->input));
            page_total += part->pages;
            merged(part->path);
        }
    }
    std::vector<std::string> lines = write_merged(opened, page_total, target, snapshot, true);
    engine::release_later(std::move(opened));
    return lines;
}

} // namespace qf::writers::pdf
