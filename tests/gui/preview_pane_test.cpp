// SPDX-License-Identifier: GPL-3.0-or-later
#include <QComboBox>
#include <QMessageBox>
#include <QTest>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "preview/preview_pane.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace qf::preview {
namespace {

constexpr int kWaitMs = 60'000;

engine::ListRow row_for(const std::filesystem::path& file, int pages, const char* tag = "tiled~no")
{
    engine::ListRow row;
    row.cells = {file.filename().string(), std::to_string(pages), "1", std::to_string(pages), "",
                 file.parent_path().string(), ""};
    row.tag = tag;
    return row;
}

// A pane whose picture well is the design's 324 by 400.
class PaneTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        pane.resize(420, 520);
        pane.show();
        QWidget* well = pane.findChild<QWidget*>("previewpic");
        ASSERT_NE(well, nullptr);
        pane.resize(QSize(324, 400) + pane.size() - well->size());
        QCoreApplication::processEvents();
        ASSERT_EQ(well->size(), QSize(324, 400));
    }

    // Selects the row and waits for its picture.
    bool show_and_wait(const engine::ListRow& row, int index)
    {
        const std::uint64_t before = shown;
        pane.show_row(row, index);
        return QTest::qWaitFor([&] { return shown > before; }, kWaitMs);
    }

    qf::test::TempFolder folder;
    PreviewPane pane;
    std::uint64_t shown = 0;
    QMetaObject::Connection counting = QObject::connect(&pane, &PreviewPane::pictureShown, [this] { ++shown; });
};

TEST_F(PaneTest, MovedFileEmptiesThePaneAndSelectingAnotherRecovers)
{
    test::write_pdf(folder / "kept.pdf", {test::PdfPageSpec{}, test::PdfPageSpec{}, test::PdfPageSpec{}});
    ASSERT_TRUE(show_and_wait(row_for(folder / "kept.pdf", 3), 0));
    ASSERT_FALSE(pane.picture().isNull());

    pane.show_row(row_for(folder / "gone.pdf", 3), 1);
    EXPECT_TRUE(pane.picture().isNull());
    EXPECT_EQ(pane.page_popup()->count(), 0);
    EXPECT_FALSE(pane.page_popup()->isEnabled());
    auto* message = pane.findChild<QMessageBox*>();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->text(), "This File has been moved or deleted");
    message->close();

    ASSERT_TRUE(show_and_wait(row_for(folder / "kept.pdf", 3), 0));
    EXPECT_EQ(pane.page_popup()->count(), 3);
    EXPECT_TRUE(pane.page_popup()->isEnabled());
}

TEST_F(PaneTest, PictureArrivingAfterTheSelectionMovedOnIsDropped)
{
    test::write_pdf(folder / "first.pdf", {test::PdfPageSpec{792, 612}});
    test::write_pdf(folder / "second.pdf", {test::PdfPageSpec{200, 300}});
    pane.show_row(row_for(folder / "first.pdf", 1), 0);
    // A job queued behind the pane's on the shared worker: once it is through, the first
    // picture is waiting in the event queue, undelivered.
    std::atomic<bool> through{false};
    PictureJob marker{.row = row_for(folder / "second.pdf", 1), .event = PictureEvent::Enlarged};
    pane.fetcher()->submit(Channel::Enlarged, marker, [&](FetchedPicture) { through = true; });
    for (int waited = 0; !through && waited < kWaitMs; waited += 10) { // no events handled meanwhile
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(through);

    const std::uint64_t before = shown;
    ASSERT_TRUE(show_and_wait(row_for(folder / "second.pdf", 1), 1));
    QTest::qWait(200);
    EXPECT_EQ(shown, before + 1) << "the first document's picture was shown too";
    EXPECT_EQ(pane.picture().size(), QSize(800, 1200)); // the second document's, four times its size
}

} // namespace
} // namespace qf::preview
