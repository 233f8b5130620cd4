#include "platform/capture/QtCameraSource.h"

#include "platform/capture/QtCameraDriver.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>

namespace platform {
namespace {

bool onMainThread() {
    auto* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

}  // namespace

QtCameraSource::QtCameraSource() : QtCameraSource(QtCameraBackend::multimedia()) {}

QtCameraSource::QtCameraSource(std::shared_ptr<QtCameraBackend> backend)
    : _backend(std::move(backend)) {}

QtCameraSource::~QtCameraSource() = default;

std::vector<std::shared_ptr<CaptureDevice>> QtCameraSource::devices() {
    if (onMainThread()) {
        return refresh();
    }
    requestRefresh();
    return positioned();
}

std::vector<std::shared_ptr<CaptureDevice>> QtCameraSource::refresh() {
    const QList<QtCameraDescription> inputs = _backend->videoInputs();
    const QString defaultID = _backend->defaultVideoInputID();
    QStringList ids;
    for (const auto& input : inputs) {
        ids.append(input.id);
    }
    std::vector<std::shared_ptr<QtCameraDriver>> gone;
    {
        std::lock_guard lock(_mutex);
        _refreshRequested = false;
        std::vector<Known> known;
        for (const QtCameraDescription& input : inputs) {
            auto same = std::find_if(_known.begin(), _known.end(), [&](const Known& k) {
                return k.description.id == input.id && k.device->isConnected();
            });
            if (same != _known.end()) {
                known.push_back(*same);
            } else {
                auto driver = QtCameraDriver::create(input, _backend);
                known.push_back({input, driver, CaptureDevice::create(driver)});
            }
        }
        for (const Known& k : _known) {
            if (!ids.contains(k.description.id)) {
                gone.push_back(k.driver);
            }
        }
        _known = std::move(known);
        _defaultID = defaultID;
    }
    // Outside the lock: a disconnection reaches the capture classes.
    for (const auto& driver : gone) {
        driver->handleVideoInputsChanged(ids);
    }
    return positioned();
}

std::vector<std::shared_ptr<CaptureDevice>> QtCameraSource::positioned() {
    std::lock_guard lock(_mutex);
    QList<QtCameraDescription> cameras;
    for (const Known& k : _known) {
        cameras.append(k.description);
    }
    const std::vector<int> positions =
        qt_camera::positionsFor(cameras, _defaultID, CameraSelection::current());
    std::vector<std::shared_ptr<CaptureDevice>> devices;
    for (std::size_t i = 0; i < _known.size(); ++i) {
        _known[i].driver->setPosition(positions[i]);
        devices.push_back(_known[i].device);
    }
    return devices;
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
    if (_watching) {
        return;
    }
    _watching = true;
    _backend->watchVideoInputs([weak = weak_from_this()] {
        if (auto source = weak.lock()) {
            source->refresh();
        }
    });
}

void QtCameraSource::install() {
    install(QtCameraBackend::multimedia());
}

void QtCameraSource::install(std::shared_ptr<QtCameraBackend> backend) {
    auto source = std::make_shared<QtCameraSource>(std::move(backend));
    source->refresh();
    source->watchForChanges();
    DeviceDiscovery::setHardwareSource([source] { return source->devices(); });
}

void QtCameraSource::uninstall() {
    DeviceDiscovery::setHardwareSource({});
}

}  // namespace platform
