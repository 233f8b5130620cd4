#include "platform/capture/QtCameraSource.h"

#include "platform/capture/QtCameraDriver.h"

#include <QCoreApplication>
#include <QMediaDevices>
#include <QThread>

#include <algorithm>

namespace platform {
namespace {

bool onMainThread() {
    auto* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

}  // namespace

QtCameraSource::QtCameraSource() : QtCameraSource([] { return QMediaDevices::videoInputs(); }) {}

QtCameraSource::QtCameraSource(InputLister lister) : _lister(std::move(lister)) {}

QtCameraSource::~QtCameraSource() = default;

void QtCameraSource::LaterDelete::operator()(QObject* object) const {
    if (object != nullptr) {
        object->deleteLater();
    }
}

std::vector<std::shared_ptr<CaptureDevice>> QtCameraSource::devices() {
    if (onMainThread()) {
        return refresh();
    }
    requestRefresh();
    std::lock_guard lock(_mutex);
    return _known;
}

std::vector<std::shared_ptr<CaptureDevice>> QtCameraSource::refresh() {
    const QList<QCameraDevice> inputs = _lister();
    std::lock_guard lock(_mutex);
    _refreshRequested = false;
    std::vector<std::shared_ptr<CaptureDevice>> known;
    for (const QCameraDevice& input : inputs) {
        const QString id = QString::fromUtf8(input.id());
        auto same = std::find_if(_known.begin(), _known.end(), [&](const auto& device) {
            return device->uniqueID() == id && device->isConnected();
        });
        known.push_back(
            same != _known.end() ? *same : CaptureDevice::create(QtCameraDriver::create(input)));
    }
    _known = known;
    return known;
}

void QtCameraSource::requestRefresh() {
    auto* app = QCoreApplication::instance();
    {
        std::lock_guard lock(_mutex);
        if (app == nullptr || _refreshRequested) {
            return;
        }
        _refreshRequested = true;
    }
    QMetaObject::invokeMethod(app, [weak = weak_from_this()] {
        if (auto source = weak.lock()) {
            source->refresh();
        }
    });
}

void QtCameraSource::watchForChanges() {
    if (_mediaDevices) {
        return;
    }
    _mediaDevices.reset(new QMediaDevices());
    QObject::connect(_mediaDevices.get(), &QMediaDevices::videoInputsChanged, _mediaDevices.get(),
                     [weak = weak_from_this()] {
                         if (auto source = weak.lock()) {
                             source->refresh();
                         }
                     });
}

void QtCameraSource::install() {
    auto source = std::make_shared<QtCameraSource>();
    source->refresh();
    source->watchForChanges();
    DeviceDiscovery::setHardwareSource([source] { return source->devices(); });
}

void QtCameraSource::uninstall() {
    DeviceDiscovery::setHardwareSource({});
}

}  // namespace platform
