#pragma once

#include <QPointF>
#include <QPolygonF>
#include <QTransform>

#include <array>
#include <optional>

/// The document pipeline of the scanner: page outlines, their detection in
/// frames and photos, smoothing over time, perspective correction and output.
namespace scanner {

/// A page outline: top left, top right, bottom right, bottom left, in pixel
/// coordinates of some picture (a pixel covers [x, x + 1)).
using Quad = std::array<QPointF, 4>;

/// The four points in outline order: clockwise on screen, starting with the
/// corner nearest the picture's top left.
Quad ordered(const std::array<QPointF, 4>& points);
Quad fromPolygon(const QPolygonF& polygon);  ///< the first four points, ordered
QPolygonF toPolygon(const Quad& quad);
Quad mapped(const Quad& quad, const QTransform& transform);
/// Each point scaled by (sx, sy) about the origin.
Quad scaled(const Quad& quad, double sx, double sy);

double area(const Quad& quad);
bool isConvex(const Quad& quad);
/// Side lengths averaged over opposite sides: (width, height).
QSizeF meanSides(const Quad& quad);
/// The largest distance between corresponding corners.
double largestCornerDistance(const Quad& a, const Quad& b);
/// Area of the intersection over area of the union, for convex outlines.
double intersectionOverUnion(const Quad& a, const Quad& b);

}  // namespace scanner
