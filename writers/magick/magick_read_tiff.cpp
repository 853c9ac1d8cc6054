// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/magick/magick_read_tiff.h"

#include <cstdlib>

#include <Magick++.h>

#include "writers/magick/magick_setup.h"

extern "C" int qf_magick_read_tiff(const unsigned char* tiff, std::size_t length, unsigned index,
                                   unsigned long long max_pixels, unsigned* width, unsigned* height,
                                   unsigned char** rgba)
{
    *width = 0;
    *height = 0;
    *rgba = nullptr;
    try {
        qf_magick_initialise();
        Magick::Image image;
        image.magick("TIFF");
        image.subImage(index);
        image.subRange(1);
        try {
            image.read(Magick::Blob(tiff, length));
        } catch (const Magick::Warning&) {
            // A warning (an unknown tag, say) still delivers the image.
        } catch (const Magick::Exception&) {
            return kQfReadUnreadable;
        }
        const unsigned columns = image.columns();
        const unsigned rows = image.rows();
        if (columns == 0 || rows == 0) {
            return kQfReadUnreadable;
        }
        if (static_cast<unsigned long long>(columns) * rows > max_pixels) {
            return kQfReadTooLarge;
        }
        if (image.colorSpace() != Magick::RGBColorspace) {
            image.colorSpace(Magick::RGBColorspace);
        }
        auto* pixels = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(columns) * rows * 4));
        if (pixels == nullptr) {
            return kQfReadTooLarge;
        }
        // An image without alpha may leave its pixels' opacity unset (the float readers do), so
        // only an image with alpha has it exported; the others are opaque.
        const bool has_alpha = image.matte();
        try {
            image.write(0, 0, columns, rows, has_alpha ? "RGBA" : "RGB", Magick::CharPixel, pixels);
        } catch (const Magick::Warning&) {
        } catch (const Magick::Exception&) {
            std::free(pixels);
            return kQfReadUnreadable;
        }
        if (!has_alpha) {
            // Spread the packed RGB triples to RGBA from the last pixel back, so none is
            // overwritten before it is moved.
            for (std::size_t i = static_cast<std::size_t>(columns) * rows; i-- > 0;) {
                pixels[4 * i + 3] = 255;
                pixels[4 * i + 2] = pixels[3 * i + 2];
                pixels[4 * i + 1] = pixels[3 * i + 1];
                pixels[4 * i] = pixels[3 * i];
            }
        }
        *width = columns;
        *height = rows;
        *rgba = pixels;
        return kQfReadDone;
    } catch (...) {
        return kQfReadUnreadable;
    }
}
