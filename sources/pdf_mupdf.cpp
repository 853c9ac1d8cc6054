// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_mupdf.h"

#include <mupdf/fitz.h>
#include <mupdf/pdf.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <mutex>

#include "engine/error.h"
#include "sources/mupdf_guard.h"
#include "sources/pdf_source.h"

namespace qf::sources {

using engine::Error;
using engine::ErrorKind;

namespace {

// ---- Calls into MuPDF. Each is C-style: fz_try/fz_catch inside, only trivially destructible
// objects on the frame, 0 on success, else 1 with MuPDF's message copied out. A longjmp from
// MuPDF thus never passes over a C++ destructor.

struct Message {
    char text[256];
};

void keep_message(fz_context* ctx, Message* message)
{
    std::snprintf(message->text, sizeof message->text, "%s", fz_caught_message(ctx));
}

int mu_open(fz_context* ctx, const char* path, pdf_document** out, Message* message)
{
    pdf_document* doc = nullptr;
    fz_var(doc);
    fz_try(ctx)
    {
        doc = pdf_open_document(ctx, path);
    }
    fz_catch(ctx)
    {
        keep_message(ctx, message);
        return 1;
    }
    *out = doc;
    return 0;
}

// *opened: 1 when no password is needed or `password` opens the document.
int mu_authenticate(fz_context* ctx, pdf_document* doc, const char* password, int* needed,
                    int* opened, Message* message)
{
    fz_try(ctx)
    {
        *needed = pdf_needs_password(ctx, doc);
        *opened = !*needed || pdf_authenticate_password(ctx, doc, password) != 0;
    }
    fz_catch(ctx)
    {
        keep_message(ctx, message);
        return 1;
    }
    return 0;
}

int mu_count_pages(fz_context* ctx, pdf_document* doc, int* count, Message* message)
{
    fz_try(ctx)
    {
        *count = pdf_count_pages(ctx, doc);
    }
    fz_catch(ctx)
    {
        keep_message(ctx, message);
        return 1;
    }
    return 0;
}

// Loads a page and reads its unrotated box and its /Rotate as written. MuPDF makes the
// appearance streams that are missing or asked for (NeedAppearances) as it loads the page, so
// widgets show their values without more ado.
int mu_load_page(fz_context* ctx, pdf_document* doc, int index, pdf_page** out, fz_rect* box,
                 int* rotate, Message* message)
{
    pdf_page* page = nullptr;
    fz_var(page);
    fz_try(ctx)
    {
        page = pdf_load_page(ctx, doc, index);
        fz_matrix ctm;
        pdf_page_transform(ctx, page, box, &ctm);
        *rotate = pdf_to_int(ctx, pdf_dict_get_inheritable(ctx, page->obj, PDF_NAME(Rotate)));
    }
    fz_catch(ctx)
    {
        fz_drop_page(ctx, reinterpret_cast<fz_page*>(page));
        keep_message(ctx, message);
        return 1;
    }
    *out = page;
    return 0;
}

int mu_render(fz_context* ctx, pdf_page* page, int width, int height, unsigned char* samples,
              fz_cookie* cookie, Message* message)
{
    fz_pixmap* pixmap = nullptr;
    fz_device* device = nullptr;
    fz_var(pixmap);
    fz_var(device);
    fz_try(ctx)
    {
        pixmap = fz_new_pixmap_with_data(ctx, fz_device_rgb(ctx), width, height, nullptr, 0,
                                         width * 3, samples);
        fz_clear_pixmap_with_value(ctx, pixmap, 255);
        // Page space (origin at the rotated page's top-left corner, points) stretched onto the
        // pixmap side by side, so that the page fills exactly width x height pixels.
        const fz_rect bounds = pdf_bound_page(ctx, page);
        const fz_matrix ctm = fz_concat(
            fz_translate(-bounds.x0, -bounds.y0),
            fz_scale(width / (bounds.x1 - bounds.x0), height / (bounds.y1 - bounds.y0)));
        device = fz_new_draw_device(ctx, fz_identity, pixmap);
        fz_run_page(ctx, &page->super, device, ctm, cookie);
        fz_close_device(ctx, device);
    }
    fz_always(ctx)
    {
        fz_drop_device(ctx, device);
        fz_drop_pixmap(ctx, pixmap);
    }
    fz_catch(ctx)
    {
        keep_message(ctx, message);
        return 1;
    }
    return 0;
}

// Runs the whole page, annotations and widgets included, into a structured text page (MuPDF's
// own helper runs the page contents alone).
int mu_stext(fz_context* ctx, pdf_page* page, fz_stext_page** out, fz_cookie* cookie,
             Message* message)
{
    fz_stext_page* text = nullptr;
    fz_device* device = nullptr;
    fz_var(text);
    fz_var(device);
    fz_try(ctx)
    {
        fz_stext_options options{};
        options.flags = FZ_STEXT_MEDIABOX_CLIP;
        text = fz_new_stext_page(ctx, pdf_bound_page(ctx, page));
        device = fz_new_stext_device(ctx, text, &options);
        fz_run_page(ctx, &page->super, device, fz_identity, cookie);
        fz_close_device(ctx, device);
    }
    fz_always(ctx)
    {
        fz_drop_device(ctx, device);
    }
    fz_catch(ctx)
    {
        fz_drop_stext_page(ctx, text);
        keep_message(ctx, message);
        return 1;
    }
    *out = text;
    return 0;
}

// ---- Contexts

// MuPDF prints warnings and errors to stderr by default; the message of the error that
// stopped a call reaches the user through Error instead, and warnings about repaired damage
// are of no use to them.
void drop_message(void*, const char*) {}

// Each parse of a document has a context of its own, with its own store and glyph cache, and
// is used by one thread at a time. Independent contexts need no locks: clones of one shared
// context would lock around every allocation, which cost a sixth of the time of reading a
// page's text on one thread and more when two threads contended for the locks. All contexts
// draw on one memory ceiling (mupdf_allocator).
fz_context* new_context()
{
    fz_context* ctx = fz_new_context(mupdf_allocator(), nullptr, FZ_STORE_DEFAULT);
    if (ctx == nullptr) {
        throw Error(ErrorKind::Unsupported, "the PDF renderer could not start");
    }
    fz_set_warning_callback(ctx, drop_message, nullptr);
    fz_set_error_callback(ctx, drop_message, nullptr);
    return ctx;
}

int snap_rotation(int rotate)
{
    rotate %= 360;
    if (rotate < 0) {
        rotate += 360;
    }
    rotate = 90 * ((rotate + 45) / 90);
    return rotate == 360 ? 0 : rotate;
}

void append_utf8(std::string& out, int c)
{
    const auto code = static_cast<unsigned>(c);
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x110000) {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

std::string stext_to_utf8(const fz_stext_page* page)
{
    std::string out;
    bool first_line = true;
    for (const fz_stext_block* block = page->first_block; block; block = block->next) {
        if (block->type != FZ_STEXT_BLOCK_TEXT) {
            continue;
        }
        for (const fz_stext_line* line = block->u.t.first_line; line; line = line->next) {
            if (!first_line) {
                out += '\n';
            }
            first_line = false;
            for (const fz_stext_char* ch = line->first_char; ch; ch = ch->next) {
                append_utf8(out, ch->c);
            }
        }
    }
    return out;
}

std::string damaged_reason(const char* what, const Message& message)
{
    std::string reason = what;
    if (message.text[0] != '\0') {
        reason += ": ";
        reason += message.text;
    }
    return reason;
}

std::string seconds_text(std::chrono::milliseconds limit)
{
    char text[32];
    const auto printed = std::to_chars(text, text + sizeof text, limit.count() / 1000.0);
    const std::string seconds(text, printed.ptr);
    return seconds + (seconds == "1" ? " second" : " seconds");
}

// Runs a page through a device under the page time limit and MuPDF's memory ceiling, and
// turns either one's intervention into the reason the page failed. `run` is a mu_* call that
// takes the cookie and returns 0 on success. `what` names the work: "draw", "read".
template <typename Run>
void run_guarded(const char* what, const char* failure, const std::filesystem::path& file,
                 int pageno, Run run)
{
    fz_cookie cookie{};
    Message message{};
    const std::chrono::milliseconds limit = page_time_limit();
    reset_mupdf_memory_refused();
    int failed = 0;
    bool timed_out = false;
    {
        const PageWatchdog watchdog(&cookie.abort, limit);
        failed = run(&cookie, &message);
        timed_out = watchdog.fired();
    }
    if (timed_out) {
        throw Error(ErrorKind::Unsupported,
                    std::string("the page took longer than ") + seconds_text(limit) + " to " +
                        what + " and was abandoned",
                    file, pageno);
    }
    if ((failed != 0 || cookie.errors > 0) && mupdf_memory_refused()) {
        throw Error(ErrorKind::Unsupported,
                    "the page needs more memory than the limit of " +
                        std::to_string(mupdf_memory_limit() >> 20) + " MB",
                    file, pageno);
    }
    if (failed != 0) {
        throw Error(ErrorKind::Damaged, damaged_reason(failure, message), file, pageno);
    }
}

} // namespace

// ---- MupdfDocument

struct MupdfDocument::Handles {
    fz_context* ctx = nullptr;
    pdf_document* doc = nullptr;

