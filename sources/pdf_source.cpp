// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_source.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include "engine/error.h"
#include "sources/pdf_mupdf.h"

namespace qf::sources {

using engine::Error;
using engine::ErrorKind;

namespace {

int truncated_side(double pixels)
{
    const double whole = std::trunc(pixels);
    if (!(whole <= INT_MAX)) {
        return whole < 0 ? INT_MIN : INT_MAX; // a NaN lands here too
    }
    return whole < INT_MIN ? INT_MIN : static_cast<int>(whole);
}

std::string size_text(PixelSize size)
{
    return std::to_string(size.width) + " x " + std::to_string(size.height) + " pixels";
}

void check_render_size(PixelSize size, const std::filesystem::path& file, int pageno)
{
    if (size.width < 1 || size.height < 1) {
        throw Error(ErrorKind::Unsupported, "page too small to render: " + size_text(size), file,
                    pageno);
    }
    const auto bytes = static_cast<unsigned long long>(size.width) *
                       static_cast<unsigned long long>(size.height) * 3ULL;
    if (size.width > kMaxRenderSide || size.height > kMaxRenderSide || bytes > kMaxRenderBytes) {
        throw Error(ErrorKind::Unsupported, "page too large to render: " + size_text(size), file,
                    pageno);
    }
}

struct Rect {
    double x0 = 0;
    double y0 = 0;
    double x1 = 0;
    double y1 = 0;
    bool empty() const { return !(x0 < x1 && y0 < y1); }
};

// A box array's four numbers in double precision, corners put in order; an empty rectangle
// when the entry is not an array of four numbers.
Rect rect_of(QPDFObjectHandle array)
{
    if (!array.isArray() || array.getArrayNItems() < 4) {
        return {};
    }
    double n[4];
    for (int i = 0; i < 4; ++i) {
        QPDFObjectHandle item = array.getArrayItem(i);
        if (!item.isNumber()) {
            return {};
        }
        n[i] = item.getNumericValue();
    }
    return {std::min(n[0], n[2]), std::min(n[1], n[3]), std::max(n[0], n[2]),
            std::max(n[1], n[3])};
}

// The same edge within a float's precision (MuPDF's reading of a number may be a few float
// steps away from the nearest float).
bool same_edge(double written, double read)
{
    return std::abs(written - read) <= 1e-5 * std::max(1.0, std::abs(read));
}

// Page boxes as the file writes them. MuPDF reads every PDF number as float, so an edge written
// 680.400024 reaches it as 680.4000244 and one written 611.99999 as 612, and a side can come
// out a pixel off once truncated. QPDF keeps each number's text, read here in double
// precision. The document is opened on first use and shared by the threads under a lock.
class WrittenBoxes {
public:
    WrittenBoxes(std::filesystem::path path, std::string password)
        : path_(std::move(path)), password_(std::move(password))
    {
    }

    // MuPDF's box of page `index` (0-based) with its edges as the file writes them: the
    // MediaBox (inherited, else US Letter) clipped to the CropBox when there is one. Where
    // QPDF cannot read the page or lays it out otherwise than MuPDF, MuPDF's box stands.
    PageBox refine(int index, PageBox read, int page_count)
    {
        Rect written;
        try {
            const std::lock_guard lock(mutex_);
            if (!opened_) {
                opened_ = true;
                open(page_count);
            }
            if (static_cast<std::size_t>(index) >= pages_.size()) {
                return read;
            }
            QPDFPageObjectHelper& page = pages_[static_cast<std::size_t>(index)];
            written = rect_of(page.getAttribute("/MediaBox", false));
            if (written.empty()) {
                written = {0, 0, 612, 792};
            }
            const Rect crop = rect_of(page.getAttribute("/CropBox", false));
            if (!crop.empty()) {
                written = {std::max(written.x0, crop.x0), std::max(written.y0, crop.y0),
                           std::min(written.x1, crop.x1), std::min(written.y1, crop.y1)};
            }
        } catch (const std::exception&) {
            return read;
        }
        if (!same_edge(written.x0, read.x0) || !same_edge(written.y0, read.y0) ||
            !same_edge(written.x1, read.x1) || !same_edge(written.y1, read.y1)) {
            return read;
        }
        return {written.x0, written.y0, written.x1, written.y1, read.rotation};
    }

private:
    // Pages are taken only when both libraries count the same pages, so that index N is the
    // same page to both.
    void open(int page_count)
    {
        pdf_ = std::make_unique<QPDF>();
        pdf_->setSuppressWarnings(true);
        pdf_->processFile(path_.c_str(), password_.c_str());
        auto pages = QPDFPageDocumentHelper(*pdf_).getAllPages();
        if (pages.size() == static_cast<std::size_t>(page_count)) {
            pages_ = std::move(pages);
        }
    }

