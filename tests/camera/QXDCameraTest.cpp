#include "QXDCamera.h"
#include "QXDCameraCore.h"

#include "platform/capture/CaptureConnection.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using platform::VirtualCamera;
using platform::VirtualCameraConfiguration;
namespace preset = platform::session_preset;

constexpr double kWait = 60.0;  // seconds; only a guard against hangs (sanitizers are slow)

// Records every engine event with the queue it arrived on.
class RecordingDelegate : public QXDCameraDelegate {
public:
    struct Frame {
        QSize size;
        bool null;
        QString queue;
    };
    struct Failure {
        platform::ErrorPtr error;
        QString queue;
    };

    void cameraDidCaptureVideoSample(QXDCamera&, const QImage& image) override {
        {
            std::lock_guard lock(mutex);
            frames.push_back(
                {image.size(), image.isNull(), platform::DispatchQueue::currentLabel()});
        }
        frameArrived.signal();
    }
    void cameraDidCaptureStillImage(QXDCamera&, const QImage& image) override {
        {
            std::lock_guard lock(mutex);
            stills.push_back(
                {image.size(), image.isNull(), platform::DispatchQueue::currentLabel()});
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
        return frames.size();
    }

    std::mutex mutex;
    std::vector<Frame> frames;
    std::vector<Frame> stills;
    std::vector<Failure> failures;
    platform::Semaphore frameArrived;
    platform::Semaphore stillArrived;
    platform::Semaphore failed;
};

class QXDCameraTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        platform::CameraAvailability::setOverride(true);
        platform::Device::current().setOrientation(platform::device_orientation::kPortrait);
        platform::Application::shared().setStatusBarOrientation(1);
        bundle = QXDCameraCore::bundleForClass();
        savedInfo = bundle->infoDictionary();
        QVariantMap info = savedInfo;
        info.insert(QStringLiteral("QXDCameraControllerLoggingEnabled"), true);
        bundle->setInfoDictionary(info);
        sink = std::make_unique<platform::log::ScopedSink>([this](const QString& line) {
            std::lock_guard lock(logMutex);
            logLines << line.section(QStringLiteral("] "), 1);
        });
        useCameras(VirtualCameraConfiguration::back(), VirtualCameraConfiguration::front());
    }

    void TearDown() override {
        // Let the engine finish its queued work while this test still holds
        // it, so it goes away here and not later on one of its own queues,
        // perhaps with its camera still streaming while the process exits.
        if (camera) {
            camera->stop();
            drainSessionQueue();
        }
        camera.reset();
        discovery.reset();
        sink.reset();
        bundle->setInfoDictionary(savedInfo);
        platform::CameraAvailability::setOverride(std::nullopt);
        platform::Bundle::mainBundle()->setInfoDictionary({});
    }

    void useCameras(VirtualCameraConfiguration back, VirtualCameraConfiguration front) {
        discovery.reset();
        devices = {VirtualCamera::makeDevice(std::move(back)),
                   VirtualCamera::makeDevice(std::move(front))};
        discovery = std::make_unique<platform::DeviceDiscovery::ScopedOverride>(devices);
    }

    void makeCamera(int position = 1, bool highResolution = false,
                    std::shared_ptr<platform::VideoPreviewLayer> preview = nullptr) {
        camera = QXDCamera::create(std::move(preview), position, highResolution, delegate);
    }

    // Waits until everything queued on the session queue so far has run.
    void drainSessionQueue() { camera->canConfigureLowLightBoost(); }

    // The component's own lines, without the platform's.
    QStringList logs() {
        std::lock_guard lock(logMutex);
        return logLines.filter(QRegularExpression(QStringLiteral("^QXDCameraController - ")));
    }
    void clearLogs() {
        std::lock_guard lock(logMutex);
        logLines.clear();
    }

    std::shared_ptr<platform::Bundle> bundle;
    QVariantMap savedInfo;
    std::unique_ptr<platform::log::ScopedSink> sink;
    std::mutex logMutex;
    QStringList logLines;
    std::vector<std::shared_ptr<platform::CaptureDevice>> devices;
    std::unique_ptr<platform::DeviceDiscovery::ScopedOverride> discovery;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<QXDCamera> camera;
};

