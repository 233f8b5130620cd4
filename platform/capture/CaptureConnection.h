#pragma once

#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureTypes.h"

#include <memory>
#include <mutex>
#include <vector>

namespace platform {

class CaptureOutput;

/// The link between an input's video port and an output (or a preview layer)
/// in one session, with the per-link video settings.
///
/// Thread-safe. Setting an unsupported property, or an invalid value, is a
/// programming error: logged and ignored.
class CaptureConnection {
    struct Key {};

public:
    /// What the link supports, fixed when the session forms it.
    struct Traits {
        bool videoOrientation = false;
        bool videoMirroring = false;
        bool videoStabilization = false;
        std::vector<int> videoStabilizationModes;  ///< besides off
        double videoMaxScaleAndCropFactor = 1.0;
        int initialVideoOrientation = video_orientation::kLandscapeRight;  ///< the sensor's
        bool initiallyMirrored = false;
    };

    /// Made by the session. output is null for a preview layer's connection.
    static std::shared_ptr<CaptureConnection> create(
        std::vector<std::shared_ptr<CaptureInputPort>> inputPorts,
        const std::shared_ptr<CaptureOutput>& output, const Traits& traits);

    CaptureConnection(Key, std::vector<std::shared_ptr<CaptureInputPort>> inputPorts,
                      const std::shared_ptr<CaptureOutput>& output, const Traits& traits);

    const std::vector<std::shared_ptr<CaptureInputPort>>& inputPorts() const { return _ports; }
    /// The output (held weakly); null for a preview connection.
    std::shared_ptr<CaptureOutput> output() const { return _output.lock(); }
    /// The device whose port feeds the connection, or null.
    std::shared_ptr<CaptureDevice> sourceDevice() const;
    bool hasMediaType(const QString& mediaType) const;

    bool isEnabled() const;
    void setEnabled(bool enabled);
    /// Enabled, and its source is connected.
    bool isActive() const;

    bool isVideoOrientationSupported() const { return _traits.videoOrientation; }
    int videoOrientation() const;
    /// A video_orientation value 1-4.
    void setVideoOrientation(int orientation);

    bool isVideoMirroringSupported() const { return _traits.videoMirroring; }
    bool isVideoMirrored() const;
    void setVideoMirrored(bool mirrored);

    bool isVideoStabilizationSupported() const { return _traits.videoStabilization; }
    int preferredVideoStabilizationMode() const;
    void setPreferredVideoStabilizationMode(int mode);
    /// What runs: the preferred mode when the source supports it, else off.
    int activeVideoStabilizationMode() const;

    double videoMaxScaleAndCropFactor() const { return _traits.videoMaxScaleAndCropFactor; }
    double videoScaleAndCropFactor() const;
    /// In [1, videoMaxScaleAndCropFactor].
    void setVideoScaleAndCropFactor(double factor);

private:
    void reject(const QString& what) const;

    std::vector<std::shared_ptr<CaptureInputPort>> _ports;
    std::weak_ptr<CaptureOutput> _output;
    const Traits _traits;
    mutable std::mutex _mutex;
    bool _enabled = true;
    int _videoOrientation;
    bool _mirrored;
    int _preferredStabilization = 0;
    double _scaleAndCrop = 1.0;
};

}  // namespace platform
