#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/PixelMemory.h"

#include <gtest/gtest.h>

#include <QHash>
#include <QPainter>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace platform;

constexpr double kWait = 20.0;  // seconds; only a guard against hanging

VirtualCameraConfiguration testCamera() {
    auto config = VirtualCameraConfiguration::back();
    config.capabilities.sessionPresets = {session_preset::kiFrame960x540, session_preset::k1280x720,
                                          session_preset::kPhoto};
    config.capabilities.stillImageSize = QSize(640, 480);
    config.frameRate = 60;
    return config;
}

/// Records what reaches a video-data delegate. Can hold the first frame until
/// released, to make the delegate slow on demand.
class FrameCollector : public VideoDataOutputDelegate {
public:
    void captureOutputDidOutputSampleBuffer(const std::shared_ptr<CaptureOutput>&,
                                            const SampleBufferPtr& sample,
                                            const std::shared_ptr<CaptureConnection>&) override {
        bool hold = false;
        {
            std::lock_guard lock(mutex);
            times.push_back(sample->presentationTimeStamp().value);
            labels.push_back(DispatchQueue::currentLabel());
            latest = sample;
            if (kept.size() < 4) {
                kept.push_back(sample);
            }
            hold = std::exchange(holdNext, false);
        }
        arrived.signal();
        if (hold) {
            entered.signal();
            release.wait();
        }
    }
    void captureOutputDidDropSampleBuffer(const std::shared_ptr<CaptureOutput>&,
                                          const SampleBufferPtr& sample,
                                          const std::shared_ptr<CaptureConnection>&) override {
        std::lock_guard lock(mutex);
        drops.push_back(sample->presentationTimeStamp().value);
        EXPECT_EQ(sample->imageBuffer(), nullptr);
    }

    bool waitForFrames(int count) {
        for (int i = 0; i < count; ++i) {
            if (!arrived.waitFor(kWait)) {
                return false;
            }
        }
        return true;
    }
    /// Waits for count frames that arrive from now on.
    bool waitForNewFrames(int count) {
        while (arrived.waitFor(0)) {
        }
        return waitForFrames(count);
    }
    SampleBufferPtr last() {
        std::lock_guard lock(mutex);
        return latest;
    }

    std::mutex mutex;
    std::vector<qint64> times;
    std::vector<qint64> drops;
    QStringList labels;
    SampleBufferPtr latest;
    std::vector<SampleBufferPtr> kept;
    bool holdNext = false;
    Semaphore arrived, entered, release;
};

/// A session with one virtual camera, a video-data output feeding a
/// collector and a still output, at 960x540.
struct Rig {
    explicit Rig(VirtualCameraConfiguration config = testCamera())
        : camera(VirtualCamera::create(std::move(config))), device(CaptureDevice::create(camera)) {
        input = CaptureDeviceInput::create(device, nullptr);
        session->setSessionPreset(session_preset::kiFrame960x540);
        session->addInput(input);
        session->addOutput(video);
        session->addOutput(still);
        video->setSampleBufferDelegate(collector, queue);
    }
    ~Rig() { session->stopRunning(); }

    std::shared_ptr<VirtualCamera> camera;
    std::shared_ptr<CaptureDevice> device;
    std::shared_ptr<CaptureSession> session = CaptureSession::create();
    std::shared_ptr<CaptureDeviceInput> input;
    std::shared_ptr<VideoDataOutput> video = VideoDataOutput::create();
    std::shared_ptr<StillImageOutput> still = StillImageOutput::create();
    std::shared_ptr<DispatchQueue> queue = DispatchQueue::createSerial("qxd.test.capture.video");
    std::shared_ptr<FrameCollector> collector = std::make_shared<FrameCollector>();
};

/// Locks a pixel buffer for reading for the guard's lifetime.
struct ReadLock {
    explicit ReadLock(const std::shared_ptr<PixelBuffer>& b) : buffer(b) {
        status = buffer->lockBaseAddress(kPixelBufferLockReadOnly);
    }
    ~ReadLock() {
        if (status == cv_return::kSuccess) {
            buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
        }
    }
    std::shared_ptr<PixelBuffer> buffer;
    int status;
};

const std::uint8_t* pixelAt(const PixelBuffer& buffer, std::size_t plane, int x, int y) {
    const auto* base = static_cast<const std::uint8_t*>(buffer.baseAddressOfPlane(plane));
    const int bytes = plane == 0 && buffer.pixelFormatType() == pixel_format::k32BGRA ? 4 : 1;
    return base + y * buffer.bytesPerRowOfPlane(plane) + x * bytes;
}

struct LumaStats {
    double mean = 0;   // brightness
    double steps = 0;  // sum of horizontal steps: high when sharp, low when blurred
};

