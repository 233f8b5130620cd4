// The engine's device configuration: capability questions answered on the
// session queue, and the configure* wrappers with their errors and log lines.
#include "QXDCamera.h"

#include "QXDCameraCore.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/foundation/Dispatch.h"

using platform::CaptureDevice;
using platform::ErrorPtr;

namespace {

constexpr int kErrorCodeDevice = 401;
constexpr int kErrorCodeOther = 404;

ErrorPtr makeError(const QString& domain, int code, const QString& description) {
    return platform::Error::withDescription(domain, code, description);
}

// "%d" of a mode: the value as a 32-bit integer.
QString withMode(const char* format, int mode) {
    return QString::asprintf(format, static_cast<int>(mode));
}

}  // namespace

// --- Device configuration -----------------------------------------------------

void QXDCamera::reportError(const ErrorPtr& error) {
    if (auto receiver = _delegate.lock()) {
        receiver->cameraDidFailWithError(*this, error);
    }
}

bool QXDCamera::canConfigureDeviceWithActionHandler(const CapabilityHandler& handler) {
    bool result = false;
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    _captureSessionQueue->sync([&] {
        auto self = live(weakSelf);
        if (!self) {
            return;
        }
        const auto input = self->_deviceInput;
        const auto device = input ? input->device() : nullptr;
        if (device) {
            if (handler) {
                result = handler(*device);
            }
        } else if (auto receiver = self->_delegate.lock()) {
            receiver->cameraDidFailWithError(
                *self, makeError(QXDCameraErrorDomain, kErrorCodeOther,
                                 QStringLiteral("Failed to obtain capture device.")));
        }
    });
    return result;
}

void QXDCamera::configureDeviceWithActionHandler(ConfigurationHandler handler) {
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    _captureSessionQueue->async([weakSelf, handler = std::move(handler)] {
        auto self = live(weakSelf);
        if (!self) {
            return;
        }
        const auto receiver = self->_delegate.lock();
        const auto input = self->_deviceInput;
        const auto device = input ? input->device() : nullptr;
        if (!device) {
            if (receiver) {
                receiver->cameraDidFailWithError(
                    *self, makeError(QXDCameraErrorDomain, kErrorCodeDevice,
                                     QStringLiteral("Failed to obtain capture device.")));
            }
            return;
        }
        ErrorPtr error;
        if (!device->lockForConfiguration(&error)) {
            if (receiver) {
                const QString reason = error ? error->localizedDescription() : QString();
                receiver->cameraDidFailWithError(
                    *self,
                    makeError(QXDCameraErrorDomain, kErrorCodeDevice,
                              QStringLiteral("Unable to lock capture device for configuration: %1")
                                  .arg(reason)));
            }
            return;
        }
        if (handler && !handler(*device, &error)) {
            if (receiver) {
                receiver->cameraDidFailWithError(*self, error);
            }
        }
        device->unlockForConfiguration();
    });
}

bool QXDCamera::canConfigureExposureMode(int mode, bool pointOfInterest) {
    return canConfigureDeviceWithActionHandler([mode, pointOfInterest](CaptureDevice& device) {
        return device.isExposureModeSupported(mode) &&
               (!pointOfInterest || device.isExposurePointOfInterestSupported());
    });
}

bool QXDCamera::canConfigureFocusMode(int mode, bool pointOfInterest) {
    return canConfigureDeviceWithActionHandler([mode, pointOfInterest](CaptureDevice& device) {
        return device.isFocusModeSupported(mode) &&
               (!pointOfInterest || device.isFocusPointOfInterestSupported());
    });
}

bool QXDCamera::canConfigureFlashMode(int mode) {
    return canConfigureDeviceWithActionHandler(
        [mode](CaptureDevice& device) { return device.isFlashModeSupported(mode); });
}

bool QXDCamera::canConfigureTorchMode(int mode) {
    return canConfigureDeviceWithActionHandler(
        [mode](CaptureDevice& device) { return device.isTorchModeSupported(mode); });
}

bool QXDCamera::canConfigureWhiteBalanceMode(int mode) {
    return canConfigureDeviceWithActionHandler(
        [mode](CaptureDevice& device) { return device.isWhiteBalanceModeSupported(mode); });
}

