#include "platform/capture/QtCameraBackend.h"

#include "platform/capture/QtCameraDriver.h"

#include <QCameraFormat>
#include <QImageCapture>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QVideoSink>

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

namespace platform {

QList<QSize> QtCameraDescription::videoResolutions() const {
    QList<QSize> sizes;
    for (const QtCameraFormat& format : videoFormats) {
        if (!sizes.contains(format.resolution)) {
            sizes.append(format.resolution);
        }
    }
    return sizes;
}

QtCameraDescription QtCameraDescription::of(const QCameraDevice& device, const QCamera& camera) {
    QtCameraDescription d;
    d.id = QString::fromUtf8(device.id());
    d.name = device.description();
    d.position = device.position();
    for (const QCameraFormat& format : device.videoFormats()) {
        d.videoFormats.append({format.resolution(), format.pixelFormat(), format.maxFrameRate()});
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

namespace {

// A QCamera with its session, sink and image capture, all children of one
// context object so they go together.
class MultimediaControl final : public QtCameraControl {
public:
    explicit MultimediaControl(const QCameraDevice& device)
        : _device(device),
          _camera(new QCamera(device, &_context)),
          _session(new QMediaCaptureSession(&_context)),
          _sink(new QVideoSink(&_context)),
          _imageCapture(new QImageCapture(&_context)) {
        _session->setCamera(_camera);
        _session->setVideoSink(_sink);
        _session->setImageCapture(_imageCapture);
    }

    void setEvents(Events events) override {
        _events = std::move(events);
        QObject::connect(_camera, &QCamera::errorOccurred, &_context,
                         [this](QCamera::Error, const QString& message) {
                             if (_events.error) {
                                 _events.error(message);
                             }
                         });
        // Direct: the frame goes on from the backend's own thread, without a
        // detour through the GUI thread.
        QObject::connect(
            _sink, &QVideoSink::videoFrameChanged, &_context,
            [frame = _events.frame](const QVideoFrame& f) {
                if (frame) {
                    frame(f);
                }
            },
            Qt::DirectConnection);
        QObject::connect(_imageCapture, &QImageCapture::readyForCaptureChanged, &_context,
                         [this](bool ready) {
                             if (ready && _events.readyForCapture) {
                                 _events.readyForCapture();
                             }
                         });
        QObject::connect(_imageCapture, &QImageCapture::imageCaptured, &_context,
                         [this](int id, const QImage& image) {
                             if (_events.stillCaptured) {
                                 _events.stillCaptured(id, image);
                             }
                         });
        QObject::connect(_imageCapture, &QImageCapture::errorOccurred, &_context,
                         [this](int id, QImageCapture::Error, const QString& message) {
                             if (_events.stillFailed) {
                                 _events.stillFailed(id, message);
                             }
                         });
    }

    void start() override { _camera->start(); }
    void stop() override { _camera->stop(); }
    bool isActive() const override { return _camera->isActive(); }

    void setFormat(const QtCameraFormat& wanted) override {
        for (const QCameraFormat& format : _device.videoFormats()) {
            if (format.resolution() == wanted.resolution &&
                format.pixelFormat() == wanted.pixelFormat &&
                qFuzzyCompare(format.maxFrameRate(), wanted.maxFrameRate)) {
                _camera->setCameraFormat(format);
                return;
            }
        }
    }

    void applySettings(const CaptureDeviceSettings& s) override {
        const auto focus = qt_camera::focusModeFor(s.focusMode);
        if (_camera->isFocusModeSupported(focus)) {
            _camera->setFocusMode(focus);
        }
        if (_camera->supportedFeatures().testFlag(QCamera::Feature::CustomFocusPoint)) {
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

    bool isReadyForCapture() const override { return _imageCapture->isReadyForCapture(); }
    void setStillResolution(const QSize& size) override { _imageCapture->setResolution(size); }
    int captureStill() override { return _imageCapture->capture(); }
    QString stillErrorString() const override { return _imageCapture->errorString(); }

private:
    const QCameraDevice _device;
    QObject _context;
    QCamera* _camera;
    QMediaCaptureSession* _session;
    QVideoSink* _sink;
    QImageCapture* _imageCapture;
    Events _events;
};

// Qt's media-device singleton starts its audio side along with the video
// one, and without a sound server that side prints an uncategorised
// "PulseAudioService: ..." warning. This component never plays or records
// sound, so while Qt Multimedia starts (once, on our first touch of it)
// exactly those warnings are dropped; everything else goes on to the
// handler installed before, which is put back afterwards.
std::atomic<QtMessageHandler> previousMessageHandler{nullptr};

void dropAudioServiceWarnings(QtMsgType type, const QMessageLogContext& context,
                              const QString& message) {
    const bool uncategorised =
        context.category == nullptr || qstrcmp(context.category, "default") == 0;
    if (uncategorised && type == QtWarningMsg &&
        message.startsWith(QLatin1String("PulseAudioService:"))) {
        return;
    }
    if (const QtMessageHandler previous = previousMessageHandler.load()) {
        previous(type, context, message);
    }
}

void startMediaDevices() {
    static std::once_flag started;
    std::call_once(started, [] {
        previousMessageHandler = qInstallMessageHandler(dropAudioServiceWarnings);
        QMediaDevices::videoInputs();          // the media integration
        const QMediaDevices devicesSingleton;  // and the device singleton behind watchers
        qInstallMessageHandler(previousMessageHandler.load());
    });
}

class MultimediaBackend final : public QtCameraBackend {
public:
    // A camera is asked for its abilities once: a QCamera made while the same
    // camera streams could disturb it.
    QList<QtCameraDescription> videoInputs() override {
        QList<QtCameraDescription> inputs;
        std::map<QString, QtCameraDescription> known;
        startMediaDevices();
        for (const QCameraDevice& device : QMediaDevices::videoInputs()) {
            const QString id = QString::fromUtf8(device.id());
            const auto found = _described.find(id);
            if (found != _described.end()) {
                inputs.append(found->second);
            } else {
                const QCamera probe(device);
                inputs.append(QtCameraDescription::of(device, probe));
            }
            known[id] = inputs.back();
        }
        _described = std::move(known);
        return inputs;
    }

    QString defaultVideoInputID() override {
        startMediaDevices();
        return QString::fromUtf8(QMediaDevices::defaultVideoInput().id());
    }

    std::unique_ptr<QtCameraControl> open(const QString& id) override {
        startMediaDevices();
        for (const QCameraDevice& device : QMediaDevices::videoInputs()) {
            if (QString::fromUtf8(device.id()) == id) {
                return std::make_unique<MultimediaControl>(device);
            }
        }
        return nullptr;
    }

    void watchVideoInputs(std::function<void()> changed) override {
        _devices.reset();
        if (!changed) {
            return;
        }
        startMediaDevices();
        _devices.reset(new QMediaDevices());
        QObject::connect(_devices.get(), &QMediaDevices::videoInputsChanged, _devices.get(),
                         std::move(changed));
    }

private:
    // The last owner of a backend may be a driver going away on a capture
    // queue: the watcher is deleted on its own thread.
    struct LaterDelete {
        void operator()(QObject* object) const { object->deleteLater(); }
    };
    std::unique_ptr<QMediaDevices, LaterDelete> _devices;
    std::map<QString, QtCameraDescription> _described;  // of the cameras listed last
};

}  // namespace

std::shared_ptr<QtCameraBackend> QtCameraBackend::multimedia() {
    return std::make_shared<MultimediaBackend>();
}

}  // namespace platform
