#pragma once

#include "platform/foundation/Error.h"

#include <QImage>

class QXDCamera;

/// Receives the camera engine's events. Every method is optional (empty by
/// default). Frames arrive on the engine's video-data queue, stills on its
/// still-image queue and errors on the thread that ran the failing step; none
/// of them is moved to the main thread. The image is valid for the duration
/// of the call only in the sense that its pixels may be reused afterwards
/// unless the receiver keeps a copy of the QImage (which keeps the pixels).
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
