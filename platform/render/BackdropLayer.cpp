#include "platform/render/BackdropLayer.h"

#include <QPainter>

namespace platform {

std::shared_ptr<BackdropLayer> BackdropLayer::create() {
    return std::shared_ptr<BackdropLayer>(new BackdropLayer());
}

void BackdropLayer::setBlurStyle(const BlurStyle& style) {
    _style = style;
    markChanged();
}

void BackdropLayer::applyBackdrop(QPainter& painter, const QRectF& bounds) const {
    QPaintDevice* device = painter.device();
    if (device == nullptr || device->devType() != QInternal::Image) {
        return;
    }
    auto* image = static_cast<QImage*>(device);
    const QRect region =
        painter.combinedTransform().mapRect(bounds).toAlignedRect().intersected(image->rect());
    if (!region.isEmpty()) {
        applyDarkBlur(*image, region, _style);
    }
}

QString BackdropLayer::typeName() const {
    return QStringLiteral("BackdropLayer");
}

}  // namespace platform
