// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_assembler.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <unistd.h>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFAcroFormDocumentHelper.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/program_location.h"
#include "engine/work_folder.h"
#include "writers/pdf/mapped_pdf.h"
#include "writers/pdf/pdf_conformance.h"
#include "writers/pdf/pdf_metadata.h"
#include "writers/pdf/pdf_page_image.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

using engine::Error;
using engine::ErrorKind;

// Flat page copies: annotations with an appearance become page content. Those that have
// none (links, for instance), page actions and the source's structure references are not
// carried over: they would pull objects of other pages into the output along with them.
constexpr const char *kKeysLeftBehind[] = {"/Annots", "/AA", "/StructParents", "/B"};

// Generated appearances of form fields fill in their text through a token filter that only
// runs when the stream is read from its own document; a page copied into another document
// would carry the empty stream. Reading each one once makes the text part of its data.
void bake_widget_appearances(QPDF &pdf, QPDFAcroFormDocumentHelper &forms)
{
    for (auto &page : QPDFPageDocumentHelper(pdf).getAllPages()) {
        for (auto &widget : forms.getWidgetAnnotationsForPage(page)) {
            QPDFObjectHandle appearance = widget.getAppearanceStream("/N");
            if (appearance.isStream()) {
                appearance.replaceStreamData(appearance.getStreamData(qpdf_dl_generalized),
                                             QPDFObjectHandle::newNull(),
                                             QPDFObjectHandle::newNull());
            }
        }
    }
}

// `map`: parse the file mapped into memory (see MappedPdf for when that is safe).
std::unique_ptr<MappedPdf> open_source(const std::filesystem::path &path, const std::string &password, bool map)
{
    std::unique_ptr<MappedPdf> pdf;
    try {
        pdf = std::make_unique<MappedPdf>(path, password, map);
    } catch (const QPDFExc &e) {
        if (e.getErrorCode() == qpdf_e_password) {
            throw Error(ErrorKind::Password, "the password does not open it", path);
        }
        throw Error(ErrorKind::Damaged, "not a readable PDF file", path);
    } catch (const std::exception &) {
        throw Error(ErrorKind::Damaged, "the file could not be read", path);
    }
    try {
        // Only annotations are flattened (form fields are widget annotations): a document
        // without any is spared the helpers' walk over every page and its form.
        const auto &pages = (*pdf)->getAllPages();
        if (std::none_of(pages.begin(), pages.end(), [](QPDFObjectHandle page) { return page.hasKey("/Annots"); })) {
            return pdf;
        }
        QPDFAcroFormDocumentHelper forms(**pdf);
        if (forms.getNeedAppearances()) {
            forms.generateAppearancesIfNeeded();
            bake_widget_appearances(**pdf, forms);
        }
        QPDFPageDocumentHelper(**pdf).flattenAnnotations();
    } catch (const std::exception &) {
        // Annotations that cannot be flattened are left out of the copy below; the page
        // itself is still worth having.
    }
    return pdf;
}

// A flattened source with the page list read once: a page copy picks its page by index.
struct OpenSource {
    std::unique_ptr<MappedPdf> pdf;
    std::vector<QPDFPageObjectHelper> pages;
    std::set<int> uncopyable; // pages a flattened copy stands in for with an empty page
};

// Opens the flattened copy a copier wrote, and removes its name at once: the open file is
// read until the output is written, and nothing is left behind however the program ends.
std::shared_ptr<OpenSource> open_copy(const std::filesystem::path &copy, FlattenedCopy copied,
                                      const std::filesystem::path &source)
{
    auto opened = std::make_shared<OpenSource>();
    try {
        opened->pdf = copied.in_memory.empty() ? std::make_unique<MappedPdf>(copy, "")
                                               : std::make_unique<MappedPdf>(std::move(copied.in_memory), copy);
        ::unlink(copy.c_str());
        opened->pages = QPDFPageDocumentHelper(**opened->pdf).getAllPages();
    } catch (const std::exception &) {
        ::unlink(copy.c_str());
        throw Error(ErrorKind::Damaged, "the copy of its pages could not be read", source);
    }
    if (opened->pages.size() != static_cast<std::size_t>(copied.page_count)) {
        throw Error(ErrorKind::Damaged, "the copy of its pages is incomplete", source);
    }
    opened->uncopyable.insert(copied.uncopyable.begin(), copied.uncopyable.end());
    return opened;
}

