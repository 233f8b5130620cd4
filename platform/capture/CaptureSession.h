#pragma once

#include "platform/capture/CaptureConnection.h"
#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureOutput.h"

#include <QSize>
#include <QString>

#include <memory>
#include <mutex>
#include <vector>

namespace platform {

struct Notification;

/// Receives every frame of a session's video input, whatever its outputs:
/// the preview layer's side. Called on the stream thread; must not block.
class PreviewFrameReceiver {
public:
    virtual ~PreviewFrameReceiver() = default;
    virtual void sessionDidOutputFrame(const SampleBufferPtr& sampleBuffer,
                                       const FrameLayout& layout) = 0;
};

/// Ties one camera input to its outputs and runs the stream.
///
/// Thread-safe; startRunning and stopRunning are synchronous (they return once
/// the device has started or stopped), so callers run them on a queue of
/// their own. A connection is formed between the video input's port and each
/// output (and each attached preview) as soon as both are in the session, and
/// kept until one of them leaves. Changes between beginConfiguration and the
/// matching commitConfiguration reach the running stream together at the
/// commit. Notifications (did start/stop running, runtime error) are posted on
/// the default centre with the session as sender, after every lock is let go.
class CaptureSession : public std::enable_shared_from_this<CaptureSession> {
    struct Key {};

public:
    static std::shared_ptr<CaptureSession> create();
    explicit CaptureSession(Key);
    /// Stops the stream.
    ~CaptureSession();
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;

    std::vector<std::shared_ptr<CaptureDeviceInput>> inputs() const;
    /// Yes for a non-null input not yet here whose device is connected,
    /// willing (its driver) and supports the current preset, when the
    /// session has no video input yet.
    bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const;
    /// Adding what canAddInput refuses is logged and ignored.
    void addInput(const std::shared_ptr<CaptureDeviceInput>& input);
    void removeInput(const std::shared_ptr<CaptureDeviceInput>& input);

    std::vector<std::shared_ptr<CaptureOutput>> outputs() const;
    /// Yes for a non-null output in no session, when the session has no
    /// output of its kind yet (one video-data and one still output at most).
    bool canAddOutput(const std::shared_ptr<CaptureOutput>& output) const;
    void addOutput(const std::shared_ptr<CaptureOutput>& output);
    void removeOutput(const std::shared_ptr<CaptureOutput>& output);

    /// Nest; the outermost commit applies the changes to the stream.
    void beginConfiguration();
    void commitConfiguration();

    /// High unless set.
    QString sessionPreset() const;
    /// A known preset that every input's device supports.
    bool canSetSessionPreset(const QString& preset) const;
    /// Setting what canSetSessionPreset refuses is logged and ignored.
    void setSessionPreset(const QString& preset);
    /// The landscape frame size of the preset on the video input's device;
    /// empty without one.
    QSize activeVideoSize() const;

    bool isRunning() const;
    void startRunning();
    void stopRunning();

    // For preview layers -------------------------------------------------------
    /// Frames go to receiver (held weakly) and a connection is formed for it
    /// while the session has a video input.
    void attachPreview(const std::shared_ptr<PreviewFrameReceiver>& receiver);
    void detachPreview(const PreviewFrameReceiver* receiver);
    std::shared_ptr<CaptureConnection> previewConnection(
        const PreviewFrameReceiver* receiver) const;

private:
    class Router;
    struct Preview {
        const PreviewFrameReceiver* key = nullptr;
        std::weak_ptr<PreviewFrameReceiver> receiver;
        std::shared_ptr<CaptureConnection> connection;
        int orientation = 1;
    };

    bool canAddInputLocked(const std::shared_ptr<CaptureDeviceInput>& input) const;
    bool canAddOutputLocked(const std::shared_ptr<CaptureOutput>& output) const;
    bool canSetSessionPresetLocked(const QString& preset) const;
    std::shared_ptr<CaptureDeviceInput> videoInputLocked() const;
    std::shared_ptr<CaptureDevice> videoDeviceLocked() const;
    void rebuildConnectionsLocked();
    void publishLocked();
    /// Brings the stream in line with the graph (outside a configuration
    /// block); collects the notifications to post.
    void syncStreamLocked(std::vector<Notification>& notes);
    void handleStreamFailure(const ErrorPtr& error);
    Notification note(const QString& name, const ErrorPtr& error = nullptr) const;
    static void post(const std::vector<Notification>& notes);

    mutable std::mutex _mutex;
    std::shared_ptr<Router> _router;
    std::vector<std::shared_ptr<CaptureDeviceInput>> _inputs;
    std::vector<std::shared_ptr<CaptureOutput>> _outputs;
    std::vector<Preview> _previews;
    QString _preset;
    int _configurationDepth = 0;
    bool _running = false;
    std::shared_ptr<CaptureDevice> _streamingDevice;
};

}  // namespace platform