TEST_F(QXDCameraTest, AssemblesTheSessionWithThePresetTheDeviceAllows) {
    platform::Device::current().setOrientation(platform::device_orientation::kFaceUp);
    makeCamera(1, false);
    ASSERT_TRUE(camera->captureSession());
    EXPECT_EQ(camera->sessionPreset(), preset::k1920x1080);
    EXPECT_TRUE(logs().contains(QStringLiteral(
        "QXDCameraController - Session preset set: AVCaptureSessionPreset1920x1080")));
    EXPECT_EQ(camera->captureSession()->inputs().size(), 1u);
    EXPECT_EQ(camera->captureSession()->outputs().size(), 2u);
    EXPECT_EQ(camera->videoOrientation(), 5) << "a flat device's raw orientation is kept";
    EXPECT_EQ(camera->devicePosition(), 1);

    makeCamera(1, true);
    EXPECT_EQ(camera->sessionPreset(), preset::k3840x2160);

    auto small = VirtualCameraConfiguration::back();
    small.capabilities.sessionPresets = {preset::kPhoto, preset::k1280x720};
    auto stillOnly = VirtualCameraConfiguration::front();
    stillOnly.capabilities.sessionPresets = {preset::kPhoto};
    useCameras(small, stillOnly);
    makeCamera(1, true);
    EXPECT_EQ(camera->sessionPreset(), preset::k1280x720);
    makeCamera(2, false);
    EXPECT_EQ(camera->sessionPreset(), preset::kPhoto);

    // A preset the session refuses changes nothing; one it accepts applies
    // at once while stopped.
    camera->setSessionPreset(preset::k3840x2160);
    EXPECT_EQ(camera->sessionPreset(), preset::kPhoto);
    EXPECT_FALSE(camera->canSetSessionPreset(preset::k3840x2160));
}

TEST_F(QXDCameraTest, PreviewConnectionTakesTheStatusBarOrientation) {
    for (const auto& [status, expected] :
         std::vector<std::pair<int, int>>{{0, 1}, {1, 1}, {2, 2}, {3, 3}, {4, 4}}) {
        platform::Application::shared().setStatusBarOrientation(status);
        auto preview = platform::VideoPreviewLayer::create();
        makeCamera(1, false, preview);
        ASSERT_TRUE(preview->connection());
        EXPECT_EQ(preview->connection()->videoOrientation(), expected) << "status bar " << status;
        EXPECT_EQ(preview->session(), camera->captureSession());
    }

    platform::CameraAvailability::setOverride(false);
    auto preview = platform::VideoPreviewLayer::create();
    makeCamera(1, false, preview);
    EXPECT_FALSE(camera->captureSession()) << "no camera source, no session";
    EXPECT_FALSE(preview->session());
    camera->start();
    EXPECT_TRUE(camera->running());
    drainSessionQueue();
    EXPECT_TRUE(delegate->failures.size() == 1 && delegate->failures[0].error &&
                delegate->failures[0].error->code() == 404)
        << "a capability question without a device reports it";
}

TEST_F(QXDCameraTest, StartAndStopAreIdempotentAndSwitchingRebuildsTheGraph) {
    makeCamera();
    camera->stop();
    EXPECT_FALSE(camera->running());
    camera->start();
    camera->start();
    EXPECT_TRUE(camera->running());
    drainSessionQueue();
    EXPECT_TRUE(camera->captureSession()->isRunning());
    ASSERT_TRUE(delegate->frameArrived.waitFor(kWait));

    const auto oldOutputs = camera->captureSession()->outputs();
    camera->setDevicePosition(2);
    EXPECT_EQ(camera->deviceInput()->device()->position(), 2);
    const auto newOutputs = camera->captureSession()->outputs();
    ASSERT_EQ(newOutputs.size(), 2u);
    EXPECT_NE(newOutputs[0], oldOutputs[0]) << "outputs are rebuilt";
    EXPECT_TRUE(camera->captureSession()->isRunning());
    auto video = std::dynamic_pointer_cast<platform::VideoDataOutput>(newOutputs[0]);
    ASSERT_TRUE(video);
    EXPECT_TRUE(video->connectionWithMediaType(platform::kMediaTypeVideo)->isVideoMirrored())
        << "the front camera is mirrored";

    const std::size_t before = delegate->frameCount();
    while (delegate->frameCount() < before + 2) {
        ASSERT_TRUE(delegate->frameArrived.waitFor(kWait));
    }
    camera->stop();
    drainSessionQueue();
    EXPECT_FALSE(camera->captureSession()->isRunning());
}

