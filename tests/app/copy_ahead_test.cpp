// SPDX-License-Identifier: GPL-3.0-or-later
// Reading the next document's copy ahead, with real reader workers.
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "app/run_services.h"
#include "engine/error.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace qf::app {
namespace {

namespace fs = std::filesystem;

TEST(CopyAhead, TheNextCopyIsReadOnAnotherWorkerAndOnlyUsedForThatVeryFile)
{
    test::TempFolder folder;
    const fs::path a = folder / "a.pdf";
    const fs::path b = folder / "b.pdf";
    const fs::path c = folder / "c.pdf";
    const fs::path damaged = folder / "damaged.pdf";
    test::write_numbered_pdf(a, 3);
    test::write_numbered_pdf(b, 5);
    test::write_numbered_pdf(c, 2);
    test::write_garbage_pdf(damaged);
    const auto readers = std::make_shared<worker::WorkerPool>(worker::default_worker_settings(2));
    std::vector<std::string> asked; // what the workers were asked to keep, in order
    CopyAhead ahead(
        [&](const fs::path& source, const std::string& password, pid_t avoid) {
            asked.push_back(source.filename().string() + (avoid != 0 ? " elsewhere" : ""));
            return readers->copy_pages(
                {{worker::DocumentKind::Pdf, {source, password, engine::kTiledNo}, false}, "/", true}, avoid);
        },
        [readers] { readers->abort_requests(); });

    ahead.expect(b, "");
    const worker::CopiedReply kept_a = ahead.keep(a, "");
    ahead.expect(c, "");
    const worker::CopiedReply kept_b = ahead.keep(b, "");
    EXPECT_EQ(kept_a.page_count, 3);
    EXPECT_EQ(kept_b.page_count, 5);
    EXPECT_NE(kept_b.worker, kept_a.worker);

    // c changes once its read ahead is over (a two-page copy takes milliseconds): it is read anew.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    test::write_numbered_pdf(c, 7);
    EXPECT_EQ(ahead.keep(c, "").page_count, 7);

    // A document read ahead that does not come next is passed over.
    ahead.expect(a, "");
    ahead.keep(b, "");
    EXPECT_EQ(ahead.keep(c, "").page_count, 7);

    // A read ahead that fails fails the document as reading it then would.
    ahead.expect(damaged, "");
    ahead.keep(a, "");
    EXPECT_THROW(ahead.keep(damaged, ""), engine::Error);

    EXPECT_EQ(asked, (std::vector<std::string>{"a.pdf", "b.pdf elsewhere", "c.pdf elsewhere", "c.pdf", "b.pdf",
                                               "a.pdf elsewhere", "c.pdf", "a.pdf", "damaged.pdf elsewhere"}));

    // Left unclaimed, a read ahead does not hold up the end.
    ahead.expect(b, "");
    ahead.keep(a, "");
}

} // namespace
} // namespace qf::app
