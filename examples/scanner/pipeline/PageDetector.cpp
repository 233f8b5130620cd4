#include "PageDetector.h"

#include "EdgeRefinement.h"

#include <opencv2/imgproc.hpp>

#include <QLineF>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

namespace scanner {
namespace {

// Samples per side when a proposal is scored.
constexpr int kSideSamples = 28;

struct Working {
    cv::Mat grey;
    double factor = 1;  ///< picture pixels per working pixel
};

/// A colour picture shrunk to grey in one pass: each working pixel is the
/// mean brightness of a regular grid of samples in its block (every pixel
/// of small blocks, every second or third of large ones), so the full-size
/// colour picture is read only sparsely and never converted whole.
cv::Mat shrinkColour(const QImage& source, int factor, const cv::Size& small) {
    cv::Mat grey(small, CV_8UC1);
    const int step = std::max(1, factor / 3);
    const int perSide = (factor + step - 1) / step;
    const int samples = perSide * perSide;
    std::vector<int> sums(std::size_t(small.width));
    for (int v = 0; v < small.height; ++v) {
        std::fill(sums.begin(), sums.end(), 0);
        for (int row = 0; row < factor; row += step) {
            const uchar* line = source.constScanLine(v * factor + row);
            for (int u = 0; u < small.width; ++u) {
                const uchar* block = line + 4 * u * factor;
                int sum = 0;
                for (int col = 0; col < factor; col += step) {
                    const uchar* p = block + 4 * col;
                    sum += 29 * p[0] + 150 * p[1] + 77 * p[2];
                }
                sums[std::size_t(u)] += sum;
            }
        }
        auto* out = grey.ptr<uchar>(v);
        for (int u = 0; u < small.width; ++u) {
            out[u] = static_cast<uchar>((sums[std::size_t(u)] / samples) >> 8);
        }
    }
    return grey;
}

/// The picture shrunk by a whole factor to about workingSize on its long
/// side, as grey. Each working pixel stands for one block of the picture.
Working shrink(const QImage& picture, int workingSize) {
    const bool grey = picture.format() == QImage::Format_Grayscale8;
    const bool bgra = picture.format() == QImage::Format_RGB32 ||
                      picture.format() == QImage::Format_ARGB32 ||
                      picture.format() == QImage::Format_ARGB32_Premultiplied;
    const QImage source = grey || bgra ? picture : picture.convertToFormat(QImage::Format_RGB32);
    const int longSide = std::max(source.width(), source.height());
    const int factor = std::max(1, (longSide + workingSize / 2) / workingSize);
    const cv::Size small(source.width() / factor, source.height() / factor);
    Working working;
    working.factor = factor;
    if (!grey) {
        working.grey = shrinkColour(source, factor, small);
        return working;
    }
    // OpenCV only reads through this header.
    const cv::Mat full(source.height(), source.width(), CV_8UC1,
                       const_cast<uchar*>(source.constBits()),
                       static_cast<std::size_t>(source.bytesPerLine()));
    const cv::Mat whole = full(cv::Rect(0, 0, small.width * factor, small.height * factor));
    cv::resize(whole, working.grey, small, 0, 0, cv::INTER_AREA);
    return working;
}

struct Edges {
    cv::Mat gx, gy;             ///< CV_16S Sobel derivatives
    std::vector<cv::Mat> maps;  ///< CV_8U Canny edges, strict thresholds first
    double low = 0;             ///< the weakest Canny threshold used, in |gx| + |gy|
};

Edges findEdges(const cv::Mat& grey) {
    // Closing (max, then min) wipes out print thinner than the kernel, so a
    // page full of text reads as one bright area with clean borders.
    cv::Mat closed;
    cv::morphologyEx(grey, closed, cv::MORPH_CLOSE,
                     cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5)));
    cv::Mat smooth;
    cv::GaussianBlur(closed, smooth, cv::Size(3, 3), 0);
    Edges edges;
    cv::Sobel(smooth, edges.gx, CV_16S, 1, 0, 3);
    cv::Sobel(smooth, edges.gy, CV_16S, 0, 1, 3);

