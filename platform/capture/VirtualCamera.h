#pragma once

#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/VirtualScene.h"

#include <QImage>
#include <QPolygonF>
#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <utility>

namespace platform {

class CaptureDevice;
class FrameTimer;

/// Failures a virtual camera shows on purpose. All off by default.
struct VirtualCameraFailures {
    /// lockForConfiguration refuses with this error.
    ErrorPtr lockForConfiguration;
    /// CaptureDeviceInput::create fails with this error.
    ErrorPtr openInput;
    /// Sessions refuse the camera's input (canAddInput is false).
    bool refusesSession = false;

    enum class Still { None, Error, SampleBufferWithoutImageBuffer, NoSampleBuffer };
    Still still = Still::None;
    /// The error of Still::Error; null: kAVFoundationErrorDomain, kUnknown.
    ErrorPtr stillError;
    /// Still pixel buffers refuse lockBaseAddress.
    bool stillBuffersRefuseLock = false;

    /// Live pixel buffers refuse lockBaseAddress.
    bool liveBuffersRefuseLock = false;
    /// Live frames come in 'yuvs' whatever the output asked for.
    bool liveFramesInUnsupportedFormat = false;
    /// Live sample buffers carry no image buffer.
    bool liveFramesWithoutImageBuffer = false;
    /// The device is lost after delivering this many frames (-1: never).
    int disconnectAfterFrames = -1;

    // Frames as real cameras make them -------------------------------------
    /// Padding at the end of every row, beyond the 64-byte alignment.
    std::size_t extraBytesPerRow = 0;
    /// BGRA frames one pixel narrower and shorter than the preset's size, so
    /// both sides are odd (bi-planar formats need even sizes and keep theirs).
    bool oddFrameSize = false;
    /// After this many frames the frames come at half the preset's size, as
    /// a camera that changes its mode on its own (-1: never).
    int resolutionChangeAfterFrames = -1;
    /// Every n-th frame repeats the previous frame's time stamp and every
    /// 2n-th one is stamped earlier than that (0: never).
    int timestampGlitchEvery = 0;
    /// Every n-th frame's buffer is cut short (a corrupt transfer): its
    /// memory ends half-way, so it cannot be locked (0: never).
    int truncatedBufferEvery = 0;
};

/// Everything about one virtual camera: identity, capabilities, picture
/// source, timing and failures. A plain value: cameras share no state.
struct VirtualCameraConfiguration {
    enum class Source { Document, Image, Folder };

    QString uniqueID;
    QString localizedName;
    int position = device_position::kBack;
    CaptureDeviceCapabilities capabilities;
    bool torchAvailable = true;
    float maxAvailableTorchLevel = 1.0f;

    double frameRate = 30.0;
    std::uint64_t seed = 1;
    Source source = Source::Document;
    virtual_scene::Desk desk = virtual_scene::Desk::Wood;
    virtual_scene::SceneKnobs scene;  ///< Source::Document: how the scene looks
    QImage image;                     ///< Source::Image
    QString folder;                   ///< Source::Folder
    double secondsPerPicture = 1.0;   ///< Source::Folder: how long each image shows
    double handMotion = 1.0;          ///< 0 (tripod) to 1
    int noiseAmplitude = 4;           ///< 0 to 8 levels
    /// Frames an autofocus takes to sharpen the picture.
    int focusSettleFrames = 6;
    /// Live buffers out at once at most; 0: a second of frames (at least 4).
    /// The pool grows to it as consumers keep frames; a tick finding every
    /// buffer out is skipped and reported as dropped for want of a buffer.
    std::size_t maximumBuffersInFlight = 0;

    VirtualCameraFailures failures;
    /// Called on the stream thread after each delivered frame (for tests).
    std::function<void(const SampleBufferPtr&)> frameObserver;
    /// Called on the stream thread after each tick that found every buffer
    /// out (for tests).
    std::function<void()> dropObserver;

    /// The default back camera: every preset up to 3840x2160, 4032x3024
    /// stills, focus, exposure, flash, torch, white balance, low-light boost,
    /// stabilisation.
    static VirtualCameraConfiguration back();
    /// The default front camera: up to 1920x1080, 3088x2320 stills, fixed
    /// focus, no flash or torch.
    static VirtualCameraConfiguration front();
};

/// The virtual camera driver: frames of a synthetic document scene, an image
/// or a folder of images, at the session preset's size in the consumer's
/// pixel format, at a set rate on a thread of its own. The torch brightens
/// the picture; until an autofocus has settled (focus mode auto or
/// continuous) it is blurred. Frames and stills are deterministic for a seed:
/// frame n's motion and noise depend on n only, still k's on k.
///
/// Thread-safe, as every driver.
class VirtualCamera final : public CaptureDeviceDriver {
    struct Key {};

public:
    static std::shared_ptr<VirtualCamera> create(VirtualCameraConfiguration configuration);
    /// A device backed by a new virtual camera.
    static std::shared_ptr<CaptureDevice> makeDevice(VirtualCameraConfiguration configuration);

