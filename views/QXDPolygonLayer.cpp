#include "QXDPolygonLayer.h"

#include "QXDCameraCore.h"
#include "platform/environment/Environment.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/graphics/GraphicsContext.h"
#include "platform/graphics/Path.h"
#include "platform/layers/Transaction.h"

#include <QPainter>

std::shared_ptr<QXDPolygonLayer> QXDPolygonLayer::create() {
    struct Made final : QXDPolygonLayer {};
    return std::make_shared<Made>();
}

QString QXDPolygonLayer::typeName() const {
    return QStringLiteral("QXDPolygonLayer");
}

QTransform QXDPolygonLayer::t() const {
    std::lock_guard lock(_tMutex);
    return _t;
}

void QXDPolygonLayer::setT(const QTransform& t) {
    std::lock_guard lock(_tMutex);
    _t = t;
}

void QXDPolygonLayer::drawPolygonAtKeyPoints(KeyPoints keyPoints, const QTransform& transform,
                                             const QColor& lineColor) {
    setKeypoints(std::move(keyPoints));
    setT(transform);
    setLineColor(lineColor);
    updateContext();
}

void QXDPolygonLayer::updateContext() {
    // Its own transaction, so that a redraw requested inside an animated one
    // still does not cross-fade.
    platform::Transaction::begin();
    platform::Transaction::setDisableActions(true);
    setNeedsDisplay();
    platform::Transaction::commit();
}

void QXDPolygonLayer::clean() {
    _keypoints.reset();
    updateContext();
}

void QXDPolygonLayer::drawInContext(QPainter& context) {
    platform::pushContext(context);
    QPainter* current = platform::currentContext();

    // Writing transparent pixels clears them; the raster engine fills that
    // as a plain rectangle, where clearing goes through its blending. The
    // layer's own backing store is already clear when its display starts.
    if (!startsTransparent(context)) {
        current->save();
        current->setCompositionMode(QPainter::CompositionMode_Source);
        current->fillRect(bounds(), Qt::transparent);
        current->restore();
    }

    if (_keypoints && !_keypoints->empty()) {
        platform::setStrokeColor(_lineColor);
        outline([](const QPointF& point) {
            QXD_LOG(
                QString::asprintf("Draw polygon line at point x: %f y: %f", point.x(), point.y()));
        }).stroke();
    }

    platform::popContext();
}

platform::BezierPath QXDPolygonLayer::outline(
    const std::function<void(const QPointF&)>& eachPoint) const {
    platform::BezierPath path;
    path.setLineWidth(2.0);
    if (!_keypoints || _keypoints->empty()) {
        return path;
    }
    const QTransform transform = t();
    // The size is read on every pass: the loop follows the list as it stands.
    for (std::size_t i = 0; i < _keypoints->size(); ++i) {
        const QPointF mapped = platform::affine::apply((*_keypoints)[i], transform);
        const QPointF point = adaptPointToOrientation(mapped);
        if (i == 0) {
            path.moveToPoint(point);
        } else {
            path.addLineToPoint(point);
        }
        if (eachPoint) {
            eachPoint(point);
        }
    }
    path.closePath();
    return path;
}

std::optional<std::vector<QRectF>> QXDPolygonLayer::drawingArea() const {
    return outline({}).strokeCoverage();
}

QPointF QXDPolygonLayer::adaptPointToOrientation(const QPointF& point) const {
    // Only landscape left is flipped against the screen height; the caller's
    // transform already accounts for the rest of the mapping.
    using namespace platform::interface_orientation;
    const int statusBar = platform::Application::shared().statusBarOrientation();
    if (statusBar == kPortrait) {
        return point;
    }
    if (statusBar == kLandscapeRight) {
        return {point.y(), point.x()};
    }
    if (statusBar == kLandscapeLeft) {
        const double screenHeight = platform::Screen::main().bounds().height();
        return {point.y(), screenHeight - point.x()};
    }
    // Upside down and unknown keep the point as it is.
    return point;
}