    std::array<int, 1024> histogram{};
    const int total = smooth.rows * smooth.cols;
    for (int y = 0; y < smooth.rows; ++y) {
        const auto* dx = edges.gx.ptr<short>(y);
        const auto* dy = edges.gy.ptr<short>(y);
        for (int x = 0; x < smooth.cols; ++x) {
            ++histogram[std::min(1023, std::abs(dx[x]) + std::abs(dy[x]))];
        }
    }
    const auto percentile = [&](int share) {
        int value = 1023;
        for (int seen = 0; value > 0; --value) {
            seen += histogram[value];
            if (seen >= total / 100 * (100 - share)) {
                break;
            }
        }
        return value;
    };
    // Two sets of thresholds: one follows the picture's strongest edges (a
    // page on dark wood), the other its noise floor, for a pale page on a
    // pale desk whose borders are faint next to the print on the page.
    const double strongHigh = std::clamp(0.45 * percentile(99), 14.0, 220.0);
    const double faintHigh = std::clamp(8.0 * percentile(50), 20.0, 220.0);
    edges.low = 0.4 * std::min(strongHigh, faintHigh);
    cv::Mat map;
    cv::Canny(edges.gx, edges.gy, map, 0.4 * strongHigh, strongHigh, false);
    edges.maps.push_back(map);
    if (faintHigh < 0.7 * strongHigh) {
        cv::Canny(edges.gx, edges.gy, map, 0.4 * faintHigh, faintHigh, false);
        edges.maps.push_back(map);
    }
    return edges;
}

/// How much of the side from a to b lies on an edge, and which way its
/// contrast goes (+1: brighter outside, -1: brighter inside, 0: none).
struct SideScore {
    double support = 0;
    int sign = 0;
};

SideScore scoreSide(const Edges& edges, const QPointF& a, const QPointF& b) {
    const QPointF along = b - a;
    const double length = std::hypot(along.x(), along.y());
    if (length < 4) {
        return {};
    }
    // Outward normal for a clockwise (on screen) outline.
    const QPointF normal(-along.y() / length, along.x() / length);
    const int width = edges.gx.cols;
    const int height = edges.gx.rows;
    int brighterOutside = 0;
    int brighterInside = 0;
    for (int i = 0; i < kSideSamples; ++i) {
        const double t = 0.08 + 0.84 * (i + 0.5) / kSideSamples;
        const QPointF point = a + along * t;
        double best = 0;
        for (int offset = -1; offset <= 1; ++offset) {
            const QPointF q = point + normal * offset;
            const int x = static_cast<int>(std::floor(q.x()));
            const int y = static_cast<int>(std::floor(q.y()));
            if (x < 1 || y < 1 || x >= width - 1 || y >= height - 1) {
                continue;
            }
            const double value =
                normal.x() * edges.gx.at<short>(y, x) + normal.y() * edges.gy.at<short>(y, x);
            if (std::abs(value) > std::abs(best)) {
                best = value;
            }
        }
        // Sobel on an oblique side spreads over both axes; the projection
        // keeps about 3/4 of |gx| + |gy|.
        if (std::abs(best) >= 0.75 * edges.low) {
            ++(best > 0 ? brighterOutside : brighterInside);
        }
    }
    const int count = std::max(brighterOutside, brighterInside);
    return {double(count) / kSideSamples,
            count == 0 ? 0 : (brighterOutside > brighterInside ? 1 : -1)};
}

double interiorAngle(const QPointF& previous, const QPointF& corner, const QPointF& next) {
    return QLineF(corner, previous).angleTo(QLineF(corner, next));
}

struct Scored {
    Quad quad;
    double support = 0;
    double coverage = 0;
    double score = 0;
};

