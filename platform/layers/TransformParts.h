#pragma once

#include <QTransform>

#include <cmath>

namespace platform::detail {

/// A 2D affine transform as scale, shear, rotation and translation (applied
/// to points in that order). Animations interpolate the parts, so a rotation
/// turns instead of squashing, and the "transform.scale…" key paths replace
/// one part and rebuild the transform.
struct TransformParts {
    double sx = 1.0;
    double sy = 1.0;
    double shear = 0.0;
    double angle = 0.0;  ///< radians, the x axis turning towards the y axis
    double tx = 0.0;
    double ty = 0.0;

    static TransformParts of(const QTransform& t) {
        TransformParts p;
        p.tx = t.dx();
        p.ty = t.dy();
        const double a = t.m11();
        const double b = t.m12();
        const double c = t.m21();
        const double d = t.m22();
        p.sx = std::hypot(a, b);
        if (p.sx == 0.0) {
            p.sy = d;
            p.shear = d != 0.0 ? c / d : 0.0;
            return p;
        }
        p.angle = std::atan2(b, a);
        const double cs = std::cos(p.angle);
        const double sn = std::sin(p.angle);
        p.sy = -sn * c + cs * d;
        p.shear = p.sy != 0.0 ? (cs * c + sn * d) / p.sy : 0.0;
        return p;
    }

    QTransform toTransform() const {
        const double cs = std::cos(angle);
        const double sn = std::sin(angle);
        const double k = shear * sy;
        return QTransform(sx * cs, sx * sn, k * cs - sy * sn, k * sn + sy * cs, tx, ty);
    }
};

}  // namespace platform::detail
