// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/main_window.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QTabBar>
#include <QTabWidget>
#include <QTextEdit>
#include <QVBoxLayout>

#include "app/run_services.h"
#include "engine/version.h"
#include "intake/document_list_view.h"
#include "intake/load_commands_qt.h"
#include "preview/enlarged_view.h"
#include "preview/preview_pane.h"
#include "settings/option_table.h"
#include "settings/preference_store.h"
#include "settings/settings_tab.h"
#include "shell/busy_indicator.h"
#include "shell/run_pump.h"
#include "shell/update_check_dialog.h"

namespace qf::shell {
namespace {

using engine::OptionId;

constexpr const char* kJustAppName = "Quirefold";
constexpr int kWindowWidth = 1000;
constexpr int kWindowHeight = 612;
constexpr int kWindowMaximum = 32000;
constexpr int kListSideMinimum = 450;
constexpr int kPreviewSideMinimum = 300;
constexpr int kSplitterWidth = 10;
constexpr const char* kCreditText = "The Quirefold Project";
constexpr const char* kCreditAddress = "https://quirefold.org/";

constexpr const char* kHelpParagraphs =
    "Merge All Documents - Ensure that either the Form and To or Page Ranges reflects the first to last "
    "page numbers respectively. \n"
    "Page Ranges can be used to set multiple pages to be extracted per document such as 1-3,8,5-7,12-8. "
    "This will extract the relevant pages while skipping those you do not need. It also allows you to "
    "rearrange the pages. The order can be in ascending or descending order. To Use Page Ranges, check the "
    "Use Page Ranges below. ";

// appname: the title at run time, with its trailing blank.
QString appname()
{
    return QString("%1 v%2 ").arg(kJustAppName, engine::kLongVersion);
}

QFont bold_font(int points)
{
    QFont font;
    font.setBold(true);
    font.setPointSize(points);
    return font;
}

QString count_text(int rows)
{
    return QString("Number of Documents : %1").arg(rows);
}

} // namespace

MainWindow::MainWindow(const std::filesystem::path& resources, settings::PreferenceStore& store, QWidget* parent)
    : QMainWindow(parent), store_(store)
{
    setObjectName("mainwindow");
    setWindowTitle(appname());
    setMinimumSize(kWindowWidth, kWindowHeight);
    setMaximumSize(kWindowMaximum, kWindowMaximum);
    resize(kWindowWidth, kWindowHeight);
    // Not customisable: no menu to hide the toolbar.
    setContextMenuPolicy(Qt::NoContextMenu);

    build_toolbar();
    build_menus();

    auto* central = new QWidget(this);
    auto* column = new QVBoxLayout(central);
    column->setContentsMargins(6, 4, 6, 4);
    column->setSpacing(4);
    TabPanel1_ = new QTabWidget(central);
    TabPanel1_->setObjectName("TabPanel1");
    TabPanel1_->setAccessibleName("File Listing and Settings");
    TabPanel1_->tabBar()->setFont(bold_font(12));
    TabPanel1_->setDocumentMode(false);
    build_file_listing(TabPanel1_);
    settings_tab_ = new settings::SettingsTab(controls_, TabPanel1_);
    TabPanel1_->addTab(settings_tab_, "Settings");
    TabPanel1_->setCurrentIndex(0);
    column->addWidget(TabPanel1_, 1);

    statustext_ = new QPlainTextEdit(central);
    statustext_->setObjectName("statustext");
    statustext_->setAccessibleName("Status");
    statustext_->setReadOnly(true);
    statustext_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    statustext_->setFixedHeight(76);
    column->addWidget(statustext_);
    column->addWidget(build_foot());
    setCentralWidget(central);

    pump_ = new RunPump(app::make_run_services(resources), statustext_, ProgressBar1_, ProgressWheel1_, this);
    connect(pump_, &RunPump::runEnded, this, &MainWindow::update_wheel);
    load_commands_ = new intake::LoadCommands(Listbox1_, this);
    connect(load_commands_, &intake::LoadCommands::reportLine, pump_, &RunPump::put_in_front);
    connect(load_commands_, &intake::LoadCommands::problemLine, pump_, &RunPump::put_in_front);
    connect(load_commands_, &intake::LoadCommands::loadingChanged, this, &MainWindow::update_wheel);
    connect(Listbox1_, &intake::DocumentListView::countChanged, noofphotos_,
            [this](int rows) { noofphotos_->setText(count_text(rows)); });
    connect(Listbox1_, &intake::DocumentListView::selectedRowChanged, this, &MainWindow::show_selected_row);

    // Event_Open: no run, the toolbar in place, an empty log; the update check's place.
    statustext_->clear();
    refresh_toolbar();
    check_for_updates_at_start();
}

MainWindow::~MainWindow() = default;

// goshow: the selected row's first page in the preview; no row, an empty pane.
void MainWindow::show_selected_row(int row)
{
    const std::vector<engine::ListRow> rows = Listbox1_->list_rows();
    if (row < 0 || row >= static_cast<int>(rows.size())) {
        preview_->clear();
        return;
    }
    preview_->show_row(rows[static_cast<std::size_t>(row)], row);
}

void MainWindow::build_file_listing(QTabWidget* tabs)
{
    auto* page = new QWidget(tabs);
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(6, 6, 6, 6);
    column->setSpacing(4);

    ws_ = new QSplitter(Qt::Horizontal, page);
    ws_->setObjectName("ws");
    ws_->setHandleWidth(kSplitterWidth);
    ws_->setChildrenCollapsible(false);

    auto* list_side = new QWidget(ws_);
    auto* list_column = new QVBoxLayout(list_side);
    list_column->setContentsMargins(0, 0, 0, 0);
    Listbox1_ = new intake::DocumentListView(list_side);
    Listbox1_->setObjectName("Listbox1");
    Listbox1_->setAccessibleName("Document List");
    list_column->addWidget(Listbox1_, 1);
    TextArea1_ = new QTextEdit(list_side);
    TextArea1_->setObjectName("TextArea1");
    TextArea1_->setAccessibleName("Help Text");
    TextArea1_->setReadOnly(true);
    TextArea1_->setFont(bold_font(12));
    TextArea1_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    TextArea1_->setPlainText(kHelpParagraphs);
    TextArea1_->setFixedHeight(64);
    list_column->addWidget(TextArea1_);
    // The list side never narrows below its minimum, and the help text is always as wide as
    // the list: they share one column.
    list_side->setMinimumWidth(kListSideMinimum);
    ws_->addWidget(list_side);
    ws_->addWidget(build_preview_side());
    ws_->setStretchFactor(0, 1);
    ws_->setStretchFactor(1, 0);
    column->addWidget(ws_, 1);
    column->addWidget(build_destination());
    tabs->addTab(page, "File Listing");
}

// RoundRectangle1: the preview pane (previewpic, Label20, viewpageno), which follows the
// list's selection, and the enlarged view it opens.
QWidget* MainWindow::build_preview_side()
{
    preview_ = new preview::PreviewPane(ws_);
    preview_->setMinimumWidth(kPreviewSideMinimum);
    enlarged_ = new preview::EnlargedView(*preview_, this);
    connect(preview_, &preview::PreviewPane::enlargedViewRequested, enlarged_, &preview::EnlargedView::open_view);
    return preview_;
}

QWidget* MainWindow::build_destination()
{
    auto* area = new QWidget(this);
    auto* grid = new QVBoxLayout(area);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(2);
    auto* row = new QHBoxLayout;
    auto* label = new QLabel("Save In", area);
    label->setObjectName("Label18");
    savein_ = new QLineEdit(area);
    savein_->setObjectName("savein");
    savein_->setAccessibleName("Save In");
    savein_->setReadOnly(true);
    label->setBuddy(savein_);
    // Kept hidden: "[Source Folder]" reaches Save In only through a stored preference.
    auto* source_folder = new QPushButton("Save to Source Folder", area);
    source_folder->setObjectName("PushButton1");
    source_folder->hide();
    connect(source_folder, &QPushButton::clicked, this,
            [this] { savein_->setText(QString::fromUtf8(engine::kSourceFolder)); });
    selectfolderbtn_ = new QPushButton("Choose Folder", area);
    selectfolderbtn_->setObjectName("selectfolderbtn");
    selectfolderbtn_->setFont(bold_font(14));
    connect(selectfolderbtn_, &QPushButton::clicked, this, &MainWindow::choose_save_folder);
    row->addWidget(label);
    row->addWidget(savein_, 1);
    row->addWidget(source_folder);
    row->addWidget(selectfolderbtn_);
    grid->addLayout(row);

    auto* boxes = new QHBoxLayout;
    auto* usepageranges = new QCheckBox("Use Page Ranges", area);
    usepageranges->setObjectName("usepageranges");
    auto* onefileonefolder = new QCheckBox("Put Each File Extracted Pages in It's Own Sub Folder", area);
    onefileonefolder->setObjectName("onefileonefolder");
    boxes->addWidget(usepageranges);
    boxes->addSpacing(16);
    boxes->addWidget(onefileonefolder);
    boxes->addStretch(1);
    grid->addLayout(boxes);

    controls_.add(OptionId::savein, savein_);
    controls_.add(OptionId::usepageranges, usepageranges);
    controls_.add(OptionId::onefileonefolder, onefileonefolder);
    return area;
}

// Rectangle1: the credit line, the document count, the busy wheel and the progress bar.
QWidget* MainWindow::build_foot()
{
    auto* foot = new QFrame(this);
    foot->setObjectName("Rectangle1");
    foot->setFrameShape(QFrame::StyledPanel);
    auto* row = new QHBoxLayout(foot);
    row->setContentsMargins(6, 2, 6, 2);
    auto* credit = new QLabel(QString("<a href=\"%1\">%2</a>").arg(kCreditAddress, kCreditText), foot);
    credit->setObjectName("Label1");
    credit->setAccessibleName(kCreditText);
    credit->setFont(bold_font(12));
    credit->setTextInteractionFlags(Qt::TextBrowserInteraction);
    credit->setOpenExternalLinks(true);
    noofphotos_ = new QLabel(count_text(0), foot);
    noofphotos_->setObjectName("noofphotos");
    noofphotos_->setFont(bold_font(12));
    ProgressWheel1_ = new BusyIndicator(foot);
    ProgressWheel1_->setObjectName("ProgressWheel1");
    ProgressWheel1_->setAccessibleName("Busy");
    ProgressWheel1_->hide();
    ProgressBar1_ = new QProgressBar(foot);
    ProgressBar1_->setObjectName("ProgressBar1");
    ProgressBar1_->setAccessibleName("Progress");
    ProgressBar1_->setRange(0, 100);
    ProgressBar1_->setValue(0);
    ProgressBar1_->setTextVisible(false);
    row->addWidget(credit);
    row->addSpacing(16);
    row->addWidget(noofphotos_);
    row->addWidget(ProgressWheel1_);
    row->addSpacing(8);
    row->addWidget(ProgressBar1_, 1);
    return foot;
}

void MainWindow::loadsettings()
{
    engine::OptionValues values = controls_.values();
    settings::loadsettings(store_, values);
    controls_.show(values);
    settings_tab_->follow_fields();
}

void MainWindow::Savesettings()
{
    settings::Savesettings(store_, controls_.values());
}

void MainWindow::admit_paths(const QStringList& paths)
{
    load_commands_->load_arguments(paths);
}

// The update check at start-up, before the preferences are read; it runs off the GUI thread and
// speaks only to offer a newer version.
void MainWindow::check_for_updates_at_start()
{
    check_for_updates_at_startup(this);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    // The options are stored before the question, so they are kept even if the user stays.
    Savesettings();
    QMessageBox question(QMessageBox::Question, windowTitle(), "Did You Want to Exit ?", QMessageBox::NoButton,
                         this);
    QPushButton* yes = question.addButton("Yes", QMessageBox::AcceptRole);
    question.addButton("No", QMessageBox::RejectRole);
    question.setDefaultButton(yes);
    question.exec();
    if (question.clickedButton() != yes) {
        event->ignore();
        return;
    }
    load_commands_->cancel();
    worker_left_running_ = !pump_->shutdown();
    event->accept();
}

void MainWindow::changeEvent(QEvent* event)
{
    // Event_Activate: the toolbar's pictures follow the appearance at each activation.
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) {
        refresh_toolbar();
    }
    QMainWindow::changeEvent(event);
}

void MainWindow::update_wheel()
{
    ProgressWheel1_->setVisible(pump_->isrunning() || load_commands_->loading());
}

void MainWindow::tell(const QString& message)
{
    QMessageBox box(QMessageBox::Information, windowTitle(), message, QMessageBox::Ok, this);
    box.exec();
}

} // namespace qf::shell
