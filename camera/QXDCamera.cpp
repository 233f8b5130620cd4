#include "QXDCamera.h"

#include "QXDCameraCore.h"

#include "platform/capture/CaptureConnection.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/BitmapContext.h"

#include <QVariantList>

using platform::CaptureDevice;
using platform::ErrorPtr;

namespace {

constexpr int kBack = platform::device_position::kBack;
constexpr int kFront = platform::device_position::kFront;
constexpr int kErrorCodeOther = 404;

// BGRA in 32-bit little-endian words with premultiplied alpha first.
constexpr std::uint32_t kBGRABitmapInfo =
    platform::bitmap::kByteOrder32Little | platform::bitmap::kAlphaPremultipliedFirst;

// Wraps a locked pixel buffer as an image without copying: the image keeps
// the buffer alive for as long as a receiver keeps the image.
QImage wrapBuffer(const platform::PixelBuffer& buffer, bool lumaOnly) {
    const std::size_t plane = 0;
    void* base = lumaOnly ? buffer.baseAddressOfPlane(plane) : buffer.baseAddress();
    const std::size_t width = lumaOnly ? buffer.widthOfPlane(plane) : buffer.width();
    const std::size_t height = lumaOnly ? buffer.heightOfPlane(plane) : buffer.height();
    const std::size_t bytesPerRow =
        lumaOnly ? buffer.bytesPerRowOfPlane(plane) : buffer.bytesPerRow();
    // The grey path asks for one bit a component, as the engine always has;
    // the bitmap rules decide what comes of it.
    const auto context =
        lumaOnly ? platform::BitmapContext::create(base, width, height, 1, bytesPerRow,
                                                   platform::ColorSpace::DeviceGray,
                                                   platform::bitmap::kAlphaNone, buffer.owner())
                 : platform::BitmapContext::create(base, width, height, 8, bytesPerRow,
                                                   platform::ColorSpace::DeviceRGB, kBGRABitmapInfo,
                                                   buffer.owner());
    return context ? context->makeImage() : QImage();
}

}  // namespace

// --- Construction -------------------------------------------------------------

std::shared_ptr<QXDCamera> QXDCamera::create() {
    std::shared_ptr<QXDCamera> camera(new QXDCamera());
    camera->init();
    return handOut(std::move(camera));
}

std::shared_ptr<QXDCamera> QXDCamera::create(
    const std::shared_ptr<platform::VideoPreviewLayer>& videoPreviewLayer,
    int captureDevicePosition, bool allowsHighResolution,
    const std::weak_ptr<QXDCameraDelegate>& delegate) {
    std::shared_ptr<QXDCamera> camera(new QXDCamera());
    camera->init();
    camera->initWithVideoPreviewLayer(videoPreviewLayer, captureDevicePosition,
                                      allowsHighResolution, delegate);
    return handOut(std::move(camera));
}

void QXDCamera::init() {
    _devicePosition = kBack;
    _videoOrientation = platform::video_orientation::kPortrait;
    _running = false;
    auto& device = platform::Device::current();
    _currentDeviceOrientation = device.orientation();

    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    platform::NotificationCenter::defaultCenter().addObserver(
        this, platform::kDeviceOrientationDidChangeNotification, nullptr,
        [weakSelf](const platform::Notification& notification) {
            if (auto self = live(weakSelf)) {
                self->deviceOrientationDidChange(notification);
            }
        });
    device.beginGeneratingDeviceOrientationNotifications();

    // The raw device orientation is kept as the video orientation, out-of-
    // range values (flat, unknown) included.
    _videoOrientation = _currentDeviceOrientation;

    _captureSessionQueue = platform::DispatchQueue::createSerial(QXDCameraCaptureSessionQueueLabel);
    _stillImageOutputQueue =
        platform::DispatchQueue::createSerial(QXDCameraStillImageOutputQueueLabel);
    _videoDataOutputQueue =
        platform::DispatchQueue::createSerial(QXDCameraVideoDataOutputQueueLabel);
}

