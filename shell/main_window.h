// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <vector>

#include <QMainWindow>

#include "settings/option_controls_qt.h"

class QAction;
class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QSplitter;
class QTabWidget;
class QTextEdit;
class QToolBar;

namespace qf::intake {
class DocumentListView;
class LoadCommands;
} // namespace qf::intake

namespace qf::preview {
class EnlargedView;
class PreviewPane;
} // namespace qf::preview

namespace qf::settings {
class PreferenceStore;
class SettingsTab;
} // namespace qf::settings

namespace qf::shell {

class BusyIndicator;
class RunPump;

// mainwindow: the one window of the program. The File Listing tab holds the document list, its
// help text, the preview's place and the destination options; the Settings tab the other
// options; under the tabs stand the run's log (statustext) and the foot with the document
// count, the busy wheel and the progress bar. Commands come from the toolbar and the File
// menu. Every control carries its name as object name and its caption as accessible name.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    // resources: the folder of the ICC profiles and the other files a run needs. The store
    // holds the preferences; it must outlive the window.
    MainWindow(const std::filesystem::path& resources, settings::PreferenceStore& store,
               QWidget* parent = nullptr);
    ~MainWindow() override;

    // Restores the options from the preferences into the controls (start-up's last step).
    void loadsettings();
    // Writes the options the controls hold to the preferences.
    void Savesettings();
    // The files of the command line, admitted as a drop admits them.
    void admit_paths(const QStringList& paths);

    // After the window closed: the run under way did not give way in time, so its worker
    // still works and the program must remove its unfinished files before it ends.
    bool worker_left_running() const { return worker_left_running_; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    struct ToolbarItem {
        QAction* action;
        const char* image; // "loadfiles": the pictures bloadfiles and wloadfiles
        int image_size;    // pixels
    };

    void build_file_listing(QTabWidget* tabs);
    QWidget* build_preview_side();
    QWidget* build_destination();
    QWidget* build_foot();
    void build_toolbar();
    void build_menus();
    // The toolbar's pictures for the light or dark appearance the palette shows now.
    void refresh_toolbar();
    void check_for_updates_at_start();

    // Commands of the toolbar and the File menu.
    void toolbar_load_files();
    void toolbar_load_folders();
    void toolbar_clear_list();
    void toolbar_load_settings();
    void toolbar_save_settings();
    void stop_command();
    void Start();
    void preprocesscheck();
    void clear_list();
    void loadfromxml();
    void savetoxml();
    void choose_save_folder();
    bool admitting() const;
    // A modal message of the program, with the title of the window.
    void tell(const QString& message);
    void update_wheel();
    void show_selected_row(int row);

    settings::PreferenceStore& store_;
    settings::OptionControls controls_;
    settings::SettingsTab* settings_tab_ = nullptr;
    QTabWidget* TabPanel1_ = nullptr;
    intake::DocumentListView* Listbox1_ = nullptr;
    intake::LoadCommands* load_commands_ = nullptr;
    QTextEdit* TextArea1_ = nullptr;
    QSplitter* ws_ = nullptr;
    preview::PreviewPane* preview_ = nullptr; // RoundRectangle1: previewpic, Label20, viewpageno
    preview::EnlargedView* enlarged_ = nullptr;
    QLineEdit* savein_ = nullptr;
    QPushButton* selectfolderbtn_ = nullptr;
    QPlainTextEdit* statustext_ = nullptr;
    QLabel* noofphotos_ = nullptr;
    BusyIndicator* ProgressWheel1_ = nullptr;
    QProgressBar* ProgressBar1_ = nullptr;
    QToolBar* maintoolbar_ = nullptr;
    std::vector<ToolbarItem> toolbar_items_;
    RunPump* pump_ = nullptr;
    bool worker_left_running_ = false;
};

} // namespace qf::shell