TEST_F(QXDCameraTest, FrontCameraThatCannotJoinFallsBackToTheBackOnce) {
    auto front = VirtualCameraConfiguration::front();
    front.failures.refusesSession = true;
    useCameras(VirtualCameraConfiguration::back(), front);
    makeCamera(2);
    EXPECT_EQ(camera->devicePosition(), 1);
    EXPECT_EQ(camera->deviceInput()->device()->position(), 1);
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_FALSE(delegate->failures[0].error) << "the refusal carries no error object";
}

TEST_F(QXDCameraTest, FramesArriveInOrderOnTheVideoQueueInBothFormats) {
    makeCamera();
    camera->start();
    while (delegate->frameCount() < 5) {
        ASSERT_TRUE(delegate->frameArrived.waitFor(kWait));
    }
    camera->stop();
    drainSessionQueue();
    {
        std::lock_guard lock(delegate->mutex);
        for (const auto& frame : delegate->frames) {
            EXPECT_EQ(frame.size, QSize(1080, 1920)) << "portrait frames stand upright";
            EXPECT_FALSE(frame.null);
            EXPECT_TRUE(frame.queue.endsWith(QStringLiteral(".camera.video")));
        }
        delegate->frames.clear();
    }

    // Grey frames ask for one bit a component, which the bitmap rules refuse:
    // the delegate still hears of every frame, with no image.
    camera->setGrayscaleMode(true);
    camera->start();
    camera->setDevicePosition(1);
    while (delegate->frameCount() < 3) {
        ASSERT_TRUE(delegate->frameArrived.waitFor(kWait));
    }
    camera->stop();
    drainSessionQueue();
    std::lock_guard lock(delegate->mutex);
    EXPECT_TRUE(delegate->frames.back().null);
}

TEST_F(QXDCameraTest, FramesInOtherFormatsOrWithoutDelegateAreSkipped) {
    auto odd = VirtualCameraConfiguration::back();
    platform::Semaphore produced;
    odd.frameObserver = [&](const platform::SampleBufferPtr&) { produced.signal(); };
    odd.failures.liveFramesInUnsupportedFormat = true;
    useCameras(odd, VirtualCameraConfiguration::front());
    makeCamera();
    camera->start();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(produced.waitFor(kWait));
    }
    camera->stop();
    drainSessionQueue();
    EXPECT_EQ(delegate->frameCount(), 0u);
    EXPECT_TRUE(delegate->failures.empty()) << "live frames never report errors";
}

TEST_F(QXDCameraTest, ConfigurationWrappersReportExactErrorsAndLogs) {
    makeCamera();
    clearLogs();
    camera->configureFocusMode(1);
    camera->configureFocusMode(1);
    camera->configureFlashMode(2);
    camera->configureWhiteBalanceMode(1);
    camera->configureLowLightBoost(true);
    drainSessionQueue();
    EXPECT_EQ(logs(), (QStringList{QStringLiteral("QXDCameraController - Configured focus mode: 1"),
                                   QStringLiteral("QXDCameraController - Configured flash mode: 2"),
                                   QStringLiteral("QXDCameraController - Configured low light "
                                                  "boost to: 1")}))
        << "no log without a change, none ever for white balance";
    EXPECT_TRUE(delegate->failures.empty());

    // The front camera has fixed focus and no flash or torch.
    makeCamera(2);
    clearLogs();
    camera->configureFocusMode(1);
    camera->configureExposureMode(9);
    camera->configureTorchMode(1, 0.5f);
    drainSessionQueue();
    ASSERT_EQ(delegate->failures.size(), 3u);
    auto expectError = [&](std::size_t i, const char* domain, const char* text) {
        const auto& error = delegate->failures[i].error;
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain(), QString::fromLatin1(domain));
        EXPECT_EQ(error->code(), 404);
        EXPECT_EQ(error->localizedDescription(), QString::fromLatin1(text));
        EXPECT_TRUE(delegate->failures[i].queue.endsWith(QStringLiteral(".camera.session")));
    };
    expectError(0, "ErrorDomain", "Specified focus mode (1) is not supported by capture device.");
    expectError(1, "QXDCameraErrorDomain",
                "Specified exposure mode (9) is not supported by capture device.");
    expectError(2, "ErrorDomain",
                "Torch mode (1) is not available or supported by capture device.");
    EXPECT_FALSE(camera->canConfigureTorchMode(1));
    EXPECT_TRUE(camera->canConfigureExposureMode(1, false));
}