LumaStats lumaStats(const PixelBuffer& buffer) {
    LumaStats stats;
    for (int y = 0; y < buffer.height(); y += 2) {
        const std::uint8_t* row = pixelAt(buffer, 0, 0, y);
        for (int x = 0; x + 1 < buffer.width(); ++x) {
            stats.mean += row[x];
            stats.steps += std::abs(row[x + 1] - row[x]);
        }
    }
    stats.mean /= double(buffer.width() - 1) * ((buffer.height() + 1) / 2);
    return stats;
}

// --- Discovery -----------------------------------------------------------------

TEST(CaptureDiscoveryTest, DefaultListsTheVirtualBackThenFrontCameraWithStableIdentity) {
    const auto devices = CaptureDevice::devicesWithMediaType(kMediaTypeVideo);
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0]->position(), device_position::kBack);
    EXPECT_EQ(devices[1]->position(), device_position::kFront);
    EXPECT_NE(devices[0]->uniqueID(), devices[1]->uniqueID());
    EXPECT_EQ(CaptureDevice::devicesWithMediaType(kMediaTypeVideo), devices);
    EXPECT_TRUE(CaptureDevice::devicesWithMediaType(kMediaTypeAudio).empty());
    EXPECT_TRUE(CameraAvailability::isCameraSourceAvailable());
}

TEST(CaptureDiscoveryTest, ScopedOverridesReplaceTheProviderAndRestoreIt) {
    const auto defaults = CaptureDevice::devicesWithMediaType(kMediaTypeVideo);
    auto frontCamera = VirtualCamera::create(VirtualCameraConfiguration::front());
    auto front = CaptureDevice::create(frontCamera);
    auto back = VirtualCamera::makeDevice(VirtualCameraConfiguration::back());
    {
        DeviceDiscovery::ScopedOverride custom({front, back});
        EXPECT_EQ(CaptureDevice::devicesWithMediaType(kMediaTypeVideo), (std::vector{front, back}));
        {
            DeviceDiscovery::ScopedOverride none(std::vector<std::shared_ptr<CaptureDevice>>{});
            EXPECT_TRUE(CaptureDevice::devicesWithMediaType(kMediaTypeVideo).empty());
            EXPECT_FALSE(CameraAvailability::isCameraSourceAvailable());
        }
        frontCamera->disconnect();  // lost devices are not listed
        EXPECT_EQ(CaptureDevice::devicesWithMediaType(kMediaTypeVideo), (std::vector{back}));
    }
    EXPECT_EQ(CaptureDevice::devicesWithMediaType(kMediaTypeVideo), defaults);
}

// --- Session assembly ------------------------------------------------------------

TEST(CaptureSessionTest, InputsFollowTheCanAddRules) {
    ErrorPtr error;
    EXPECT_EQ(CaptureDeviceInput::create(nullptr, &error), nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), kAVFoundationErrorDomain);

    auto refusing = testCamera();
    refusing.failures.openInput = Error::withDescription("Test", 7, "no permission");
    error.reset();
    EXPECT_EQ(CaptureDeviceInput::create(VirtualCamera::makeDevice(refusing), &error), nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 7);

    auto lostCamera = VirtualCamera::create(testCamera());
    auto lost = CaptureDevice::create(lostCamera);
    lostCamera->disconnect();
    EXPECT_EQ(CaptureDeviceInput::create(lost, nullptr), nullptr);

    auto session = CaptureSession::create();
    auto device = VirtualCamera::makeDevice(testCamera());
    auto input = CaptureDeviceInput::create(device, nullptr);
    ASSERT_TRUE(input);
    EXPECT_FALSE(session->canAddInput(nullptr));
    ASSERT_TRUE(session->canAddInput(input));
    session->addInput(input);
    EXPECT_FALSE(session->canAddInput(input));
    auto second = CaptureDeviceInput::create(VirtualCamera::makeDevice(testCamera()), nullptr);
    EXPECT_FALSE(session->canAddInput(second)) << "one camera input a session";
    session->removeInput(input);
    EXPECT_TRUE(session->canAddInput(second));

    auto unwelcome = testCamera();
    unwelcome.failures.refusesSession = true;
    auto refused = CaptureDeviceInput::create(VirtualCamera::makeDevice(unwelcome), nullptr);
    ASSERT_TRUE(refused);
    EXPECT_FALSE(session->canAddInput(refused));
    session->addInput(refused);
    EXPECT_TRUE(session->inputs().empty());
}

