#include "platform/capture/QtCameraDriver.h"

#include "platform/foundation/Dispatch.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <chrono>
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

bool isMainThread() {
    auto* app = QCoreApplication::instance();
    return app != nullptr && QThread::currentThread() == app->thread();
}

}  // namespace

void QtCameraDriver::LaterDelete::operator()(QObject* object) const {
    if (isMainThread()) {
        delete object;
    } else {
        object->deleteLater();
    }
}

void QtCameraDriver::ControlDelete::operator()(QtCameraControl* control) const {
    auto* app = QCoreApplication::instance();
    if (isMainThread() || app == nullptr) {
        delete control;
    } else {
        QMetaObject::invokeMethod(app, [control] { delete control; });
    }
}

std::shared_ptr<QtCameraDriver> QtCameraDriver::create(const QtCameraDescription& description,
                                                       std::shared_ptr<QtCameraBackend> backend) {
    auto driver = std::make_shared<QtCameraDriver>(Key{}, description, std::move(backend));
    driver->_self = driver;
    return driver;
}

QtCameraDriver::QtCameraDriver(Key, const QtCameraDescription& description,
                               std::shared_ptr<QtCameraBackend> backend)
    : _description(description),
      _backend(std::move(backend)),
      _capabilities(qt_camera::capabilitiesFor(description)),
      _position(qt_camera::positionFrom(description.position)),
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

void QtCameraDriver::setObserver(std::shared_ptr<QtCameraObserver> observer) {
    std::lock_guard lock(_mutex);
    _observer = std::move(observer);
}

void QtCameraDriver::handleCameraError(const QString& message) {
    std::shared_ptr<QtCameraObserver> observer;
    {
        std::lock_guard lock(_mutex);
        observer = _observer;
    }
    if (!_connected.exchange(false)) {
        return;
    }
    const QString text =
        message.isEmpty() ? QStringLiteral("The device was disconnected.") : message;
    if (observer) {
        observer->cameraDidFail(text);
    }
    reportDisconnection(avError(av_error::kDeviceWasDisconnected, text));
    // Stills waiting for a camera that is gone end now rather than at their
    // timeout.
    onMain([](QtCameraDriver& driver) {
        for (auto& still : std::exchange(driver._waitingStills, {})) {
            still.promise->set_value({nullptr, avError(av_error::kDeviceWasDisconnected,
                                                       QStringLiteral("Cannot Record"))});
        }
        for (auto& [id, still] : std::exchange(driver._pendingStills, {})) {
            still.promise->set_value({nullptr, avError(av_error::kDeviceWasDisconnected,
                                                       QStringLiteral("Cannot Record"))});
        }
        driver.stopWhenIdle();
    });
}

void QtCameraDriver::handleVideoInputsChanged(const QStringList& ids) {
    if (!ids.contains(_description.id)) {
        handleCameraError({});
    }
}

bool QtCameraDriver::ensureCamera() {
    if (_control) {
        return true;
    }
    if (!_backend) {
        return false;
    }
    _control.reset(_backend->open(_description.id).release());
    if (!_control) {
        return false;
    }
    const std::weak_ptr<QtCameraDriver> weak = _self;
    QtCameraControl::Events events;
    events.frame = [weak](const QVideoFrame& frame) {
        if (auto driver = weak.lock()) {
            driver->handleVideoFrame(frame);
        }
    };
    events.error = [weak](const QString& message) {
        if (auto driver = weak.lock()) {
            driver->handleCameraError(message);
        }
    };
    events.readyForCapture = [weak] {
        if (auto driver = weak.lock()) {
            driver->startStillCaptures();
        }
    };
    events.stillCaptured = [weak](int id, const QImage& image) {
        auto driver = weak.lock();
        if (!driver) {
            return;
        }
        const auto found = driver->_pendingStills.find(id);
        if (found == driver->_pendingStills.end()) {
            return;
        }
        StillResult result;
        if (auto buffer = qt_camera::stillBufferFor(image, found->second.layout)) {
            result.sampleBuffer = std::make_shared<const SampleBuffer>(buffer, MediaTime{});
        } else {
            result.error = avError(av_error::kUnknown, QStringLiteral("Empty still image."));
        }
        driver->finishStill(id, std::move(result));
    };
    events.stillFailed = [weak](int id, const QString& message) {
        if (auto driver = weak.lock()) {
            driver->finishStill(id, {nullptr, avError(av_error::kUnknown, message)});
        }
    };
    _control->setEvents(std::move(events));
    CaptureDeviceSettings settings;
    {
        std::lock_guard lock(_mutex);
        settings = _settings;
    }
    _control->applySettings(settings);
    return true;
}

