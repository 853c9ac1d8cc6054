// SPDX-License-Identifier: GPL-3.0-or-later
// Loading as the window does it: rows as they are admitted, the report line, the list
// disabled meanwhile, drops through the one-shot timer, and the password question's keys.
#include "intake/load_commands_qt.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextDocument>
#include <QUrl>
#include <QVBoxLayout>
#include <fstream>
#include <gtest/gtest.h>

#include "intake/document_list_view.h"
#include "intake/password_dialog.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using intake::DocumentListView;
using intake::LoadCommands;
using intake::PasswordDialog;

constexpr int kWait = 10000; // ms

QString q(const fs::path& path)
{
    return QString::fromStdString(path.string());
}

class Loading : public ::testing::Test {
protected:
    void SetUp() override
    {
        make_tiff(folder / "in" / "a-tiled.tif", 2, true);
        write_numbered_pdf(folder / "in" / "b.pdf", 3);
        std::ofstream(folder / "in" / "notes.txt") << "not a document";
        make_tiff(folder / "in" / "sub" / "c.tif", 4);
        fs::create_directories(folder / "empty");
        (new QVBoxLayout(&window))->addWidget(list);
        window.resize(800, 400);
        window.show();
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
    QWidget window;
    DocumentListView* list = new DocumentListView(&window);
    LoadCommands commands{list, &window};
    QSignalSpy reports{&commands, &LoadCommands::reportLine};
    QSignalSpy counts{list, &DocumentListView::countChanged};
    QSignalSpy busy{&commands, &LoadCommands::loadingChanged};
    QSignalSpy problems{&commands, &LoadCommands::problemLine};
};

TEST_F(Loading, RowsReportAndCountWithTheListDisabledMeanwhile)
{
    struct Case {
        const char* name;
        std::function<void(LoadCommands&, const fs::path&)> load;
        std::vector<std::string> rows;
        const char* report;
        int problems = 0;
    };
    const Case cases[] = {
        {"files: folders and other kinds ignored",
         [](LoadCommands& c, const fs::path& in) {
             c.load_paths({q(in / "b.pdf"), q(in / "notes.txt"), q(in / "sub"), q(in / "a-tiled.tif")});
         },
         {"b.pdf 3 1-3 tiled~no", "a-tiled.tif 1 1 tiled~yes"},
         "2 Images added to the list"},
        {"typed files: a missing one is reported, not listed",
         [](LoadCommands& c, const fs::path& in) { c.load_arguments({q(in / "gone.pdf"), q(in / "b.pdf")}); },
         {"b.pdf 3 1-3 tiled~no"}, "1 Image added to the list", 1},
        {"empty folder", [](LoadCommands& c, const fs::path& in) { c.load_folder(q(in.parent_path() / "empty"), true); },
         {}, "0 Image added to the list"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        list->clear_list();
        reports.clear();
        busy.clear();
        counts.clear();
        problems.clear();
        test.load(commands, folder / "in");
        EXPECT_TRUE(commands.loading());
        EXPECT_FALSE(list->isEnabled());
        ASSERT_TRUE(finished());
        EXPECT_TRUE(list->isEnabled());
        EXPECT_EQ(names(), test.rows);
        ASSERT_EQ(reports.count(), 1);
        EXPECT_EQ(reports.front().front().toString().toStdString(), test.report);
        EXPECT_EQ(busy.count(), 2); // on, then off
        EXPECT_EQ(problems.count(), test.problems);
        EXPECT_EQ(counts.isEmpty() ? 0 : counts.back().front().toInt(), static_cast<int>(test.rows.size()));
    }
}

TEST_F(Loading, DroppedFilesLoadAfterTheDropAndADroppedFolderDoesNothing)
{
    struct Case {
        std::vector<fs::path> dropped;
        std::vector<std::string> rows;
    };
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

// Acts on the next modal dialog of the kind T once it shows, from inside its own event loop.
template <typename T>
void when_shown(std::function<void(T*)> act)
{
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, [poll, act] {
        if (auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget())) {
            poll->stop();
            poll->deleteLater();
            act(dialog);
        }
    });
    poll->start(10);
}

TEST_F(Loading, TheFolderDialogAsksAboutSubFoldersAndTheNextDialogStartsThere)
{
    struct Case {
        const char* answer; // "Yes", "No", or nullptr: the folder dialog is cancelled
        std::size_t rows;
    };
    const Case cases[] = {{nullptr, 0}, {"No", 2}, {"Yes", 3}};
    for (const Case& test : cases) {
        SCOPED_TRACE(test.answer ? test.answer : "cancelled");
        list->clear_list();
        reports.clear();
        when_shown<QFileDialog>([&](QFileDialog* dialog) {
            if (test.answer == nullptr) {
                dialog->reject();
                return;
            }
            dialog->setDirectory(q(folder / "in")); // and Choose with no name typed: that folder
            dialog->selectFile(QString());
            when_shown<QMessageBox>([&](QMessageBox* question) {
                EXPECT_EQ(question->windowTitle(), "Load All Sub Folders");
                EXPECT_EQ(question->text(), "Do You Want to Load All Images in All Sub Folders?");
                for (QAbstractButton* button : question->buttons())
                    if (button->text() == test.answer)
                        button->click();
            });
            static_cast<QDialog*>(dialog)->accept(); // as the Choose button does
        });
        commands.open_folder_dialog();
        ASSERT_TRUE(finished());
        EXPECT_EQ(list->list_rows().size(), test.rows);
        EXPECT_EQ(reports.count(), test.answer ? 1 : 0);
        if (test.answer == nullptr) {
            EXPECT_TRUE(commands.last_place().isEmpty()); // a cancel leaves the start place alone
        } else {
            EXPECT_EQ(commands.last_place(), q(folder / "in"));
        }
    }
    when_shown<QFileDialog>([&](QFileDialog* dialog) {
        EXPECT_EQ(dialog->directory().absolutePath(), q(folder / "in"));
        dialog->reject();
    });
    commands.open_files_dialog();
}

// The ways of closing the question.
using Press = std::function<void(PasswordDialog*, QLineEdit*)>;
const Press ok = [](PasswordDialog* dialog, QLineEdit*) { dialog->findChild<QPushButton*>("PushButton2")->click(); };
const Press return_key = [](PasswordDialog*, QLineEdit* field) { QTest::keyClick(field, Qt::Key_Return); };
const Press escape = [](PasswordDialog*, QLineEdit* field) { QTest::keyClick(field, Qt::Key_Escape); };
const Press close_button = [](PasswordDialog* dialog, QLineEdit*) { dialog->close(); };

TEST_F(Loading, ThePasswordQuestionTriesOnlyOnOkAndAsksUntilOpenedOrCancelled)
{
    write_encrypted_copy(folder / "in" / "b.pdf", folder / "locked.pdf", PdfEncryption::Aes128, "pw", "owner");
    struct Answer {
        const char* typed;
        Press press;
    };
    struct Case {
        const char* name;
        std::vector<Answer> answers;
        const char* password; // of the row; nullptr: no row
    };
    const Case cases[] = {
        {"OK with the password", {{"pw", ok}}, "pw"},
        {"Return cancels, typed text or not", {{"pw", return_key}}, nullptr},
        {"Escape cancels", {{"pw", escape}}, nullptr},
        {"the close button cancels", {{"pw", close_button}}, nullptr},
        {"asked again after a wrong password", {{"wrong", ok}, {"pw", ok}}, "pw"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        list->clear_list();
        commands.load_paths({q(folder / "locked.pdf")});
        for (const Answer& answer : test.answers) {
            PasswordDialog* dialog = question();
            ASSERT_NE(dialog, nullptr);
            EXPECT_EQ(dialog->size(), QSize(542, 164));
            auto* field = dialog->findChild<QLineEdit*>(QStringLiteral("thepassword"));
            EXPECT_EQ(field->echoMode(), QLineEdit::Password);
            EXPECT_TRUE(field->text().isEmpty()); // every showing starts empty
            QTest::keyClicks(field, QString::fromLatin1(answer.typed));
            answer.press(dialog, field);
        }
        ASSERT_TRUE(finished());
        const auto rows = list->list_rows();
        ASSERT_EQ(rows.size(), test.password ? 1u : 0u);
        if (test.password) {
            EXPECT_EQ(rows.front().cells[6], test.password);
        }
    }
}

// A file name is shown as text, never read as markup; quitting answers the open question.
TEST_F(Loading, TheFileNameInTheQuestionShowsAsText)
{
    const fs::path named = folder / "<img src=x>.pdf";
    write_encrypted_copy(folder / "in" / "b.pdf", named, PdfEncryption::Aes128, "pw", "owner");
    commands.load_paths({q(named)});
    PasswordDialog* dialog = question();
    ASSERT_NE(dialog, nullptr);
    QTextDocument shown;
    shown.setHtml(dialog->findChild<QLabel*>(QStringLiteral("thetext"))->text());
    EXPECT_EQ(shown.toPlainText().toStdString(),
              "<img src=x>.pdf is encrypted. Please Enter It's Unlock Password to include this file to the list");
    commands.cancel();
    ASSERT_TRUE(finished());
    EXPECT_EQ(list->row_count(), 0);
}

} // namespace
} // namespace qf::test
