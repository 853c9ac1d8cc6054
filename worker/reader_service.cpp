// SPDX-License-Identifier: GPL-3.0-or-later
#include "worker/reader_service.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cerrno>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <system_error>
#include <thread>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <tiffio.h>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "sources/pdf_mupdf.h"
#include "sources/pdf_source.h"
#include "sources/tiff_source.h"
#include "worker/picture_reduction.h"
#include "writers/pdf/pdf_assembler.h"

namespace qf::worker {
namespace {

using engine::Error;
using engine::ErrorKind;

// Open documents kept between requests; the least recently used goes first.
constexpr std::size_t kKeptDocuments = 4;
// Copies kept for deliveries: the document being written and the next one.
constexpr std::size_t kHeldCopies = 2;

// What tells one file on disk from another that has taken its name or been rewritten.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};

    bool operator==(const FileIdentity& other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
    }
};

bool identify(const std::filesystem::path& path, FileIdentity& identity)
{
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0) {
        return false;
    }
    identity = {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    return true;
}

std::string document_key(const DocumentRef& ref)
{
    std::string key;
    key += static_cast<char>(ref.kind);
    for (const std::string& part : {ref.document.path.native(), ref.document.password, ref.document.tile_marker}) {
        key += std::to_string(part.size()) + ':' + part;
    }
    return key;
}

// Opens a PDF for page copies and walks its page tree. Throws Error(Damaged) with the
// reader's reason.
std::unique_ptr<QPDF> open_copier(const engine::DocumentToOpen& document)
{
    auto copier = std::make_unique<QPDF>();
    copier->setSuppressWarnings(true);
    std::size_t pages = 0;
    try {
        copier->processFile(document.path.c_str(), document.password.c_str());
        pages = copier->getAllPages().size();
    } catch (const QPDFExc& error) {
        throw Error(ErrorKind::Damaged, error.getMessageDetail(), document.path);
    } catch (const std::runtime_error& error) {
        throw Error(ErrorKind::Damaged, error.what(), document.path);
    }
    if (pages == 0) {
        throw Error(ErrorKind::Damaged, "the document has no pages", document.path);
    }
    return copier;
}

int quiet_tiff_handler(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

TIFF* open_tiff_quietly(const std::string& path, const char* mode)
{
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, quiet_tiff_handler, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, quiet_tiff_handler, nullptr);
    TIFF* tiff = TIFFOpenExt(path.c_str(), mode, options);
    TIFFOpenOptionsFree(options);
    return tiff;
}

// The size of image pageno - 1 as the TIFF page source shows it, read from its tags alone:
// an Orientation of 5 to 8 turns the image, its sides and resolutions swapping.
PageFacts tiff_facts(const engine::DocumentToOpen& document, int pageno)
{
    TIFF* tiff = open_tiff_quietly(document.path.native(), "r");
    if (tiff == nullptr) {
        throw Error(ErrorKind::Damaged, "not a readable TIFF", document.path);
    }
    const std::unique_ptr<TIFF, void (*)(TIFF*)> closer(tiff, TIFFClose);
    const int images = static_cast<int>(TIFFNumberOfDirectories(tiff));
    if (pageno > images) {
        throw Error(ErrorKind::BadInput,
                    "the document has only " + std::to_string(images) + (images == 1 ? " page" : " pages"),
                    document.path, pageno);
    }
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    if (!TIFFSetDirectory(tiff, static_cast<tdir_t>(pageno - 1)) ||
        TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) != 1 || TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height) != 1 ||
        width == 0 || height == 0) {
        throw Error(ErrorKind::Damaged, "the image has no size", document.path, pageno);
    }
    PageFacts facts{static_cast<double>(width), static_cast<double>(height), 0, 0, 0};
    float xres = 0;
    float yres = 0;
    std::uint16_t unit = RESUNIT_INCH;
    const bool has_x = TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &xres) == 1;
    const bool has_y = TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &yres) == 1;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (has_x && has_y && unit != RESUNIT_NONE && std::isfinite(xres) && std::isfinite(yres) && xres > 0 &&
        yres > 0) {
        const double factor = unit == RESUNIT_CENTIMETER ? 2.54 : 1.0;
        facts.xres = std::min(xres * factor, kMaxResolution);
        facts.yres = std::min(yres * factor, kMaxResolution);
    }
    std::uint16_t orientation = ORIENTATION_TOPLEFT;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
    if (orientation >= ORIENTATION_LEFTTOP && orientation <= ORIENTATION_LEFTBOT) {
        std::swap(facts.width, facts.height);
        std::swap(facts.xres, facts.yres);
    }
    return facts;
}

} // namespace

struct ReaderService::OpenDocument {
    std::string key;
    FileIdentity identity;
    std::unique_ptr<engine::PageSource> source;
    std::unique_ptr<QPDF> copier; // open for page copies when the run asked for them
    std::uint64_t last_use = 0;
};

ReaderService::ReaderService(std::size_t memory_limit_mb) : memory_limit_mb_(memory_limit_mb) {}

ReaderService::~ReaderService() = default;

