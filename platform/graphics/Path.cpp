#include "platform/graphics/Path.h"

#include "platform/graphics/GraphicsContext.h"
#include "platform/render/PolylineStroke.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform {
namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

QPointF onCircle(const QPointF& center, double radius, double angle) {
    return center + radius * QPointF(std::cos(angle), std::sin(angle));
}

}  // namespace

BezierPath::BezierPath() {
    _path.setFillRule(Qt::WindingFill);
}

void BezierPath::moveToPoint(const QPointF& point) {
    _path.moveTo(point);
    _hasCurrentPoint = true;
}

void BezierPath::addLineToPoint(const QPointF& point) {
    if (_hasCurrentPoint) {
        _path.lineTo(point);
    }
}

void BezierPath::joinTo(const QPointF& point) {
    if (!_hasCurrentPoint) {
        moveToPoint(point);
    } else if (_path.currentPosition() != point) {
        _path.lineTo(point);
    }
}

void BezierPath::addArcWithCenter(const QPointF& center, double radius, double startAngle,
                                  double endAngle, bool clockwise) {
    // Bring the end to the requested side of the start, less than a full
    // turn beyond it unless it already was further.
    if (clockwise && endAngle < startAngle) {
        endAngle += kTwoPi * std::ceil((startAngle - endAngle) / kTwoPi);
    } else if (!clockwise && endAngle > startAngle) {
        endAngle -= kTwoPi * std::ceil((endAngle - startAngle) / kTwoPi);
    }
    const double sweep = endAngle - startAngle;
    joinTo(onCircle(center, radius, startAngle));
    if (sweep == 0.0) {
        return;
    }
    // Cubic segments of at most a quarter turn each.
    const int segments =
        std::max(1, static_cast<int>(std::ceil(std::abs(sweep) / (std::numbers::pi / 2) - 1e-9)));
    const double step = sweep / segments;
    const double handle = 4.0 / 3.0 * std::tan(step / 4.0) * radius;
    double angle = startAngle;
    for (int i = 0; i < segments; ++i) {
        const double next = i + 1 == segments ? endAngle : angle + step;
        const QPointF from = onCircle(center, radius, angle);
        const QPointF to = onCircle(center, radius, next);
        const QPointF fromTangent(-std::sin(angle), std::cos(angle));
        const QPointF toTangent(-std::sin(next), std::cos(next));
        _path.cubicTo(from + handle * fromTangent, to - handle * toTangent, to);
        angle = next;
    }
}

void BezierPath::closePath() {
    if (_hasCurrentPoint) {
        _path.closeSubpath();
    }
}

void BezierPath::removeAllPoints() {
    const Qt::FillRule rule = _path.fillRule();
    _path = QPainterPath();
    _path.setFillRule(rule);
    _hasCurrentPoint = false;
}

void BezierPath::setUsesEvenOddFillRule(bool evenOdd) {
    _path.setFillRule(evenOdd ? Qt::OddEvenFill : Qt::WindingFill);
}

void BezierPath::stroke() const {
    QPainter* painter = currentContext();
    if (painter == nullptr || _path.isEmpty()) {
        return;
    }
    QPen pen = painter->pen();
    if (pen.style() == Qt::NoPen) {
        pen = QPen(Qt::black);
    }
    pen.setWidthF(_lineWidth);
    pen.setCosmetic(false);
    pen.setCapStyle(Qt::FlatCap);
    pen.setJoinStyle(Qt::MiterJoin);
    // The platform limits the miter's length to 10 line widths; Qt measures
    // from the joint, half of that.
    pen.setMiterLimit(5.0);
    // Straight outlines in an opaque colour (a detected document's, redrawn
    // every frame) go segment by segment, far cheaper than Qt's outline of a
    // large path, with the same joins.
    if (strokeOpaquePolylines(*painter, _path, pen.color(), _lineWidth)) {
        return;
    }
    painter->strokePath(_path, pen);
}

void BezierPath::fill() const {
    QPainter* painter = currentContext();
    if (painter == nullptr || _path.isEmpty()) {
        return;
    }
    const QBrush brush =
        painter->brush().style() == Qt::NoBrush ? QBrush(Qt::black) : painter->brush();
    painter->fillPath(_path, brush);
}

std::vector<QRectF> BezierPath::strokeCoverage() const {
    // stroke() limits miters to 5 line widths from the joint.
    const double halfWidth = _lineWidth / 2;
    const double miterReach = 5.0 * _lineWidth;
    std::vector<QRectF> rects;
    if (_path.isEmpty()) {
        return rects;
    }
    for (int i = 0; i < _path.elementCount(); ++i) {
        if (_path.elementAt(i).isCurveTo()) {
            return {_path.controlPointRect().adjusted(-miterReach, -miterReach, miterReach,
                                                      miterReach)};
        }
    }
    // Pieces at most this far across their short side keep a slanted
    // segment's boxes close to its line.
    constexpr double kPieceSpan = 16.0;
    QPointF previous;
    for (int i = 0; i < _path.elementCount(); ++i) {
        const QPainterPath::Element element = _path.elementAt(i);
        const QPointF point(element.x, element.y);
        rects.emplace_back(point.x() - miterReach, point.y() - miterReach, 2 * miterReach,
                           2 * miterReach);
        if (element.isLineTo()) {
            const QPointF delta = point - previous;
            const double across = std::min(std::abs(delta.x()), std::abs(delta.y()));
            const int pieces = std::max(1, static_cast<int>(std::ceil(across / kPieceSpan)));
            for (int piece = 0; piece < pieces; ++piece) {
                const QPointF from = previous + delta * (static_cast<double>(piece) / pieces);
                const QPointF to = previous + delta * (static_cast<double>(piece + 1) / pieces);
                rects.push_back(QRectF(from, to).normalized().adjusted(-halfWidth, -halfWidth,
                                                                       halfWidth, halfWidth));
            }
        }
        previous = point;
    }
    return rects;
}

}  // namespace platform
