#pragma once

#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/PixelBuffer.h"

#include <QCamera>
#include <QCameraDevice>
#include <QList>
#include <QObject>
#include <QSize>
#include <QVideoFrame>

#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <mutex>

class QImageCapture;
class QMediaCaptureSession;
class QMediaDevices;
class QVideoSink;

namespace platform {

class DispatchQueue;

/// What the capability mapping needs to know of a Qt camera: plain data, so
/// the mapping can be exercised without hardware.
struct QtCameraDescription {
    QString id;
    QString name;
    QCameraDevice::Position position = QCameraDevice::UnspecifiedPosition;
    QList<QSize> videoResolutions;
    QList<QSize> photoResolutions;
    QList<QCamera::FocusMode> focusModes;
    QList<QCamera::ExposureMode> exposureModes;
    QList<QCamera::FlashMode> flashModes;
    QList<QCamera::TorchMode> torchModes;
    bool whiteBalanceAuto = false;
    QCamera::Features features;

    /// Asks camera (made for device) what it supports. Main thread.
    static QtCameraDescription of(const QCameraDevice& device, const QCamera& camera);
};

/// The mapping from Qt's camera vocabulary to the capture framework's.
namespace qt_camera {
int positionFrom(QCameraDevice::Position position);
/// The fixed-size presets with a video format of exactly their size, largest
/// first, and Photo when there is a still size.
QStringList sessionPresetsFor(const QList<QSize>& videoResolutions, const QSize& stillSize);
/// The largest photo resolution, else the largest video one.
QSize stillSizeFor(const QList<QSize>& photoResolutions, const QList<QSize>& videoResolutions);
CaptureDeviceCapabilities capabilitiesFor(const QtCameraDescription& description);
QCamera::FocusMode focusModeFor(int focusMode);
QCamera::ExposureMode exposureModeFor(int exposureMode);
QCamera::FlashMode flashModeFor(int flashMode);
QCamera::TorchMode torchModeFor(int torchMode);
/// A frame as a pixel buffer: BGRA/BGRX frames wrapped as BGRA and NV12 ones
/// as 420f (when 420f is wanted) without copying, the frame staying mapped
/// for as long as the buffer lives; anything else converted into a BGRA
/// buffer of pool (replaced when its size does not fit). null when the frame
/// cannot be mapped or pool is exhausted.
std::shared_ptr<PixelBuffer> pixelBufferFor(const QVideoFrame& frame, std::uint32_t wanted,
                                            std::shared_ptr<PixelBufferPool>& pool);
}  // namespace qt_camera

/// A real camera through Qt Multimedia (V4L2 through Qt's GStreamer backend
/// on Linux). The Qt objects live on the main thread and are made when first
/// needed; frames are delivered from a serial queue of the driver's, off the
/// GUI thread. A camera error, or the camera leaving the list of video
/// inputs, is a disconnection. A driver made from a description alone (no
/// QCameraDevice) never opens a camera: its streams stay empty.
///
/// Frames come at the camera's size in landscape orientation: rotation and
/// mirroring of the layout are not applied.
class QtCameraDriver final : public CaptureDeviceDriver {
    struct Key {};

public:
    /// Main thread (asks a QCamera for the camera's abilities).
    static std::shared_ptr<QtCameraDriver> create(const QCameraDevice& device);
    static std::shared_ptr<QtCameraDriver> create(const QtCameraDescription& description,
                                                  const QCameraDevice& device = {});

    QtCameraDriver(Key, const QtCameraDescription& description, const QCameraDevice& device);
    ~QtCameraDriver() override;

    /// The camera failed (QCamera::errorOccurred): the device is gone.
    void handleCameraError(const QString& message);
    /// The list of video inputs changed: gone unless it still lists this one.
    void handleVideoInputsChanged(const QList<QCameraDevice>& inputs);
    /// A frame from the camera's video sink; any thread. Delivered to the
    /// stream's sink on the driver's queue, or dropped while two frames are
    /// still waiting there.
    void handleVideoFrame(const QVideoFrame& frame);

    // CaptureDeviceDriver
    QString uniqueID() const override { return _description.id; }
    QString localizedName() const override { return _description.name; }
    int position() const override { return qt_camera::positionFrom(_description.position); }
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

    void onMain(std::function<void(QtCameraDriver&)> task);
    void ensureCamera();
    void applyToCamera();
    void requestSize(const QSize& size);
    void deliver(const QVideoFrame& frame);
    void startStillCaptures();
    void finishStill(int id, StillResult result);

    const QtCameraDescription _description;
    const QCameraDevice _device;
    const CaptureDeviceCapabilities _capabilities;
    std::weak_ptr<QtCameraDriver> _self;
    std::atomic<bool> _connected{true};
    std::atomic<int> _framesInFlight{0};
    std::shared_ptr<DispatchQueue> _queue;

    std::mutex _mutex;
    std::shared_ptr<CaptureStreamSink> _sink;
    CaptureDeviceSettings _settings;
    std::shared_ptr<PixelBufferPool> _pool;
    QSize _requestedSize;

    // Main thread only.
    std::unique_ptr<QObject, LaterDelete> _context;
    QCamera* _camera = nullptr;  // children of _context
    QMediaCaptureSession* _session = nullptr;
    QVideoSink* _videoSink = nullptr;
    QImageCapture* _imageCapture = nullptr;
    QMediaDevices* _mediaDevices = nullptr;
    std::vector<std::shared_ptr<std::promise<StillResult>>> _waitingStills;
    std::map<int, std::shared_ptr<std::promise<StillResult>>> _pendingStills;
    QSize _stillSize;
};

}  // namespace platform
