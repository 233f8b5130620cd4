#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QRectF>

#include <vector>

namespace platform {

/// A Bézier path with the platform's drawing conventions: y grows downwards,
/// angles are in radians from the positive x axis, "clockwise" is as seen on
/// screen, fills use the non-zero winding rule unless told otherwise, and
/// strokes are centred on the path with butt caps and mitred joins.
///
/// A path is a value; one path may be used from any thread, but not from two
/// at once. stroke() and fill() draw into the calling thread's current
/// context (see GraphicsContext.h).
class BezierPath {
public:
    BezierPath();

    /// Starts a new subpath at point.
    void moveToPoint(const QPointF& point);
    /// A straight line from the current point; ignored when there is none.
    void addLineToPoint(const QPointF& point);
    /// An arc of the circle around center from startAngle to endAngle, going
    /// clockwise (angles growing) or counter-clockwise (angles shrinking). A
    /// line joins the current point, if any, to the arc's start. Clockwise
    /// from 0 to 2π is a full circle; counter-clockwise from 0 to 2π is empty.
    void addArcWithCenter(const QPointF& center, double radius, double startAngle, double endAngle,
                          bool clockwise);
    /// Closes the current subpath with a line back to its start, which then
    /// becomes the current point.
    void closePath();
    void removeAllPoints();

    bool isEmpty() const { return _path.isEmpty(); }
    /// The current point; (0, 0) when there is none.
    QPointF currentPoint() const { return _path.currentPosition(); }

    double lineWidth() const { return _lineWidth; }
    void setLineWidth(double width) { _lineWidth = width; }

    bool usesEvenOddFillRule() const { return _path.fillRule() == Qt::OddEvenFill; }
    void setUsesEvenOddFillRule(bool evenOdd);

    /// The path as Qt draws it, with its fill rule.
    const QPainterPath& qPainterPath() const { return _path; }

    /// Strokes the path lineWidth wide with the current context's stroke
    /// colour; does nothing without a context.
    void stroke() const;
    /// Fills the path with the current context's fill colour; does nothing
    /// without a context.
    void fill() const;
    /// Small rectangles that together hold everything stroke() paints but
    /// anti-aliasing: each straight segment in pieces, each corner with
    /// room for its longest miter; a path with curves gives one rectangle
    /// round all of it. Lets a long thin outline be redrawn and composited
    /// where it is instead of over its whole bounding box.
    std::vector<QRectF> strokeCoverage() const;

private:
    void joinTo(const QPointF& point);

    QPainterPath _path;
    double _lineWidth = 1.0;
    bool _hasCurrentPoint = false;
};

}  // namespace platform
