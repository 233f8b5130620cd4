#pragma once

#include "platform/capture/CaptureDevice.h"

#include <QCameraDevice>
#include <QList>

#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// The real cameras, as capture devices: one per video input Qt lists, made
/// once per camera id so a device keeps its identity while the camera stays.
class QtCameraSource {
public:
    using InputLister = std::function<QList<QCameraDevice>()>;

    /// Lists QMediaDevices::videoInputs() (on the main thread).
    QtCameraSource();
    explicit QtCameraSource(InputLister lister);

    std::vector<std::shared_ptr<CaptureDevice>> devices();

    /// Makes a source the hardware source of DeviceDiscovery: discovery then
    /// prefers real cameras and falls back to the virtual ones without any.
    static void install();
    /// Removes it again.
    static void uninstall();

private:
    InputLister _lister;
    std::mutex _mutex;
    std::vector<std::shared_ptr<CaptureDevice>> _known;
};

}  // namespace platform
