// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFrame>

class QListView;

// The popup of page numbers under a From or To cell: "1" up to the page count, ascending. The
// numbers are made as they are painted, so a popup for ten thousand pages opens at once.
// A click or Return chooses; Escape or a click outside closes it without a choice.
namespace qf::intake {

class PagePopup : public QFrame {
    Q_OBJECT
public:
    // `current_page` is shown highlighted and in view when it is one of the choices.
    PagePopup(int page_count, int current_page, QWidget* parent);
    int page_count() const;
    QListView* choices() const { return choices_; } // the list of numbers; accessible name "Pages"
    void choose(int page);                           // as a click on that number

signals:
    void pageChosen(int page); // 1-based; the popup closes itself afterwards

private:
    QListView* choices_;
    bool chosen_ = false; // a click may also activate: one choice per popup
};

} // namespace qf::intake
