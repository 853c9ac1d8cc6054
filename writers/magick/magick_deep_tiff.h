// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The interface of the image module, loaded only when a run asks for 48-bit TIFF output or meets
// a TIFF image that libtiff's readers refuse (magick_read_tiff.h). The image library it wraps
// pulls in several dozen shared libraries whose loading would otherwise add to the start of
// every run. Plain C types only: nothing but the exported symbols crosses the boundary, and no
// exception does.

#include <cstddef>

#define QF_DEEP_EXPORT __attribute__((visibility("default")))

extern "C" {

// How each image of the new file is compressed.
enum QfDeepCompression { kQfDeepNone = 0, kQfDeepDeflate = 1, kQfDeepPackbits = 2, kQfDeepLzw = 3 };

// Results of qf_deep_tiff.
enum QfDeepResult { kQfDeepDone = 0, kQfDeepUnreadable = 1, kQfDeepNoImage = 2, kQfDeepNotEncoded = 3 };

// Reads the TIFF file held in `tiff` and encodes every image again as 16-bit RGB with
// compressions[i] for image i (LZW past the end of the list). On kQfDeepDone, *out and
// *out_length hold the new file, to be given back with qf_deep_tiff_free.
QF_DEEP_EXPORT int qf_deep_tiff(const unsigned char* tiff, std::size_t length, const int* compressions,
                                std::size_t count, unsigned char** out, std::size_t* out_length);

// Gives back what the module's functions handed out.
QF_DEEP_EXPORT void qf_deep_tiff_free(unsigned char* data);
}