// Copies every page of `pdf` (flattened by open_source) into `flat`, an empty document, as
// pages of a one-level tree; a page that cannot be copied stands as an empty page.
FlattenedCopy build_flat(QPDF &pdf, const std::filesystem::path &source, QPDF &flat)
{
    std::vector<QPDFPageObjectHelper> pages;
    try {
        pages = QPDFPageDocumentHelper(pdf).getAllPages();
    } catch (const QPDFExc &e) {
        throw Error(ErrorKind::Damaged, e.getMessageDetail(), source);
    } catch (const std::exception &e) {
        throw Error(ErrorKind::Damaged, e.what(), source);
    }
    flat.emptyPDF();
    flat.setSuppressWarnings(true);
    FlattenedCopy copied;
    copied.page_count = static_cast<int>(pages.size());
    for (std::size_t index = 0; index < pages.size(); ++index) {
        QPDFObjectHandle page = pages[index].getObjectHandle();
        for (const char *key : kKeysLeftBehind) {
            page.removeKey(key); // on the source in memory; the file is never written
        }
        try {
            flat.addPage(page, false);
        } catch (const std::exception &) {
            copied.uncopyable.push_back(static_cast<int>(index) + 1);
            flat.addPage(flat.makeIndirectObject(
                             QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 1 1] >>")),
                         false);
        }
    }
    if (pages.empty()) {
        throw Error(ErrorKind::Damaged, "the document has no pages", source);
    }
    return copied;
}

// Writes `pdf` to `temp` as its output is delivered: document information, conformance and,
// when the order says so, what the security pass would make of it, in the one write.
engine::PdfClosed write_delivered(QPDF &pdf, const std::vector<bool> &image_pages,
                                  const std::string &minimum_version, const DeliveryOrder &order,
                                  const std::filesystem::path &temp)
{
    engine::PdfClosed closed;
    applydocinfo(pdf, order.snapshot);
    ConformanceRequest request;
    request.code = order.snapshot.mpdfversionnumber;
    request.icc_folder = order.resources / "icc";
    request.image_pages = image_pages;
    request.minimum_version = minimum_version;
    request.fallback_title = order.target.stem().string();
    const ConformanceResult result = applyconformance(pdf, request);
    closed.reasons = result.reasons;
    std::function<void(QPDFWriter &)> configure = [&](QPDFWriter &writer) {
        configure_writer(writer, result);
    };
    if (order.secured) {
        SecuredWrite pass = prepare_secured_write(pdf, order.snapshot, order.target, result.version);
        closed.lines = std::move(pass.lines);
        configure = std::move(pass.configure);
    }
    write_pdf_file(pdf, temp, configure);
    return closed;
}

// Sources opened for the assemblers of one factory. Each "PDF (Single Page)" file has an
// assembler of its own, so without this every page would parse and flatten its whole source
// again. The source used last stays open for the next assembler; a source whose file has
// changed since (size or time) or that is asked for with another password is opened anew.
class SourceCache
{
  public:
    SourceCache() = default;
    explicit SourceCache(PageCopier copier) : copier_(std::move(copier)) {}

    // `target`: the file being assembled, beside which the copy is made when the work folder
    // cannot be had.
    std::shared_ptr<OpenSource> open(const std::filesystem::path &path, const std::string &password,
                                     const std::filesystem::path &target)
    {
        const FileStamp stamp = stamp_of(path);
        const std::lock_guard lock(mutex_);
        if (recent_path_ == path && recent_password_ == password && recent_stamp_ == stamp) {
            if (recent_) {
                return recent_;
            }
            if (recent_failure_) {
                throw *recent_failure_;
            }
        }
        recent_.reset();
        recent_failure_.reset();
        recent_path_ = path;
        recent_password_ = password;
        recent_stamp_ = stamp;
        if (copier_) {
            try {
                recent_ = open_through_copier(path, password, target);
            } catch (const Error &error) {
                // Copying again would meet the same crash or time limit for every page.
                recent_failure_ = error;
                throw;
            }
            return recent_;
        }
        auto source = std::make_shared<OpenSource>();
        source->pdf = open_source(path, password, false); // a user's file, in this process
        source->pages = QPDFPageDocumentHelper(**source->pdf).getAllPages();
        recent_ = source;
        return source;
    }

  private:
    std::shared_ptr<OpenSource> open_through_copier(const std::filesystem::path &path,
                                                    const std::string &password,
                                                    const std::filesystem::path &target)
    {
        // A scratch folder of the work folder for as long as the copy is written and opened:
        // once open, the copy's name is removed, and the folder goes with it. Without a work
        // folder, a hidden one beside the output stands in.
        std::optional<engine::ScratchFolder> scratch;
        try {
            scratch.emplace();
        } catch (const Error &) {
            scratch.emplace(target);
        }
        const std::filesystem::path copy = scratch->path() / "copy.pdf";
        return open_copy(copy, copier_(path, password, copy), path);
    }

