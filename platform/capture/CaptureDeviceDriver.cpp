#include "platform/capture/CaptureDeviceDriver.h"

#include <algorithm>
#include <array>
#include <utility>

namespace platform {
namespace {

const std::array<std::pair<QString, QSize>, 4>& fixedPresetSizes() {
    static const std::array<std::pair<QString, QSize>, 4> sizes = {{
        {session_preset::k3840x2160, QSize(3840, 2160)},
        {session_preset::k1920x1080, QSize(1920, 1080)},
        {session_preset::k1280x720, QSize(1280, 720)},
        {session_preset::kiFrame960x540, QSize(960, 540)},
    }};
    return sizes;
}

int preferredMode(const std::vector<int>& modes, int preferred, int fallback) {
    if (std::find(modes.begin(), modes.end(), preferred) != modes.end()) {
        return preferred;
    }
    return modes.empty() ? fallback : modes.front();
}

}  // namespace

QSize CaptureDeviceCapabilities::videoSizeForPreset(const QString& preset) const {
    if (preset == session_preset::kHigh) {
        // Largest first in the table.
        for (const auto& [name, size] : fixedPresetSizes()) {
            if (sessionPresets.contains(name)) {
                return size;
            }
        }
        return {};
    }
    if (!sessionPresets.contains(preset)) {
        return {};
    }
    if (preset == session_preset::kPhoto) {
        return stillImageSize;
    }
    for (const auto& [name, size] : fixedPresetSizes()) {
        if (name == preset) {
            return size;
        }
    }
    return {};
}

QSize FrameLayout::size() const {
    const bool portrait = orientation == video_orientation::kPortrait ||
                          orientation == video_orientation::kPortraitUpsideDown;
    return portrait ? sensorSize.transposed() : sensorSize;
}

CaptureDeviceDriver::~CaptureDeviceDriver() = default;

CaptureDeviceSettings CaptureDeviceDriver::initialSettings() const {
    const CaptureDeviceCapabilities& caps = capabilities();
    CaptureDeviceSettings settings;
    settings.focusMode =
        preferredMode(caps.focusModes, focus_mode::kContinuousAutoFocus, focus_mode::kLocked);
    settings.exposureMode = preferredMode(
        caps.exposureModes, exposure_mode::kContinuousAutoExposure, exposure_mode::kLocked);
    settings.flashMode = preferredMode(caps.flashModes, flash_mode::kOff, flash_mode::kOff);
    settings.torchMode = preferredMode(caps.torchModes, torch_mode::kOff, torch_mode::kOff);
    settings.whiteBalanceMode =
        preferredMode(caps.whiteBalanceModes, white_balance_mode::kContinuousAutoWhiteBalance,
                      white_balance_mode::kLocked);
    return settings;
}

bool CaptureDeviceDriver::isTorchAvailable() const {
    return capabilities().hasTorch && isConnected();
}

float CaptureDeviceDriver::maxAvailableTorchLevel() const {
    return capabilities().hasTorch ? 1.0f : 0.0f;
}

ErrorPtr CaptureDeviceDriver::lockForConfiguration() {
    return nullptr;
}

ErrorPtr CaptureDeviceDriver::openInput() {
    if (!isConnected()) {
        return Error::withDescription(kAVFoundationErrorDomain, av_error::kDeviceNotConnected,
                                      QStringLiteral("Cannot Record"));
    }
    return nullptr;
}

void CaptureDeviceDriver::applySettings(const CaptureDeviceSettings& /*settings*/) {}

void CaptureDeviceDriver::reportDisconnection(const ErrorPtr& reason) {
    std::function<void(const ErrorPtr&, bool)> handler;
    {
        std::lock_guard lock(_handlerMutex);
        handler = _failureHandler;
    }
    if (handler) {
        handler(reason, true);
    }
}

void CaptureDeviceDriver::reportStreamFailure(const ErrorPtr& reason) {
    std::function<void(const ErrorPtr&, bool)> handler;
    {
        std::lock_guard lock(_handlerMutex);
        handler = _failureHandler;
    }
    if (handler) {
        handler(reason, false);
    }
}

void CaptureDeviceDriver::setFailureHandler(std::function<void(const ErrorPtr&, bool)> handler) {
    std::lock_guard lock(_handlerMutex);
    _failureHandler = std::move(handler);
}

}  // namespace platform