TEST_F(QXDCameraTest, PointsOfInterestAreConvertedThroughThePreviewLayer) {
    auto noPoint = VirtualCameraConfiguration::back();
    noPoint.capabilities.exposurePointOfInterest = false;
    useCameras(noPoint, VirtualCameraConfiguration::front());
    auto preview = platform::VideoPreviewLayer::create();
    preview->setBounds({0, 0, 375, 667});
    makeCamera(1, false, preview);
    clearLogs();
    camera->configureFocusMode(1, QPointF(187.5, 100));
    camera->configureExposureMode(1, QPointF(10, 10));
    drainSessionQueue();
    const auto device = camera->deviceInput()->device();
    const QPointF expected = preview->captureDevicePointOfInterestForPoint(QPointF(187.5, 100));
    EXPECT_NE(expected, QPointF(0.5, 0.5));
    EXPECT_NEAR(device->focusPointOfInterest().x(), expected.x(), 1e-6);
    EXPECT_NEAR(device->focusPointOfInterest().y(), expected.y(), 1e-6);
    EXPECT_TRUE(logs().contains(QStringLiteral(
        "QXDCameraController - Configure focus point of interest: x: 187.500000 y: 100.000000")));
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_EQ(delegate->failures[0].error->domain(), QStringLiteral("ErrorDomain"));
    EXPECT_EQ(delegate->failures[0].error->localizedDescription(),
              QStringLiteral("Exposure point of interest is not supported by capture device."));
    EXPECT_NE(device->exposureMode(), 1) << "the mode is left as it was";

    // Without a preview layer the device point is (0, 0); the log still
    // shows the requested point.
    makeCamera(1);
    clearLogs();
    camera->configureFocusMode(2, QPointF(100, 200));
    drainSessionQueue();
    EXPECT_EQ(camera->deviceInput()->device()->focusPointOfInterest(), QPointF(0, 0));
    EXPECT_TRUE(logs().contains(QStringLiteral(
        "QXDCameraController - Configure focus point of interest: x: 100.000000 y: 200.000000")));
}

TEST_F(QXDCameraTest, TorchLevelsGoThroughTheRightCall) {
    makeCamera();
    clearLogs();
    camera->configureTorchMode(1, 0.5f);
    drainSessionQueue();
    EXPECT_FLOAT_EQ(camera->deviceInput()->device()->torchLevel(), 0.5f);
    camera->configureTorchMode(1, -1.0f);
    drainSessionQueue();
    EXPECT_EQ(camera->deviceInput()->device()->torchMode(), 1);
    camera->configureTorchMode(1, 0.0f);
    drainSessionQueue();
    EXPECT_EQ(logs(),
              (QStringList{QStringLiteral("QXDCameraController - Set torch level to 0.500000"),
                           QStringLiteral("QXDCameraController - Configured torch mode: 1"),
                           QStringLiteral("QXDCameraController - Set torch level to 0.000000")}));
    ASSERT_EQ(delegate->failures.size(), 1u) << "level 0 is refused by the device";
    EXPECT_EQ(delegate->failures[0].error->domain(), platform::kAVFoundationErrorDomain);
}