    PageCopier copier_;
    std::mutex mutex_;
    std::shared_ptr<OpenSource> recent_;
    std::optional<Error> recent_failure_;
    std::filesystem::path recent_path_;
    std::string recent_password_;
    FileStamp recent_stamp_;
};

class QpdfAssembler : public engine::PdfAssembler
{
  public:
    QpdfAssembler(std::filesystem::path target, const engine::OptionSnapshot &snapshot,
                  std::filesystem::path resources, std::shared_ptr<SourceCache> cache,
                  std::shared_ptr<const WorkerDelivery> delivery = nullptr)
        : target_(std::move(target)), snapshot_(snapshot), resources_(std::move(resources)),
          cache_(std::move(cache))
    {
        // A document's own file holds the pages of one source, which the worker that keeps
        // its flattened copy writes out itself; a one-page file shares its source with the
        // next ones, as copied here.
        if (delivery && snapshot_.mformat == engine::OutputFormat::PdfMultipage) {
            delivery_ = std::move(delivery);
        }
        output_.emptyPDF();
        output_.setSuppressWarnings(true);
        // Info and XMP objects are made while the document is empty, where a new object is
        // cheap; close() fills them in again.
        applydocinfo(output_, snapshot_);
    }

    void add_pdf_page(const std::filesystem::path &source, const std::string &password,
                      int pageno) override
    {
        if (delivery_ && image_pages_.empty() && !kept_) {
            keep(source, password);
        }
        if (kept_ && source == kept_source_ && password == kept_password_) {
            check_page(kept_->facts.page_count, kept_->facts.uncopyable, source, pageno);
            kept_pages_.push_back(pageno);
            image_pages_.push_back(false);
            return;
        }
        fall_back();
        copy_page(source, password, pageno);
    }

    void add_image_page(const engine::PagePicture &picture, double pagescale) override
    {
        fall_back();
        if (!spool_) {
            spool_ = std::make_shared<ImageSpool>(target_);
        }
        add_picture_page(output_, spool_, picture, pagescale);
        image_pages_.push_back(true);
        if (picture.format == engine::PixelFormat::Rgb8) {
            minimum_version_ = higher_version(minimum_version_, "1.2"); // the Flate filter
        }
    }

    int page_count() const override { return static_cast<int>(image_pages_.size()); }

    std::vector<std::string> close() override { return finish(false).reasons; }

    engine::PdfClosed close_secured() override { return finish(true); }

  private:
    template <typename Pages>
    static void check_page(int page_count, const Pages &uncopyable, const std::filesystem::path &source,
                           int pageno)
    {
        if (pageno < 1 || pageno > page_count) {
            throw Error(ErrorKind::BadInput, "the document has no page " + std::to_string(pageno),
                        source, pageno);
        }
        if (std::find(uncopyable.begin(), uncopyable.end(), pageno) != uncopyable.end()) {
            throw Error(ErrorKind::Damaged, "the page could not be copied", source, pageno);
        }
    }

    // Has the worker flatten `source` and keep the copy. A copy that failed for the
    // document's sake fails its later pages with the same error, without copying again.
    void keep(const std::filesystem::path &source, const std::string &password)
    {
        if (keep_failure_) {
            throw *keep_failure_;
        }
        try {
            kept_ = delivery_->keep(source, password);
        } catch (const Error &error) {
            keep_failure_ = error;
            throw;
        }
        kept_source_ = source;
        kept_password_ = password;
    }

    // Copies the pages taken so far from the worker's kept copy into this process's document
    // instead, from a copy of the file's own; later pages are copied here too.
    void fall_back()
    {
        if (!kept_) {
            return;
        }
        kept_.reset();
        delivery_.reset();
        image_pages_.clear();
        for (const int pageno : std::exchange(kept_pages_, {})) {
            copy_page(kept_source_, kept_password_, pageno);
        }
    }

    void copy_page(const std::filesystem::path &source, const std::string &password, int pageno)
    {
        const OpenSource &opened = source_document(source, password);
        check_page(static_cast<int>(opened.pages.size()), opened.uncopyable, source, pageno);
        QPDFObjectHandle page = opened.pages[static_cast<std::size_t>(pageno - 1)].getObjectHandle();
        for (const char *key : kKeysLeftBehind) {
            page.removeKey(key); // on the copy in memory; the source file is never written
        }
        try {
            output_.addPage(page, false);
        } catch (const std::exception &) {
            throw Error(ErrorKind::Damaged, "the page could not be copied", source, pageno);
        }
        image_pages_.push_back(false);
    }