TEST(CaptureSessionTest, PresetsAreSettableOnlyWhereTheDeviceSupportsThem) {
    auto session = CaptureSession::create();
    EXPECT_EQ(session->sessionPreset(), session_preset::kHigh);
    EXPECT_TRUE(session->canSetSessionPreset(session_preset::k3840x2160)) << "no input to object";
    EXPECT_FALSE(session->canSetSessionPreset(QStringLiteral("AVCaptureSessionPresetBogus")));

    auto device = VirtualCamera::makeDevice(testCamera());
    EXPECT_TRUE(device->supportsAVCaptureSessionPreset(session_preset::k1280x720));
    EXPECT_FALSE(device->supportsAVCaptureSessionPreset(session_preset::k1920x1080));
    auto input = CaptureDeviceInput::create(device, nullptr);
    session->setSessionPreset(session_preset::k3840x2160);
    EXPECT_FALSE(session->canAddInput(input)) << "the device cannot do the session's preset";
    session->setSessionPreset(session_preset::kPhoto);
    session->addInput(input);
    ASSERT_EQ(session->inputs().size(), 1u);
    EXPECT_EQ(session->activeVideoSize(), QSize(640, 480)) << "Photo is the still size";

    EXPECT_FALSE(session->canSetSessionPreset(session_preset::k1920x1080));
    session->setSessionPreset(session_preset::k1920x1080);
    EXPECT_EQ(session->sessionPreset(), session_preset::kPhoto);
    EXPECT_TRUE(session->canSetSessionPreset(session_preset::k1280x720));
    session->setSessionPreset(session_preset::k1280x720);
    EXPECT_EQ(session->sessionPreset(), session_preset::k1280x720);
    EXPECT_EQ(session->activeVideoSize(), QSize(1280, 720));
}

TEST(CaptureSessionTest, ConnectionsFormWhenInputAndOutputMeet) {
    auto session = CaptureSession::create();
    auto video = VideoDataOutput::create();
    auto still = StillImageOutput::create();
    ASSERT_TRUE(session->canAddOutput(video));
    session->beginConfiguration();
    session->addOutput(video);
    session->addOutput(still);
    session->commitConfiguration();
    EXPECT_TRUE(video->connections().empty());
    EXPECT_FALSE(session->canAddOutput(VideoDataOutput::create())) << "one of each kind";
    EXPECT_FALSE(CaptureSession::create()->canAddOutput(video)) << "in a session already";

    auto input = CaptureDeviceInput::create(VirtualCamera::makeDevice(testCamera()), nullptr);
    session->addInput(input);
    const auto connection = video->connectionWithMediaType(kMediaTypeVideo);
    ASSERT_TRUE(connection);
    EXPECT_EQ(video->connections().size(), 1u);
    ASSERT_EQ(connection->inputPorts().size(), 1u);
    EXPECT_EQ(connection->inputPorts()[0]->mediaType(), kMediaTypeVideo);
    EXPECT_EQ(connection->inputPorts()[0]->input(), input);
    EXPECT_EQ(connection->output(), video);
    EXPECT_TRUE(connection->isVideoOrientationSupported());
    EXPECT_TRUE(connection->isVideoStabilizationSupported());
    EXPECT_TRUE(still->connectionWithMediaType(kMediaTypeVideo));

    // A connection survives unrelated changes and keeps its settings.
    connection->setVideoOrientation(video_orientation::kPortrait);
    session->removeOutput(still);
    EXPECT_EQ(video->connectionWithMediaType(kMediaTypeVideo), connection);
    EXPECT_EQ(connection->videoOrientation(), video_orientation::kPortrait);
    EXPECT_TRUE(still->connections().empty());

    session->removeInput(input);
    EXPECT_TRUE(video->connections().empty());
}

// --- Frames ------------------------------------------------------------------------

TEST(CaptureFrameTest, FramesReachTheDelegateOnItsQueueInOrderInEitherFormat) {
    struct Case {
        std::uint32_t format;
        int orientation;
        QSize size;
        std::size_t planes;
    };
    for (const Case& c :
         {Case{pixel_format::k32BGRA, video_orientation::kLandscapeRight, {960, 540}, 0},
          Case{pixel_format::k420YpCbCr8BiPlanarFullRange,
               video_orientation::kPortrait,
               {540, 960},
               2}}) {
        SCOPED_TRACE(pixel_format::name(c.format).toStdString());
        Rig rig;
        rig.video->setVideoSettings({{kPixelBufferPixelFormatTypeKey, uint(c.format)}});
        rig.video->setVideoSettings({{kPixelBufferPixelFormatTypeKey, uint(0x12345678)}});
        EXPECT_EQ(rig.video->pixelFormat(), c.format) << "an unsupported format is ignored";
        rig.video->connectionWithMediaType(kMediaTypeVideo)->setVideoOrientation(c.orientation);
        rig.session->startRunning();
        ASSERT_TRUE(rig.session->isRunning());
        ASSERT_TRUE(rig.collector->waitForFrames(4));
        rig.session->stopRunning();

        std::lock_guard lock(rig.collector->mutex);
        EXPECT_EQ(rig.collector->labels.filter("qxd.test.capture.video").size(),
                  rig.collector->labels.size());
        const auto& times = rig.collector->times;
        EXPECT_TRUE(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()) ==
                    times.end());
        const auto buffer = rig.collector->kept.front()->imageBuffer();
        ASSERT_TRUE(buffer);
        EXPECT_EQ(buffer->pixelFormatType(), c.format);
        EXPECT_EQ(QSize(buffer->width(), buffer->height()), c.size);
        ASSERT_EQ(buffer->planeCount(), c.planes);
        EXPECT_EQ(buffer->baseAddress(), nullptr) << "no address without a lock";
        ReadLock locked(buffer);
        ASSERT_EQ(locked.status, cv_return::kSuccess);
        ASSERT_NE(buffer->baseAddress(), nullptr);
        if (c.planes == 0) {
            EXPECT_GE(buffer->bytesPerRow(), 960u * 4);
            EXPECT_EQ(pixelAt(*buffer, 0, 480, 270)[3], 255) << "opaque";
        } else {
            EXPECT_EQ(QSize(buffer->widthOfPlane(0), buffer->heightOfPlane(0)), c.size);
            EXPECT_EQ(QSize(buffer->widthOfPlane(1), buffer->heightOfPlane(1)), c.size / 2);
            EXPECT_GE(buffer->bytesPerRowOfPlane(0), 540u);
            EXPECT_GE(buffer->bytesPerRowOfPlane(1), 540u) << "interleaved CbCr pairs";
            EXPECT_NE(buffer->baseAddressOfPlane(1), nullptr);
        }
    }
}

