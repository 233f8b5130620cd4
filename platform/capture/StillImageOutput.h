#pragma once

#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/CaptureOutput.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/foundation/Error.h"

#include <QVariantMap>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace platform {

class DispatchQueue;

/// The still-picture output. Stills are taken at the device's full still size,
/// turned and mirrored as the connection says, in the output settings' pixel
/// format (BGRA unless set).
///
/// Thread-safe. Completions run on the output's own completion thread (never
/// the caller's, never the main thread), one at a time, in request order.
/// Queued work never keeps the output alive: destroying it waits for the
/// capture in progress (its completion runs as usual) and completes the
/// captures not yet begun with kOperationInterrupted, so no capture and no
/// completion runs once the destructor has returned. (Destroyed from its own
/// completion, the output lets that completion finish on its thread.)
class StillImageOutput : public CaptureOutput {
    struct Key {};

public:
    /// Receives the sample buffer or the error; on the platform either may be
    /// missing, and a sample buffer may carry no image buffer.
    using CompletionHandler = std::function<void(const SampleBufferPtr&, const ErrorPtr&)>;

    static std::shared_ptr<StillImageOutput> create();
    explicit StillImageOutput(Key);
    ~StillImageOutput() override;

    /// True from a capture request until just before its completion runs.
    bool isCapturingStillImage() const { return _capturesInFlight.load() > 0; }

    /// { kPixelBufferPixelFormatTypeKey: unsigned number }.
    QVariantMap outputSettings() const;
    /// Takes the pixel format (an empty map restores BGRA); an unsupported
    /// one is logged and ignored.
    void setOutputSettings(const QVariantMap& settings);
    std::uint32_t pixelFormat() const { return _pixelFormat.load(); }
    std::vector<std::uint32_t> availableImageDataCVPixelFormatTypes() const;

    /// Whether the device of the output's connection can stabilise stills.
    bool isStillImageStabilizationSupported() const;
    bool automaticallyEnablesStillImageStabilizationWhenAvailable() const {
        return _stabilization.load();
    }
    /// Only where supported; otherwise logged and ignored.
    void setAutomaticallyEnablesStillImageStabilizationWhenAvailable(bool enabled);

    /// Captures one still from connection (one of this output's). The
    /// completion gets an error of kAVFoundationErrorDomain when the
    /// connection is not this output's or is disabled (kUnknown), the session
    /// is not running (kSessionNotRunning) or the device is gone
    /// (kDeviceNotConnected); otherwise what the device produced.
    void captureStillImageAsynchronously(const std::shared_ptr<CaptureConnection>& connection,
                                         CompletionHandler completion);

private:
    CaptureConnection::Traits connectionTraits(const CaptureDevice& device) const override;
    StillResult capture(const std::shared_ptr<CaptureConnection>& connection) const;

    struct Flight {
        std::atomic<bool> closed{false};
    };
    std::shared_ptr<Flight> _flight = std::make_shared<Flight>();
    std::shared_ptr<DispatchQueue> _completionQueue;
    std::atomic<int> _capturesInFlight{0};
    std::atomic<std::uint32_t> _pixelFormat{pixel_format::k32BGRA};
    std::atomic<bool> _stabilization{false};
};

}  // namespace platform
