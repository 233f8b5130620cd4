#pragma once

#include "platform/capture/CaptureOutput.h"
#include "platform/capture/SampleBuffer.h"

#include <QVariantMap>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

class DispatchQueue;
class VideoDataOutput;

/// Receives live frames. Both methods run on the delegate's queue, one at a
/// time and in frame order; no lock of the capture classes is held.
class VideoDataOutputDelegate {
public:
    virtual ~VideoDataOutputDelegate() = default;
    /// One frame. The sample buffer's image buffer is not copied: keep the
    /// sample buffer (or an owner handle of its pixel buffer) to keep it.
    virtual void captureOutputDidOutputSampleBuffer(
        const std::shared_ptr<CaptureOutput>& /*output*/, const SampleBufferPtr& /*sampleBuffer*/,
        const std::shared_ptr<CaptureConnection>& /*connection*/) {}
    /// A frame was dropped; the sample buffer carries its time but no image.
    virtual void captureOutputDidDropSampleBuffer(
        const std::shared_ptr<CaptureOutput>& /*output*/, const SampleBufferPtr& /*sampleBuffer*/,
        const std::shared_ptr<CaptureConnection>& /*connection*/) {}
};

/// The live-frame output. Frames reach the delegate on its queue, in the
/// pixel format of the video settings (BGRA unless set).
///
/// Thread-safe. With alwaysDiscardsLateVideoFrames (the default) a frame that
/// arrives while the delegate's queue still has the previous frame is dropped
/// and reported as dropped; without it, frames wait on the queue.
class VideoDataOutput : public CaptureOutput {
    struct Key {};

public:
    static std::shared_ptr<VideoDataOutput> create();
    explicit VideoDataOutput(Key) {}

    /// The delegate is held weakly; a null queue stops delivery.
    void setSampleBufferDelegate(std::weak_ptr<VideoDataOutputDelegate> delegate,
                                 std::shared_ptr<DispatchQueue> queue);
    std::shared_ptr<VideoDataOutputDelegate> sampleBufferDelegate() const;
    std::shared_ptr<DispatchQueue> sampleBufferCallbackQueue() const;

    bool alwaysDiscardsLateVideoFrames() const { return _discardsLateFrames.load(); }
    void setAlwaysDiscardsLateVideoFrames(bool discards) { _discardsLateFrames = discards; }

    /// { kPixelBufferPixelFormatTypeKey: unsigned number }.
    QVariantMap videoSettings() const;
    /// Takes the pixel format of settings (an empty map restores BGRA). A
    /// format not in availableVideoPixelFormatTypes, or a value that is not a
    /// number, is a programming error: logged and ignored.
    void setVideoSettings(const QVariantMap& settings);
    std::uint32_t pixelFormat() const { return _pixelFormat.load(); }
    std::vector<std::uint32_t> availableVideoPixelFormatTypes() const;

    /// For the session: hands one frame to the delegate's queue. Never blocks.
    void deliverSampleBuffer(const SampleBufferPtr& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection);
    /// For the session: tells the delegate, on its queue and in order, of a
    /// frame the device could not make (marker carries the time and reason).
    void deliverDroppedFrame(const SampleBufferPtr& marker,
                             const std::shared_ptr<CaptureConnection>& connection);

private:
    struct Receiver {
        std::weak_ptr<VideoDataOutputDelegate> delegate;
        std::shared_ptr<DispatchQueue> queue;
    };
    /// The delegate and its queue as one consistent pair; a null queue when
    /// nobody listens.
    Receiver receiver() const;
    CaptureConnection::Traits connectionTraits(const CaptureDevice& device) const override;

    mutable std::mutex _delegateMutex;
    std::weak_ptr<VideoDataOutputDelegate> _delegate;
    std::shared_ptr<DispatchQueue> _queue;
    std::atomic<bool> _discardsLateFrames{true};
    std::atomic<std::uint32_t> _pixelFormat{pixel_format::k32BGRA};
    /// Frames handed to the queue whose delegate call has not finished.
    std::shared_ptr<std::atomic<int>> _framesInFlight = std::make_shared<std::atomic<int>>(0);
};

}  // namespace platform
