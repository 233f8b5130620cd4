#pragma once

#include "Quad.h"

#include <QPointF>
#include <QSize>
#include <QSizeF>
#include <QTransform>

#include <vector>

namespace scanner {

/// Where a frame pixel shows in a preview of viewSize that fills the view
/// with the frame, keeping its aspect ratio and cropping what overflows
/// (aspect fill, centred).
QTransform aspectFill(const QSize& frameSize, const QSizeF& viewSize);

/// The key points to hand the capture screen for an outline found in a frame
/// so that it is drawn on the page in the aspect-filled preview. The screen
/// maps key points with its own transform (frame pixels stretched onto the
/// view, unevenly when their aspect ratios differ) and then to the status
/// bar's orientation (landscape right swaps x and y, landscape left also
/// flips against screenHeight); these points undo both. Empty when the
/// screen's transform cannot be undone.
std::vector<QPointF> keyPointsForPreview(const Quad& outline, const QSize& frameSize,
                                         const QSizeF& viewSize, const QTransform& screenTransform,
                                         int statusBarOrientation, double screenHeight);

}  // namespace scanner
