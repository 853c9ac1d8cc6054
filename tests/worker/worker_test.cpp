// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>
#include <fstream>
#include <sstream>
#include <gtest/gtest.h>

#include "engine/error.h"
#include "sources/pdf_source.h"
#include "sources/tiff_source.h"
#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"
#include "tests/support/tiff_fixtures.h"
#include "worker/channel.h"
#include "worker/picture_reduction.h"
#include "worker/remote_source.h"

namespace qf::worker {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::TempFolder;

WorkerSettings test_settings()
{
    WorkerSettings settings = default_worker_settings(1);
    settings.program = QF_WORKER_PATH;
    settings.time_limit = 1000ms;
    return settings;
}

void write_sample_pdf(const fs::path& target)
{
    test::write_pdf(target, {{.fills = {{{72, 72, 200, 300}, test::kPdfRed}, {{300, 400, 100, 100}, test::kPdfBlue}},
                              .texts = {{.text = "Hello worker"}}},
                             {.rotate = 90, .texts = {{.text = "Turned page"}}}});
}

DocumentRef pdf_ref(const fs::path& path, bool copies_pages = false)
{
    return {DocumentKind::Pdf, {path, "", engine::kTiledNo}, copies_pages};
}

void expect_same_picture(const engine::PagePicture& expected, const engine::PagePicture& got)
{
    EXPECT_EQ(std::tie(got.width, got.height, got.format),
              std::tie(expected.width, expected.height, expected.format));
    EXPECT_TRUE(got.pixels == expected.pixels);
    ASSERT_EQ(got.compressed != nullptr, expected.compressed != nullptr);
    EXPECT_TRUE(!expected.compressed || (got.compressed->data == expected.compressed->data &&
                                         got.compressed->black_is_1 == expected.compressed->black_is_1));
}

// The error of `read` as the log line will quote it: kind and reason.
std::string error_of(const std::function<void()>& read)
{
    try {
        read();
    } catch (const engine::Error& error) {
        return std::to_string(static_cast<int>(error.kind())) + " " + error.reason();
    }
    return "no error";
}

// A document read through a worker gives what it gives read in this process: pages, tags,
// pictures and text, or the same error.
TEST(Worker, ReadsAndFailsAsTheProcessItselfDoes)
{
    const TempFolder folder;
    write_sample_pdf(folder / "sample.pdf");
    test::write_encrypted_copy(folder / "sample.pdf", folder / "locked.pdf", test::PdfEncryption::Aes128, "open", "owner");
    test::make_tiff(folder / "scan.tif",
                    {{.kind = test::TiffKind::Rgb, .xres = 300, .yres = 300, .copyright = "(c) Scan"},
                     {.kind = test::TiffKind::Bilevel, .compression = 4}});
    // pageno: 0 to only open the document
    const struct { DocumentKind kind; const char* file; const char* password; int pageno;
                   engine::RenderRequest request; bool fails; } cases[] = {
        {DocumentKind::Pdf, "sample.pdf", "", 1, {.dpi = 150}, false},
        {DocumentKind::Pdf, "sample.pdf", "", 2, {.dpi = 72, .zoom = 3, .jpeg_order = true}, false},
        {DocumentKind::Pdf, "locked.pdf", "open", 1, {.dpi = 72}, false},
        {DocumentKind::Tiff, "scan.tif", "", 1, {}, false},
        {DocumentKind::Tiff, "scan.tif", "", 2, {.compressed_ok = true}, false},
        {DocumentKind::Pdf, "missing.pdf", "", 0, {}, true},
        {DocumentKind::Pdf, "locked.pdf", "", 0, {}, true},
        {DocumentKind::Pdf, "sample.pdf", "", 3, {}, true},
    };
    const auto pool = std::make_shared<WorkerPool>(test_settings());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " page " + std::to_string(c.pageno));
        const engine::DocumentToOpen document{folder / c.file, c.password, engine::kTiledNo};
        const bool pdf = c.kind == DocumentKind::Pdf;
        const engine::SourceOpener local = pdf ? engine::SourceOpener(sources::open_pdf_source)
                                               : engine::SourceOpener(sources::open_tiff_source);
        const engine::SourceOpener remote = pdf ? remote_pdf_opener(pool) : remote_tiff_opener(pool);
        const auto read = [&](const engine::SourceOpener& opener) {
            return error_of([&] {
                const auto source = opener(document);
                if (c.pageno > 0) {
                    source->picture(c.pageno, c.request);
                }
            });
        };
        EXPECT_EQ(read(remote), read(local));
        EXPECT_EQ(read(local) != "no error", c.fails) << read(local);
        if (!c.fails) {
            const auto here = local(document);
            const auto there = remote(document);
            EXPECT_EQ(there->page_count(), here->page_count());
            EXPECT_EQ(there->tags().copyright, here->tags().copyright);
            EXPECT_EQ(there->tags().xres, here->tags().xres);
            expect_same_picture(here->picture(c.pageno, c.request), there->picture(c.pageno, c.request));
            EXPECT_EQ(there->text(c.pageno), here->text(c.pageno));
        }
    }
}

