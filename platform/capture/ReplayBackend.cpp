#include "platform/capture/ReplayBackend.h"

#include <QCoreApplication>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace platform {
namespace {

void postToMain(std::function<void()> task) {
    if (auto* app = QCoreApplication::instance()) {
        QMetaObject::invokeMethod(app, std::move(task), Qt::QueuedConnection);
    }
}

class ReplayControl final : public QtCameraControl {
public:
    ReplayControl(std::shared_ptr<const CameraRecording> recording, std::function<void()> gone)
        : _recording(std::move(recording)), _gone(std::move(gone)) {}
    ~ReplayControl() override { stop(); }

    void setEvents(Events events) override { _events = std::move(events); }

    void start() override {
        if (_thread.joinable()) {
            return;
        }
        {
            std::lock_guard lock(_mutex);
            _stopping = false;
        }
        _active = true;
        _thread = std::thread([this] { play(); });
        postToMain([alive = std::weak_ptr<int>(_alive), this] {
            if (alive.lock() && _active && _events.readyForCapture) {
                _events.readyForCapture();
            }
        });
    }

    void stop() override {
        {
            std::lock_guard lock(_mutex);
            _stopping = true;
        }
        _wake.notify_all();
        if (_thread.joinable()) {
            _thread.join();
        }
        _active = false;
    }

    bool isActive() const override { return _active; }
    void setFormat(const QtCameraFormat&) override {}  // the recording has its own
    void applySettings(const CaptureDeviceSettings&) override {}
    bool isReadyForCapture() const override { return _active; }
    void setStillResolution(const QSize&) override {}

    int captureStill() override {
        const int id = _nextStill++;
        QVideoFrame frame;
        {
            std::lock_guard lock(_mutex);
            frame = _lastFrame;
        }
        if (!frame.isValid() && !_recording->frames.empty()) {
            frame = _recording->frames.front().frame;
        }
        postToMain([alive = std::weak_ptr<int>(_alive), this, id, frame] {
            if (!alive.lock()) {
                return;
            }
            const QImage image = frame.toImage();
            if (image.isNull()) {
                _events.stillFailed(id, QStringLiteral("The recording holds no picture."));
            } else {
                _events.stillCaptured(id, image);
            }
        });
        return id;
    }
    QString stillErrorString() const override { return {}; }

private:
    // On the playing thread: each frame at its time after the start, looping
    // until stopped or until the recorded camera goes away.
    void play() {
        const auto& frames = _recording->frames;
        const auto start = std::chrono::steady_clock::now();
        const auto period =
            frames.empty()
                ? std::chrono::microseconds(0)
                : frames.back().arrival + (frames.size() > 1
                                               ? (frames.back().arrival - frames.front().arrival) /
                                                     static_cast<long>(frames.size() - 1)
                                               : std::chrono::microseconds(33333));
        for (long pass = 0;; ++pass) {
            for (const auto& recorded : frames) {
                if (!waitUntil(start + pass * period + recorded.arrival)) {
                    return;
                }
                QVideoFrame frame = recorded.frame;
                frame.setStartTime(recorded.startTime + pass * period.count());
                {
                    std::lock_guard lock(_mutex);
                    _lastFrame = frame;
                }
                if (_events.frame) {
                    _events.frame(frame);
                }
            }
            if (_recording->disconnection) {
                if (waitUntil(start + _recording->disconnection->arrival)) {
                    postToMain([alive = std::weak_ptr<int>(_alive), this] {
                        if (alive.lock()) {
                            _gone();
                            if (_events.error) {
                                _events.error(_recording->disconnection->message);
                            }
                        }
                    });
                }
                return;
            }
            if (frames.empty()) {
                return;
            }
        }
    }

    // False when stopped first.
    bool waitUntil(std::chrono::steady_clock::time_point when) {
        std::unique_lock lock(_mutex);
        return !_wake.wait_until(lock, when, [this] { return _stopping; });
    }

    const std::shared_ptr<const CameraRecording> _recording;
    const std::function<void()> _gone;
    // Tasks posted to the main thread check that the control still exists.
    const std::shared_ptr<int> _alive = std::make_shared<int>(0);
    Events _events;
    std::atomic<bool> _active{false};
    int _nextStill = 1;
    std::mutex _mutex;
    std::condition_variable _wake;
    bool _stopping = false;
    QVideoFrame _lastFrame;
    std::thread _thread;
};

}  // namespace

ReplayBackend::ReplayBackend(std::shared_ptr<const CameraRecording> recording)
    : _recording(std::move(recording)) {}

QList<QtCameraDescription> ReplayBackend::videoInputs() {
    if (_gone) {
        return {};
    }
    return {_recording->camera};
}

QString ReplayBackend::defaultVideoInputID() {
    return _recording->camera.id;
}

std::unique_ptr<QtCameraControl> ReplayBackend::open(const QString& id) {
    if (_gone || id != _recording->camera.id) {
        return nullptr;
    }
    // The recorded camera leaving takes it off the list, as with the real one.
    return std::make_unique<ReplayControl>(_recording, [this] {
        _gone = true;
        if (_changed) {
            _changed();
        }
    });
}

void ReplayBackend::watchVideoInputs(std::function<void()> changed) {
    _changed = std::move(changed);
}

}  // namespace platform