/// A proposal's score, or nothing when it cannot be a page: not convex, too
/// small, too skewed, a side off the edges, or contrast that changes
/// direction around it (a page is brighter, or darker, than all its
/// surroundings).
std::optional<Scored> score(const Edges& edges, const Quad& quad, double minimumCoverage,
                            const std::optional<Quad>& prior) {
    if (!isConvex(quad)) {
        return std::nullopt;
    }
    const double coverage = area(quad) / (double(edges.gx.cols) * edges.gx.rows);
    if (coverage < minimumCoverage || coverage > 1.02) {
        return std::nullopt;
    }
    for (int i = 0; i < 4; ++i) {
        const double angle =
            std::fmod(interiorAngle(quad[(i + 3) % 4], quad[i], quad[(i + 1) % 4]) + 360.0, 360.0);
        const double inner = angle > 180 ? 360 - angle : angle;
        if (inner < 35 || inner > 145) {
            return std::nullopt;
        }
    }
    double total = 0;
    int sign = 0;
    for (int i = 0; i < 4; ++i) {
        const SideScore side = scoreSide(edges, quad[i], quad[(i + 1) % 4]);
        if (side.support < 0.5 || (sign != 0 && side.sign != sign)) {
            return std::nullopt;
        }
        sign = side.sign;
        total += side.support;
    }
    Scored scored{quad, total / 4, coverage, 0};
    if (scored.support < 0.62) {
        return std::nullopt;
    }
    scored.score = scored.support * std::sqrt(coverage);
    if (prior) {
        scored.score *= 0.4 + intersectionOverUnion(quad, *prior);
    }
    return scored;
}

Quad quadOf(const std::vector<cv::Point>& points) {
    std::array<QPointF, 4> corners{};
    for (int i = 0; i < 4; ++i) {
        // Contour points are pixel indices; outlines run through pixel centres.
        corners[i] = QPointF(points[i].x + 0.5, points[i].y + 0.5);
    }
    return ordered(corners);
}

/// Four-cornered outlines from edge contours: the contour simplified as it
/// is, and its convex hull simplified until four corners remain (which also
/// closes a contour broken along one side).
void contourProposals(const cv::Mat& map, double minimumArea, std::vector<Quad>& proposals) {
    cv::Mat linked;
    cv::dilate(map, linked, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)));
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(linked, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    std::vector<cv::Point> simple;
    std::vector<cv::Point> hull;
    for (const auto& contour : contours) {
        if (contour.size() < 4 || cv::boundingRect(contour).area() < minimumArea) {
            continue;
        }
        const double perimeter = cv::arcLength(contour, true);
        cv::approxPolyDP(contour, simple, 0.02 * perimeter, true);
        if (simple.size() == 4) {
            proposals.push_back(quadOf(simple));
        }
        cv::convexHull(contour, hull);
        if (cv::contourArea(hull) < minimumArea) {
            continue;
        }
        double epsilon = 0.01 * cv::arcLength(hull, true);
        for (int attempt = 0; attempt < 8; ++attempt, epsilon *= 1.4) {
            cv::approxPolyDP(hull, simple, epsilon, true);
            if (simple.size() <= 4) {
                break;
            }
        }
        if (simple.size() == 4) {
            proposals.push_back(quadOf(simple));
        }
    }
}

struct Line {
    double rho;
    double theta;
};

std::optional<QPointF> meet(const Line& a, const Line& b) {
    const double det =
        std::cos(a.theta) * std::sin(b.theta) - std::sin(a.theta) * std::cos(b.theta);
    if (std::abs(det) < 1e-6) {
        return std::nullopt;
    }
    const double x = (a.rho * std::sin(b.theta) - b.rho * std::sin(a.theta)) / det;
    const double y = (b.rho * std::cos(a.theta) - a.rho * std::cos(b.theta)) / det;
    return QPointF(x + 0.5, y + 0.5);
}

