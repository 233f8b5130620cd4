#include "Quad.h"

#include <QLineF>

#include <algorithm>
#include <cmath>
#include <vector>

namespace scanner {
namespace {

double cross(const QPointF& o, const QPointF& a, const QPointF& b) {
    return (a.x() - o.x()) * (b.y() - o.y()) - (a.y() - o.y()) * (b.x() - o.x());
}

double polygonArea(const std::vector<QPointF>& points) {
    double sum = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const QPointF& a = points[i];
        const QPointF& b = points[(i + 1) % points.size()];
        sum += a.x() * b.y() - b.x() * a.y();
    }
    return std::abs(sum) / 2;
}

/// Sutherland-Hodgman: subject clipped by a convex, clockwise (on screen) clip.
std::vector<QPointF> clipped(std::vector<QPointF> subject, const Quad& clip) {
    for (int edge = 0; edge < 4 && !subject.empty(); ++edge) {
        const QPointF& a = clip[edge];
        const QPointF& b = clip[(edge + 1) % 4];
        // Clockwise on screen (y down) is counter-clockwise in maths terms:
        // inside is where the cross product is positive.
        const auto inside = [&](const QPointF& p) { return cross(a, b, p) >= 0; };
        const auto crossing = [&](const QPointF& p, const QPointF& q) {
            const double dp = cross(a, b, p);
            const double dq = cross(a, b, q);
            return p + (q - p) * (dp / (dp - dq));
        };
        std::vector<QPointF> out;
        for (std::size_t i = 0; i < subject.size(); ++i) {
            const QPointF& current = subject[i];
            const QPointF& previous = subject[(i + subject.size() - 1) % subject.size()];
            if (inside(current)) {
                if (!inside(previous)) {
                    out.push_back(crossing(previous, current));
                }
                out.push_back(current);
            } else if (inside(previous)) {
                out.push_back(crossing(previous, current));
            }
        }
        subject = std::move(out);
    }
    return subject;
}

}  // namespace

Quad ordered(const std::array<QPointF, 4>& points) {
    QPointF centre;
    for (const QPointF& p : points) {
        centre += p / 4;
    }
    Quad quad = points;
    // Clockwise on screen is increasing angle with y pointing down.
    std::sort(quad.begin(), quad.end(), [&](const QPointF& a, const QPointF& b) {
        return std::atan2(a.y() - centre.y(), a.x() - centre.x()) <
               std::atan2(b.y() - centre.y(), b.x() - centre.x());
    });
    const auto first = std::min_element(quad.begin(), quad.end(), [](const auto& a, const auto& b) {
        return a.x() + a.y() < b.x() + b.y();
    });
    std::rotate(quad.begin(), first, quad.end());
    return quad;
}

Quad fromPolygon(const QPolygonF& polygon) {
    std::array<QPointF, 4> points{};
    for (int i = 0; i < 4 && i < polygon.size(); ++i) {
        points[i] = polygon[i];
    }
    return ordered(points);
}

QPolygonF toPolygon(const Quad& quad) {
    return QPolygonF({quad[0], quad[1], quad[2], quad[3]});
}

Quad mapped(const Quad& quad, const QTransform& transform) {
    Quad out;
    for (int i = 0; i < 4; ++i) {
        out[i] = transform.map(quad[i]);
    }
    return out;
}

Quad scaled(const Quad& quad, double sx, double sy) {
    Quad out;
    for (int i = 0; i < 4; ++i) {
        out[i] = QPointF(quad[i].x() * sx, quad[i].y() * sy);
    }
    return out;
}

double area(const Quad& quad) {
    return polygonArea({quad.begin(), quad.end()});
}

bool isConvex(const Quad& quad) {
    int positive = 0;
    int negative = 0;
    for (int i = 0; i < 4; ++i) {
        const double turn = cross(quad[i], quad[(i + 1) % 4], quad[(i + 2) % 4]);
        positive += turn > 0;
        negative += turn < 0;
    }
    return positive == 4 || negative == 4;
}

QSizeF meanSides(const Quad& quad) {
    const double width =
        (QLineF(quad[0], quad[1]).length() + QLineF(quad[3], quad[2]).length()) / 2;
    const double height =
        (QLineF(quad[0], quad[3]).length() + QLineF(quad[1], quad[2]).length()) / 2;
    return {width, height};
}

double largestCornerDistance(const Quad& a, const Quad& b) {
    double largest = 0;
    for (int i = 0; i < 4; ++i) {
        largest = std::max(largest, QLineF(a[i], b[i]).length());
    }
    return largest;
}

double intersectionOverUnion(const Quad& a, const Quad& b) {
    const Quad clip = ordered(b);
    if (!isConvex(clip) || !isConvex(a)) {
        return 0;
    }
    const double common = polygonArea(clipped({a.begin(), a.end()}, clip));
    const double united = area(a) + area(b) - common;
    return united > 0 ? common / united : 0;
}

}  // namespace scanner
