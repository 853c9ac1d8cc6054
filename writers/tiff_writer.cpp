// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/tiff_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <vector>

#include <tiffio.h>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/text_rules.h"
#include "engine/version.h"
#include "writers/g4_encoder.h"
#include "writers/picture_checks.h"

namespace qf::writers {
namespace {

constexpr int kG4Code = 4;
constexpr int kJpegCode = 7;
constexpr std::uint32_t kJpegRowsPerStrip = 32;
constexpr int kJpegMaxSide = 65500; // the largest side libjpeg encodes

bool is_bilevel_code(int code)
{
    return code >= 2 && code <= 4;
}

// Everything a directory says besides its pixels.
struct DirectoryTags {
    int compression = 1;
    int jpeg_quality = 75;
    float dpi = 150;
    std::string copyright;
    std::string document_name;
};

// The pixels of a page in the form its directory stores them, made before the file is touched.
struct PreparedPage {
    engine::PagePicture storage;
    const engine::PagePicture* pixels = nullptr;
    bool bilevel = false;
};

PreparedPage prepare_page(const engine::PagePicture& picture, int compression,
                          const std::filesystem::path& target)
{
    check_picture(picture, target);
    if (compression == kJpegCode &&
        (picture.width > kJpegMaxSide || picture.height > kJpegMaxSide)) {
        throw engine::Error(engine::ErrorKind::Output, "the page is too large for JPEG compression",
                            target);
    }
    PreparedPage page;
    page.bilevel = is_bilevel_code(compression);
    if (page.bilevel) {
        if (picture.format == engine::PixelFormat::Bilevel) {
            page.pixels = &picture;
        } else {
            page.storage = to_bilevel(picture);
            page.pixels = &page.storage;
        }
    } else {
        page.pixels = &rgb_pixels(picture, page.storage);
    }
    return page;
}

DirectoryTags tags_for(const engine::PageWriteContext& context, std::string copyright,
                       std::string document_name)
{
    DirectoryTags tags;
    tags.compression = written_compression(context.tiffcode);
    tags.jpeg_quality = std::clamp(engine::whole_val(context.snapshot.mjpgquality), 1, 100);
    tags.dpi = static_cast<float>(context.snapshot.thedpi);
    tags.copyright = std::move(copyright);
    tags.document_name = std::move(document_name);
    return tags;
}

int keep_error(TIFF*, void* user_data, const char* module, const char* format, va_list arguments)
{
    auto* message = static_cast<std::string*>(user_data);
    if (!message->empty()) {
        return 1; // the first error names the cause; later ones follow from it
    }
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    *message = (module != nullptr && *module != '\0') ? std::string(module) + ": " + text
                                                      : std::string(text);
    return 1;
}

int ignore_warning(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

} // namespace

// One TIFF file open for writing, with libtiff's messages kept for the thrown reason.
class TiffOutput {
public:
    TiffOutput(const std::filesystem::path& path, const std::filesystem::path& target)
        : target_(target)
    {
        TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
        TIFFOpenOptionsSetErrorHandlerExtR(options, keep_error, &message_);
        TIFFOpenOptionsSetWarningHandlerExtR(options, ignore_warning, nullptr);
        tif_ = TIFFOpenExt(path.c_str(), "w", options);
        TIFFOpenOptionsFree(options);
        if (tif_ == nullptr) {
            fail("the TIFF file could not be created");
        }
    }

    ~TiffOutput()
    {
        if (tif_ != nullptr) {
            TIFFClose(tif_);
        }
    }

    TiffOutput(const TiffOutput&) = delete;
    TiffOutput& operator=(const TiffOutput&) = delete;

    // Writes one complete directory: tags, pixel strips, then the directory itself.
    void write_page(const PreparedPage& page, const DirectoryTags& tags)
    {
        set_tags(page, tags);
        write_strips(*page.pixels);
        if (!TIFFWriteDirectory(tif_)) {
            fail("the TIFF directory could not be written");
        }
    }

