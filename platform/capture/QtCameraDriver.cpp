#include "platform/capture/QtCameraDriver.h"

#include "platform/capture/PixelConversion.h"
#include "platform/foundation/Dispatch.h"

#include <QCameraFormat>
#include <QCoreApplication>
#include <QImage>
#include <QImageCapture>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QThread>
#include <QVideoSink>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <utility>

namespace platform {
namespace {

// Frames queued for delivery at most; more are dropped, as a late camera frame
// is worth less than the next one.
constexpr int kMaxFramesInFlight = 2;
constexpr auto kStillTimeout = std::chrono::seconds(10);

ErrorPtr avError(int code, const QString& description) {
    return Error::withDescription(kAVFoundationErrorDomain, code, description);
}

qint64 area(const QSize& size) {
    return static_cast<qint64>(size.width()) * size.height();
}

QSize largest(const QList<QSize>& sizes) {
    QSize best;
    for (const QSize& size : sizes) {
        if (area(size) > area(best)) {
            best = size;
        }
    }
    return best;
}

template <typename T>
bool has(const QList<T>& list, T value) {
    return list.contains(value);
}

bool isMainThread() {
    auto* app = QCoreApplication::instance();
    return app != nullptr && QThread::currentThread() == app->thread();
}

// Keeps a frame mapped for as long as buffers wrap its memory.
struct MappedFrame {
    QVideoFrame frame;
    explicit MappedFrame(const QVideoFrame& source) : frame(source) {}
    ~MappedFrame() {
        if (frame.isMapped()) {
            frame.unmap();
        }
    }
    MappedFrame(const MappedFrame&) = delete;
    MappedFrame& operator=(const MappedFrame&) = delete;
};

std::shared_ptr<PixelBuffer> bufferFromImage(const QImage& source) {
    const QImage image = source.convertToFormat(QImage::Format_ARGB32);  // B G R A in memory
    auto buffer = PixelBuffer::create(image.width(), image.height(), pixel_format::k32BGRA);
    if (!buffer) {
        return nullptr;
    }
    const auto rowBytes = static_cast<std::size_t>(image.width()) * 4;
    for (int y = 0; y < image.height(); ++y) {
        std::memcpy(buffer->planeData(0) + buffer->bytesPerRow() * static_cast<std::size_t>(y),
                    image.constScanLine(y), rowBytes);
    }
    return buffer;
}

}  // namespace

// Mapping ----------------------------------------------------------------------

QtCameraDescription QtCameraDescription::of(const QCameraDevice& device, const QCamera& camera) {
    QtCameraDescription d;
    d.id = QString::fromUtf8(device.id());
    d.name = device.description();
    d.position = device.position();
    for (const QCameraFormat& format : device.videoFormats()) {
        if (!d.videoResolutions.contains(format.resolution())) {
            d.videoResolutions.append(format.resolution());
        }
    }
    d.photoResolutions = device.photoResolutions();
    for (auto mode : {QCamera::FocusModeAuto, QCamera::FocusModeManual}) {
        if (camera.isFocusModeSupported(mode)) {
            d.focusModes.append(mode);
        }
    }
    for (auto mode : {QCamera::ExposureAuto, QCamera::ExposureManual}) {
        if (camera.isExposureModeSupported(mode)) {
            d.exposureModes.append(mode);
        }
    }
    for (auto mode : {QCamera::FlashOff, QCamera::FlashOn, QCamera::FlashAuto}) {
        if (camera.isFlashModeSupported(mode)) {
            d.flashModes.append(mode);
        }
    }
    for (auto mode : {QCamera::TorchOff, QCamera::TorchOn, QCamera::TorchAuto}) {
        if (camera.isTorchModeSupported(mode)) {
            d.torchModes.append(mode);
        }
    }
    d.whiteBalanceAuto = camera.isWhiteBalanceModeSupported(QCamera::WhiteBalanceAuto);
    d.features = camera.supportedFeatures();
    return d;
}

namespace qt_camera {

int positionFrom(QCameraDevice::Position position) {
    switch (position) {
        case QCameraDevice::BackFace:
            return device_position::kBack;
        case QCameraDevice::FrontFace:
            return device_position::kFront;
        case QCameraDevice::UnspecifiedPosition:
            break;
    }
    return device_position::kUnspecified;
}

QStringList sessionPresetsFor(const QList<QSize>& videoResolutions, const QSize& stillSize) {
    static const std::array<std::pair<QString, QSize>, 4> kFixed = {{
        {session_preset::k3840x2160, QSize(3840, 2160)},
        {session_preset::k1920x1080, QSize(1920, 1080)},
        {session_preset::k1280x720, QSize(1280, 720)},
        {session_preset::kiFrame960x540, QSize(960, 540)},
    }};
    QStringList presets;
    if (!stillSize.isEmpty()) {
        presets.append(session_preset::kPhoto);
    }
    for (const auto& [preset, size] : kFixed) {
        if (videoResolutions.contains(size)) {
            presets.append(preset);
        }
    }
    return presets;
}

QSize stillSizeFor(const QList<QSize>& photoResolutions, const QList<QSize>& videoResolutions) {
    const QSize photo = largest(photoResolutions);
    return photo.isEmpty() ? largest(videoResolutions) : photo;
}

CaptureDeviceCapabilities capabilitiesFor(const QtCameraDescription& d) {
    CaptureDeviceCapabilities caps;
    caps.stillImageSize = stillSizeFor(d.photoResolutions, d.videoResolutions);
    caps.sessionPresets = sessionPresetsFor(d.videoResolutions, caps.stillImageSize);
    // Qt's automatic focus and exposure are continuous; a single automatic
    // pass is served by the same mode. Without a manual mode the focus and
    // exposure are still fixed, i.e. locked.
    const bool autoFocus = has(d.focusModes, QCamera::FocusModeAuto);
    if (has(d.focusModes, QCamera::FocusModeManual) || !autoFocus) {
        caps.focusModes.push_back(focus_mode::kLocked);
    }
    if (autoFocus) {
        caps.focusModes.push_back(focus_mode::kAutoFocus);
        caps.focusModes.push_back(focus_mode::kContinuousAutoFocus);
    }
    caps.focusPointOfInterest = d.features.testFlag(QCamera::Feature::CustomFocusPoint);
    const bool autoExposure = has(d.exposureModes, QCamera::ExposureAuto);
    if (has(d.exposureModes, QCamera::ExposureManual) || !autoExposure) {
        caps.exposureModes.push_back(exposure_mode::kLocked);
    }
    if (autoExposure) {
        caps.exposureModes.push_back(exposure_mode::kAutoExpose);
        caps.exposureModes.push_back(exposure_mode::kContinuousAutoExposure);
    }
    caps.exposurePointOfInterest = false;  // Qt offers no exposure point
    for (auto [qt, mode] : {std::pair{QCamera::FlashOff, flash_mode::kOff},
                            std::pair{QCamera::FlashOn, flash_mode::kOn},
                            std::pair{QCamera::FlashAuto, flash_mode::kAuto}}) {
        if (has(d.flashModes, qt)) {
            caps.flashModes.push_back(mode);
        }
    }
    caps.hasFlash = has(d.flashModes, QCamera::FlashOn) || has(d.flashModes, QCamera::FlashAuto);
    for (auto [qt, mode] : {std::pair{QCamera::TorchOff, torch_mode::kOff},
                            std::pair{QCamera::TorchOn, torch_mode::kOn},
                            std::pair{QCamera::TorchAuto, torch_mode::kAuto}}) {
        if (has(d.torchModes, qt)) {
            caps.torchModes.push_back(mode);
        }
    }
    caps.hasTorch = has(d.torchModes, QCamera::TorchOn);
    if (d.whiteBalanceAuto) {
        caps.whiteBalanceModes = {white_balance_mode::kContinuousAutoWhiteBalance};
    }
    return caps;
}

QCamera::FocusMode focusModeFor(int focusMode) {
    return focusMode == focus_mode::kLocked ? QCamera::FocusModeManual : QCamera::FocusModeAuto;
}

QCamera::ExposureMode exposureModeFor(int exposureMode) {
    return exposureMode == exposure_mode::kLocked || exposureMode == exposure_mode::kCustom
               ? QCamera::ExposureManual
               : QCamera::ExposureAuto;
}

QCamera::FlashMode flashModeFor(int flashMode) {
    switch (flashMode) {
        case flash_mode::kOn:
            return QCamera::FlashOn;
        case flash_mode::kAuto:
            return QCamera::FlashAuto;
        default:
            return QCamera::FlashOff;
    }
}

QCamera::TorchMode torchModeFor(int torchMode) {
    switch (torchMode) {
        case torch_mode::kOn:
            return QCamera::TorchOn;
        case torch_mode::kAuto:
            return QCamera::TorchAuto;
        default:
            return QCamera::TorchOff;
    }
}

std::shared_ptr<PixelBuffer> pixelBufferFor(const QVideoFrame& frame, std::uint32_t wanted,
                                            std::shared_ptr<PixelBufferPool>& pool) {
    auto mapped = std::make_shared<MappedFrame>(frame);
    if (!mapped->frame.map(QVideoFrame::ReadOnly)) {
        return nullptr;
    }
    const QVideoFrame& f = mapped->frame;
    const int width = f.width();
    const int height = f.height();
    const auto stride = [&](int plane) { return static_cast<std::size_t>(f.bytesPerLine(plane)); };
    // Wrapping only reads: the const_cast does not lead to a write.
    const auto bits = [&](int plane) { return const_cast<std::uint8_t*>(f.bits(plane)); };
    const auto format = f.pixelFormat();
    if (format == QVideoFrameFormat::Format_BGRA8888 ||
        format == QVideoFrameFormat::Format_BGRX8888) {
        return PixelBuffer::wrapExternal(width, height, pixel_format::k32BGRA,
                                         {{bits(0), stride(0)}}, mapped);
    }
    if (format == QVideoFrameFormat::Format_NV12 &&
        wanted == pixel_format::k420YpCbCr8BiPlanarFullRange) {
        return PixelBuffer::wrapExternal(width, height, wanted,
                                         {{bits(0), stride(0)}, {bits(1), stride(1)}}, mapped);
    }
    if (!pool || pool->attributes().width != width || pool->attributes().height != height) {
        pool = PixelBufferPool::create({width, height, pixel_format::k32BGRA, 8});
    }
    auto buffer = pool ? pool->createPixelBuffer() : nullptr;
    if (!buffer) {
        return nullptr;
    }
    std::uint8_t* out = buffer->planeData(0);
    if (format == QVideoFrameFormat::Format_YUYV) {
        convertYuyvToBgra(f.bits(0), stride(0), out, buffer->bytesPerRow(), width, height);
    } else if (format == QVideoFrameFormat::Format_NV12) {
        convertNv12ToBgra(f.bits(0), stride(0), f.bits(1), stride(1), out, buffer->bytesPerRow(),
                          width, height);
    } else {
        const QImage image = f.toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.size() != QSize(width, height)) {
            return nullptr;
        }
        for (int y = 0; y < height; ++y) {
            std::memcpy(out + buffer->bytesPerRow() * static_cast<std::size_t>(y),
                        image.constScanLine(y), static_cast<std::size_t>(width) * 4);
        }
    }
    return buffer;
}

}  // namespace qt_camera