void QXDCamera::initWithVideoPreviewLayer(const std::shared_ptr<platform::VideoPreviewLayer>& layer,
                                          int position, bool allowsHighResolution,
                                          const std::weak_ptr<QXDCameraDelegate>& delegate) {
    _delegate = delegate;
    _videoPreviewLayer = layer;
    _devicePosition = position;
    _allowsHighResolution = allowsHighResolution;

    if (platform::CameraAvailability::isCameraSourceAvailable()) {
        _captureSession = platform::CaptureSession::create();
        observeSessionFailures();
        setupCaptureSession();
    }

    if (_videoPreviewLayer) {
        _videoPreviewLayer->setSession(_captureSession);
        if (auto connection = _videoPreviewLayer->connection()) {
            connection->setVideoOrientation(static_cast<int>(videoOrientation()));
            if (connection->isVideoOrientationSupported()) {
                const int status = platform::Application::shared().statusBarOrientation();
                const bool passes = status == 2 || status == 3 || status == 4;
                connection->setVideoOrientation(passes ? status
                                                       : platform::video_orientation::kPortrait);
            }
        }
    }
}

QXDCamera::~QXDCamera() {
    tearDown();
}

// --- Session assembly ---------------------------------------------------------

void QXDCamera::setupCaptureSession() {
    createCaptureDevice();
    createCaptureOutput();
}

std::shared_ptr<CaptureDevice> QXDCamera::cameraWithDevicePosition(int position) {
    for (const auto& device : CaptureDevice::devicesWithMediaType(platform::kMediaTypeVideo)) {
        if (device->position() == position) {
            return device;
        }
    }
    return nullptr;
}

void QXDCamera::createCaptureDevice() {
    const auto session = _captureSession;
    std::shared_ptr<CaptureDevice> device;
    if (session) {
        session->beginConfiguration();
        for (const auto& input : session->inputs()) {
            session->removeInput(input);
        }
    }
    device = cameraWithDevicePosition(_devicePosition);
    if (session) {
        session->commitConfiguration();
    }

    ErrorPtr error;
    _deviceInput = platform::CaptureDeviceInput::create(device, &error);
    setupSessionPreset();

    bool failed = false;
    if (_deviceInput && session && session->canAddInput(_deviceInput)) {
        session->beginConfiguration();
        session->addInput(_deviceInput);
        session->commitConfiguration();
        const auto& inputDevice = _deviceInput->device();
        if (inputDevice->isFocusModeSupported(platform::focus_mode::kContinuousAutoFocus)) {
            if (inputDevice->lockForConfiguration(&error)) {
                inputDevice->setFocusMode(platform::focus_mode::kContinuousAutoFocus);
                inputDevice->unlockForConfiguration();
            } else {
                failed = true;
            }
        }
    } else {
        failed = true;
        if (_deviceInput && _devicePosition == kFront) {
            // One fall-back to the back camera; it is not retried itself.
            _devicePosition = kBack;
            setupCaptureSession();
        }
    }
    if (failed) {
        reportError(error);
    }
}

void QXDCamera::setupSessionPreset() {
    namespace preset = platform::session_preset;
    const auto device = _deviceInput ? _deviceInput->device() : nullptr;
    auto supports = [&](const QString& name) {
        return device && device->supportsAVCaptureSessionPreset(name);
    };
    QString chosen;
    if (supports(preset::k3840x2160) && _allowsHighResolution) {
        chosen = preset::k3840x2160;
    } else if (supports(preset::k1920x1080)) {
        chosen = preset::k1920x1080;
    } else if (supports(preset::k1280x720)) {
        chosen = preset::k1280x720;
    } else if (supports(preset::kiFrame960x540)) {
        chosen = preset::kiFrame960x540;
    } else {
        chosen = preset::kPhoto;
    }
    if (_captureSession) {
        _captureSession->setSessionPreset(chosen);
    }
    QXD_LOG(QStringLiteral("Session preset set: ") + chosen);
}

void QXDCamera::createCaptureOutput() {
    if (const auto session = _captureSession) {
        for (const auto& output : session->outputs()) {
            session->removeOutput(output);
        }
    }
    createVideoDataOutput();
    createStillImageOutput();
}

