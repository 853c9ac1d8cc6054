// SPDX-License-Identifier: GPL-3.0-or-later
// Benchmark of the window's answer during a run: a 10 ms timer in the window while a document of
// PAGES pages converts to JPEG, and how late it ever came. Usage:
//   window_latency_qt WORK_FOLDER [PAGES]    (run offscreen or under xvfb-run)
// Prints the pages, the run's time and the timer's worst lateness in milliseconds.
#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QPlainTextEdit>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include "app/startup.h"
#include "settings/preference_store.h"
#include "shell/main_window.h"
#include "tests/support/pdf_fixtures.h"

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: window_latency_qt WORK_FOLDER [PAGES]\n");
        return 2;
    }
    const std::filesystem::path work = std::filesystem::absolute(argv[1]);
    const int pages = argc > 2 ? std::max(1, std::atoi(argv[2])) : 500;
    std::filesystem::create_directories(work / "out");
    const std::filesystem::path document = work / "pages.pdf";
    qf::test::write_blank_pdf(document, pages);

    const qf::app::Startup startup = qf::app::start_up();
    QApplication application(argc, argv);
    qf::settings::MemoryPreferenceStore store;
    store.set_string("imageformat", "2"); // JPEG
    store.set_string("savein", (work / "out").string() + "/");
    qf::shell::MainWindow window(startup.resources, store);
    window.loadsettings();
    window.show();
    window.admit_paths({QString::fromStdString(document.string())});

    auto* log = window.findChild<QPlainTextEdit*>("statustext");
    QAction* start = nullptr;
    for (QAction* action : window.findChildren<QAction*>()) {
        if (action->objectName() == "start") {
            start = action;
        }
    }
    if (log == nullptr || start == nullptr) {
        std::fprintf(stderr, "window_latency_qt: the window has no log or no Start\n");
        return 2;
    }

    QElapsedTimer clock;
    QElapsedTimer since_tick;
    qint64 worst_ms = 0;
    bool started = false;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        if (!started) {
            if (log->toPlainText().contains("Image added to the list")) {
                started = true;
                clock.start();
                start->trigger();
            }
        } else {
            worst_ms = std::max(worst_ms, since_tick.elapsed() - 10);
            if (log->toPlainText().startsWith("All Done")) {
                std::printf("pages %d, run %.1f s, worst lateness of a 10 ms timer %lld ms\n", pages,
                            clock.elapsed() / 1000.0, static_cast<long long>(worst_ms));
                QApplication::exit(0);
            }
        }
        since_tick.start();
    });
    since_tick.start();
    ticker.start(10);
    return QApplication::exec();
}
