#pragma once

#include "QXDCameraCounters.h"
#include "QXDCameraDelegate.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/foundation/Error.h"

#include <QPointF>
#include <QString>

#include <array>
#include <atomic>
#include <functional>
#include <memory>

namespace platform {
class CaptureDeviceInput;
class CaptureSession;
class DispatchQueue;
class StillImageOutput;
class Timer;
class VideoPreviewLayer;
struct Notification;
}  // namespace platform

/// The camera engine: owns the capture session with one camera input, a
/// live-frame output and a still-image output, and three serial queues
/// (session, still image, video data). It reports frames, stills and errors
/// to its delegate.
///
/// Made with create(); held by a shared_ptr. Work queued on the engine's
/// queues holds it weakly and does nothing once it is gone. Calls are made
/// from the owner's thread (the main thread) unless a method says otherwise;
/// the capability questions block the caller until the session queue has
/// answered and must not be asked from the session queue.
///
/// Releasing the owner's last reference tears the engine down on the
/// releasing thread: it waits for the task running on any of its queues and
/// for a still capture in progress (whose result is then not delivered), so
/// no thread of the engine runs once the release has returned. Do not release
/// it from a thread that such a task waits for.
///
/// A camera that is lost while the engine runs (unplugged, taken by another
/// program, or silent for stallTimeout seconds) is reported once through
/// cameraDidFailWithError with code 404 of QXDCameraErrorDomain, on the
/// session queue; running() then reads false and a later start() picks the
/// camera up again once it is back.
class QXDCamera : public platform::VideoDataOutputDelegate,
                  public std::enable_shared_from_this<QXDCamera> {
public:
    using CapabilityHandler = std::function<bool(platform::CaptureDevice& device)>;
    using ConfigurationHandler =
        std::function<bool(platform::CaptureDevice& device, platform::ErrorPtr* error)>;

    /// An engine with its queues and orientation observer but no session.
    static std::shared_ptr<QXDCamera> create();
    /// The designated way to make an engine: with a preview layer (may be
    /// null), a camera position (1 back, 2 front), whether the 3840x2160
    /// preset is allowed, and a delegate (held weakly). The session is made
    /// only when a camera source is available.
    static std::shared_ptr<QXDCamera> create(
        const std::shared_ptr<platform::VideoPreviewLayer>& videoPreviewLayer,
        int captureDevicePosition, bool allowsHighResolution,
        const std::weak_ptr<QXDCameraDelegate>& delegate);

    ~QXDCamera() override;
    QXDCamera(const QXDCamera&) = delete;
    QXDCamera& operator=(const QXDCamera&) = delete;

    // Lifecycle
    void start();
    void stop();
    bool running() const { return _running.load(); }
    void setRunning(bool running) { _running = running; }

    /// Seconds (on the main run loop's clock) without a frame after which a
    /// running camera counts as lost; 0 turns the check off. Default 3.
    double stallTimeout() const { return _stallTimeout; }
    void setStallTimeout(double seconds) { _stallTimeout = seconds; }

    /// Frames delivered and dropped, stills requested, completed and failed.
    /// Thread-safe.
    QXDCameraCounters counters() const;

    /// Switches camera. Blocks the caller until the session queue has
    /// rebuilt the input; only call it on a running engine, for on a stopped
    /// one nothing ever wakes the caller.
    void setDevicePosition(int position);
    int devicePosition() const { return _devicePosition; }

    QString sessionPreset() const;
    void setSessionPreset(const QString& preset);
    bool canSetSessionPreset(const QString& preset) const;

    // Plain properties
    long fps() const { return _fps; }
    void setFps(long fps) { _fps = fps; }
    bool grayscaleMode() const { return _grayscaleMode; }
    void setGrayscaleMode(bool grayscale) { _grayscaleMode = grayscale; }
    long currentDeviceOrientation() const { return _currentDeviceOrientation; }
    void setCurrentDeviceOrientation(long orientation) { _currentDeviceOrientation = orientation; }
    std::shared_ptr<QXDCameraDelegate> delegate() const { return _delegate.lock(); }
    void setDelegate(const std::weak_ptr<QXDCameraDelegate>& delegate) { _delegate = delegate; }

    // Orientation
    long videoOrientation() const { return _videoOrientation; }
    /// Stores the orientation and applies it to the video-data and preview
    /// connections.
    void setVideoOrientation(long orientation);
    void deviceOrientationDidChange(const platform::Notification& notification);
    static long avOrientationForDeviceOrientation(long deviceOrientation);
    static QString deviceOrientationString(long deviceOrientation);

    // Stills
    void takePicture();

    // Device configuration
    bool canConfigureDeviceWithActionHandler(const CapabilityHandler& handler);
    void configureDeviceWithActionHandler(ConfigurationHandler handler);

    bool canConfigureExposureMode(int mode, bool pointOfInterest);
    bool canConfigureFocusMode(int mode, bool pointOfInterest);
    bool canConfigureFlashMode(int mode);
    bool canConfigureTorchMode(int mode);
    bool canConfigureWhiteBalanceMode(int mode);
    bool canConfigureLowLightBoost();

    void configureExposureMode(int mode);
    void configureExposureMode(int mode, const QPointF& exposurePointOfInterest);
    void configureFocusMode(int mode);
    void configureFocusMode(int mode, const QPointF& focusPointOfInterest);
    void configureFlashMode(int mode);
    void configureWhiteBalanceMode(int mode);
    void configureLowLightBoost(bool enabled);
    void configureTorchMode(int mode, float torchLevel);
    void configureVideoStabilization(bool enabled);
    void configureStillImageStabilization(bool enabled);

    /// Hands error (possibly null) to the delegate on the calling thread.
    void reportError(const platform::ErrorPtr& error);

    // Sample-buffer delegate of the video-data output (video-data queue).
    void captureOutputDidOutputSampleBuffer(
        const std::shared_ptr<platform::CaptureOutput>& output,
        const platform::SampleBufferPtr& sampleBuffer,
        const std::shared_ptr<platform::CaptureConnection>& connection) override;
    void captureOutputDidDropSampleBuffer(
        const std::shared_ptr<platform::CaptureOutput>& output,
        const platform::SampleBufferPtr& sampleBuffer,
        const std::shared_ptr<platform::CaptureConnection>& connection) override;

    /// For tests and diagnostics: the session (null without a camera).
    std::shared_ptr<platform::CaptureSession> captureSession() const { return _captureSession; }
    std::shared_ptr<platform::CaptureDeviceInput> deviceInput() const { return _deviceInput; }

private:
    enum class Count {
        FramesDelivered,
        FramesDroppedLate,
        FramesDroppedNoBuffer,
        FramesDroppedLockRefused,
        FramesDroppedUnsupportedFormat,
        FramesDroppedNoImageBuffer,
        StillsRequested,
        StillsCompleted,
        StillsFailed,
        Size
    };

    QXDCamera() = default;
    /// The owner's handle: releasing its last copy runs shutDown, then lets
    /// go of the engine on the releasing thread.
    static std::shared_ptr<QXDCamera> handOut(std::shared_ptr<QXDCamera> engine);
    static void shutDown(std::shared_ptr<QXDCamera> engine);
    /// Stops the camera, drops the observers and joins every thread; once.
    void tearDown();
    /// The engine behind weak, unless it is gone or its owner let it go.
    static std::shared_ptr<QXDCamera> live(const std::weak_ptr<QXDCamera>& weak);
    void count(Count what) { ++_counts[static_cast<std::size_t>(what)]; }
    void init();
    void initWithVideoPreviewLayer(const std::shared_ptr<platform::VideoPreviewLayer>& layer,
                                   int position, bool allowsHighResolution,
                                   const std::weak_ptr<QXDCameraDelegate>& delegate);

    void setupCaptureSession();
    void teardownCaptureSession();
    void createCaptureDevice();
    static std::shared_ptr<platform::CaptureDevice> cameraWithDevicePosition(int position);
    void setupSessionPreset();
    void createCaptureOutput();
    void createVideoDataOutput();
    void createStillImageOutput();
    void configureModeWithPoint(bool exposure, int mode, const QPointF& point);

    // Lost cameras (session queue unless noted)
    void observeSessionFailures();
    void sessionDidFail(const platform::ErrorPtr& cause);
    /// Rebuilds the input when its camera is gone but one is back at the
    /// same position; false when there is none.
    bool reattachCameraIfLost();
    void reportCameraLoss(const QString& description, const platform::ErrorPtr& cause);
    void armStallWatch();  // owner's thread
    void checkForStall();  // main thread
    void noteFrameArrival();
    std::shared_ptr<platform::DispatchQueue> _captureSessionQueue;
    std::shared_ptr<platform::StillImageOutput> _stillImageOutput;
    std::shared_ptr<platform::DispatchQueue> _stillImageOutputQueue;
    bool _stillImageStabilizationEnableWhenAvailable = false;
    std::shared_ptr<platform::DispatchQueue> _videoDataOutputQueue;
    std::shared_ptr<platform::VideoDataOutput> _videoDataOutput;
    std::shared_ptr<platform::VideoPreviewLayer> _videoPreviewLayer;
    std::shared_ptr<platform::CaptureDeviceInput> _deviceInput;
    std::shared_ptr<platform::CaptureSession> _captureSession;
    bool _videoStabilizationEnableWhenAvailable = false;
    bool _allowsHighResolution = false;
    bool _grayscaleMode = false;
    std::atomic<bool> _running{false};
    std::weak_ptr<QXDCameraDelegate> _delegate;
    int _devicePosition = 1;
    long _fps = 0;
    long _videoOrientation = 1;
    long _currentDeviceOrientation = 0;

    std::atomic<bool> _released{false};
    bool _tornDown = false;
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Count::Size)> _counts{};
    /// Frames and drops seen, for the stall watch.
    std::atomic<std::uint64_t> _framesSeen{0};
    std::atomic<std::int64_t> _lastFrameNanoseconds{0};
    double _stallTimeout = 3.0;
    std::shared_ptr<platform::Timer> _stallTimer;
    std::uint64_t _framesAtLastCheck = 0;
    double _lastProgressTime = 0.0;
};