void QXDCamera::createVideoDataOutput() {
    _videoDataOutput = platform::VideoDataOutput::create();
    if (!_videoDataOutput) {
        return;
    }
    _videoDataOutput->setAlwaysDiscardsLateVideoFrames(true);
    _videoDataOutput->setSampleBufferDelegate(
        std::static_pointer_cast<platform::VideoDataOutputDelegate>(shared_from_this()),
        _videoDataOutputQueue);
    const std::uint32_t format = _grayscaleMode
                                     ? platform::pixel_format::k420YpCbCr8BiPlanarFullRange
                                     : platform::pixel_format::k32BGRA;
    _videoDataOutput->setVideoSettings(
        {{platform::kPixelBufferPixelFormatTypeKey, QVariant::fromValue<uint>(format)}});

    const auto session = _captureSession;
    const bool running = session && session->isRunning();
    if (running) {
        session->beginConfiguration();
    }
    if (session && session->canAddOutput(_videoDataOutput)) {
        session->addOutput(_videoDataOutput);
    }
    if (running) {
        session->commitConfiguration();
    }

    if (auto connection = _videoDataOutput->connectionWithMediaType(platform::kMediaTypeVideo)) {
        connection->setEnabled(true);
        if (connection->isVideoOrientationSupported()) {
            connection->setVideoOrientation(static_cast<int>(videoOrientation()));
        }
        if (connection->isVideoMirroringSupported()) {
            connection->setVideoMirrored(_devicePosition == kFront);
        }
        if (connection->isVideoStabilizationSupported()) {
            connection->setPreferredVideoStabilizationMode(
                _videoStabilizationEnableWhenAvailable
                    ? platform::video_stabilization_mode::kStandard
                    : platform::video_stabilization_mode::kOff);
        }
    }
}

void QXDCamera::createStillImageOutput() {
    _stillImageOutput = platform::StillImageOutput::create();
    if (!_stillImageOutput) {
        return;
    }
    const auto session = _captureSession;
    const bool running = session && session->isRunning();
    if (running) {
        session->beginConfiguration();
    }
    if (session && session->canAddOutput(_stillImageOutput)) {
        session->addOutput(_stillImageOutput);
    }
    if (running) {
        session->commitConfiguration();
    }
}

void QXDCamera::teardownCaptureSession() {
    if (const auto session = _captureSession) {
        if (session->isRunning()) {
            session->stopRunning();
        }
        for (const auto& input : session->inputs()) {
            session->removeInput(input);
        }
        _deviceInput.reset();
        for (const auto& output : session->outputs()) {
            session->removeOutput(output);
        }
    }
    _deviceInput.reset();
    _videoDataOutput.reset();
    _captureSession.reset();
}

// --- Start, stop, switch, presets ---------------------------------------------

void QXDCamera::start() {
    if (_running) {
        return;
    }
    _running = true;
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    _captureSessionQueue->async([weakSelf] {
        auto self = live(weakSelf);
        if (self && self->_captureSession && !self->_captureSession->isRunning() &&
            self->reattachCameraIfLost()) {
            self->_captureSession->startRunning();
        }
    });
    armStallWatch();
}

void QXDCamera::stop() {
    if (!_running) {
        return;
    }
    _running = false;
    if (_stallTimer) {
        _stallTimer->invalidate();
        _stallTimer.reset();
    }
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    _captureSessionQueue->async([weakSelf] {
        auto self = live(weakSelf);
        if (self && self->_captureSession && self->_captureSession->isRunning()) {
            self->_captureSession->stopRunning();
        }
    });
}

void QXDCamera::setDevicePosition(int position) {
    auto semaphore = std::make_shared<platform::Semaphore>(0);
    _devicePosition = position;
    if (_running) {
        std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
        _captureSessionQueue->async([weakSelf, semaphore] {
            auto self = live(weakSelf);
            if (!self) {
                return;
            }
            if (self->_captureSession) {
                self->_captureSession->stopRunning();
            }
            self->createCaptureDevice();
            self->createCaptureOutput();
            if (self->_captureSession) {
                self->_captureSession->startRunning();
            }
            semaphore->signal();
        });
    }
    // Deliberately unconditional: the owner only switches a running camera.
    semaphore->wait();
}

QString QXDCamera::sessionPreset() const {
    return _captureSession ? _captureSession->sessionPreset() : QString();
}

