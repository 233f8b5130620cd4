#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QTransform>

/// Affine transforms with the platform's conventions, on QTransform.
///
/// A transform maps (x, y) to (a·x + c·y + tx, b·x + d·y + ty), with a = m11,
/// b = m12, c = m21, d = m22, tx = dx, ty = dy. concat(t1, t2) applies t1 and
/// then t2. translate/scale/rotate(t, ...) put the new step before t, so the
/// new step is applied to points first. Angles are in radians; a positive
/// angle turns the x axis towards the y axis. Pure functions, thread-safe.
namespace platform::affine {

QTransform make(double a, double b, double c, double d, double tx, double ty);
QTransform makeTranslation(double tx, double ty);
QTransform makeScale(double sx, double sy);
QTransform makeRotation(double angle);

QTransform concat(const QTransform& t1, const QTransform& t2);
QTransform translate(const QTransform& t, double tx, double ty);
QTransform scale(const QTransform& t, double sx, double sy);
QTransform rotate(const QTransform& t, double angle);
/// The inverse, or t itself when it cannot be inverted.
QTransform invert(const QTransform& t);

bool isIdentity(const QTransform& t);
bool equal(const QTransform& t1, const QTransform& t2);

QPointF apply(const QPointF& p, const QTransform& t);
/// Sizes ignore the translation.
QSizeF apply(const QSizeF& s, const QTransform& t);
/// The smallest rectangle holding the transformed corners.
QRectF apply(const QRectF& r, const QTransform& t);

}  // namespace platform::affine

/// Rectangles with the platform's conventions, on QRectF: a rectangle may
/// have a negative size (its origin is then not its minimum corner) and a
/// point on the far edges is outside it.
namespace platform::rect {

double minX(const QRectF& r);
double midX(const QRectF& r);
double maxX(const QRectF& r);
double minY(const QRectF& r);
double midY(const QRectF& r);
double maxY(const QRectF& r);
double width(const QRectF& r);
double height(const QRectF& r);

/// The same rectangle with a non-negative size.
QRectF standardize(const QRectF& r);
/// True when width or height is zero.
bool isEmpty(const QRectF& r);
/// Half-open containment: minX <= x < maxX and minY <= y < maxY.
bool contains(const QRectF& r, const QPointF& p);
bool equal(const QRectF& r1, const QRectF& r2);
bool sizeEqual(const QSizeF& s1, const QSizeF& s2);
QRectF inset(const QRectF& r, double dx, double dy);
/// The common part, or an empty rectangle at (inf, inf) when there is none.
QRectF intersection(const QRectF& r1, const QRectF& r2);
bool intersects(const QRectF& r1, const QRectF& r2);

}  // namespace platform::rect
