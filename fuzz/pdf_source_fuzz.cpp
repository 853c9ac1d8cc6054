// SPDX-License-Identifier: GPL-3.0-or-later
// The PDF page source on fuzzed bytes: open (with the empty password, then one other), count
// the pages, render page 1 at a low resolution and read its text. Every failure must be an
// engine::Error.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/error.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/source_checks.h"
#include "sources/pdf_source.h"

namespace {

using namespace qf;

constexpr const char *kFuzzPassword = "secret";
constexpr int kFuzzDpi = 36;

std::unique_ptr<engine::PageSource> open_source(const std::filesystem::path &path)
{
    try {
        return sources::open_pdf_source({path, "", engine::kTiledNo});
    } catch (const engine::Error &error) {
        if (error.kind() != engine::ErrorKind::Password) {
            return nullptr;
        }
    }
    try {
        return sources::open_pdf_source({path, kFuzzPassword, engine::kTiledNo});
    } catch (const engine::Error &) {
        return nullptr;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const qf::fuzz::InputFile input(data, size, "input.pdf");
    const auto source = open_source(input.path());
    if (!source) {
        return 0;
    }
    qf::fuzz::require(source->page_count() >= 1, "an open PDF has a page");
    engine::RenderRequest request;
    request.dpi = kFuzzDpi;
    try {
        const engine::PagePicture picture = source->picture(1, request);
        qf::fuzz::check_picture(picture);
        qf::fuzz::require(picture.format == engine::PixelFormat::Rgb8, "a PDF page renders as RGB");
    } catch (const engine::Error &) {
        // a page that cannot be drawn fails alone
    }
    try {
        source->text(1);
    } catch (const engine::Error &) {
    }
    return 0;
}
