#pragma once

#include "platform/capture/CaptureDevice.h"

#include <QCameraDevice>
#include <QList>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class QMediaDevices;
class QObject;

namespace platform {

/// The real cameras, as capture devices: one per video input Qt lists, made
/// once per camera id so a device keeps its identity while the camera stays.
///
/// Qt lists cameras on the main thread only. devices() called there lists
/// them afresh; called on any other thread it returns the cameras last
/// listed and asks the main thread for a fresh list, without waiting for it,
/// so discovery on a capture queue never blocks on a busy main thread.
class QtCameraSource : public std::enable_shared_from_this<QtCameraSource> {
public:
    using InputLister = std::function<QList<QCameraDevice>()>;

    /// Lists QMediaDevices::videoInputs().
    QtCameraSource();
    explicit QtCameraSource(InputLister lister);
    ~QtCameraSource();

    /// Thread-safe; see the class comment.
    std::vector<std::shared_ptr<CaptureDevice>> devices();

    /// Lists the cameras again whenever Qt reports a change of video inputs.
    /// Main thread.
    void watchForChanges();

    /// Makes a source the hardware source of DeviceDiscovery: discovery then
    /// prefers real cameras and falls back to the virtual ones without any.
    /// Main thread; lists the cameras once and watches for changes.
    static void install();
    /// Removes it again.
    static void uninstall();

private:
    // Deletes on the object's own thread: the last reference to a source may
    // go on a capture queue.
    struct LaterDelete {
        void operator()(QObject* object) const;
    };

    std::vector<std::shared_ptr<CaptureDevice>> refresh();
    void requestRefresh();

    InputLister _lister;
    std::mutex _mutex;
    std::vector<std::shared_ptr<CaptureDevice>> _known;
    bool _refreshRequested = false;
    std::unique_ptr<QMediaDevices, LaterDelete> _mediaDevices;
};

}  // namespace platform
