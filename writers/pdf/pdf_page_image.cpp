// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_page_image.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <qpdf/Pl_Flate.hh>
#include <qpdf/Pl_StdioFile.hh>
#include <qpdf/QUtil.hh>
#include <tiffio.h>

#include "engine/error.h"
#include "engine/file_ops.h"

namespace qf::writers::pdf {

using engine::Error;
using engine::ErrorKind;

ImageSpool::ImageSpool(const std::filesystem::path &target)
    : path_(engine::sibling_temp_name(target))
{
    file_ = std::fopen(path_.c_str(), "w+b");
    if (file_ == nullptr) {
        const std::string reason = std::strerror(errno);
        engine::discard_temp(path_);
        throw Error(ErrorKind::Output, reason, target);
    }
}

ImageSpool::~ImageSpool()
{
    std::fclose(file_);
    engine::discard_temp(path_);
}

ImageSpool::Extent ImageSpool::finish_extent(long start)
{
    if (std::fflush(file_) != 0 || std::ferror(file_)) {
        throw Error(ErrorKind::Output, std::strerror(errno));
    }
    return {start, std::ftell(file_) - start};
}

ImageSpool::Extent ImageSpool::append(const std::string &bytes)
{
    std::fseek(file_, 0, SEEK_END);
    const long start = std::ftell(file_);
    std::fwrite(bytes.data(), 1, bytes.size(), file_);
    return finish_extent(start);
}

ImageSpool::Extent ImageSpool::append_flate(const engine::PagePicture &picture)
{
    std::fseek(file_, 0, SEEK_END);
    const long start = std::ftell(file_);
    Pl_StdioFile sink("image spool", file_);
    Pl_Flate flate("image flate", &sink, Pl_Flate::a_deflate);
    const std::size_t stride = picture.stride();
    for (int row = 0; row < picture.height; ++row) {
        flate.write(picture.pixels.data() + static_cast<std::size_t>(row) * stride, stride);
    }
    flate.finish();
    return finish_extent(start);
}

void ImageSpool::copy(const Extent &extent, Pipeline &out)
{
    std::fseek(file_, extent.offset, SEEK_SET);
    std::vector<unsigned char> buffer(1 << 16);
    long left = extent.length;
    while (left > 0) {
        const std::size_t want =
            static_cast<std::size_t>(std::min<long>(left, static_cast<long>(buffer.size())));
        const std::size_t got = std::fread(buffer.data(), 1, want, file_);
        if (got == 0) {
            throw Error(ErrorKind::Output, "the image scratch file could not be read");
        }
        out.write(buffer.data(), got);
        left -= static_cast<long>(got);
    }
    out.finish();
}

namespace {

// A TIFF file held in memory, for libtiff's client I/O.
struct MemoryTiff
{
    std::string data;
    std::size_t pos = 0;
};

tsize_t memory_read(thandle_t handle, tdata_t buffer, tsize_t size)
{
    auto *file = static_cast<MemoryTiff *>(handle);
    const std::size_t count = std::min<std::size_t>(
        static_cast<std::size_t>(size), file->data.size() - std::min(file->pos, file->data.size()));
    std::memcpy(buffer, file->data.data() + file->pos, count);
    file->pos += count;
    return static_cast<tsize_t>(count);
}

tsize_t memory_write(thandle_t handle, tdata_t buffer, tsize_t size)
{
    auto *file = static_cast<MemoryTiff *>(handle);
    const auto count = static_cast<std::size_t>(size);
    if (file->data.size() < file->pos + count) {
        file->data.resize(file->pos + count);
    }
    std::memcpy(file->data.data() + file->pos, buffer, count);
    file->pos += count;
    return size;
}

toff_t memory_seek(thandle_t handle, toff_t offset, int whence)
{
    auto *file = static_cast<MemoryTiff *>(handle);
    if (whence == SEEK_CUR) {
        offset += file->pos;
    } else if (whence == SEEK_END) {
        offset += file->data.size();
    }
    file->pos = static_cast<std::size_t>(offset);
    return offset;
}

int memory_close(thandle_t)
{
    return 0;
}
toff_t memory_size(thandle_t handle)
{
    return static_cast<MemoryTiff *>(handle)->data.size();
}
int memory_map(thandle_t, tdata_t *, toff_t *)
{
    return 0;
}
void memory_unmap(thandle_t, tdata_t, toff_t) {}

TIFF *open_memory_tiff(MemoryTiff &file, const char *mode)
{
    return TIFFClientOpen("page", mode, &file, memory_read, memory_write, memory_seek, memory_close,
                          memory_size, memory_map, memory_unmap);
}

void write_g4_tiff(const engine::PagePicture &picture, MemoryTiff &file)
{
    TIFF *tif = open_memory_tiff(file, "w");
    if (tif == nullptr) {
        throw Error(ErrorKind::Output, "the page could not be encoded");
    }
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                 PHOTOMETRIC_MINISWHITE); // 0 codes white, as in the picture
    TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(picture.height)); // one strip
    std::vector<std::uint8_t> row(picture.stride());
    bool ok = true;
    for (int y = 0; ok && y < picture.height; ++y) {
        std::memcpy(row.data(), picture.pixels.data() + static_cast<std::size_t>(y) * row.size(),
                    row.size());
        ok = TIFFWriteScanline(tif, row.data(), static_cast<uint32_t>(y), 0) == 1;
    }
    ok = ok && TIFFWriteDirectory(tif) == 1;
    TIFFClose(tif);
    if (!ok) {
        throw Error(ErrorKind::Output, "the page could not be encoded");
    }
}