ReaderService::OpenDocument& ReaderService::document(const DocumentRef& ref)
{
    // A file that cannot be looked at is never taken from the kept ones; the reader's own
    // opener then says what is wrong with it.
    FileIdentity identity;
    const bool identified = identify(ref.document.path, identity);
    const std::string key = document_key(ref);
    auto kept = std::find_if(documents_.begin(), documents_.end(),
                             [&](const auto& open) { return open->key == key; });
    if (kept != documents_.end() && (!identified || !((*kept)->identity == identity))) {
        documents_.erase(kept);
        kept = documents_.end();
    }
    if (kept == documents_.end()) {
        auto opened = std::make_unique<OpenDocument>();
        opened->key = key;
        opened->identity = identity;
        opened->source = ref.kind == DocumentKind::Pdf ? sources::open_pdf_source(ref.document)
                                                       : sources::open_tiff_source(ref.document);
        if (documents_.size() >= kKeptDocuments) {
            documents_.erase(std::min_element(documents_.begin(), documents_.end(),
                                              [](const auto& a, const auto& b) { return a->last_use < b->last_use; }));
        }
        documents_.push_back(std::move(opened));
        kept = documents_.end() - 1;
    }
    OpenDocument& open = **kept;
    open.last_use = ++uses_;
    if (ref.copies_pages && ref.kind == DocumentKind::Pdf && !open.copier) {
        open.copier = open_copier(ref.document);
    }
    return open;
}

Frame ReaderService::open(const DocumentRef& ref)
{
    OpenDocument& open = document(ref);
    return encode_opened({open.source->page_count(), open.source->tags()});
}

Frame ReaderService::picture(const PictureCall& call, int region)
{
    engine::PagePicture picture = document(call.document).source->picture(call.pageno, call.request);
    if (call.reduce_factor > 1) {
        picture = reduce_picture(engine::to_rgb(picture), call.reduce_factor);
    }
    PictureHeader header;
    header.width = picture.width;
    header.height = picture.height;
    header.format = picture.format;
    header.pixel_bytes = picture.pixels.size();
    if (picture.compressed) {
        header.has_compressed = true;
        header.black_is_1 = picture.compressed->black_is_1;
        header.compressed_bytes = picture.compressed->data.size();
    }
    if (header.total_bytes() > kPictureRegionBytes) {
        throw Error(ErrorKind::Unsupported, "the page is too large to hand over", call.document.document.path,
                    call.pageno);
    }
    if (header.total_bytes() > region_size(region)) {
        header.in_frame = true;
        header.frame_bytes.assign(picture.pixels.begin(), picture.pixels.end());
        if (picture.compressed) {
            header.frame_bytes.append(picture.compressed->data.begin(), picture.compressed->data.end());
        }
        return encode_picture_ready(header);
    }
    write_region(region, 0, picture.pixels.data(), picture.pixels.size());
    if (picture.compressed) {
        write_region(region, picture.pixels.size(), picture.compressed->data.data(),
                     picture.compressed->data.size());
    }
    return encode_picture_ready(header);
}

Frame ReaderService::text(const TextCall& call)
{
    return encode_text_ready(document(call.document).source->text(call.pageno));
}

Frame ReaderService::copy_pages(const CopyCall& call)
{
    if (call.document.kind != DocumentKind::Pdf) {
        throw ProtocolError("pages are copied from PDFs only");
    }
    const auto& document = call.document.document;
    writers::pdf::FlattenedCopy copied;
    if (call.keep) {
        HeldCopy held{++tokens_, writers::pdf::hold_flattened_copy(document.path, document.password, copied)};
        if (held_.size() >= kHeldCopies) {
            held_.erase(held_.begin());
        }
        held_.push_back(std::move(held));
        return encode_pages_copied({copied.page_count, copied.uncopyable, {}, tokens_,
                                    static_cast<std::uint32_t>(::getpid())});
    }
    try {
        copied = writers::pdf::write_flattened_copy(document.path, document.password, call.target);
    } catch (const Error& error) {
        if (error.kind() != ErrorKind::Output || error.reason() != std::strerror(EFBIG)) {
            throw;
        }
        // Under a file size limit too low for the copy, it travels in the reply instead.
        std::error_code ignored;
        std::filesystem::remove(call.target, ignored);
        std::string in_memory;
        copied = writers::pdf::write_flattened_copy(document.path, document.password, call.target, &in_memory);
        if (in_memory.size() > kMaxPayloadBytes - 1024) {
            throw;
        }
        copied.in_memory = std::move(in_memory);
    }
    return encode_pages_copied({copied.page_count, copied.uncopyable, std::move(copied.in_memory)});
}