// What a failed request says, and whether the worker that failed it survived.
struct Outcome { std::string reason; bool replaced = false; };

Outcome convert_first_page(WorkerPool& pool, const DocumentRef& ref, int dpi = 150)
{
    const std::vector<pid_t> before = pool.worker_pids();
    Outcome outcome;
    try {
        RemotePageSource source(std::shared_ptr<WorkerPool>(&pool, [](WorkerPool*) {}), ref);
        source.picture(1, {.dpi = dpi});
    } catch (const engine::Error& error) {
        outcome.reason = error.reason();
    }
    outcome.replaced = pool.worker_pids() != before;
    return outcome;
}

TEST(Worker, HostileDocumentFailsOnlyItsOwnRequest)
{
    const TempFolder folder;
    write_sample_pdf(folder / "good.pdf");
    test::write_image_bomb_pdf(folder / "bomb.pdf", 60000, 60000);
    test::write_tiff_header_only(folder / "huge.tif", 16000, 16000);
    // data_limit_mb: 0 for the default
    const struct { const char* file; int dpi; std::size_t data_limit_mb; const char* reason; bool replaced;
                   } cases[] = {
        {"bomb.pdf", 900, 0, "the page needs more memory than the limit of 64 MB", false},
#if !defined(__SANITIZE_ADDRESS__)
        // A gigabyte of pixels for the TIFF reader, which the PDF reader's ceiling does not see.
        {"huge.tif", 150, 256, "the page needs more memory than the limit of 64 MB", true},
#endif
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        WorkerSettings settings = test_settings();
        settings.memory_limit_mb = 64;
        if (c.data_limit_mb > 0) {
            settings.data_limit_mb = c.data_limit_mb;
        }
        settings.time_limit = 60s; // each ends on its own, under the sanitizers too
        WorkerPool pool(settings);
        ASSERT_EQ(convert_first_page(pool, pdf_ref(folder / "good.pdf")).reason, "");
        DocumentRef ref = pdf_ref(folder / c.file);
        if (ref.document.path.extension() == ".tif") {
            ref.kind = DocumentKind::Tiff;
        }
        const Outcome failed = convert_first_page(pool, ref, c.dpi);
        EXPECT_EQ(failed.reason, c.reason);
        EXPECT_EQ(failed.replaced, c.replaced);
        const Outcome after = convert_first_page(pool, pdf_ref(folder / "good.pdf"));
        EXPECT_EQ(after.reason, "");
        EXPECT_EQ(pool.worker_pids().size(), 1u);
    }
}

TEST(Worker, TellsPageSizesAndTurnsWithoutDrawing)
{
    const TempFolder folder;
    test::write_boxed_pdf(folder / "boxes.pdf", {{"[0 0 612 792]", "", 0},
                                                 {"[0 0 680.400024 300]", "[10 20 500 280]", 270},
                                                 {"[0 0 595 842]", "", -90}});
    test::make_tiff(folder / "scan.tif", {{.width = 300, .height = 200, .xres = 300, .yres = 150},
                                          {.width = 40, .height = 50, .xres = 100, .yres = 100,
                                           .resolution_unit = 3}});
    test::make_raw_tiff(folder / "turned.tif",
                        {{.width = 3, .height = 2, .orientation = 6, .xres = 200, .yres = 100,
                          .data = std::vector<std::uint8_t>(6, 128)}});
    const struct { DocumentKind kind; const char* file; int pageno; PageFacts expected; } cases[] = {
        {DocumentKind::Pdf, "boxes.pdf", 2, {490, 260, 270, 0, 0}}, // the CropBox within the MediaBox
        {DocumentKind::Pdf, "boxes.pdf", 3, {595, 842, 270, 0, 0}},
        {DocumentKind::Tiff, "scan.tif", 1, {300, 200, 0, 300, 150}},
        {DocumentKind::Tiff, "scan.tif", 2, {40, 50, 0, 254, 254}}, // per centimetre
        {DocumentKind::Tiff, "turned.tif", 1, {2, 3, 0, 100, 200}},  // turned by its Orientation
    };
    WorkerPool pool(test_settings());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " page " + std::to_string(c.pageno));
        const PageFacts facts = pool.page_facts({{c.kind, {folder / c.file, "", engine::kTiledNo}}, c.pageno});
        EXPECT_DOUBLE_EQ(facts.width, c.expected.width);
        EXPECT_DOUBLE_EQ(facts.height, c.expected.height);
        EXPECT_EQ(facts.rotation, c.expected.rotation);
        EXPECT_NEAR(facts.xres, c.expected.xres, 1e-3);
        EXPECT_NEAR(facts.yres, c.expected.yres, 1e-3);
    }
    EXPECT_EQ(error_of([&] { pool.page_facts({pdf_ref(folder / "boxes.pdf"), 4}); }), "0 the document has only 3 pages"); // BadInput
}

