// The engine's lifetime and health: how the owner's release tears it down
// without leaving a thread behind, how a lost or silent camera is reported,
// and the diagnostic counters.
#include "QXDCamera.h"

#include "QXDCameraCore.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/environment/Environment.h"
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
    // released; wait for what is running now, then take everything down on
    // this thread.
    engine->_released = true;
    for (const auto& queue : {engine->_captureSessionQueue, engine->_videoDataOutputQueue,
                              engine->_stillImageOutputQueue}) {
        if (queue && !queue->isCurrent()) {
            queue->sync([] {});
        }
    }
    engine->tearDown();
    // Usually the last reference. A frame or completion that found the engine
    // released a moment ago may still hold it; it lets go of an engine that no
    // longer owns a thread, an observer or a camera.
    engine.reset();
}

void QXDCamera::tearDown() {
    if (_tornDown) {
        return;
    }
    _tornDown = true;
    if (_stallTimer) {
        _stallTimer->invalidate();
        _stallTimer.reset();
    }
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    platform::Device::current().endGeneratingDeviceOrientationNotifications();
    // Stops the stream (joining its thread), so no frame is queued after it.
    teardownCaptureSession();
    // Waits for a capture in progress on the still output's thread, whose
    // completion finds the engine released.
    _stillImageOutput.reset();
    _videoPreviewLayer.reset();
    // Joins the queues after what is queued has run (and found the engine
    // released), unless this runs on one of them.
    _captureSessionQueue.reset();
    _videoDataOutputQueue.reset();
    _stillImageOutputQueue.reset();
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
    // Posted on whichever thread the session or device fails on; handled on
    // the session queue. Neither the engine nor its members are touched here.
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    std::weak_ptr<platform::DispatchQueue> sessionQueue = _captureSessionQueue;
    platform::NotificationCenter::defaultCenter().addObserver(
        this, platform::kCaptureSessionRuntimeErrorNotification, _captureSession.get(),
        [weakSelf, sessionQueue](const platform::Notification& notification) {
            const ErrorPtr cause =
                notification.userInfo.value(platform::kCaptureSessionErrorKey).value<ErrorPtr>();
            if (auto queue = sessionQueue.lock()) {
                queue->async([weakSelf, cause] {
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