// Driver -------------------------------------------------------------------------

void QtCameraDriver::LaterDelete::operator()(QObject* object) const {
    if (isMainThread()) {
        delete object;
    } else {
        object->deleteLater();
    }
}

std::shared_ptr<QtCameraDriver> QtCameraDriver::create(const QCameraDevice& device) {
    const QCamera probe(device);
    return create(QtCameraDescription::of(device, probe), device);
}

std::shared_ptr<QtCameraDriver> QtCameraDriver::create(const QtCameraDescription& description,
                                                       const QCameraDevice& device) {
    auto driver = std::make_shared<QtCameraDriver>(Key{}, description, device);
    driver->_self = driver;
    return driver;
}

QtCameraDriver::QtCameraDriver(Key, const QtCameraDescription& description,
                               const QCameraDevice& device)
    : _description(description),
      _device(device),
      _capabilities(qt_camera::capabilitiesFor(description)),
      _queue(DispatchQueue::createSerial("qxd.qtcamera.frames")),
      _context(new QObject) {
    if (auto* app = QCoreApplication::instance()) {
        _context->moveToThread(app->thread());
    }
    _settings = initialSettings();
}

QtCameraDriver::~QtCameraDriver() = default;

void QtCameraDriver::onMain(std::function<void(QtCameraDriver&)> task) {
    QMetaObject::invokeMethod(_context.get(), [weak = _self, task = std::move(task)] {
        if (auto driver = weak.lock()) {
            task(*driver);
        }
    });
}

