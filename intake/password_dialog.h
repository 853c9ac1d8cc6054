// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDialog>

#include "intake/password_prompt.h"

class QLabel;
class QLineEdit;

// askpassword: the modal question for the open password of one PDF. The file name leads the
// text in bold red (shown as text, whatever characters it holds); the field is masked and
// starts empty at every showing. OK tries the typed text, possibly empty; Cancel, Return in
// the field, Escape and the window's close button all give up on the file. LoadCommands shows
// one for each question the loader's thread puts, and sends its answer back.
namespace qf::intake {

class PasswordDialog : public QDialog {
    Q_OBJECT
public:
    PasswordDialog(const QString& prompt_text, const QString& file_name, QWidget* parent);

    PromptAnswer answer() const; // after the dialog closed: try_password (OK) or cancel

    static constexpr int kWidth = 542;
    static constexpr int kHeight = 164;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QLabel* thetext_;
    QLineEdit* thepassword_;
    bool tried_ = false; // OK was pressed
};

} // namespace qf::intake