TEST_F(QXDCameraTest, DeviceFailuresUseTheDeviceCodes) {
    auto locked = VirtualCameraConfiguration::back();
    locked.failures.lockForConfiguration =
        platform::Error::withDescription(QStringLiteral("Test"), 7, QStringLiteral("busy"));
    useCameras(locked, VirtualCameraConfiguration::front());
    makeCamera();
    delegate->failures.clear();
    camera->configureFlashMode(1);
    drainSessionQueue();
    ASSERT_EQ(delegate->failures.size(), 1u);
    EXPECT_EQ(delegate->failures[0].error->code(), 401);
    EXPECT_EQ(delegate->failures[0].error->localizedDescription(),
              QStringLiteral("Unable to lock capture device for configuration: busy"));

    discovery.reset();
    discovery = std::make_unique<platform::DeviceDiscovery::ScopedOverride>(
        std::vector<std::shared_ptr<platform::CaptureDevice>>{});
    makeCamera();
    delegate->failures.clear();
    camera->configureFlashMode(1);
    EXPECT_FALSE(camera->canConfigureFlashMode(1));
    ASSERT_EQ(delegate->failures.size(), 2u);
    EXPECT_EQ(delegate->failures[0].error->code(), 401);
    EXPECT_EQ(delegate->failures[1].error->code(), 404);
    for (const auto& failure : delegate->failures) {
        EXPECT_EQ(failure.error->localizedDescription(),
                  QStringLiteral("Failed to obtain capture device."));
    }
}

TEST_F(QXDCameraTest, StillsArriveOnTheStillQueueOrFailWithTheirError) {
    makeCamera();
    camera->takePicture();
    EXPECT_FALSE(delegate->stillArrived.waitFor(0.2)) << "no picture while stopped";

    camera->start();
    drainSessionQueue();
    camera->takePicture();
    ASSERT_TRUE(delegate->stillArrived.waitFor(kWait));
    {
        std::lock_guard lock(delegate->mutex);
        EXPECT_FALSE(delegate->stills[0].null);
        EXPECT_TRUE(delegate->stills[0].queue.endsWith(QStringLiteral(".camera.image")));
    }

    using Still = platform::VirtualCameraFailures::Still;
    const std::vector<std::pair<std::function<void(VirtualCameraConfiguration&)>, QString>> cases{
        {[](auto& c) { c.failures.still = Still::Error; },
         QStringLiteral("Failed to capture still image.")},
        {[](auto& c) { c.failures.still = Still::NoSampleBuffer; },
         QStringLiteral("Operation could not be completed: buffer is empty.")},
        {[](auto& c) { c.failures.still = Still::SampleBufferWithoutImageBuffer; },
         QStringLiteral("Operation could not be completed: incompatible buffer type.")},
        {[](auto& c) { c.failures.stillBuffersRefuseLock = true; },
         QStringLiteral("Operation could not be completed: unable to lock buffer.")},
    };
    for (const auto& [configure, text] : cases) {
        auto back = VirtualCameraConfiguration::back();
        configure(back);
        useCameras(back, VirtualCameraConfiguration::front());
        makeCamera();
        delegate->failures.clear();
        camera->start();
        drainSessionQueue();
        camera->takePicture();
        ASSERT_TRUE(delegate->failed.waitFor(kWait)) << text.toStdString();
        std::lock_guard lock(delegate->mutex);
        const auto& error = delegate->failures.back().error;
        EXPECT_EQ(error->domain(), QStringLiteral("QXDCameraErrorDomain"));
        EXPECT_EQ(error->code(), 404);
        EXPECT_EQ(error->localizedDescription(), text);
        EXPECT_EQ(error->underlyingError() != nullptr, text.startsWith(QStringLiteral("Failed")));
    }
}

TEST_F(QXDCameraTest, PreviewFollowsOnlyTheOrientationsTheHostLists) {
    auto preview = platform::VideoPreviewLayer::create();
    makeCamera(1, false, preview);
    auto& device = platform::Device::current();
    const auto connection = preview->connection();
    ASSERT_TRUE(connection);

    device.setOrientation(3);
    EXPECT_EQ(connection->videoOrientation(), 1) << "no supported orientations listed";

    platform::Bundle::mainBundle()->setInfoDictionary(
        {{QStringLiteral("UISupportedInterfaceOrientations"),
          QStringList{QStringLiteral("UIInterfaceOrientationPortrait"),
                      QStringLiteral("UIInterfaceOrientationLandscapeLeft")}}});
    device.setOrientation(1);
    device.setOrientation(3);
    EXPECT_EQ(connection->videoOrientation(), 3) << "device 3 pairs with the name LandscapeLeft";
    device.setOrientation(4);
    EXPECT_EQ(connection->videoOrientation(), 3) << "not listed";
    device.setOrientation(platform::device_orientation::kFaceDown);
    EXPECT_EQ(connection->videoOrientation(), 3);
    EXPECT_EQ(camera->currentDeviceOrientation(), 1) << "set only at creation";
    EXPECT_EQ(QXDCamera::deviceOrientationString(7),
              QStringLiteral("Invalid Interface Orientation"));
}

