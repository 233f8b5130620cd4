#include "platform/capture/CaptureDevice.h"

#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace platform {
namespace {

bool contains(const std::vector<int>& values, int value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

bool isUnitPoint(const QPointF& point) {
    return point.x() >= 0.0 && point.x() <= 1.0 && point.y() >= 0.0 && point.y() <= 1.0;
}

ErrorPtr torchError(int code, const QString& description) {
    return Error::withDescription(kAVFoundationErrorDomain, code, description);
}

}  // namespace

std::shared_ptr<CaptureDevice> CaptureDevice::create(std::shared_ptr<CaptureDeviceDriver> driver) {
    if (!driver) {
        return nullptr;
    }
    DeviceDiscovery::initialize();
    auto device = std::make_shared<CaptureDevice>(Key{}, std::move(driver));
    std::weak_ptr<CaptureDevice> weak = device;
    device->_driver->setFailureHandler([weak](const ErrorPtr& reason, bool disconnected) {
        if (auto self = weak.lock()) {
            self->handleStreamFailure(reason, disconnected);
        }
    });
    return device;
}

std::vector<std::shared_ptr<CaptureDevice>> CaptureDevice::devicesWithMediaType(
    const QString& mediaType) {
    std::vector<std::shared_ptr<CaptureDevice>> devices;
    for (auto& device : DeviceDiscovery::allDevices()) {
        if (device && device->hasMediaType(mediaType) && device->isConnected()) {
            devices.push_back(std::move(device));
        }
    }
    return devices;
}

CaptureDevice::CaptureDevice(Key, std::shared_ptr<CaptureDeviceDriver> driver)
    : _driver(std::move(driver)), _settings(_driver->initialSettings()) {}

CaptureDevice::~CaptureDevice() {
    _driver->setFailureHandler({});
}

QString CaptureDevice::uniqueID() const {
    return _driver->uniqueID();
}

QString CaptureDevice::localizedName() const {
    return _driver->localizedName();
}

int CaptureDevice::position() const {
    return _driver->position();
}

bool CaptureDevice::isConnected() const {
    return _driver->isConnected();
}

bool CaptureDevice::supportsAVCaptureSessionPreset(const QString& preset) const {
    return capabilities().supportsPreset(preset);
}

bool CaptureDevice::lockForConfiguration(ErrorPtr* error) {
    ErrorPtr refusal;
    if (!isConnected()) {
        refusal = Error::withDescription(kAVFoundationErrorDomain, av_error::kDeviceNotConnected,
                                         QStringLiteral("Cannot Record"));
    } else {
        refusal = _driver->lockForConfiguration();
    }
    if (refusal) {
        if (error != nullptr) {
            *error = refusal;
        }
        return false;
    }
    std::lock_guard lock(_mutex);
    ++_lockCount;
    return true;
}

void CaptureDevice::unlockForConfiguration() {
    bool released = false;
    bool wasLocked = false;
    {
        std::lock_guard lock(_mutex);
        wasLocked = _lockCount > 0;
        if (wasLocked) {
            released = --_lockCount == 0;
        }
    }
    if (!wasLocked) {
        log::write(QStringLiteral("[capture] CaptureDevice %1: unlockForConfiguration without a "
                                  "matching lockForConfiguration ignored")
                       .arg(uniqueID()));
        return;
    }
    if (released) {
        _driver->unlockForConfiguration();
    }
}

template <typename Change>
void CaptureDevice::configure(const char* what, Change change) {
    QString problem;
    CaptureDeviceSettings applied;
    {
        std::lock_guard lock(_mutex);
        if (_lockCount == 0) {
            problem = QStringLiteral("the device is not locked for configuration");
        } else {
            CaptureDeviceSettings next = _settings;
            problem = change(next);
            if (problem.isEmpty()) {
                _settings = next;
                applied = next;
            }
        }
    }
    if (!problem.isEmpty()) {
        log::write(QStringLiteral("[capture] CaptureDevice %1: %2 ignored: %3")
                       .arg(uniqueID(), QString::fromUtf8(what), problem));
        return;
    }
    _driver->applySettings(applied);
}

CaptureDeviceSettings CaptureDevice::settings() const {
    std::lock_guard lock(_mutex);
    return _settings;
}

// Focus ----------------------------------------------------------------------

bool CaptureDevice::isFocusModeSupported(int mode) const {
    return contains(capabilities().focusModes, mode);
}

int CaptureDevice::focusMode() const {
    return settings().focusMode;
}

void CaptureDevice::setFocusMode(int mode) {
    const bool supported = isFocusModeSupported(mode);
    configure("setFocusMode", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("focus mode %1 is not supported").arg(mode);
        }
        s.focusMode = mode;
        return QString();
    });
}