double angleBetween(double a, double b) {
    const double d = std::fmod(std::abs(a - b), std::numbers::pi);
    return std::min(d, std::numbers::pi - d);
}

/// Outlines from straight lines, for when no contour closes: the strongest
/// lines in two roughly perpendicular families, paired up.
void lineProposals(const cv::Mat& map, std::vector<Quad>& proposals) {
    const int shortSide = std::min(map.cols, map.rows);
    std::vector<cv::Vec2f> found;
    cv::HoughLines(map, found, 1, std::numbers::pi / 180, std::max(12, shortSide / 6));
    std::vector<Line> lines;
    for (const cv::Vec2f& candidate : found) {
        const Line line{candidate[0], candidate[1]};
        const bool repeat = std::any_of(lines.begin(), lines.end(), [&](const Line& kept) {
            return angleBetween(kept.theta, line.theta) < 0.09 &&
                   std::abs(std::abs(kept.rho) - std::abs(line.rho)) < 0.03 * shortSide;
        });
        if (!repeat) {
            lines.push_back(line);
        }
        if (lines.size() >= 16) {
            break;
        }
    }
    if (lines.size() < 4) {
        return;
    }
    std::vector<Line> first;
    std::vector<Line> second;
    for (const Line& line : lines) {
        const double fromFirst = angleBetween(line.theta, lines[0].theta);
        if (fromFirst < 0.45 && first.size() < 6) {
            first.push_back(line);
        } else if (std::abs(fromFirst - std::numbers::pi / 2) < 0.45 && second.size() < 6) {
            second.push_back(line);
        }
    }
    for (std::size_t a = 0; a < first.size(); ++a) {
        for (std::size_t b = a + 1; b < first.size(); ++b) {
            for (std::size_t c = 0; c < second.size(); ++c) {
                for (std::size_t d = c + 1; d < second.size(); ++d) {
                    const auto p = meet(first[a], second[c]);
                    const auto q = meet(first[a], second[d]);
                    const auto r = meet(first[b], second[d]);
                    const auto s = meet(first[b], second[c]);
                    if (p && q && r && s) {
                        proposals.push_back(ordered({*p, *q, *r, *s}));
                    }
                }
            }
        }
    }
}

}  // namespace

PageDetector::PageDetector(DetectorSettings settings) : _settings(settings) {}

std::optional<Detection> PageDetector::detect(const QImage& picture,
                                              const std::optional<Quad>& prior) const {
    if (picture.width() < 16 || picture.height() < 16) {
        return std::nullopt;
    }
    const Working working = shrink(picture, std::max(64, _settings.workingSize));
    const Edges edges = findEdges(working.grey);
    const double minimumArea =
        _settings.minimumCoverage * double(working.grey.cols) * working.grey.rows;
    const std::optional<Quad> workingPrior =
        prior ? std::optional(scaled(*prior, 1 / working.factor, 1 / working.factor))
              : std::nullopt;

    std::vector<Quad> proposals;
    for (const cv::Mat& map : edges.maps) {
        contourProposals(map, minimumArea, proposals);
    }
    const auto best = [&]() {
        std::optional<Scored> winner;
        for (const Quad& quad : proposals) {
            const auto scored = score(edges, quad, _settings.minimumCoverage, workingPrior);
            if (scored && (!winner || scored->score > winner->score)) {
                winner = scored;
            }
        }
        return winner;
    };
    std::optional<Scored> winner = best();
    if (!winner || winner->support < 0.85) {
        // Contours broke somewhere (blur, a shadow across a side): straight
        // lines may still outline the page.
        lineProposals(edges.maps.back(), proposals);
        winner = best();
    }
    if (!winner) {
        return std::nullopt;
    }
    const Quad coarse = scaled(winner->quad, working.factor, working.factor);
    return Detection{refineSides(picture, coarse, 2 * working.factor + 3), winner->support,
                     winner->coverage};
}

}  // namespace scanner
