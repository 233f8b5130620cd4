#include "platform/capture/StillImageOutput.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureSession.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"

#include <algorithm>

namespace platform {
namespace {

ErrorPtr captureError(int code, const QString& description) {
    return Error::withDescription(kAVFoundationErrorDomain, code, description);
}

}  // namespace

std::shared_ptr<StillImageOutput> StillImageOutput::create() {
    return std::make_shared<StillImageOutput>(Key{});
}

StillImageOutput::StillImageOutput(Key)
    : _completionQueue(DispatchQueue::createSerial("platform.capture.still-image-completion")) {}

StillImageOutput::~StillImageOutput() {
    _flight->closed = true;
    // Joins the completion thread after the capture in progress, unless this
    // runs on it.
    _completionQueue.reset();
}

QVariantMap StillImageOutput::outputSettings() const {
    return {{kPixelBufferPixelFormatTypeKey, QVariant::fromValue<uint>(pixelFormat())}};
}

void StillImageOutput::setOutputSettings(const QVariantMap& settings) {
    if (const auto format = pixelFormatFromSettings(
            settings, QStringLiteral("StillImageOutput: output settings"))) {
        _pixelFormat = *format;
    }
}

std::vector<std::uint32_t> StillImageOutput::availableImageDataCVPixelFormatTypes() const {
    return deliverablePixelFormats();
}

bool StillImageOutput::isStillImageStabilizationSupported() const {
    auto connection = connectionWithMediaType(kMediaTypeVideo);
    auto device = connection ? connection->sourceDevice() : nullptr;
    return device && device->capabilities().stillImageStabilization;
}

void StillImageOutput::setAutomaticallyEnablesStillImageStabilizationWhenAvailable(bool enabled) {
    if (!isStillImageStabilizationSupported()) {
        log::write(QStringLiteral("[capture] StillImageOutput: still image stabilization is not "
                                  "supported; setAutomaticallyEnablesStillImageStabilization"
                                  "WhenAvailable(%1) ignored")
                       .arg(enabled));
        return;
    }
    _stabilization = enabled;
}

void StillImageOutput::captureStillImageAsynchronously(
    const std::shared_ptr<CaptureConnection>& connection, CompletionHandler completion) {
    ++_capturesInFlight;
    // The task borrows the output: the destructor closes the flight and then
    // waits for the task in progress, so `this` is valid while it is open.
    _completionQueue->async(
        [this, flight = _flight, connection, completion = std::move(completion)] {
            StillResult result;
            if (flight->closed.load()) {
                result.error = captureError(av_error::kOperationInterrupted,
                                            QStringLiteral("The capture was cancelled."));
            } else {
                result = capture(connection);
                --_capturesInFlight;
            }
            if (completion) {
                completion(result.sampleBuffer, result.error);
            }
        });
}

StillResult StillImageOutput::capture(const std::shared_ptr<CaptureConnection>& connection) const {
    const auto mine = connections();
    if (!connection || std::find(mine.begin(), mine.end(), connection) == mine.end() ||
        !connection->isEnabled()) {
        return {nullptr, captureError(av_error::kUnknown,
                                      QStringLiteral("No active and enabled video connection."))};
    }
    auto owner = session();
    if (!owner || !owner->isRunning()) {
        return {nullptr,
                captureError(av_error::kSessionNotRunning, QStringLiteral("Cannot Record"))};
    }
    auto device = connection->sourceDevice();
    if (!device || !device->isConnected()) {
        return {nullptr,
                captureError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"))};
    }
    StillRequest request;
    request.layout.sensorSize = device->capabilities().stillImageSize;
    request.layout.pixelFormat = pixelFormat();
    request.layout.orientation = connection->videoOrientation();
    request.layout.mirrored = connection->isVideoMirrored();
    request.scaleAndCropFactor = connection->videoScaleAndCropFactor();
    return device->driver().captureStill(request);
}

CaptureConnection::Traits StillImageOutput::connectionTraits(const CaptureDevice& device) const {
    const CaptureDeviceCapabilities& caps = device.capabilities();
    CaptureConnection::Traits traits;
    traits.videoOrientation = caps.videoOrientation;
    traits.videoMirroring = caps.videoMirroring;
    traits.videoMaxScaleAndCropFactor = caps.videoMaxScaleAndCropFactor;
    return traits;
}

}  // namespace platform
