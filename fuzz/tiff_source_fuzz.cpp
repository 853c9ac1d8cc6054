// SPDX-License-Identifier: GPL-3.0-or-later
// The TIFF page source on fuzzed bytes: open, count the pages, decode the first few (with and
// without the compressed data a PDF page could carry), read the tags, and open the file again
// as a tiled document. Every failure must be an engine::Error.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "engine/error.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/source_checks.h"
#include "sources/tiff_source.h"

namespace {

using namespace qf;

constexpr int kPagesDecoded = 3;

void decode_pages(engine::PageSource &source)
{
    const int page_count = source.page_count();
    qf::fuzz::require(page_count >= 1, "an open TIFF has a page");
    for (int pageno = 1; pageno <= std::min(page_count, kPagesDecoded); ++pageno) {
        engine::RenderRequest request;
        request.compressed_ok = pageno == 1;
        try {
            qf::fuzz::check_picture(source.picture(pageno, request));
        } catch (const engine::Error &) {
            // a damaged page fails alone; the next one is still tried
        }
    }
    const engine::SourceTags tags = source.tags();
    qf::fuzz::require(tags.xres >= 0 && tags.yres >= 0, "a resolution is never negative");
}

void open_and_decode(const std::filesystem::path &path, const char *tile_marker)
{
    try {
        const auto source = sources::open_tiff_source({path, "", tile_marker});
        decode_pages(*source);
    } catch (const engine::Error &) {
        // not a readable TIFF: the run logs it and goes on
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const qf::fuzz::InputFile input(data, size, "input.tif");
    open_and_decode(input.path(), engine::kTiledNo);
    open_and_decode(input.path(), engine::kTiledYes);
    return 0;
}
