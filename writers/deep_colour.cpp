// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/deep_colour.h"

#include <cstdarg>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <tiffio.h>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "writers/magick/magick_module.h"

namespace qf::writers {
namespace {

int quiet_tiff(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

// The compression each image keeps, from the file's own Compression tags (the image library
// reports Packbits and CCITT RLE alike as none). JPEG and the fax codes have no 16-bit form;
// they, and anything unknown, become LZW, which is lossless and which every reader has.
std::vector<int> deep_compressions(const std::filesystem::path& file)
{
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, quiet_tiff, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, quiet_tiff, nullptr);
    TIFF* tif = TIFFOpenExt(file.c_str(), "r", options);
    TIFFOpenOptionsFree(options);
    std::vector<int> compressions;
    if (tif == nullptr) {
        return compressions;
    }
    do {
        std::uint16_t code = COMPRESSION_NONE;
        TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &code);
        switch (code) {
        case COMPRESSION_NONE: compressions.push_back(kQfDeepNone); break;
        case COMPRESSION_ADOBE_DEFLATE:
        case COMPRESSION_DEFLATE: compressions.push_back(kQfDeepDeflate); break;
        case COMPRESSION_PACKBITS: compressions.push_back(kQfDeepPackbits); break;
        default: compressions.push_back(kQfDeepLzw);
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

std::string deep_failure(int result)
{
    switch (result) {
    case kQfDeepUnreadable: return "not a readable TIFF file";
    case kQfDeepNoImage: return "the file holds no image";
    default: return "the 16-bit image could not be encoded";
    }
}

} // namespace

void writergb48(const std::filesystem::path& file)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        return;
    }
    const MagickModule& module = magick_module();
    if (!module.problem.empty()) {
        throw engine::Error(engine::ErrorKind::Output, module.problem, file);
    }
    // The image is handed over in memory, so that no character of its name means anything to
    // the image library.
    const std::string bytes = read_whole_file(file);
    const std::vector<int> compressions = deep_compressions(file);
    unsigned char* encoded = nullptr;
    std::size_t encoded_length = 0;
    const int result =
        module.deep_tiff(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), compressions.data(),
                       compressions.size(), &encoded, &encoded_length);
    if (result != kQfDeepDone) {
        throw engine::Error(engine::ErrorKind::Output, deep_failure(result), file);
    }
    const std::unique_ptr<unsigned char, decltype(module.release)> blob(encoded, module.release);
    engine::write_atomically(file, [&](const std::filesystem::path& temp) {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(blob.get()), static_cast<std::streamsize>(encoded_length));
        out.close();
        if (!out) {
            throw engine::Error(engine::ErrorKind::Output, "the file could not be written completely", file);
        }
    });
}

} // namespace qf::writers
