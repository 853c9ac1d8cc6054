// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/run_pump.h"

#include <QPlainTextEdit>
#include <QProgressBar>
#include <QTextBlock>
#include <QTextCursor>

namespace qf::shell {
namespace {

constexpr int kPumpMilliseconds = 100;
constexpr const char* kAllDone = "All Done";
// How long quitting waits for the page under way to give way.
constexpr std::chrono::seconds kQuitWait{5};

} // namespace

RunPump::RunPump(engine::RunServices services, QPlainTextEdit* statustext, QProgressBar* bar, QWidget* wheel,
                 QObject* parent)
    : QObject(parent), session_(std::move(services)), statustext_(statustext), bar_(bar), wheel_(wheel)
{
    Timer1_.setInterval(kPumpMilliseconds);
    connect(&Timer1_, &QTimer::timeout, this, &RunPump::Timer1_Action);
}

RunPump::~RunPump()
{
    Timer1_.stop();
}

void RunPump::start(const engine::OptionValues& values, const std::vector<engine::ListRow>& rows)
{
    if (session_.isrunning()) {
        return;
    }
    bar_->setMaximum(static_cast<int>(rows.size()));
    bar_->setValue(0);
    wheel_->show();
    session_.start(values, rows);
    Timer1_.start();
}

bool RunPump::shutdown()
{
    Timer1_.stop();
    return session_.shutdown(kQuitWait);
}

void RunPump::put_in_front(const QString& line)
{
    QTextCursor cursor(statustext_->document());
    cursor.movePosition(QTextCursor::Start);
    cursor.insertText(line + '\n');
    shown_differs_ = true;
}

void RunPump::clear_shown()
{
    statustext_->clear();
    bar_->setValue(0);
    shown_differs_ = true;
}

void RunPump::Timer1_Action()
{
    const engine::PumpTick tick = session_.Timer1_Action();
    if (!tick.running) {
        Timer1_.stop();
        return;
    }
    if (shown_differs_) {
        // What the window put there goes: the pump shows the log as it stands.
        std::string whole = session_.texttoadd();
        if (tick.ended) {
            whole.insert(0, std::string(kAllDone) + "\n");
        }
        statustext_->setPlainText(QString::fromStdString(whole));
        shown_differs_ = false;
    } else if (tick.status_changed) {
        show_change(tick.status);
    }
    bar_->setValue(tick.progress);
    if (!tick.ended) {
        return;
    }
    wheel_->hide();
    bar_->setValue(bar_->maximum());
    Timer1_.stop();
    emit runEnded();
}

// Puts what is new in front of the shown text, so a long log costs what is new, not the whole.
void RunPump::show_change(const engine::StatusChange& change)
{
    if (change.whole) {
        statustext_->setPlainText(QString::fromStdString(change.text));
        return;
    }
    QTextCursor cursor(statustext_->document());
    cursor.beginEditBlock();
    cursor.movePosition(QTextCursor::Start);
    if (change.drop_all_done && statustext_->document()->firstBlock().text() == kAllDone) {
        cursor.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
    }
    cursor.insertText(QString::fromStdString(change.text));
    cursor.endEditBlock();
}

} // namespace qf::shell
