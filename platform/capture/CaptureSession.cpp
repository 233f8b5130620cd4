#include "platform/capture/CaptureSession.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"

#include <algorithm>
#include <typeinfo>

namespace platform {

/// Hands each frame of the stream to the preview receivers and the video-data
/// output, from a snapshot of the graph that the session refreshes on every
/// change (so the stream thread never waits for the session's lock).
class CaptureSession::Router final : public CaptureStreamSink {
public:
    struct PreviewTarget {
        std::weak_ptr<PreviewFrameReceiver> receiver;
        std::shared_ptr<CaptureConnection> connection;
    };
    struct Snapshot {
        QSize sensorSize;
        std::shared_ptr<VideoDataOutput> videoOutput;
        std::shared_ptr<CaptureConnection> videoConnection;
        std::vector<PreviewTarget> previews;
    };

    explicit Router(std::weak_ptr<CaptureSession> session) : _session(std::move(session)) {}

    void update(Snapshot snapshot) {
        std::lock_guard lock(_mutex);
        _snapshot = std::move(snapshot);
    }

    FrameLayout nextFrameLayout() override {
        const Snapshot graph = snapshot();
        FrameLayout layout;
        layout.sensorSize = graph.sensorSize;
        // Frames are made in the orientation of the connection that consumes
        // them: the video-data output's, else the first preview's.
        std::shared_ptr<CaptureConnection> shaping = graph.videoConnection;
        if (graph.videoOutput) {
            layout.pixelFormat = graph.videoOutput->pixelFormat();
        } else if (!graph.previews.empty()) {
            shaping = graph.previews.front().connection;
        }
        if (shaping) {
            layout.orientation = shaping->videoOrientation();
            layout.mirrored = shaping->isVideoMirrored();
        }
        return layout;
    }

    void streamDidOutputSampleBuffer(const SampleBufferPtr& sampleBuffer,
                                     const FrameLayout& layout) override {
        const Snapshot graph = snapshot();
        for (const PreviewTarget& target : graph.previews) {
            auto receiver = target.receiver.lock();
            if (receiver && target.connection->isEnabled()) {
                receiver->sessionDidOutputFrame(sampleBuffer, layout);
            }
        }
        if (graph.videoOutput && graph.videoConnection && graph.videoConnection->isEnabled()) {
            graph.videoOutput->deliverSampleBuffer(sampleBuffer, graph.videoConnection);
        }
    }

    void streamDidDropFrame(MediaTime time, DroppedFrameReason reason) override {
        const Snapshot graph = snapshot();
        if (graph.videoOutput && graph.videoConnection && graph.videoConnection->isEnabled()) {
            graph.videoOutput->deliverDroppedFrame(
                std::make_shared<const SampleBuffer>(nullptr, time, reason), graph.videoConnection);
        }
    }

    void streamDidFail(const ErrorPtr& error) override {
        if (auto session = _session.lock()) {
            session->handleStreamFailure(error);
        }
    }

private:
    Snapshot snapshot() const {
        std::lock_guard lock(_mutex);
        return _snapshot;
    }

