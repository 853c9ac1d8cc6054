// SPDX-License-Identifier: GPL-3.0-or-later
// The document list as a user meets it: its columns, the page popups, the in-place Page
// Ranges edit, the row move and Delete, and the password that nothing shows.
#include "intake/document_list_view.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>
#include <gtest/gtest.h>

#include "intake/document_list_model_qt.h"
#include "intake/page_popup_widget.h"
#include "tests/support/engine_run.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using intake::DocumentListModel;
using intake::DocumentListView;

constexpr const char* kPassword = "s3cret-pw";

// Three admitted documents: a tiled TIFF, a locked PDF of 12 pages and a one-page TIFF.
class DocumentList : public ::testing::Test {
protected:
    void SetUp() override
    {
        make_tiff(folder / "a-tiled.tif", 2, true);
        write_blank_pdf(folder / "b-locked.pdf", 12, kPassword);
        make_tiff(folder / "c-one.tif", 1);
        rows = {admitted_row(folder / "a-tiled.tif"), admitted_row(folder / "b-locked.pdf", kPassword),
                admitted_row(folder / "c-one.tif")};
        (new QVBoxLayout(&window))->addWidget(list);
        for (const auto& row : rows)
            list->add_row(row);
        window.resize(900, 400);
        window.show();
    }
    // Picks `page` in the popup of a cell with the keyboard, as a user would: Right from the
    // name to the cell, Space, the page, Return.
    void choose_in_popup(int row, int column, int page)
    {
        list->setCurrentIndex(list->model()->index(row, 0));
        for (int step = 0; step < column; ++step)
            QTest::keyClick(list, Qt::Key_Right);
        ASSERT_EQ(list->currentIndex().column(), column);
        QTest::keyClick(list, Qt::Key_Space);
        auto* popup = qobject_cast<intake::PagePopup*>(QApplication::activePopupWidget());
        ASSERT_NE(popup, nullptr);
        QListView* choices = popup->choices();
        choices->setCurrentIndex(choices->model()->index(page - 1, 0));
        QTest::keyClick(choices, Qt::Key_Return);
    }
    QString refusal()
    {
        std::unique_ptr<QMessageBox> box(window.findChild<QMessageBox*>(QStringLiteral("pageChoiceRefused")));
        return box ? box->text() : QString();
    }
    std::vector<std::string> cells(int row, std::initializer_list<std::size_t> columns) const
    {
        std::vector<std::string> seen;
        for (std::size_t column : columns)
            seen.push_back(list->list_rows().at(static_cast<std::size_t>(row)).cells[column]);
        return seen;
    }

    TempFolder folder;
    std::vector<engine::ListRow> rows;
    QWidget window;
    DocumentListView* list = new DocumentListView(&window);
};

// Every text an assistive client can read from `node` and below.
void collect_accessible_text(QAccessibleInterface* node, QStringList& texts, int depth = 0)
{
    if (node == nullptr || depth > 6)
        return;
    for (QAccessible::Text kind : {QAccessible::Name, QAccessible::Description, QAccessible::Value, QAccessible::Help})
        texts.append(node->text(kind));
    for (int child = 0; child < node->childCount(); ++child)
        collect_accessible_text(node->child(child), texts, depth + 1);
}

// An assistive client reads each column's caption and each cell; the keyboard never reaches the
// password column.
TEST_F(DocumentList, ColumnsAndCellsAreReadByAssistiveClients)
{
    const char* headers[] = {"Filenames", "Total Pages", "From", "To", "Page Ranges", "Absolute Filepath"};
    QAccessibleTableInterface* cells = QAccessible::queryAccessibleInterface(list)->tableInterface();
    ASSERT_NE(cells, nullptr);
    for (int column = 0; column < 6; ++column) {
        EXPECT_EQ(cells->columnDescription(column), headers[column]);
        QAccessibleInterface* cell = cells->cellAt(1, column);
        ASSERT_NE(cell, nullptr);
        EXPECT_EQ(cell->text(QAccessible::Name).toStdString(), rows[1].cells[static_cast<std::size_t>(column)]);
    }
    list->setCurrentIndex(list->model()->index(1, 4));
    for (int step = 0; step < 3; ++step) {
        QTest::keyClick(list, Qt::Key_Right);
    }
    EXPECT_EQ(list->currentIndex().column(), 5);
}

TEST_F(DocumentList, ThePasswordIsFoundNowhereButItsRole)
{
    const QString password = QString::fromLatin1(kPassword);
    ASSERT_EQ(list->list_rows()[1].cells[6], kPassword); // the run gets it
    EXPECT_EQ(list->model()->index(1, 0).data(DocumentListModel::kPasswordRole).toString(), password);

    QStringList texts;
    collect_accessible_text(QAccessible::queryAccessibleInterface(&window), texts);
    QModelIndexList every_cell;
    for (int column = 0; column < DocumentListModel::kColumnCount; ++column) {
        const QModelIndex cell = list->model()->index(1, column);
        every_cell.append(cell);
        for (const QVariant& value : list->model()->itemData(cell))
            texts.append(value.toString());
        for (int role : {Qt::DisplayRole, Qt::EditRole, Qt::ToolTipRole, Qt::StatusTipRole, Qt::WhatsThisRole,
                         Qt::AccessibleTextRole, Qt::AccessibleDescriptionRole})
            texts.append(cell.data(role).toString());
        list->setCurrentIndex(cell);
        QApplication::clipboard()->clear();
        QTest::keySequence(list, QKeySequence::Copy);
        texts.append(QApplication::clipboard()->text());
    }
    std::unique_ptr<QMimeData> drag(list->model()->mimeData(every_cell));
    for (const QString& format : drag->formats())
        texts.append(QString::fromLatin1(drag->data(format)));
    ASSERT_TRUE(texts.contains(QStringLiteral("b-locked.pdf"))); // the walk did reach the row
    for (const QString& text : texts)
        EXPECT_FALSE(text.contains(password)) << text.toStdString();
}