void QXDCamera::setSessionPreset(const QString& preset) {
    const auto session = _captureSession;
    if (!session || !session->canSetSessionPreset(preset)) {
        return;
    }
    if (session->isRunning()) {
        std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
        _captureSessionQueue->async([weakSelf, preset] {
            auto self = live(weakSelf);
            if (!self || !self->_captureSession) {
                return;
            }
            self->_captureSession->beginConfiguration();
            self->_captureSession->setSessionPreset(preset);
            self->_captureSession->commitConfiguration();
        });
    } else {
        session->setSessionPreset(preset);
    }
}

bool QXDCamera::canSetSessionPreset(const QString& preset) const {
    return _captureSession && _captureSession->canSetSessionPreset(preset);
}

// --- Frames -------------------------------------------------------------------

void QXDCamera::captureOutputDidOutputSampleBuffer(
    const std::shared_ptr<platform::CaptureOutput>& /*output*/,
    const platform::SampleBufferPtr& sampleBuffer,
    const std::shared_ptr<platform::CaptureConnection>& /*connection*/) {
    noteFrameArrival();
    const auto receiver = _delegate.lock();
    if (!receiver || !sampleBuffer || _released.load()) {
        return;
    }
    const auto& buffer = sampleBuffer->imageBuffer();
    if (!buffer) {
        count(Count::FramesDroppedNoImageBuffer);
        return;
    }
    if (buffer->lockBaseAddress(0) != platform::cv_return::kSuccess) {
        count(Count::FramesDroppedLockRefused);
        return;
    }
    const std::uint32_t format = buffer->pixelFormatType();
    bool lumaOnly = false;
    if (format == platform::pixel_format::k420YpCbCr8BiPlanarFullRange) {
        lumaOnly = true;
    } else if (format != platform::pixel_format::k32BGRA) {
        buffer->unlockBaseAddress(0);
        count(Count::FramesDroppedUnsupportedFormat);
        return;
    }
    {
        const QImage image = wrapBuffer(*buffer, lumaOnly);
        receiver->cameraDidCaptureVideoSample(*this, image);
    }
    count(Count::FramesDelivered);
    buffer->unlockBaseAddress(0);
}

void QXDCamera::captureOutputDidDropSampleBuffer(
    const std::shared_ptr<platform::CaptureOutput>& /*output*/,
    const platform::SampleBufferPtr& sampleBuffer,
    const std::shared_ptr<platform::CaptureConnection>& /*connection*/) {
    // Silent to the delegate; counted.
    noteFrameArrival();
    const auto reason =
        sampleBuffer ? sampleBuffer->droppedFrameReason() : platform::DroppedFrameReason::None;
    count(reason == platform::DroppedFrameReason::OutOfBuffers ? Count::FramesDroppedNoBuffer
                                                               : Count::FramesDroppedLate);
}

// --- Stills -------------------------------------------------------------------