TEST_F(QXDCameraTest, CreationReportsInputAndFocusLockFailuresAndSetsContinuousFocus) {
    makeCamera();
    EXPECT_EQ(camera->deviceInput()->device()->focusMode(),
              platform::focus_mode::kContinuousAutoFocus);
    EXPECT_TRUE(delegate->failures.empty());

    auto unopenable = VirtualCameraConfiguration::back();
    unopenable.failures.openInput =
        platform::Error::withDescription(QStringLiteral("Test"), 3, QStringLiteral("no access"));
    auto unlockable = VirtualCameraConfiguration::front();
    unlockable.capabilities.focusModes = {platform::focus_mode::kLocked,
                                          platform::focus_mode::kContinuousAutoFocus};
    unlockable.failures.lockForConfiguration =
        platform::Error::withDescription(QStringLiteral("Test"), 7, QStringLiteral("busy"));
    useCameras(unopenable, unlockable);
    makeCamera(1);
    EXPECT_FALSE(camera->deviceInput());
    EXPECT_TRUE(camera->captureSession()->inputs().empty());
    makeCamera(2);
    EXPECT_EQ(camera->devicePosition(), 2) << "the input was added: no fall-back";
    ASSERT_EQ(delegate->failures.size(), 2u);
    ASSERT_TRUE(delegate->failures[0].error && delegate->failures[1].error);
    EXPECT_EQ(delegate->failures[0].error->code(), 3) << "the input's own error";
    EXPECT_EQ(delegate->failures[1].error->code(), 7) << "the focus lock's own error";
}

TEST_F(QXDCameraTest, PresetsFallBackToIFrameAndChangeOnTheSessionQueueWhileRunning) {
    auto iframe = VirtualCameraConfiguration::back();
    iframe.capabilities.sessionPresets = {preset::kPhoto, preset::kiFrame960x540};
    useCameras(iframe, VirtualCameraConfiguration::front());
    makeCamera();
    EXPECT_EQ(camera->sessionPreset(), preset::kiFrame960x540);

    useCameras(VirtualCameraConfiguration::back(), VirtualCameraConfiguration::front());
    makeCamera();
    camera->setSessionPreset(preset::k1280x720);
    EXPECT_EQ(camera->sessionPreset(), preset::k1280x720) << "stopped: set at once";
    camera->start();
    drainSessionQueue();
    camera->setSessionPreset(preset::kPhoto);
    drainSessionQueue();
    EXPECT_EQ(camera->sessionPreset(), preset::kPhoto) << "running: set on the session queue";
    camera->stop();
}

