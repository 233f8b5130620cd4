#pragma once

#include <QColor>
#include <QPainterPath>

class QPainter;

namespace platform {

/// The default miter limit of shape layers: a join is bevelled once its
/// miter is longer than this many line widths.
inline constexpr double kDefaultMiterLimit = 10.0;

/// The pen of a shape layer's stroke: butt caps, miter joins bevelled past
/// kDefaultMiterLimit.
QPen shapeStrokePen(const QColor& color, double width);

/// Strokes a path of straight segments with an opaque colour as
/// shapeStrokePen would, much faster than QPainter::strokePath on large
/// outlines: each segment is drawn on its own (a line, which the raster engine
/// fills directly) and each join is filled as a small patch that reaches into
/// both segments, so no seam shows. Draws nothing and returns false when the
/// path has curves, the colour is not opaque or the painter blends in any
/// other way than plain source-over at full opacity; the caller then strokes
/// the path itself.
bool strokeOpaquePolylines(QPainter& painter, const QPainterPath& path, const QColor& color,
                           double width);

}  // namespace platform
