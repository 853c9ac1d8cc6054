// SPDX-License-Identifier: GPL-3.0-or-later
// The document list as a user meets it: its columns, the page popups, the in-place Page
// Ranges edit, the row move and Delete, and the password that nothing shows; and loading into
// it as the window does: rows as they are admitted, the report line, the list disabled
// meanwhile, drops through the one-shot timer, the folder and password questions.
#include "intake/document_list_view.h"
#include "intake/load_commands_qt.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QPushButton>
#include <QTextDocument>
#include <QUrl>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>
#include <fstream>
#include <gtest/gtest.h>

#include "intake/document_list_model_qt.h"
#include "intake/page_popup_widget.h"
#include "intake/password_dialog.h"
#include "tests/support/engine_run.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using intake::DocumentListModel;
using intake::DocumentListView;
using intake::LoadCommands;
using intake::PasswordDialog;

constexpr int kWait = 10000; // ms

QString q(const fs::path& path)
{
    return QString::fromStdString(path.string());
}

constexpr const char* kPassword = "s3cret-pw";

// Three admitted documents: a tiled TIFF, a locked PDF of 12 pages and a one-page TIFF; and
// in "in" documents to load.
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
        make_tiff(folder / "in" / "sub" / "c.tif", 4);
        write_numbered_pdf(folder / "in" / "b.pdf", 3);
        std::ofstream(folder / "in" / "notes.txt") << "not a document";
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

    // Waits for the load under way to end; false when it does not.
    bool finished() { return QTest::qWaitFor([this] { return !commands.loading(); }, kWait); }
    static PasswordDialog* question()
    {
        const auto shown = [] { return qobject_cast<PasswordDialog*>(QApplication::activeModalWidget()); };
        return QTest::qWaitFor([&] { return shown() != nullptr; }, kWait) ? shown() : nullptr;
    }
    std::vector<std::string> names() const
    {
        std::vector<std::string> seen;
        for (const auto& row : list->list_rows())
            seen.push_back(row.cells[0] + " " + row.cells[1] + " " + row.cells[4] + " " + row.tag);
        return seen;
    }

    TempFolder folder;
    std::vector<engine::ListRow> rows;
    QWidget window;
    DocumentListView* list = new DocumentListView(&window);
    LoadCommands commands{list, &window};
    QSignalSpy reports{&commands, &LoadCommands::reportLine};
    QSignalSpy busy{&commands, &LoadCommands::loadingChanged};
};
using Loading = DocumentList;

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
        for (const QVariant& value : list->model()->itemData(cell)) // every role below the user's
            texts.append(value.toString());
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
    menu->actions().front()->trigger();
    menu->close();
    const auto left = list->list_rows();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0].cells[0], "b-locked.pdf");
    EXPECT_EQ(left[1].cells[0], "c-one.tif");
}

TEST_F(DocumentList, FromAndToPopupsRewritePageRangesOrRefuseWithAMessage)
{
    choose_in_popup(1, 2, 5); // From 5: taken
    EXPECT_EQ(refusal().toStdString(), "");
    choose_in_popup(1, 3, 3); // To 3, below From: refused, the row as it was
    EXPECT_EQ(refusal().toStdString(), "The To Page value cannot be smaller than the From Page value");
    const auto cells = list->list_rows().at(1).cells;
    EXPECT_EQ(cells[2] + " " + cells[3] + " " + cells[4], "5 12 5-12");
    EXPECT_EQ(list->selected_row(), 1);
}

TEST_F(Loading, DroppedFilesLoadAfterTheDropAndADroppedFolderDoesNothing)
{
    struct Case { std::vector<fs::path> dropped; std::vector<std::string> rows; };
    const Case cases[] = {
        {{folder / "in" / "sub", folder / "in" / "b.pdf", folder / "in" / "notes.txt"}, {"b.pdf 3 1-3 tiled~no"}},
        {{folder / "in" / "sub", folder / "in" / "notes.txt"}, {}},
    };
    for (const Case& test : cases) {
        list->clear_list();
        reports.clear();
        busy.clear();
        QMimeData mime;
        for (const auto& path : test.dropped)
            mime.setUrls(mime.urls() << QUrl::fromLocalFile(q(path)));
        const QPoint at = list->viewport()->rect().center();
        QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list->viewport(), &enter);
        QDropEvent drop(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list->viewport(), &drop);
        EXPECT_FALSE(commands.loading()); // nothing is examined inside the drop event
        QTest::qWait(20);
        ASSERT_TRUE(finished());
        EXPECT_EQ(names(), test.rows);
        EXPECT_EQ(reports.count(), test.rows.empty() ? 0 : 1); // no load at all: no report
        EXPECT_EQ(busy.count(), test.rows.empty() ? 0 : 2);
    }
}

// The file name shows as text, never read as markup; OK tries the password, Return cancels.
TEST_F(Loading, ThePasswordQuestionTriesOnlyOnOkAndAsksUntilOpenedOrCancelled)
{
    const fs::path locked = folder / "<img src=x>.pdf";
    write_encrypted_copy(folder / "in" / "b.pdf", locked, PdfEncryption::Aes128, "pw", "owner");
    // answers: typed, then OK (true) or Return
    // password: of the row; nullptr: no row
    struct Case { const char* name; std::vector<std::pair<const char*, bool>> answers; const char* password;
                  };
    const Case cases[] = {
        {"OK with the password", {{"pw", true}}, "pw"},
        {"Return cancels, typed text or not", {{"pw", false}}, nullptr},
        {"asked again after a wrong password", {{"wrong", true}, {"pw", true}}, "pw"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        list->clear_list();
        commands.load_paths({q(locked)});
        for (const auto& [typed, ok] : test.answers) {
            PasswordDialog* dialog = question();
            ASSERT_NE(dialog, nullptr);
            QTextDocument shown;
            shown.setHtml(dialog->findChild<QLabel*>(QStringLiteral("thetext"))->text());
            EXPECT_EQ(shown.toPlainText().toStdString(),
                      "<img src=x>.pdf is encrypted. Please Enter It's Unlock Password to include this file to the list");
            auto* field = dialog->findChild<QLineEdit*>(QStringLiteral("thepassword"));
            EXPECT_EQ(field->echoMode(), QLineEdit::Password);
            EXPECT_TRUE(field->text().isEmpty()); // every showing starts empty
            QTest::keyClicks(field, QString::fromLatin1(typed));
            if (ok)
                dialog->findChild<QPushButton*>("PushButton2")->click();
            else
                QTest::keyClick(field, Qt::Key_Return);
        }
        ASSERT_TRUE(finished());
        const auto rows = list->list_rows();
        ASSERT_EQ(rows.size(), test.password ? 1u : 0u);
        if (test.password) {
            EXPECT_EQ(rows.front().cells[6], test.password);
        }
    }
}

} // namespace
} // namespace qf::test