    VirtualCamera(Key, VirtualCameraConfiguration configuration);
    ~VirtualCamera() override;

    const VirtualCameraConfiguration& configuration() const { return _config; }
    /// Loses the device now, as a cable pulled mid-stream.
    void disconnect();
    /// Plugs the device back in: it is connected again and may stream to a
    /// session that starts it.
    void reconnect();
    /// While stalled the stream keeps running but no frame comes out, with
    /// no error: a camera that hangs.
    void setStalled(bool stalled);
    /// Another program takes the camera (true) or gives it back (false).
    /// Taking it ends a running stream with kDeviceInUseByAnotherApplication;
    /// while taken, starting a stream fails with that error.
    void setInUseByAnotherApplication(bool inUse);
    std::uint64_t deliveredFrameCount() const { return _delivered.load(); }
    /// Ticks that found every buffer out.
    std::uint64_t droppedForWantOfBufferCount() const { return _outOfBuffers.load(); }
    /// The bound of live buffers out at once (see maximumBuffersInFlight).
    std::size_t bufferBound() const;
    /// Frame `tick` in `layout` as the stream makes it, on the calling thread
    /// and without delivering it: the frame's pixels are the stream's for the
    /// same tick, settings and seed. Null when every pooled buffer is out.
    SampleBufferPtr renderFrame(std::uint64_t tick, const FrameLayout& layout);

    /// Where the page lies in frame `tick` of `layout`: its corners (top
    /// left, top right, bottom right, bottom left of the page as printed) in
    /// the frame's pixels after orientation and mirroring, a pixel covering
    /// [x, x + 1). Empty when the picture shows no page (image and folder
    /// sources, a scene without page). Any thread.
    QPolygonF pageCorners(std::uint64_t tick, const FrameLayout& layout) const;
    /// The page's corners in a still of `layout` (as pageCorners).
    QPolygonF stillPageCorners(const FrameLayout& layout) const;
    /// The page's corners in the frame delivered last and that frame's
    /// layout; empty corners before the first frame. Any thread.
    std::pair<QPolygonF, FrameLayout> lastFramePageCorners() const;

    // CaptureDeviceDriver
    QString uniqueID() const override { return _config.uniqueID; }
    QString localizedName() const override { return _config.localizedName; }
    int position() const override { return _config.position; }
    const CaptureDeviceCapabilities& capabilities() const override { return _config.capabilities; }
    CaptureDeviceSettings initialSettings() const override;
    bool isConnected() const override { return _connected.load(); }
    bool isTorchAvailable() const override;
    float maxAvailableTorchLevel() const override;
    ErrorPtr lockForConfiguration() override;
    ErrorPtr openInput() override;
    bool canJoinSession() const override { return !_config.failures.refusesSession; }
    void applySettings(const CaptureDeviceSettings& settings) override;
    ErrorPtr startStreaming(std::shared_ptr<CaptureStreamSink> sink) override;
    void stopStreaming() override;
    StillResult captureStill(const StillRequest& request) override;

private:
    enum class Lens { Defocused, Focusing, Focused };

    bool tick(std::uint64_t tick);
    int pictureAt(std::uint64_t tick) const;
    QPoint handShift(std::uint64_t tick, int margin) const;
    SampleBufferPtr render(std::uint64_t tick, const FrameLayout& layout, FrameLayout& made);
    MediaTime timeOf(std::uint64_t tick) const;
    virtual_scene::Look lookAt(std::uint64_t tick);
    std::shared_ptr<const virtual_scene::PreparedScene> sceneFor(const FrameLayout& layout,
                                                                 const virtual_scene::Look& look);
    QImage canvasFor(const FrameLayout& layout, int picture);
    std::shared_ptr<PixelBufferPool> poolFor(const QSize& size, std::uint32_t format);

    const VirtualCameraConfiguration _config;
    const std::shared_ptr<const virtual_scene::Source> _source;
    std::atomic<bool> _connected{true};
    std::atomic<std::uint64_t> _delivered{0};
    std::atomic<std::uint64_t> _stills{0};
    std::atomic<std::uint64_t> _outOfBuffers{0};
    std::atomic<bool> _stalled{false};
    std::atomic<bool> _inUseElsewhere{false};

    mutable std::mutex _mutex;
    CaptureDeviceSettings _settings;
    Lens _lens;
    std::uint64_t _focusDoneTick = 0;
    bool _focusStartPending = false;
    std::uint64_t _lastTick = 0;
    QPolygonF _lastFramePage;
    FrameLayout _lastFrameLayout;
    std::shared_ptr<CaptureStreamSink> _sink;
    std::unique_ptr<FrameTimer> _timer;
    std::shared_ptr<PixelBufferPool> _pool;
    std::list<std::shared_ptr<const virtual_scene::PreparedScene>> _scenes;
    struct Canvas {
        QSize size;
        int picture = 0;
        QImage image;
    };
    std::list<Canvas> _canvases;
};

}  // namespace platform
