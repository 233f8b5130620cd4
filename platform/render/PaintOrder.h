#pragma once

// The order in which the layer painter draws a tree, and what of it an
// opaque layer hides. Internal to the render code.

#include "platform/layers/Layer.h"

#include <QRectF>
#include <QTransform>

namespace platform::paint_order {

/// The drawings of one layer, in the order they are made.
enum class Step { Backdrop = 0, Background = 1, Contents = 2, Shape = 3 };

/// A number for every drawing of a tree: layers count in painting order
/// (a layer before its sublayers, hidden ones and their subtrees skipped),
/// the steps of a layer in Step order.
inline int number(int layerIndex, Step step) {
    return layerIndex * 4 + static_cast<int>(step);
}

/// No drawing is hidden.
inline constexpr int kNone = -1;

/// Whether the painter skips the layer (and its subtree) at state.
inline bool skipsLayer(const LayerState& state) {
    return state.hidden || state.opacity <= 0.0;
}

/// The number of the last drawing of root's tree at `time` that paints
/// every pixel of `area` (root's superlayer coordinates, whole device
/// pixels) opaque, at full opacity, so that everything drawn before it there
/// cannot show; kNone when no drawing does. Opaque are plain backgrounds of
/// square layers and contents images without alpha, drawn untilted and
/// unclipped but by square masks.
int lastOpaqueCover(Layer& root, double time, const QRectF& area);

}  // namespace platform::paint_order
