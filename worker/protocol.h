// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/error.h"
#include "engine/page.h"
#include "engine/services.h"

// The messages between the main process and a reader worker. A frame is a 12-byte header
// (payload length, protocol version, message type, all little-endian) and a payload of fields
// written one after another: integers of fixed width, strings as a length and bytes. Both
// sides check every length against what is left, so a damaged or hostile frame from either
// side is a ProtocolError, never a read past the end. Pixels do not travel in frames: a
// picture request carries a shared-memory region beside it, which the reply fills (channel.h).
namespace qf::worker {

inline constexpr std::uint16_t kProtocolVersion = 4;
inline constexpr std::size_t kFrameHeaderBytes = 12;
// The size of a worker's picture region: room for the largest picture and its compressed data.
inline constexpr std::uint64_t kPictureRegionBytes = std::uint64_t{2} << 30;
// The largest payload either side accepts; a page's text is the largest payload there is.
inline constexpr std::size_t kMaxPayloadBytes = std::size_t{256} << 20;

enum class MessageType : std::uint8_t {
    // worker -> client
    Hello = 1,     // version, worker pid; sent once when the worker is ready
    Opened,        // page count and tags
    PictureReady,  // picture header; the pixels are in the picture region of the request
    TextReady,     // the page's text
    PdfProbed,     // admission probe of a PDF
    TiffProbed,    // admission probe of a TIFF
    Failed,        // an error kind and the reader's reason
    PagesCopied,   // the page count of the flattened copy written
    PageFactsReady, // a page's size and turn
    Delivered,     // a delivered PDF written: its conformance reasons and security lines
    // client -> worker
    Open = 64,
    Picture,
    Text,
    ProbePdf,
    ProbeTiff,
    CopyPages,
    PageFacts,
    Deliver,
};

// A frame that breaks the protocol: wrong version, unknown type, a field past the end.
class ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Frame {
    MessageType type = MessageType::Hello;
    std::vector<std::uint8_t> payload;
};

// Builds a payload field by field.
class PayloadWriter {
public:
    PayloadWriter& u8(std::uint8_t value);
    PayloadWriter& u32(std::uint32_t value);
    PayloadWriter& i32(std::int32_t value) { return u32(static_cast<std::uint32_t>(value)); }
    PayloadWriter& u64(std::uint64_t value);
    PayloadWriter& text(std::string_view value);
    Frame frame(MessageType type) &&;

private:
    std::vector<std::uint8_t> bytes_;
};

// Reads a payload field by field; every read past the end throws ProtocolError, and so does
// finish() when bytes are left over.
class PayloadReader {
public:
    explicit PayloadReader(const std::vector<std::uint8_t>& payload) : payload_(payload) {}
    std::uint8_t u8();
    std::uint32_t u32();
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    std::uint64_t u64();
    bool flag();
    std::string text();
    void finish() const;

private:
    const std::uint8_t* take(std::size_t count);
    const std::vector<std::uint8_t>& payload_;
    std::size_t offset_ = 0;
};

// The 12 header bytes of a frame, and back. decode_header checks version and size and
// returns the payload length.
void encode_header(MessageType type, std::size_t payload_bytes, std::uint8_t* header);
std::size_t decode_header(const std::uint8_t* header, MessageType& type);

enum class DocumentKind : std::uint8_t { Pdf = 1, Tiff = 2 };

// The document a request is about. Page requests name it each time, so that a replaced
// worker opens it again without the caller knowing.
struct DocumentRef {
    DocumentKind kind = DocumentKind::Pdf;
    engine::DocumentToOpen document;
    // The run copies this PDF's pages as they are (PDF output): the worker also opens it with
    // the page-copying reader and walks its page tree, so that a tree that reader cannot walk
    // fails in the worker, not in the main process.
    bool copies_pages = false;
};

struct PictureCall {
    DocumentRef document;
    int pageno = 1; // 1-based
    engine::RenderRequest request;
    // The picture comes back reduced by this factor in each direction (1, 2, 4 or 8), as 8-bit
    // RGB: the worker reduces it before it leaves, so a large scan never crosses whole.
    int reduce_factor = 1;
};

struct TextCall {
    DocumentRef document;
    int pageno = 1;
};

// A page's size and turn, asked without drawing it.
struct PageFactsCall {
    DocumentRef document;
    int pageno = 1; // a PDF's page, or a TIFF's image pageno - 1 (the tile marker aside)
};

// PDF: the page's box in points (CropBox clipped to MediaBox, before /Rotate) as the page
// source draws it, and /Rotate as 0, 90, 180 or 270. TIFF: the image's size in pixels as the
// page source shows it (Orientation applied), rotation 0, and its resolution in dots per inch
// (0 when the file gives none).
struct PageFacts {
    double width = 0;
    double height = 0;
    int rotation = 0;
    double xres = 0;
    double yres = 0;
};

// A PDF's pages copied, annotations and form fields flattened, into a PDF of their own at
// `target`, a file the main process then reads in place of the document.
struct CopyCall {
    DocumentRef document;
    std::string target;
    // The worker keeps the copy in memory for a DeliverCall instead of writing it to target.
    bool keep = false;
};

// The page count of the copy, and the pages that could not be copied (1-based, ascending).
struct CopiedReply {
    int page_count = 0;
    std::vector<int> uncopyable;
    // The copy itself, when a file size limit kept it from its file; empty otherwise.
    std::string in_frame;
    std::uint64_t token = 0;  // a kept copy's number in its worker; 0 when not kept
    std::uint32_t worker = 0; // the process id of the worker that keeps it
};

// A document's PDF written from the copy its worker keeps (CopyCall with keep): the chosen
// pages, document information, conformance and security, in one write to `temp`.
struct DeliverCall {
    std::uint64_t token = 0;
    std::vector<int> pages; // of the copy, 1-based, in the file's order
    std::string temp;       // the file written, absolute
    std::string target;     // the file as delivered, as the lines name it
    std::string resources;  // the folder of the ICC profiles' icc/
    bool secured = false;   // as delivered, rather than as a part to be merged
    // Only what the write reads travels: title, author, subject, version or conformance,
    // encryption level, passwords and permissions.
    engine::OptionSnapshot snapshot;
};

struct DeliveredReply {
    std::vector<std::string> reasons; // what keeps the file from conforming
    std::vector<std::string> lines;   // the security pass's lines
};

// The reason a worker gives for a DeliverCall whose copy it no longer keeps.
inline constexpr const char* kCopyNotKept = "the copy is no longer kept";

struct OpenedReply {
    int page_count = 0;
    engine::SourceTags tags;
};

// Where a picture's bytes lie in the picture region: the pixels from offset 0, then the
// compressed data when there is some.
struct PictureHeader {
    int width = 0;
    int height = 0;
    engine::PixelFormat format = engine::PixelFormat::Rgb8;
    std::uint64_t pixel_bytes = 0;
    bool has_compressed = false;
    bool black_is_1 = true;
    std::uint64_t compressed_bytes = 0;
    // The bytes travel in the frame itself, after the header, when the picture region is too
    // small for them (a file size limit caps the region's size).
    bool in_frame = false;
    std::string frame_bytes; // pixels, then compressed data, when in_frame
    std::uint64_t total_bytes() const { return pixel_bytes + compressed_bytes; }
};

// What admission learns of a PDF: whether `password` opens it, whether it was refused for want
// of the right password (rather than for damage), and its page count when it opened.
struct PdfProbeReply {
    bool opened = false;
    bool password_refused = false; // the document is encrypted and `password` does not open it
    int page_count = 0;
    std::string reason; // why it did not open, in the reader's words
};

// What admission learns of a TIFF: readable first image, image count, tiled first image.
struct TiffProbeReply {
    bool readable = false;
    int image_count = 0;
    bool tiled = false;
};

struct FailedReply {
    engine::ErrorKind kind = engine::ErrorKind::Damaged;
    std::string reason;
    // The worker ran out of memory outside the PDF reader's ceiling; a library may have been
    // left in a state no one checked, so the worker is to be replaced.
    bool retire = false;
};

Frame encode_open(const DocumentRef& document);
Frame encode_picture(const PictureCall& call);
Frame encode_text(const TextCall& call);
Frame encode_probe_pdf(const std::string& path, const std::string& password);
Frame encode_probe_tiff(const std::string& path);
Frame encode_copy_pages(const CopyCall& call);
Frame encode_page_facts(const PageFactsCall& call);
Frame encode_deliver(const DeliverCall& call);

Frame encode_hello(std::uint32_t pid);
Frame encode_opened(const OpenedReply& reply);
Frame encode_picture_ready(const PictureHeader& header);
Frame encode_text_ready(const std::string& text);
Frame encode_pdf_probed(const PdfProbeReply& reply);
Frame encode_tiff_probed(const TiffProbeReply& reply);
Frame encode_failed(const FailedReply& reply);
Frame encode_pages_copied(const CopiedReply& reply);
Frame encode_page_facts_ready(const PageFacts& facts);
Frame encode_delivered(const DeliveredReply& reply);

// Each decoder reads the whole payload of its type and throws ProtocolError on anything out
// of range (a negative size, a page number below 1, an unknown enum value).
DocumentRef decode_open(const Frame& frame);
PictureCall decode_picture(const Frame& frame);
TextCall decode_text(const Frame& frame);
std::pair<std::string, std::string> decode_probe_pdf(const Frame& frame); // path, password
std::string decode_probe_tiff(const Frame& frame);
CopyCall decode_copy_pages(const Frame& frame);
PageFactsCall decode_page_facts(const Frame& frame);
DeliverCall decode_deliver(const Frame& frame);

std::uint32_t decode_hello(const Frame& frame);
OpenedReply decode_opened(const Frame& frame);
PictureHeader decode_picture_ready(const Frame& frame);
std::string decode_text_ready(const Frame& frame);
PdfProbeReply decode_pdf_probed(const Frame& frame);
TiffProbeReply decode_tiff_probed(const Frame& frame);
FailedReply decode_failed(const Frame& frame);
CopiedReply decode_pages_copied(const Frame& frame);
// Sides above 0 and at most kMaxPageSide, a rotation of 0, 90, 180 or 270, resolutions of 0
// up to kMaxResolution; anything else (a NaN included) is a ProtocolError.
PageFacts decode_page_facts_ready(const Frame& frame);
DeliveredReply decode_delivered(const Frame& frame);
inline constexpr double kMaxPageSide = 1e9;
inline constexpr double kMaxResolution = 1e7;

} // namespace qf::worker
