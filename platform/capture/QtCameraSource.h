#pragma once

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/QtCameraBackend.h"

#include <QList>
#include <QString>

#include <memory>
#include <mutex>
#include <vector>

namespace platform {

class QtCameraDriver;

/// The real cameras, as capture devices: one per video input of the backend,
/// made once per camera id so a device keeps its identity while the camera
/// stays, and positioned for the current CameraChoice (see
/// qt_camera::positionsFor) each time they are listed.
///
/// The backend lists cameras on the main thread only. devices() called there
/// lists them afresh; called on any other thread it returns the cameras last
/// listed and asks the main thread for a fresh list, without waiting for it,
/// so discovery on a capture queue never blocks on a busy main thread.
class QtCameraSource : public std::enable_shared_from_this<QtCameraSource> {
public:
    /// Qt Multimedia's cameras.
    QtCameraSource();
    explicit QtCameraSource(std::shared_ptr<QtCameraBackend> backend);
    ~QtCameraSource();

    /// Thread-safe; see the class comment.
    std::vector<std::shared_ptr<CaptureDevice>> devices();
    /// Lists the cameras now, on the calling thread: for backends that may be
    /// asked on any thread (a replay), or on the main thread.
    std::vector<std::shared_ptr<CaptureDevice>> refresh();

    /// Lists the cameras again whenever the backend reports a change of video
    /// inputs; a camera that left is disconnected. Main thread.
    void watchForChanges();

    /// Makes a source the hardware source of DeviceDiscovery. Main thread;
    /// lists the cameras once and watches for changes. The second form takes
    /// a backend of the caller's.
    static void install();
    static void install(std::shared_ptr<QtCameraBackend> backend);
    /// Removes it again.
    static void uninstall();

private:
    struct Known {
        QtCameraDescription description;
        std::shared_ptr<QtCameraDriver> driver;
        std::shared_ptr<CaptureDevice> device;
    };

    std::vector<std::shared_ptr<CaptureDevice>> positioned();
    void requestRefresh();

    const std::shared_ptr<QtCameraBackend> _backend;
    std::mutex _mutex;
    std::vector<Known> _known;
    QString _defaultID;
    bool _refreshRequested = false;
    bool _watching = false;
};

}  // namespace platform
