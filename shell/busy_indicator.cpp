// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/busy_indicator.h"

#include <QPainter>

namespace qf::shell {
namespace {

constexpr int kSpokes = 12;
constexpr int kStepMilliseconds = 80;

} // namespace

BusyIndicator::BusyIndicator(QWidget* parent) : QWidget(parent)
{
    setFixedSize(sizeHint());
    turn_.setInterval(kStepMilliseconds);
    connect(&turn_, &QTimer::timeout, this, [this] {
        step_ = (step_ + 1) % kSpokes;
        update();
    });
}

void BusyIndicator::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(width() / 2.0, height() / 2.0);
    const double radius = std::min(width(), height()) / 2.0;
    QColor colour = palette().color(QPalette::WindowText);
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        // The spoke at the wheel's step is the darkest; the ones behind it fade out.
        const int age = (step_ - spoke + kSpokes) % kSpokes;
        colour.setAlphaF(1.0 - age / static_cast<double>(kSpokes));
        painter.setPen(QPen(colour, radius / 4.5, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, -radius * 0.45), QPointF(0, -radius * 0.85));
        painter.rotate(360.0 / kSpokes);
    }
}

void BusyIndicator::showEvent(QShowEvent* event)
{
    turn_.start();
    QWidget::showEvent(event);
}

void BusyIndicator::hideEvent(QHideEvent* event)
{
    turn_.stop();
    QWidget::hideEvent(event);
}

} // namespace qf::shell
