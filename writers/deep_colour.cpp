// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/deep_colour.h"

#include <cstdarg>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include <dlfcn.h>
#include <tiffio.h>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "writers/magick/magick_deep_tiff.h"

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

// The 16-bit module's two entry points, or why it could not be loaded.
struct DeepModule {
    decltype(&qf_deep_tiff) rewrite = nullptr;
    decltype(&qf_deep_tiff_free) release = nullptr;
    std::string problem;
};

// Installed beside the program (<prefix>/lib/quirefold), else where this build made it.
std::vector<std::filesystem::path> module_candidates()
{
    std::vector<std::filesystem::path> candidates;
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        candidates.push_back(program.parent_path().parent_path() / "lib" / "quirefold" / "qf_magick.so");
    }
#ifdef QF_MAGICK_MODULE
    candidates.emplace_back(QF_MAGICK_MODULE);
#endif
    return candidates;
}

const DeepModule& deep_module()
{
    static const DeepModule module = [] {
        DeepModule loaded;
        loaded.problem = "the 16-bit module was not found";
        for (const auto& candidate : module_candidates()) {
            std::error_code error;
            if (!std::filesystem::is_regular_file(candidate, error)) {
                continue;
            }
            // Kept loaded for the rest of the process; its library cannot be unloaded cleanly.
            void* handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle == nullptr) {
                const char* reason = ::dlerror();
                loaded.problem = std::string("the 16-bit module could not be loaded: ") +
                                 (reason != nullptr ? reason : "unknown reason");
                continue;
            }
            loaded.rewrite = reinterpret_cast<decltype(&qf_deep_tiff)>(::dlsym(handle, "qf_deep_tiff"));
            loaded.release = reinterpret_cast<decltype(&qf_deep_tiff_free)>(::dlsym(handle, "qf_deep_tiff_free"));
            if (loaded.rewrite != nullptr && loaded.release != nullptr) {
                loaded.problem.clear();
                break;
            }
            loaded.problem = "the 16-bit module is incomplete";
        }
        return loaded;
    }();
    return module;
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
    const DeepModule& module = deep_module();
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
        module.rewrite(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), compressions.data(),
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
