// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include "engine/page.h"

namespace qf::writers::pdf {

// A scratch file beside the output that holds the encoded data of image pages until the
// document is written, so that memory does not grow with the number of pages. Removed when
// the spool is destroyed. Not thread-safe: one assembler uses it.
class ImageSpool
{
  public:
    struct Extent
    {
        long offset = 0;
        long length = 0;
    };

    // Creates the scratch file beside `target`. Throws Error(Output) when it cannot.
    explicit ImageSpool(const std::filesystem::path &target);
    ~ImageSpool();
    ImageSpool(const ImageSpool &) = delete;
    ImageSpool &operator=(const ImageSpool &) = delete;

    // Stores bytes as they are; or the rows of a picture, Flate-compressed.
    Extent append(const std::string &bytes);
    Extent append_flate(const engine::PagePicture &picture);
    // Writes a stored extent into a pipeline.
    void copy(const Extent &extent, Pipeline &out);

  private:
    Extent finish_extent(long start);

    std::filesystem::path path_;
    std::FILE *file_ = nullptr;
};

// The CCITT Group 4 coding of a bilevel picture (1 = black, rows padded to whole bytes), as a
// PDF CCITTFaxDecode filter with K -1 and BlackIs1 false reads it. Throws Error(Output).
std::string encode_g4(const engine::PagePicture &picture);

// Appends to `pdf` a page of width * pagescale by height * pagescale points that shows the
// picture over its whole surface. Bilevel pictures stay 1-bit gray (CCITT G4), RGB pictures
// are Flate-compressed; the data goes to the spool now and is read back when the document is
// written. Returns the new page.
QPDFObjectHandle add_picture_page(QPDF &pdf, const std::shared_ptr<ImageSpool> &spool,
                                  const engine::PagePicture &picture, double pagescale);

} // namespace qf::writers::pdf
