// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/update_check_dialog.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>
#include <QWidget>
#include <thread>

namespace qf::shell {
namespace {

constexpr const char* kTaskName = "qf_update_check";

void show_answer(QWidget* window, const app::UpdateCheck& check, bool announce, const std::string& download_url)
{
    if (!app::update_message_shown(check, announce)) {
        return;
    }
    auto* box = new QMessageBox(window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText); // the server's text is never markup
    box->setText(QString::fromStdString(app::update_message(check)));
    if (check.outcome != app::UpdateOutcome::NewerVersion) {
        box->setIcon(QMessageBox::Information);
        box->setStandardButtons(QMessageBox::Ok);
        box->open();
        return;
    }
    box->setIcon(QMessageBox::Question);
    box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box->setDefaultButton(QMessageBox::Yes);
    box->setEscapeButton(QMessageBox::No);
    const QUrl download(QString::fromStdString(download_url));
    QObject::connect(box, &QMessageBox::finished, box, [box, download] {
        if (box->clickedButton() == box->button(QMessageBox::Yes) && download.isValid() && !download.isEmpty()) {
            QDesktopServices::openUrl(download);
        }
    });
    box->open();
}

// One check under way: its thread asks the server and hands the answer back to the GUI thread.
// Destroyed with its window, it calls the request off and waits for the thread, at most about
// a second.
class UpdateCheckTask final : public QObject {
public:
    UpdateCheckTask(QObject* owner, bool announce, app::UpdateEndpoint endpoint)
        : QObject(owner), announce(announce), download_url_(std::move(endpoint.download_url))
    {
        setObjectName(kTaskName);
        thread_ = std::thread([this, url = std::move(endpoint.version_url)] {
            app::UpdateCheck check;
            try {
                check = app::check_for_updates(url, app::local_version(), app::kUpdateWait, &cancel_);
            } catch (...) {
                check = {}; // no answer
            }
            QMetaObject::invokeMethod(this, [this, check] { finish(check); }, Qt::QueuedConnection);
        });
    }

    ~UpdateCheckTask() override
    {
        cancel_ = true;
        thread_.join();
    }

    bool announce; // read and written on the GUI thread only

private:
    void finish(const app::UpdateCheck& check)
    {
        setObjectName({}); // answered: a new request starts a new check
        show_answer(qobject_cast<QWidget*>(parent()), check, announce, download_url_);
        deleteLater();
    }

    std::string download_url_;
    std::atomic<bool> cancel_{false};
    std::thread thread_;
};

} // namespace

void check_for_updates(QWidget* window, bool announce, const app::UpdateEndpoint& endpoint)
{
    QObject* owner = window != nullptr ? static_cast<QObject*>(window) : QCoreApplication::instance();
    for (QObject* child : owner->findChildren<QObject*>(kTaskName, Qt::FindDirectChildrenOnly)) {
        if (auto* task = dynamic_cast<UpdateCheckTask*>(child)) {
            task->announce = task->announce || announce;
            return;
        }
    }
    new UpdateCheckTask(owner, announce, endpoint);
}

void check_for_updates_at_startup(QWidget* window)
{
    check_for_updates(window, false, app::configured_update_endpoint());
}

void check_for_updates_from_menu(QWidget* window)
{
    check_for_updates(window, true, app::configured_update_endpoint());
}

} // namespace qf::shell
