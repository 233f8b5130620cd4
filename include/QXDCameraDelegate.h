#pragma once

#include "platform/foundation/Error.h"

#include <QImage>

class QXDCamera;

/// Receives the camera engine's events. Every method is optional (empty by
/// default). Frames arrive on the engine's video-data queue, stills on its
/// still-image queue and errors on the thread that ran the failing step; none
/// of them is moved to the main thread.
///
/// Lifetime of the images: a frame or still is the camera's buffer wrapped
/// without copying. Keeping a copy of the QImage keeps that buffer out of the
/// camera's pool until the last copy is gone. The pool grows to about a
/// second of frames to allow for this; while every buffer is kept, new frames
/// are dropped (counted in QXDCamera::counters(), not reported here) and the
/// preview stands still, and both resume as soon as the host lets go. A host
/// that keeps frames for long should keep a deep copy (QImage::copy()).
class QXDCameraDelegate {
public:
    virtual ~QXDCameraDelegate() = default;

    /// A still picture; a null image when the picture could not be wrapped.
    virtual void cameraDidCaptureStillImage(QXDCamera& /*camera*/, const QImage& /*image*/) {}
    /// One live frame; a null image when the frame's format cannot be
    /// wrapped as an image.
    virtual void cameraDidCaptureVideoSample(QXDCamera& /*camera*/, const QImage& /*image*/) {}
    /// A set-up, configuration or capture step failed; error may be null.
    virtual void cameraDidFailWithError(QXDCamera& /*camera*/,
                                        const platform::ErrorPtr& /*error*/) {}
    /// Declared for hosts; the engine never sends it.
    virtual void cameraCancel(QXDCamera& /*camera*/) {}
};
