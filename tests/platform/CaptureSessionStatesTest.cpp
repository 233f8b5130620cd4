// Every session call in every session state, against a small model of what
// the session must then be: running or not, streaming from its camera or not,
// its inputs, outputs, connections and preset, and start/stop notifications
// that always pair up.
#include "platform/capture/CaptureConnection.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

namespace {

using namespace platform;

constexpr double kWait = 20.0;  // seconds; only a guard against hanging

enum class State { Empty, Stopped, Running, RunningInConfiguration, DeviceLost };
enum class Call {
    Start,
    Stop,
    Begin,
    Commit,
    AddInput,
    RemoveInput,
    AddOutputs,
    RemoveOutputs,
    SetPreset,
    SetUnknownPreset
};

const char* nameOf(State state) {
    constexpr const char* names[] = {"empty", "stopped", "running", "running in configuration",
                                     "device lost"};
    return names[static_cast<int>(state)];
}

const char* nameOf(Call call) {
    constexpr const char* names[] = {
        "start",        "stop",        "begin",          "commit",     "add input",
        "remove input", "add outputs", "remove outputs", "set preset", "set unknown preset"};
    return names[static_cast<int>(call)];
}

// A back camera with small frames only, so starting a stream is quick.
VirtualCameraConfiguration smallCamera() {
    auto config = VirtualCameraConfiguration::back();
    config.capabilities.sessionPresets = {session_preset::kiFrame960x540,
                                          session_preset::k1280x720};
    return config;
}

// Whether device streams for some session: a second session cannot start it
// then.
bool streamsElsewhere(const std::shared_ptr<CaptureDevice>& device) {
    const auto input = CaptureDeviceInput::create(device, nullptr);
    if (!input) {
        return false;  // lost
    }
    const auto probe = CaptureSession::create();
    probe->addInput(input);
    probe->startRunning();
    const bool refused = !probe->isRunning();
    probe->stopRunning();
    return refused;
}

// What the session should be, and the rules by which calls change it.
struct Model {
    bool hasInput = false;
    bool hasOutputs = false;
    bool running = false;
    bool streaming = false;
    bool lost = false;
    int configurationDepth = 0;
    QString preset = session_preset::kHigh;

    // Outside a configuration the stream follows at once; inside, at the
    // outermost commit. A lost device cannot stream, and trying stops the
    // session.
    void settle() {
        if (configurationDepth > 0) {
            return;
        }
        if (running && hasInput && lost) {
            running = false;
        }
        streaming = running && hasInput;
    }
};

class SessionMachine {
public:
    SessionMachine() {
        auto& center = NotificationCenter::defaultCenter();
        center.addObserver(this, kCaptureSessionDidStartRunningNotification, session.get(),
                           [this](const Notification&) { ++_starts; });
        center.addObserver(this, kCaptureSessionDidStopRunningNotification, session.get(),
                           [this](const Notification&) {
                               ++_stops;
                               _stopped.signal();
                           });
    }
    ~SessionMachine() {
        while (_model.configurationDepth-- > 0) {
            session->commitConfiguration();
        }
        session->stopRunning();
        NotificationCenter::defaultCenter().removeObserver(this);
    }
    SessionMachine(const SessionMachine&) = delete;
    SessionMachine& operator=(const SessionMachine&) = delete;

    void enter(State state) {
        if (state == State::Empty) {
            return;
        }
        apply(Call::AddInput);
        apply(Call::AddOutputs);
        if (state == State::Stopped) {
            return;
        }
        apply(Call::Start);
        if (state == State::RunningInConfiguration) {
            apply(Call::Begin);
        } else if (state == State::DeviceLost) {
            camera->disconnect();
            ASSERT_TRUE(_stopped.waitFor(kWait)) << "the session stops with its device";
            _model.lost = true;
            _model.running = false;
            _model.streaming = false;
        }
    }

