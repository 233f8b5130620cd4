// The engine's lifetime and health: how the owner's release tears it down
// without leaving a thread behind, how a lost or silent camera is reported,
// and the diagnostic counters.
#include "QXDCamera.h"

#include "QXDCameraCore.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"

#include <chrono>
#include <thread>

using platform::ErrorPtr;

namespace {

constexpr int kErrorCodeOther = 404;

std::int64_t steadyNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

// --- Release --------------------------------------------------------------------

std::shared_ptr<QXDCamera> QXDCamera::handOut(std::shared_ptr<QXDCamera> engine) {
    QXDCamera* raw = engine.get();
    return std::shared_ptr<QXDCamera>(
        raw, [engine = std::move(engine)](QXDCamera*) mutable { shutDown(std::move(engine)); });
}

void QXDCamera::shutDown(std::shared_ptr<QXDCamera> engine) {
    // From here on queued work, frames and still completions find the engine
    // gone; then wait for whatever is running now.
    engine->_released = true;
    if (engine->_stallTimer) {
        engine->_stallTimer->invalidate();
    }
    bool onOwnQueue = false;
    for (const auto& queue : {engine->_captureSessionQueue, engine->_videoDataOutputQueue,
                              engine->_stillImageOutputQueue}) {
        if (!queue) {
            continue;
        }
        if (queue->isCurrent()) {
            onOwnQueue = true;
        } else {
            queue->sync([] {});
        }
    }
    // A still completion or a notification may hold the engine for a moment
    // longer; they hold it only to find it released. Released from one of
    // its own queues, the engine cannot wait for the work that called it.
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (!onOwnQueue && engine.use_count() > 1 && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    // Usually the last reference: the destructor runs here, stops the stream
    // and joins every queue and the still output's thread.
    engine.reset();
}

std::shared_ptr<QXDCamera> QXDCamera::live(const std::weak_ptr<QXDCamera>& weak) {
    auto engine = weak.lock();
    return engine && !engine->_released.load() ? engine : nullptr;
}

// --- Counters -------------------------------------------------------------------

QXDCameraCounters QXDCamera::counters() const {
    const auto at = [this](Count what) { return _counts[static_cast<std::size_t>(what)].load(); };
    QXDCameraCounters counters;
    counters.framesDelivered = at(Count::FramesDelivered);
    counters.framesDroppedLate = at(Count::FramesDroppedLate);
    counters.framesDroppedNoBuffer = at(Count::FramesDroppedNoBuffer);
    counters.framesDroppedLockRefused = at(Count::FramesDroppedLockRefused);
    counters.framesDroppedUnsupportedFormat = at(Count::FramesDroppedUnsupportedFormat);
    counters.framesDroppedNoImageBuffer = at(Count::FramesDroppedNoImageBuffer);
    counters.stillsRequested = at(Count::StillsRequested);
    counters.stillsCompleted = at(Count::StillsCompleted);
    counters.stillsFailed = at(Count::StillsFailed);
    return counters;
}

// --- Lost cameras -----------------------------------------------------------------

void QXDCamera::observeSessionFailures() {
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    platform::NotificationCenter::defaultCenter().addObserver(
        this, platform::kCaptureSessionRuntimeErrorNotification, _captureSession.get(),
        [weakSelf](const platform::Notification& notification) {
            const ErrorPtr cause =
                notification.userInfo.value(platform::kCaptureSessionErrorKey).value<ErrorPtr>();
            if (auto self = live(weakSelf)) {
                self->_captureSessionQueue->async([weakSelf, cause] {
                    if (auto engine = live(weakSelf)) {
                        engine->sessionDidFail(cause);
                    }
                });
            }
        });
}

void QXDCamera::sessionDidFail(const ErrorPtr& cause) {
    const auto code = cause ? cause->code() : 0;
    const bool taken = code == platform::av_error::kDeviceInUseByAnotherApplication ||
                       code == platform::av_error::kDeviceAlreadyUsedByAnotherSession;
    reportCameraLoss(taken ? QStringLiteral("The camera is in use by another application.")
                           : QStringLiteral("The camera was disconnected."),
                     cause);
}

bool QXDCamera::reattachCameraIfLost() {
    const auto device = _deviceInput ? _deviceInput->device() : nullptr;
    if (!device || device->isConnected()) {
        return true;
    }
    if (!cameraWithDevicePosition(_devicePosition)) {
        reportCameraLoss(QStringLiteral("The camera was disconnected."),
                         platform::Error::withDescription(platform::kAVFoundationErrorDomain,
                                                          platform::av_error::kDeviceNotConnected,
                                                          QStringLiteral("Cannot Record")));
        return false;
    }
    // Plugged in again as a new device: the graph is rebuilt around it, as a
    // camera switch does.
    createCaptureDevice();
    createCaptureOutput();
    return true;
}

void QXDCamera::reportCameraLoss(const QString& description, const ErrorPtr& cause) {
    // Once per loss, and only to an owner who still wants the camera running.
    if (!_running.exchange(false)) {
        return;
    }
    QVariantMap info{{QString::fromLatin1(platform::kLocalizedDescriptionKey), description}};
    if (cause) {
        info.insert(QString::fromLatin1(platform::kUnderlyingErrorKey), QVariant::fromValue(cause));
    }
    reportError(platform::Error::make(QXDCameraErrorDomain, kErrorCodeOther, info));
}

// --- Stall watch ------------------------------------------------------------------

void QXDCamera::armStallWatch() {
    if (_stallTimer) {
        _stallTimer->invalidate();
        _stallTimer.reset();
    }
    if (_stallTimeout <= 0.0 || !_captureSession) {
        return;  // without a camera nothing streams, and nothing is lost
    }
    _framesAtLastCheck = _framesSeen.load();
    _lastProgressTime = platform::RunLoop::main().now();
    _lastFrameNanoseconds = steadyNanoseconds();
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    _stallTimer = platform::RunLoop::main().scheduleTimer(_stallTimeout / 2, true,
                                                          [weakSelf](platform::Timer& timer) {
                                                              if (auto self = live(weakSelf)) {
                                                                  self->checkForStall();
                                                              } else {
                                                                  timer.invalidate();
                                                              }
                                                          });
}

void QXDCamera::checkForStall() {
    if (!_running.load() || !_stallTimer) {
        if (_stallTimer) {
            _stallTimer->invalidate();
            _stallTimer.reset();
        }
        return;
    }
    const double now = platform::RunLoop::main().now();
    const std::uint64_t seen = _framesSeen.load();
    if (seen != _framesAtLastCheck) {
        _framesAtLastCheck = seen;
        _lastProgressTime = now;
        return;
    }
    // Silent for the timeout on the run loop's clock and in real time alike:
    // a manual clock moved on faster than frames can come is no stall.
    const double silentFor =
        static_cast<double>(steadyNanoseconds() - _lastFrameNanoseconds.load()) / 1e9;
    if (now - _lastProgressTime < _stallTimeout || silentFor < _stallTimeout) {
        return;
    }
    _stallTimer->invalidate();
    _stallTimer.reset();
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    _captureSessionQueue->async([weakSelf] {
        auto self = live(weakSelf);
        // Only a camera that streams can fall silent: not a session without
        // an input, nor one that has already stopped.
        if (!self || !self->_running.load() || !self->_captureSession || !self->_deviceInput ||
            !self->_captureSession->isRunning()) {
            return;
        }
        self->_captureSession->stopRunning();
        self->reportCameraLoss(QStringLiteral("The camera stopped sending pictures."), nullptr);
    });
}

void QXDCamera::noteFrameArrival() {
    ++_framesSeen;
    _lastFrameNanoseconds = steadyNanoseconds();
}