TEST(CaptureFrameTest, ConfiguredLiveFailuresReachTheDelegate) {
    for (int failure = 0; failure < 3; ++failure) {
        SCOPED_TRACE(failure);
        auto config = testCamera();
        config.failures.liveFramesWithoutImageBuffer = failure == 0;
        config.failures.liveFramesInUnsupportedFormat = failure == 1;
        config.failures.liveBuffersRefuseLock = failure == 2;
        Rig rig(config);
        rig.session->startRunning();
        ASSERT_TRUE(rig.collector->waitForFrames(1));
        const auto buffer = rig.collector->last()->imageBuffer();
        ASSERT_EQ(buffer == nullptr, failure == 0);
        if (failure == 1) {
            EXPECT_EQ(buffer->pixelFormatType(), pixel_format::k422YpCbCr8_yuvs);
        } else if (failure == 2) {
            EXPECT_EQ(buffer->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kError);
        }
    }
}

TEST(CaptureFrameTest, WrappedPixelsOutliveTheirBufferAndThePoolReusesOnlyReleasedMemory) {
    auto pool = PixelBufferPool::create({64, 32, pixel_format::k32BGRA, 3});
    ASSERT_TRUE(pool);
    auto first = pool->createPixelBuffer();
    std::memset(first->planeData(0), 0x5A, first->dataSize());
    QImage image;
    const void* firstMemory = nullptr;
    {
        ReadLock locked(first);
        firstMemory = first->baseAddress();
        image = wrapPixels(firstMemory, 64, 32, qsizetype(first->bytesPerRow()),
                           QImage::Format_RGB32, first->owner());
    }
    first.reset();
    auto second = pool->createPixelBuffer();
    auto third = pool->createPixelBuffer();
    EXPECT_EQ(pool->createPixelBuffer(), nullptr) << "the maximum is out";
    EXPECT_NE(second->planeData(0), firstMemory);
    EXPECT_NE(third->planeData(0), firstMemory);
    EXPECT_EQ(image.pixel(10, 10), 0x5A5A5A5Au | 0xFF000000u);
    third.reset();
    image = QImage();  // the last user of the first buffer
    EXPECT_EQ(pool->createPixelBuffer()->planeData(0), firstMemory) << "reused once released";
    EXPECT_EQ(pool->allocatedBufferCount(), 3u);

    // The same through a live stream: a kept image's memory is never reused.
    Rig rig;
    rig.session->startRunning();
    ASSERT_TRUE(rig.collector->waitForFrames(1));
    auto frame = rig.collector->last()->imageBuffer();
    {
        ReadLock locked(frame);
        firstMemory = frame->baseAddress();
        image = wrapPixels(firstMemory, frame->width(), frame->height(),
                           qsizetype(frame->bytesPerRow()), QImage::Format_RGB32, frame->owner());
    }
    const QImage copy = image.copy();
    frame.reset();
    {
        std::lock_guard lock(rig.collector->mutex);
        rig.collector->kept.clear();
        rig.collector->latest.reset();
    }
    ASSERT_TRUE(rig.collector->waitForNewFrames(6));
    std::lock_guard lock(rig.collector->mutex);
    for (const auto& later : rig.collector->kept) {
        EXPECT_NE(later->imageBuffer()->planeData(0), firstMemory);
    }
    EXPECT_EQ(image, copy) << "later frames never write into memory an image still wraps";
}

