// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/deep_colour.h"

#include <cstdarg>
#include <fstream>
#include <iterator>
#include <list>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include <Magick++.h>
#include <tiffio.h>

#include "engine/error.h"
#include "engine/file_ops.h"

namespace qf::writers {
namespace {

int quiet_tiff(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

void initialise_magick()
{
    static std::once_flag once;
    std::call_once(once, [] { Magick::InitializeMagick(nullptr); });
}

// The compression each image keeps, from the file's own Compression tags (the image library
// reports Packbits and CCITT RLE alike as none). JPEG and the fax codes have no 16-bit form;
// they, and anything unknown, become LZW, which is lossless and which every reader has.
std::vector<MagickLib::CompressionType> deep_compressions(const std::filesystem::path& file)
{
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, quiet_tiff, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, quiet_tiff, nullptr);
    TIFF* tif = TIFFOpenExt(file.c_str(), "r", options);
    TIFFOpenOptionsFree(options);
    std::vector<MagickLib::CompressionType> compressions;
    if (tif == nullptr) {
        return compressions;
    }
    do {
        std::uint16_t code = COMPRESSION_NONE;
        TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &code);
        switch (code) {
        case COMPRESSION_NONE: compressions.push_back(MagickLib::NoCompression); break;
        case COMPRESSION_ADOBE_DEFLATE:
        case COMPRESSION_DEFLATE: compressions.push_back(MagickLib::ZipCompression); break;
        case COMPRESSION_PACKBITS: compressions.push_back(MagickLib::RLECompression); break;
        default: compressions.push_back(MagickLib::LZWCompression);
        }
    } while (TIFFReadDirectory(tif));
    TIFFClose(tif);
    return compressions;
}

std::string read_whole_file(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
        throw engine::Error(engine::ErrorKind::Output, "the file could not be read", file);
    }
    return bytes;
}

// The file's images, read from memory so that no character of its name means anything to
// the image library.
std::list<Magick::Image> read_frames(const std::filesystem::path& file)
{
    const std::string bytes = read_whole_file(file);
    std::list<Magick::Image> frames;
    try {
        Magick::readImages(&frames, Magick::Blob(bytes.data(), bytes.size()));
    } catch (const Magick::Warning&) {
        // A warning (an unknown tag, say) still delivers the images.
    } catch (const Magick::Exception&) {
        throw engine::Error(engine::ErrorKind::Output, "not a readable TIFF file", file);
    }
    if (frames.empty()) {
        throw engine::Error(engine::ErrorKind::Output, "the file holds no image", file);
    }
    return frames;
}

Magick::Blob encode_frames(std::list<Magick::Image>& frames, const std::filesystem::path& file)
{
    const std::vector<MagickLib::CompressionType> compressions = deep_compressions(file);
    std::size_t index = 0;
    for (Magick::Image& frame : frames) {
        frame.magick("TIFF");
        frame.depth(16);
        frame.type(Magick::TrueColorType);
        frame.compressType(index < compressions.size() ? compressions[index]
                                                       : MagickLib::LZWCompression);
        ++index;
    }
    Magick::Blob blob;
    try {
        Magick::writeImages(frames.begin(), frames.end(), &blob, true);
    } catch (const Magick::Warning&) {
        // The blob is complete; a warning only remarks on it.
    } catch (const Magick::Exception&) {
        blob = Magick::Blob();
    }
    if (blob.length() == 0) {
        throw engine::Error(engine::ErrorKind::Output, "the 16-bit image could not be encoded",
                            file);
    }
    return blob;
}

} // namespace

void writergb48(const std::filesystem::path& file)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        return;
    }
    initialise_magick();
    std::list<Magick::Image> frames = read_frames(file);
    const Magick::Blob blob = encode_frames(frames, file);
    engine::write_atomically(file, [&](const std::filesystem::path& temp) {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out.write(static_cast<const char*>(blob.data()),
                  static_cast<std::streamsize>(blob.length()));
        out.close();
        if (!out) {
            throw engine::Error(engine::ErrorKind::Output,
                                "the file could not be written completely", file);
        }
    });
}

} // namespace qf::writers
