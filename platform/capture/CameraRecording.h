#pragma once

#include "platform/capture/QtCameraBackend.h"
#include "platform/capture/QtCameraDriver.h"

#include <QFile>
#include <QString>
#include <QVideoFrame>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace platform {

class DispatchQueue;

/// A recording of what a real camera delivered, as Qt handed it over, so a
/// session can be reproduced anywhere (QXD_CAMERA=replay:FOLDER).
///
/// On disk, a folder with two files: "recording.jsonl", one JSON object a
/// line (first the camera: its description; then each frame: arrival time in
/// microseconds since the first frame, the backend's start time, pixel
/// format, size and, per plane, bytes per line and where its bytes lie in
/// "frames.bin"; and device events such as {"event": "disconnected"}), and
/// "frames.bin", the planes' bytes as the backend laid them out.
struct CameraRecording {
    struct Frame {
        std::chrono::microseconds arrival{0};
        qint64 startTime = 0;
        QVideoFrame frame;  ///< rebuilt with the recorded bytes
    };
    struct Event {
        std::chrono::microseconds arrival{0};
        QString message;
    };

    QtCameraDescription camera;
    std::vector<Frame> frames;
    /// The camera went away after the frames, with this message.
    std::optional<Event> disconnection;

    /// Reads a recording; nullopt with *error set (when non-null) when the
    /// folder holds none or it is damaged.
    static std::optional<CameraRecording> load(const QString& folder, QString* error = nullptr);
};

/// Writes a recording while a Qt camera streams: attach it to the driver
/// with QtCameraDriver::setObserver. Frames are copied when they arrive and
/// written on a queue of the recorder's, so a slow disk never holds the
/// camera up. Thread-safe.
class CameraRecorder final : public QtCameraObserver,
                             public std::enable_shared_from_this<CameraRecorder> {
    struct Key {};

public:
    /// Tells the time things arrive; the steady clock unless a test drives one.
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// Creates folder (when missing) and starts the recording of camera;
    /// null with *error set (when non-null) when the files cannot be made.
    static std::shared_ptr<CameraRecorder> create(const QString& folder,
                                                  const QtCameraDescription& camera,
                                                  QString* error = nullptr, Clock clock = {});

    CameraRecorder(Key, const QString& folder, Clock clock);
    ~CameraRecorder() override;

    /// Waits until everything received so far is on disk; false when a
    /// write failed.
    bool flush();
    std::size_t frameCount() const;

    void cameraDidDeliverFrame(const QVideoFrame& frame) override;
    void cameraDidFail(const QString& message) override;

private:
    std::chrono::microseconds sinceFirstFrame();
    void writeLine(const QByteArray& line);

    const Clock _clock;
    std::shared_ptr<DispatchQueue> _queue;
    mutable std::mutex _mutex;
    std::optional<std::chrono::steady_clock::time_point> _firstFrame;
    std::size_t _frames = 0;
    // On the queue only.
    QFile _index;
    QFile _data;
    bool _failed = false;
};

}  // namespace platform