void QtCameraDriver::handleCameraError(const QString& message) {
    if (_connected.exchange(false)) {
        reportDisconnection(
            avError(av_error::kDeviceWasDisconnected,
                    message.isEmpty() ? QStringLiteral("The device was disconnected.") : message));
    }
}

void QtCameraDriver::handleVideoInputsChanged(const QList<QCameraDevice>& inputs) {
    const bool present = std::any_of(inputs.begin(), inputs.end(), [&](const QCameraDevice& in) {
        return QString::fromUtf8(in.id()) == _description.id;
    });
    if (!present) {
        handleCameraError({});
    }
}

void QtCameraDriver::ensureCamera() {
    if (_camera != nullptr || _device.isNull()) {
        return;
    }
    QObject* context = _context.get();
    _camera = new QCamera(_device, context);
    _session = new QMediaCaptureSession(context);
    _videoSink = new QVideoSink(context);
    _imageCapture = new QImageCapture(context);
    _mediaDevices = new QMediaDevices(context);
    _session->setCamera(_camera);
    _session->setVideoSink(_videoSink);
    _session->setImageCapture(_imageCapture);
    const std::weak_ptr<QtCameraDriver> weak = _self;
    QObject::connect(_camera, &QCamera::errorOccurred, context,
                     [weak](QCamera::Error, const QString& message) {
                         if (auto driver = weak.lock()) {
                             driver->handleCameraError(message);
                         }
                     });
    QObject::connect(_mediaDevices, &QMediaDevices::videoInputsChanged, context, [weak] {
        if (auto driver = weak.lock()) {
            driver->handleVideoInputsChanged(QMediaDevices::videoInputs());
        }
    });
    // Direct: the frame is handed to the delivery queue from whichever thread
    // the backend produces it on, without a detour through the GUI thread.
    QObject::connect(
        _videoSink, &QVideoSink::videoFrameChanged, context,
        [weak](const QVideoFrame& frame) {
            if (auto driver = weak.lock()) {
                driver->handleVideoFrame(frame);
            }
        },
        Qt::DirectConnection);
    QObject::connect(_imageCapture, &QImageCapture::readyForCaptureChanged, context,
                     [weak](bool ready) {
                         if (auto driver = weak.lock(); driver && ready) {
                             driver->startStillCaptures();
                         }
                     });
    QObject::connect(
        _imageCapture, &QImageCapture::imageCaptured, context, [weak](int id, const QImage& image) {
            if (auto driver = weak.lock()) {
                QImage sized = image;
                if (!driver->_stillSize.isEmpty() && image.size() != driver->_stillSize) {
                    sized = image.scaled(driver->_stillSize, Qt::IgnoreAspectRatio,
                                         Qt::SmoothTransformation);
                }
                auto buffer = bufferFromImage(sized);
                StillResult result;
                if (buffer) {
                    result.sampleBuffer = std::make_shared<const SampleBuffer>(buffer, MediaTime{});
                } else {
                    result.error =
                        avError(av_error::kUnknown, QStringLiteral("Empty still image."));
                }
                driver->finishStill(id, std::move(result));
            }
        });
    QObject::connect(
        _imageCapture, &QImageCapture::errorOccurred, context,
        [weak](int id, QImageCapture::Error, const QString& message) {
            if (auto driver = weak.lock()) {
                driver->finishStill(id, {nullptr, avError(av_error::kUnknown, message)});
            }
        });
    applyToCamera();
}

