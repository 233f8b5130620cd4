#include "PreviewMapping.h"

#include "platform/environment/Environment.h"

#include <algorithm>

namespace scanner {

QTransform aspectFill(const QSize& frameSize, const QSizeF& viewSize) {
    if (frameSize.isEmpty() || viewSize.isEmpty()) {
        return {};
    }
    const double scale =
        std::max(viewSize.width() / frameSize.width(), viewSize.height() / frameSize.height());
    const double dx = (viewSize.width() - frameSize.width() * scale) / 2;
    const double dy = (viewSize.height() - frameSize.height() * scale) / 2;
    return QTransform(scale, 0, 0, scale, dx, dy);
}

std::vector<QPointF> keyPointsForPreview(const Quad& outline, const QSize& frameSize,
                                         const QSizeF& viewSize, const QTransform& screenTransform,
                                         int statusBarOrientation, double screenHeight) {
    bool invertible = false;
    const QTransform undo = screenTransform.inverted(&invertible);
    if (!invertible) {
        return {};
    }
    using namespace platform::interface_orientation;
    const QTransform fill = aspectFill(frameSize, viewSize);
    std::vector<QPointF> points;
    for (const QPointF& corner : outline) {
        const QPointF wanted = fill.map(corner);
        // What the layer's orientation step must receive to draw at wanted.
        QPointF beforeOrientation = wanted;
        if (statusBarOrientation == kLandscapeRight) {
            beforeOrientation = QPointF(wanted.y(), wanted.x());
        } else if (statusBarOrientation == kLandscapeLeft) {
            beforeOrientation = QPointF(screenHeight - wanted.y(), wanted.x());
        }
        points.push_back(undo.map(beforeOrientation));
    }
    return points;
}

}  // namespace scanner