Frame ReaderService::deliver(const DeliverCall& call)
{
    const auto kept = std::find_if(held_.begin(), held_.end(),
                                   [&](const HeldCopy& held) { return held.token == call.token; });
    if (kept == held_.end()) {
        return encode_failed({ErrorKind::Output, kCopyNotKept});
    }
    writers::pdf::HeldCopyPtr copy = std::move(kept->copy); // used up by the write
    held_.erase(kept);
    // Freeing a large document's objects takes as long as a good part of its write: it is
    // done beside the reply rather than before it.
    struct FreeAside {
        writers::pdf::HeldCopyPtr& copy;
        ~FreeAside() { std::thread([spent = std::move(copy)]() mutable { spent.reset(); }).detach(); }
    } free_aside{copy};
    const writers::pdf::DeliveryOrder order{call.snapshot, call.target, call.resources, call.secured};
    engine::PdfClosed closed;
    errno = 0;
    try {
        closed = writers::pdf::deliver_held_copy(*copy, call.pages, order, call.temp);
    } catch (const Error& error) {
        const std::string storage = engine::storage_failure(errno);
        throw Error(ErrorKind::Output, storage.empty() ? error.reason() : storage, call.temp);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        const std::string storage = engine::storage_failure(errno);
        throw Error(ErrorKind::Output, storage.empty() ? error.what() : storage, call.temp);
    }
    return encode_delivered({std::move(closed.reasons), std::move(closed.lines)});
}

Frame ReaderService::page_facts(const PageFactsCall& call)
{
    if (call.document.kind == DocumentKind::Tiff) {
        return encode_page_facts_ready(tiff_facts(call.document.document, call.pageno));
    }
    const sources::PageBox box = sources::pdf_page_box(*document(call.document).source, call.pageno);
    if (!(box.width() > 0 && box.width() <= kMaxPageSide && box.height() > 0 && box.height() <= kMaxPageSide)) {
        throw Error(ErrorKind::Damaged, "the page has no size", call.document.document.path, call.pageno);
    }
    return encode_page_facts_ready({box.width(), box.height(), box.rotation, 0, 0});
}

Frame ReaderService::answer(const Frame& request, int region)
{
    const bool page_request = request.type == MessageType::Picture || request.type == MessageType::Text ||
                              request.type == MessageType::PageFacts;
    try {
        switch (request.type) {
        case MessageType::Open:
            return open(decode_open(request));
        case MessageType::Picture:
            return picture(decode_picture(request), region);
        case MessageType::Text:
            return text(decode_text(request));
        case MessageType::ProbePdf: {
            const auto [path, password] = decode_probe_pdf(request);
            return encode_pdf_probed(probe_pdf_file(path, password));
        }
        case MessageType::ProbeTiff:
            return encode_tiff_probed(probe_tiff_file(decode_probe_tiff(request)));
        case MessageType::CopyPages:
            return copy_pages(decode_copy_pages(request));
        case MessageType::PageFacts:
            return page_facts(decode_page_facts(request));
        case MessageType::Deliver:
            return deliver(decode_deliver(request));
        default:
            throw ProtocolError("not a request");
        }
    } catch (const Error& error) {
        return encode_failed({error.kind(), error.reason()});
    } catch (const std::bad_alloc&) {
        documents_.clear();
        held_.clear();
        return encode_failed({ErrorKind::Unsupported,
                              std::string(page_request ? "the page" : "the document") +
                                  " needs more memory than the limit of " +
                                  std::to_string(memory_limit_mb_) + " MB",
                              true});
    } catch (const std::system_error& error) {
        return encode_failed({ErrorKind::Unsupported, error.what()});
    }
}

bool ReaderService::serve(int channel)
{
    for (;;) {
        Frame request;
        UniqueFd region;
        Frame reply;
        try {
            request = receive_frame(channel, std::nullopt, &region);
            if (static_cast<bool>(region) != (request.type == MessageType::Picture)) {
                throw ProtocolError("a picture region with the wrong request");
            }
            reply = answer(request, region.get());
        } catch (const ChannelClosed&) {
            return true;
        } catch (const ProtocolError&) {
            return false;
        }
        region.reset();
        try {
            send_frame(channel, reply);
        } catch (const ChannelClosed&) {
            return true;
        }
    }
}

PdfProbeReply probe_pdf_file(const std::string& path, const std::string& password)
{
    PdfProbeReply reply;
    try {
        sources::MupdfDocument document(path, password);
        reply.page_count = document.page_count();
        reply.opened = reply.page_count > 0;
        if (!reply.opened) {
            reply.page_count = 0;
        }
    } catch (const Error& error) {
        reply.password_refused = error.kind() == ErrorKind::Password;
        reply.reason = error.reason();
    } catch (const std::bad_alloc&) {
        reply.reason = "not enough memory to read it";
    } catch (const std::exception&) {
        reply.reason = "not a readable PDF";
    }
    if (reply.reason.empty() && !reply.opened) {
        reply.reason = "the document has no pages";
    }
    return reply;
}

TiffProbeReply probe_tiff_file(const std::string& path)
{
    // Header only: a file of zero images opens and counts 0 instead of failing to open.
    TIFF* tiff = open_tiff_quietly(path, "rh");
    TiffProbeReply reply;
    if (tiff == nullptr) {
        return reply;
    }
    reply.image_count = static_cast<int>(TIFFNumberOfDirectories(tiff));
    if (reply.image_count > 0 && TIFFSetDirectory(tiff, 0)) {
        reply.readable = true;
        reply.tiled = TIFFIsTiled(tiff) != 0;
    }
    TIFFClose(tiff);
    return reply;
}

} // namespace qf::worker
