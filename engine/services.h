// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/page.h"
#include "engine/run_model.h"

// The interfaces through which the batch driver reaches page sources and writers. The
// composition roots (the window, the command line) plug the implementations in; a missing
// one makes the pages that need it fail with a log line.
namespace qf::engine {

// How a PDF page is to be rendered. Pixel sides: points / 72 * dpi * zoom, truncated; pages
// rotated by 90 or 270 degrees swap sides first. jpeg_order multiplies zoom before the
// resolution factor (points * zoom * dpi / 72), which can differ by one pixel.
struct RenderRequest {
    int dpi = 150;          // integer reading of the resolution text, not clamped
    int zoom = 1;
    bool jpeg_order = false;
    bool flatten = true;    // annotations and form fields drawn into the page
    // The caller takes the source's compressed data instead of pixels where there is some
    // (a PDF page can carry CCITT G4 as it is); pixels may then be left out.
    bool compressed_ok = false;
    // Becomes 1 when the run is aborted: a source that watches it abandons the page under way
    // (as with MuPDF's cookie abort flag) and throws. Null when nothing can abort the page.
    const std::atomic<int>* abort = nullptr;
};

// What a TIFF document says of itself: tags of the image read first (image 1 of a tiled
// file) and the resolution of the first image in dots per inch, 0 when absent.
struct SourceTags {
    std::string copyright;
    std::string document_name;
    int xres = 0;
    int yres = 0;
};

struct DocumentToOpen {
    std::filesystem::path path;
    std::string password;    // unlock password of a PDF; empty when none
    std::string tile_marker; // "tiled~yes" or "tiled~no"
};

// One open source document. Opened once per document of a run. Every member may throw Error;
// a failed page does not spoil the next one.
class PageSource {
public:
    virtual ~PageSource() = default;
    virtual int page_count() const = 0;
    // The page (1-based) as pixels. A PDF page is rendered onto white by the request; a TIFF
    // page keeps the source's pixels, 1-bit images as Bilevel, and ignores the request.
    virtual PagePicture picture(int pageno, const RenderRequest& request) = 0;
    // The page's text in reading order, UTF-8; empty for an image document.
    virtual std::string text(int pageno) = 0;
    virtual SourceTags tags() const { return {}; }
};

using SourceOpener = std::function<std::unique_ptr<PageSource>(const DocumentToOpen&)>;

// What a writer of one page knows of the run.
struct PageWriteContext {
    const OptionSnapshot& snapshot;
    int tiffcode = 1;         // TIFF Compression tag value of the run's compression row
    std::string ccopyright;   // Copyright tag of the last TIFF source read
    std::string cdocumentname;
};

// Writes one page to one finished file (JPEG, PNG, single-page TIFF). The file appears under
// its name only when complete. Throws Error(ErrorKind::Output) when it cannot be written.
using PictureFileWriter =
    std::function<void(const PagePicture&, const std::filesystem::path& target, const PageWriteContext&)>;

// Writes a document's text to one finished file; it appears under its name only when
// complete. Throws Error(ErrorKind::Output) when it cannot be written.
using TextFileWriter = std::function<void(const std::string& text, const std::filesystem::path& target)>;

// The multipage TIFF writer: one file per document, or one for the whole run.
class MultipageTiffWriter {
public:
    virtual ~MultipageTiffWriter() = default;
    // Starts a new file for `target`; it stays under a temporary name until close().
    virtual void open(const std::filesystem::path& target, const PageWriteContext& context) = 0;
    virtual bool is_open() const = 0;
    // Writes the page as the file's next image.
    virtual void add_page(const PagePicture& picture, const PageWriteContext& context) = 0;
    // Finishes the file and puts it under its name; a file of no image is dropped and
    // reported. Throws Error(ErrorKind::Output).
    virtual void close() = 0;
};

// What writing a delivered PDF says besides the file.
struct PdfClosed {
    std::vector<std::string> reasons; // "page N REASON": what keeps it from conforming
    std::vector<std::string> lines;   // the security pass's lines, naming the file as written
};

// One PDF being assembled page by page (a document's output, or one page's).
class PdfAssembler {
public:
    virtual ~PdfAssembler() = default;
    // Appends a copy of a source PDF page (1-based), annotations and form fields flattened.
    virtual void add_pdf_page(const std::filesystem::path& source, const std::string& password, int pageno) = 0;
    // Appends a page holding the picture, pagescale points per pixel.
    virtual void add_image_page(const PagePicture& picture, double pagescale) = 0;
    virtual int page_count() const = 0;
    // Writes the file under its name when complete, as a part to be merged later. Returns what
    // keeps it from conforming to the chosen PDF/A or PDF/X level, one "page N REASON" text
    // each. Throws Error(Output).
    virtual std::vector<std::string> close() = 0;
    // Writes the file as delivered, in one write: the document information, lossless
    // recompression and encryption the snapshot asks for are applied in the same write, the
    // file being the one close() followed by the security pass would give.
    virtual PdfClosed close_secured() = 0;
};

using PdfAssemblerFactory =
    std::function<std::unique_ptr<PdfAssembler>(const std::filesystem::path& target, const OptionSnapshot&)>;

// Merges PDFs in order into `target` and secures it in the same write (document information,
// lossless recompression and the encryption the snapshot asks for), calling `merged` after
// each input. Returns the security pass's lines, naming the file as written. Throws
// Error(Output).
using PdfMerger = std::function<std::vector<std::string>(
    const std::vector<std::filesystem::path>& inputs, const std::filesystem::path& target, const OptionSnapshot&,
    const std::function<void(const std::filesystem::path&)>& merged)>;

struct StampRequest {
    std::string dots_per_inch; // the resolution text as entered
    std::string copyright;     // the last TIFF source's Copyright tag
    std::string author;        // the trimmed author text
};

// Writes resolution, copyright and author tags into a finished JPEG or TIFF, replacing it
// whole; a file it cannot stamp stays as it is. Lives for one run.
class Stamper {
public:
    virtual ~Stamper() = default;
    virtual void updatedpinonstore(const std::filesystem::path& file, const StampRequest& request) = 0;
};

struct RunServices {
    SourceOpener open_pdf;
    SourceOpener open_tiff;
    PictureFileWriter write_jpeg;
    PictureFileWriter write_png;
    PictureFileWriter write_tiff_single;
    TextFileWriter write_text;
    std::function<std::unique_ptr<MultipageTiffWriter>()> multipage_tiff;
    PdfAssemblerFactory pdf_assembler;
    PdfMerger merge_pdfs;
    // A combined run's part has been written (`first`: the run's first), so that the merge may
    // start on it at once. May be empty.
    std::function<void(const std::filesystem::path& part, bool first)> part_written;
    // The PDF after the document under way will have its pages taken for a document's own PDF
    // (PDF (Multipage), and a combined file's parts), so its reading may start beside the
    // current document. A hint only: nothing depends on it. May be empty.
    std::function<void(const std::filesystem::path& source, const std::string& password)> read_ahead;
    std::function<std::unique_ptr<Stamper>()> stamper;
    std::function<void(const std::filesystem::path&)> writergb48; // 16 bits a sample, in place
    // Ends at once whatever the sources are reading (the run is aborted): the requests under
    // way fail. Thread-safe; may be empty.
    std::function<void()> abort_reading;
};

} // namespace qf::engine
