// SPDX-License-Identifier: GPL-3.0-or-later
#include "preview/page_image_qt.h"

#include <QMetaObject>
#include <cstring>

namespace qf::preview {

QImage to_qimage(const engine::PagePicture& picture)
{
    if (picture.empty() || !picture.has_pixels()) {
        return {};
    }
    const engine::PagePicture rgb =
        picture.format == engine::PixelFormat::Rgb8 ? picture : engine::to_rgb(picture);
    QImage image(rgb.width, rgb.height, QImage::Format_RGB888);
    if (image.isNull()) {
        return {};
    }
    const std::size_t stride = rgb.stride();
    for (int y = 0; y < rgb.height; ++y) {
        std::memcpy(image.scanLine(y), rgb.pixels.data() + static_cast<std::size_t>(y) * stride, stride);
    }
    return image;
}

void DeliveryGate::post(std::function<void()> work)
{
    const std::lock_guard lock(mutex_);
    if (receiver_ != nullptr) {
        QMetaObject::invokeMethod(receiver_, std::move(work), Qt::QueuedConnection);
    }
}

void DeliveryGate::close()
{
    const std::lock_guard lock(mutex_);
    receiver_ = nullptr;
}

} // namespace qf::preview
