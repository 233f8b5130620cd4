// The engine under the faults of real cameras, each injected through the
// virtual camera, with what the host sees asserted: a lost, taken or silent
// camera, frames the host keeps, frames as real drivers make them, and an
// engine released with a still in flight.
#include "QXDCamera.h"
#include "QXDCameraCore.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/RunLoop.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <vector>

namespace {

using platform::VirtualCamera;
using platform::VirtualCameraConfiguration;

constexpr double kWait = 60.0;  // seconds; only a guard against hangs (sanitizers are slow)

// Records what the host sees; may keep every frame it gets, as a host that
// stores images for later does.
class Host : public QXDCameraDelegate {
public:
    void cameraDidCaptureVideoSample(QXDCamera&, const QImage& image) override {
        {
            std::lock_guard lock(mutex);
            ++frames;
            sizes.push_back(image.size());
            if (keepFrames) {
                kept.push_back(image);
            }
        }
        frameArrived.signal();
    }
    void cameraDidCaptureStillImage(QXDCamera&, const QImage& image) override {
        {
            std::lock_guard lock(mutex);
            stills.push_back(image.size());
        }
        stillArrived.signal();
    }
    void cameraDidFailWithError(QXDCamera&, const platform::ErrorPtr& error) override {
        {
            std::lock_guard lock(mutex);
            failures.push_back({error, platform::DispatchQueue::currentLabel()});
        }
        failed.signal();
    }

    std::size_t frameCount() {
        std::lock_guard lock(mutex);
        return frames;
    }
    std::size_t failureCount() {
        std::lock_guard lock(mutex);
        return failures.size();
    }
    // Waits for n more frames than have arrived so far.
    bool waitForFrames(std::size_t n) {
        const std::size_t target = frameCount() + n;
        while (frameCount() < target) {
            if (!frameArrived.waitFor(kWait)) {
                return false;
            }
        }
        return true;
    }

    struct Failure {
        platform::ErrorPtr error;
        QString queue;
    };
    std::mutex mutex;
    bool keepFrames = false;
    std::vector<QImage> kept;
    std::size_t frames = 0;
    std::vector<QSize> sizes;
    std::vector<QSize> stills;
    std::vector<Failure> failures;
    platform::Semaphore frameArrived;
    platform::Semaphore stillArrived;
    platform::Semaphore failed;
};

class CameraFaults : public ::testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        platform::CameraAvailability::setOverride(true);
        platform::Device::current().setOrientation(platform::device_orientation::kPortrait);
        platform::Application::shared().setStatusBarOrientation(1);
    }

    void TearDown() override {
        camera.reset();
        discovery.reset();
        platform::CameraAvailability::setOverride(std::nullopt);
    }

    // Lists the cameras of the given configurations, in order.
    void useCameras(std::vector<VirtualCameraConfiguration> configurations) {
        discovery.reset();
        drivers.clear();
        devices.clear();
        for (auto& configuration : configurations) {
            drivers.push_back(VirtualCamera::create(std::move(configuration)));
            devices.push_back(platform::CaptureDevice::create(drivers.back()));
        }
        discovery = std::make_unique<platform::DeviceDiscovery::ScopedOverride>(
            [this] { return listed(); });
    }
    std::vector<std::shared_ptr<platform::CaptureDevice>> listed() {
        std::lock_guard lock(devicesMutex);
        return devices;
    }

    void makeCamera(std::shared_ptr<platform::VideoPreviewLayer> preview = nullptr) {
        camera = QXDCamera::create(std::move(preview), 1, false, host);
    }

    // Waits until everything queued on the session queue so far has run.
    void drainSessionQueue() { camera->canConfigureLowLightBoost(); }

    // The one failure reported since the last call, checked for the engine's
    // lost-camera form.
    void expectLoss(const QString& description, const char* what) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(host->failed.waitFor(kWait));
        drainSessionQueue();
        std::lock_guard lock(host->mutex);
        ASSERT_EQ(host->failures.size(), 1u) << "reported once";
        const auto& failure = host->failures.front();
        ASSERT_TRUE(failure.error);
        EXPECT_EQ(failure.error->domain(), QStringLiteral("QXDCameraErrorDomain"));
        EXPECT_EQ(failure.error->code(), 404);
        EXPECT_EQ(failure.error->localizedDescription(), description);
        EXPECT_TRUE(failure.queue.endsWith(QStringLiteral(".camera.session")));
        EXPECT_FALSE(camera->running());
        host->failures.clear();
    }

    std::vector<std::shared_ptr<VirtualCamera>> drivers;
    std::mutex devicesMutex;
    std::vector<std::shared_ptr<platform::CaptureDevice>> devices;
    std::unique_ptr<platform::DeviceDiscovery::ScopedOverride> discovery;
    std::shared_ptr<Host> host = std::make_shared<Host>();
    std::shared_ptr<QXDCamera> camera;
};