TEST(CaptureFrameTest, LateFramesAreDroppedWhileTheDelegateIsBusy) {
    for (const bool discards : {true, false}) {
        SCOPED_TRACE(discards ? "discarding" : "queueing");
        auto produced = std::make_shared<Semaphore>();
        auto config = testCamera();
        config.frameObserver = [produced](const SampleBufferPtr&) { produced->signal(); };
        Rig rig(config);
        rig.video->setAlwaysDiscardsLateVideoFrames(discards);
        rig.collector->holdNext = true;
        rig.session->startRunning();
        ASSERT_TRUE(rig.collector->entered.waitFor(kWait));
        for (int i = 0; i < 4; ++i) {  // the held frame plus three late ones
            ASSERT_TRUE(produced->waitFor(kWait));
        }
        rig.collector->release.signal();
        ASSERT_TRUE(rig.collector->waitForFrames(discards ? 2 : 4));
        rig.session->stopRunning();
        rig.queue->sync([] {});

        std::lock_guard lock(rig.collector->mutex);
        const auto& times = rig.collector->times;
        const auto& drops = rig.collector->drops;
        if (discards) {
            // The three frames made while the first was held never reached the
            // delegate; it heard of them, in order, before the next frame.
            ASSERT_GE(drops.size(), 3u);
            ASSERT_GE(times.size(), 2u);
            for (std::size_t i = 0; i < 3; ++i) {
                EXPECT_GT(drops[i], times[0]);
                EXPECT_LT(drops[i], times[1]);
            }
        } else {
            EXPECT_TRUE(drops.empty());
            ASSERT_GE(times.size(), 4u);
        }
        EXPECT_TRUE(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()) ==
                    times.end());
    }
}

TEST(CaptureFrameTest, FramesAreTurnedAndMirroredAsTheConnectionSays) {
    QImage upright(200, 300, QImage::Format_RGB32);
    upright.fill(Qt::white);
    QPainter(&upright).fillRect(0, 0, 100, 150, Qt::red);  // top-left quarter
    auto config = testCamera();
    config.source = VirtualCameraConfiguration::Source::Image;
    config.image = upright;
    config.capabilities.focusModes = {focus_mode::kLocked};  // fixed focus: sharp
    config.noiseAmplitude = 0;
    config.handMotion = 0;
    Rig rig(config);
    const auto connection = rig.video->connectionWithMediaType(kMediaTypeVideo);
    rig.session->startRunning();

    struct Case {
        int orientation;
        bool mirrored;
        QPointF red;  // the red corner, in units of the frame
    };
    for (const Case& c : {Case{video_orientation::kPortrait, false, {0.1, 0.1}},
                          Case{video_orientation::kPortrait, true, {0.9, 0.1}},
                          Case{video_orientation::kLandscapeRight, false, {0.1, 0.9}},
                          Case{video_orientation::kLandscapeLeft, false, {0.9, 0.1}},
                          Case{video_orientation::kPortraitUpsideDown, false, {0.9, 0.9}}}) {
        SCOPED_TRACE(c.orientation * 10 + c.mirrored);
        connection->setVideoOrientation(c.orientation);
        connection->setVideoMirrored(c.mirrored);
        // One frame may be in the making and one waiting for the delegate.
        ASSERT_TRUE(rig.collector->waitForNewFrames(3));
        const auto buffer = rig.collector->last()->imageBuffer();
        ReadLock locked(buffer);
        const auto at = [&](double u, double v) {
            return pixelAt(*buffer, 0, int(u * buffer->width()), int(v * buffer->height()));
        };
        const std::uint8_t* red = at(c.red.x(), c.red.y());
        EXPECT_GT(red[2], 150);
        EXPECT_LT(red[1], 60);
        const std::uint8_t* opposite = at(1 - c.red.x(), 1 - c.red.y());
        EXPECT_GT(opposite[1], 150) << "white";
    }
}

TEST(CaptureFrameTest, TorchBrightensAndAutofocusSharpensDeterministically) {
    auto config = testCamera();
    config.noiseAmplitude = 0;
    config.handMotion = 0;
    config.focusSettleFrames = 2;
    Rig rig(config);
    rig.video->setVideoSettings(
        {{kPixelBufferPixelFormatTypeKey, uint(pixel_format::k420YpCbCr8BiPlanarFullRange)}});
    rig.session->startRunning();
    ASSERT_TRUE(rig.collector->waitForFrames(2));
    auto before = rig.collector->last()->imageBuffer();

    ASSERT_TRUE(rig.device->lockForConfiguration(nullptr));
    rig.device->setFocusMode(focus_mode::kContinuousAutoFocus);
    ASSERT_TRUE(rig.device->setTorchModeOnWithLevel(1.0f, nullptr));
    rig.device->unlockForConfiguration();
    ASSERT_TRUE(rig.collector->waitForNewFrames(8));
    auto after = rig.collector->last()->imageBuffer();
    ReadLock lockBefore(before);
    ReadLock lockAfter(after);
    EXPECT_GT(lumaStats(*after).steps, 1.5 * lumaStats(*before).steps) << "sharper";
    EXPECT_GT(lumaStats(*after).mean, lumaStats(*before).mean + 10) << "brighter";

    // The same seed makes the same first frame; another seed another one.
    const auto firstFrame = [](std::uint64_t seed) {
        auto seeded = testCamera();
        seeded.seed = seed;
        Rig other(seeded);
        other.session->startRunning();
        EXPECT_TRUE(other.collector->waitForFrames(1));
        std::lock_guard lock(other.collector->mutex);
        const auto buffer = other.collector->kept.front()->imageBuffer();
        ReadLock locked(buffer);
        return qHashBits(buffer->baseAddress(), buffer->bytesPerRow() * buffer->height());
    };
    EXPECT_EQ(firstFrame(7), firstFrame(7));
    EXPECT_NE(firstFrame(7), firstFrame(8));
}

