// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/password_dialog.h"

#include <QFont>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace qf::intake {

namespace {

// The prompt as rich text: the file name (its first characters) bold, 14 points and red, the
// rest plain. Both parts are escaped, so a name such as "<img src=x>.pdf" reads as itself.
QString styled_prompt(const QString& prompt_text, const QString& file_name)
{
    const qsizetype name_length = prompt_text.startsWith(file_name) ? file_name.size() : 0;
    return QStringLiteral("<span style=\"font-weight:bold; font-size:14pt; color:#ff0000;\">%1</span>%2")
        .arg(prompt_text.left(name_length).toHtmlEscaped(), prompt_text.mid(name_length).toHtmlEscaped());
}

QPushButton* make_button(const QString& caption, QWidget* parent)
{
    auto* button = new QPushButton(caption, parent);
    QFont font = button->font();
    font.setBold(true);
    font.setPointSize(14);
    button->setFont(font);
    return button;
}

} // namespace

PasswordDialog::PasswordDialog(const QString& prompt_text, const QString& file_name, QWidget* parent)
    : QDialog(parent), thetext_(new QLabel(this)), thepassword_(new QLineEdit(this))
{
    setObjectName(QStringLiteral("askpassword"));
    setWindowTitle(QStringLiteral("Please Enter Unlock Password"));
    setModal(true);
    setFixedSize(kWidth, kHeight);
    setWindowFlags((windowFlags() | Qt::CustomizeWindowHint | Qt::WindowTitleHint) &
                   ~(Qt::WindowMinMaxButtonsHint | Qt::WindowContextHelpButtonHint));

    thetext_->setObjectName(QStringLiteral("thetext"));
    thetext_->setTextFormat(Qt::RichText);
    thetext_->setWordWrap(true);
    thetext_->setText(styled_prompt(prompt_text, file_name));
    thetext_->setAccessibleName(prompt_text);
    thetext_->setGeometry(9, 20, 513, 52);

    auto* caption = new QLabel(QStringLiteral("Password"), this);
    caption->setObjectName(QStringLiteral("Label1"));
    QFont bold = caption->font();
    bold.setBold(true);
    caption->setFont(bold);
    caption->setGeometry(9, 84, 100, 20);

    thepassword_->setObjectName(QStringLiteral("thepassword"));
    thepassword_->setEchoMode(QLineEdit::Password);
    thepassword_->setAccessibleName(QStringLiteral("Password"));
    thepassword_->setGeometry(97, 80, 425, 24);
    caption->setBuddy(thepassword_);
    thepassword_->installEventFilter(this);

    QPushButton* cancel = make_button(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("PushButton1"));
    cancel->setGeometry(97, 124, 80, 20);
    cancel->setAutoDefault(false);
    QPushButton* ok = make_button(QStringLiteral("OK"), this);
    ok->setObjectName(QStringLiteral("PushButton2"));
    ok->setGeometry(442, 124, 80, 20);
    ok->setDefault(true);

    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(ok, &QPushButton::clicked, this, [this] {
        tried_ = true;
        accept();
    });
    setFocusProxy(thepassword_);
    thepassword_->setFocus();
}

bool PasswordDialog::eventFilter(QObject* watched, QEvent* event)
{
    // Return in the field gives up, as Cancel does; the typed text is discarded.
    if (watched == thepassword_ && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            reject();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void PasswordDialog::changeEvent(QEvent* event)
{
    // Whenever the question becomes the active window, typing goes into the field.
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        thepassword_->setFocus();
    QDialog::changeEvent(event);
}

PromptAnswer PasswordDialog::answer() const
{
    if (tried_ && result() == QDialog::Accepted)
        return PromptAnswer::try_password(thepassword_->text().toStdString());
    return PromptAnswer::cancel();
}

} // namespace qf::intake
