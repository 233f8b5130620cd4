#include "platform/capture/VideoDataOutput.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/foundation/Dispatch.h"

namespace platform {

std::shared_ptr<VideoDataOutput> VideoDataOutput::create() {
    return std::make_shared<VideoDataOutput>(Key{});
}

void VideoDataOutput::setSampleBufferDelegate(std::weak_ptr<VideoDataOutputDelegate> delegate,
                                              std::shared_ptr<DispatchQueue> queue) {
    std::lock_guard lock(_delegateMutex);
    _delegate = std::move(delegate);
    _queue = std::move(queue);
}

std::shared_ptr<VideoDataOutputDelegate> VideoDataOutput::sampleBufferDelegate() const {
    std::lock_guard lock(_delegateMutex);
    return _delegate.lock();
}

std::shared_ptr<DispatchQueue> VideoDataOutput::sampleBufferCallbackQueue() const {
    std::lock_guard lock(_delegateMutex);
    return _queue;
}

QVariantMap VideoDataOutput::videoSettings() const {
    return {{kPixelBufferPixelFormatTypeKey, QVariant::fromValue<uint>(pixelFormat())}};
}

void VideoDataOutput::setVideoSettings(const QVariantMap& settings) {
    if (const auto format =
            pixelFormatFromSettings(settings, QStringLiteral("VideoDataOutput: video settings"))) {
        _pixelFormat = *format;
    }
}

std::vector<std::uint32_t> VideoDataOutput::availableVideoPixelFormatTypes() const {
    return deliverablePixelFormats();
}

VideoDataOutput::Receiver VideoDataOutput::receiver() const {
    std::lock_guard lock(_delegateMutex);
    if (_delegate.expired()) {
        return {};
    }
    return {_delegate, _queue};
}

void VideoDataOutput::deliverSampleBuffer(const SampleBufferPtr& sampleBuffer,
                                          const std::shared_ptr<CaptureConnection>& connection) {
    auto [delegate, queue] = receiver();
    if (!queue) {
        return;
    }
    auto self = std::static_pointer_cast<CaptureOutput>(shared_from_this());
    if (alwaysDiscardsLateVideoFrames() && _framesInFlight->load() > 0) {
        // The dropped frame's pixels go back to the pool at once; the
        // delegate hears of it, in order, once the queue reaches it.
        deliverDroppedFrame(
            std::make_shared<const SampleBuffer>(nullptr, sampleBuffer->presentationTimeStamp(),
                                                 DroppedFrameReason::FrameWasLate),
            connection);
        return;
    }
    ++*_framesInFlight;
    queue->async([self, delegate, sampleBuffer, connection, inFlight = _framesInFlight] {
        if (auto receiver = delegate.lock()) {
            receiver->captureOutputDidOutputSampleBuffer(self, sampleBuffer, connection);
        }
        --*inFlight;
    });
}

void VideoDataOutput::deliverDroppedFrame(const SampleBufferPtr& marker,
                                          const std::shared_ptr<CaptureConnection>& connection) {
    auto [delegate, queue] = receiver();
    if (!queue) {
        return;
    }
    auto self = std::static_pointer_cast<CaptureOutput>(shared_from_this());
    queue->async([self, delegate, marker, connection] {
        if (auto receiver = delegate.lock()) {
            receiver->captureOutputDidDropSampleBuffer(self, marker, connection);
        }
    });
}

CaptureConnection::Traits VideoDataOutput::connectionTraits(const CaptureDevice& device) const {
    const CaptureDeviceCapabilities& caps = device.capabilities();
    CaptureConnection::Traits traits;
    traits.videoOrientation = caps.videoOrientation;
    traits.videoMirroring = caps.videoMirroring;
    traits.videoStabilization = !caps.videoStabilizationModes.empty();
    traits.videoStabilizationModes = caps.videoStabilizationModes;
    return traits;
}

}  // namespace platform
