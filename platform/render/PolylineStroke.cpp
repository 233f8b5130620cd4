#include "platform/render/PolylineStroke.h"

#include <QPainter>
#include <QPen>

#include <algorithm>
#include <cmath>
#include <vector>

namespace platform {
namespace {

struct Polyline {
    std::vector<QPointF> points;
    bool closed = false;
};

// The subpaths of a path of straight segments, without repeated points; false
// for a path with curves.
bool polylinesOf(const QPainterPath& path, std::vector<Polyline>& lines) {
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        const QPointF point(element.x, element.y);
        if (element.isMoveTo()) {
            lines.push_back({{point}, false});
        } else if (element.isLineTo() && !lines.empty()) {
            if (lines.back().points.back() != point) {
                lines.back().points.push_back(point);
            }
        } else {
            return false;
        }
    }
    for (Polyline& line : lines) {
        // closeSubpath ends a subpath where it began.
        if (line.points.size() > 2 && line.points.front() == line.points.back()) {
            line.points.pop_back();
            line.closed = true;
        }
    }
    return true;
}

double length(const QPointF& v) {
    return std::hypot(v.x(), v.y());
}

// The patch that fills the outer corner of the join at `vertex` between a
// segment coming from `previous` and one going to `next`. It runs from the
// incoming segment's centre line, out through its outer corner, the miter tip
// (or straight across for a bevel) and the outgoing segment's outer corner,
// back to the outgoing centre line: its edges inside the segments fall on
// pixels they already cover fully.
QPainterPath joinPatch(const QPointF& previous, const QPointF& vertex, const QPointF& next,
                       double halfWidth) {
    const QPointF in = vertex - previous;
    const QPointF out = next - vertex;
    const double inLength = length(in);
    const double outLength = length(out);
    const QPointF d1 = in / inLength;
    const QPointF d2 = out / outLength;
    const double cross = d1.x() * d2.y() - d1.y() * d2.x();
    const double dot = d1.x() * d2.x() + d1.y() * d2.y();
    if (std::abs(cross) < 1e-9) {
        return {};  // straight on, or turned right back: no corner to fill
    }
    const double side = cross > 0 ? -1.0 : 1.0;
    const QPointF n1(-d1.y(), d1.x());
    const QPointF n2(-d2.y(), d2.x());
    const QPointF outerIn = vertex + n1 * (side * halfWidth);
    const QPointF outerOut = vertex + n2 * (side * halfWidth);
    const double reachIn = std::min(halfWidth, inLength / 2);
    const double reachOut = std::min(halfWidth, outLength / 2);

    QPainterPath patch;
    patch.moveTo(vertex - d1 * reachIn);
    patch.lineTo(outerIn);
    // The miter tip lies where both outer edges meet; its distance from the
    // vertex, in half widths, is the miter length in line widths.
    const double denominator = 1.0 + dot;
    const double miterRatio = std::sqrt(2.0 / denominator);
    if (miterRatio <= kDefaultMiterLimit) {
        patch.lineTo(vertex + (n1 + n2) * (side * halfWidth / denominator));
    }
    patch.lineTo(outerOut);
    patch.lineTo(vertex + d2 * reachOut);
    patch.lineTo(vertex);
    patch.closeSubpath();
    return patch;
}

}  // namespace

QPen shapeStrokePen(const QColor& color, double width) {
    QPen pen(color, width);
    pen.setCapStyle(Qt::FlatCap);
    // SVG miters bevel past the limit (plain Qt miters are cut off instead);
    // both compare the miter length in line widths.
    pen.setJoinStyle(Qt::SvgMiterJoin);
    pen.setMiterLimit(kDefaultMiterLimit);
    return pen;
}

bool strokeOpaquePolylines(QPainter& painter, const QPainterPath& path, const QColor& color,
                           double width) {
    if (color.alpha() != 255 || painter.opacity() < 1.0 ||
        painter.compositionMode() != QPainter::CompositionMode_SourceOver || width <= 0) {
        return false;
    }
    std::vector<Polyline> lines;
    if (!polylinesOf(path, lines)) {
        return false;
    }
    const double halfWidth = width / 2;
    QPainterPath segments;
    std::vector<QPainterPath> patches;
    for (const Polyline& line : lines) {
        const std::size_t count = line.points.size();
        if (count < 2) {
            continue;
        }
        const std::size_t segmentCount = line.closed ? count : count - 1;
        for (std::size_t i = 0; i < segmentCount; ++i) {
            segments.moveTo(line.points[i]);
            segments.lineTo(line.points[(i + 1) % count]);
        }
        const std::size_t first = line.closed ? 0 : 1;
        const std::size_t last = line.closed ? count : count - 1;
        for (std::size_t i = first; i < last; ++i) {
            QPainterPath patch = joinPatch(line.points[(i + count - 1) % count], line.points[i],
                                           line.points[(i + 1) % count], halfWidth);
            if (!patch.isEmpty()) {
                patches.push_back(std::move(patch));
            }
        }
    }
    // A path of single segments takes the raster engine's line path; the
    // patches are small, and filled one by one so each stays small.
    painter.strokePath(segments, shapeStrokePen(color, width));
    for (const QPainterPath& patch : patches) {
        painter.fillPath(patch, color);
    }
    return true;
}

}  // namespace platform
