// SPDX-License-Identifier: GPL-3.0-or-later
// The window as a user meets it: start-up, preferences and profiles, runs, Stop, the exit
// question and what an assistive client finds.
#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QSlider>
#include <QSplitter>
#include <QTest>
#include <QTimer>
#include <QTabWidget>
#include <QToolButton>
#include <functional>
#include <map>
#include <gtest/gtest.h>
#include <memory>

#include "app/startup.h"
#include "intake/document_list_view.h"
#include "settings/option_table.h"
#include "settings/preference_store_qt.h"
#include "shell/main_window.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace {

using qf::engine::OptionId;
using qf::settings::OptionSpec;

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

// Whether an assistive client finds the node under this caption: its name, or the label that
// labels it (on Linux a popup's name is its selected row, and its label names it).
bool known_as(QAccessibleInterface* node, const QString& caption)
{
    if (node->text(QAccessible::Name) == caption) {
        return true;
    }
    for (const auto& [label, relation] : node->relations(QAccessible::Label)) {
        if (label->text(QAccessible::Name) == caption) {
            return true;
        }
    }
    return false;
}

// The widget an assistive client finds by this caption and role.
QWidget* accessible(QWidget* window, const QString& caption, QAccessible::Role role)
{
    QWidget* found = nullptr;
    walk(QAccessible::queryAccessibleInterface(window), [&](QAccessibleInterface* node) {
        if (found == nullptr && node->role() == role && known_as(node, caption)) {
            found = qobject_cast<QWidget*>(node->object());
        }
    });
    return found;
}

// Runs `action` and answers the modal dialogs it opens, one answer each in turn: a message box
// by the button of that text, a file dialog by choosing that path. Gives each dialog's text
// (a file dialog's title).
QStringList answer_modals(const std::function<void()>& action, const QStringList& answers)
{
    QStringList seen;
    QPointer<QWidget> answered;
    QTimer poll;
    poll.setInterval(10);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        QWidget* modal = QApplication::activeModalWidget();
        if (modal == nullptr || modal == answered || seen.size() == answers.size()) {
            return;
        }
        answered = modal;
        const QString& answer = answers[seen.size()];
        if (auto* box = qobject_cast<QMessageBox*>(modal)) {
            seen << box->text();
            for (QAbstractButton* button : box->buttons()) {
                if (button->text() == answer) {
                    button->click();
                }
            }
        } else if (auto* dialog = qobject_cast<QFileDialog*>(modal)) {
            seen << dialog->windowTitle();
            // The name field, as a user types it: the dialog may still be filling in its
            // proposed name from the folder it reads in the background.
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(answer);
            QMetaObject::invokeMethod(dialog, "accept");
        }
    });
    poll.start();
    action();
    return seen;
}

QString answer_modal(const std::function<void()>& action, const QString& answer)
{
    return answer_modals(action, {answer}).value(0);
}

// The stored options of a user: every option of the table away from its default.
void set_away_from_defaults(QWidget* window)
{
    for (const OptionSpec& spec : qf::settings::option_table()) {
        QWidget* control = window->findChild<QWidget*>(QString::fromUtf8(spec.control.data(), spec.control.size()));
        ASSERT_NE(control, nullptr) << spec.control;
        if (auto* popup = qobject_cast<QComboBox*>(control)) {
            popup->setCurrentIndex(popup->count() - 1 == spec.initial.row ? 0 : popup->count() - 1);
        } else if (auto* box = qobject_cast<QCheckBox*>(control)) {
            box->setChecked(!spec.initial.on);
        } else if (spec.id == OptionId::jpgquality) {
            window->findChild<QSlider*>("qualityslider")->setValue(90);
        } else if (spec.id == OptionId::DotsPerInch) {
            static_cast<QLineEdit*>(control)->setText("300");
        } else {
            static_cast<QLineEdit*>(control)->setText(" value of " + control->objectName() + "/");
        }
    }
}