    // Writes the file once: as it stands, or `secured` with what the security pass would make
    // of it, in the same write.
    engine::PdfClosed finish(bool secured)
    {
        if (image_pages_.empty()) {
            release();
            throw Error(ErrorKind::Output, "no page could be converted", target_);
        }
        const DeliveryOrder order{snapshot_, target_, resources_, secured};
        engine::PdfClosed closed;
        try {
            if (kept_ && deliver(order, closed)) {
                release();
                return closed;
            }
            engine::write_atomically(target_, [&](const std::filesystem::path &temp) {
                closed = write_delivered(output_, image_pages_, minimum_version_, order, temp);
            });
        } catch (...) {
            release();
            throw;
        }
        release();
        return closed;
    }

    // Has the worker that keeps the copy write the file. False when that worker has gone: the
    // pages have then been copied here instead.
    bool deliver(const DeliveryOrder &order, engine::PdfClosed &closed)
    {
        bool gone = false;
        try {
            engine::write_atomically(target_, [&](const std::filesystem::path &temp) {
                try {
                    closed = delivery_->deliver(*kept_, kept_pages_, order, temp);
                } catch (const CopyGone &) {
                    gone = true;
                    errno = 0; // not a storage failure
                    throw Error(ErrorKind::Output, "the kept copy has gone", temp);
                }
            });
        } catch (const Error &) {
            if (!gone) {
                throw;
            }
            fall_back();
            return false;
        }
        return true;
    }

    const OpenSource &source_document(const std::filesystem::path &path, const std::string &password)
    {
        auto &slot = sources_[path.lexically_normal()];
        if (!slot) {
            slot = cache_->open(path.lexically_normal(), password, target_);
        }
        return *slot;
    }

    // Sources and scratch data are needed until the file is written, no longer.
    void release()
    {
        spool_.reset();
        sources_.clear();
        kept_.reset();
    }

    std::filesystem::path target_;
    engine::OptionSnapshot snapshot_;
    std::filesystem::path resources_;
    QPDF output_;
    // The output's copied pages read their data from these sources when it is written.
    std::map<std::filesystem::path, std::shared_ptr<OpenSource>> sources_;
    std::shared_ptr<SourceCache> cache_;
    std::shared_ptr<ImageSpool> spool_;
    std::vector<bool> image_pages_; // by page: a picture page made here
    std::string minimum_version_ = "1.0";
    // Delivery by the worker: while kept_ is set, the pages taken so far are kept_pages_ of
    // the worker's copy of kept_source_, and output_ has none of them.
    std::shared_ptr<const WorkerDelivery> delivery_;
    std::optional<KeptCopy> kept_;
    std::optional<Error> keep_failure_;
    std::filesystem::path kept_source_;
    std::string kept_password_;
    std::vector<int> kept_pages_;
};

} // namespace

std::filesystem::path default_resources_folder()
{
    std::error_code ignored;
    const auto program = engine::program_file();
    const auto installed = program.parent_path().parent_path() / "share" / "quirefold";
    if (std::filesystem::is_directory(installed / "icc", ignored) ||
        (!program.empty() && !engine::runs_from_build_tree())) {
        return installed;
    }
#ifdef QF_SOURCE_RESOURCES
    return QF_SOURCE_RESOURCES;
#else
    return "resources";
#endif
}

std::unique_ptr<engine::PdfAssembler> make_pdf_assembler(const std::filesystem::path &target,
                                                         const engine::OptionSnapshot &snapshot,
                                                         const std::filesystem::path &resources)
{
    return std::make_unique<QpdfAssembler>(target, snapshot, resources, std::make_shared<SourceCache>());
}

std::unique_ptr<engine::PdfAssembler> make_pdf_assembler(const std::filesystem::path &target,
                                                         const engine::OptionSnapshot &snapshot)
{
    return make_pdf_assembler(target, snapshot, default_resources_folder());
}

