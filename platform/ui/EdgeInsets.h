#pragma once

#include <QRectF>

namespace platform {

/// Distances inwards from the edges of a rectangle, like the platform's edge
/// insets; negative values grow the rectangle.
struct EdgeInsets {
    double top = 0.0;
    double left = 0.0;
    double bottom = 0.0;
    double right = 0.0;

    bool operator==(const EdgeInsets&) const = default;

    /// rect with its edges moved inwards by the insets.
    QRectF inset(const QRectF& rect) const { return rect.adjusted(left, top, -right, -bottom); }
    double horizontal() const { return left + right; }
    double vertical() const { return top + bottom; }
};

}  // namespace platform
