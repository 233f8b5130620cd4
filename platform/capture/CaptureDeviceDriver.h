#pragma once

#include "platform/capture/CaptureTypes.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/foundation/Error.h"

#include <QPointF>
#include <QSize>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

/// What a camera can do. Constant for the life of its driver.
struct CaptureDeviceCapabilities {
    /// Supported session presets besides High, which a device supports when
    /// it supports any video preset.
    QStringList sessionPresets;
    /// Full still size, in the sensor's landscape orientation (the Photo
    /// preset's size).
    QSize stillImageSize;
    std::vector<int> focusModes;
    bool focusPointOfInterest = false;
    std::vector<int> exposureModes;
    bool exposurePointOfInterest = false;
    bool hasFlash = false;
    std::vector<int> flashModes;
    bool hasTorch = false;
    std::vector<int> torchModes;
    std::vector<int> whiteBalanceModes;
    bool lowLightBoost = false;
    /// Video stabilisation modes a video-data connection accepts besides
    /// off; none: stabilisation is unsupported.
    std::vector<int> videoStabilizationModes;
    bool stillImageStabilization = false;
    bool videoOrientation = true;
    bool videoMirroring = true;
    double videoMaxScaleAndCropFactor = 1.0;

    /// The landscape video size of preset, or an empty size when the device
    /// does not support it.
    QSize videoSizeForPreset(const QString& preset) const;
    bool supportsPreset(const QString& preset) const {
        return !videoSizeForPreset(preset).isEmpty();
    }
};

/// A device's adjustable state. CaptureDevice validates every change against
/// the capabilities before a driver sees it.
struct CaptureDeviceSettings {
    int focusMode = focus_mode::kLocked;
    QPointF focusPointOfInterest{0.5, 0.5};
    int exposureMode = exposure_mode::kLocked;
    QPointF exposurePointOfInterest{0.5, 0.5};
    int flashMode = flash_mode::kOff;
    int torchMode = torch_mode::kOff;
    float torchLevel = 0.0f;  ///< 0 while the torch is off
    int whiteBalanceMode = white_balance_mode::kLocked;
    bool automaticallyEnablesLowLightBoostWhenAvailable = false;
};

/// The shape of the frames a stream should deliver next: the preset's
/// landscape size, the consumer's pixel format, and the orientation and
/// mirroring of the video connection, which are applied as the frame is made
/// (frames are never rotated after the fact).
struct FrameLayout {
    QSize sensorSize;
    std::uint32_t pixelFormat = pixel_format::k32BGRA;
    int orientation = video_orientation::kLandscapeRight;
    bool mirrored = false;

    /// The frame's size: the sensor size, turned for portrait orientations.
    QSize size() const;
    bool operator==(const FrameLayout&) const = default;
};

/// Receives a stream's frames. Implemented by the session.
class CaptureStreamSink {
public:
    virtual ~CaptureStreamSink() = default;
    /// The layout of the next frame. Called on the stream thread before each
    /// frame; quick and never blocking.
    virtual FrameLayout nextFrameLayout() = 0;
    /// One frame, made in layout. Called on the stream thread; never blocks.
    virtual void streamDidOutputSampleBuffer(const SampleBufferPtr& sampleBuffer,
                                             const FrameLayout& layout) = 0;
    /// A frame was not made (see DroppedFrameReason), at time. Called on the
    /// stream thread; never blocks. Default: ignored.
    virtual void streamDidDropFrame(MediaTime /*time*/, DroppedFrameReason /*reason*/) {}
    /// The stream ended for good: the device went away or another program
    /// took it. No frame follows. Called once, off the stream thread.
    virtual void streamDidFail(const ErrorPtr& error) = 0;
};

struct StillRequest {
    FrameLayout layout;  ///< sensorSize is the still size
    double scaleAndCropFactor = 1.0;
};

/// A still capture's outcome. The platform allows every combination: an
/// error, a sample buffer (possibly without an image buffer), or neither.
struct StillResult {
    SampleBufferPtr sampleBuffer;
    ErrorPtr error;
};

/// The backend of a CaptureDevice: one camera. The virtual camera and the Qt
/// camera implement it.
///
/// Every function may be called from any thread unless it says otherwise, and
/// a driver must never call back into the capture classes while holding a
/// lock of its own. One driver backs exactly one CaptureDevice.
class CaptureDeviceDriver {
public:
    virtual ~CaptureDeviceDriver();

    /// Identity: constant.
    virtual QString uniqueID() const = 0;
    virtual QString localizedName() const = 0;
    /// device_position value.
    virtual int position() const = 0;

    /// Constant for the driver's life.
    virtual const CaptureDeviceCapabilities& capabilities() const = 0;
    /// The settings the device starts with; every value is supported. The
    /// default takes the continuous (else first) mode of each kind, torch and
    /// flash off.
    virtual CaptureDeviceSettings initialSettings() const;

    /// Whether the hardware is there. After a reported disconnection this
    /// stays false until the same hardware comes back (hot-plug).
    virtual bool isConnected() const = 0;
    /// Whether the torch can be used now (it can overheat). Default: it has one.
    virtual bool isTorchAvailable() const;
    /// The highest torch level usable now, in [0, 1]. Default: 1 with a torch.
    virtual float maxAvailableTorchLevel() const;

    /// Grants exclusive configuration access (null) or refuses it with an
    /// error. Default: granted.
    virtual ErrorPtr lockForConfiguration();
    virtual void unlockForConfiguration() {}

    /// Whether an input may be made for the device: null, or the reason it
    /// cannot (no permission, in use, ...). Default: allowed while connected.
    virtual ErrorPtr openInput();
    /// Whether a session may take the device's input now. Default: yes.
    virtual bool canJoinSession() const { return true; }

    /// The settings after a validated change; quick. Default: ignored.
    virtual void applySettings(const CaptureDeviceSettings& settings);

    /// Starts delivering frames to sink from the driver's own thread until
    /// stopStreaming; null on success. Not called again before stopStreaming.
    /// After a disconnection the driver stops calling the sink by itself.
    virtual ErrorPtr startStreaming(std::shared_ptr<CaptureStreamSink> sink) = 0;
    /// Stops the stream; once it returns the sink is not called again and is
    /// released. Harmless when not streaming. Never called on the stream thread.
    virtual void stopStreaming() = 0;

    /// Captures one still in request's layout. Called on a still output's
    /// completion thread, possibly while streaming; may take time.
    virtual StillResult captureStill(const StillRequest& request) = 0;

protected:
    /// For drivers: the hardware went away. isConnected() must already answer
    /// false. The device posts its notification and ends the stream's session
    /// asynchronously, so this may be called from the stream thread.
    void reportDisconnection(const ErrorPtr& reason);
    /// For drivers: the stream ended although the device is still there (it
    /// was taken by another program). The stream's session stops with reason
    /// as its runtime error, asynchronously; may be called from the stream
    /// thread.
    void reportStreamFailure(const ErrorPtr& reason);

private:
    friend class CaptureDevice;
    /// handler(reason, disconnected) runs for both kinds of report.
    void setFailureHandler(std::function<void(const ErrorPtr&, bool)> handler);

    std::mutex _handlerMutex;
    std::function<void(const ErrorPtr&, bool)> _failureHandler;
};

}  // namespace platform