    std::weak_ptr<CaptureSession> _session;
    mutable std::mutex _mutex;
    Snapshot _snapshot;
};

namespace {

const QStringList& knownPresets() {
    static const QStringList presets = {session_preset::kHigh,      session_preset::kPhoto,
                                        session_preset::k3840x2160, session_preset::k1920x1080,
                                        session_preset::k1280x720,  session_preset::kiFrame960x540};
    return presets;
}

template <typename T>
bool holds(const std::vector<std::shared_ptr<T>>& list, const std::shared_ptr<T>& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

void refuse(const QString& what) {
    log::write(QStringLiteral("[capture] CaptureSession: %1; ignored").arg(what));
}

}  // namespace

std::shared_ptr<CaptureSession> CaptureSession::create() {
    DeviceDiscovery::initialize();
    auto session = std::make_shared<CaptureSession>(Key{});
    session->_router = std::make_shared<Router>(session);
    return session;
}

CaptureSession::CaptureSession(Key) : _preset(session_preset::kHigh) {}

CaptureSession::~CaptureSession() {
    std::lock_guard lock(_mutex);
    if (_streamingDevice) {
        _streamingDevice->stopStreaming();
    }
    for (const auto& output : _outputs) {
        output->detach();
    }
}

// Inputs ---------------------------------------------------------------------

std::vector<std::shared_ptr<CaptureDeviceInput>> CaptureSession::inputs() const {
    std::lock_guard lock(_mutex);
    return _inputs;
}

bool CaptureSession::canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const {
    std::lock_guard lock(_mutex);
    return canAddInputLocked(input);
}

bool CaptureSession::canAddInputLocked(const std::shared_ptr<CaptureDeviceInput>& input) const {
    if (!input || holds(_inputs, input) || videoInputLocked()) {
        return false;
    }
    const auto& device = input->device();
    return device->isConnected() && device->driver().canJoinSession() &&
           device->supportsAVCaptureSessionPreset(_preset);
}

void CaptureSession::addInput(const std::shared_ptr<CaptureDeviceInput>& input) {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        if (!canAddInputLocked(input)) {
            refuse(QStringLiteral("addInput of an input the session cannot add"));
            return;
        }
        _inputs.push_back(input);
        rebuildConnectionsLocked();
        publishLocked();
        syncStreamLocked(notes);
    }
    post(notes);
}

void CaptureSession::removeInput(const std::shared_ptr<CaptureDeviceInput>& input) {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        auto found = std::find(_inputs.begin(), _inputs.end(), input);
        if (found == _inputs.end()) {
            return;
        }
        _inputs.erase(found);
        rebuildConnectionsLocked();
        publishLocked();
        syncStreamLocked(notes);
    }
    post(notes);
}

std::shared_ptr<CaptureDeviceInput> CaptureSession::videoInputLocked() const {
    for (const auto& input : _inputs) {
        if (input->portWithMediaType(kMediaTypeVideo)) {
            return input;
        }
    }
    return nullptr;
}

std::shared_ptr<CaptureDevice> CaptureSession::videoDeviceLocked() const {
    auto input = videoInputLocked();
    return input ? input->device() : nullptr;
}

// Outputs --------------------------------------------------------------------

std::vector<std::shared_ptr<CaptureOutput>> CaptureSession::outputs() const {
    std::lock_guard lock(_mutex);
    return _outputs;
}

bool CaptureSession::canAddOutput(const std::shared_ptr<CaptureOutput>& output) const {
    std::lock_guard lock(_mutex);
    return canAddOutputLocked(output);
}

bool CaptureSession::canAddOutputLocked(const std::shared_ptr<CaptureOutput>& output) const {
    if (!output || holds(_outputs, output) || output->session()) {
        return false;
    }
    const CaptureOutput& candidate = *output;
    return std::none_of(_outputs.begin(), _outputs.end(), [&](const auto& existing) {
        const CaptureOutput& present = *existing;
        return typeid(present) == typeid(candidate);
    });
}

void CaptureSession::addOutput(const std::shared_ptr<CaptureOutput>& output) {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        if (!canAddOutputLocked(output)) {
            refuse(QStringLiteral("addOutput of an output the session cannot add"));
            return;
        }
        _outputs.push_back(output);
        output->attach(shared_from_this());
        rebuildConnectionsLocked();
        publishLocked();
        syncStreamLocked(notes);
    }
    post(notes);
}

void CaptureSession::removeOutput(const std::shared_ptr<CaptureOutput>& output) {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        auto found = std::find(_outputs.begin(), _outputs.end(), output);
        if (found == _outputs.end()) {
            return;
        }
        _outputs.erase(found);
        output->detach();
        publishLocked();
        syncStreamLocked(notes);
    }
    post(notes);
}

