#include "platform/capture/QtCameraSource.h"

#include "platform/capture/QtCameraDriver.h"

#include <QCoreApplication>
#include <QMediaDevices>
#include <QThread>

#include <algorithm>

namespace platform {
namespace {

// Runs task on the main thread and waits for it (directly when already there).
template <typename Task>
void onMainAndWait(Task task) {
    auto* app = QCoreApplication::instance();
    if (app == nullptr || QThread::currentThread() == app->thread()) {
        task();
    } else {
        QMetaObject::invokeMethod(app, task, Qt::BlockingQueuedConnection);
    }
}

}  // namespace

QtCameraSource::QtCameraSource() : QtCameraSource([] { return QMediaDevices::videoInputs(); }) {}

QtCameraSource::QtCameraSource(InputLister lister) : _lister(std::move(lister)) {}

std::vector<std::shared_ptr<CaptureDevice>> QtCameraSource::devices() {
    std::vector<std::shared_ptr<CaptureDevice>> devices;
    onMainAndWait([&] {
        const QList<QCameraDevice> inputs = _lister();
        std::lock_guard lock(_mutex);
        std::vector<std::shared_ptr<CaptureDevice>> known;
        for (const QCameraDevice& input : inputs) {
            const QString id = QString::fromUtf8(input.id());
            auto same = std::find_if(_known.begin(), _known.end(), [&](const auto& device) {
                return device->uniqueID() == id && device->isConnected();
            });
            known.push_back(same != _known.end()
                                ? *same
                                : CaptureDevice::create(QtCameraDriver::create(input)));
        }
        _known = known;
        devices = std::move(known);
    });
    return devices;
}

void QtCameraSource::install() {
    auto source = std::make_shared<QtCameraSource>();
    DeviceDiscovery::setHardwareSource([source] { return source->devices(); });
}

void QtCameraSource::uninstall() {
    DeviceDiscovery::setHardwareSource({});
}

}  // namespace platform
