#pragma once

#include "platform/capture/CaptureTypes.h"
#include "platform/capture/PixelBuffer.h"

#include <memory>

namespace platform {

/// One captured sample: an optional image buffer and its presentation time.
/// Immutable, so it may be shared between threads freely; it holds its image
/// buffer strongly (no pixels are copied into it).
class SampleBuffer {
public:
    SampleBuffer(std::shared_ptr<PixelBuffer> imageBuffer, MediaTime presentationTime)
        : _imageBuffer(std::move(imageBuffer)), _presentationTime(presentationTime) {}

    /// null for a sample that carries no image (a dropped frame, a failure).
    const std::shared_ptr<PixelBuffer>& imageBuffer() const { return _imageBuffer; }
    MediaTime presentationTimeStamp() const { return _presentationTime; }

private:
    std::shared_ptr<PixelBuffer> _imageBuffer;
    MediaTime _presentationTime;
};

using SampleBufferPtr = std::shared_ptr<const SampleBuffer>;

}  // namespace platform