void QtCameraDriver::applySettings(const CaptureDeviceSettings& settings) {
    {
        std::lock_guard lock(_mutex);
        _settings = settings;
    }
    onMain([settings](QtCameraDriver& driver) {
        if (driver._control) {
            driver._control->applySettings(settings);
        }
    });
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
        _sink = sink;
    }
    // The camera starts in the format the first frame wants, rather than
    // switching after it.
    const FrameLayout layout = sink->nextFrameLayout();
    const QtCameraFormat format =
        qt_camera::formatFor(_description.videoFormats, layout.sensorSize, layout.pixelFormat);
    if (!format.resolution.isEmpty()) {
        std::lock_guard lock(_mutex);
        _requestedSize = layout.sensorSize;
        _requestedFormat = layout.pixelFormat;
    }
    onMain([format](QtCameraDriver& driver) {
        driver._streaming = true;
        if (driver.isConnected() && driver.ensureCamera()) {
            if (!format.resolution.isEmpty()) {
                driver._control->setFormat(format);
            }
            driver._control->start();
        }
    });
    return nullptr;
}

void QtCameraDriver::stopStreaming() {
    {
        std::lock_guard lock(_mutex);
        _sink.reset();
        _requestedSize = {};
        _requestedFormat = 0;
    }
    // Waits for a delivery in progress, which holds its own sink reference.
    _queue->sync([] {});
    {
        std::lock_guard lock(_mutex);
        _streamSize = {};
    }
    onMain([](QtCameraDriver& driver) {
        driver._streaming = false;
        driver.stopWhenIdle();
    });
}

// Main thread. A still in progress keeps the camera running; the last one to
// finish stops it.
void QtCameraDriver::stopWhenIdle() {
    if (_control && !_streaming && _pendingStills.empty() && _waitingStills.empty() &&
        _control->isActive()) {
        _control->stop();
    }
}

void QtCameraDriver::requestFormat(const QSize& size, std::uint32_t pixelFormat) {
    {
        std::lock_guard lock(_mutex);
        if (_requestedSize == size && _requestedFormat == pixelFormat) {
            return;
        }
        _requestedSize = size;
        _requestedFormat = pixelFormat;
    }
    const QtCameraFormat format =
        qt_camera::formatFor(_description.videoFormats, size, pixelFormat);
    if (format.resolution.isEmpty()) {
        return;
    }
    onMain([format](QtCameraDriver& driver) {
        if (driver._control) {
            driver._control->setFormat(format);
        }
    });
}

void QtCameraDriver::handleVideoFrame(const QVideoFrame& frame) {
    if (!frame.isValid()) {
        return;
    }
    std::shared_ptr<QtCameraObserver> observer;
    {
        std::lock_guard lock(_mutex);
        observer = _observer;
    }
    if (observer) {
        observer->cameraDidDeliverFrame(frame);
    }
    if (_framesInFlight.load() >= kMaxFramesInFlight) {
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
    requestFormat(layout.sensorSize, layout.pixelFormat);
    // The pools are the delivery queue's alone: no lock while converting.
    const auto buffer = qt_camera::pixelBufferFor(frame, layout, _pools);
    if (!buffer) {
        return;
    }
    {
        std::lock_guard lock(_mutex);
        _streamSize = frame.size();
    }
    layout.sensorSize = frame.size();
    layout.pixelFormat = buffer->pixelFormatType();
    const MediaTime time{std::max<qint64>(0, frame.startTime()), 1000000};
    sink->streamDidOutputSampleBuffer(std::make_shared<const SampleBuffer>(buffer, time), layout);
}

void QtCameraDriver::startStillCaptures() {
    if (!_control || !_control->isReadyForCapture()) {
        return;
    }
    for (auto& still : std::exchange(_waitingStills, {})) {
        // The largest still of the stream's aspect ratio: a 16:9 preview
        // gives a 16:9 picture, never a stretched one.
        QSize like;
        {
            std::lock_guard lock(_mutex);
            like = _streamSize;
        }
        if (like.isEmpty()) {
            like = still.layout.sensorSize;
        }
        const QList<QSize> sizes = _description.photoResolutions.isEmpty()
                                       ? _description.videoResolutions()
                                       : _description.photoResolutions;
        _control->setStillResolution(qt_camera::largestLike(sizes, like));
        const int id = _control->captureStill();
        if (id < 0) {
            still.promise->set_value(
                {nullptr, avError(av_error::kUnknown, _control->stillErrorString())});
        } else {
            _pendingStills[id] = std::move(still);
        }
    }
    stopWhenIdle();
}

void QtCameraDriver::finishStill(int id, StillResult result) {
    const auto found = _pendingStills.find(id);
    if (found == _pendingStills.end()) {
        return;
    }
    found->second.promise->set_value(std::move(result));
    _pendingStills.erase(found);
    stopWhenIdle();
}

StillResult QtCameraDriver::captureStill(const StillRequest& request) {
    if (!isConnected() || !_backend) {
        return {nullptr, avError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"))};
    }
    auto promise = std::make_shared<std::promise<StillResult>>();
    auto future = promise->get_future();
    onMain([promise, layout = request.layout](QtCameraDriver& driver) {
        if (!driver.isConnected() || !driver.ensureCamera()) {
            promise->set_value(
                {nullptr, avError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"))});
            return;
        }
        driver._waitingStills.push_back({promise, layout});
        if (!driver._control->isActive()) {
            driver._control->start();
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
