#include "platform/render/OpaqueImageCopy.h"

#include "platform/graphics/PixelMath.h"

#include <QPaintDevice>
#include <QPainter>

#include <cmath>
#include <cstdint>

namespace platform {
namespace {

bool whole(double value) {
    return std::abs(value - std::round(value)) < 1e-9;
}

// The rectangle, in device pixels, that a rectangle of painter coordinates
// maps to under a whole-pixel move; false when it does not fall on whole
// pixels.
bool deviceRect(const QRectF& rect, const QTransform& move, QRect& out) {
    const QRectF mapped = rect.translated(move.dx(), move.dy());
    // Far-off places are left to the raster engine rather than turned into
    // integers that cannot hold them.
    constexpr double kFar = 1 << 24;
    if (!whole(mapped.left()) || !whole(mapped.top()) || !whole(mapped.right()) ||
        !whole(mapped.bottom()) || std::abs(mapped.left()) > kFar ||
        std::abs(mapped.top()) > kFar || std::abs(mapped.right()) > kFar ||
        std::abs(mapped.bottom()) > kFar) {
        return false;
    }
    out = QRect(QPoint(static_cast<int>(std::round(mapped.left())),
                       static_cast<int>(std::round(mapped.top()))),
                QSize(static_cast<int>(std::round(mapped.width())),
                      static_cast<int>(std::round(mapped.height()))));
    return true;
}

}  // namespace

bool copyGreyImage(QPainter& painter, const QImage& image, const QPointF& topLeft,
                   bool clipIsRectangle) {
    if (image.format() != QImage::Format_Grayscale8 || painter.opacity() < 1.0) {
        return false;
    }
    const QPainter::CompositionMode mode = painter.compositionMode();
    if (mode != QPainter::CompositionMode_SourceOver && mode != QPainter::CompositionMode_Source) {
        return false;
    }
    QPaintDevice* device = painter.device();
    if (!device || device->devType() != QInternal::Image) {
        return false;
    }
    auto* target = static_cast<QImage*>(device);
    const QImage::Format format = target->format();
    if ((format != QImage::Format_ARGB32_Premultiplied && format != QImage::Format_ARGB32 &&
         format != QImage::Format_RGB32) ||
        !target->isDetached()) {
        return false;
    }
    const QTransform move = painter.deviceTransform();
    if (move.type() > QTransform::TxTranslate) {
        return false;
    }
    QRect drawn;
    if (!deviceRect(QRectF(topLeft, QSizeF(image.size())), move, drawn)) {
        return false;
    }
    QRect visible = drawn.intersected(target->rect());
    if (painter.hasClipping()) {
        QRect clip;
        if (!clipIsRectangle || !deviceRect(painter.clipBoundingRect(), move, clip)) {
            return false;
        }
        visible = visible.intersected(clip);
    }
    const qsizetype targetStride = target->bytesPerLine();
    auto* targetBits = target->bits();
    for (int y = visible.top(); y <= visible.bottom(); ++y) {
        const std::uint8_t* from =
            image.constScanLine(y - drawn.top()) + (visible.left() - drawn.left());
        auto* to = reinterpret_cast<std::uint32_t*>(targetBits + y * targetStride) + visible.left();
        pixel::greyRowToRgb32(from, to, visible.width());
    }
    return true;
}

}  // namespace platform
