#include "platform/capture/VirtualCamera.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/FrameTimer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform {
namespace {

// Prepared scenes kept per camera: the live layout, a still layout and a
// change of look in between.
constexpr std::size_t kSceneCacheSize = 3;

std::uint64_t hash(std::uint64_t a, std::uint64_t b) {
    std::uint64_t value = a ^ (b + 0x9E3779B97F4A7C15ULL + (a << 6) + (a >> 2));
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

bool hasAutofocus(const CaptureDeviceCapabilities& caps) {
    const auto& modes = caps.focusModes;
    return std::find(modes.begin(), modes.end(), focus_mode::kAutoFocus) != modes.end() ||
           std::find(modes.begin(), modes.end(), focus_mode::kContinuousAutoFocus) != modes.end();
}

std::shared_ptr<const virtual_scene::Source> makeSource(const VirtualCameraConfiguration& config) {
    switch (config.source) {
        case VirtualCameraConfiguration::Source::Image:
            return virtual_scene::makeImageSource(config.image);
        case VirtualCameraConfiguration::Source::Folder:
            return virtual_scene::makeFolderSource(config.folder);
        case VirtualCameraConfiguration::Source::Document:
            break;
    }
    return virtual_scene::makeDocumentSource(config.seed, config.desk, config.scene);
}

int evenRound(double value) {
    return 2 * static_cast<int>(std::lround(value / 2));
}

ErrorPtr avError(int code, const QString& description) {
    return Error::withDescription(kAVFoundationErrorDomain, code, description);
}

}  // namespace

VirtualCameraConfiguration VirtualCameraConfiguration::back() {
    VirtualCameraConfiguration config;
    config.uniqueID = QStringLiteral("qxd.virtual-camera.back");
    config.localizedName = QStringLiteral("Virtual Back Camera");
    config.position = device_position::kBack;
    config.seed = 1;
    CaptureDeviceCapabilities& caps = config.capabilities;
    caps.sessionPresets = {session_preset::kPhoto, session_preset::k3840x2160,
                           session_preset::k1920x1080, session_preset::k1280x720,
                           session_preset::kiFrame960x540};
    caps.stillImageSize = QSize(4032, 3024);
    caps.focusModes = {focus_mode::kLocked, focus_mode::kAutoFocus,
                       focus_mode::kContinuousAutoFocus};
    caps.focusPointOfInterest = true;
    caps.exposureModes = {exposure_mode::kLocked, exposure_mode::kAutoExpose,
                          exposure_mode::kContinuousAutoExposure};
    caps.exposurePointOfInterest = true;
    caps.hasFlash = true;
    caps.flashModes = {flash_mode::kOff, flash_mode::kOn, flash_mode::kAuto};
    caps.hasTorch = true;
    caps.torchModes = {torch_mode::kOff, torch_mode::kOn, torch_mode::kAuto};
    caps.whiteBalanceModes = {white_balance_mode::kLocked, white_balance_mode::kAutoWhiteBalance,
                              white_balance_mode::kContinuousAutoWhiteBalance};
    caps.lowLightBoost = true;
    caps.videoStabilizationModes = {video_stabilization_mode::kStandard,
                                    video_stabilization_mode::kCinematic,
                                    video_stabilization_mode::kAuto};
    caps.stillImageStabilization = true;
    caps.videoMaxScaleAndCropFactor = 4.0;
    return config;
}

VirtualCameraConfiguration VirtualCameraConfiguration::front() {
    VirtualCameraConfiguration config;
    config.uniqueID = QStringLiteral("qxd.virtual-camera.front");
    config.localizedName = QStringLiteral("Virtual Front Camera");
    config.position = device_position::kFront;
    config.seed = 2;
    config.desk = virtual_scene::Desk::Grey;
    config.torchAvailable = false;
    config.maxAvailableTorchLevel = 0.0f;
    CaptureDeviceCapabilities& caps = config.capabilities;
    caps.sessionPresets = {session_preset::kPhoto, session_preset::k1920x1080,
                           session_preset::k1280x720, session_preset::kiFrame960x540};
    caps.stillImageSize = QSize(3088, 2320);
    caps.focusModes = {focus_mode::kLocked};
    caps.exposureModes = {exposure_mode::kLocked, exposure_mode::kAutoExpose,
                          exposure_mode::kContinuousAutoExposure};
    caps.exposurePointOfInterest = true;
    caps.whiteBalanceModes = {white_balance_mode::kLocked, white_balance_mode::kAutoWhiteBalance,
                              white_balance_mode::kContinuousAutoWhiteBalance};
    caps.videoStabilizationModes = {video_stabilization_mode::kStandard,
                                    video_stabilization_mode::kAuto};
    caps.stillImageStabilization = true;
    return config;
}

std::shared_ptr<VirtualCamera> VirtualCamera::create(VirtualCameraConfiguration configuration) {
    return std::make_shared<VirtualCamera>(Key{}, std::move(configuration));
}

std::shared_ptr<CaptureDevice> VirtualCamera::makeDevice(VirtualCameraConfiguration configuration) {
    return CaptureDevice::create(create(std::move(configuration)));
}

VirtualCamera::VirtualCamera(Key, VirtualCameraConfiguration configuration)
    : _config(std::move(configuration)),
      _source(makeSource(_config)),
      _lens(hasAutofocus(_config.capabilities) ? Lens::Defocused : Lens::Focused) {
    _settings = initialSettings();
}

VirtualCamera::~VirtualCamera() {
    stopStreaming();
}

CaptureDeviceSettings VirtualCamera::initialSettings() const {
    CaptureDeviceSettings settings = CaptureDeviceDriver::initialSettings();
    // The lens starts where it was left: focus locked, picture soft until an
    // autofocus runs.
    const auto& modes = _config.capabilities.focusModes;
    if (std::find(modes.begin(), modes.end(), focus_mode::kLocked) != modes.end()) {
        settings.focusMode = focus_mode::kLocked;
    }
    return settings;
}

bool VirtualCamera::isTorchAvailable() const {
    return _config.capabilities.hasTorch && _config.torchAvailable && isConnected();
}

float VirtualCamera::maxAvailableTorchLevel() const {
    return _config.capabilities.hasTorch ? std::clamp(_config.maxAvailableTorchLevel, 0.0f, 1.0f)
                                         : 0.0f;
}

ErrorPtr VirtualCamera::lockForConfiguration() {
    return _config.failures.lockForConfiguration;
}

ErrorPtr VirtualCamera::openInput() {
    if (ErrorPtr error = CaptureDeviceDriver::openInput()) {
        return error;
    }
    return _config.failures.openInput;
}

void VirtualCamera::applySettings(const CaptureDeviceSettings& settings) {
    std::lock_guard lock(_mutex);
    const CaptureDeviceSettings previous = _settings;
    _settings = settings;
    if (!hasAutofocus(_config.capabilities)) {
        return;
    }
    const bool autoMode = settings.focusMode == focus_mode::kAutoFocus ||
                          settings.focusMode == focus_mode::kContinuousAutoFocus;
    const bool retarget = settings.focusMode != previous.focusMode ||
                          settings.focusPointOfInterest != previous.focusPointOfInterest;
    if (autoMode && (retarget || _lens == Lens::Defocused)) {
        _lens = Lens::Focusing;
        _focusStartPending = true;
    } else if (!autoMode && _lens == Lens::Focusing) {
        // Locked half-way: the lens stays where it is, out of focus.
        _lens = Lens::Defocused;
    }
}

virtual_scene::Look VirtualCamera::lookAt(std::uint64_t tick) {
    std::lock_guard lock(_mutex);
    _lastTick = tick;
    if (_lens == Lens::Focusing) {
        if (_focusStartPending) {
            _focusDoneTick =
                tick + static_cast<std::uint64_t>(std::max(0, _config.focusSettleFrames));
            _focusStartPending = false;
        }
        if (tick >= _focusDoneTick) {
            _lens = Lens::Focused;
        }
    }
    virtual_scene::Look look;
    look.focused = _lens == Lens::Focused;
    if (_settings.torchMode == torch_mode::kOn && _settings.torchLevel > 0.0f) {
        look.lightingStep =
            std::clamp(static_cast<int>(std::lround(_settings.torchLevel * 4)), 1, 4);
    }
    look.picture = pictureAt(tick);
    return look;
}

int VirtualCamera::pictureAt(std::uint64_t tick) const {
    const auto perPicture = static_cast<std::uint64_t>(
        std::max(1.0, std::round(_config.secondsPerPicture * _config.frameRate)));
    return static_cast<int>((tick / perPicture) % std::uint64_t(_source->pictureCount()));
}

QPoint VirtualCamera::handShift(std::uint64_t tick, int margin) const {
    const double t = static_cast<double>(tick) / _config.frameRate;
    const double reach = margin * std::clamp(_config.handMotion, 0.0, 1.0);
    const double phase = static_cast<double>(_config.seed % 997) / 997.0 * 2 * std::numbers::pi;
    const double turn = 2 * std::numbers::pi * t;
    return {evenRound(reach * (0.65 * std::sin(0.31 * turn + phase) +
                               0.35 * std::sin(1.7 * turn + 2 * phase))),
            evenRound(reach * (0.6 * std::sin(0.23 * turn + 3 * phase) +
                               0.4 * std::sin(1.3 * turn + phase)))};
}

QPolygonF VirtualCamera::pageCorners(std::uint64_t tick, const FrameLayout& layout) const {
    if (layout.size().isEmpty()) {
        return {};
    }
    const QPolygonF corners =
        _source->pageCorners(virtual_scene::canvasSize(layout), pictureAt(tick));
    if (corners.isEmpty()) {
        return {};
    }
    const QPoint shift = handShift(tick, virtual_scene::marginFor(layout.size()));
    return virtual_scene::canvasToFrame(corners, layout, shift.x(), shift.y());
}

QPolygonF VirtualCamera::stillPageCorners(const FrameLayout& layout) const {
    if (layout.size().isEmpty()) {
        return {};
    }
    std::uint64_t lastTick = 0;
    {
        std::lock_guard lock(_mutex);
        lastTick = _lastTick;
    }
    const QPolygonF corners =
        _source->pageCorners(virtual_scene::canvasSize(layout), pictureAt(lastTick));
    return corners.isEmpty() ? corners : virtual_scene::canvasToFrame(corners, layout, 0, 0);
}

std::pair<QPolygonF, FrameLayout> VirtualCamera::lastFramePageCorners() const {
    std::lock_guard lock(_mutex);
    return {_lastFramePage, _lastFrameLayout};
}

std::shared_ptr<const virtual_scene::PreparedScene> VirtualCamera::sceneFor(
    const FrameLayout& layout, const virtual_scene::Look& look) {
    {
        std::lock_guard lock(_mutex);
        for (auto it = _scenes.begin(); it != _scenes.end(); ++it) {
            if ((*it)->layout() == layout && (*it)->look() == look) {
                _scenes.splice(_scenes.begin(), _scenes, it);
                return _scenes.front();
            }
        }
    }
    // Prepared without the lock: it is the one slow step (once per layout
    // and look), and stills may prepare while the stream keeps going.
    const QImage canvas = layout.pixelFormat == pixel_format::k422YpCbCr8_yuvs
                              ? QImage()
                              : canvasFor(layout, look.picture);
    auto scene = virtual_scene::PreparedScene::prepare(canvas, layout, look, _config.seed,
                                                       _config.noiseAmplitude);
    std::lock_guard lock(_mutex);
    _scenes.push_front(scene);
    if (_scenes.size() > kSceneCacheSize) {
        _scenes.pop_back();
    }
    return scene;
}

QImage VirtualCamera::canvasFor(const FrameLayout& layout, int picture) {
    // The source's rendering is the costly part of a scene and depends on the
    // size only, so a change of torch or focus reuses it.
    const QSize size = virtual_scene::canvasSize(layout);
    {
        std::lock_guard lock(_mutex);
        for (auto it = _canvases.begin(); it != _canvases.end(); ++it) {
            if (it->size == size && it->picture == picture) {
                _canvases.splice(_canvases.begin(), _canvases, it);
                return it->image;
            }
        }
    }
    QImage image = _source->render(size, picture);
    std::lock_guard lock(_mutex);
    _canvases.push_front({size, picture, image});
    if (_canvases.size() > 2) {
        _canvases.pop_back();
    }
    return image;
}

std::size_t VirtualCamera::bufferBound() const {
    if (_config.maximumBuffersInFlight != 0) {
        return _config.maximumBuffersInFlight;
    }
    return std::max<std::size_t>(4, static_cast<std::size_t>(std::ceil(_config.frameRate)));
}

std::shared_ptr<PixelBufferPool> VirtualCamera::poolFor(const QSize& size, std::uint32_t format) {
    // Spare buffers kept once consumers give back a burst: enough for a
    // steady stream, so the rest of the memory goes back to the system.
    constexpr std::size_t kSpareBuffers = 4;
    std::lock_guard lock(_mutex);
    if (!_pool || _pool->attributes().width != size.width() ||
        _pool->attributes().height != size.height() || _pool->attributes().pixelFormat != format) {
        PixelBufferPool::Attributes attributes;
        attributes.width = size.width();
        attributes.height = size.height();
        attributes.pixelFormat = format;
        attributes.maximumBufferCount = bufferBound();
        attributes.maximumFreeBufferCount = kSpareBuffers;
        attributes.extraBytesPerRow = _config.failures.extraBytesPerRow;
        _pool = PixelBufferPool::create(attributes);
    }
    return _pool;
}

void VirtualCamera::disconnect() {
    if (_connected.exchange(false)) {
        reportDisconnection(avError(av_error::kDeviceWasDisconnected,
                                    QStringLiteral("The device was disconnected.")));
    }
}

void VirtualCamera::reconnect() {
    _connected = true;
}

void VirtualCamera::setStalled(bool stalled) {
    _stalled = stalled;
}

void VirtualCamera::setInUseByAnotherApplication(bool inUse) {
    if (_inUseElsewhere.exchange(inUse) || !inUse) {
        return;
    }
    bool streaming = false;
    {
        std::lock_guard lock(_mutex);
        streaming = _timer != nullptr;
    }
    if (streaming) {
        reportStreamFailure(
            avError(av_error::kDeviceInUseByAnotherApplication,
                    QStringLiteral("The device is in use by another application.")));
    }
}

ErrorPtr VirtualCamera::startStreaming(std::shared_ptr<CaptureStreamSink> sink) {
    if (!isConnected()) {
        return avError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"));
    }
    if (_inUseElsewhere.load()) {
        return avError(av_error::kDeviceInUseByAnotherApplication,
                       QStringLiteral("The device is in use by another application."));
    }
    std::lock_guard lock(_mutex);
    if (_timer) {
        return avError(av_error::kDeviceAlreadyUsedByAnotherSession,
                       QStringLiteral("The device is already streaming to another session."));
    }
    _sink = std::move(sink);
    _timer = std::make_unique<FrameTimer>(_config.frameRate,
                                          [this](std::uint64_t tick) { return this->tick(tick); });
    return nullptr;
}

void VirtualCamera::stopStreaming() {
    std::unique_ptr<FrameTimer> timer;
    {
        std::lock_guard lock(_mutex);
        timer = std::move(_timer);
        _sink.reset();
    }
    // Joins the stream thread, which may be waiting for the lock above.
    timer.reset();
}

bool VirtualCamera::tick(std::uint64_t tick) {
    std::shared_ptr<CaptureStreamSink> sink;
    {
        std::lock_guard lock(_mutex);
        sink = _sink;
    }
    if (!sink || !isConnected()) {
        return false;
    }
    if (_stalled.load() || _inUseElsewhere.load()) {
        return true;
    }
    const int lostAfter = _config.failures.disconnectAfterFrames;
    if (lostAfter >= 0 && _delivered.load() >= static_cast<std::uint64_t>(lostAfter)) {
        disconnect();
        return false;
    }
    const FrameLayout layout = sink->nextFrameLayout();
    if (layout.sensorSize.isEmpty()) {
        return true;
    }
    FrameLayout made;
    const SampleBufferPtr sample = render(tick, layout, made);
    if (!sample) {
        // Every buffer is still out (consumers keep frames): this frame is
        // skipped, and said so.
        ++_outOfBuffers;
        sink->streamDidDropFrame(timeOf(tick), DroppedFrameReason::OutOfBuffers);
        if (_config.dropObserver) {
            _config.dropObserver();
        }
        return true;
    }
    {
        const QPolygonF corners = pageCorners(tick, made);
        std::lock_guard lock(_mutex);
        _lastFramePage = corners;
        _lastFrameLayout = made;
    }
    sink->streamDidOutputSampleBuffer(sample, made);
    ++_delivered;
    if (_config.frameObserver) {
        _config.frameObserver(sample);
    }
    return true;
}

MediaTime VirtualCamera::timeOf(std::uint64_t tick) const {
    return {static_cast<qint64>(tick),
            static_cast<qint32>(std::max(1.0, std::round(_config.frameRate)))};
}

SampleBufferPtr VirtualCamera::renderFrame(std::uint64_t tick, const FrameLayout& layout) {
    FrameLayout made;
    return render(tick, layout, made);
}

SampleBufferPtr VirtualCamera::render(std::uint64_t tick, const FrameLayout& layout,
                                      FrameLayout& made) {
    const VirtualCameraFailures& faults = _config.failures;
    MediaTime time = timeOf(tick);
    if (faults.timestampGlitchEvery > 0 && tick > 1) {
        const auto every = static_cast<std::uint64_t>(faults.timestampGlitchEvery);
        if (tick % (2 * every) == 0) {
            time.value = static_cast<qint64>(tick) - 2;  // earlier than the previous frame
        } else if (tick % every == 0) {
            time.value = static_cast<qint64>(tick) - 1;  // the previous frame's stamp
        }
    }
    const virtual_scene::Look look = lookAt(tick);
    made = layout;
    if (faults.liveFramesWithoutImageBuffer) {
        return std::make_shared<const SampleBuffer>(nullptr, time);
    }
    if (faults.liveFramesInUnsupportedFormat || !PixelBuffer::isSupportedFormat(made.pixelFormat)) {
        made.pixelFormat = pixel_format::k422YpCbCr8_yuvs;
    }
    if (faults.resolutionChangeAfterFrames >= 0 &&
        _delivered.load() >= static_cast<std::uint64_t>(faults.resolutionChangeAfterFrames)) {
        made.sensorSize = QSize(std::max(2, evenRound(made.sensorSize.width() / 2.0)),
                                std::max(2, evenRound(made.sensorSize.height() / 2.0)));
    }
    if (faults.oddFrameSize && made.pixelFormat == pixel_format::k32BGRA &&
        made.sensorSize.width() > 2 && made.sensorSize.height() > 2) {
        made.sensorSize -= QSize(1, 1);
    }
    const QSize size = made.size();
    auto pool = poolFor(size, made.pixelFormat);
    auto buffer = pool ? pool->createPixelBuffer() : nullptr;
    if (!buffer) {
        return nullptr;
    }
    const auto scene = sceneFor(made, look);
    const QPoint shift = handShift(tick, scene->margin());
    scene->renderFrame(*buffer, shift.x(), shift.y(), hash(_config.seed, tick));
    buffer->setRefusesLock(faults.liveBuffersRefuseLock);
    if (faults.truncatedBufferEvery > 0 &&
        (tick + 1) % static_cast<std::uint64_t>(faults.truncatedBufferEvery) == 0) {
        buffer->setValidByteCount(buffer->dataSize() / 2);
    }
    return std::make_shared<const SampleBuffer>(std::move(buffer), time);
}

StillResult VirtualCamera::captureStill(const StillRequest& request) {
    if (!isConnected()) {
        return {nullptr, avError(av_error::kDeviceNotConnected, QStringLiteral("Cannot Record"))};
    }
    const std::uint64_t index = _stills++;
    std::uint64_t lastTick = 0;
    {
        std::lock_guard lock(_mutex);
        lastTick = _lastTick;
    }
    const MediaTime time = timeOf(lastTick);
    switch (_config.failures.still) {
        case VirtualCameraFailures::Still::Error:
            return {nullptr, _config.failures.stillError
                                 ? _config.failures.stillError
                                 : avError(av_error::kUnknown,
                                           QStringLiteral("The operation could not be completed"))};
        case VirtualCameraFailures::Still::NoSampleBuffer:
            return {};
        case VirtualCameraFailures::Still::SampleBufferWithoutImageBuffer:
            return {std::make_shared<const SampleBuffer>(nullptr, time), nullptr};
        case VirtualCameraFailures::Still::None:
            break;
    }
    const FrameLayout& layout = request.layout;
    auto buffer =
        PixelBuffer::create(layout.size().width(), layout.size().height(), layout.pixelFormat);
    if (!buffer) {
        return {nullptr,
                avError(av_error::kUnknown, QStringLiteral("Unsupported still format or size."))};
    }
    const auto scene = sceneFor(layout, lookAt(lastTick));
    scene->renderFrame(*buffer, 0, 0, hash(_config.seed ^ 0x5354494C4CULL, index));
    buffer->setRefusesLock(_config.failures.stillBuffersRefuseLock);
    return {std::make_shared<const SampleBuffer>(std::move(buffer), time), nullptr};
}

}  // namespace platform