    void finish()
    {
        const bool flushed = TIFFFlush(tif_) != 0;
        TIFFClose(tif_);
        tif_ = nullptr;
        if (!flushed) {
            fail("the TIFF file could not be completed");
        }
    }

private:
    [[noreturn]] void fail(const char* fallback) const
    {
        throw engine::Error(engine::ErrorKind::Output, message_.empty() ? fallback : message_,
                            target_);
    }

    template <typename... Values> void set(ttag_t tag, Values... values)
    {
        if (!TIFFSetField(tif_, tag, values...)) {
            fail("a TIFF tag could not be set");
        }
    }

    void set_tags(const PreparedPage& page, const DirectoryTags& tags)
    {
        const engine::PagePicture& pixels = *page.pixels;
        set(TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(pixels.width));
        set(TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(pixels.height));
        set(TIFFTAG_COMPRESSION, tags.compression);
        compression_ = tags.compression;
        set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        if (page.bilevel) {
            set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
            set(TIFFTAG_BITSPERSAMPLE, 1);
            set(TIFFTAG_SAMPLESPERPIXEL, 1);
        } else {
            set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
            set(TIFFTAG_BITSPERSAMPLE, 8);
            set(TIFFTAG_SAMPLESPERPIXEL, 3);
        }
        if (tags.compression == kJpegCode) {
            // The JPEG block: bit order reversed in the tag (the codec itself never reverses
            // its bytes), strips of 32 rows, the run's quality.
            set(TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
            set(TIFFTAG_ROWSPERSTRIP, kJpegRowsPerStrip);
            set(TIFFTAG_JPEGQUALITY, tags.jpeg_quality);
        } else {
            // Strips of about 8 KB, libtiff's own choice for the row size, never more rows
            // than the image has.
            set(TIFFTAG_ROWSPERSTRIP,
                std::min(TIFFDefaultStripSize(tif_, 0), static_cast<std::uint32_t>(pixels.height)));
        }
        set(TIFFTAG_XRESOLUTION, tags.dpi);
        set(TIFFTAG_YRESOLUTION, tags.dpi);
        set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        const std::string software = std::string("Quirefold v") + engine::kLongVersion;
        set(TIFFTAG_SOFTWARE, software.c_str());
        set(TIFFTAG_COPYRIGHT, tags.copyright.c_str());
        set(TIFFTAG_DOCUMENTNAME, tags.document_name.c_str());
    }

    void write_strips(const engine::PagePicture& pixels)
    {
        std::uint32_t rows_per_strip = 0;
        TIFFGetField(tif_, TIFFTAG_ROWSPERSTRIP, &rows_per_strip);
        rows_per_strip =
            std::clamp<std::uint32_t>(rows_per_strip, 1, static_cast<std::uint32_t>(pixels.height));
        const std::size_t stride = pixels.stride();
        const auto height = static_cast<std::uint32_t>(pixels.height);
        std::uint32_t strip = 0;
        for (std::uint32_t row = 0; row < height; row += rows_per_strip, ++strip) {
            const std::uint32_t rows = std::min(rows_per_strip, height - row);
            // libtiff alters the buffer only to swap 16-bit samples or apply a predictor,
            // neither of which is used here.
            auto* data = const_cast<std::uint8_t*>(pixels.pixels.data() + stride * row);
            const auto size = static_cast<tmsize_t>(stride * rows);
            if (compression_ == kG4Code) {
                write_g4_strip(strip, data, stride, pixels.width, rows);
            } else if (TIFFWriteEncodedStrip(tif_, strip, data, size) < 0) {
                fail("the TIFF image could not be written");
            }
        }
    }

    // Group 4 strips are coded here, each on its own from an all-white line as libtiff's
    // reader expects, and handed over as they stand: several times faster than libtiff's
    // own coder, which dominated the time of a bilevel page.
    void write_g4_strip(std::uint32_t strip, const std::uint8_t* rows, std::size_t stride,
                        int width, std::uint32_t row_count)
    {
        encode_g4_block(rows, stride, width, static_cast<int>(row_count), coded_);
        if (TIFFWriteRawStrip(tif_, strip, coded_.data(), static_cast<tmsize_t>(coded_.size())) <
            0) {
            fail("the TIFF image could not be written");
        }
    }

    TIFF* tif_ = nullptr;
    int compression_ = 1;             // of the directory being written
    std::vector<std::uint8_t> coded_; // one Group 4 strip, reused from strip to strip
    std::filesystem::path target_;
    std::string message_;
};

int written_compression(int tiffcode)
{
    switch (tiffcode) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 7:
    case 8:
    case 32773: return tiffcode;
    default: return 1;
    }
}

void write_tiff_single(const engine::PagePicture& picture, const std::filesystem::path& target,
                       const engine::PageWriteContext& context)
{
    const auto& snapshot = context.snapshot;
    const DirectoryTags tags = tags_for(
        context,
        engine::trim(context.ccopyright).empty() ? snapshot.mtiffcopyright : context.ccopyright,
        engine::trim(context.cdocumentname).empty() ? snapshot.mtiffdocumentname
                                                    : context.cdocumentname);
    const PreparedPage page = prepare_page(picture, tags.compression, target);
    engine::write_atomically(target, [&](const std::filesystem::path& temp) {
        TiffOutput output(temp, target);
        output.write_page(page, tags);
        output.finish();
    });
}

MultipageTiff::MultipageTiff() = default;

MultipageTiff::~MultipageTiff()
{
    discard();
}

void MultipageTiff::open(const std::filesystem::path& target, const engine::PageWriteContext&)
{
    if (is_open()) {
        close();
    }
    temp_ = engine::sibling_temp_name(target);
    try {
        output_ = std::make_unique<TiffOutput>(temp_, target);
    } catch (...) {
        engine::discard_temp(temp_);
        throw;
    }
    target_ = target;
    pages_ = 0;
    spoiled_.clear();
}

bool MultipageTiff::is_open() const
{
    return output_ != nullptr;
}

void MultipageTiff::add_page(const engine::PagePicture& picture,
                             const engine::PageWriteContext& context)
{
    if (!is_open()) {
        throw engine::Error(engine::ErrorKind::Output, "the multipage TIFF file is not open");
    }
    if (!spoiled_.empty()) {
        throw engine::Error(engine::ErrorKind::Output, spoiled_, target_);
    }
    const DirectoryTags tags =
        tags_for(context, context.snapshot.mtiffcopyright, context.snapshot.mtiffdocumentname);
    const PreparedPage page = prepare_page(picture, tags.compression, target_);
    errno = 0;
    try {
        output_->write_page(page, tags);
    } catch (const engine::Error& error) {
        const std::string storage = engine::storage_failure(errno);
        spoiled_ = storage.empty() ? error.reason() : storage;
        throw engine::Error(engine::ErrorKind::Output, spoiled_, target_);
    }
    ++pages_;
}

void MultipageTiff::close()
{
    if (!is_open()) {
        return;
    }
    const std::filesystem::path target = target_;
    if (!spoiled_.empty() || pages_ == 0) {
        const std::string reason = spoiled_.empty() ? "no page could be added" : spoiled_;
        discard();
        throw engine::Error(engine::ErrorKind::Output, reason, target);
    }
    try {
        output_->finish();
    } catch (...) {
        discard();
        throw;
    }
    output_.reset();
    engine::commit_temp(temp_, target_);
    temp_.clear();
}

void MultipageTiff::discard() noexcept
{
    if (output_) {
        output_.reset();
        engine::discard_temp(temp_);
        temp_.clear();
    }
}

} // namespace qf::writers