// Configuration and presets ------------------------------------------------

void CaptureSession::beginConfiguration() {
    std::lock_guard lock(_mutex);
    ++_configurationDepth;
}

void CaptureSession::commitConfiguration() {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        if (_configurationDepth == 0) {
            refuse(QStringLiteral("commitConfiguration without beginConfiguration"));
            return;
        }
        --_configurationDepth;
        syncStreamLocked(notes);
    }
    post(notes);
}

QString CaptureSession::sessionPreset() const {
    std::lock_guard lock(_mutex);
    return _preset;
}

bool CaptureSession::canSetSessionPreset(const QString& preset) const {
    std::lock_guard lock(_mutex);
    return canSetSessionPresetLocked(preset);
}

bool CaptureSession::canSetSessionPresetLocked(const QString& preset) const {
    if (!knownPresets().contains(preset)) {
        return false;
    }
    return std::all_of(_inputs.begin(), _inputs.end(), [&](const auto& input) {
        return input->device()->supportsAVCaptureSessionPreset(preset);
    });
}

void CaptureSession::setSessionPreset(const QString& preset) {
    std::lock_guard lock(_mutex);
    if (!canSetSessionPresetLocked(preset)) {
        refuse(QStringLiteral("setSessionPreset(%1): not supported by the session's inputs")
                   .arg(preset));
        return;
    }
    _preset = preset;
    publishLocked();
}

QSize CaptureSession::activeVideoSize() const {
    std::lock_guard lock(_mutex);
    auto device = videoDeviceLocked();
    return device ? device->capabilities().videoSizeForPreset(_preset) : QSize();
}

// Running --------------------------------------------------------------------

bool CaptureSession::isRunning() const {
    std::lock_guard lock(_mutex);
    return _running;
}

void CaptureSession::startRunning() {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        if (_running) {
            return;
        }
        _running = true;
        syncStreamLocked(notes);
        if (_running) {
            notes.insert(notes.begin(), note(kCaptureSessionDidStartRunningNotification));
        } else {
            // A start the device refuses reports its runtime error only: the
            // session never ran, so there is no stop to announce.
            std::erase_if(notes, [](const Notification& n) {
                return n.name == kCaptureSessionDidStopRunningNotification;
            });
        }
    }
    post(notes);
}

void CaptureSession::stopRunning() {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        if (!_running) {
            return;
        }
        _running = false;
        syncStreamLocked(notes);
        notes.push_back(note(kCaptureSessionDidStopRunningNotification));
    }
    post(notes);
}

void CaptureSession::syncStreamLocked(std::vector<Notification>& notes) {
    if (_configurationDepth > 0) {
        return;
    }
    auto wanted = _running ? videoDeviceLocked() : nullptr;
    if (wanted == _streamingDevice) {
        return;
    }
    if (_streamingDevice) {
        _streamingDevice->stopStreaming();
        _streamingDevice.reset();
    }
    if (!wanted) {
        return;
    }
    if (ErrorPtr error = wanted->startStreaming(_router)) {
        _running = false;
        notes.push_back(note(kCaptureSessionRuntimeErrorNotification, error));
        notes.push_back(note(kCaptureSessionDidStopRunningNotification));
        return;
    }
    _streamingDevice = wanted;
}

void CaptureSession::handleStreamFailure(const ErrorPtr& error) {
    std::vector<Notification> notes;
    {
        std::lock_guard lock(_mutex);
        // A failure of a device the session has already let go is stale, and
        // so is a disconnection of a device that is back by now.
        const bool disconnection = error && error->code() == av_error::kDeviceWasDisconnected;
        if (!_running || !_streamingDevice || (disconnection && _streamingDevice->isConnected())) {
            return;
        }
        _streamingDevice->stopStreaming();
        _streamingDevice.reset();
        _running = false;
        notes.push_back(note(kCaptureSessionRuntimeErrorNotification, error));
        notes.push_back(note(kCaptureSessionDidStopRunningNotification));
    }
    post(notes);
}