std::string read_first_strip(MemoryTiff &file)
{
    file.pos = 0;
    TIFF *tif = open_memory_tiff(file, "r");
    if (tif == nullptr) {
        throw Error(ErrorKind::Output, "the page could not be encoded");
    }
    uint64_t *counts = nullptr;
    std::string strip;
    if (TIFFGetField(tif, TIFFTAG_STRIPBYTECOUNTS, &counts) == 1 && counts != nullptr) {
        strip.resize(static_cast<std::size_t>(counts[0]));
        if (TIFFReadRawStrip(tif, 0, strip.data(), static_cast<tmsize_t>(strip.size())) < 0) {
            strip.clear();
        }
    }
    TIFFClose(tif);
    if (strip.empty()) {
        throw Error(ErrorKind::Output, "the page could not be encoded");
    }
    return strip;
}

// A stream's data read back from the spool when the document is written.
class SpooledData : public QPDFObjectHandle::StreamDataProvider
{
  public:
    SpooledData(std::shared_ptr<ImageSpool> spool, ImageSpool::Extent extent)
        : spool_(std::move(spool)), extent_(extent)
    {
    }
    void provideStreamData(QPDFObjGen const &, Pipeline *pipeline) override
    {
        spool_->copy(extent_, *pipeline);
    }

  private:
    std::shared_ptr<ImageSpool> spool_;
    ImageSpool::Extent extent_;
};

QPDFObjectHandle image_xobject(QPDF &pdf, const std::shared_ptr<ImageSpool> &spool,
                               const engine::PagePicture &picture)
{
    const bool bilevel = picture.format == engine::PixelFormat::Bilevel;
    QPDFObjectHandle image = pdf.newStream();
    QPDFObjectHandle dict = image.getDict();
    dict.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    dict.replaceKey("/Width", QPDFObjectHandle::newInteger(picture.width));
    dict.replaceKey("/Height", QPDFObjectHandle::newInteger(picture.height));
    dict.replaceKey("/ColorSpace",
                    QPDFObjectHandle::newName(bilevel ? "/DeviceGray" : "/DeviceRGB"));
    dict.replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(bilevel ? 1 : 8));
    if (bilevel) {
        // A source's own G4 data goes in as it is; CCITT's black runs are the source's 1 bits,
        // which are white in a MinIsBlack image, hence the inverted decode there.
        const bool passthrough = picture.compressed && picture.compressed->codec == engine::CompressedImage::Codec::CcittG4;
        const auto extent = passthrough ? spool->append(std::string(picture.compressed->data.begin(),
                                                                    picture.compressed->data.end()))
                                        : spool->append(encode_g4(picture));
        if (passthrough && !picture.compressed->black_is_1) {
            dict.replaceKey("/Decode", QPDFObjectHandle::parse("[1 0]"));
        }
        QPDFObjectHandle parms = QPDFObjectHandle::newDictionary();
        parms.replaceKey("/K", QPDFObjectHandle::newInteger(-1));
        parms.replaceKey("/Columns", QPDFObjectHandle::newInteger(picture.width));
        parms.replaceKey("/Rows", QPDFObjectHandle::newInteger(picture.height));
        image.replaceStreamData(std::make_shared<SpooledData>(spool, extent),
                                QPDFObjectHandle::newName("/CCITTFaxDecode"), parms);
    } else {
        const auto extent = spool->append_flate(picture);
        image.replaceStreamData(std::make_shared<SpooledData>(spool, extent),
                                QPDFObjectHandle::newName("/FlateDecode"),
                                QPDFObjectHandle::newNull());
    }
    return image;
}

} // namespace

std::string encode_g4(const engine::PagePicture &picture)
{
    if (picture.empty() ||
        picture.pixels.size() < picture.stride() * static_cast<std::size_t>(picture.height)) {
        throw Error(ErrorKind::BadInput, "the page has no pixels");
    }
    MemoryTiff file;
    write_g4_tiff(picture, file);
    return read_first_strip(file);
}

QPDFObjectHandle add_picture_page(QPDF &pdf, const std::shared_ptr<ImageSpool> &spool,
                                  const engine::PagePicture &picture, double pagescale)
{
    if (picture.empty() || !(pagescale > 0)) {
        throw Error(ErrorKind::BadInput, "the page has no pixels");
    }
    const double width = picture.width * pagescale;
    const double height = picture.height * pagescale;
    QPDFObjectHandle image = image_xobject(pdf, spool, picture);

    const std::string content = "q\n" + QUtil::double_to_string(width, 4) + " 0 0 " +
                                QUtil::double_to_string(height, 4) + " 0 0 cm\n/Im0 Do\nQ\n";
    QPDFObjectHandle xobjects = QPDFObjectHandle::newDictionary();
    xobjects.replaceKey("/Im0", image);
    QPDFObjectHandle resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/XObject", xobjects);

    QPDFObjectHandle page = QPDFObjectHandle::newDictionary();
    page.replaceKey("/Type", QPDFObjectHandle::newName("/Page"));
    page.replaceKey(
        "/MediaBox",
        QPDFObjectHandle::newArray(std::vector<QPDFObjectHandle>{
            QPDFObjectHandle::newInteger(0), QPDFObjectHandle::newInteger(0),
            QPDFObjectHandle::newReal(width, 4), QPDFObjectHandle::newReal(height, 4)}));
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents", pdf.newStream(content));
    page = pdf.makeIndirectObject(page);
    pdf.addPage(page, false);
    return page;
}

} // namespace qf::writers::pdf
