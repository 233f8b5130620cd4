#pragma once

#include "platform/foundation/Error.h"

#include <QString>

#include <atomic>
#include <memory>
#include <vector>

namespace platform {

class CaptureDevice;
class CaptureDeviceInput;

/// One stream of an input (its video). Thread-safe.
class CaptureInputPort {
public:
    CaptureInputPort(const QString& mediaType, const std::shared_ptr<CaptureDeviceInput>& input)
        : _mediaType(mediaType), _input(input) {}

    const QString& mediaType() const { return _mediaType; }
    /// The input the port belongs to (held weakly).
    std::shared_ptr<CaptureDeviceInput> input() const { return _input.lock(); }
    bool isEnabled() const { return _enabled.load(); }
    void setEnabled(bool enabled) { _enabled = enabled; }

private:
    QString _mediaType;
    std::weak_ptr<CaptureDeviceInput> _input;
    std::atomic<bool> _enabled{true};
};

/// A device as a session input, with one video port. Immutable once made, so
/// thread-safe.
class CaptureDeviceInput {
    struct Key {};

public:
    /// An input for device; null with *error filled (when error is non-null)
    /// for a null or disconnected device or when the device's driver refuses.
    static std::shared_ptr<CaptureDeviceInput> create(const std::shared_ptr<CaptureDevice>& device,
                                                      ErrorPtr* error);

    explicit CaptureDeviceInput(Key, std::shared_ptr<CaptureDevice> device);

    const std::shared_ptr<CaptureDevice>& device() const { return _device; }
    const std::vector<std::shared_ptr<CaptureInputPort>>& ports() const { return _ports; }
    /// The first port of mediaType, or null.
    std::shared_ptr<CaptureInputPort> portWithMediaType(const QString& mediaType) const;

private:
    std::shared_ptr<CaptureDevice> _device;
    std::vector<std::shared_ptr<CaptureInputPort>> _ports;
};

}  // namespace platform