// Previews -------------------------------------------------------------------

void CaptureSession::attachPreview(const std::shared_ptr<PreviewFrameReceiver>& receiver) {
    if (!receiver) {
        return;
    }
    std::lock_guard lock(_mutex);
    const auto* key = receiver.get();
    if (std::any_of(_previews.begin(), _previews.end(),
                    [&](const Preview& preview) { return preview.key == key; })) {
        return;
    }
    _previews.push_back({key, receiver, nullptr, video_orientation::kPortrait});
    rebuildConnectionsLocked();
    publishLocked();
}

void CaptureSession::detachPreview(const PreviewFrameReceiver* receiver) {
    std::lock_guard lock(_mutex);
    std::erase_if(_previews, [&](const Preview& preview) { return preview.key == receiver; });
    publishLocked();
}

std::shared_ptr<CaptureConnection> CaptureSession::previewConnection(
    const PreviewFrameReceiver* receiver) const {
    std::lock_guard lock(_mutex);
    for (const Preview& preview : _previews) {
        if (preview.key == receiver) {
            return preview.connection;
        }
    }
    return nullptr;
}

// Graph ------------------------------------------------------------------------

void CaptureSession::rebuildConnectionsLocked() {
    const auto input = videoInputLocked();
    const auto port = input ? input->portWithMediaType(kMediaTypeVideo) : nullptr;
    const auto formedFrom = [&](const std::shared_ptr<CaptureConnection>& connection) {
        return connection && !connection->inputPorts().empty() &&
               connection->inputPorts().front() == port;
    };
    for (const auto& output : _outputs) {
        const auto current = output->connections();
        if (!port) {
            output->setConnections({});
        } else if (current.empty() || !formedFrom(current.front())) {
            output->setConnections({CaptureConnection::create(
                {port}, output, output->connectionTraits(*input->device()))});
        }
    }
    for (Preview& preview : _previews) {
        if (preview.connection) {
            // A preview keeps its orientation when the camera changes.
            preview.orientation = preview.connection->videoOrientation();
        }
        if (!port) {
            preview.connection.reset();
        } else if (!formedFrom(preview.connection)) {
            const auto& device = input->device();
            const CaptureDeviceCapabilities& caps = device->capabilities();
            CaptureConnection::Traits traits;
            traits.videoOrientation = caps.videoOrientation;
            traits.videoMirroring = caps.videoMirroring;
            traits.initialVideoOrientation = preview.orientation;
            traits.initiallyMirrored =
                caps.videoMirroring && device->position() == device_position::kFront;
            preview.connection = CaptureConnection::create({port}, nullptr, traits);
        }
    }
}

void CaptureSession::publishLocked() {
    Router::Snapshot snapshot;
    if (auto device = videoDeviceLocked()) {
        snapshot.sensorSize = device->capabilities().videoSizeForPreset(_preset);
    }
    for (const auto& output : _outputs) {
        auto video = std::dynamic_pointer_cast<VideoDataOutput>(output);
        if (video && !snapshot.videoOutput) {
            snapshot.videoOutput = video;
            snapshot.videoConnection = video->connectionWithMediaType(kMediaTypeVideo);
        }
    }
    for (const Preview& preview : _previews) {
        if (preview.connection) {
            snapshot.previews.push_back({preview.receiver, preview.connection});
        }
    }
    _router->update(std::move(snapshot));
}

Notification CaptureSession::note(const QString& name, const ErrorPtr& error) const {
    Notification notification{name, this, {}};
    if (error) {
        notification.userInfo.insert(kCaptureSessionErrorKey, QVariant::fromValue(error));
    }
    return notification;
}

void CaptureSession::post(const std::vector<Notification>& notes) {
    for (const Notification& notification : notes) {
        NotificationCenter::defaultCenter().post(notification);
    }
}

}  // namespace platform