TEST(Worker, ReducedReadMatchesTheWholeImageReducedInProcess)
{
    const TempFolder folder;
    std::vector<std::uint8_t> samples;
    for (int i = 0; i < 67 * 45 * 3; ++i) {
        samples.push_back(static_cast<std::uint8_t>(i * 37 % 251));
    }
    std::vector<std::uint8_t> grey(samples.begin(), samples.begin() + 67 * 45);
    test::make_raw_tiff(folder / "odd.tif", {{.width = 67, .height = 45, .samples_per_pixel = 3, .photometric = 2,
                                              .data = samples},
                                             {.width = 67, .height = 45, .data = grey}});
    test::make_tiff(folder / "fax.tif", {{.width = 203, .height = 97, .kind = test::TiffKind::Bilevel,
                                          .compression = 4}});
    const struct { const char* file; int pageno; int factor; } cases[] = {
        {"odd.tif", 1, 2}, {"odd.tif", 2, 8}, {"fax.tif", 1, 8},
    };
    WorkerPool pool(test_settings());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " image " + std::to_string(c.pageno) + " by " + std::to_string(c.factor));
        const DocumentRef ref{DocumentKind::Tiff, {folder / c.file, "", engine::kTiledNo}};
        const engine::PagePicture whole = pool.picture({ref, c.pageno, {}});
        PictureCall reduced{ref, c.pageno, {}};
        reduced.reduce_factor = c.factor;
        const engine::PagePicture expected = reduce_picture(engine::to_rgb(whole), c.factor);
        ASSERT_EQ(expected.width, (whole.width + c.factor - 1) / c.factor);
        expect_same_picture(expected, pool.picture(reduced));
    }
}

// A worker runs under the data limit its settings give, and a page time limit of a fraction of
// a second is taken as given.
TEST(Worker, RunsUnderTheLimitsItIsGiven)
{
    ::setenv("QUIREFOLD_PAGE_SECONDS", "0.5", 1);
    WorkerSettings settings = default_worker_settings(1);
    ::unsetenv("QUIREFOLD_PAGE_SECONDS");
    EXPECT_EQ(settings.time_limit, 500ms);
#if !defined(__SANITIZE_ADDRESS__) // which sets no data limit
    settings.program = QF_WORKER_PATH;
    settings.data_limit_mb = 3000;
    TempFolder folder;
    write_sample_pdf(folder / "a.pdf");
    WorkerPool pool(settings);
    pool.open(pdf_ref(folder / "a.pdf"));
    std::ifstream limits("/proc/" + std::to_string(pool.worker_pids().at(0)) + "/limits");
    std::string line;
    while (std::getline(limits, line) && line.rfind("Max data size", 0) != 0) {
    }
    EXPECT_NE(line.find(std::to_string(3000ull << 20)), std::string::npos) << line;
#endif
}

