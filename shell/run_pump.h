// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <QObject>
#include <QTimer>

#include "engine/batch_run.h"

class QPlainTextEdit;
class QProgressBar;
class QWidget;

namespace qf::shell {

// The window's side of a run: the run session, Timer1 (the 100 ms pump) and the controls it
// feeds: statustext, ProgressBar1 and ProgressWheel1. One lives as long as the window, so the
// log goes on from run to run. Main thread only; the run itself works on its own thread and
// the pump only copies what it reports, so the window never waits for it.
class RunPump : public QObject {
    Q_OBJECT
public:
    RunPump(engine::RunServices services, QPlainTextEdit* statustext, QProgressBar* bar, QWidget* wheel,
            QObject* parent = nullptr);
    ~RunPump() override;

    bool isrunning() const { return session_.isrunning(); }

    // The run's part of preprocesscheck: the bar's maximum becomes the number of documents and
    // its value 0, the wheel shows, the run starts and Timer1 with it. Does nothing while a
    // run is under way.
    void start(const engine::OptionValues& values, const std::vector<engine::ListRow>& rows);
    // Stop: the run ends before its next document. Never refused; outside a run it has no
    // effect, as the next start clears it.
    void stop() { session_.stop(); }
    // Quitting: the page under way is abandoned and its document delivers nothing more; waits
    // a bounded time. False when the worker was still busy and left to end on its own.
    bool shutdown();

    // A line the window writes in front of statustext (a load's report). The log of the run
    // is not changed: the next tick of a run shows the log whole again, as the pump always
    // shows texttoadd.
    void put_in_front(const QString& line);
    // Clear List's part: statustext empty, the bar at 0. The log itself lives on.
    void clear_shown();

signals:
    void runEnded();

private:
    void Timer1_Action();
    void show_change(const engine::StatusChange& change);

    engine::RunSession session_;
    QPlainTextEdit* statustext_;
    QProgressBar* bar_;
    QWidget* wheel_;
    QTimer Timer1_;
    bool shown_differs_ = false; // statustext holds something other than the pump put there
};

} // namespace qf::shell
