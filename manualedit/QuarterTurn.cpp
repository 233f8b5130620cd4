#include "manualedit/QuarterTurn.h"

#include "platform/graphics/GraphicsContext.h"

#include <QPainter>

platform::ImagePtr drawQuarterTurn(const platform::Image& image, bool clockwise) {
    const QSizeF size = image.size();
    const double w = size.width();
    const double h = size.height();
    if (!(w > 0.0 && h > 0.0)) {
        return nullptr;
    }
    QPainter* const outer = platform::currentContext();
    platform::beginImageContext(QSizeF(h, w), false, 1.0);
    QPainter* const context = platform::currentContext();
    if (context == nullptr || context == outer) {
        return nullptr;  // no memory for the context
    }
    // The same pixels and scale, shown turned; drawn pixel for pixel this is
    // a plain quarter-turn copy into the context's memory.
    const platform::Image turned(
        image.cgImage(), image.scale(),
        clockwise ? platform::ImageOrientation::Right : platform::ImageOrientation::Left);
    turned.drawInRect(*context, QRectF(0, 0, h, w));
    // Taking the image and closing the context in one step hands the pixels
    // over without copying them.
    return platform::endImageContextWithImage();
}