// Frames reach the engine on its video queue, which tests cannot wait on:
// waits a bounded time for what they bring.
bool eventually(const std::function<bool()>& condition) {
    platform::Semaphore never;
    for (int i = 0; i < 500; ++i) {
        if (condition()) {
            return true;
        }
        never.waitFor(0.01);
    }
    return condition();
}

const QString kDisconnected = QStringLiteral("The camera was disconnected.");
const QString kInUse = QStringLiteral("The camera is in use by another application.");
const QString kSilent = QStringLiteral("The camera stopped sending pictures.");

TEST_F(CameraFaults, AnUnpluggedCameraIsReportedOnceAndPicksUpWhenPluggedBackIn) {
    useCameras({VirtualCameraConfiguration::back(), VirtualCameraConfiguration::front()});
    makeCamera();
    camera->start();
    ASSERT_TRUE(host->waitForFrames(2));

    drivers[0]->disconnect();
    expectLoss(kDisconnected, "unplugged mid-stream");
    EXPECT_FALSE(camera->captureSession()->isRunning());

    // Starting while it is still gone says so again, and stays stopped.
    camera->start();
    expectLoss(kDisconnected, "started while gone");

    // The same camera back: a later start streams again.
    drivers[0]->reconnect();
    camera->start();
    ASSERT_TRUE(host->waitForFrames(2)) << "frames resume after reconnecting";
    EXPECT_TRUE(camera->running());

    // Unplugged again and replaced by a new device at the same position (a
    // hot-plugged camera the system lists anew): start builds around it.
    drivers[0]->disconnect();
    expectLoss(kDisconnected, "unplugged again");
    auto replacement = VirtualCamera::create(VirtualCameraConfiguration::back());
    {
        std::lock_guard lock(devicesMutex);
        devices[0] = platform::CaptureDevice::create(replacement);
    }
    camera->start();
    ASSERT_TRUE(host->waitForFrames(2));
    drainSessionQueue();
    EXPECT_EQ(camera->deviceInput()->device()->uniqueID(), devices[0]->uniqueID());
    EXPECT_EQ(camera->deviceInput()->device(), devices[0]);
    camera->stop();
    drainSessionQueue();
    EXPECT_EQ(host->failureCount(), 0u) << "a stop is no loss";
}

TEST_F(CameraFaults, ACameraTakenBusyOrSilentIsReportedAndStartsAgainOnceFree) {
    useCameras({VirtualCameraConfiguration::back(), VirtualCameraConfiguration::front()});
    makeCamera();
    camera->start();
    ASSERT_TRUE(host->waitForFrames(1));

    // Another program takes the camera mid-stream, and still has it at the
    // next start.
    drivers[0]->setInUseByAnotherApplication(true);
    expectLoss(kInUse, "taken mid-stream");
    camera->start();
    expectLoss(kInUse, "started while taken");
    drivers[0]->setInUseByAnotherApplication(false);
    camera->start();
    ASSERT_TRUE(host->waitForFrames(1));
    camera->stop();
    drainSessionQueue();

    // Busy in another session of this process.
    auto other = platform::CaptureSession::create();
    auto input = platform::CaptureDeviceInput::create(devices[0], nullptr);
    ASSERT_TRUE(other->canAddInput(input));
    other->addInput(input);
    other->startRunning();
    camera->start();
    expectLoss(kInUse, "busy in another session");
    other->stopRunning();
    camera->start();
    ASSERT_TRUE(host->waitForFrames(1));

    // A stream that stalls without a word: silent for the timeout on the
    // run loop's clock and in real time.
    camera->stop();
    drainSessionQueue();
    camera->setStallTimeout(0.2);
    camera->start();
    ASSERT_TRUE(host->waitForFrames(1));
    drivers[0]->setStalled(true);
    for (int i = 0; i < 200; ++i) {
        platform::RunLoop::main().advance(0.1);
        if (host->failed.waitFor(0.05)) {
            host->failed.signal();  // for expectLoss
            break;
        }
    }
    expectLoss(kSilent, "stalled");
    EXPECT_FALSE(camera->captureSession()->isRunning()) << "the silent stream is stopped";
    drivers[0]->setStalled(false);
    camera->start();
    ASSERT_TRUE(host->waitForFrames(1));
    // A steady stream under a moving clock is never taken for a stall.
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(host->waitForFrames(1));
        platform::RunLoop::main().advance(0.1);
    }
    EXPECT_EQ(host->failureCount(), 0u);
    EXPECT_TRUE(camera->running());
}

