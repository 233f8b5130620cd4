#include "EdgeRefinement.h"

#include <QLineF>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace scanner {
namespace {

constexpr int kSamplesPerSide = 48;

/// Brightness of any picture at continuous coordinates (bilinear between
/// pixel centres, clamped at the borders).
class LumaReader {
public:
    explicit LumaReader(const QImage& picture)
        : _image(picture.format() == QImage::Format_Grayscale8 ||
                         picture.format() == QImage::Format_RGB32 ||
                         picture.format() == QImage::Format_ARGB32 ||
                         picture.format() == QImage::Format_ARGB32_Premultiplied
                     ? picture
                     : picture.convertToFormat(QImage::Format_RGB32)),
          _grey(_image.format() == QImage::Format_Grayscale8) {}

    double at(QPointF point) const {
        const double x = std::clamp(point.x() - 0.5, 0.0, _image.width() - 1.001);
        const double y = std::clamp(point.y() - 0.5, 0.0, _image.height() - 1.001);
        const int x0 = static_cast<int>(x);
        const int y0 = static_cast<int>(y);
        const double fx = x - x0;
        const double fy = y - y0;
        const double top = pixel(x0, y0) * (1 - fx) + pixel(x0 + 1, y0) * fx;
        const double bottom = pixel(x0, y0 + 1) * (1 - fx) + pixel(x0 + 1, y0 + 1) * fx;
        return top * (1 - fy) + bottom * fy;
    }

private:
    int pixel(int x, int y) const {
        const uchar* row = _image.constScanLine(y);
        if (_grey) {
            return row[x];
        }
        const uchar* p = row + 4 * x;
        return (29 * p[0] + 150 * p[1] + 77 * p[2]) >> 8;
    }

