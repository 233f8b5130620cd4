#include "platform/graphics/AffineTransform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace platform::affine {

QTransform make(double a, double b, double c, double d, double tx, double ty) {
    return QTransform(a, b, c, d, tx, ty);
}

QTransform makeTranslation(double tx, double ty) {
    return make(1, 0, 0, 1, tx, ty);
}

QTransform makeScale(double sx, double sy) {
    return make(sx, 0, 0, sy, 0, 0);
}

QTransform makeRotation(double angle) {
    // Computed directly rather than through QTransform::rotate, which works in
    // degrees and rounds quarter turns to exact values.
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    return make(c, s, -s, c, 0, 0);
}

QTransform concat(const QTransform& t1, const QTransform& t2) {
    return make(
        t1.m11() * t2.m11() + t1.m12() * t2.m21(), t1.m11() * t2.m12() + t1.m12() * t2.m22(),
        t1.m21() * t2.m11() + t1.m22() * t2.m21(), t1.m21() * t2.m12() + t1.m22() * t2.m22(),
        t1.dx() * t2.m11() + t1.dy() * t2.m21() + t2.dx(),
        t1.dx() * t2.m12() + t1.dy() * t2.m22() + t2.dy());
}

QTransform translate(const QTransform& t, double tx, double ty) {
    return concat(makeTranslation(tx, ty), t);
}

QTransform scale(const QTransform& t, double sx, double sy) {
    return concat(makeScale(sx, sy), t);
}

QTransform rotate(const QTransform& t, double angle) {
    return concat(makeRotation(angle), t);
}

QTransform invert(const QTransform& t) {
    const double det = t.m11() * t.m22() - t.m12() * t.m21();
    if (det == 0.0 || !std::isfinite(det)) {
        return t;
    }
    const double a = t.m22() / det;
    const double b = -t.m12() / det;
    const double c = -t.m21() / det;
    const double d = t.m11() / det;
    return make(a, b, c, d, -(t.dx() * a + t.dy() * c), -(t.dx() * b + t.dy() * d));
}

bool isIdentity(const QTransform& t) {
    return equal(t, QTransform());
}

bool equal(const QTransform& t1, const QTransform& t2) {
    return t1.m11() == t2.m11() && t1.m12() == t2.m12() && t1.m21() == t2.m21() &&
           t1.m22() == t2.m22() && t1.dx() == t2.dx() && t1.dy() == t2.dy();
}

QPointF apply(const QPointF& p, const QTransform& t) {
    return {t.m11() * p.x() + t.m21() * p.y() + t.dx(), t.m12() * p.x() + t.m22() * p.y() + t.dy()};
}

QSizeF apply(const QSizeF& s, const QTransform& t) {
    return {t.m11() * s.width() + t.m21() * s.height(), t.m12() * s.width() + t.m22() * s.height()};
}

QRectF apply(const QRectF& r, const QTransform& t) {
    const QRectF s = rect::standardize(r);
    const QPointF corners[] = {apply(s.topLeft(), t), apply(s.topRight(), t),
                               apply(s.bottomLeft(), t), apply(s.bottomRight(), t)};
    double x0 = corners[0].x(), x1 = x0, y0 = corners[0].y(), y1 = y0;
    for (const QPointF& p : corners) {
        x0 = std::min(x0, p.x());
        x1 = std::max(x1, p.x());
        y0 = std::min(y0, p.y());
        y1 = std::max(y1, p.y());
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

}  // namespace platform::affine

namespace platform::rect {

double minX(const QRectF& r) {
    return std::min(r.x(), r.x() + r.width());
}
double maxX(const QRectF& r) {
    return std::max(r.x(), r.x() + r.width());
}
double midX(const QRectF& r) {
    return r.x() + r.width() / 2.0;
}
double minY(const QRectF& r) {
    return std::min(r.y(), r.y() + r.height());
}
double maxY(const QRectF& r) {
    return std::max(r.y(), r.y() + r.height());
}
double midY(const QRectF& r) {
    return r.y() + r.height() / 2.0;
}
double width(const QRectF& r) {
    return std::abs(r.width());
}
double height(const QRectF& r) {
    return std::abs(r.height());
}

QRectF standardize(const QRectF& r) {
    return {minX(r), minY(r), width(r), height(r)};
}

bool isEmpty(const QRectF& r) {
    return r.width() == 0.0 || r.height() == 0.0;
}

bool contains(const QRectF& r, const QPointF& p) {
    if (isEmpty(r)) {
        return false;
    }
    return p.x() >= minX(r) && p.x() < maxX(r) && p.y() >= minY(r) && p.y() < maxY(r);
}

bool equal(const QRectF& r1, const QRectF& r2) {
    const QRectF a = standardize(r1);
    const QRectF b = standardize(r2);
    return a.x() == b.x() && a.y() == b.y() && a.width() == b.width() && a.height() == b.height();
}

bool sizeEqual(const QSizeF& s1, const QSizeF& s2) {
    return s1.width() == s2.width() && s1.height() == s2.height();
}

QRectF inset(const QRectF& r, double dx, double dy) {
    const QRectF s = standardize(r);
    const double w = s.width() - 2 * dx;
    const double h = s.height() - 2 * dy;
    if (w < 0 || h < 0) {
        const double inf = std::numeric_limits<double>::infinity();
        return {inf, inf, 0, 0};
    }
    return {s.x() + dx, s.y() + dy, w, h};
}

QRectF intersection(const QRectF& r1, const QRectF& r2) {
    const double x0 = std::max(minX(r1), minX(r2));
    const double x1 = std::min(maxX(r1), maxX(r2));
    const double y0 = std::max(minY(r1), minY(r2));
    const double y1 = std::min(maxY(r1), maxY(r2));
    if (x1 < x0 || y1 < y0) {
        const double inf = std::numeric_limits<double>::infinity();
        return {inf, inf, 0, 0};
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

bool intersects(const QRectF& r1, const QRectF& r2) {
    const QRectF i = intersection(r1, r2);
    return std::isfinite(i.x()) && !isEmpty(i);
}

}  // namespace platform::rect
