#pragma once

#include <QImage>
#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QString>

/// The geometry shared by frames and previews: how the upright picture (as a
/// phone held in portrait sees it) turns into a frame of a video orientation,
/// and how preview points map to device points.
///
/// Device coordinates are the unit square of the sensor's own image,
/// unrotated: (0, 0) top left and (1, 1) bottom right with the device in
/// landscape, home button on the right (video orientation 3). Pure functions.
namespace platform::video_geometry {

/// Clockwise turn, in degrees, from the upright picture to a frame in
/// orientation (0, 90, 180 or 270; 270 for landscape right).
int rotationFromUpright(int orientation);

/// The frame of orientation/mirrored made from upright (turned, then
/// mirrored left to right).
QImage orientUpright(const QImage& upright, int orientation, bool mirrored);

/// A frame made for one orientation/mirroring, shown for another.
QImage reorient(const QImage& frame, int fromOrientation, bool fromMirrored, int toOrientation,
                bool toMirrored);

/// Where video of videoSize lands in bounds under gravity (a video_gravity
/// string; unknown values fit like resize-aspect).
QRectF videoRect(const QRectF& bounds, const QSizeF& videoSize, const QString& gravity);

/// A point in the unit square of a shown frame (orientation, mirrored) to
/// device coordinates, and back.
QPointF shownToDevice(const QPointF& shown, int orientation, bool mirrored);
QPointF deviceToShown(const QPointF& device, int orientation, bool mirrored);

}  // namespace platform::video_geometry