bool CaptureDevice::isFocusPointOfInterestSupported() const {
    return capabilities().focusPointOfInterest;
}

QPointF CaptureDevice::focusPointOfInterest() const {
    return settings().focusPointOfInterest;
}

void CaptureDevice::setFocusPointOfInterest(const QPointF& point) {
    const bool supported = isFocusPointOfInterestSupported();
    configure("setFocusPointOfInterest", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("focus point of interest is not supported");
        }
        if (!isUnitPoint(point)) {
            return QStringLiteral("point (%1, %2) is outside the unit square")
                .arg(point.x())
                .arg(point.y());
        }
        s.focusPointOfInterest = point;
        return QString();
    });
}

// Exposure -------------------------------------------------------------------

bool CaptureDevice::isExposureModeSupported(int mode) const {
    return contains(capabilities().exposureModes, mode);
}

int CaptureDevice::exposureMode() const {
    return settings().exposureMode;
}

void CaptureDevice::setExposureMode(int mode) {
    const bool supported = isExposureModeSupported(mode);
    configure("setExposureMode", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("exposure mode %1 is not supported").arg(mode);
        }
        s.exposureMode = mode;
        return QString();
    });
}

bool CaptureDevice::isExposurePointOfInterestSupported() const {
    return capabilities().exposurePointOfInterest;
}

QPointF CaptureDevice::exposurePointOfInterest() const {
    return settings().exposurePointOfInterest;
}

void CaptureDevice::setExposurePointOfInterest(const QPointF& point) {
    const bool supported = isExposurePointOfInterestSupported();
    configure("setExposurePointOfInterest", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("exposure point of interest is not supported");
        }
        if (!isUnitPoint(point)) {
            return QStringLiteral("point (%1, %2) is outside the unit square")
                .arg(point.x())
                .arg(point.y());
        }
        s.exposurePointOfInterest = point;
        return QString();
    });
}

// Flash ----------------------------------------------------------------------

bool CaptureDevice::hasFlash() const {
    return capabilities().hasFlash;
}

bool CaptureDevice::isFlashModeSupported(int mode) const {
    return hasFlash() && contains(capabilities().flashModes, mode);
}

int CaptureDevice::flashMode() const {
    return settings().flashMode;
}

void CaptureDevice::setFlashMode(int mode) {
    const bool supported = isFlashModeSupported(mode);
    configure("setFlashMode", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("flash mode %1 is not supported").arg(mode);
        }
        s.flashMode = mode;
        return QString();
    });
}

// Torch ----------------------------------------------------------------------

bool CaptureDevice::hasTorch() const {
    return capabilities().hasTorch;
}

bool CaptureDevice::isTorchAvailable() const {
    return hasTorch() && _driver->isTorchAvailable();
}

bool CaptureDevice::isTorchModeSupported(int mode) const {
    return hasTorch() && contains(capabilities().torchModes, mode);
}

int CaptureDevice::torchMode() const {
    return settings().torchMode;
}

float CaptureDevice::torchLevel() const {
    return settings().torchLevel;
}

float CaptureDevice::maxAvailableTorchLevel() const {
    return hasTorch() ? _driver->maxAvailableTorchLevel() : 0.0f;
}

void CaptureDevice::setTorchMode(int mode) {
    const bool supported = isTorchModeSupported(mode);
    const bool available = isTorchAvailable();
    const float fullLevel = maxAvailableTorchLevel();
    configure("setTorchMode", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("torch mode %1 is not supported").arg(mode);
        }
        if (mode == torch_mode::kOn && (!available || fullLevel <= 0.0f)) {
            return QStringLiteral("the torch is not available");
        }
        s.torchMode = mode;
        // Auto lights the torch only in the dark; the scenes here are lit.
        s.torchLevel = mode == torch_mode::kOn ? fullLevel : 0.0f;
        return QString();
    });
}