    std::filesystem::path path_;
    std::string password_;
    std::mutex mutex_;
    bool opened_ = false;
    std::unique_ptr<QPDF> pdf_;
    std::vector<QPDFPageObjectHelper> pages_;
};

// An open PDF. MuPDF parses of the document are kept in a pool: a call takes an idle one (or
// opens another when all are busy on other threads) and gives it back when done, so each
// parse is used by one thread at a time and several threads can render at once.
class PdfSource final : public engine::PageSource {
public:
    explicit PdfSource(const engine::DocumentToOpen& document)
        : path_(document.path), password_(document.password), boxes_(path_, password_)
    {
        auto first = std::make_unique<MupdfDocument>(path_, password_);
        page_count_ = first->page_count();
        if (page_count_ < 1) {
            throw Error(ErrorKind::Damaged, "the document has no pages", path_);
        }
        idle_.push_back(std::move(first));
    }

    int page_count() const override { return page_count_; }

    engine::PagePicture picture(int pageno, const engine::RenderRequest& request) override
    {
        check_page(pageno);
        Lease lease(*this);
        MupdfPage page = lease->load_page(pageno - 1);
        const PageBox box = boxes_.refine(pageno - 1, page.box(), page_count_);
        const PixelSize size = render_size(box.width(), box.height(), box.rotation, request.dpi,
                                           request.zoom, request.jpeg_order);
        check_render_size(size, path_, pageno);

        engine::PagePicture picture;
        picture.width = size.width;
        picture.height = size.height;
        picture.format = engine::PixelFormat::Rgb8;
        picture.pixels.resize(picture.stride() * static_cast<std::size_t>(size.height));
        page.render(size.width, size.height, picture.pixels.data());
        return picture;
    }

    std::string text(int pageno) override
    {
        check_page(pageno);
        Lease lease(*this);
        return lease->load_page(pageno - 1).text();
    }

    PageBox box(int pageno)
    {
        check_page(pageno);
        Lease lease(*this);
        return boxes_.refine(pageno - 1, lease->load_page(pageno - 1).box(), page_count_);
    }

private:
    // A parse of the document on loan to one call.
    class Lease {
    public:
        explicit Lease(PdfSource& source) : source_(source), document_(source.acquire()) {}
        ~Lease() { source_.release(std::move(document_)); }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        MupdfDocument* operator->() const { return document_.get(); }

    private:
        PdfSource& source_;
        std::unique_ptr<MupdfDocument> document_;
    };

    std::unique_ptr<MupdfDocument> acquire()
    {
        {
            const std::lock_guard lock(mutex_);
            if (!idle_.empty()) {
                auto document = std::move(idle_.back());
                idle_.pop_back();
                return document;
            }
        }
        return std::make_unique<MupdfDocument>(path_, password_);
    }

    void release(std::unique_ptr<MupdfDocument> document) noexcept
    {
        const std::lock_guard lock(mutex_);
        try {
            idle_.push_back(std::move(document));
        } catch (const std::bad_alloc&) {
            // Out of memory: let this parse go; the next call opens another.
        }
    }

    void check_page(int pageno) const
    {
        if (pageno < 1 || pageno > page_count_) {
            throw Error(ErrorKind::BadInput,
                        "the document has only " + std::to_string(page_count_) +
                            (page_count_ == 1 ? " page" : " pages"),
                        path_, pageno);
        }
    }

    std::filesystem::path path_;
    std::string password_;
    int page_count_ = 0;
    std::mutex mutex_;
    std::vector<std::unique_ptr<MupdfDocument>> idle_;
    WrittenBoxes boxes_;
};

} // namespace

PixelSize render_size(double width_pt, double height_pt, int rotation, int dpi, int zoom,
                      bool jpeg_order)
{
    const int degrees = (rotation % 360 + 360) % 360;
    if (degrees == 90 || degrees == 270) {
        std::swap(width_pt, height_pt);
    }
    const double f = dpi / 72.0;
    const auto side = [&](double points) {
        return jpeg_order ? points * zoom * f : points * f * zoom;
    };
    return {truncated_side(side(width_pt)), truncated_side(side(height_pt))};
}

std::unique_ptr<engine::PageSource> open_pdf_source(const engine::DocumentToOpen& document)
{
    return std::make_unique<PdfSource>(document);
}

PageBox pdf_page_box(engine::PageSource& source, int pageno)
{
    auto* pdf = dynamic_cast<PdfSource*>(&source);
    if (pdf == nullptr) {
        throw std::invalid_argument("not a PDF source");
    }
    return pdf->box(pageno);
}

} // namespace qf::sources
