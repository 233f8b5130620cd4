#pragma once

#include "platform/capture/CameraChoice.h"
#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/QtCameraBackend.h"

#include <QList>
#include <QObject>
#include <QSize>
#include <QVideoFrame>

#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

class DispatchQueue;

/// Watches what a Qt camera hands over, as it comes (a recorder). Called on
/// the thread that delivered the frame or saw the failure; never under a lock
/// of the driver's.
class QtCameraObserver {
public:
    virtual ~QtCameraObserver() = default;
    virtual void cameraDidDeliverFrame(const QVideoFrame& /*frame*/) {}
    virtual void cameraDidFail(const QString& /*message*/) {}
};

/// Buffers a stream converts into, reused from frame to frame: one pool for
/// the current output size and format, replaced when that changes.
struct QtFramePools {
    std::shared_ptr<PixelBufferPool> pool;
    /// A buffer of size and format from the pool; null when it is exhausted.
    std::shared_ptr<PixelBuffer> take(const QSize& size, std::uint32_t format);
};

/// The mapping from Qt's camera vocabulary to the capture framework's.
namespace qt_camera {
int positionFrom(QCameraDevice::Position position);
/// The positions the engine finds cameras under on a desktop, one a camera
/// (see CameraChoice): Qt's back and front are kept, the default camera
/// serves as back without a back camera and another unspecified camera as
/// front. A chosen camera takes its position from whoever had it.
std::vector<int> positionsFor(const QList<QtCameraDescription>& cameras, const QString& defaultID,
                              const CameraChoice& choice);
/// "YUYV", "NV12", "MJPEG", ...
QString pixelFormatName(QVideoFrameFormat::PixelFormat format);
/// The fixed-size presets with a video format of exactly their size, largest
/// first, and Photo when there is a still size.
QStringList sessionPresetsFor(const QList<QSize>& videoResolutions, const QSize& stillSize);
/// The largest photo resolution, else the largest video one.
QSize stillSizeFor(const QList<QSize>& photoResolutions, const QList<QSize>& videoResolutions);
/// The largest of sizes with the aspect ratio of `like` (within 1%), else the
/// largest of all; an empty `like` takes the largest.
QSize largestLike(const QList<QSize>& sizes, const QSize& like);
/// The format to stream size in: the highest frame rate, then the format
/// that reaches `wanted` (a pixel_format) with the least work. Null when the
/// camera has no format of that size.
QtCameraFormat formatFor(const QList<QtCameraFormat>& formats, const QSize& size,
                         std::uint32_t wanted);
CaptureDeviceCapabilities capabilitiesFor(const QtCameraDescription& description);
QCamera::FocusMode focusModeFor(int focusMode);
QCamera::ExposureMode exposureModeFor(int exposureMode);
QCamera::FlashMode flashModeFor(int flashMode);
QCamera::TorchMode torchModeFor(int torchMode);
/// A frame as the sensor delivered it (landscape right, unmirrored) turned
/// and mirrored into layout's orientation and in layout's pixel format (BGRA
/// or 420f), as a pixel buffer. Frames that need no change (BGRA, or NV12 for
/// 420f, unturned) are wrapped without copying, the frame staying mapped
/// while the buffer lives; the rest are converted into a buffer of pools.
/// BGRX padding comes out opaque. null when the frame cannot be mapped or
/// read, or the pool is exhausted.
std::shared_ptr<PixelBuffer> pixelBufferFor(const QVideoFrame& frame, const FrameLayout& layout,
                                            QtFramePools& pools);
/// A still image turned and mirrored into layout's orientation, as a BGRA
/// buffer of its own.
std::shared_ptr<PixelBuffer> stillBufferFor(const QImage& image, const FrameLayout& layout);
}  // namespace qt_camera

/// A real camera through Qt Multimedia (V4L2 through Qt's GStreamer backend
/// on Linux). The Qt side lives on the main thread and is opened when first
/// needed; frames are delivered from a serial queue of the driver's, off the
/// GUI thread, turned and mirrored as the stream's layout asks. A camera
/// error, or the camera leaving the list of video inputs, is a disconnection.
/// A driver without a backend never opens a camera: its streams stay empty.
class QtCameraDriver final : public CaptureDeviceDriver {
    struct Key {};

public:
    static std::shared_ptr<QtCameraDriver> create(const QtCameraDescription& description,
                                                  std::shared_ptr<QtCameraBackend> backend = {});

    QtCameraDriver(Key, const QtCameraDescription& description,
                   std::shared_ptr<QtCameraBackend> backend);
    ~QtCameraDriver() override;

    const QtCameraDescription& description() const { return _description; }
    /// The position discovery assigned (see qt_camera::positionsFor).
    void setPosition(int position) { _position.store(position); }
    /// The list of video inputs changed: gone unless ids still holds this one.
    void handleVideoInputsChanged(const QStringList& ids);
    /// Sees every frame and failure from now on; null stops watching.
    void setObserver(std::shared_ptr<QtCameraObserver> observer);

    // CaptureDeviceDriver
    QString uniqueID() const override { return _description.id; }
    QString localizedName() const override { return _description.name; }
    int position() const override { return _position.load(); }
    const CaptureDeviceCapabilities& capabilities() const override { return _capabilities; }
    bool isConnected() const override { return _connected.load(); }
    void applySettings(const CaptureDeviceSettings& settings) override;
    ErrorPtr startStreaming(std::shared_ptr<CaptureStreamSink> sink) override;
    void stopStreaming() override;
    StillResult captureStill(const StillRequest& request) override;

private:
    struct LaterDelete {
        void operator()(QObject* object) const;
    };
    struct ControlDelete {
        void operator()(QtCameraControl* control) const;
    };

    void onMain(std::function<void(QtCameraDriver&)> task);
    bool ensureCamera();
    void handleCameraError(const QString& message);
    void handleVideoFrame(const QVideoFrame& frame);
    void requestFormat(const QSize& size, std::uint32_t pixelFormat);
    void deliver(const QVideoFrame& frame);
    void startStillCaptures();
    void finishStill(int id, StillResult result);
    void stopWhenIdle();

    const QtCameraDescription _description;
    const std::shared_ptr<QtCameraBackend> _backend;
    const CaptureDeviceCapabilities _capabilities;
    std::weak_ptr<QtCameraDriver> _self;
    std::atomic<int> _position;
    std::atomic<bool> _connected{true};
    std::atomic<int> _framesInFlight{0};
    std::shared_ptr<DispatchQueue> _queue;

    std::mutex _mutex;
    std::shared_ptr<CaptureStreamSink> _sink;
    std::shared_ptr<QtCameraObserver> _observer;
    CaptureDeviceSettings _settings;
    QtFramePools _pools;  ///< delivery queue only
    QSize _requestedSize;
    std::uint32_t _requestedFormat = 0;
    QSize _streamSize;  ///< size of the last frame delivered

    // Main thread only.
    std::unique_ptr<QObject, LaterDelete> _context;
    std::unique_ptr<QtCameraControl, ControlDelete> _control;
    bool _streaming = false;
    struct PendingStill {
        std::shared_ptr<std::promise<StillResult>> promise;
        FrameLayout layout;
    };
    std::vector<PendingStill> _waitingStills;
    std::map<int, PendingStill> _pendingStills;
};

}  // namespace platform
