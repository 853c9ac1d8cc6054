// SPDX-License-Identifier: GPL-3.0-or-later
// The update check in a real window: its answers over the window, and a close calling it off.
#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QUrl>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>

#include "shell/update_check_dialog.h"
#include "tests/support/loopback_http.h"

namespace qf::shell {
namespace {

using namespace std::chrono_literals;
using test::HttpReply;
using test::LoopbackHttpServer;

// Takes the URLs the program hands to the desktop, for as long as it lives.
class OpenedUrls : public QObject {
    Q_OBJECT
public:
    OpenedUrls()
    {
        for (const char* scheme : {"http", "https", "file"}) {
            QDesktopServices::setUrlHandler(scheme, this, "open");
        }
    }
    ~OpenedUrls() override
    {
        for (const char* scheme : {"http", "https", "file"}) {
            QDesktopServices::unsetUrlHandler(scheme);
        }
    }
    QList<QUrl> urls;

public slots:
    void open(const QUrl& url) { urls.append(url); }
};

bool check_under_way(const QWidget& window)
{
    return window.findChild<QObject*>("qf_update_check") != nullptr;
}

QMessageBox* answer_box(const QWidget& window)
{
    const auto boxes = window.findChildren<QMessageBox*>();
    return boxes.isEmpty() ? nullptr : boxes.first();
}

// Each server answer, asked at start (announce false) and from the menu: what is shown, as
// plain text over the window, and what a Yes or No opens.
TEST(UpdateCheckWindow, ShowsEachAnswerOverTheWindow)
{
    const std::string newer = "<b>" + app::local_version() + ".1</b>"; // sorts after the local version
    const std::string offer = "There is an Updated Version " + newer + " available. Do You Want to Download It Now ?";
    const struct {
        const char* what;
        std::string body;
        bool announce;
        std::string shown; // empty: nothing is shown
        QMessageBox::StandardButton press;
        bool download_opened;
    } cases[] = {
        {"offer at start, accepted", newer, false, offer, QMessageBox::Yes, true},
        {"offer from the menu, declined", newer, true, offer, QMessageBox::No, false},
        {"up to date from the menu", app::local_version(), true, "You are currently up to date", QMessageBox::Ok, false},
        {"up to date at start", app::local_version(), false, "", QMessageBox::Ok, false},
    };
    for (const auto& c : cases) {
        // The server answers late: the call must return before it does.
        LoopbackHttpServer server({200, c.body, "", 300ms});
        OpenedUrls opened;
        QWidget window;
        window.show();
        const auto start = std::chrono::steady_clock::now();
        check_for_updates(&window, c.announce, {server.url("/ver/quirefold.txt"), "https://example.org/get"});
        EXPECT_LT(std::chrono::steady_clock::now() - start, 200ms) << c.what;
        ASSERT_TRUE(QTest::qWaitFor([&] { return !check_under_way(window); }, 10000)) << c.what;
        QTest::qWait(20);
        QMessageBox* box = answer_box(window);
        if (c.shown.empty()) {
            EXPECT_EQ(box, nullptr) << c.what;
            continue;
        }
        ASSERT_NE(box, nullptr) << c.what;
        EXPECT_TRUE(box->isVisible()) << c.what;
        EXPECT_EQ(box->text().toStdString(), c.shown) << c.what;
        EXPECT_EQ(box->textFormat(), Qt::PlainText) << c.what;
        ASSERT_NE(box->button(c.press), nullptr) << c.what;
        box->button(c.press)->click();
        QTest::qWait(20);
        EXPECT_EQ(opened.urls, c.download_opened ? QList<QUrl>{QUrl("https://example.org/get")} : QList<QUrl>{})
            << c.what;
    }
}

// Closing the window during a check calls the request off at once and shows nothing.
TEST(UpdateCheckWindow, ClosingTheWindowCallsTheCheckOff)
{
    LoopbackHttpServer server({200, "99", "", 20s});
    auto window = std::make_unique<QWidget>();
    check_for_updates(window.get(), true, {server.url("/ver/quirefold.txt"), ""});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !server.requested_paths().empty(); }, 5000));
    const auto start = std::chrono::steady_clock::now();
    window.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    QTest::qWait(50);
    const auto windows = QApplication::topLevelWidgets();
    EXPECT_TRUE(std::none_of(windows.begin(), windows.end(),
                             [](QWidget* shown) { return qobject_cast<QMessageBox*>(shown) != nullptr; }));
}

} // namespace
} // namespace qf::shell

#include "about_and_update_test.moc"