// What a control shows, as text, for comparing two windows.
QString shown(QWidget* window, std::string_view name)
{
    QWidget* control = window->findChild<QWidget*>(QString::fromUtf8(name.data(), name.size()));
    if (auto* popup = qobject_cast<QComboBox*>(control)) {
        return QString::number(popup->currentIndex());
    }
    if (auto* box = qobject_cast<QCheckBox*>(control)) {
        return box->isChecked() ? "on" : "off";
    }
    return static_cast<QLineEdit*>(control)->text();
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

    void run_to_the_end()
    {
        press("start");
        ASSERT_TRUE(QTest::qWaitFor([&] { return log().startsWith("All Done\n"); }, kRunTimeoutMs)) << log().toStdString();
    }

    qf::test::TempFolder config_;
    qf::test::TempFolder input_;
    qf::test::TempFolder output_;
    std::vector<std::unique_ptr<qf::settings::QtPreferenceStore>> stores_;
    std::unique_ptr<qf::shell::MainWindow> window_;
};

// The log of a two-page "report.pdf" written as one PDF, newest line first.
const QString kReportLog = "report.PDF has been Saved\nPage 2 Added to PDF\nPage 2 is being Processed \n"
                           "Page 1 Added to PDF\nPage 1 is being Processed \nreport.pdf is being Processed\n";

TEST_F(WindowTest, StartsEmptyWithTheListAndPreviewKeptWide)
{
    EXPECT_TRUE(window_->windowTitle().startsWith("Quirefold v"));
    EXPECT_EQ(find<QLabel>("noofphotos")->text(), "Number of Documents : 0");
    // Dragging the splitter either way leaves the list 450 and the preview 300 wide.
    auto* splitter = find<QSplitter>("ws");
    for (const QList<int>& sizes : {QList<int>{10, 2000}, QList<int>{2000, 10}}) {
        splitter->setSizes(sizes);
        EXPECT_GE(find<QWidget>("Listbox1")->width(), 450);
        EXPECT_GE(find<QWidget>("RoundRectangle1")->width(), 300);
    }
}

TEST_F(WindowTest, PreferencesAndAProfileRestoreEveryControl)
{
    set_away_from_defaults(window_.get());
    window_->Savesettings();
    const QString profile = QString::fromStdString((output_ / "mine.qfk").string());
    EXPECT_EQ(answer_modals([&] { press("savesettings"); }, {profile, "OK"}),
              QStringList({"Save Settings Profile File (QFK)", "Settings File mine.qfk Saved"}));

    const auto restored = open_window();
    QSettings(QSettings::NativeFormat, QSettings::UserScope, "org.quirefold.extract").clear();
    const auto fresh = open_window();
    std::map<std::string_view, QString> before_profile;
    for (const OptionSpec& spec : qf::settings::option_table()) {
        before_profile[spec.control] = shown(fresh.get(), spec.control);
    }
    EXPECT_EQ(answer_modals([&] { fresh->findChild<QAction*>("loadsettings")->trigger(); }, {profile, "OK"}),
              QStringList({"Select Settings Profile File (QFK)", "Settings Loaded"}));

    for (const OptionSpec& spec : qf::settings::option_table()) {
        const QString saved = shown(window_.get(), spec.control);
        if (!spec.pref_key.empty()) {
            EXPECT_EQ(shown(restored.get(), spec.control), saved) << "preferences: " << spec.control;
        }
        // A profile holds texts trimmed, and leaves the options it does not hold as they were.
        const QString expected = spec.profile_attr.empty() ? before_profile[spec.control] : saved.trimmed();
        EXPECT_EQ(shown(fresh.get(), spec.control), expected) << "profile: " << spec.control;
    }
    EXPECT_EQ(restored->findChild<QSlider*>("qualityslider")->value(), 90);
    EXPECT_EQ(restored->findChild<QLineEdit*>("pdfpassword")->echoMode(), QLineEdit::Password);
    EXPECT_EQ(fresh->findChild<QSlider*>("qualityslider")->value(), 90);
    EXPECT_EQ(fresh->findChild<QLineEdit*>("pdffullpassword")->echoMode(), QLineEdit::Password);
}

