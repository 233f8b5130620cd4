#pragma once

#include <cstdint>

/// What one camera engine has seen since it was made, for diagnostics. Frames
/// the engine drops stay silent to its delegate; they are counted here.
struct QXDCameraCounters {
    /// Live frames handed to the delegate.
    std::uint64_t framesDelivered = 0;
    /// Frames the video-data output discarded because the previous one was
    /// still being handled.
    std::uint64_t framesDroppedLate = 0;
    /// Frames the camera could not make because every buffer was still held
    /// (by the host or the preview).
    std::uint64_t framesDroppedNoBuffer = 0;
    /// Frames whose pixel buffer refused to be locked (or was corrupt).
    std::uint64_t framesDroppedLockRefused = 0;
    /// Frames in a pixel format the engine does not wrap.
    std::uint64_t framesDroppedUnsupportedFormat = 0;
    /// Samples that carried no image buffer.
    std::uint64_t framesDroppedNoImageBuffer = 0;
    /// takePicture calls that started a capture.
    std::uint64_t stillsRequested = 0;
    /// Captures that reached the delegate's still callback.
    std::uint64_t stillsCompleted = 0;
    /// Captures that ended in an error.
    std::uint64_t stillsFailed = 0;

    std::uint64_t framesDropped() const {
        return framesDroppedLate + framesDroppedNoBuffer + framesDroppedLockRefused +
               framesDroppedUnsupportedFormat + framesDroppedNoImageBuffer;
    }
};