bool CaptureDevice::setTorchModeOnWithLevel(float level, ErrorPtr* error) {
    const float maximum = maxAvailableTorchLevel();
    ErrorPtr refusal;
    float effective = level == kMaxAvailableTorchLevel ? maximum : level;
    if (!isTorchModeSupported(torch_mode::kOn)) {
        refusal = torchError(av_error::kUnknown, QStringLiteral("The device has no torch."));
    } else if (level != kMaxAvailableTorchLevel &&
               (std::isnan(level) || level <= 0.0f || level > 1.0f)) {
        refusal = torchError(av_error::kUnknown,
                             QStringLiteral("Torch level %1 is outside (0, 1].").arg(level));
    } else if (!isTorchAvailable() || effective <= 0.0f || effective > maximum) {
        refusal = torchError(av_error::kTorchLevelUnavailable,
                             QStringLiteral("Torch level %1 is unavailable (maximum now %2).")
                                 .arg(effective)
                                 .arg(maximum));
    }
    if (!refusal) {
        bool locked = false;
        CaptureDeviceSettings applied;
        {
            std::lock_guard lock(_mutex);
            locked = _lockCount > 0;
            if (locked) {
                _settings.torchMode = torch_mode::kOn;
                _settings.torchLevel = effective;
                applied = _settings;
            }
        }
        if (locked) {
            _driver->applySettings(applied);
            return true;
        }
        refusal = torchError(av_error::kUnknown,
                             QStringLiteral("The device is not locked for configuration."));
    }
    log::write(QStringLiteral("[capture] CaptureDevice %1: setTorchModeOnWithLevel(%2) refused: %3")
                   .arg(uniqueID())
                   .arg(level)
                   .arg(refusal->localizedDescription()));
    if (error != nullptr) {
        *error = refusal;
    }
    return false;
}

// White balance ----------------------------------------------------------------

bool CaptureDevice::isWhiteBalanceModeSupported(int mode) const {
    return contains(capabilities().whiteBalanceModes, mode);
}

int CaptureDevice::whiteBalanceMode() const {
    return settings().whiteBalanceMode;
}

void CaptureDevice::setWhiteBalanceMode(int mode) {
    const bool supported = isWhiteBalanceModeSupported(mode);
    configure("setWhiteBalanceMode", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("white balance mode %1 is not supported").arg(mode);
        }
        s.whiteBalanceMode = mode;
        return QString();
    });
}

// Low-light boost ------------------------------------------------------------

bool CaptureDevice::isLowLightBoostSupported() const {
    return capabilities().lowLightBoost;
}

bool CaptureDevice::isLowLightBoostEnabled() const {
    return isLowLightBoostSupported() && automaticallyEnablesLowLightBoostWhenAvailable();
}

bool CaptureDevice::automaticallyEnablesLowLightBoostWhenAvailable() const {
    return settings().automaticallyEnablesLowLightBoostWhenAvailable;
}

void CaptureDevice::setAutomaticallyEnablesLowLightBoostWhenAvailable(bool enabled) {
    const bool supported = isLowLightBoostSupported();
    configure("setAutomaticallyEnablesLowLightBoostWhenAvailable", [&](CaptureDeviceSettings& s) {
        if (!supported) {
            return QStringLiteral("low-light boost is not supported");
        }
        s.automaticallyEnablesLowLightBoostWhenAvailable = enabled;
        return QString();
    });
}

// Streaming --------------------------------------------------------------------

ErrorPtr CaptureDevice::startStreaming(const std::shared_ptr<CaptureStreamSink>& sink) {
    // The sink is known before the driver starts, which may report a loss at
    // once. A start the driver refuses (the device streams for another session
    // already) leaves the running stream's sink in place.
    std::weak_ptr<CaptureStreamSink> previous;
    {
        std::lock_guard lock(_mutex);
        previous = std::exchange(_streamSink, sink);
    }
    ErrorPtr error = _driver->startStreaming(sink);
    if (error) {
        std::lock_guard lock(_mutex);
        _streamSink = previous;
    }
    return error;
}

void CaptureDevice::stopStreaming() {
    _driver->stopStreaming();
    std::lock_guard lock(_mutex);
    _streamSink.reset();
}

void CaptureDevice::handleStreamFailure(const ErrorPtr& reason, bool disconnected) {
    // Drivers may report from their stream thread; observers of the
    // notification may stop the session, which joins that thread, so both the
    // notification and the session's failure go out from the device's own queue.
    std::shared_ptr<DispatchQueue> events;
    {
        std::lock_guard lock(_mutex);
        if (!_events) {
            _events = DispatchQueue::createSerial(
                QStringLiteral("platform.capture.device-events.%1").arg(_driver->uniqueID()));
        }
        events = _events;
    }
    std::weak_ptr<CaptureDevice> weak = weak_from_this();
    events->async([weak, reason, disconnected] {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        if (disconnected) {
            NotificationCenter::defaultCenter().post(kCaptureDeviceWasDisconnectedNotification,
                                                     self.get());
        }
        std::shared_ptr<CaptureStreamSink> sink;
        {
            std::lock_guard lock(self->_mutex);
            sink = self->_streamSink.lock();
        }
        if (sink) {
            sink->streamDidFail(reason);
        }
    });
}

}  // namespace platform