    void apply(Call call) {
        switch (call) {
            case Call::Start:
                session->startRunning();
                _model.running = true;
                break;
            case Call::Stop:
                session->stopRunning();
                _model.running = false;
                break;
            case Call::Begin:
                session->beginConfiguration();
                ++_model.configurationDepth;
                break;
            case Call::Commit:
                session->commitConfiguration();  // refused at depth 0
                _model.configurationDepth = std::max(0, _model.configurationDepth - 1);
                break;
            case Call::AddInput:
                session->addInput(input);  // refused when already in or lost
                _model.hasInput = _model.hasInput || !_model.lost;
                break;
            case Call::RemoveInput:
                session->removeInput(input);
                _model.hasInput = false;
                break;
            case Call::AddOutputs:
                session->addOutput(video);
                session->addOutput(still);
                _model.hasOutputs = true;
                break;
            case Call::RemoveOutputs:
                session->removeOutput(video);
                session->removeOutput(still);
                _model.hasOutputs = false;
                break;
            case Call::SetPreset:
                session->setSessionPreset(session_preset::k1280x720);
                _model.preset = session_preset::k1280x720;
                break;
            case Call::SetUnknownPreset:
                session->setSessionPreset(QStringLiteral("AVCaptureSessionPresetNonsense"));
                break;
        }
        _model.settle();
    }

    void expectModel() {
        EXPECT_EQ(session->isRunning(), _model.running) << "running";
        EXPECT_EQ(_starts.load() - _stops.load(), _model.running ? 1 : 0)
            << "start and stop notifications pair up";
        EXPECT_EQ(streamsElsewhere(device), _model.streaming) << "streaming";
        EXPECT_EQ(session->inputs().size(), _model.hasInput ? 1u : 0u) << "inputs";
        EXPECT_EQ(session->outputs().size(), _model.hasOutputs ? 2u : 0u) << "outputs";
        EXPECT_EQ(video->connectionWithMediaType(kMediaTypeVideo) != nullptr,
                  _model.hasInput && _model.hasOutputs)
            << "connection";
        EXPECT_EQ(session->sessionPreset(), _model.preset) << "preset";
    }

    std::shared_ptr<VirtualCamera> camera = VirtualCamera::create(smallCamera());
    std::shared_ptr<CaptureDevice> device = CaptureDevice::create(camera);
    std::shared_ptr<CaptureDeviceInput> input = CaptureDeviceInput::create(device, nullptr);
    std::shared_ptr<CaptureSession> session = CaptureSession::create();
    std::shared_ptr<VideoDataOutput> video = VideoDataOutput::create();
    std::shared_ptr<StillImageOutput> still = StillImageOutput::create();

private:
    Model _model;
    std::atomic<int> _starts{0};
    std::atomic<int> _stops{0};
    Semaphore _stopped;
};

}  // namespace

TEST(CaptureSessionStates, EveryCallInEveryStateKeepsTheSessionConsistent) {
    for (const State state : {State::Empty, State::Stopped, State::Running,
                              State::RunningInConfiguration, State::DeviceLost}) {
        for (const Call call :
             {Call::Start, Call::Stop, Call::Begin, Call::Commit, Call::AddInput, Call::RemoveInput,
              Call::AddOutputs, Call::RemoveOutputs, Call::SetPreset, Call::SetUnknownPreset}) {
            SCOPED_TRACE(std::string(nameOf(call)) + " when " + nameOf(state));
            SessionMachine machine;
            machine.enter(state);
            machine.expectModel();
            machine.apply(call);
            machine.expectModel();
            // Whatever was deferred lands at the end of the configuration.
            machine.apply(Call::Commit);
            machine.expectModel();
        }
    }
}

TEST(CaptureSessionStates, ARefusedSecondSessionLeavesTheFirstHearingOfItsDevice) {
    SessionMachine machine;
    machine.enter(State::Running);
    ASSERT_TRUE(streamsElsewhere(machine.device)) << "the second session is refused";
    Semaphore stopped;
    int observer = 0;
    NotificationCenter::defaultCenter().addObserver(
        &observer, kCaptureSessionDidStopRunningNotification, machine.session.get(),
        [&](const Notification&) { stopped.signal(); });
    machine.camera->disconnect();
    const bool heard = stopped.waitFor(kWait);
    NotificationCenter::defaultCenter().removeObserver(&observer);
    EXPECT_TRUE(heard);
    EXPECT_FALSE(machine.session->isRunning());
}