bool QXDCamera::canConfigureLowLightBoost() {
    return canConfigureDeviceWithActionHandler(
        [](CaptureDevice& device) { return device.isLowLightBoostSupported(); });
}

void QXDCamera::configureExposureMode(int mode) {
    configureDeviceWithActionHandler([mode](CaptureDevice& device, ErrorPtr* error) {
        if (device.isExposureModeSupported(mode)) {
            if (device.exposureMode() != mode) {
                device.setExposureMode(mode);
                QXD_LOG(QStringLiteral("Configured exposure mode: ") +
                        QString::asprintf("%ld", static_cast<long>(mode)));
            }
            return true;
        }
        if (error != nullptr) {
            *error = makeError(
                QXDCameraErrorDomain, kErrorCodeOther,
                withMode("Specified exposure mode (%d) is not supported by capture device.", mode));
        }
        return false;
    });
}

void QXDCamera::configureModeWithPoint(bool exposure, int mode, const QPointF& point) {
    std::weak_ptr<QXDCamera> weakSelf = weak_from_this();
    configureDeviceWithActionHandler([weakSelf, exposure, mode, point](CaptureDevice& device,
                                                                       ErrorPtr* error) {
        const bool pointSupported = exposure ? device.isExposurePointOfInterestSupported()
                                             : device.isFocusPointOfInterestSupported();
        if (!pointSupported) {
            if (error != nullptr) {
                *error = makeError(QStringLiteral("ErrorDomain"), kErrorCodeOther,
                                   exposure ? QStringLiteral("Exposure point of interest is "
                                                             "not supported by capture device.")
                                            : QStringLiteral("Focus point of interest is not "
                                                             "supported by capture device."));
            }
            return false;
        }
        QPointF devicePoint(0, 0);
        if (auto self = live(weakSelf); self && self->_videoPreviewLayer) {
            devicePoint = self->_videoPreviewLayer->captureDevicePointOfInterestForPoint(point);
        }
        const QPointF current =
            exposure ? device.exposurePointOfInterest() : device.focusPointOfInterest();
        if (current.x() != devicePoint.x() || current.y() != devicePoint.y()) {
            if (exposure) {
                device.setExposurePointOfInterest(devicePoint);
            } else {
                device.setFocusPointOfInterest(devicePoint);
            }
            QXD_LOG((exposure ? QStringLiteral("Configure exposure point of interest: ")
                              : QStringLiteral("Configure focus point of interest: ")) +
                    QString::asprintf("x: %f y: %f", point.x(), point.y()));
        }
        const bool modeSupported =
            exposure ? device.isExposureModeSupported(mode) : device.isFocusModeSupported(mode);
        if (modeSupported) {
            const int currentMode = exposure ? device.exposureMode() : device.focusMode();
            if (currentMode != mode) {
                if (exposure) {
                    device.setExposureMode(mode);
                } else {
                    device.setFocusMode(mode);
                }
                QXD_LOG((exposure ? QStringLiteral("Configured exposure mode: ")
                                  : QStringLiteral("Configured focus mode: ")) +
                        QString::asprintf("%ld", static_cast<long>(mode)));
            }
            return true;
        }
        if (error != nullptr) {
            *error = exposure ? makeError(QStringLiteral("errorDomain"), kErrorCodeOther,
                                          withMode("Specified exposure mode (%d) is not supported "
                                                   "by capture device.",
                                                   mode))
                              : makeError(QStringLiteral("ErrorDomain"), kErrorCodeOther,
                                          withMode("Specified focus mode (%d) is not supported by "
                                                   "capture device.",
                                                   mode));
        }
        return false;
    });
}

void QXDCamera::configureExposureMode(int mode, const QPointF& exposurePointOfInterest) {
    configureModeWithPoint(true, mode, exposurePointOfInterest);
}