void QtCameraDriver::applyToCamera() {
    if (_camera == nullptr) {
        return;
    }
    CaptureDeviceSettings s;
    {
        std::lock_guard lock(_mutex);
        s = _settings;
    }
    const auto focus = qt_camera::focusModeFor(s.focusMode);
    if (_camera->isFocusModeSupported(focus)) {
        _camera->setFocusMode(focus);
    }
    if (_capabilities.focusPointOfInterest) {
        _camera->setCustomFocusPoint(s.focusPointOfInterest);
    }
    const auto exposure = qt_camera::exposureModeFor(s.exposureMode);
    if (_camera->isExposureModeSupported(exposure)) {
        _camera->setExposureMode(exposure);
    }
    if (_camera->isFlashModeSupported(qt_camera::flashModeFor(s.flashMode))) {
        _camera->setFlashMode(qt_camera::flashModeFor(s.flashMode));
    }
    if (_camera->isTorchModeSupported(qt_camera::torchModeFor(s.torchMode))) {
        _camera->setTorchMode(qt_camera::torchModeFor(s.torchMode));
    }
}

void QtCameraDriver::applySettings(const CaptureDeviceSettings& settings) {
    {
        std::lock_guard lock(_mutex);
        _settings = settings;
    }
    onMain([](QtCameraDriver& driver) { driver.applyToCamera(); });
}

ErrorPtr QtCameraDriver::startStreaming(std::shared_ptr<CaptureStreamSink> sink) {
    if (!isConnected()) {
        return avError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"));
    }
    {
        std::lock_guard lock(_mutex);
        if (_sink) {
            return avError(av_error::kDeviceAlreadyUsedByAnotherSession,
                           QStringLiteral("The device is already streaming to another session."));
        }
        _sink = std::move(sink);
    }
    onMain([](QtCameraDriver& driver) {
        driver.ensureCamera();
        if (driver._camera != nullptr) {
            driver._camera->start();
        }
    });
    return nullptr;
}

