#pragma once

#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/foundation/Error.h"

#include <QPointF>
#include <QString>

#include <memory>
#include <mutex>
#include <vector>

namespace platform {

class DispatchQueue;

/// A camera, as the capture framework presents it: identity, capabilities,
/// the adjustable settings and the configuration lock. Its behaviour comes
/// from its driver.
///
/// Thread-safe. Queries need no lock; every setter requires
/// lockForConfiguration first, as on the platform. A setter called without the
/// lock, or with a value the device does not support, is a programming error:
/// it is logged and ignored. No driver call or notification happens while a
/// lock of the device is held.
class CaptureDevice : public std::enable_shared_from_this<CaptureDevice> {
    struct Key {};

public:
    /// A device backed by driver (which must back no other device).
    static std::shared_ptr<CaptureDevice> create(std::shared_ptr<CaptureDeviceDriver> driver);

    /// The connected devices of the current discovery provider that offer
    /// mediaType, in the provider's order (see DeviceDiscovery).
    static std::vector<std::shared_ptr<CaptureDevice>> devicesWithMediaType(
        const QString& mediaType);

    CaptureDevice(Key, std::shared_ptr<CaptureDeviceDriver> driver);
    ~CaptureDevice();
    CaptureDevice(const CaptureDevice&) = delete;
    CaptureDevice& operator=(const CaptureDevice&) = delete;

    QString uniqueID() const;
    QString localizedName() const;
    int position() const;
    bool hasMediaType(const QString& mediaType) const { return mediaType == kMediaTypeVideo; }
    bool isConnected() const;
    bool supportsAVCaptureSessionPreset(const QString& preset) const;

    // Configuration lock ------------------------------------------------------
    /// Counted. False, with *error filled when error is non-null, when the
    /// driver refuses (or the device is gone).
    bool lockForConfiguration(ErrorPtr* error);
    void unlockForConfiguration();

    // Focus --------------------------------------------------------------------
    bool isFocusModeSupported(int mode) const;
    int focusMode() const;
    void setFocusMode(int mode);
    bool isFocusPointOfInterestSupported() const;
    QPointF focusPointOfInterest() const;
    /// A point in the unit square of device coordinates.
    void setFocusPointOfInterest(const QPointF& point);

    // Exposure -------------------------------------------------------------
    bool isExposureModeSupported(int mode) const;
    int exposureMode() const;
    void setExposureMode(int mode);
    bool isExposurePointOfInterestSupported() const;
    QPointF exposurePointOfInterest() const;
    void setExposurePointOfInterest(const QPointF& point);

    // Flash ------------------------------------------------------------------
    bool hasFlash() const;
    bool isFlashModeSupported(int mode) const;
    int flashMode() const;
    void setFlashMode(int mode);

    // Torch ------------------------------------------------------------------
    bool hasTorch() const;
    bool isTorchAvailable() const;
    bool isTorchModeSupported(int mode) const;
    int torchMode() const;
    /// Turning the torch on this way lights it at full available level.
    void setTorchMode(int mode);
    /// The current level: 0 while off.
    float torchLevel() const;
    bool isTorchActive() const { return torchLevel() > 0.0f; }
    float maxAvailableTorchLevel() const;
    /// Turns the torch on at level, which must lie in (0, maxAvailableTorchLevel]
    /// or be kMaxAvailableTorchLevel. Otherwise, or without the lock, torch or
    /// availability, false with *error filled when error is non-null.
    bool setTorchModeOnWithLevel(float level, ErrorPtr* error);

    // White balance --------------------------------------------------------
    bool isWhiteBalanceModeSupported(int mode) const;
    int whiteBalanceMode() const;
    void setWhiteBalanceMode(int mode);

    // Low-light boost ------------------------------------------------------
    bool isLowLightBoostSupported() const;
    /// True while boost is wanted and supported (the virtual scene is dim).
    bool isLowLightBoostEnabled() const;
    bool automaticallyEnablesLowLightBoostWhenAvailable() const;
    void setAutomaticallyEnablesLowLightBoostWhenAvailable(bool enabled);

    // For the capture classes ---------------------------------------------
    const CaptureDeviceCapabilities& capabilities() const { return _driver->capabilities(); }
    CaptureDeviceDriver& driver() const { return *_driver; }
    CaptureDeviceSettings settings() const;
    /// Starts the driver's stream into sink; a disconnection of the device, or
    /// its loss to another program, is reported to sink->streamDidFail. null
    /// or the driver's error.
    ErrorPtr startStreaming(const std::shared_ptr<CaptureStreamSink>& sink);
    void stopStreaming();

private:
    /// Applies change to the settings under the device's lock when the device
    /// is locked for configuration (else logs what) and hands the result to
    /// the driver.
    template <typename Change>
    void configure(const char* what, Change change);
    void handleStreamFailure(const ErrorPtr& reason, bool disconnected);

    std::shared_ptr<CaptureDeviceDriver> _driver;
    std::shared_ptr<DispatchQueue> _events;
    mutable std::mutex _mutex;
    CaptureDeviceSettings _settings;
    int _lockCount = 0;
    std::weak_ptr<CaptureStreamSink> _streamSink;
};

/// Where devicesWithMediaType gets its devices: the current provider.
///
/// The default provider lists the cameras of the registered hardware source
/// when it has any, else the two default virtual cameras (back, then front),
/// made once and kept so their identity is stable. Tests replace the provider
/// for a scope. Thread-safe; providers are called without any lock held.
class DeviceDiscovery {
public:
    using Provider = std::function<std::vector<std::shared_ptr<CaptureDevice>>()>;

    /// Every device of the current provider, connected or not, in its order.
    static std::vector<std::shared_ptr<CaptureDevice>> allDevices();

    /// Registers the source of real cameras (the Qt camera driver); an empty
    /// function removes it.
    static void setHardwareSource(Provider source);

    /// Replaces the provider for the guard's lifetime; guards nest.
    class ScopedOverride {
    public:
        explicit ScopedOverride(Provider provider);
        /// Lists exactly devices.
        explicit ScopedOverride(std::vector<std::shared_ptr<CaptureDevice>> devices);
        ~ScopedOverride();
        ScopedOverride(const ScopedOverride&) = delete;
        ScopedOverride& operator=(const ScopedOverride&) = delete;

    private:
        Provider _previous;
    };

    /// Installs the camera-availability probe; runs once, on the capture
    /// system's first use (and when the library loads).
    static void initialize();
};

}  // namespace platform