TEST(Worker, AnswersAdmissionProbes)
{
    const TempFolder folder;
    write_sample_pdf(folder / "plain.pdf");
    test::write_encrypted_copy(folder / "plain.pdf", folder / "locked.pdf", test::PdfEncryption::Aes256, "open", "owner");
    test::make_tiff(folder / "three.tif", {{}, {}, {}});
    test::make_tiff(folder / "tiled.tif", {{.tiled = true}, {}});
    WorkerPool pool(test_settings());
    // Each probe as "opened refused pages" or "readable images tiled".
    const std::pair<std::string, std::string> cases[] = {
        {"plain.pdf", "1 0 2"}, {"locked.pdf", "0 1 0"}, {"locked.pdf open", "1 0 2"},
        {"three.tif", "1 3 0"}, {"tiled.tif", "1 2 1"},  {"plain.pdf as TIFF", "0 0 0"},
    };
    for (const auto& [what, expected] : cases) {
        const std::string file = what.substr(0, what.find(' '));
        std::ostringstream got;
        if (what.ends_with(".pdf") || what.ends_with(" open")) {
            const RemotePdfProbe probe = pool.probe_pdf(folder / file, what.ends_with(" open") ? "open" : "");
            got << probe.opened << ' ' << probe.password_refused << ' ' << probe.page_count;
        } else {
            const RemoteTiffProbe probe = pool.probe_tiff(folder / file);
            got << probe.readable << ' ' << probe.image_count << ' ' << probe.tiled;
        }
        EXPECT_EQ(got.str(), expected) << what;
    }
}

TEST(Worker, ReopensADocumentRewrittenUnderItsName)
{
    const TempFolder folder;
    const auto pool = std::make_shared<WorkerPool>(test_settings());
    test::write_numbered_pdf(folder / "book.pdf", 2);
    EXPECT_EQ(remote_pdf_opener(pool)({folder / "book.pdf", "", engine::kTiledNo})->page_count(), 2);
    test::write_numbered_pdf(folder / "next.pdf", 3);
    fs::rename(folder / "next.pdf", folder / "book.pdf");
    const auto source = remote_pdf_opener(pool)({folder / "book.pdf", "", engine::kTiledNo});
    EXPECT_EQ(source->page_count(), 3);
    EXPECT_EQ(source->text(3), test::numbered_page_line(3));
}

TEST(WorkerProtocol, RefusesMalformedReplies)
{
    const auto picture = [](int width, int height, std::uint8_t bilevel, std::uint64_t bytes) {
        return std::move(PayloadWriter().i32(width).i32(height).u8(bilevel).u64(bytes).u8(0).u8(1).u64(0).u8(0))
            .frame(MessageType::PictureReady);
    };
    Frame truncated = encode_opened({3, {"(c)", "name", 300, 300}});
    truncated.payload.pop_back();
    Frame extra = encode_pdf_probed({true, false, 2});
    extra.payload.push_back(0);
    PictureCall three_times;
    three_times.reduce_factor = 3;
    const struct { const char* what; std::function<void()> decode; } cases[] = {
        {"truncated", [&] { decode_opened(truncated); }},
        {"bytes left over", [&] { decode_pdf_probed(extra); }},
        {"wrong type", [&] { decode_opened(encode_text_ready("x")); }},
        {"size not matching sides", [&] { decode_picture_ready(picture(10, 10, 0, 299)); }},
        {"zero width", [&] { decode_picture_ready(picture(0, 10, 0, 0)); }},
        {"huge picture", [&] { decode_picture_ready(picture(100000, 100000, 0, 30000000000ull)); }},
        {"flag out of range", [&] { decode_picture_ready(picture(8, 1, 2, 3)); }},
        {"opened with no pages", [&] { decode_pdf_probed(encode_pdf_probed({true, false, 0})); }},
        {"uncopied page past the end", [&] { decode_pages_copied(encode_pages_copied({2, {1, 3}})); }},
        {"uncopied pages out of order", [&] { decode_pages_copied(encode_pages_copied({3, {2, 1}})); }},
        {"page side zero", [&] { decode_page_facts_ready(encode_page_facts_ready({0, 10, 0})); }},
        {"page side huge", [&] { decode_page_facts_ready(encode_page_facts_ready({10, 1e300, 0})); }},
        {"rotation off the quarters", [&] { decode_page_facts_ready(encode_page_facts_ready({10, 10, 45})); }},
        {"negative resolution", [&] { decode_page_facts_ready(encode_page_facts_ready({10, 10, 0, -1, 0})); }},
        {"reduction factor 3", [&] { decode_picture(encode_picture(three_times)); }},
    };
    for (const auto& c : cases) {
        EXPECT_THROW(c.decode(), ProtocolError) << c.what;
    }
    std::uint8_t header[kFrameHeaderBytes];
    encode_header(MessageType::Hello, 4, header);
    header[4] = kProtocolVersion + 1;
    MessageType type{};
    EXPECT_THROW(decode_header(header, type), ProtocolError);
}

} // namespace
} // namespace qf::worker