TEST_F(DocumentList, ARowDraggedBelowTheLastMovesWholeAndDeleteRemovesTheSelectedOne)
{
    QSignalSpy drops(list, &DocumentListView::filesDropped);
    list->selectionModel()->select(list->model()->index(0, 0),
                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    std::unique_ptr<QMimeData> drag(list->model()->mimeData({list->model()->index(0, 0)}));
    const QRect last = list->visualRect(list->model()->index(2, 0));
    const QPoint below_last(last.center().x(), last.bottom() - 1);
    QDragEnterEvent enter(below_last, Qt::MoveAction, drag.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(list->viewport(), &enter);
    QDropEvent drop(below_last, Qt::MoveAction, drag.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(list->viewport(), &drop);

    const auto moved = list->list_rows();
    ASSERT_EQ(moved.size(), 3u);
    for (std::size_t at = 0; at < 3; ++at) {
        const engine::ListRow& expected = rows[(at + 1) % 3];
        EXPECT_EQ(moved[at].cells, expected.cells);
        EXPECT_EQ(moved[at].tag, expected.tag);
    }
    EXPECT_EQ(drops.count(), 0); // reordering is no load
    EXPECT_EQ(list->selected_row(), 2);

    QTest::keyClick(list, Qt::Key_F10, Qt::ShiftModifier); // the context menu from the keyboard
    auto* menu = list->findChild<QMenu*>();
    ASSERT_NE(menu, nullptr);
    ASSERT_EQ(menu->actions().size(), 1);
    EXPECT_EQ(menu->actions().front()->text(), "Delete");
    menu->actions().front()->trigger();
    menu->close();
    const auto left = list->list_rows();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0].cells[0], "b-locked.pdf");
    EXPECT_EQ(left[1].cells[0], "c-one.tif");
}

TEST_F(DocumentList, RowNumbersFromAnotherListMoveNothing)
{
    DocumentListView other;
    other.add_row(rows[0]);
    other.add_row(rows[1]);
    std::unique_ptr<QMimeData> drag(other.model()->mimeData({other.model()->index(0, 0)}));
    EXPECT_FALSE(list->model()->dropMimeData(drag.get(), Qt::MoveAction, 3, 0, {}));
    EXPECT_EQ(list->list_rows()[0].cells, rows[0].cells);
}

TEST_F(DocumentList, DeleteIsDisabledWithNoRowsButTheMenuOpens)
{
    list->clear_list();
    QMenu* menu = list->open_context_menu();
    ASSERT_NE(menu, nullptr);
    EXPECT_TRUE(menu->isVisible());
    EXPECT_FALSE(menu->actions().front()->isEnabled());
}

TEST_F(DocumentList, FromAndToPopupsRewritePageRangesOrRefuseWithAMessage)
{
    struct Step {
        int column; // 2 From, 3 To
        int page;
        std::vector<std::string> cells; // From, To, Page Ranges afterwards
        const char* message;
    };
    const Step steps[] = {
        {2, 5, {"5", "12", "5-12"}, ""},
        {3, 3, {"5", "12", "5-12"}, "The To Page value cannot be smaller than the From Page value"},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(std::to_string(step.column) + " " + std::to_string(step.page));
        choose_in_popup(1, step.column, step.page);
        EXPECT_EQ(refusal().toStdString(), step.message);
        EXPECT_EQ(cells(1, {2, 3, 4}), step.cells);
        EXPECT_EQ(list->selected_row(), 1);
    }
}

TEST_F(DocumentList, PageRangesEditedInPlaceAreNormalisedOnCommitAndLeaveFromAndTo)
{
    struct Edit {
        const char* typed;
        const char* kept;
    };
    const Edit edits[] = {{"abc", "1"}, {"3-99", "3-12"}};
    choose_in_popup(1, 2, 2);
    for (const Edit& edit : edits) {
        SCOPED_TRACE(edit.typed);
        const QModelIndex cell = list->model()->index(1, 4);
        list->setCurrentIndex(cell);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(cell).center());
        auto* editor = list->viewport()->findChild<QLineEdit*>();
        ASSERT_NE(editor, nullptr);
        editor->selectAll();
        QTest::keyClicks(editor, QString::fromLatin1(edit.typed));
        QTest::keyClick(editor, Qt::Key_Return);
        QApplication::processEvents(); // the delegate commits on a queued call
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // and the editor goes
        EXPECT_EQ(cells(1, {2, 3, 4}), (std::vector<std::string>{"2", "12", edit.kept}));
    }
}

} // namespace
} // namespace qf::test