// --- Stills ------------------------------------------------------------------------

TEST(CaptureStillTest, CompletesOnTheOutputsOwnThreadAtTheStillSize) {
    Rig rig;
    rig.session->startRunning();
    const auto connection = rig.still->connectionWithMediaType(kMediaTypeVideo);
    ASSERT_TRUE(connection);
    connection->setVideoOrientation(video_orientation::kPortrait);

    Semaphore done, hold;
    std::vector<std::thread::id> threads;
    std::vector<SampleBufferPtr> samples;
    const auto completion = [&](const SampleBufferPtr& sample, const ErrorPtr& error) {
        EXPECT_FALSE(error);
        threads.push_back(std::this_thread::get_id());
        samples.push_back(sample);
        if (threads.size() == 1) {
            hold.wait();
        }
        done.signal();
    };
    rig.still->captureStillImageAsynchronously(connection, completion);
    rig.still->captureStillImageAsynchronously(connection, completion);
    EXPECT_TRUE(rig.still->isCapturingStillImage()) << "the second waits behind the first";
    hold.signal();
    ASSERT_TRUE(done.waitFor(kWait) && done.waitFor(kWait));
    EXPECT_FALSE(rig.still->isCapturingStillImage());

    ASSERT_EQ(threads.size(), 2u);
    EXPECT_NE(threads[0], std::this_thread::get_id());
    EXPECT_EQ(threads[0], threads[1]) << "one completion thread";
    const auto buffer = samples[0]->imageBuffer();
    ASSERT_TRUE(buffer);
    EXPECT_EQ(buffer->pixelFormatType(), pixel_format::k32BGRA);
    EXPECT_EQ(QSize(buffer->width(), buffer->height()), QSize(480, 640)) << "portrait still";
    EXPECT_EQ(ReadLock(buffer).status, cv_return::kSuccess);
}

TEST(CaptureStillTest, ReportsEveryConfiguredFailure) {
    using Still = VirtualCameraFailures::Still;
    const auto capture = [](VirtualCameraConfiguration config, bool run) {
        Rig rig(std::move(config));
        if (run) {
            rig.session->startRunning();
        }
        Semaphore done;
        StillResult result;
        rig.still->captureStillImageAsynchronously(
            rig.still->connectionWithMediaType(kMediaTypeVideo),
            [&](const SampleBufferPtr& sample, const ErrorPtr& error) {
                result = {sample, error};
                done.signal();
            });
        EXPECT_TRUE(done.waitFor(kWait));
        return result;
    };

    auto config = testCamera();
    StillResult result = capture(config, false);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code(), av_error::kSessionNotRunning);

    config.failures.stillError = Error::withDescription(kAVFoundationErrorDomain, -11801, "oom");
    for (const Still kind :
         {Still::Error, Still::SampleBufferWithoutImageBuffer, Still::NoSampleBuffer}) {
        config.failures.still = kind;
        result = capture(config, true);
        EXPECT_EQ(result.error, kind == Still::Error ? config.failures.stillError : nullptr);
        EXPECT_EQ(result.sampleBuffer != nullptr, kind == Still::SampleBufferWithoutImageBuffer);
        EXPECT_FALSE(result.sampleBuffer && result.sampleBuffer->imageBuffer());
    }

    config.failures.still = Still::None;
    config.failures.stillBuffersRefuseLock = true;
    result = capture(config, true);
    ASSERT_TRUE(result.sampleBuffer && result.sampleBuffer->imageBuffer());
    EXPECT_EQ(result.sampleBuffer->imageBuffer()->lockBaseAddress(0), cv_return::kError);
    EXPECT_EQ(result.sampleBuffer->imageBuffer()->baseAddress(), nullptr);
}

// --- Device configuration ------------------------------------------------------