TEST_F(CameraFaults, KeptFramesLetThePoolGrowThenDropUntilTheHostLetsGo) {
    auto back = VirtualCameraConfiguration::back();
    back.maximumBuffersInFlight = 6;
    platform::Semaphore droppedForWantOfBuffer;
    back.dropObserver = [&] { droppedForWantOfBuffer.signal(); };
    useCameras({back, VirtualCameraConfiguration::front()});
    auto preview = platform::VideoPreviewLayer::create();
    makeCamera(preview);
    {
        std::lock_guard lock(host->mutex);
        host->keepFrames = true;
    }
    camera->start();
    // Far more than the four buffers a fixed pool had: the stream goes on
    // until the pool's bound is reached (the preview holds one more).
    ASSERT_TRUE(host->waitForFrames(5));
    ASSERT_TRUE(droppedForWantOfBuffer.waitFor(kWait)) << "every buffer is held";
    const std::size_t frozenAt = host->frameCount();
    EXPECT_LE(frozenAt, 6u);

    // The host lets go: the stream resumes at once.
    {
        std::lock_guard lock(host->mutex);
        host->keepFrames = false;
        host->kept.clear();
    }
    ASSERT_TRUE(host->waitForFrames(3));
    camera->stop();
    drainSessionQueue();
    // A frame already on its way is handed over after the stop; let it land.
    for (const auto& output : camera->captureSession()->outputs()) {
        if (auto video = std::dynamic_pointer_cast<platform::VideoDataOutput>(output)) {
            video->sampleBufferCallbackQueue()->sync([] {});
        }
    }
    const QXDCameraCounters counters = camera->counters();
    EXPECT_EQ(counters.framesDelivered, host->frameCount());
    EXPECT_GE(counters.framesDroppedNoBuffer, 1u);
    EXPECT_EQ(counters.framesDroppedNoBuffer + counters.framesDroppedLate,
              counters.framesDropped());
    EXPECT_EQ(host->failureCount(), 0u) << "drops stay silent to the delegate";
}

TEST_F(CameraFaults, CountersAccountForEveryKindOfSkippedFrameAndEveryStill) {
    struct Case {
        const char* name;
        std::function<void(VirtualCameraConfiguration&)> configure;
        std::uint64_t QXDCameraCounters::*counter;
    };
    const std::vector<Case> cases{
        {"lock refused", [](auto& c) { c.failures.liveBuffersRefuseLock = true; },
         &QXDCameraCounters::framesDroppedLockRefused},
        {"unsupported format", [](auto& c) { c.failures.liveFramesInUnsupportedFormat = true; },
         &QXDCameraCounters::framesDroppedUnsupportedFormat},
        {"no image buffer", [](auto& c) { c.failures.liveFramesWithoutImageBuffer = true; },
         &QXDCameraCounters::framesDroppedNoImageBuffer},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        auto back = VirtualCameraConfiguration::back();
        test.configure(back);
        platform::Semaphore produced;
        back.frameObserver = [&](const platform::SampleBufferPtr&) { produced.signal(); };
        useCameras({back, VirtualCameraConfiguration::front()});
        makeCamera();
        camera->start();
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(produced.waitFor(kWait));
        }
        camera->stop();
        drainSessionQueue();
        EXPECT_TRUE(eventually([&] { return camera->counters().*test.counter >= 1; }));
        EXPECT_EQ(camera->counters().framesDelivered, 0u);
        EXPECT_EQ(host->frameCount(), 0u) << "skipped frames stay silent";
    }

    // Counting itself, on one engine: skipped frames, then stills.
    auto back = VirtualCameraConfiguration::back();
    back.failures.truncatedBufferEvery = 2;
    platform::Semaphore produced;
    back.frameObserver = [&](const platform::SampleBufferPtr&) { produced.signal(); };
    useCameras({back, VirtualCameraConfiguration::front()});
    makeCamera();
    camera->start();
    ASSERT_TRUE(host->waitForFrames(2));
    camera->takePicture();
    ASSERT_TRUE(host->stillArrived.waitFor(kWait));
    camera->stop();
    drainSessionQueue();
    QXDCameraCounters counters = camera->counters();
    EXPECT_EQ(counters.stillsRequested, 1u);
    EXPECT_EQ(counters.stillsCompleted, 1u);
    EXPECT_EQ(counters.stillsFailed, 0u);
    EXPECT_TRUE(eventually([&] { return camera->counters().framesDroppedLockRefused >= 1; }))
        << "a cut-short buffer is never read";
    EXPECT_GE(counters.framesDelivered, 2u);
    EXPECT_EQ(host->failureCount(), 0u);

    auto failing = VirtualCameraConfiguration::back();
    failing.failures.still = platform::VirtualCameraFailures::Still::Error;
    useCameras({failing, VirtualCameraConfiguration::front()});
    makeCamera();
    camera->start();
    drainSessionQueue();
    camera->takePicture();
    ASSERT_TRUE(host->failed.waitFor(kWait));
    camera->stop();
    drainSessionQueue();
    counters = camera->counters();
    EXPECT_EQ(counters.stillsRequested, 1u);
    EXPECT_EQ(counters.stillsCompleted, 0u);
    EXPECT_EQ(counters.stillsFailed, 1u);
}