void QXDCamera::configureFocusMode(int mode) {
    configureDeviceWithActionHandler([mode](CaptureDevice& device, ErrorPtr* error) {
        if (device.isFocusModeSupported(mode)) {
            if (device.focusMode() != mode) {
                device.setFocusMode(mode);
                QXD_LOG(QStringLiteral("Configured focus mode: ") +
                        QString::asprintf("%ld", static_cast<long>(mode)));
            }
            return true;
        }
        if (error != nullptr) {
            *error = makeError(
                QStringLiteral("ErrorDomain"), kErrorCodeOther,
                withMode("Specified focus mode (%d) is not supported by capture device.", mode));
        }
        return false;
    });
}

void QXDCamera::configureFocusMode(int mode, const QPointF& focusPointOfInterest) {
    configureModeWithPoint(false, mode, focusPointOfInterest);
}

void QXDCamera::configureFlashMode(int mode) {
    configureDeviceWithActionHandler([mode](CaptureDevice& device, ErrorPtr* error) {
        if (device.isFlashModeSupported(mode)) {
            if (device.flashMode() != mode) {
                device.setFlashMode(mode);
                QXD_LOG(QStringLiteral("Configured flash mode: ") +
                        QString::asprintf("%ld", static_cast<long>(mode)));
            }
            return true;
        }
        if (error != nullptr) {
            *error = makeError(
                QStringLiteral("ErrorDomain"), kErrorCodeOther,
                withMode("Specified flash mode (%d) is not supported by capture device.", mode));
        }
        return false;
    });
}

void QXDCamera::configureWhiteBalanceMode(int mode) {
    configureDeviceWithActionHandler([mode](CaptureDevice& device, ErrorPtr* error) {
        if (device.isWhiteBalanceModeSupported(mode)) {
            if (device.whiteBalanceMode() != mode) {
                device.setWhiteBalanceMode(mode);
            }
            return true;
        }
        if (error != nullptr) {
            *error = makeError(
                QStringLiteral("ErrorDomain"), kErrorCodeOther,
                withMode("Specified white balance (%d) is not supported by capture device.", mode));
        }
        return false;
    });
}

void QXDCamera::configureLowLightBoost(bool enabled) {
    configureDeviceWithActionHandler([enabled](CaptureDevice& device, ErrorPtr* error) {
        if (device.isLowLightBoostSupported()) {
            if (device.isLowLightBoostEnabled() != enabled) {
                device.setAutomaticallyEnablesLowLightBoostWhenAvailable(enabled);
                QXD_LOG(QStringLiteral("Configured low light boost to: ") +
                        QString::asprintf("%i", static_cast<int>(enabled)));
            }
            return true;
        }
        if (error != nullptr) {
            *error =
                makeError(QStringLiteral("ErrorDomain"), kErrorCodeOther,
                          QStringLiteral("Low light boost is not supported by capture device."));
        }
        return false;
    });
}

void QXDCamera::configureTorchMode(int mode, float torchLevel) {
    configureDeviceWithActionHandler([mode, torchLevel](CaptureDevice& device, ErrorPtr* error) {
        if (device.hasTorch() && device.isTorchAvailable() && device.isTorchModeSupported(mode)) {
            if (mode == platform::torch_mode::kOn && torchLevel >= 0.0f) {
                QXD_LOG(
                    QString::asprintf("Set torch level to %f", static_cast<double>(torchLevel)));
                return device.setTorchModeOnWithLevel(torchLevel, error);
            }
            device.setTorchMode(mode);
            QXD_LOG(QStringLiteral("Configured torch mode: ") +
                    QString::asprintf("%ld", static_cast<long>(mode)));
            return true;
        }
        if (error != nullptr) {
            *error = makeError(
                QStringLiteral("ErrorDomain"), kErrorCodeOther,
                withMode("Torch mode (%d) is not available or supported by capture device.", mode));
        }
        return false;
    });
}

void QXDCamera::configureVideoStabilization(bool enabled) {
    _videoStabilizationEnableWhenAvailable = enabled;
}

void QXDCamera::configureStillImageStabilization(bool enabled) {
    _stillImageStabilizationEnableWhenAvailable = enabled;
    QXD_LOG(QStringLiteral("Configured still image stabilisation to: ") +
            QString::asprintf("%i", static_cast<int>(enabled)));
}
