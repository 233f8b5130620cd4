#include "platform/capture/CaptureConnection.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/foundation/Log.h"

#include <algorithm>

namespace platform {

std::shared_ptr<CaptureConnection> CaptureConnection::create(
    std::vector<std::shared_ptr<CaptureInputPort>> inputPorts,
    const std::shared_ptr<CaptureOutput>& output, const Traits& traits) {
    return std::make_shared<CaptureConnection>(Key{}, std::move(inputPorts), output, traits);
}

CaptureConnection::CaptureConnection(Key, std::vector<std::shared_ptr<CaptureInputPort>> inputPorts,
                                     const std::shared_ptr<CaptureOutput>& output,
                                     const Traits& traits)
    : _ports(std::move(inputPorts)),
      _output(output),
      _traits(traits),
      _videoOrientation(traits.initialVideoOrientation),
      _mirrored(traits.initiallyMirrored) {}

std::shared_ptr<CaptureDevice> CaptureConnection::sourceDevice() const {
    for (const auto& port : _ports) {
        if (auto input = port->input()) {
            return input->device();
        }
    }
    return nullptr;
}

bool CaptureConnection::hasMediaType(const QString& mediaType) const {
    return std::any_of(_ports.begin(), _ports.end(),
                       [&](const auto& port) { return port->mediaType() == mediaType; });
}

bool CaptureConnection::isEnabled() const {
    std::lock_guard lock(_mutex);
    return _enabled;
}

void CaptureConnection::setEnabled(bool enabled) {
    std::lock_guard lock(_mutex);
    _enabled = enabled;
}

bool CaptureConnection::isActive() const {
    auto device = sourceDevice();
    return isEnabled() && device && device->isConnected();
}

int CaptureConnection::videoOrientation() const {
    std::lock_guard lock(_mutex);
    return _videoOrientation;
}

void CaptureConnection::setVideoOrientation(int orientation) {
    if (!isVideoOrientationSupported()) {
        reject(QStringLiteral("setVideoOrientation(%1): video orientation is not supported")
                   .arg(orientation));
        return;
    }
    if (!video_orientation::isValid(orientation)) {
        reject(QStringLiteral("setVideoOrientation(%1): not a video orientation").arg(orientation));
        return;
    }
    std::lock_guard lock(_mutex);
    _videoOrientation = orientation;
}

bool CaptureConnection::isVideoMirrored() const {
    std::lock_guard lock(_mutex);
    return _mirrored;
}

void CaptureConnection::setVideoMirrored(bool mirrored) {
    if (!isVideoMirroringSupported()) {
        reject(
            QStringLiteral("setVideoMirrored(%1): video mirroring is not supported").arg(mirrored));
        return;
    }
    std::lock_guard lock(_mutex);
    _mirrored = mirrored;
}

int CaptureConnection::preferredVideoStabilizationMode() const {
    std::lock_guard lock(_mutex);
    return _preferredStabilization;
}

void CaptureConnection::setPreferredVideoStabilizationMode(int mode) {
    if (!isVideoStabilizationSupported()) {
        reject(QStringLiteral("setPreferredVideoStabilizationMode(%1): video stabilization is "
                              "not supported")
                   .arg(mode));
        return;
    }
    std::lock_guard lock(_mutex);
    _preferredStabilization = mode;
}

int CaptureConnection::activeVideoStabilizationMode() const {
    const int preferred = preferredVideoStabilizationMode();
    const auto& modes = _traits.videoStabilizationModes;
    return std::find(modes.begin(), modes.end(), preferred) != modes.end() ? preferred : 0;
}

double CaptureConnection::videoScaleAndCropFactor() const {
    std::lock_guard lock(_mutex);
    return _scaleAndCrop;
}

void CaptureConnection::setVideoScaleAndCropFactor(double factor) {
    if (!(factor >= 1.0 && factor <= _traits.videoMaxScaleAndCropFactor)) {
        reject(QStringLiteral("setVideoScaleAndCropFactor(%1): outside [1, %2]")
                   .arg(factor)
                   .arg(_traits.videoMaxScaleAndCropFactor));
        return;
    }
    std::lock_guard lock(_mutex);
    _scaleAndCrop = factor;
}

void CaptureConnection::reject(const QString& what) const {
    log::write(QStringLiteral("[capture] CaptureConnection: %1; ignored").arg(what));
}

}  // namespace platform
