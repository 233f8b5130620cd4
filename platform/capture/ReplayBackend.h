#pragma once

#include "platform/capture/CameraRecording.h"
#include "platform/capture/QtCameraBackend.h"

#include <atomic>
#include <memory>

namespace platform {

/// A recorded camera played back as a Qt camera: the backend lists the one
/// camera of the recording and its control hands the recorded frames to the
/// driver at their recorded timing, from a thread of its own, exactly as the
/// camera handed them over. The recording loops unless it ends with the
/// camera going away, which is then replayed too. A still shows the frame
/// last handed over. Listing is thread-safe; the rest is main-thread work
/// like any backend's. Used through QXD_CAMERA=replay:FOLDER, so the whole
/// driver runs as it did with the camera.
class ReplayBackend final : public QtCameraBackend {
public:
    explicit ReplayBackend(std::shared_ptr<const CameraRecording> recording);

    QList<QtCameraDescription> videoInputs() override;
    QString defaultVideoInputID() override;
    std::unique_ptr<QtCameraControl> open(const QString& id) override;
    void watchVideoInputs(std::function<void()> changed) override;

private:
    const std::shared_ptr<const CameraRecording> _recording;
    std::atomic<bool> _gone{false};
    std::function<void()> _changed;
};

}  // namespace platform
