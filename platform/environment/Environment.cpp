#include "platform/environment/Environment.h"

#include "platform/foundation/NotificationCenter.h"

#include <algorithm>

namespace platform {

Device& Device::current() {
    // Never destroyed, like every process-wide object: an engine or a screen
    // released on its own queue while the process exits still reaches it.
    static Device& device = *new Device;
    return device;
}

void Device::setOrientation(int orientation) {
    const int previous = _orientation.exchange(orientation);
    if (previous != orientation && isGeneratingDeviceOrientationNotifications()) {
        NotificationCenter::defaultCenter().post(kDeviceOrientationDidChangeNotification, this);
    }
}

void Device::beginGeneratingDeviceOrientationNotifications() {
    ++_generating;
}

void Device::endGeneratingDeviceOrientationNotifications() {
    int current = _generating.load();
    while (current > 0 && !_generating.compare_exchange_weak(current, current - 1)) {
    }
}

bool Device::respondsToUserInterfaceIdiom() const {
    std::lock_guard lock(_mutex);
    return !_idiomSetByHost || _idiom.has_value();
}

int Device::userInterfaceIdiom() const {
    std::lock_guard lock(_mutex);
    if (!_idiomSetByHost) {
        return idiomForWindowSize(_windowSize);
    }
    return _idiom.value_or(idiom::kPhone);
}

void Device::setUserInterfaceIdiom(std::optional<int> value) {
    std::lock_guard lock(_mutex);
    _idiomSetByHost = true;
    _idiom = value;
}

void Device::resetUserInterfaceIdiom() {
    std::lock_guard lock(_mutex);
    _idiomSetByHost = false;
    _idiom = idiom::kPhone;
}

void Device::setWindowSize(const QSizeF& size) {
    std::lock_guard lock(_mutex);
    _windowSize = size;
}

int Device::idiomForWindowSize(const QSizeF& size) {
    constexpr double kShortestPadSide = 600.0;
    if (!(size.width() > 0 && size.height() > 0)) {
        return idiom::kPhone;
    }
    return std::min(size.width(), size.height()) >= kShortestPadSide ? idiom::kPad : idiom::kPhone;
}

Application& Application::shared() {
    static Application& application = *new Application;
    return application;
}

Screen& Screen::main() {
    static Screen& screen = *new Screen;
    return screen;
}

QRectF Screen::bounds() const {
    std::lock_guard lock(_mutex);
    return _bounds;
}

void Screen::setBounds(const QRectF& bounds) {
    std::lock_guard lock(_mutex);
    _bounds = bounds;
}

double Screen::scale() const {
    std::lock_guard lock(_mutex);
    return _scale;
}

void Screen::setScale(double scale) {
    std::lock_guard lock(_mutex);
    _scale = scale > 0 ? scale : 1.0;
}

namespace {

struct AvailabilityState {
    std::mutex mutex;
    std::optional<bool> override;
    std::function<bool()> probe;
};

AvailabilityState& availability() {
    static AvailabilityState state;
    return state;
}

}  // namespace

bool CameraAvailability::isCameraSourceAvailable() {
    std::function<bool()> probe;
    {
        std::lock_guard lock(availability().mutex);
        if (availability().override) {
            return *availability().override;
        }
        probe = availability().probe;
    }
    return probe ? probe() : false;
}

void CameraAvailability::setOverride(std::optional<bool> available) {
    std::lock_guard lock(availability().mutex);
    availability().override = available;
}

void CameraAvailability::setProbe(std::function<bool()> probe) {
    std::lock_guard lock(availability().mutex);
    availability().probe = std::move(probe);
}

}  // namespace platform
