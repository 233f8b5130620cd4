#pragma once

#include <QImage>
#include <QPointF>

class QPainter;

namespace platform {

/// Draws an 8-bit grey image unscaled at `topLeft` (painter coordinates) by
/// writing its pixels straight into the painter's 32-bit image, the same
/// pixels the raster engine would blend, which takes grey through its slow
/// generic span path. `clipIsRectangle` tells whether the painter's clip, if
/// any, is exactly its bounding rectangle. Draws nothing and returns false
/// when the drawing would be more than a copy (a transform other than a
/// whole-pixel move, opacity, another blend mode, a clip that is not one
/// pixel-aligned rectangle, a target that is not a 32-bit image); the caller
/// then draws the image itself.
bool copyGreyImage(QPainter& painter, const QImage& image, const QPointF& topLeft,
                   bool clipIsRectangle);

}  // namespace platform
