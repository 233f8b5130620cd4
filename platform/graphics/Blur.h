#pragma once

#include <QColor>
#include <QImage>
#include <QRect>

namespace platform {

/// How applyDarkBlur blurs and darkens: the platform's dark blur effect.
struct BlurStyle {
    /// How far the blur reaches, in points: it smooths as much as a box blur
    /// of this radius.
    double radius = 20.0;
    /// Pixels a point in the image being blurred.
    double scale = 1.0;
    /// Laid over the blurred pixels.
    QColor tint = QColor(16, 16, 16, 140);

    bool operator==(const BlurStyle&) const = default;
};

/// Blurs the pixels already in region of image, in place, and lays the tint
/// over them; pixels outside region keep their values exactly. Whatever of
/// region lies outside the image is ignored; an empty region does nothing.
///
/// The blur runs on a reduced copy (block averages; four times smaller at
/// the default radius and scale), with three box passes each way over running
/// sums, and is scaled back up bilinearly, so its cost is about that of
/// reading and writing the region once. 32-bit RGB images are worked on in
/// place; other formats go through a premultiplied copy of the region, and
/// indexed and one-bit images are converted to ARGB32_Premultiplied first.
///
/// Thread-safe as long as no other thread uses image meanwhile.
void applyDarkBlur(QImage& image, const QRect& region, const BlurStyle& style = {});

}  // namespace platform
