#include "platform/capture/CameraChoice.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/QtCameraSource.h"
#include "platform/capture/ReplayBackend.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"

#include <mutex>

namespace platform {
namespace {

struct DiscoveryState {
    std::mutex mutex;
    DeviceDiscovery::Provider override;
    DeviceDiscovery::Provider hardware;
    std::vector<std::shared_ptr<CaptureDevice>> virtualCameras;
    QString replayFolder;  // of replaySource, or of the recording that failed to load
    std::shared_ptr<QtCameraSource> replaySource;
};

DiscoveryState& state() {
    static DiscoveryState discovery;
    return discovery;
}

std::vector<std::shared_ptr<CaptureDevice>> virtualDevices() {
    {
        std::lock_guard lock(state().mutex);
        if (!state().virtualCameras.empty()) {
            return state().virtualCameras;
        }
    }
    auto back = VirtualCamera::makeDevice(VirtualCameraConfiguration::back());
    auto front = VirtualCamera::makeDevice(VirtualCameraConfiguration::front());
    std::lock_guard lock(state().mutex);
    // Made once: the platform's devices keep their identity.
    if (state().virtualCameras.empty()) {
        state().virtualCameras = {std::move(back), std::move(front)};
    }
    return state().virtualCameras;
}

// The recorded camera of folder, loaded once while the choice stays.
std::vector<std::shared_ptr<CaptureDevice>> replayDevices(const QString& folder) {
    std::shared_ptr<QtCameraSource> source;
    {
        std::lock_guard lock(state().mutex);
        if (state().replayFolder == folder) {
            source = state().replaySource;
            if (!source) {
                return {};  // reported when it failed
            }
        }
    }
    if (source) {
        return source->devices();
    }
    QString why;
    auto recording = CameraRecording::load(folder, &why);
    if (recording) {
        source = std::make_shared<QtCameraSource>(std::make_shared<ReplayBackend>(
            std::make_shared<const CameraRecording>(std::move(*recording))));
    } else {
        log::write(QStringLiteral("QXD_CAMERA: ") + why);
    }
    {
        std::lock_guard lock(state().mutex);
        state().replayFolder = folder;
        state().replaySource = source;
    }
    return source ? source->refresh() : std::vector<std::shared_ptr<CaptureDevice>>{};
}

// The real cameras, unless the choice says otherwise; the virtual ones stand
// in only without any real camera or when asked for.
std::vector<std::shared_ptr<CaptureDevice>> defaultDevices() {
    const CameraChoice choice = CameraSelection::current();
    switch (choice.kind) {
        case CameraChoice::Kind::None:
            return {};
        case CameraChoice::Kind::Virtual:
            return virtualDevices();
        case CameraChoice::Kind::Replay:
            return replayDevices(choice.replayFolder);
        case CameraChoice::Kind::Automatic:
        case CameraChoice::Kind::Camera:
            break;
    }
    DeviceDiscovery::Provider hardware;
    {
        std::lock_guard lock(state().mutex);
        hardware = state().hardware;
    }
    if (hardware) {
        auto cameras = hardware();
        if (!cameras.empty()) {
            return cameras;
        }
    }
    return virtualDevices();
}

// The capture system is part of the library: the availability probe is in
// place as soon as it is loaded, before anyone asks whether a camera exists.
[[maybe_unused]] const bool kInitializedAtLoad = [] {
    DeviceDiscovery::initialize();
    return true;
}();

}  // namespace

std::vector<std::shared_ptr<CaptureDevice>> DeviceDiscovery::allDevices() {
    initialize();
    Provider provider;
    {
        std::lock_guard lock(state().mutex);
        provider = state().override;
    }
    return provider ? provider() : defaultDevices();
}

void DeviceDiscovery::setHardwareSource(Provider source) {
    std::lock_guard lock(state().mutex);
    state().hardware = std::move(source);
}

DeviceDiscovery::ScopedOverride::ScopedOverride(Provider provider) {
    std::lock_guard lock(state().mutex);
    _previous = std::exchange(state().override, std::move(provider));
}

DeviceDiscovery::ScopedOverride::ScopedOverride(std::vector<std::shared_ptr<CaptureDevice>> devices)
    : ScopedOverride(Provider([devices = std::move(devices)] { return devices; })) {}

DeviceDiscovery::ScopedOverride::~ScopedOverride() {
    std::lock_guard lock(state().mutex);
    state().override = std::move(_previous);
}

void DeviceDiscovery::initialize() {
    static OnceToken once;
    runOnce(once, [] {
        CameraAvailability::setProbe(
            [] { return !CaptureDevice::devicesWithMediaType(kMediaTypeVideo).empty(); });
    });
}

}  // namespace platform
