// SPDX-License-Identifier: GPL-3.0-or-later
#include <QComboBox>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "preview/enlarged_view.h"
#include "preview/preview_pane.h"
#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

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

TEST_F(PaneTest, APageChangeAsksForThePagesOwnSizeAndTurn)
{
    // The sizes themselves are the planner's (preview tests); here the pane hands it the
    // document's facts, the well's size and the event, and shows what comes back.
    test::write_pdf(folder / "rotated.pdf", {test::PdfPageSpec{.width = 612, .height = 792, .rotate = 90},
                                             test::PdfPageSpec{.width = 612, .height = 792}});
    test::make_tiff(folder / "large.tif", {test::TiffPage{.width = 2000, .height = 3000},
                                           test::TiffPage{.width = 2000, .height = 3000}});
    const auto page_two = [&](const char* name) {
        ASSERT_TRUE(show_and_wait(row_for(folder / name, 2), 0)) << name;
        const std::uint64_t before = shown;
        pane.page_popup()->setCurrentIndex(1);
        ASSERT_TRUE(QTest::qWaitFor([&] { return shown > before; }, kWaitMs)) << name;
        EXPECT_EQ(pane.shown_request().pageno, 2) << name;
    };
    page_two("rotated.pdf"); // its first page lies on its side: so does the box
    EXPECT_EQ(QSize(pane.shown_request().width, pane.shown_request().height), QSize(800, 648));
    page_two("large.tif"); // 3000 / 400 -> 7: read at a quarter
    EXPECT_EQ(pane.picture().size(), QSize(500, 750));
}

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

    // Clearing the list empties the pane.
    pane.clear();
    EXPECT_TRUE(pane.picture().isNull());
    EXPECT_FALSE(pane.enlarged_view_action()->isEnabled());
}

TEST_F(PaneTest, PictureArrivingAfterTheSelectionMovedOnIsDropped)
{
    test::write_pdf(folder / "first.pdf", {test::PdfPageSpec{792, 612}});
    test::write_pdf(folder / "second.pdf", {test::PdfPageSpec{200, 300}});
    pane.show_row(row_for(folder / "first.pdf", 1), 0);
    // A job queued behind the pane's on the shared worker: once it is through, the first
    // picture is waiting in the event queue, undelivered.
    std::atomic<bool> through{false};
    PictureJob marker;
    marker.row = row_for(folder / "second.pdf", 1);
    marker.event = PictureEvent::Enlarged;
    pane.fetcher()->submit(Channel::Enlarged, marker, [&](FetchedPicture) { through = true; });
    for (int waited = 0; !through && waited < kWaitMs; waited += 10) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(through);

    std::vector<QSize> pictures;
    QObject::connect(&pane, &PreviewPane::pictureShown, [&] { pictures.push_back(pane.picture().size()); });
    ASSERT_TRUE(show_and_wait(row_for(folder / "second.pdf", 1), 1));
    QTest::qWait(200);
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0], QSize(800, 1200)); // the second document's, four times its size
}

TEST_F(PaneTest, EnlargedViewFollowsSelectionAndPagesWhileOpen)
{
    test::write_pdf(folder / "doc.pdf", {test::PdfPageSpec{612, 792}, test::PdfPageSpec{400, 300}});
    EnlargedView view(pane);
    std::uint64_t viewed = 0;
    QObject::connect(&view, &EnlargedView::pictureShown, [&] { ++viewed; });
    const auto wait_view = [&](std::uint64_t before) { return QTest::qWaitFor([&] { return viewed > before; }, kWaitMs); };

    ASSERT_TRUE(show_and_wait(row_for(folder / "doc.pdf", 2), 0));
    ASSERT_TRUE(pane.enlarged_view_action()->isEnabled());
    QObject::connect(&pane, &PreviewPane::enlargedViewRequested, &view, &EnlargedView::open_view);
    pane.enlarged_view_action()->trigger();
    ASSERT_TRUE(wait_view(0));
    const double ratio = view.devicePixelRatioF();
    EXPECT_EQ(view.picture().size(), QSize(int(612 * ratio), int(792 * ratio)));

    std::uint64_t before = viewed;
    pane.page_popup()->setCurrentIndex(1);
    ASSERT_TRUE(wait_view(before));
    EXPECT_EQ(view.shown_request().pageno, 2);
    EXPECT_EQ(view.picture().size(), QSize(int(400 * ratio), int(300 * ratio)));

    // Zooming draws the page again at the zoom shown.
    before = viewed;
    view.zoom_in_button()->click();
    ASSERT_TRUE(wait_view(before));
    EXPECT_EQ(view.picture().width(), int(400 * 1.25 * ratio));

    // Closed, the view no longer follows.
    view.close();
    before = viewed;
    ASSERT_TRUE(show_and_wait(row_for(folder / "doc.pdf", 2), 0));
    QTest::qWait(300);
    EXPECT_EQ(viewed, before);
}

} // namespace
} // namespace qf::preview
