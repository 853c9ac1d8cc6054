// SPDX-License-Identifier: GPL-3.0-or-later
// quirefold: the window. `quirefold FILE...` admits the files as a drop on the list would.
#include <cstdio>
#include <cstdlib>

#include <QApplication>
#include <QFileInfo>

#include "app/interrupt.h"
#include "app/startup.h"
#include "engine/error.h"
#include "settings/preference_store_qt.h"
#include "shell/main_window.h"

namespace {

constexpr const char* kDesktopId = "org.quirefold.Quirefold";

qf::app::Startup start_up()
{
    try {
        return qf::app::start_up();
    } catch (const qf::engine::Error& error) {
        // A run then says where its files could not be made; the window still opens.
        std::fprintf(stderr, "quirefold: %s\n", error.what());
        return {{}, qf::app::resources_folder()};
    }
}

QStringList document_arguments(const QStringList& arguments)
{
    QStringList paths;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        paths << QFileInfo(arguments[i]).absoluteFilePath();
    }
    return paths;
}

} // namespace

int main(int argc, char** argv)
{
    const qf::app::Startup startup = start_up(); // the work folder, before any thread starts
    QApplication application(argc, argv);
    QApplication::setApplicationName("Quirefold");
    QApplication::setDesktopFileName(kDesktopId);

    qf::settings::QtPreferenceStore preferences;
    auto* window = new qf::shell::MainWindow(startup.resources, preferences);
    window->loadsettings();
    window->show();
    const QStringList paths = document_arguments(QApplication::arguments());
    if (!paths.isEmpty()) {
        window->admit_paths(paths);
    }
    const int status = QApplication::exec();
    const bool worker_left = window->worker_left_running();
    delete window;
    if (worker_left) {
        // The page under way did not give way: what it was writing goes, and the program ends
        // without waiting for it.
        qf::app::remove_unfinished_files();
        std::fflush(nullptr);
        std::_Exit(status);
    }
    return status;
}