TEST_F(QXDCameraTest, ConnectionSettingsFollowTheEngine) {
    platform::Device::current().setOrientation(platform::device_orientation::kLandscapeLeft);
    auto preview = platform::VideoPreviewLayer::create();
    makeCamera(1, false, preview);
    auto video = std::dynamic_pointer_cast<platform::VideoDataOutput>(
        camera->captureSession()->outputs()[0]);
    ASSERT_TRUE(video);
    auto connection = video->connectionWithMediaType(platform::kMediaTypeVideo);
    EXPECT_FALSE(connection->isVideoMirrored()) << "the back camera is not mirrored";
    EXPECT_EQ(connection->preferredVideoStabilizationMode(),
              platform::video_stabilization_mode::kOff);
    EXPECT_EQ(connection->videoOrientation(), 3) << "the device orientation at creation";

    camera->setVideoOrientation(4);
    EXPECT_EQ(connection->videoOrientation(), 4);
    EXPECT_EQ(preview->connection()->videoOrientation(), 4);
    EXPECT_EQ(camera->videoOrientation(), 4);

    camera->configureVideoStabilization(true);
    camera->start();
    camera->setDevicePosition(1);
    video = std::dynamic_pointer_cast<platform::VideoDataOutput>(
        camera->captureSession()->outputs()[0]);
    connection = video->connectionWithMediaType(platform::kMediaTypeVideo);
    EXPECT_EQ(connection->preferredVideoStabilizationMode(),
              platform::video_stabilization_mode::kStandard)
        << "applied when the outputs are rebuilt";
    EXPECT_EQ(connection->videoOrientation(), 4);
    camera->stop();

    const QStringList names{QStringLiteral("UIInterfaceOrientationPortrait"),
                            QStringLiteral("UIInterfaceOrientationPortraitUpsideDown"),
                            QStringLiteral("UIInterfaceOrientationLandscapeLeft"),
                            QStringLiteral("UIInterfaceOrientationLandscapeRight")};
    for (long orientation = 1; orientation <= 4; ++orientation) {
        EXPECT_EQ(QXDCamera::deviceOrientationString(orientation), names[orientation - 1]);
        EXPECT_EQ(QXDCamera::avOrientationForDeviceOrientation(orientation), orientation);
    }
    EXPECT_EQ(QXDCamera::deviceOrientationString(0),
              QStringLiteral("Invalid Interface Orientation"));
}

// Notes whether another capture was under way while a still was delivered.
class StillWatcher : public RecordingDelegate {
public:
    void cameraDidCaptureStillImage(QXDCamera& camera, const QImage& image) override {
        if (output && output->isCapturingStillImage()) {
            ++overlapping;
        }
        RecordingDelegate::cameraDidCaptureStillImage(camera, image);
    }

    std::shared_ptr<platform::StillImageOutput> output;
    std::atomic<int> overlapping{0};
};

TEST_F(QXDCameraTest, StillsTakeTheEnginesSettingsAndOneCaptureRunsAtATime) {
    auto watcher = std::make_shared<StillWatcher>();
    delegate = watcher;
    makeCamera();
    clearLogs();
    camera->configureStillImageStabilization(true);
    EXPECT_EQ(logs(), QStringList{QStringLiteral(
                          "QXDCameraController - Configured still image stabilisation to: 1")});
    watcher->output = std::dynamic_pointer_cast<platform::StillImageOutput>(
        camera->captureSession()->outputs()[1]);
    ASSERT_TRUE(watcher->output);
    platform::Device::current().setOrientation(platform::device_orientation::kLandscapeRight);
    camera->start();
    drainSessionQueue();

    // Completions run one after another on one thread, and a capture counts
    // as under way from its request: had the second request been taken, it
    // would be under way while the first still is delivered.
    camera->takePicture();
    camera->takePicture();
    ASSERT_TRUE(delegate->stillArrived.waitFor(kWait));
    EXPECT_EQ(watcher->overlapping.load(), 0);
    const auto connection = watcher->output->connectionWithMediaType(platform::kMediaTypeVideo);
    EXPECT_EQ(connection->videoOrientation(), 4) << "the raw device orientation";
    EXPECT_EQ(connection->videoScaleAndCropFactor(), 1.0);
    EXPECT_EQ(watcher->output->pixelFormat(), platform::pixel_format::k32BGRA);
    EXPECT_TRUE(watcher->output->automaticallyEnablesStillImageStabilizationWhenAvailable());
    camera->stop();
    std::lock_guard lock(delegate->mutex);
    ASSERT_EQ(delegate->stills.size(), 1u);
    EXPECT_EQ(delegate->stills[0].size, QSize(4032, 3024)) << "a landscape still";
}

