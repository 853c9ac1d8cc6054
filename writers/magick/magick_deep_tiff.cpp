// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/magick/magick_deep_tiff.h"

#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>

#include <Magick++.h>

#include "writers/magick/magick_setup.h"

void qf_magick_initialise()
{
    static std::once_flag once;
    std::call_once(once, [] { Magick::InitializeMagick(nullptr); });
}

namespace {

MagickLib::CompressionType magick_compression(int code)
{
    switch (code) {
    case kQfDeepNone: return MagickLib::NoCompression;
    case kQfDeepDeflate: return MagickLib::ZipCompression;
    case kQfDeepPackbits: return MagickLib::RLECompression;
    default: return MagickLib::LZWCompression;
    }
}

} // namespace

extern "C" int qf_deep_tiff(const unsigned char* tiff, std::size_t length, const int* compressions,
                            std::size_t count, unsigned char** out, std::size_t* out_length)
{
    *out = nullptr;
    *out_length = 0;
    try {
        qf_magick_initialise();
        std::list<Magick::Image> frames;
        try {
            Magick::readImages(&frames, Magick::Blob(tiff, length));
        } catch (const Magick::Warning&) {
            // A warning (an unknown tag, say) still delivers the images.
        } catch (const Magick::Exception&) {
            return kQfDeepUnreadable;
        }
        if (frames.empty()) {
            return kQfDeepNoImage;
        }
        std::size_t index = 0;
        for (Magick::Image& frame : frames) {
            frame.magick("TIFF");
            frame.depth(16);
            frame.type(Magick::TrueColorType);
            frame.compressType(magick_compression(index < count ? compressions[index] : kQfDeepLzw));
            ++index;
        }
        Magick::Blob blob;
        try {
            Magick::writeImages(frames.begin(), frames.end(), &blob, true);
        } catch (const Magick::Warning&) {
            // The blob is complete; a warning only remarks on it.
        } catch (const Magick::Exception&) {
            return kQfDeepNotEncoded;
        }
        if (blob.length() == 0) {
            return kQfDeepNotEncoded;
        }
        auto* copy = static_cast<unsigned char*>(std::malloc(blob.length()));
        if (copy == nullptr) {
            return kQfDeepNotEncoded;
        }
        std::memcpy(copy, blob.data(), blob.length());
        *out = copy;
        *out_length = blob.length();
        return kQfDeepDone;
    } catch (...) {
        return kQfDeepNotEncoded;
    }
}

extern "C" void qf_deep_tiff_free(unsigned char* data)
{
    std::free(data);
}
