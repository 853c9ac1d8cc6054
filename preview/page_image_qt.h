// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <mutex>

#include "engine/page.h"

namespace qf::preview {

// The picture as a QImage of its own (RGB888); a null image for an empty picture. Safe on any
// thread.
QImage to_qimage(const engine::PagePicture& picture);

// Hands work from the fetcher's thread to a widget's thread for as long as the widget lives:
// the widget closes the gate in its destructor, after which nothing more is posted to it.
class DeliveryGate {
public:
    explicit DeliveryGate(QObject* receiver) : receiver_(receiver) {}
    // Queues `work` on the receiver's thread; does nothing once closed. Thread-safe.
    void post(std::function<void()> work);
    void close();

private:
    std::mutex mutex_;
    QObject* receiver_;
};

} // namespace qf::preview
