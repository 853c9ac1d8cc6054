// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "engine/page.h"
#include "engine/services.h"

namespace qf::writers {

// The Compression tag value a page is written with: the run's code when it is one of
// 1 None, 2 CCITT RLE, 3 CCITT G3, 4 CCITT G4, 5 LZW, 7 JPEG, 8 Deflate, 32773 Packbits;
// 1 for anything else (such as the 0 a combined file sees before its first document).
int written_compression(int tiffcode);

// Writes the page as a one-image TIFF. Codes 2 to 4 make it bilevel whatever its colours
// (MinIsWhite, thresholded at mid-grey); the others make it 8-bit RGB. Resolution is
// snapshot.thedpi per inch. Copyright and DocumentName are the source document's texts
// (context.ccopyright, context.cdocumentname) unless those are blank, then the snapshot's.
// The file appears under `target` only when complete. Throws Error(ErrorKind::Output).
// Safe to call from several threads at once.
void write_tiff_single(const engine::PagePicture& picture, const std::filesystem::path& target,
                       const engine::PageWriteContext& context);

class TiffOutput;

// One multipage TIFF at a time, built under a temporary name beside its target and renamed
// into place by close(). Pages take the compression of their own context; Copyright and
// DocumentName are always the snapshot's texts. A page that cannot be written (no pixels,
// too large for JPEG) is refused before the file is touched, so the pages already added stay
// sound. A write that fails inside the library spoils the file: later pages are refused and
// close() drops it and throws. Not thread-safe; one object serves one worker.
class MultipageTiff : public engine::MultipageTiffWriter {
public:
    MultipageTiff();
    ~MultipageTiff() override; // an unclosed file is discarded
    MultipageTiff(const MultipageTiff&) = delete;
    MultipageTiff& operator=(const MultipageTiff&) = delete;

    // A file still open is closed first (and may throw as close() does).
    void open(const std::filesystem::path& target,
              const engine::PageWriteContext& context) override;
    bool is_open() const override;
    void add_page(const engine::PagePicture& picture,
                  const engine::PageWriteContext& context) override;
    // Throws Error(Output, "no page could be added") for a file of no page, which is dropped.
    void close() override;

    int page_count() const { return pages_; }

private:
    void discard() noexcept;

    std::unique_ptr<TiffOutput> output_;
    std::filesystem::path target_;
    std::filesystem::path temp_;
    int pages_ = 0;
    std::string spoiled_; // why a write failed inside the library; empty while the file is sound
};

} // namespace qf::writers
