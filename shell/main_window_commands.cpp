// SPDX-License-Identifier: GPL-3.0-or-later
// The toolbar, the menus and the commands behind them.
#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPainter>
#include <QPushButton>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <QToolBar>
#include <QToolButton>

#include "engine/batch_run.h"
#include "intake/document_list_view.h"
#include "intake/load_commands_qt.h"
#include "preview/preview_pane.h"
#include "settings/profile_file.h"
#include "settings/settings_tab.h"
#include "shell/about_dialog.h"
#include "shell/help_document.h"
#include "shell/main_window.h"
#include "shell/run_pump.h"
#include "shell/update_check_dialog.h"

// Compiled into the static library; named here so the linker keeps it.
static void init_icon_resources()
{
    Q_INIT_RESOURCE(icons);
}

namespace qf::shell {
namespace {

constexpr int kToolbarIconSize = 20;
constexpr const char* kProfileExtension = "qfk";

// The appearance is dark when the window's background is darker than its text.
bool dark_appearance(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

// One toolbar picture, drawn from its SVG at `image_size` pixels in the middle of the
// toolbar's icon square, sharp at the screen's pixel ratio.
QIcon toolbar_icon(const QString& image, int image_size, qreal pixel_ratio)
{
    QSvgRenderer renderer(":/icons/" + image + ".svg");
    QPixmap pixmap(QSize(kToolbarIconSize, kToolbarIconSize) * pixel_ratio);
    pixmap.setDevicePixelRatio(pixel_ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    const qreal margin = (kToolbarIconSize - image_size) / 2.0;
    renderer.render(&painter, QRectF(margin, margin, image_size, image_size));
    painter.end();
    return QIcon(pixmap);
}

QWidget* flexible_space(QWidget* parent)
{
    auto* space = new QWidget(parent);
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    return space;
}

QString documents_folder()
{
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

// A line of text under a file dialog's own controls, for the explanation the dialog carries.
void add_message(QFileDialog& dialog, const QString& message)
{
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
        auto* label = new QLabel(message, &dialog);
        label->setWordWrap(true);
        grid->addWidget(label, grid->rowCount(), 0, 1, grid->columnCount());
    }
}

} // namespace

void MainWindow::build_toolbar()
{
    init_icon_resources();
    maintoolbar_ = new QToolBar(this);
    maintoolbar_->setObjectName("my_application_mainToolbar");
    maintoolbar_->setWindowTitle("Toolbar");
    maintoolbar_->setMovable(false);
    maintoolbar_->setFloatable(false);
    maintoolbar_->toggleViewAction()->setVisible(false);
    maintoolbar_->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    maintoolbar_->setIconSize(QSize(kToolbarIconSize, kToolbarIconSize));
    addToolBar(Qt::TopToolBarArea, maintoolbar_);

    const auto item = [this](const char* identifier, const QString& label, const char* image, int image_size,
                             void (MainWindow::*command)()) {
        QAction* action = maintoolbar_->addAction(label);
        action->setObjectName(identifier);
        action->setToolTip(label);
        connect(action, &QAction::triggered, this, command);
        // Toolbar buttons are reachable with Tab, like every other control.
        maintoolbar_->widgetForAction(action)->setFocusPolicy(Qt::TabFocus);
        maintoolbar_->widgetForAction(action)->setAccessibleName(label);
        toolbar_items_.push_back({action, image, image_size});
    };
    // Each toolbar command is ignored during a run, but Stop, which is never refused.
    item("loadfiles", "Load Files", "loadfiles", 16, &MainWindow::toolbar_load_files);
    item("loadfolders", "Load Folders", "loadfolders", 16, &MainWindow::toolbar_load_folders);
    maintoolbar_->addWidget(flexible_space(maintoolbar_));
    item("start", "Start", "start", 16, &MainWindow::Start);
    item("stop", "Stop", "stop", 16, &MainWindow::stop_command);
    maintoolbar_->addWidget(flexible_space(maintoolbar_));
    item("clearlist", "Clear List", "blank", 16, &MainWindow::toolbar_clear_list);
    maintoolbar_->addWidget(flexible_space(maintoolbar_));
    item("loadsettings", "Load Settings", "loadsettings", 20, &MainWindow::toolbar_load_settings);
    item("savesettings", "Save Settings", "savesettings", 20, &MainWindow::toolbar_save_settings);
}

void MainWindow::refresh_toolbar()
{
    const QString prefix = dark_appearance(palette()) ? "w" : "b";
    for (const ToolbarItem& item : toolbar_items_) {
        item.action->setIcon(toolbar_icon(prefix + item.image, item.image_size, devicePixelRatioF()));
        if (item.action->objectName() == "start") {
            item.action->setEnabled(true);
        }
    }
}

void MainWindow::build_menus()
{
    QMenu* file = menuBar()->addMenu("&File");
    file->setObjectName("FileMenu");
    // The menu's list commands have no run guard of their own.
    file->addAction("&Load Files", this, [this] {
        if (!admitting()) {
            load_commands_->open_files_dialog();
        }
    })->setObjectName("mLoadFiles");
    file->addAction("Load F&olders", this, [this] {
        if (!admitting()) {
            load_commands_->open_folder_dialog();
        }
    })->setObjectName("mLoadFolders");
    file->addAction("&Clear List", this, &MainWindow::clear_list)->setObjectName("mClearlist");
    file->addSeparator();
    QAction* quit = file->addAction("&Quit", this, &QWidget::close);
    quit->setObjectName("FileQuit");
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    QMenu* help = menuBar()->addMenu("&Help");
    help->setObjectName("HelpMenu");
    help->addAction("&About Quirefold", this, [this] { show_about(this); })->setObjectName("FileAbout");
    help->addAction("Quirefold &Help", this, [this] { open_help(this); })->setObjectName("HelpQuirefoldHelp");
    help->addSeparator();
    help->addAction("Check for &Updates", this, [this] { check_for_updates_from_menu(this); })
        ->setObjectName("Checkforupdatesitem");
}

bool MainWindow::admitting() const
{
    // While documents are admitted the list is disabled and the commands that would change it
    // or start a run wait, as they would for a busy window.
    return load_commands_->loading();
}

void MainWindow::toolbar_load_files()
{
    if (!pump_->isrunning() && !admitting()) {
        load_commands_->open_files_dialog();
    }
}

void MainWindow::toolbar_load_folders()
{
    if (!pump_->isrunning() && !admitting()) {
        load_commands_->open_folder_dialog();
    }
}

void MainWindow::toolbar_clear_list()
{
    if (!pump_->isrunning()) {
        clear_list();
    }
}

void MainWindow::toolbar_load_settings()
{
    if (!pump_->isrunning()) {
        loadfromxml();
    }
}

void MainWindow::toolbar_save_settings()
{
    if (!pump_->isrunning()) {
        savetoxml();
    }
}

void MainWindow::stop_command()
{
    pump_->stop();
}

// Clear List: the list, the bar, the shown log and the preview's page are emptied. A run
// under way goes on from its own copy of the list.
void MainWindow::clear_list()
{
    if (admitting()) {
        return;
    }
    Listbox1_->clear_list();
    pump_->clear_shown();
    preview_->clear();
}

void MainWindow::Start()
{
    if (pump_->isrunning() || admitting()) {
        return;
    }
    Savesettings();
    const std::string refusal =
        engine::BatchRun::start_refusal(static_cast<std::size_t>(Listbox1_->row_count()), controls_.values());
    if (!refusal.empty()) {
        tell(QString::fromStdString(refusal));
        if (Listbox1_->row_count() > 0) { // the refusal was for Save In
            selectfolderbtn_->setFocus();
        }
        return;
    }
    preprocesscheck();
}

void MainWindow::preprocesscheck()
{
    // The options are stored again just before the worker starts, as they stand for the run.
    const engine::OptionValues values = controls_.values();
    Savesettings();
    pump_->start(values, Listbox1_->list_rows());
}

void MainWindow::choose_save_folder()
{
    QFileDialog dialog(this, "Select the Folder to Save In ...", documents_folder());
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    add_message(dialog, "Select the Folder which you want to save the Files In ...");
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return;
    }
    QString folder = dialog.selectedFiles().constFirst();
    while (folder.size() > 1 && folder.endsWith('/')) {
        folder.chop(1);
    }
    savein_->setText(folder == "/" ? folder : folder + '/');
}

void MainWindow::savetoxml()
{
    QFileDialog dialog(this, "Save Settings Profile File (QFK)", documents_folder());
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setNameFilter("Settings Profile (*.qfk)");
    dialog.setDefaultSuffix(kProfileExtension);
    dialog.selectFile("settingsprofile.qfk");
    add_message(dialog, "You can use this to save the settings for later usage or to share with someone else");
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return;
    }
    const std::filesystem::path target = dialog.selectedFiles().constFirst().toStdString();
    tell(QString::fromStdString(settings::savetoxml(target, controls_.values()).message));
}

void MainWindow::loadfromxml()
{
    QFileDialog dialog(this, "Select Settings Profile File (QFK)", documents_folder());
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setNameFilter("text/xml (*.qfk)");
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return;
    }
    const std::filesystem::path source = dialog.selectedFiles().constFirst().toStdString();
    engine::OptionValues values = controls_.values();
    const settings::ProfileOutcome outcome = settings::loadfromxml(source, values);
    if (outcome.ok) {
        controls_.show(values);
        settings_tab_->follow_fields();
    }
    tell(QString::fromStdString(outcome.message));
}

} // namespace qf::shell