TEST_F(WindowTest, RunEndsWithAllDoneAndTheLogAsShown)
{
    load({document("report.pdf", 2)});
    save_in_output();
    run_to_the_end();
    EXPECT_EQ(log(), "All Done\n" + kReportLog);
    EXPECT_EQ(find<QProgressBar>("ProgressBar1")->value(), 1);
    EXPECT_EQ(find<QProgressBar>("ProgressBar1")->maximum(), 1);
    EXPECT_FALSE(find<QWidget>("ProgressWheel1")->isVisible());
    EXPECT_TRUE(std::filesystem::exists(output_ / "report.PDF"));

    // Clear List empties what is shown; the next run shows the first run's lines below its own.
    find<QAction>("mClearlist")->trigger();
    EXPECT_TRUE(log().isEmpty());
    EXPECT_EQ(find<QLabel>("noofphotos")->text(), "Number of Documents : 0");
    load({document("report.pdf", 2)});
    qf::test::TempFolder second_output;
    find<QLineEdit>("savein")->setText(QString::fromStdString(second_output.path().string()) + "/");
    run_to_the_end();
    EXPECT_EQ(log(), "All Done\n" + kReportLog + kReportLog)
        << "the first run's lines without its All Done";
}

TEST_F(WindowTest, StopEndsTheRunBeforeTheNextDocument)
{
    const struct {
        const char* name;
        bool stop_before_start;
        bool terminated;
    } cases[] = {{"early", true, false}, {"during", false, true}};
    for (const auto& c : cases) {
        find<QAction>("mClearlist")->trigger();
        const std::string prefix = c.name;
        load({document(prefix + "-a.pdf", 30), document(prefix + "-b.pdf", 2), document(prefix + "-c.pdf", 2)});
        save_in_output();
        if (c.stop_before_start) {
            press("stop");
        }
        press("start");
        if (!c.stop_before_start) {
            press("stop");
        }
        ASSERT_TRUE(QTest::qWaitFor([&] { return log().startsWith("All Done\n"); }, kRunTimeoutMs));
        EXPECT_EQ(log().startsWith("All Done\nProcessing Terminated by User \n"), c.terminated) << log().toStdString();
        EXPECT_EQ(log().contains(QString::fromStdString(prefix + "-c.pdf is being Processed")), !c.terminated);
    }
}

TEST_F(WindowTest, StartRefusesAnEmptyListAndAnEmptySaveIn)
{
    const struct {
        bool with_document;
        bool with_save_in;
        QString message;
    } cases[] = {
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
        if (c.with_document) {
            EXPECT_EQ(window_->focusWidget(), accessible(window_.get(), "Choose Folder", QAccessible::Button));
        }
    }
}