TEST_F(QXDCameraTest, EveryUnsupportedSettingNamesItselfAndHandlersMayFailWithoutError) {
    auto bare = VirtualCameraConfiguration::front();
    bare.capabilities.focusPointOfInterest = false;
    bare.capabilities.exposureModes = {platform::exposure_mode::kLocked};
    bare.capabilities.whiteBalanceModes = {platform::white_balance_mode::kLocked};
    bare.capabilities.lowLightBoost = false;
    useCameras(VirtualCameraConfiguration::back(), bare);
    makeCamera(2);
    EXPECT_FALSE(camera->canConfigureFocusMode(platform::focus_mode::kLocked, true));
    EXPECT_TRUE(camera->canConfigureFocusMode(platform::focus_mode::kLocked, false));
    EXPECT_FALSE(camera->canConfigureWhiteBalanceMode(2));
    EXPECT_FALSE(camera->canConfigureLowLightBoost());

    camera->configureFocusMode(0, QPointF(1, 1));
    camera->configureExposureMode(2, QPointF(1, 1));
    camera->configureFlashMode(1);
    camera->configureWhiteBalanceMode(2);
    camera->configureLowLightBoost(true);
    camera->configureDeviceWithActionHandler(
        [](platform::CaptureDevice&, platform::ErrorPtr*) { return false; });
    drainSessionQueue();

    const std::vector<std::pair<QString, QString>> expected{
        {QStringLiteral("ErrorDomain"),
         QStringLiteral("Focus point of interest is not supported by capture device.")},
        {QStringLiteral("errorDomain"),
         QStringLiteral("Specified exposure mode (2) is not supported by capture device.")},
        {QStringLiteral("ErrorDomain"),
         QStringLiteral("Specified flash mode (1) is not supported by capture device.")},
        {QStringLiteral("ErrorDomain"),
         QStringLiteral("Specified white balance (2) is not supported by capture device.")},
        {QStringLiteral("ErrorDomain"),
         QStringLiteral("Low light boost is not supported by capture device.")},
    };
    ASSERT_EQ(delegate->failures.size(), expected.size() + 1);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto& error = delegate->failures[i].error;
        ASSERT_TRUE(error) << i;
        EXPECT_EQ(error->domain(), expected[i].first);
        EXPECT_EQ(error->code(), 404);
        EXPECT_EQ(error->localizedDescription(), expected[i].second);
    }
    EXPECT_FALSE(delegate->failures.back().error) << "the handler filled in no error";
}

TEST_F(QXDCameraTest, ThePreviewShowsLiveFramesTurnedAsTheInterfaceIs) {
    auto preview = platform::VideoPreviewLayer::create();
    preview->setBounds({0, 0, 375, 667});
    makeCamera(1, false, preview);
    camera->start();
    ASSERT_TRUE(delegate->frameArrived.waitFor(kWait));
    platform::RunLoop::main().runPending();
    EXPECT_EQ(preview->contents().size(), QSize(1080, 1920)) << "portrait";

    platform::Bundle::mainBundle()->setInfoDictionary(
        {{QStringLiteral("UISupportedInterfaceOrientations"),
          QStringList{QStringLiteral("UIInterfaceOrientationPortrait"),
                      QStringLiteral("UIInterfaceOrientationLandscapeRight")}}});
    platform::Device::current().setOrientation(platform::device_orientation::kLandscapeRight);
    ASSERT_TRUE(delegate->frameArrived.waitFor(kWait));
    platform::RunLoop::main().runPending();
    EXPECT_EQ(preview->contents().size(), QSize(1920, 1080)) << "landscape";
    camera->stop();
    drainSessionQueue();
    EXPECT_FALSE(camera->captureSession()->isRunning());
}

TEST_F(QXDCameraTest, ReleasingTheEngineWaitsForItsRunningWorkAndRunsNothingQueued) {
    makeCamera(2);
    // Hold the session queue inside a configuration block, queue work that
    // would fail on the front camera, and let go of the engine meanwhile.
    platform::Semaphore entered;
    platform::Semaphore gate;
    camera->configureDeviceWithActionHandler([&](platform::CaptureDevice&, platform::ErrorPtr*) {
        entered.signal();
        gate.wait();
        return true;
    });
    ASSERT_TRUE(entered.waitFor(kWait));
    camera->configureFlashMode(7);
    camera->configureTorchMode(1, 0.5f);
    platform::Semaphore released;
    std::thread owner([&released, engine = std::move(camera)]() mutable {
        engine.reset();
        released.signal();
    });
    EXPECT_FALSE(released.waitFor(0.2)) << "the release waits for the running block";
    gate.signal();
    ASSERT_TRUE(released.waitFor(kWait));
    owner.join();
    // What was queued behind the block found the engine released.
    std::lock_guard lock(delegate->mutex);
    EXPECT_TRUE(delegate->failures.empty());
}

}  // namespace
