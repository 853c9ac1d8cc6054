// SPDX-License-Identifier: GPL-3.0-or-later
// The window as a user meets it: start-up, preferences and profiles, runs, Stop, the exit
// question and what an assistive client finds.
#include <QAbstractButton>
#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <QTabWidget>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "app/startup.h"
#include "intake/document_list_view.h"
#include "settings/preference_store_qt.h"
#include "shell/main_window.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace {


constexpr int kRunTimeoutMs = 60000;

// Every accessible interface under `root`, depth first.
void walk(QAccessibleInterface* node, const std::function<void(QAccessibleInterface*)>& visit)
{
    if (node == nullptr) {
        return;
    }
    visit(node);
    for (int i = 0; i < node->childCount(); ++i) {
        walk(node->child(i), visit);
    }
}

// Runs `action` and answers the message box it opens by the button of that text; gives the
// box's text.
QString answer_modal(const std::function<void()>& action, const QString& answer)
{
    QString seen;
    QTimer poll;
    poll.setInterval(10);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr || !seen.isEmpty())
            return;
        seen = box->text();
        for (QAbstractButton* button : box->buttons())
            if (button->text() == answer)
                button->click();
    });
    poll.start();
    action();
    return seen;
}

class WindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(config_.path()));
        window_ = open_window();
    }

    std::unique_ptr<qf::shell::MainWindow> open_window()
    {
        stores_.push_back(std::make_unique<qf::settings::QtPreferenceStore>());
        auto window = std::make_unique<qf::shell::MainWindow>(qf::app::resources_folder(), *stores_.back());
        window->loadsettings();
        window->show();
        return window;
    }

    template <typename T>
    T* find(const char* name) const
    {
        return window_->findChild<T*>(name);
    }

    QString log() const { return find<QPlainTextEdit>("statustext")->toPlainText(); }

    void press(const char* toolbar_item) { find<QAction>(toolbar_item)->trigger(); }

    // Admits the documents through the window's load path and waits for their rows.
    void load(const QStringList& paths)
    {
        auto* list = find<qf::intake::DocumentListView>("Listbox1");
        const int expected = list->row_count() + static_cast<int>(paths.size());
        window_->admit_paths(paths);
        ASSERT_TRUE(QTest::qWaitFor([&] { return list->row_count() == expected && list->isEnabled(); }, 20000));
    }

    QString document(const std::string& name, int pages)
    {
        qf::test::write_numbered_pdf(input_ / name, pages);
        return QString::fromStdString((input_ / name).string());
    }

    void save_in_output() { find<QLineEdit>("savein")->setText(QString::fromStdString(output_.path().string()) + "/"); }

    qf::test::TempFolder config_;
    qf::test::TempFolder input_;
    qf::test::TempFolder output_;
    std::vector<std::unique_ptr<qf::settings::QtPreferenceStore>> stores_;
    std::unique_ptr<qf::shell::MainWindow> window_;
};

TEST_F(WindowTest, StopEndsTheRunBeforeTheNextDocument)
{
    load({document("a.pdf", 30), document("b.pdf", 2), document("c.pdf", 2)});
    save_in_output();
    press("start");
    press("stop");
    ASSERT_TRUE(QTest::qWaitFor([&] { return log().startsWith("All Done\n"); }, kRunTimeoutMs));
    EXPECT_TRUE(log().startsWith("All Done\nProcessing Terminated by User \n")) << log().toStdString();
    EXPECT_FALSE(log().contains("c.pdf is being Processed"));
}

TEST_F(WindowTest, StartRefusesAnEmptyListAndAnEmptySaveIn)
{
    const struct { bool with_document; bool with_save_in; QString message; } cases[] = {
        {false, false, "There is Nothing to Process"},
        {true, false, "Please Enter the Save In Folder Details before proceeding"},
    };
    for (const auto& c : cases) {
        find<QAction>("mClearlist")->trigger();
        if (c.with_document) {
            load({document("report.pdf", 1)});
        }
        find<QLineEdit>("savein")->setText(c.with_save_in ? "/tmp/" : "");
        find<QPlainTextEdit>("statustext")->clear();
        EXPECT_EQ(answer_modal([&] { press("start"); }, "OK"), c.message);
        QTest::qWait(250);
        EXPECT_TRUE(log().isEmpty()) << "no run started";
    }
}

TEST_F(WindowTest, ExitQuestionStoresTheOptionsWhateverTheAnswer)
{
    const struct { QString answer; bool stays; } cases[] = {{"No", true}, {"Yes", false}};
    for (const auto& c : cases) {
        window_->show();
        find<QLineEdit>("pdftitle")->setText("Kept " + c.answer);
        EXPECT_EQ(answer_modal([&] { window_->close(); }, c.answer), "Did You Want to Exit ?");
        EXPECT_EQ(window_->isVisible(), c.stays) << c.answer.toStdString();
        EXPECT_EQ(open_window()->findChild<QLineEdit*>("pdftitle")->text(), "Kept " + c.answer);
    }
}

TEST_F(WindowTest, DuringARunOnlyTheMenuClearsTheListAndQuittingLeavesNoHalfWrittenFile)
{
    load({document("long.pdf", 40), document("later.pdf", 5)});
    find<QComboBox>("imageformat")->setCurrentIndex(2); // a file per page: JPEG
    save_in_output();
    press("start");
    const auto written = [&](const char* name) {
        return QTest::qWaitFor([&] { return std::filesystem::exists(output_ / name); }, kRunTimeoutMs);
    };
    ASSERT_TRUE(written("long Page 001.JPG"));
    auto* list = find<qf::intake::DocumentListView>("Listbox1");
    press("clearlist");
    EXPECT_EQ(list->row_count(), 2) << "the toolbar's Clear List waits for the run";
    find<QAction>("mClearlist")->trigger();
    EXPECT_EQ(list->row_count(), 0);
    ASSERT_TRUE(written("long Page 010.JPG")) << "the run goes on from its own list";
    EXPECT_EQ(answer_modal([&] { window_->close(); }, "Yes"), "Did You Want to Exit ?");
    EXPECT_FALSE(window_->isVisible());
    EXPECT_FALSE(window_->worker_left_running());
    const std::size_t files = output_.entries().size();
    QTest::qWait(300);
    EXPECT_EQ(output_.entries().size(), files) << "the run ended with the window";
    for (const std::string& name : output_.entries()) {
        EXPECT_TRUE(name.ends_with(".JPG") && !name.starts_with(".")) << name << ": left by the quit";
    }
}

TEST_F(WindowTest, EveryControlReachedByTheKeyboardHasACaption)
{
    // On either tab, every control a user can reach with the keyboard has a name for an
    // assistive client: its own, or the label that labels it (a popup's name is its row).
    auto* tab_panel = find<QTabWidget>("TabPanel1");
    int named = 0;
    for (int tab = tab_panel->count() - 1; tab >= 0; --tab) {
        tab_panel->setCurrentIndex(tab);
        walk(QAccessible::queryAccessibleInterface(window_.get()), [&](QAccessibleInterface* node) {
            auto* widget = qobject_cast<QWidget*>(node->object());
            if (widget != nullptr && widget->isVisible() && (widget->focusPolicy() & Qt::TabFocus)) {
                ++named;
                EXPECT_TRUE(!node->text(QAccessible::Name).isEmpty() || !node->relations(QAccessible::Label).isEmpty())
                    << widget->metaObject()->className() << " " << widget->objectName().toStdString();
            }
        });
    }
    EXPECT_GT(named, 20); // the walk reached the controls
}

} // namespace