TEST_F(WindowTest, ExitQuestionStoresTheOptionsWhateverTheAnswer)
{
    const struct {
        QString answer;
        bool stays;
    } cases[] = {{"No", true}, {"Yes", false}};
    for (const auto& c : cases) {
        window_->show();
        find<QLineEdit>("pdftitle")->setText("Kept " + c.answer);
        EXPECT_EQ(answer_modal([&] { window_->close(); }, c.answer), "Did You Want to Exit ?");
        EXPECT_EQ(window_->isVisible(), c.stays) << c.answer.toStdString();
        const QSettings stored(QSettings::NativeFormat, QSettings::UserScope, "org.quirefold.extract");
        EXPECT_EQ(stored.value("pdftitle").toString(), "Kept " + c.answer);
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

TEST_F(WindowTest, ToolbarPicturesFollowTheAppearanceAtActivation)
{
    const struct {
        QColor window;
        QColor text;
        bool light_picture;
    } cases[] = {{QColor(240, 240, 240), Qt::black, false}, {QColor(40, 40, 40), Qt::white, true}};
    for (const auto& c : cases) {
        QPalette palette = window_->palette();
        palette.setColor(QPalette::Window, c.window);
        palette.setColor(QPalette::WindowText, c.text);
        window_->setPalette(palette);
        // Another window takes the focus, then this one becomes active again.
        QWidget other;
        other.show();
        other.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
        window_->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
        // The middle of the Stop picture is its filled square.
        const QImage picture = find<QAction>("stop")->icon().pixmap(20, 20).toImage();
        EXPECT_EQ(picture.pixelColor(picture.width() / 2, picture.height() / 2).lightness() > 128, c.light_picture);
    }
}

TEST_F(WindowTest, EveryControlIsFoundByItsCaptionInLayoutOrder)
{
    // Every control a user can reach with the keyboard, on either tab, has a name for an
    // assistive client.
    auto* tab_panel = find<QTabWidget>("TabPanel1");
    for (int tab = tab_panel->count() - 1; tab >= 0; --tab) {
        tab_panel->setCurrentIndex(tab);
        walk(QAccessible::queryAccessibleInterface(window_.get()), [](QAccessibleInterface* node) {
            auto* widget = qobject_cast<QWidget*>(node->object());
            if (widget != nullptr && widget->isVisible() && (widget->focusPolicy() & Qt::TabFocus)) {
                EXPECT_TRUE(!node->text(QAccessible::Name).isEmpty() || !node->relations(QAccessible::Label).isEmpty()) << widget->metaObject()->className() << " "
                                                                       << widget->objectName().toStdString();
            }
        });
    }
    const struct {
        QString caption;
        QAccessible::Role role;
        const char* control;
    } captions[] = {
        {"Save In", QAccessible::EditableText, "savein"},
        {"Choose Folder", QAccessible::Button, "selectfolderbtn"},
        {"Use Page Ranges", QAccessible::CheckBox, "usepageranges"},
        {"Dots Per Inch", QAccessible::EditableText, "DotsPerInch"},
        {"Image Format", QAccessible::ComboBox, "imageformat"},
        {"Encryption Level", QAccessible::ComboBox, "encryptionlevel"},
        {"Viewing Password", QAccessible::EditableText, "pdfpassword"},
        {"General Settings", QAccessible::Grouping, "GroupBox2"},
        {"PDF Permissions", QAccessible::Grouping, "GroupBox4"},
        {"Allow Printing", QAccessible::CheckBox, "allowprint"},
        {"Status", QAccessible::EditableText, "statustext"},
    };
    for (const auto& c : captions) {
        for (int tab = 0; tab < tab_panel->count(); ++tab) {
            if (tab_panel->widget(tab)->isAncestorOf(find<QWidget>(c.control))) {
                tab_panel->setCurrentIndex(tab);
            }
        }
        EXPECT_EQ(accessible(window_.get(), c.caption, c.role), find<QWidget>(c.control)) << c.control;
    }
    tab_panel->setCurrentIndex(0);
    for (const QString& command :
         {"Load Files", "Load Folders", "Start", "Stop", "Clear List", "Load Settings", "Save Settings"}) {
        QWidget* button = accessible(window_.get(), command, QAccessible::Button);
        ASSERT_NE(button, nullptr) << command.toStdString();
        EXPECT_TRUE(button->focusPolicy() & Qt::TabFocus) << command.toStdString();
    }
    QStringList tabs;
    walk(QAccessible::queryAccessibleInterface(window_.get()), [&](QAccessibleInterface* node) {
        if (node->role() == QAccessible::PageTab) {
            tabs << node->text(QAccessible::Name);
        }
    });
    EXPECT_EQ(tabs, QStringList({"File Listing", "Settings"}));

    // Tab goes from the toolbar through the list and the destination to the log.
    const QStringList layout_order = {"loadfiles", "savesettings", "Listbox1", "savein", "selectfolderbtn",
                                      "usepageranges", "onefileonefolder", "statustext"};
    QStringList met;
    QWidget* first = accessible(window_.get(), "Load Files", QAccessible::Button);
    QWidget* widget = first;
    do {
        const QString name = widget->objectName().isEmpty() && qobject_cast<QToolButton*>(widget)
                                 ? static_cast<QToolButton*>(widget)->defaultAction()->objectName()
                                 : widget->objectName();
        if (layout_order.contains(name) && !met.contains(name)) {
            met << name;
        }
        widget = widget->nextInFocusChain();
    } while (widget != first);
    EXPECT_EQ(met, layout_order);
}

} // namespace
