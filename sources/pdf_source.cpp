// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_source.h"

#include <climits>
#include <cmath>
#include <mutex>
#include <new>
#include <string>
#include <vector>

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

// An open PDF. MuPDF parses of the document are kept in a pool: a call takes an idle one (or
// opens another when all are busy on other threads) and gives it back when done, so each
// parse is used by one thread at a time and several threads can render at once.
class PdfSource final : public engine::PageSource {
public:
    explicit PdfSource(const engine::DocumentToOpen& document)
        : path_(document.path), password_(document.password)
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
        const PageBox box = page.box();
        const PixelSize size = render_size(box.width, box.height, box.rotation, request.dpi,
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

} // namespace qf::sources
