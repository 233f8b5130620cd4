#pragma once

// Stand-ins for Qt's cameras: a backend that lists cameras like a Debian
// desktop's V4L2 webcams (position unspecified, YUYV and decoded MJPEG
// formats), and controls that hand over QVideoFrames laid out as Qt's
// GStreamer backend lays them out. Everything above them (driver, source,
// discovery, session, engine) is the real thing.

#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/QtCameraBackend.h"

#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QVideoFrame>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace fake_qt {

/// Pumps the main thread's events until done() or ten seconds (a guard
/// against hangs, not a timing).
inline bool pumpUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        std::this_thread::yield();
    }
    return true;
}

/// A webcam as Qt lists it on Linux.
inline platform::QtCameraDescription webcam(
    const QString& id, const QString& name,
    QVideoFrameFormat::PixelFormat format = QVideoFrameFormat::Format_YUYV,
    QSize size = {1280, 720}) {
    platform::QtCameraDescription d;
    d.id = id;
    d.name = name;
    d.videoFormats = {{{640, 480}, format, 30.0f}, {size, format, 10.0f}};
    d.focusModes = {QCamera::FocusModeAuto};
    d.exposureModes = {QCamera::ExposureAuto, QCamera::ExposureManual};
    d.flashModes = {QCamera::FlashOff};
    d.torchModes = {QCamera::TorchOff};
    return d;
}

/// What one camera's control was asked to do, and its events.
struct CameraState {
    platform::QtCameraDescription description;
    platform::QtCameraControl::Events events;
    bool open = false;
    bool active = false;
    int starts = 0;
    platform::QtCameraFormat format;
    QSize stillResolution;
    bool holdStills = false;
    std::vector<int> heldStills;
    int nextStill = 1;

    /// Hands a frame over as the backend's streaming thread would.
    void deliver(const QVideoFrame& frame) {
        if (active && events.frame) {
            events.frame(frame);
        }
    }
    /// The picture a still of the current still resolution shows: a red
    /// square in the top-left corner of the sensor's picture, grey elsewhere.
    QImage stillImage() const {
        QImage image(stillResolution, QImage::Format_RGB32);
        image.fill(QColor(128, 128, 128));
        QPainter(&image).fillRect(0, 0, stillResolution.height() / 8, stillResolution.height() / 8,
                                  Qt::red);
        return image;
    }
    /// Completes the stills held back so far.
    void releaseStills() {
        for (int id : std::exchange(heldStills, {})) {
            events.stillCaptured(id, stillImage());
        }
    }
};

class Control final : public platform::QtCameraControl {
public:
    explicit Control(std::shared_ptr<CameraState> state) : _state(std::move(state)) {
        _state->open = true;
    }
    ~Control() override { _state->open = false; }

    void setEvents(Events events) override { _state->events = std::move(events); }
    void start() override {
        _state->active = true;
        ++_state->starts;
        // Qt's image capture turns ready once the camera runs.
        post([state = _state] {
            if (state->active && state->events.readyForCapture) {
                state->events.readyForCapture();
            }
        });
    }
    void stop() override { _state->active = false; }
    bool isActive() const override { return _state->active; }
    void setFormat(const platform::QtCameraFormat& format) override { _state->format = format; }
    void applySettings(const platform::CaptureDeviceSettings&) override {}
    bool isReadyForCapture() const override { return _state->active; }
    void setStillResolution(const QSize& size) override { _state->stillResolution = size; }
    int captureStill() override {
        const int id = _state->nextStill++;
        if (_state->holdStills) {
            _state->heldStills.push_back(id);
        } else {
            post([state = _state, id] { state->events.stillCaptured(id, state->stillImage()); });
        }
        return id;
    }
    QString stillErrorString() const override { return {}; }

private:
    static void post(std::function<void()> task) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task),
                                  Qt::QueuedConnection);
    }
    std::shared_ptr<CameraState> _state;
};

class Backend final : public platform::QtCameraBackend {
public:
    std::shared_ptr<CameraState> add(const platform::QtCameraDescription& description) {
        auto state = std::make_shared<CameraState>();
        state->description = description;
        _cameras.push_back(state);
        return state;
    }
    void setDefault(const QString& id) { _default = id; }

    /// The cable is pulled: Qt reports a camera error, then the list changes.
    void unplug(const QString& id) {
        const auto found = std::find_if(_cameras.begin(), _cameras.end(),
                                        [&](const auto& s) { return s->description.id == id; });
        if (found == _cameras.end()) {
            return;
        }
        auto state = *found;
        _cameras.erase(found);
        state->active = false;
        if (state->events.error) {
            state->events.error(QStringLiteral("Could not read from resource."));
        }
        if (_watcher) {
            _watcher();
        }
    }

    QList<platform::QtCameraDescription> videoInputs() override {
        QList<platform::QtCameraDescription> list;
        for (const auto& state : _cameras) {
            list.append(state->description);
        }
        return list;
    }
    QString defaultVideoInputID() override { return _default; }
    std::unique_ptr<platform::QtCameraControl> open(const QString& id) override {
        for (const auto& state : _cameras) {
            if (state->description.id == id) {
                return std::make_unique<Control>(state);
            }
        }
        return nullptr;
    }
    void watchVideoInputs(std::function<void()> changed) override { _watcher = std::move(changed); }

private:
    std::vector<std::shared_ptr<CameraState>> _cameras;
    QString _default;
    std::function<void()> _watcher;
};

