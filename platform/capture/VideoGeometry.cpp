#include "platform/capture/VideoGeometry.h"

#include "platform/capture/CaptureTypes.h"

#include <QTransform>

#include <algorithm>

namespace platform::video_geometry {

int rotationFromUpright(int orientation) {
    switch (orientation) {
        case video_orientation::kPortraitUpsideDown:
            return 180;
        case video_orientation::kLandscapeRight:
            return 270;
        case video_orientation::kLandscapeLeft:
            return 90;
        default:
            return 0;
    }
}

namespace {

QImage rotated(const QImage& image, int degrees) {
    const int turn = ((degrees % 360) + 360) % 360;
    if (turn == 0) {
        return image;
    }
    // Multiples of 90 degrees take Qt's exact pixel-rotation path.
    return image.transformed(QTransform().rotate(turn));
}

}  // namespace

QImage orientUpright(const QImage& upright, int orientation, bool mirrored) {
    QImage frame = rotated(upright, rotationFromUpright(orientation));
    return mirrored ? frame.mirrored(true, false) : frame;
}

QImage reorient(const QImage& frame, int fromOrientation, bool fromMirrored, int toOrientation,
                bool toMirrored) {
    const int turn = rotationFromUpright(toOrientation) - rotationFromUpright(fromOrientation);
    if (turn % 360 == 0 && fromMirrored == toMirrored) {
        return frame;
    }
    QImage image = fromMirrored ? frame.mirrored(true, false) : frame;
    image = rotated(image, turn);
    return toMirrored ? image.mirrored(true, false) : image;
}

QRectF videoRect(const QRectF& bounds, const QSizeF& videoSize, const QString& gravity) {
    if (gravity == video_gravity::kResize || videoSize.isEmpty()) {
        return bounds;
    }
    const double sx = bounds.width() / videoSize.width();
    const double sy = bounds.height() / videoSize.height();
    const double scale =
        gravity == video_gravity::kResizeAspectFill ? std::max(sx, sy) : std::min(sx, sy);
    const QSizeF shown = videoSize * scale;
    return {bounds.center().x() - shown.width() / 2, bounds.center().y() - shown.height() / 2,
            shown.width(), shown.height()};
}

QPointF shownToDevice(const QPointF& shown, int orientation, bool mirrored) {
    const double x = mirrored ? 1.0 - shown.x() : shown.x();
    const double y = shown.y();
    switch (orientation) {
        case video_orientation::kPortrait:
            return {y, 1.0 - x};
        case video_orientation::kPortraitUpsideDown:
            return {1.0 - y, x};
        case video_orientation::kLandscapeLeft:
            return {1.0 - x, 1.0 - y};
        default:
            return {x, y};
    }
}

QPointF deviceToShown(const QPointF& device, int orientation, bool mirrored) {
    const double u = device.x();
    const double v = device.y();
    QPointF shown;
    switch (orientation) {
        case video_orientation::kPortrait:
            shown = {1.0 - v, u};
            break;
        case video_orientation::kPortraitUpsideDown:
            shown = {v, 1.0 - u};
            break;
        case video_orientation::kLandscapeLeft:
            shown = {1.0 - u, 1.0 - v};
            break;
        default:
            shown = {u, v};
            break;
    }
    if (mirrored) {
        shown.setX(1.0 - shown.x());
    }
    return shown;
}

}  // namespace platform::video_geometry
