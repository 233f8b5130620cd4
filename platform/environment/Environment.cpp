#include "platform/environment/Environment.h"

#include "platform/foundation/NotificationCenter.h"

namespace platform {

Device& Device::current() {
    static Device device;
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
    return _idiom.has_value();
}

int Device::userInterfaceIdiom() const {
    std::lock_guard lock(_mutex);
    return _idiom.value_or(idiom::kPhone);
}

void Device::setUserInterfaceIdiom(std::optional<int> value) {
    std::lock_guard lock(_mutex);
    _idiom = value;
}

Application& Application::shared() {
    static Application application;
    return application;
}

Screen& Screen::main() {
    static Screen screen;
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
