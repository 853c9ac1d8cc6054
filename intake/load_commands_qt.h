// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <memory>

#include "app/loader.h"

class QWidget;

// The three ways documents reach the list (open dialog, folder dialog, drop) and the command
// line's files, over the core's Loader: the files are walked and admitted on the loader's
// thread, rows are appended here as they are admitted, and a password question is put to the
// user with a PasswordDialog while only the loader's thread waits. The list is disabled from
// the start of a load to its report line. The list's filesDropped is taken here, through the
// one-shot timer; a window need not connect it. Owned by `window`, its QObject parent.
namespace qf::intake {

class DocumentListView;
class PasswordDialog;

class LoadCommands : public QObject {
    Q_OBJECT
public:
    LoadCommands(DocumentListView* list, QWidget* window); // window: parent of dialogs
    ~LoadCommands() override;

    void open_files_dialog();  // the open dialog: three extensions, starts at the last place
    void open_folder_dialog(); // folder dialog, then the "Load All Sub Folders" question
    // drops (through the one-shot timer) and `quirefold FILE...`: files with a document
    // extension are admitted in the order given; folders and other files are ignored.
    void load_paths(const QStringList& paths);
    // `quirefold FILE...`: as load_paths, but a file that does not exist is reported on
    // problemLine ("NAME: no such file or folder") instead of listed as a document gone.
    void load_arguments(const QStringList& paths);
    // What the dialogs start once the user has chosen.
    void load_files(const QStringList& files, bool typed = false);
    void load_folder(const QString& folder, bool recursive);
    bool loading() const;
    void cancel(); // quitting: answers an open password question with Cancel and ends the load

    QString last_place() const { return thefolder_; } // where the next dialog starts; empty before the first load

signals:
    void reportLine(const QString& line);  // "N Images added to the list": the window puts it in front of statustext
    void problemLine(const QString& line); // a file not loaded, other than by the user's cancel; loggable text
    void loadingChanged(bool loading);

private:
    struct Relay; // hands the loader's "event ready" to this object while it lives

    void start(app::LoadRequest request);
    void drain_events();
    void ask_password(const app::PasswordAsked& question);
    void finish_load(const app::LoadSummary& summary);

    QPointer<DocumentListView> list_; // the window may take the list down first
    QWidget* window_;
    std::shared_ptr<Relay> relay_;
    std::unique_ptr<app::Loader> loader_;
    int loads_under_way_ = 0;
    QPointer<PasswordDialog> open_question_; // the password question on screen, if any
    QString thefolder_;       // start place of the next dialog: the first file chosen, or the folder
    QStringList thelist_;     // the files of the last drop, held until dragtimer runs
    QTimer dragtimer_;        // single shot: a drop is admitted outside the drop event
};

} // namespace qf::intake
