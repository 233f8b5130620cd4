#pragma once

#include "platform/layers/Layer.h"

#include <QColor>
#include <QImage>
#include <QRectF>
#include <QSizeF>
#include <QString>

class QPainter;

namespace platform {

/// Paints the presentation state of a layer tree with QPainter: transforms
/// about the anchor point, opacity, clipping to (rounded) bounds, background
/// colours, contents images placed by their gravity, shape layers, the
/// layers' own drawings and backdrop effects over what is already painted.
///
/// Opacity multiplies down the tree per layer; it does not composite a
/// subtree as a group. Main thread only (it may redraw backing stores).
class LayerPainter {
public:
    /// Paints root and its sublayers at clock time `time`; the painter's
    /// coordinates are those of root's superlayer, in points.
    static void paint(QPainter& painter, Layer& root, double time);

    /// Paints what a host shows of a tree: `area` (painter coordinates, a
    /// window's bounds) filled with background (an invalid colour: none),
    /// then root and its sublayers at `time`, all clipped to area. When area
    /// falls on whole device pixels, whatever lies under an opaque layer
    /// covering all of area, the background included, is not drawn: the
    /// pixels are the same, the work is not.
    static void paint(QPainter& painter, Layer& root, double time, const QRectF& area,
                      const QColor& background);

    /// Renders the tree into a new image of size points at scale pixels a
    /// point, over background, at clock time `time`.
    static QImage snapshot(Layer& root, const QSizeF& size, double scale, double time,
                           const QColor& background = Qt::transparent);

    /// Writes a snapshot at the run loop's current time as PNG; false when
    /// the file cannot be written.
    static bool writeSnapshot(Layer& root, const QSizeF& size, double scale, const QString& path,
                              const QColor& background = Qt::transparent);

    /// Where an image of natural size `content` (points) is drawn inside
    /// `bounds` for a gravity.
    static QRectF contentsRect(const QRectF& bounds, const QSizeF& content,
                               ContentsGravity gravity);
};

}  // namespace platform
