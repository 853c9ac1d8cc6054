// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/about_dialog.h"

#include <QDesktopServices>
#include <algorithm>
#include <QDialog>
#include <QLabel>
#include <QMouseEvent>
#include <QPixmap>
#include <QPointer>
#include <QScreen>
#include <QUrl>
#include <QVBoxLayout>

#include "app/startup.h"
#include "engine/version.h"

namespace qf::shell {
namespace {

constexpr const char* kWindowName = "aboutwindow";
constexpr const char* kCredit = "\u00a9 2026 The Quirefold developers";
constexpr const char* kSiteText = "quirefold.org";
constexpr const char* kSiteUrl = "https://quirefold.org";

// The window's 300 by 259 was laid out where a point is one logical pixel; sizing the labels
// in pixels keeps the image and three lines inside it at any screen resolution.
QLabel* centred_label(const QString& text, int size, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignCenter);
    QFont font = label->font();
    font.setBold(true);
    font.setPixelSize(size);
    label->setFont(font);
    return label;
}

// The project's address: a press opens the site; keys do nothing.
class SiteLabel final : public QLabel {
public:
    explicit SiteLabel(QWidget* parent) : QLabel(parent)
    {
        setCursor(Qt::PointingHandCursor);
        setToolTip(kSiteUrl);
    }

protected:
    void mousePressEvent(QMouseEvent* event) override
    {
        event->accept();
        QDesktopServices::openUrl(QUrl(kSiteUrl));
    }
};

class AboutWindow final : public QDialog {
public:
    explicit AboutWindow(QWidget* parent)
        : QDialog(parent, Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint)
    {
        setObjectName(kWindowName);
        setWindowTitle(tr("About Quirefold"));
        setFixedSize(300, 259);

        auto* image = new QLabel(this);
        image->setObjectName("ImageMBS1");
        image->setFixedSize(200, 200);
        image->setAlignment(Qt::AlignCenter);
        image->setScaledContents(false);
        image->setPixmap(QPixmap(QString::fromStdString((app::resources_folder() / "quirefold.png").string())));
        image->setAccessibleName("Quirefold");

        auto* version = centred_label(QStringLiteral("Quirefold v") + engine::kLongVersion, 14, this);
        version->setObjectName("Label1");
        auto* credit = centred_label(QString::fromUtf8(kCredit), 11, this);
        credit->setObjectName("Label2");
        auto* site = new SiteLabel(this);
        site->setObjectName("Label5");
        site->setText(kSiteText);
        site->setAlignment(Qt::AlignCenter);
        site->setFont(credit->font());

        // Image and version at the top; credit and address keep their distance to the bottom.
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 8, 0, 10);
        layout->setSpacing(0);
        layout->addWidget(image, 0, Qt::AlignHCenter);
        layout->addWidget(version);
        layout->addStretch(1);
        layout->addWidget(credit);
        layout->addWidget(site);
    }

    void place_over_parent()
    {
        const QWidget* owner = parentWidget();
        if (owner == nullptr) {
            return;
        }
        QRect frame = rect();
        frame.moveCenter(owner->frameGeometry().center());
        if (const QScreen* screen = owner->screen()) {
            const QRect area = screen->availableGeometry();
            frame.moveLeft(std::clamp(frame.left(), area.left(), std::max(area.left(), area.right() - frame.width())));
            frame.moveTop(std::clamp(frame.top(), area.top(), std::max(area.top(), area.bottom() - frame.height())));
        }
        move(frame.topLeft());
    }

protected:
    // A press anywhere but on the address (the labels and image pass theirs on) hides it.
    void mousePressEvent(QMouseEvent* event) override
    {
        event->accept();
        hide();
    }
};

} // namespace

void show_about(QWidget* window)
{
    static QPointer<QDialog> without_window; // the one made when there is no window
    QDialog* about = window != nullptr ? window->findChild<QDialog*>(kWindowName, Qt::FindDirectChildrenOnly)
                                       : without_window.data();
    if (about == nullptr) {
        auto* made = new AboutWindow(window);
        made->place_over_parent();
        about = made;
        if (window == nullptr) {
            made->setAttribute(Qt::WA_QuitOnClose, false);
            without_window = made;
        }
    }
    about->show();
    about->raise();
    about->activateWindow();
}

} // namespace qf::shell