void QXDCamera::takePicture() {
    if (!_running) {
        return;
    }
    const auto output = _stillImageOutput;
    if (!output || output->isCapturingStillImage()) {
        return;
    }
    std::shared_ptr<platform::CaptureConnection> videoConnection;
    for (const auto& connection : output->connections()) {
        for (const auto& port : connection->inputPorts()) {
            if (port->mediaType() == platform::kMediaTypeVideo) {
                videoConnection = connection;
                break;
            }
        }
        if (videoConnection) {
            break;
        }
    }
    if (videoConnection) {
        videoConnection->setVideoOrientation(static_cast<int>(
            avOrientationForDeviceOrientation(platform::Device::current().orientation())));
        videoConnection->setVideoScaleAndCropFactor(1.0);
    }
    output->setOutputSettings({{platform::kPixelBufferPixelFormatTypeKey,
                                QVariant::fromValue<uint>(platform::pixel_format::k32BGRA)}});
    if (output->isStillImageStabilizationSupported()) {
        output->setAutomaticallyEnablesStillImageStabilizationWhenAvailable(
            _stillImageStabilizationEnableWhenAvailable);
    }

    count(Count::StillsRequested);
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    // The queue is taken now: a release tears the engine's members down on
    // its owner's thread while this completion may still be running.
    output->captureStillImageAsynchronously(
        videoConnection, [weakSelf, stillQueue = _stillImageOutputQueue](
                             const platform::SampleBufferPtr& sample, const ErrorPtr& error) {
            // An engine its owner has let go of delivers nothing more.
            auto self = live(weakSelf);
            if (!self) {
                return;
            }
            const auto receiver = self->_delegate.lock();
            auto fail = [&](const QString& description, const ErrorPtr& underlying) {
                self->count(Count::StillsFailed);
                if (!receiver) {
                    return;
                }
                QVariantMap info{
                    {QString::fromLatin1(platform::kLocalizedDescriptionKey), description}};
                if (underlying) {
                    info.insert(QString::fromLatin1(platform::kUnderlyingErrorKey),
                                QVariant::fromValue(underlying));
                }
                receiver->cameraDidFailWithError(
                    *self, platform::Error::make(QXDCameraErrorDomain, kErrorCodeOther, info));
            };
            if (error) {
                fail(QStringLiteral("Failed to capture still image."), error);
                return;
            }
            if (!sample) {
                fail(QStringLiteral("Operation could not be completed: buffer is empty."), nullptr);
                return;
            }
            const auto& buffer = sample->imageBuffer();
            if (!buffer) {
                fail(QStringLiteral("Operation could not be completed: incompatible buffer type."),
                     nullptr);
                return;
            }
            if (buffer->lockBaseAddress(0) != platform::cv_return::kSuccess) {
                fail(QStringLiteral("Operation could not be completed: unable to lock buffer."),
                     nullptr);
                return;
            }
            (void)buffer->pixelFormatType();
            {
                const QImage image = wrapBuffer(*buffer, false);
                stillQueue->sync([&] {
                    if (self->_released.load()) {
                        return;
                    }
                    self->count(Count::StillsCompleted);
                    if (receiver) {
                        receiver->cameraDidCaptureStillImage(*self, image);
                    }
                });
            }
            buffer->unlockBaseAddress(0);
        });
}

// --- Orientation ----------------------------------------------------------------

long QXDCamera::avOrientationForDeviceOrientation(long deviceOrientation) {
    return deviceOrientation;
}

QString QXDCamera::deviceOrientationString(long deviceOrientation) {
    switch (deviceOrientation) {
        case 1:
            return QStringLiteral("UIInterfaceOrientationPortrait");
        case 2:
            return QStringLiteral("UIInterfaceOrientationPortraitUpsideDown");
        case 3:
            return QStringLiteral("UIInterfaceOrientationLandscapeLeft");
        case 4:
            return QStringLiteral("UIInterfaceOrientationLandscapeRight");
        default:
            return QStringLiteral("Invalid Interface Orientation");
    }
}

void QXDCamera::deviceOrientationDidChange(const platform::Notification& /*notification*/) {
    const auto layer = _videoPreviewLayer;
    const auto connection = layer ? layer->connection() : nullptr;
    if (!connection || !connection->isVideoOrientationSupported()) {
        return;
    }
    const long orientation = platform::Device::current().orientation();
    const QVariant supported = platform::Bundle::mainBundle()->objectForInfoDictionaryKey(
        QStringLiteral("UISupportedInterfaceOrientations"));
    const QStringList listed = supported.toStringList();
    if (supported.metaType().id() == QMetaType::QVariantList ||
        supported.metaType().id() == QMetaType::QStringList) {
        if (listed.contains(deviceOrientationString(orientation)) && orientation >= 1 &&
            orientation <= 4) {
            connection->setVideoOrientation(static_cast<int>(orientation));
        }
    }
}

void QXDCamera::setVideoOrientation(long orientation) {
    _videoOrientation = orientation;
    if (_videoDataOutput) {
        if (auto connection =
                _videoDataOutput->connectionWithMediaType(platform::kMediaTypeVideo)) {
            connection->setVideoOrientation(static_cast<int>(orientation));
        }
    }
    if (_videoPreviewLayer) {
        if (auto connection = _videoPreviewLayer->connection()) {
            connection->setVideoOrientation(static_cast<int>(orientation));
        }
    }
}
