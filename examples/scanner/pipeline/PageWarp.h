#pragma once

#include "Quad.h"

#include <QImage>

namespace scanner {

/// The page inside outline made flat: a rectangle as wide as the outline's
/// top and bottom sides on average and as tall as its left and right sides,
/// in the picture's pixels; RGB32 (Grayscale8 for a grey picture). A hair
/// (0.3% of the shorter side, at least a pixel) is trimmed from each edge,
/// where the page's border blends with what lies beyond it. Null for a
/// degenerate outline.
QImage flattenPage(const QImage& picture, const Quad& outline);

/// Where an outline found in a frame lies in a still of another size taken
/// at the same moment: the frame and the still show the same view, each
/// stretched to its own size.
Quad frameToStill(const Quad& outline, const QSize& frameSize, const QSize& stillSize);

}  // namespace scanner