TEST(CaptureDeviceTest, SettersNeedTheLockWhichCanFail) {
    auto config = testCamera();
    auto device = VirtualCamera::makeDevice(config);
    QStringList lines;
    std::mutex linesMutex;
    log::ScopedSink sink([&](const QString& line) {
        std::lock_guard lock(linesMutex);
        lines << line;
    });

    const int initial = device->focusMode();
    device->setFocusMode(focus_mode::kContinuousAutoFocus);
    EXPECT_EQ(device->focusMode(), initial);
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains("setFocusMode")) << lines[0].toStdString();
    EXPECT_TRUE(lines[0].contains("not locked")) << lines[0].toStdString();

    ErrorPtr error;
    ASSERT_TRUE(device->lockForConfiguration(&error));
    EXPECT_FALSE(error);
    device->setFocusMode(focus_mode::kContinuousAutoFocus);
    device->setFocusPointOfInterest({0.25, 0.75});
    device->setFlashMode(17);  // unsupported: ignored
    device->unlockForConfiguration();
    EXPECT_EQ(device->focusMode(), focus_mode::kContinuousAutoFocus);
    EXPECT_EQ(device->focusPointOfInterest(), QPointF(0.25, 0.75));
    EXPECT_EQ(device->flashMode(), flash_mode::kOff);
    EXPECT_EQ(lines.size(), 2);

    config.failures.lockForConfiguration = Error::withDescription(
        kAVFoundationErrorDomain, av_error::kDeviceInUseByAnotherApplication, "busy");
    auto busy = VirtualCamera::makeDevice(config);
    EXPECT_FALSE(busy->lockForConfiguration(&error));
    EXPECT_EQ(error, config.failures.lockForConfiguration);
}

TEST(CaptureDeviceTest, TorchLevelsOutsideTheAvailableRangeAreRefused) {
    auto config = testCamera();
    config.maxAvailableTorchLevel = 0.8f;
    auto device = VirtualCamera::makeDevice(config);
    log::ScopedSink quiet([](const QString&) {});
    ErrorPtr error;
    EXPECT_FALSE(device->setTorchModeOnWithLevel(0.5f, &error)) << "needs the lock";
    ASSERT_TRUE(device->lockForConfiguration(nullptr));
    for (const float level : {0.0f, -1.0f, 1.5f}) {
        error.reset();
        EXPECT_FALSE(device->setTorchModeOnWithLevel(level, &error)) << level;
        EXPECT_TRUE(error) << level;
    }
    EXPECT_FALSE(device->setTorchModeOnWithLevel(0.9f, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), av_error::kTorchLevelUnavailable);
    EXPECT_EQ(device->torchMode(), torch_mode::kOff);

    EXPECT_TRUE(device->setTorchModeOnWithLevel(0.5f, nullptr));
    EXPECT_EQ(device->torchMode(), torch_mode::kOn);
    EXPECT_FLOAT_EQ(device->torchLevel(), 0.5f);
    EXPECT_TRUE(device->setTorchModeOnWithLevel(kMaxAvailableTorchLevel, nullptr));
    EXPECT_FLOAT_EQ(device->torchLevel(), 0.8f);
    device->setTorchMode(torch_mode::kOff);
    EXPECT_FLOAT_EQ(device->torchLevel(), 0.0f);
    device->unlockForConfiguration();

    auto front = VirtualCamera::makeDevice(VirtualCameraConfiguration::front());
    ASSERT_TRUE(front->lockForConfiguration(nullptr));
    EXPECT_FALSE(front->hasTorch());
    EXPECT_FALSE(front->setTorchModeOnWithLevel(0.5f, &error));
    front->unlockForConfiguration();
}

TEST(CaptureDeviceTest, LosingTheDeviceMidStreamStopsTheSessionAndNotifies) {
    auto config = testCamera();
    config.failures.disconnectAfterFrames = 3;
    Rig rig(config);
    rig.video->setAlwaysDiscardsLateVideoFrames(false);
    Semaphore deviceGone, sessionFailed;
    ErrorPtr runtimeError;
    int observer = 0;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(&observer, kCaptureDeviceWasDisconnectedNotification, rig.device.get(),
                       [&](const Notification&) { deviceGone.signal(); });
    center.addObserver(&observer, kCaptureSessionRuntimeErrorNotification, rig.session.get(),
                       [&](const Notification& note) {
                           runtimeError =
                               note.userInfo.value(kCaptureSessionErrorKey).value<ErrorPtr>();
                           sessionFailed.signal();
                       });
    rig.session->startRunning();
    const bool notified = deviceGone.waitFor(kWait) && sessionFailed.waitFor(kWait);
    center.removeObserver(&observer);
    ASSERT_TRUE(notified);

    ASSERT_TRUE(runtimeError);
    EXPECT_EQ(runtimeError->code(), av_error::kDeviceWasDisconnected);
    EXPECT_FALSE(rig.session->isRunning());
    EXPECT_FALSE(rig.device->isConnected());
    EXPECT_EQ(rig.camera->deliveredFrameCount(), 3u);
    rig.queue->sync([] {});
    std::lock_guard lock(rig.collector->mutex);
    EXPECT_EQ(rig.collector->times.size(), 3u);
    EXPECT_EQ(CaptureDeviceInput::create(rig.device, nullptr), nullptr);
}

// --- Preview layer ---------------------------------------------------------------

class CapturePreviewTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        input = CaptureDeviceInput::create(VirtualCamera::makeDevice(testCamera()), nullptr);
        session->setSessionPreset(session_preset::kiFrame960x540);
        session->addInput(input);
        layer->setSession(session);
        layer->setVideoGravity(video_gravity::kResizeAspectFill);
    }

    void expectDevicePoint(QPointF layerPoint, QPointF expected) const {
        const QPointF actual = layer->captureDevicePointOfInterestForPoint(layerPoint);
        EXPECT_NEAR(actual.x(), expected.x(), 1e-4) << layerPoint.x() << "," << layerPoint.y();
        EXPECT_NEAR(actual.y(), expected.y(), 1e-4) << layerPoint.x() << "," << layerPoint.y();
        // and back again
        const QPointF back = layer->pointForCaptureDevicePointOfInterest(actual);
        EXPECT_NEAR(back.x(), layerPoint.x(), 1e-6);
        EXPECT_NEAR(back.y(), layerPoint.y(), 1e-6);
    }

    std::shared_ptr<CaptureSession> session = CaptureSession::create();
    std::shared_ptr<CaptureDeviceInput> input;
    std::shared_ptr<VideoPreviewLayer> layer = VideoPreviewLayer::create();
};

TEST_F(CapturePreviewTest, PointOfInterestHonoursAspectFillInPortraitAndLandscape) {
    const auto connection = layer->connection();
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->videoOrientation(), video_orientation::kPortrait);

    // Portrait 300x600 showing 540x960 video filled: scale 0.625, 337.5 wide,
    // 18.75 cut off left and right. Device x runs down the screen, device y
    // from the right edge to the left.
    layer->setBounds(QRectF(0, 0, 300, 600));
    expectDevicePoint({150, 300}, {0.5, 0.5});
    expectDevicePoint({0, 0}, {0.0, 1 - 18.75 / 337.5});
    expectDevicePoint({300, 150}, {0.25, 18.75 / 337.5});
    connection->setVideoMirrored(true);
    expectDevicePoint({0, 0}, {0.0, 18.75 / 337.5});
    connection->setVideoMirrored(false);

    // Landscape 600x300 showing 960x540 filled: 337.5 tall, 18.75 cut top and bottom.
    layer->setBounds(QRectF(0, 0, 600, 300));
    connection->setVideoOrientation(video_orientation::kLandscapeRight);
    expectDevicePoint({150, 0}, {0.25, 18.75 / 337.5});
    expectDevicePoint({600, 300}, {1.0, 1 - 18.75 / 337.5});
    connection->setVideoOrientation(video_orientation::kLandscapeLeft);
    expectDevicePoint({150, 0}, {0.75, 1 - 18.75 / 337.5});
}

TEST_F(CapturePreviewTest, PointOfInterestHonoursLetterboxingStretchingAndUpsideDown) {
    // Portrait 300x600 showing 540x960 fitted: scale 300/540, 533.33 tall,
    // bars of 33.33 above and below.
    layer->setBounds(QRectF(0, 0, 300, 600));
    layer->setVideoGravity(video_gravity::kResizeAspect);
    const double bar = (600 - 960 * 300.0 / 540) / 2;
    expectDevicePoint({150, 300}, {0.5, 0.5});
    expectDevicePoint({0, bar}, {0.0, 1.0});
    expectDevicePoint({300, 600 - bar}, {1.0, 0.0});
    // A point on a bar is held to the picture's edge.
    const QPointF onBar = layer->captureDevicePointOfInterestForPoint({150, bar / 2});
    EXPECT_DOUBLE_EQ(onBar.x(), 0.0);
    EXPECT_DOUBLE_EQ(onBar.y(), 0.5);

    // Stretched, the picture is the whole layer.
    layer->setVideoGravity(video_gravity::kResize);
    expectDevicePoint({75, 150}, {0.25, 0.75});
    // Upside down, device x runs up the screen and device y from left to right.
    layer->connection()->setVideoOrientation(video_orientation::kPortraitUpsideDown);
    expectDevicePoint({75, 150}, {0.75, 0.25});
}

TEST_F(CapturePreviewTest, ShowsTheNewestFrameTurnedForItsConnection) {
    auto video = VideoDataOutput::create();
    auto collector = std::make_shared<FrameCollector>();
    auto queue = DispatchQueue::createSerial("qxd.test.capture.preview");
    video->setSampleBufferDelegate(collector, queue);
    session->addOutput(video);  // its frames come in landscape, the preview is portrait
    session->startRunning();
    ASSERT_TRUE(collector->waitForFrames(1));
    session->stopRunning();
    EXPECT_TRUE(layer->contents().isNull()) << "frames wait for the main run loop";
    RunLoop::main().runPending();
    ASSERT_FALSE(layer->contents().isNull());
    EXPECT_EQ(layer->contents().size(), QSize(540, 960));
    EXPECT_EQ(layer->contentsGravity(), ContentsGravity::ResizeAspectFill);
    layer->setSession(nullptr);
    EXPECT_TRUE(layer->contents().isNull());
    EXPECT_FALSE(layer->connection());
}

}  // namespace
