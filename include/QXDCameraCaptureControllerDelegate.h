#pragma once

#include "platform/foundation/Error.h"
#include "platform/graphics/Image.h"

class QXDCameraController;

/// What the capture screen tells its host. Every method is optional (empty by
/// default); the first argument is always the screen.
///
/// Threads: frames arrive on the camera engine's video-data queue, stills on
/// its still-image queue and errors on the thread of the step that failed;
/// none of them is moved to the main thread. Cancel and help arrive on the
/// main thread. A host that changes views in answer to a frame, a still or an
/// error dispatches that work to the main run loop itself, for example:
///
/// \code
///   void captureControllerDidReceiveFrame(QXDCameraController& controller,
///                                         const platform::ImagePtr& frame) override {
///       const auto corners = detector.find(frame->cgImage());  // on the video queue
///       std::weak_ptr<QXDCameraController> weak =
///           std::static_pointer_cast<QXDCameraController>(controller.shared_from_this());
///       platform::dispatchMainAsync([weak, corners] {
///           if (auto screen = weak.lock()) {
///               screen->drawPolygonAtKeyPoints(corners, Qt::green);  // main thread
///           }
///       });
///   }
/// \endcode
class QXDCameraCaptureControllerDelegate {
public:
    virtual ~QXDCameraCaptureControllerDelegate() = default;

    /// One live frame, as the engine delivered it, while the screen is
    /// visible. Video-data queue.
    virtual void captureControllerDidReceiveFrame(QXDCameraController& /*controller*/,
                                                  const platform::ImagePtr& /*frame*/) {}
    /// The engine reported a failure; error is the engine's, unchanged (may
    /// be null). Thread of the failing step.
    virtual void captureControllerDidFailWithError(QXDCameraController& /*controller*/,
                                                   const platform::ErrorPtr& /*error*/) {}
    /// The cancel button was tapped. The screen does not dismiss itself.
    /// Main thread.
    virtual void captureControllerDidCancel(QXDCameraController& /*controller*/) {}
    /// A still picture (scale 1, upright as the engine made it). Still-image
    /// queue.
    virtual void cameraDidCaptureStillImage(QXDCameraController& /*controller*/,
                                            const platform::ImagePtr& /*image*/) {}
    /// The help button was tapped. Main thread.
    virtual void captureControllerShouldOpenHelpController(QXDCameraController& /*controller*/) {}
};
