#pragma once

#include "Quad.h"

#include <QImage>

namespace scanner {

/// The outline's sides located precisely in picture: along each side of
/// coarse, the strongest step of brightness with the side's direction of
/// contrast is searched within reach pixels across the side, and the steps
/// found are fitted with a straight line (outliers dropped); the corners are
/// where neighbouring lines meet. A side with too few steps keeps its coarse
/// position. Reads only a few thousand pixels, in any image format.
Quad refineSides(const QImage& picture, const Quad& coarse, double reach);

}  // namespace scanner
