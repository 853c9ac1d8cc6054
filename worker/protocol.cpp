// SPDX-License-Identifier: GPL-3.0-or-later
#include "worker/protocol.h"

#include <bit>
#include <cstring>

namespace qf::worker {
namespace {

using engine::ErrorKind;
using engine::PixelFormat;

// No side of a picture beyond this, as the renderers refuse.
constexpr std::uint32_t kMaxSide = 100000;
constexpr std::uint32_t kMaxPageNumber = 1u << 30;

void put_le(std::uint8_t* out, std::uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) {
        out[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

std::uint64_t get_le(const std::uint8_t* in, int bytes)
{
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) {
        value |= std::uint64_t{in[i]} << (8 * i);
    }
    return value;
}

void expect(const Frame& frame, MessageType type)
{
    if (frame.type != type) {
        throw ProtocolError("unexpected message type " + std::to_string(static_cast<int>(frame.type)));
    }
}

int positive(std::uint32_t value, std::uint32_t max, const char* what)
{
    if (value < 1 || value > max) {
        throw ProtocolError(std::string(what) + " out of range");
    }
    return static_cast<int>(value);
}

void write_document(PayloadWriter& out, const DocumentRef& ref)
{
    out.u8(static_cast<std::uint8_t>(ref.kind))
        .text(ref.document.path.native())
        .text(ref.document.password)
        .text(ref.document.tile_marker)
        .u8(ref.copies_pages);
}

DocumentRef read_document(PayloadReader& in)
{
    DocumentRef ref;
    const std::uint8_t kind = in.u8();
    if (kind != static_cast<std::uint8_t>(DocumentKind::Pdf) &&
        kind != static_cast<std::uint8_t>(DocumentKind::Tiff)) {
        throw ProtocolError("unknown document kind");
    }
    ref.kind = static_cast<DocumentKind>(kind);
    ref.document.path = in.text();
    ref.document.password = in.text();
    ref.document.tile_marker = in.text();
    ref.copies_pages = in.flag();
    return ref;
}

void write_texts(PayloadWriter& out, const std::vector<std::string>& texts)
{
    out.u32(static_cast<std::uint32_t>(texts.size()));
    for (const auto& text : texts) {
        out.text(text);
    }
}

std::vector<std::string> read_texts(PayloadReader& in)
{
    const std::uint32_t count = in.u32();
    std::vector<std::string> texts;
    for (std::uint32_t i = 0; i < count; ++i) {
        texts.push_back(in.text()); // each read is checked against what is left
    }
    return texts;
}

} // namespace

PayloadWriter& PayloadWriter::u8(std::uint8_t value)
{
    bytes_.push_back(value);
    return *this;
}

PayloadWriter& PayloadWriter::u32(std::uint32_t value)
{
    const std::size_t at = bytes_.size();
    bytes_.resize(at + 4);
    put_le(bytes_.data() + at, value, 4);
    return *this;
}

PayloadWriter& PayloadWriter::u64(std::uint64_t value)
{
    const std::size_t at = bytes_.size();
    bytes_.resize(at + 8);
    put_le(bytes_.data() + at, value, 8);
    return *this;
}

PayloadWriter& PayloadWriter::text(std::string_view value)
{
    if (value.size() > kMaxPayloadBytes) {
        throw ProtocolError("text too long for a frame");
    }
    u32(static_cast<std::uint32_t>(value.size()));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    return *this;
}

Frame PayloadWriter::frame(MessageType type) &&
{
    if (bytes_.size() > kMaxPayloadBytes) {
        throw ProtocolError("payload too long for a frame");
    }
    return {type, std::move(bytes_)};
}

const std::uint8_t* PayloadReader::take(std::size_t count)
{
    if (count > payload_.size() - offset_) {
        throw ProtocolError("field past the end of the frame");
    }
    const std::uint8_t* at = payload_.data() + offset_;
    offset_ += count;
    return at;
}

std::uint8_t PayloadReader::u8()
{
    return *take(1);
}

std::uint32_t PayloadReader::u32()
{
    return static_cast<std::uint32_t>(get_le(take(4), 4));
}

std::uint64_t PayloadReader::u64()
{
    return get_le(take(8), 8);
}

bool PayloadReader::flag()
{
    const std::uint8_t value = u8();
    if (value > 1) {
        throw ProtocolError("flag out of range");
    }
    return value == 1;
}

std::string PayloadReader::text()
{
    const std::uint32_t size = u32();
    const std::uint8_t* at = take(size);
    return std::string(reinterpret_cast<const char*>(at), size);
}

void PayloadReader::finish() const
{
    if (offset_ != payload_.size()) {
        throw ProtocolError("bytes left over at the end of the frame");
    }
}

void encode_header(MessageType type, std::size_t payload_bytes, std::uint8_t* header)
{
    put_le(header, payload_bytes, 4);
    put_le(header + 4, kProtocolVersion, 2);
    header[6] = static_cast<std::uint8_t>(type);
    std::memset(header + 7, 0, kFrameHeaderBytes - 7);
}

std::size_t decode_header(const std::uint8_t* header, MessageType& type)
{
    const std::uint64_t size = get_le(header, 4);
    const std::uint64_t version = get_le(header + 4, 2);
    if (version != kProtocolVersion) {
        throw ProtocolError("protocol version " + std::to_string(version) + ", expected " +
                            std::to_string(kProtocolVersion));
    }
    if (size > kMaxPayloadBytes) {
        throw ProtocolError("frame too long");
    }
    const std::uint8_t code = header[6];
    const bool known = (code >= static_cast<std::uint8_t>(MessageType::Hello) &&
                        code <= static_cast<std::uint8_t>(MessageType::Delivered)) ||
                       (code >= static_cast<std::uint8_t>(MessageType::Open) &&
                        code <= static_cast<std::uint8_t>(MessageType::Deliver));
    if (!known) {
        throw ProtocolError("unknown message type " + std::to_string(code));
    }
    type = static_cast<MessageType>(code);
    return static_cast<std::size_t>(size);
}

Frame encode_open(const DocumentRef& document)
{
    PayloadWriter out;
    write_document(out, document);
    return std::move(out).frame(MessageType::Open);
}

Frame encode_picture(const PictureCall& call)
{
    PayloadWriter out;
    write_document(out, call.document);
    out.i32(call.pageno)
        .i32(call.request.dpi)
        .i32(call.request.zoom)
        .u8(call.request.jpeg_order)
        .u8(call.request.flatten)
        .u8(call.request.compressed_ok)
        .i32(call.reduce_factor);
    return std::move(out).frame(MessageType::Picture);
}

Frame encode_text(const TextCall& call)
{
    PayloadWriter out;
    write_document(out, call.document);
    out.i32(call.pageno);
    return std::move(out).frame(MessageType::Text);
}

Frame encode_probe_pdf(const std::string& path, const std::string& password)
{
    return std::move(PayloadWriter().text(path).text(password)).frame(MessageType::ProbePdf);
}

Frame encode_probe_tiff(const std::string& path)
{
    return std::move(PayloadWriter().text(path)).frame(MessageType::ProbeTiff);
}

Frame encode_copy_pages(const CopyCall& call)
{
    PayloadWriter out;
    write_document(out, call.document);
    out.text(call.target).u8(call.keep);
    return std::move(out).frame(MessageType::CopyPages);
}

Frame encode_page_facts(const PageFactsCall& call)
{
    PayloadWriter out;
    write_document(out, call.document);
    out.i32(call.pageno);
    return std::move(out).frame(MessageType::PageFacts);
}

Frame encode_hello(std::uint32_t pid)
{
    return std::move(PayloadWriter().u32(pid)).frame(MessageType::Hello);
}

Frame encode_opened(const OpenedReply& reply)
{
    PayloadWriter out;
    out.i32(reply.page_count)
        .text(reply.tags.copyright)
        .text(reply.tags.document_name)
        .i32(reply.tags.xres)
        .i32(reply.tags.yres);
    return std::move(out).frame(MessageType::Opened);
}

Frame encode_picture_ready(const PictureHeader& header)
{
    PayloadWriter out;
    out.i32(header.width)
        .i32(header.height)
        .u8(header.format == PixelFormat::Bilevel ? 1 : 0)
        .u64(header.pixel_bytes)
        .u8(header.has_compressed)
        .u8(header.black_is_1)
        .u64(header.compressed_bytes)
        .u8(header.in_frame);
    if (header.in_frame) {
        out.text(header.frame_bytes);
    }
    return std::move(out).frame(MessageType::PictureReady);
}

Frame encode_text_ready(const std::string& text)
{
    return std::move(PayloadWriter().text(text)).frame(MessageType::TextReady);
}

Frame encode_pdf_probed(const PdfProbeReply& reply)
{
    PayloadWriter out;
    out.u8(reply.opened).u8(reply.password_refused).i32(reply.page_count).text(reply.reason);
    return std::move(out).frame(MessageType::PdfProbed);
}

Frame encode_tiff_probed(const TiffProbeReply& reply)
{
    PayloadWriter out;
    out.u8(reply.readable).i32(reply.image_count).u8(reply.tiled);
    return std::move(out).frame(MessageType::TiffProbed);
}

Frame encode_failed(const FailedReply& reply)
{
    PayloadWriter out;
    out.u8(static_cast<std::uint8_t>(reply.kind)).text(reply.reason).u8(reply.retire);
    return std::move(out).frame(MessageType::Failed);
}

Frame encode_pages_copied(const CopiedReply& reply)
{
    PayloadWriter out;
    out.i32(reply.page_count).u32(static_cast<std::uint32_t>(reply.uncopyable.size()));
    for (const int pageno : reply.uncopyable) {
        out.i32(pageno);
    }
    out.text(reply.in_frame).u64(reply.token).u32(reply.worker);
    return std::move(out).frame(MessageType::PagesCopied);
}

Frame encode_page_facts_ready(const PageFacts& facts)
{
    PayloadWriter out;
    out.u64(std::bit_cast<std::uint64_t>(facts.width))
        .u64(std::bit_cast<std::uint64_t>(facts.height))
        .i32(facts.rotation)
        .u64(std::bit_cast<std::uint64_t>(facts.xres))
        .u64(std::bit_cast<std::uint64_t>(facts.yres));
    return std::move(out).frame(MessageType::PageFactsReady);
}

DocumentRef decode_open(const Frame& frame)
{
    expect(frame, MessageType::Open);
    PayloadReader in(frame.payload);
    DocumentRef ref = read_document(in);
    in.finish();
    return ref;
}

PictureCall decode_picture(const Frame& frame)
{
    expect(frame, MessageType::Picture);
    PayloadReader in(frame.payload);
    PictureCall call;
    call.document = read_document(in);
    call.pageno = positive(in.u32(), kMaxPageNumber, "page number");
    call.request.dpi = in.i32();
    call.request.zoom = in.i32();
    call.request.jpeg_order = in.flag();
    call.request.flatten = in.flag();
    call.request.compressed_ok = in.flag();
    call.reduce_factor = in.i32();
    in.finish();
    if (call.reduce_factor != 1 && call.reduce_factor != 2 && call.reduce_factor != 4 && call.reduce_factor != 8) {
        throw ProtocolError("reduction factor out of range");
    }
    return call;
}

TextCall decode_text(const Frame& frame)
{
    expect(frame, MessageType::Text);
    PayloadReader in(frame.payload);
    TextCall call;
    call.document = read_document(in);
    call.pageno = positive(in.u32(), kMaxPageNumber, "page number");
    in.finish();
    return call;
}

std::pair<std::string, std::string> decode_probe_pdf(const Frame& frame)
{
    expect(frame, MessageType::ProbePdf);
    PayloadReader in(frame.payload);
    std::string path = in.text();
    std::string password = in.text();
    in.finish();
    return {std::move(path), std::move(password)};
}

std::string decode_probe_tiff(const Frame& frame)
{
    expect(frame, MessageType::ProbeTiff);
    PayloadReader in(frame.payload);
    std::string path = in.text();
    in.finish();
    return path;
}

CopyCall decode_copy_pages(const Frame& frame)
{
    expect(frame, MessageType::CopyPages);
    PayloadReader in(frame.payload);
    CopyCall call;
    call.document = read_document(in);
    call.target = in.text();
    call.keep = in.flag();
    in.finish();
    if (call.target.empty() || call.target.front() != '/') {
        throw ProtocolError("the copy's target is not an absolute path");
    }
    return call;
}

PageFactsCall decode_page_facts(const Frame& frame)
{
    expect(frame, MessageType::PageFacts);
    PayloadReader in(frame.payload);
    PageFactsCall call;
    call.document = read_document(in);
    call.pageno = positive(in.u32(), kMaxPageNumber, "page number");
    in.finish();
    return call;
}

std::uint32_t decode_hello(const Frame& frame)
{
    expect(frame, MessageType::Hello);
    PayloadReader in(frame.payload);
    const std::uint32_t pid = in.u32();
    in.finish();
    return pid;
}

OpenedReply decode_opened(const Frame& frame)
{
    expect(frame, MessageType::Opened);
    PayloadReader in(frame.payload);
    OpenedReply reply;
    reply.page_count = positive(in.u32(), kMaxPageNumber, "page count");
    reply.tags.copyright = in.text();
    reply.tags.document_name = in.text();
    reply.tags.xres = in.i32();
    reply.tags.yres = in.i32();
    in.finish();
    return reply;
}

PictureHeader decode_picture_ready(const Frame& frame)
{
    expect(frame, MessageType::PictureReady);
    PayloadReader in(frame.payload);
    PictureHeader header;
    header.width = positive(in.u32(), kMaxSide, "picture width");
    header.height = positive(in.u32(), kMaxSide, "picture height");
    header.format = in.flag() ? PixelFormat::Bilevel : PixelFormat::Rgb8;
    header.pixel_bytes = in.u64();
    header.has_compressed = in.flag();
    header.black_is_1 = in.flag();
    header.compressed_bytes = in.u64();
    header.in_frame = in.flag();
    if (header.in_frame) {
        header.frame_bytes = in.text();
    }
    in.finish();
    const std::uint64_t stride = header.format == PixelFormat::Rgb8
                                     ? std::uint64_t(header.width) * 3
                                     : (std::uint64_t(header.width) + 7) / 8;
    if (header.pixel_bytes != 0 && header.pixel_bytes != stride * std::uint64_t(header.height)) {
        throw ProtocolError("picture size does not match its sides");
    }
    if (header.pixel_bytes == 0 && !header.has_compressed) {
        throw ProtocolError("picture with neither pixels nor compressed data");
    }
    if (!header.has_compressed && header.compressed_bytes != 0) {
        throw ProtocolError("compressed bytes without compressed data");
    }
    if (header.compressed_bytes > kPictureRegionBytes ||
        header.pixel_bytes > kPictureRegionBytes - header.compressed_bytes) {
        throw ProtocolError("picture too large");
    }
    if (header.in_frame && header.frame_bytes.size() != header.total_bytes()) {
        throw ProtocolError("picture bytes in the frame do not match their sizes");
    }
    return header;
}

std::string decode_text_ready(const Frame& frame)
{
    expect(frame, MessageType::TextReady);
    PayloadReader in(frame.payload);
    std::string text = in.text();
    in.finish();
    return text;
}

PdfProbeReply decode_pdf_probed(const Frame& frame)
{
    expect(frame, MessageType::PdfProbed);
    PayloadReader in(frame.payload);
    PdfProbeReply reply;
    reply.opened = in.flag();
    reply.password_refused = in.flag();
    const std::int32_t count = in.i32();
    reply.reason = in.text();
    in.finish();
    if (count < 0 || (reply.opened && count < 1)) {
        throw ProtocolError("page count out of range");
    }
    reply.page_count = count;
    return reply;
}

TiffProbeReply decode_tiff_probed(const Frame& frame)
{
    expect(frame, MessageType::TiffProbed);
    PayloadReader in(frame.payload);
    TiffProbeReply reply;
    reply.readable = in.flag();
    const std::int32_t count = in.i32();
    reply.tiled = in.flag();
    in.finish();
    if (count < 0) {
        throw ProtocolError("image count out of range");
    }
    reply.image_count = count;
    return reply;
}

FailedReply decode_failed(const Frame& frame)
{
    expect(frame, MessageType::Failed);
    PayloadReader in(frame.payload);
    FailedReply reply;
    const std::uint8_t kind = in.u8();
    if (kind > static_cast<std::uint8_t>(ErrorKind::Output)) {
        throw ProtocolError("unknown error kind");
    }
    reply.kind = static_cast<ErrorKind>(kind);
    reply.reason = in.text();
    reply.retire = in.flag();
    in.finish();
    return reply;
}

CopiedReply decode_pages_copied(const Frame& frame)
{
    expect(frame, MessageType::PagesCopied);
    PayloadReader in(frame.payload);
    CopiedReply reply;
    reply.page_count = positive(in.u32(), kMaxPageNumber, "page count");
    const std::uint32_t failed = in.u32();
    if (failed > static_cast<std::uint32_t>(reply.page_count)) {
        throw ProtocolError("more pages failed than there are");
    }
    for (std::uint32_t i = 0; i < failed; ++i) {
        const int pageno = positive(in.u32(), static_cast<std::uint32_t>(reply.page_count), "page number");
        if (!reply.uncopyable.empty() && pageno <= reply.uncopyable.back()) {
            throw ProtocolError("page numbers out of order");
        }
        reply.uncopyable.push_back(pageno);
    }
    reply.in_frame = in.text();
    reply.token = in.u64();
    reply.worker = in.u32();
    in.finish();
    return reply;
}

PageFacts decode_page_facts_ready(const Frame& frame)
{
    expect(frame, MessageType::PageFactsReady);
    PayloadReader in(frame.payload);
    PageFacts facts;
    facts.width = std::bit_cast<double>(in.u64());
    facts.height = std::bit_cast<double>(in.u64());
    facts.rotation = in.i32();
    facts.xres = std::bit_cast<double>(in.u64());
    facts.yres = std::bit_cast<double>(in.u64());
    in.finish();
    // Written so that a NaN fails every test.
    const auto side = [](double value) { return value > 0 && value <= kMaxPageSide; };
    const auto resolution = [](double value) { return value >= 0 && value <= kMaxResolution; };
    if (!side(facts.width) || !side(facts.height)) {
        throw ProtocolError("page size out of range");
    }
    if (facts.rotation != 0 && facts.rotation != 90 && facts.rotation != 180 && facts.rotation != 270) {
        throw ProtocolError("page rotation out of range");
    }
    if (!resolution(facts.xres) || !resolution(facts.yres)) {
        throw ProtocolError("resolution out of range");
    }
    return facts;
}

Frame encode_deliver(const DeliverCall& call)
{
    PayloadWriter out;
    out.u64(call.token).u32(static_cast<std::uint32_t>(call.pages.size()));
    for (const int pageno : call.pages) {
        out.i32(pageno);
    }
    const engine::OptionSnapshot& s = call.snapshot;
    out.text(call.temp)
        .text(call.target)
        .text(call.resources)
        .u8(call.secured)
        .text(s.mpdftitle)
        .text(s.mpdfauthorname)
        .text(s.msubject)
        .i32(s.mpdfversionnumber)
        .i32(s.enlvl)
        .text(s.mpdfpassword)
        .text(s.mpdffullpassword)
        .u8(s.mallowcopy)
        .u8(s.mallowprinting)
        .u8(s.mallowannotation);
    return std::move(out).frame(MessageType::Deliver);
}

DeliverCall decode_deliver(const Frame& frame)
{
    expect(frame, MessageType::Deliver);
    PayloadReader in(frame.payload);
    DeliverCall call;
    call.token = in.u64();
    const std::uint32_t count = positive(in.u32(), kMaxPageNumber, "page count");
    for (std::uint32_t i = 0; i < count; ++i) {
        call.pages.push_back(positive(in.u32(), kMaxPageNumber, "page number"));
    }
    call.temp = in.text();
    call.target = in.text();
    call.resources = in.text();
    call.secured = in.flag();
    engine::OptionSnapshot& s = call.snapshot;
    s.mpdftitle = in.text();
    s.mpdfauthorname = in.text();
    s.msubject = in.text();
    s.mpdfversionnumber = in.i32();
    s.enlvl = in.i32();
    s.mpdfpassword = in.text();
    s.mpdffullpassword = in.text();
    s.mallowcopy = in.flag();
    s.mallowprinting = in.flag();
    s.mallowannotation = in.flag();
    in.finish();
    if (call.temp.empty() || call.temp.front() != '/') {
        throw ProtocolError("the delivered file is not an absolute path");
    }
    return call;
}

Frame encode_delivered(const DeliveredReply& reply)
{
    PayloadWriter out;
    write_texts(out, reply.reasons);
    write_texts(out, reply.lines);
    return std::move(out).frame(MessageType::Delivered);
}

DeliveredReply decode_delivered(const Frame& frame)
{
    expect(frame, MessageType::Delivered);
    PayloadReader in(frame.payload);
    DeliveredReply reply;
    reply.reasons = read_texts(in);
    reply.lines = read_texts(in);
    in.finish();
    return reply;
}

} // namespace qf::worker