/// A frame of size in format, grey with a red square marker of a sixth of
/// the height in the top-left corner (moved right by markerX, even), laid
/// out as Qt lays it out.
inline QVideoFrame markedFrame(QVideoFrameFormat::PixelFormat format, QSize size,
                               qint64 microseconds = 0, int markerX = 0) {
    QVideoFrame frame{QVideoFrameFormat(size, format)};
    frame.map(QVideoFrame::WriteOnly);
    const int w = size.width();
    const int h = size.height();
    const int marker = h / 6;
    const auto inMarker = [&](int x, int y) {
        return x >= markerX && x < markerX + marker && y < marker;
    };
    // Red in YUV full range, and grey.
    const auto Y = [&](int x, int y) { return std::uint8_t(inMarker(x, y) ? 76 : 128); };
    const auto U = [&](int x, int y) { return std::uint8_t(inMarker(x, y) ? 85 : 128); };
    const auto V = [&](int x, int y) { return std::uint8_t(inMarker(x, y) ? 255 : 128); };
    switch (format) {
        case QVideoFrameFormat::Format_YUYV:
            for (int y = 0; y < h; ++y) {
                std::uint8_t* row = frame.bits(0) + y * frame.bytesPerLine(0);
                for (int x = 0; x < w; x += 2) {
                    row[2 * x] = Y(x, y);
                    row[2 * x + 1] = U(x, y);
                    row[2 * x + 2] = Y(x + 1, y);
                    row[2 * x + 3] = V(x, y);
                }
            }
            break;
        case QVideoFrameFormat::Format_YUV420P:
        case QVideoFrameFormat::Format_NV12:
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) {
                    frame.bits(0)[y * frame.bytesPerLine(0) + x] = Y(x, y);
                }
            }
            for (int y = 0; y < h / 2; ++y) {
                for (int x = 0; x < w / 2; ++x) {
                    if (format == QVideoFrameFormat::Format_NV12) {
                        std::uint8_t* uv = frame.bits(1) + y * frame.bytesPerLine(1) + 2 * x;
                        uv[0] = U(2 * x, 2 * y);
                        uv[1] = V(2 * x, 2 * y);
                    } else {
                        frame.bits(1)[y * frame.bytesPerLine(1) + x] = U(2 * x, 2 * y);
                        frame.bits(2)[y * frame.bytesPerLine(2) + x] = V(2 * x, 2 * y);
                    }
                }
            }
            break;
        default:  // BGRA, BGRX: padding left at 0, as many drivers leave it
            for (int y = 0; y < h; ++y) {
                std::uint8_t* row = frame.bits(0) + y * frame.bytesPerLine(0);
                for (int x = 0; x < w; ++x) {
                    const bool red = inMarker(x, y);
                    row[4 * x] = red ? 0 : 128;
                    row[4 * x + 1] = red ? 0 : 128;
                    row[4 * x + 2] = red ? 255 : 128;
                    row[4 * x + 3] = format == QVideoFrameFormat::Format_BGRX8888 ? 0 : 255;
                }
            }
            break;
    }
    frame.unmap();
    frame.setStartTime(microseconds);
    return frame;
}

// Keeps every sample a stream delivers, asking for frames in one layout. It
// can hold the stream's queue inside a delivery, as a consumer that falls
// behind.
class Sink final : public platform::CaptureStreamSink {
public:
    explicit Sink(platform::FrameLayout layout) : _layout(layout) {}

    platform::FrameLayout nextFrameLayout() override { return _layout; }
    void streamDidOutputSampleBuffer(const platform::SampleBufferPtr& sample,
                                     const platform::FrameLayout& layout) override {
        std::unique_lock lock(_mutex);
        _samples.push_back(sample);
        _layouts.push_back(layout);
        _changed.notify_all();
        _changed.wait(lock, [this] { return !_holding; });
    }
    void streamDidFail(const platform::ErrorPtr&) override {
        std::lock_guard lock(_mutex);
        _failed = true;
    }
    bool failed() {
        std::lock_guard lock(_mutex);
        return _failed;
    }

    void hold(bool holding) {
        std::lock_guard lock(_mutex);
        _holding = holding;
        _changed.notify_all();
    }
    bool waitFor(std::size_t count) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return _samples.size() >= count; });
    }
    std::vector<platform::SampleBufferPtr> samples() {
        std::lock_guard lock(_mutex);
        return _samples;
    }
    platform::FrameLayout lastLayout() {
        std::lock_guard lock(_mutex);
        return _layouts.back();
    }

private:
    const platform::FrameLayout _layout;
    bool _failed = false;
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _holding = false;
    std::vector<platform::SampleBufferPtr> _samples;
    std::vector<platform::FrameLayout> _layouts;
};

// Reads one buffer while locked.
struct Locked {
    explicit Locked(std::shared_ptr<platform::PixelBuffer> b) : buffer(std::move(b)) {
        buffer->lockBaseAddress(platform::kPixelBufferLockReadOnly);
    }
    ~Locked() { buffer->unlockBaseAddress(platform::kPixelBufferLockReadOnly); }
    const std::uint8_t* at(int plane, int x, int y, int bytes) const {
        return buffer->planeData(static_cast<std::size_t>(plane)) +
               y * buffer->bytesPerRowOfPlane(static_cast<std::size_t>(plane)) + bytes * x;
    }
    std::shared_ptr<platform::PixelBuffer> buffer;
};

}  // namespace fake_qt