    QImage _image;
    bool _grey;
};

struct FittedLine {
    QPointF point;
    QPointF direction;  ///< unit
};

/// Total least squares through points.
FittedLine fit(const std::vector<QPointF>& points) {
    QPointF mean;
    for (const QPointF& p : points) {
        mean += p / double(points.size());
    }
    double sxx = 0;
    double sxy = 0;
    double syy = 0;
    for (const QPointF& p : points) {
        const QPointF d = p - mean;
        sxx += d.x() * d.x();
        sxy += d.x() * d.y();
        syy += d.y() * d.y();
    }
    const double angle = 0.5 * std::atan2(2 * sxy, sxx - syy);
    return {mean, QPointF(std::cos(angle), std::sin(angle))};
}

double distance(const FittedLine& line, const QPointF& p) {
    const QPointF d = p - line.point;
    return std::abs(d.x() * line.direction.y() - d.y() * line.direction.x());
}

std::optional<QPointF> meet(const FittedLine& a, const FittedLine& b) {
    const double det = a.direction.x() * b.direction.y() - a.direction.y() * b.direction.x();
    if (std::abs(det) < 1e-6) {
        return std::nullopt;
    }
    const QPointF d = b.point - a.point;
    const double t = (d.x() * b.direction.y() - d.y() * b.direction.x()) / det;
    return a.point + a.direction * t;
}

/// The side from a to b, fitted to the picture's steps, or nothing.
std::optional<FittedLine> refineSide(const LumaReader& luma, const QPointF& a, const QPointF& b,
                                     double reach) {
    const QPointF along = b - a;
    const double length = std::hypot(along.x(), along.y());
    if (length < 8) {
        return std::nullopt;
    }
    const QPointF tangent = along / length;
    const QPointF normal(-tangent.y(), tangent.x());  // outward for a clockwise outline
    const int span = static_cast<int>(std::ceil(reach));
    const double spread = std::min(3.0, length / kSamplesPerSide / 2);

    struct Step {
        QPointF point;
        double strength;  ///< brightness drop towards the outside (signed)
    };
    std::vector<Step> steps;
    std::vector<double> profile(std::size_t(2 * span + 3));
    for (int i = 0; i < kSamplesPerSide; ++i) {
        const double t = 0.06 + 0.88 * (i + 0.5) / kSamplesPerSide;
        const QPointF centre = a + along * t;
        for (int s = -span - 1; s <= span + 1; ++s) {
            const QPointF q = centre + normal * s;
            profile[std::size_t(s + span + 1)] =
                luma.at(q - tangent * spread) + luma.at(q) + luma.at(q + tangent * spread);
        }
        // The step of either sign; the side's sign is settled by majority below.
        int bestIndex = 0;
        double best = 0;
        for (int s = -span; s <= span; ++s) {
            const std::size_t k = std::size_t(s + span + 1);
            const double change = (profile[k + 1] - profile[k - 1]) / 6;
            // Nearer the coarse side wins a tie.
            const double weighted = change * (1 - 0.25 * double(s * s) / (span * span));
            if (std::abs(weighted) > std::abs(best)) {
                best = weighted;
                bestIndex = s;
            }
        }
        if (bestIndex <= -span || bestIndex >= span) {
            continue;
        }
        const std::size_t k = std::size_t(bestIndex + span + 1);
        const double left = (profile[k] - profile[k - 2]) / 6;
        const double middle = (profile[k + 1] - profile[k - 1]) / 6;
        const double right = (profile[k + 2] - profile[k]) / 6;
        const double curvature = left - 2 * middle + right;
        const double offset = std::abs(curvature) > 1e-9
                                  ? std::clamp(0.5 * (left - right) / curvature, -0.5, 0.5)
                                  : 0.0;
        steps.push_back({centre + normal * (bestIndex + offset), -middle});
    }
    if (steps.size() < kSamplesPerSide / 4) {
        return std::nullopt;
    }
    // Keep the majority direction of contrast and the clearer steps.
    const auto darkerOutside =
        std::count_if(steps.begin(), steps.end(), [](const Step& s) { return s.strength > 0; });
    const bool outsideDarker = 2 * darkerOutside >= std::ptrdiff_t(steps.size());
    std::vector<double> strengths;
    for (const Step& s : steps) {
        if ((s.strength > 0) == outsideDarker) {
            strengths.push_back(std::abs(s.strength));
        }
    }
    std::nth_element(strengths.begin(), strengths.begin() + strengths.size() / 2, strengths.end());
    const double median = strengths[strengths.size() / 2];
    std::vector<QPointF> points;
    for (const Step& s : steps) {
        if ((s.strength > 0) == outsideDarker && std::abs(s.strength) >= 0.4 * median) {
            points.push_back(s.point);
        }
    }
    if (points.size() < kSamplesPerSide / 4) {
        return std::nullopt;
    }
    FittedLine line = fit(points);
    for (const double tolerance : {3.0, 1.5}) {
        std::vector<QPointF> close;
        for (const QPointF& p : points) {
            if (distance(line, p) <= tolerance) {
                close.push_back(p);
            }
        }
        if (close.size() < kSamplesPerSide / 4) {
            break;
        }
        points = std::move(close);
        line = fit(points);
    }
    return line;
}

}  // namespace

Quad refineSides(const QImage& picture, const Quad& coarse, double reach) {
    const LumaReader luma(picture);
    std::array<std::optional<FittedLine>, 4> sides;
    for (int i = 0; i < 4; ++i) {
        sides[i] = refineSide(luma, coarse[i], coarse[(i + 1) % 4], reach);
        if (!sides[i]) {
            const QPointF along = coarse[(i + 1) % 4] - coarse[i];
            const double length = std::hypot(along.x(), along.y());
            sides[i] = FittedLine{coarse[i], length > 0 ? along / length : QPointF(1, 0)};
        }
    }
    Quad refined = coarse;
    for (int i = 0; i < 4; ++i) {
        // Corner i is where the side ending there meets the side starting there.
        const auto corner = meet(*sides[(i + 3) % 4], *sides[i]);
        if (corner && QLineF(*corner, coarse[i]).length() <= 3 * reach) {
            refined[i] = *corner;
        }
    }
    return isConvex(refined) ? refined : coarse;
}

}  // namespace scanner