void QtCameraDriver::stopStreaming() {
    {
        std::lock_guard lock(_mutex);
        _sink.reset();
        _requestedSize = {};
    }
    // Waits for a delivery in progress, which holds its own sink reference.
    _queue->sync([] {});
    onMain([](QtCameraDriver& driver) {
        if (driver._camera != nullptr && driver._pendingStills.empty() &&
            driver._waitingStills.empty()) {
            driver._camera->stop();
        }
    });
}

void QtCameraDriver::requestSize(const QSize& size) {
    {
        std::lock_guard lock(_mutex);
        if (_requestedSize == size) {
            return;
        }
        _requestedSize = size;
    }
    onMain([size](QtCameraDriver& driver) {
        if (driver._camera == nullptr) {
            return;
        }
        QCameraFormat best;
        for (const QCameraFormat& format : driver._device.videoFormats()) {
            if (format.resolution() == size &&
                (best.isNull() || format.maxFrameRate() > best.maxFrameRate())) {
                best = format;
            }
        }
        if (!best.isNull()) {
            driver._camera->setCameraFormat(best);
        }
    });
}

void QtCameraDriver::handleVideoFrame(const QVideoFrame& frame) {
    if (!frame.isValid() || _framesInFlight.load() >= kMaxFramesInFlight) {
        return;
    }
    ++_framesInFlight;
    _queue->async([weak = _self, frame] {
        if (auto driver = weak.lock()) {
            driver->deliver(frame);
            --driver->_framesInFlight;
        }
    });
}

void QtCameraDriver::deliver(const QVideoFrame& frame) {
    std::shared_ptr<CaptureStreamSink> sink;
    {
        std::lock_guard lock(_mutex);
        sink = _sink;
    }
    if (!sink || !isConnected()) {
        return;
    }
    FrameLayout layout = sink->nextFrameLayout();
    if (layout.sensorSize.isEmpty()) {
        return;
    }
    if (layout.sensorSize != frame.size()) {
        requestSize(layout.sensorSize);
    }
    std::shared_ptr<PixelBuffer> buffer;
    {
        std::lock_guard lock(_mutex);
        buffer = qt_camera::pixelBufferFor(frame, layout.pixelFormat, _pool);
    }
    if (!buffer) {
        return;
    }
    layout.sensorSize = frame.size();
    layout.pixelFormat = buffer->pixelFormatType();
    const MediaTime time{std::max<qint64>(0, frame.startTime()), 1000000};
    sink->streamDidOutputSampleBuffer(std::make_shared<const SampleBuffer>(buffer, time), layout);
}

void QtCameraDriver::startStillCaptures() {
    if (_imageCapture == nullptr || !_imageCapture->isReadyForCapture()) {
        return;
    }
    for (auto& promise : std::exchange(_waitingStills, {})) {
        const int id = _imageCapture->capture();
        if (id < 0) {
            promise->set_value(
                {nullptr, avError(av_error::kUnknown, _imageCapture->errorString())});
        } else {
            _pendingStills[id] = std::move(promise);
        }
    }
}

void QtCameraDriver::finishStill(int id, StillResult result) {
    const auto found = _pendingStills.find(id);
    if (found == _pendingStills.end()) {
        return;
    }
    found->second->set_value(std::move(result));
    _pendingStills.erase(found);
}

StillResult QtCameraDriver::captureStill(const StillRequest& request) {
    if (!isConnected() || _device.isNull()) {
        return {nullptr, avError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"))};
    }
    auto promise = std::make_shared<std::promise<StillResult>>();
    auto future = promise->get_future();
    const QSize size = request.layout.size();
    onMain([promise, size](QtCameraDriver& driver) {
        driver.ensureCamera();
        driver._stillSize = size;
        driver._waitingStills.push_back(promise);
        if (!driver._camera->isActive()) {
            driver._camera->start();
        }
        driver.startStillCaptures();
    });
    if (future.wait_for(kStillTimeout) != std::future_status::ready) {
        return {nullptr, avError(av_error::kUnknown, QStringLiteral("The still timed out."))};
    }
    try {
        return future.get();
    } catch (const std::future_error&) {
        // The driver went away with the request still waiting.
        return {nullptr, avError(av_error::kDeviceWasDisconnected,
                                 QStringLiteral("The device was disconnected."))};
    }
}

}  // namespace platform
