// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QTimer>
#include <QWidget>

namespace qf::shell {

// ProgressWheel1: a small spinning wheel that turns while it is shown, in the palette's text
// colour.
class BusyIndicator : public QWidget {
    Q_OBJECT
public:
    explicit BusyIndicator(QWidget* parent = nullptr);
    QSize sizeHint() const override { return {20, 20}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QTimer turn_;
    int step_ = 0; // of kSpokes
};

} // namespace qf::shell
