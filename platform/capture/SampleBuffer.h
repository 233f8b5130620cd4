#pragma once

#include "platform/capture/CaptureTypes.h"
#include "platform/capture/PixelBuffer.h"

#include <memory>

namespace platform {

/// Why a frame never reached its consumer, carried by the marker sample of a
/// dropped frame.
enum class DroppedFrameReason {
    None,          ///< not a dropped frame
    FrameWasLate,  ///< the consumer was still busy with the previous frame
    OutOfBuffers,  ///< every buffer of the producer's pool was still in use
};

/// One captured sample: an optional image buffer and its presentation time.
/// Immutable, so it may be shared between threads freely; it holds its image
/// buffer strongly (no pixels are copied into it).
class SampleBuffer {
public:
    SampleBuffer(std::shared_ptr<PixelBuffer> imageBuffer, MediaTime presentationTime,
                 DroppedFrameReason droppedFrameReason = DroppedFrameReason::None)
        : _imageBuffer(std::move(imageBuffer)),
          _presentationTime(presentationTime),
          _droppedFrameReason(droppedFrameReason) {}

    /// null for a sample that carries no image (a dropped frame, a failure).
    const std::shared_ptr<PixelBuffer>& imageBuffer() const { return _imageBuffer; }
    MediaTime presentationTimeStamp() const { return _presentationTime; }
    /// None unless the sample stands for a dropped frame.
    DroppedFrameReason droppedFrameReason() const { return _droppedFrameReason; }

private:
    std::shared_ptr<PixelBuffer> _imageBuffer;
    MediaTime _presentationTime;
    DroppedFrameReason _droppedFrameReason;
};

using SampleBufferPtr = std::shared_ptr<const SampleBuffer>;

}  // namespace platform
