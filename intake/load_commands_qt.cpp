// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/load_commands_qt.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <mutex>

#include "engine/run_log.h"
#include "intake/admission.h"
#include "intake/document_list_view.h"
#include "intake/password_dialog.h"

namespace qf::intake {

struct LoadCommands::Relay {
    std::mutex mutex;
    LoadCommands* target = nullptr;

    void notify()
    {
        const std::lock_guard lock(mutex);
        if (target != nullptr)
            QMetaObject::invokeMethod(target, &LoadCommands::drain_events, Qt::QueuedConnection);
    }
};

namespace {

QString start_place(const QString& thefolder)
{
    return thefolder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) : thefolder;
}

} // namespace

LoadCommands::LoadCommands(DocumentListView* list, QWidget* window)
    : QObject(window), list_(list), window_(window), relay_(std::make_shared<Relay>()),
      loader_(std::make_unique<app::Loader>())
{
    relay_->target = this;
    loader_->set_event_ready([relay = relay_] { relay->notify(); });
    dragtimer_.setSingleShot(true);
    dragtimer_.setInterval(0);
    connect(&dragtimer_, &QTimer::timeout, this, [this] {
        const QStringList dropped = std::exchange(thelist_, {});
        load_paths(dropped);
    });
    connect(list_, &DocumentListView::filesDropped, this, [this](const QStringList& paths) {
        thelist_ = paths; // a later drop before the timer ran replaces the files of an earlier one
        dragtimer_.start();
    });
}

LoadCommands::~LoadCommands()
{
    {
        const std::lock_guard lock(relay_->mutex);
        relay_->target = nullptr;
    }
    loader_.reset();
}

void LoadCommands::open_files_dialog()
{
    QFileDialog dialog(window_, QStringLiteral("Add PDFs and TIFFs to List"));
    dialog.setObjectName(QStringLiteral("loadFilesDialog"));
    dialog.setFileMode(QFileDialog::ExistingFiles);
    // The three extensions in any case, as admission takes them.
    dialog.setNameFilter(QStringLiteral("PDFs and TIFFs (*.[pP][dD][fF] *.[tT][iI][fF][fF] *.[tT][iI][fF])"));
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Add PDFs and TIFFs to List"));
    const QFileInfo place(start_place(thefolder_));
    if (place.isDir()) {
        dialog.setDirectory(place.absoluteFilePath());
    } else {
        dialog.setDirectory(place.absolutePath());
        dialog.selectFile(place.fileName());
    }
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList files = dialog.selectedFiles();
    if (files.isEmpty())
        return;
    thefolder_ = files.front(); // the next dialog starts at that file
    load_files(files);
}

void LoadCommands::open_folder_dialog()
{
    QFileDialog dialog(window_, QStringLiteral("Select PDF and TIFF Folder to Import"));
    dialog.setObjectName(QStringLiteral("loadFoldersDialog"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly, true);
    dialog.setLabelText(QFileDialog::LookIn, QStringLiteral("Select PDF and TIFF Folder to Import for Processing ... "));
    const QFileInfo place(start_place(thefolder_));
    dialog.setDirectory(place.isDir() ? place.absoluteFilePath() : place.absolutePath());
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return;
    const QString folder = dialog.selectedFiles().front();

    QMessageBox question(QMessageBox::Question, QStringLiteral("Load All Sub Folders"),
                         QStringLiteral("Do You Want to Load All Images in All Sub Folders?"), QMessageBox::NoButton,
                         window_);
    question.setObjectName(QStringLiteral("loadSubFoldersQuestion"));
    question.setInformativeText(QStringLiteral(
        "By selecting 'Yes', All Supported PDF and TIFF from the Sub Folders would be included in the list."));
    QPushButton* yes = question.addButton(QStringLiteral("Yes"), QMessageBox::YesRole);
    question.addButton(QStringLiteral("No"), QMessageBox::NoRole);
    question.setDefaultButton(yes);
    question.exec();
    const bool isrecursive = question.clickedButton() == yes;
    thefolder_ = folder;
    load_folder(folder, isrecursive);
}

namespace {

// The paths a drop or the command line may admit: not folders, and with a document extension.
QStringList document_files(const QStringList& paths)
{
    QStringList files;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (!info.isDir() && has_document_extension(info.fileName().toStdString()))
            files.append(info.absoluteFilePath());
    }
    return files;
}

} // namespace

void LoadCommands::load_paths(const QStringList& paths)
{
    const QStringList files = document_files(paths);
    if (!files.isEmpty())
        load_files(files);
}

void LoadCommands::load_arguments(const QStringList& paths)
{
    const QStringList files = document_files(paths);
    if (!files.isEmpty())
        load_files(files, true);
}

void LoadCommands::load_files(const QStringList& files, bool typed)
{
    app::LoadRequest request;
    for (const QString& file : files)
        request.paths.push_back(file.toStdString());
    request.report_missing_paths = typed;
    start(std::move(request));
}

void LoadCommands::load_folder(const QString& folder, bool recursive)
{
    app::LoadRequest request;
    request.paths.push_back(folder.toStdString());
    request.recursive = recursive;
    start(std::move(request));
}

bool LoadCommands::loading() const
{
    return loads_under_way_ > 0;
}

void LoadCommands::cancel()
{
    if (!loading())
        return;
    loader_->send(app::CancelLoad{});
    if (open_question_)
        open_question_->reject();
}

void LoadCommands::start(app::LoadRequest request)
{
    request.ask_for_unreadable_pdf = true;
    if (loads_under_way_++ == 0) {
        if (list_)
            list_->set_loading(true);
        emit loadingChanged(true);
    }
    loader_->send(std::move(request));
}

void LoadCommands::drain_events()
{
    // While a question is open the loader waits for its answer and sends nothing; the answer
    // drains again.
    while (!open_question_ && list_) {
        std::optional<app::LoaderEvent> event = loader_->next_event(std::chrono::milliseconds(0));
        if (!event)
            return;
        if (auto* admitted = std::get_if<app::RowAdmitted>(&*event)) {
            list_->add_row(admitted->row);
        } else if (auto* problem = std::get_if<app::ProblemLine>(&*event)) {
            if (!problem->user_choice)
                emit problemLine(QString::fromStdString(engine::loggable(problem->line)));
        } else if (auto* question = std::get_if<app::PasswordAsked>(&*event)) {
            ask_password(*question);
        } else if (auto* finished = std::get_if<app::LoadFinished>(&*event)) {
            finish_load(finished->summary);
        }
    }
}

void LoadCommands::ask_password(const app::PasswordAsked& question)
{
    // Modal for the window, but the GUI thread goes on in its own event loop: only the
    // loader's thread waits for the answer.
    auto* dialog = new PasswordDialog(QString::fromStdString(question.prompt_text),
                                      QString::fromStdString(question.file_name), window_);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    open_question_ = dialog;
    const std::uint64_t number = question.question;
    connect(dialog, &QDialog::finished, this, [this, dialog, number] {
        loader_->send(app::AnswerPassword{number, dialog->answer()});
        open_question_ = nullptr;
        drain_events();
    });
    dialog->open();
}

void LoadCommands::finish_load(const app::LoadSummary& summary)
{
    if (--loads_under_way_ > 0) {
        emit reportLine(QString::fromStdString(summary.report));
        return;
    }
    loads_under_way_ = 0;
    if (list_)
        list_->set_loading(false);
    emit reportLine(QString::fromStdString(summary.report));
    emit loadingChanged(false);
}

} // namespace qf::intake