FlattenedCopy write_flattened_copy(const std::filesystem::path &source, const std::string &password,
                                   const std::filesystem::path &copy, std::string *in_memory)
{
    // Only a reader worker copies a user's file, and it may be ended by a file cut short.
    const std::unique_ptr<MappedPdf> pdf = open_source(source, password, true);
    QPDF flat;
    FlattenedCopy copied = build_flat(**pdf, source, flat);
    const auto configure = [](QPDFWriter &writer) {
        writer.setDecodeLevel(qpdf_dl_none);
        writer.setCompressStreams(false);
        writer.setObjectStreamMode(qpdf_o_disable);
    };
    if (in_memory == nullptr) {
        write_pdf_file(flat, copy, configure);
        return copied;
    }
    QPDFWriter writer(flat);
    writer.setOutputMemory();
    configure(writer);
    writer.write();
    const auto buffer = writer.getBufferSharedPointer();
    in_memory->assign(reinterpret_cast<const char *>(buffer->getBuffer()), buffer->getSize());
    return copied;
}

engine::PdfAssemblerFactory pdf_assembler_factory(std::filesystem::path resources, PageCopier copier)
{
    return [resources = std::move(resources), cache = std::make_shared<SourceCache>(std::move(copier))](
               const std::filesystem::path &target, const engine::OptionSnapshot &snapshot) {
        return std::unique_ptr<engine::PdfAssembler>(
            std::make_unique<QpdfAssembler>(target, snapshot, resources, cache));
    };
}

engine::PdfAssemblerFactory pdf_assembler_factory(std::filesystem::path resources, PageCopier copier,
                                                  WorkerDelivery delivery)
{
    return [resources = std::move(resources), cache = std::make_shared<SourceCache>(std::move(copier)),
            delivery = std::make_shared<const WorkerDelivery>(std::move(delivery))](
               const std::filesystem::path &target, const engine::OptionSnapshot &snapshot) {
        return std::unique_ptr<engine::PdfAssembler>(
            std::make_unique<QpdfAssembler>(target, snapshot, resources, cache, delivery));
    };
}

engine::PdfAssemblerFactory pdf_assembler_factory(std::filesystem::path resources)
{
    return [resources = std::move(resources), cache = std::make_shared<SourceCache>()](
               const std::filesystem::path &target, const engine::OptionSnapshot &snapshot) {
        return std::unique_ptr<engine::PdfAssembler>(
            std::make_unique<QpdfAssembler>(target, snapshot, resources, cache));
    };
}

class HeldCopy
{
  public:
    std::unique_ptr<MappedPdf> source; // the flattened source the copy's pages read from
    QPDF flat;
};

void HeldCopyDeleter::operator()(HeldCopy *copy) const
{
    delete copy;
}

HeldCopyPtr hold_flattened_copy(const std::filesystem::path &source, const std::string &password,
                                FlattenedCopy &facts)
{
    HeldCopyPtr held(new HeldCopy);
    held->source = open_source(source, password, true);
    facts = build_flat(**held->source, source, held->flat);
    return held;
}

engine::PdfClosed deliver_held_copy(HeldCopy &copy, const std::vector<int> &pages, const DeliveryOrder &order,
                                    const std::filesystem::path &temp)
{
    QPDF &pdf = copy.flat;
    const std::vector<QPDFObjectHandle> all = pdf.getAllPages();
    bool in_order = pages.size() == all.size();
    for (std::size_t index = 0; in_order && index < pages.size(); ++index) {
        in_order = pages[index] == static_cast<int>(index) + 1;
    }
    if (!in_order) {
        // The page tree is one level deep: its kids are replaced by the chosen pages, a page
        // chosen again by a copy of its dictionary, as adding it to a document twice gives.
        QPDFObjectHandle tree = pdf.getRoot().getKey("/Pages");
        QPDFObjectHandle kids = QPDFObjectHandle::newArray();
        std::set<std::size_t> taken;
        for (const int pageno : pages) {
            if (pageno < 1 || static_cast<std::size_t>(pageno) > all.size()) {
                throw Error(ErrorKind::BadInput, "the document has no page " + std::to_string(pageno),
                            order.target, pageno);
            }
            const std::size_t index = static_cast<std::size_t>(pageno - 1);
            QPDFObjectHandle page = all[index];
            if (!taken.insert(index).second) {
                page = pdf.makeIndirectObject(page.shallowCopy());
            }
            page.replaceKey("/Parent", tree);
            kids.appendItem(page);
        }
        tree.replaceKey("/Kids", kids);
        tree.replaceKey("/Count", QPDFObjectHandle::newInteger(static_cast<long long>(pages.size())));
        pdf.updateAllPagesCache();
    }
    return write_delivered(pdf, std::vector<bool>(pages.size(), false), "1.0", order, temp);
}

} // namespace qf::writers::pdf