    ~Handles()
    {
        if (ctx != nullptr) {
            pdf_drop_document(ctx, doc);
            fz_drop_context(ctx);
        }
    }
};

MupdfDocument::MupdfDocument(const std::filesystem::path& path, const std::string& password)
    : path_(path), handles_(std::make_unique<Handles>())
{
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        throw Error(ErrorKind::BadInput, "the file does not exist", path);
    }
    handles_->ctx = new_context();
    Message message{};
    if (mu_open(handles_->ctx, path.c_str(), &handles_->doc, &message) != 0) {
        throw Error(ErrorKind::Damaged, damaged_reason("not a readable PDF", message), path);
    }
    int needed = 0;
    int opened = 0;
    if (mu_authenticate(handles_->ctx, handles_->doc, password.c_str(), &needed, &opened,
                        &message) != 0) {
        throw Error(ErrorKind::Damaged, damaged_reason("unreadable encryption", message), path);
    }
    if (!opened) {
        throw Error(ErrorKind::Password, password.empty() ? "the document needs a password"
                                                          : "the password does not open it",
                    path);
    }
}

MupdfDocument::~MupdfDocument() = default;

int MupdfDocument::page_count()
{
    Message message{};
    int count = 0;
    if (mu_count_pages(handles_->ctx, handles_->doc, &count, &message) != 0) {
        throw Error(ErrorKind::Damaged, damaged_reason("unreadable page tree", message), path_);
    }
    return count;
}

// ---- MupdfPage

struct MupdfPage::Handles {
    fz_context* ctx = nullptr;
    pdf_page* page = nullptr;
    std::filesystem::path path;
    int pageno = 0; // 1-based, for messages