TEST_F(CameraFaults, FramesAsRealCamerasMakeThemReachHostAndPreview) {
    struct Case {
        const char* name;
        std::function<void(VirtualCameraConfiguration&)> configure;
        QSize expected;  // portrait frame size, or empty when it varies
    };
    const std::vector<Case> cases{
        {"rows longer than their pixels", [](auto& c) { c.failures.extraBytesPerRow = 52; },
         QSize(1080, 1920)},
        {"odd sizes", [](auto& c) { c.failures.oddFrameSize = true; }, QSize(1079, 1919)},
        {"size change mid-stream", [](auto& c) { c.failures.resolutionChangeAfterFrames = 3; },
         QSize()},
        {"repeated and late time stamps", [](auto& c) { c.failures.timestampGlitchEvery = 2; },
         QSize(1080, 1920)},
        {"corrupt buffers", [](auto& c) { c.failures.truncatedBufferEvery = 3; },
         QSize(1080, 1920)},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        auto back = VirtualCameraConfiguration::back();
        back.capabilities.stillImageSize = QSize(1280, 960);
        test.configure(back);
        useCameras({back, VirtualCameraConfiguration::front()});
        auto preview = platform::VideoPreviewLayer::create();
        makeCamera(preview);
        {
            std::lock_guard lock(host->mutex);
            host->sizes.clear();
        }
        camera->start();
        for (int i = 0; i < 6; ++i) {
            ASSERT_TRUE(host->waitForFrames(1));
            platform::RunLoop::main().runPending();
        }
        EXPECT_FALSE(preview->contents().isNull()) << "the preview shows frames";
        camera->takePicture();
        ASSERT_TRUE(host->stillArrived.waitFor(kWait)) << "stills still work";
        camera->stop();
        drainSessionQueue();
        std::lock_guard lock(host->mutex);
        for (const QSize& size : host->sizes) {
            if (!test.expected.isEmpty()) {
                EXPECT_EQ(size, test.expected);
            } else {
                EXPECT_TRUE(size == QSize(1080, 1920) || size == QSize(540, 960))
                    << size.width() << "x" << size.height();
            }
        }
        if (test.expected.isEmpty()) {
            EXPECT_EQ(host->sizes.back(), QSize(540, 960));
        }
        EXPECT_TRUE(host->failures.empty());
    }
}

TEST_F(CameraFaults, ReleasingTheEngineWithAStillInFlightDeliversNothingAndLeavesNoThread) {
    useCameras({VirtualCameraConfiguration::back(), VirtualCameraConfiguration::front()});
    for (int round = 0; round < 3; ++round) {
        makeCamera();
        camera->start();
        ASSERT_TRUE(host->waitForFrames(1));
        std::weak_ptr<platform::CaptureSession> session = camera->captureSession();
        std::weak_ptr<platform::CaptureOutput> stillOutput;
        for (const auto& output : camera->captureSession()->outputs()) {
            if (std::dynamic_pointer_cast<platform::StillImageOutput>(output)) {
                stillOutput = output;
            }
        }
        camera->takePicture();
        camera.reset();
        // Everything the engine ran on is gone once the release returns:
        // the session (its stream joined) and the still output (its thread
        // joined after the capture in progress).
        EXPECT_TRUE(session.expired());
        EXPECT_TRUE(stillOutput.expired());
    }
    std::lock_guard lock(host->mutex);
    EXPECT_TRUE(host->stills.empty()) << "a released engine delivers nothing";
    EXPECT_TRUE(host->failures.empty());
}

}  // namespace