    ~Handles() { fz_drop_page(ctx, reinterpret_cast<fz_page*>(page)); }
};

MupdfPage MupdfDocument::load_page(int index)
{
    auto handles = std::make_unique<MupdfPage::Handles>();
    handles->ctx = handles_->ctx;
    handles->path = path_;
    handles->pageno = index + 1;
    Message message{};
    fz_rect box{};
    int rotate = 0;
    if (mu_load_page(handles_->ctx, handles_->doc, index, &handles->page, &box, &rotate,
                     &message) != 0) {
        throw Error(ErrorKind::Damaged, damaged_reason("unreadable page", message), path_,
                    index + 1);
    }
    const PageBox page_box{box.x0, box.y0, box.x1, box.y1, snap_rotation(rotate)};
    return MupdfPage(std::move(handles), page_box);
}

MupdfPage::MupdfPage(std::unique_ptr<Handles> handles, PageBox box)
    : handles_(std::move(handles)), box_(box)
{
}

MupdfPage::MupdfPage(MupdfPage&& other) noexcept = default;
MupdfPage::~MupdfPage() = default;

void MupdfPage::render(int width, int height, std::uint8_t* rgb)
{
    run_guarded("draw", "the page could not be rendered", handles_->path, handles_->pageno,
                [&](fz_cookie* cookie, Message* message) {
                    return mu_render(handles_->ctx, handles_->page, width, height, rgb, cookie,
                                     message);
                });
}

std::string MupdfPage::text()
{
    fz_context* ctx = handles_->ctx;
    const auto drop = [ctx](fz_stext_page* p) { fz_drop_stext_page(ctx, p); };
    std::unique_ptr<fz_stext_page, decltype(drop)> text(nullptr, drop);
    run_guarded("read", "the page text could not be read", handles_->path, handles_->pageno,
                [&](fz_cookie* cookie, Message* message) {
                    fz_stext_page* raw = nullptr;
                    const int failed = mu_stext(ctx, handles_->page, &raw, cookie, message);
                    text.reset(raw);
                    return failed;
                });
    return stext_to_utf8(text.get());
}

} // namespace qf::sources
