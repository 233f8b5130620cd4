// Recording what a Qt camera hands over, and replaying it through the same
// driver with QXD_CAMERA=replay:FOLDER.
#include "FakeQtCamera.h"

#include "platform/capture/CameraChoice.h"
#include "platform/capture/CameraRecording.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/QtCameraDriver.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <chrono>
#include <cstring>

using namespace platform;
using fake_qt::Locked;
using fake_qt::pumpUntil;
using fake_qt::Sink;

namespace {

constexpr QSize kSize(64, 36);

FrameLayout portraitBgra() {
    return {kSize, pixel_format::k32BGRA, video_orientation::kPortrait, false};
}

// Replays the recording in folder through discovery into a sink; count
// frames are awaited, and each one's arrival time kept.
struct Replay {
    explicit Replay(const QString& folder) {
        qputenv("QXD_CAMERA", ("replay:" + folder).toUtf8());
        devices = DeviceDiscovery::allDevices();
    }
    ~Replay() {
        if (!devices.empty()) {
            devices.front()->stopStreaming();
        }
        qunsetenv("QXD_CAMERA");
    }
    std::vector<std::shared_ptr<CaptureDevice>> devices;
};

bool samePixels(const std::shared_ptr<PixelBuffer>& a, const std::shared_ptr<PixelBuffer>& b) {
    if (a->width() != b->width() || a->height() != b->height()) {
        return false;
    }
    const Locked left(a), right(b);
    for (int y = 0; y < a->height(); ++y) {
        if (std::memcmp(left.at(0, 0, y, 4), right.at(0, 0, y, 4),
                        static_cast<std::size_t>(a->width()) * 4) != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

TEST(CameraReplay, ARecordedSessionReplaysFrameExactWithTheCamerasDeparture) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    auto backend = std::make_shared<fake_qt::Backend>();
    auto camera = backend->add(
        fake_qt::webcam("usb-rec", "Recorded Webcam", QVideoFrameFormat::Format_YUYV, kSize));
    camera->description.photoResolutions = {{128, 72}};

    // Record a live session: five frames a thirtieth of a second apart (on a
    // clock the test drives), then the cable is pulled.
    std::vector<SampleBufferPtr> live;
    auto now = std::chrono::steady_clock::time_point();
    {
        const auto driver = QtCameraDriver::create(camera->description, backend);
        QString why;
        const auto recorder = CameraRecorder::create(folder.path(), camera->description, &why,
                                                     [&now] { return now; });
        ASSERT_TRUE(recorder) << why.toStdString();
        driver->setObserver(recorder);
        const auto device = CaptureDevice::create(driver);
        auto sink = std::make_shared<Sink>(portraitBgra());
        ASSERT_EQ(device->startStreaming(sink), nullptr);
        ASSERT_TRUE(pumpUntil([&] { return camera->active; }));
        for (int i = 0; i < 5; ++i) {
            now += std::chrono::microseconds(33333);
            camera->deliver(fake_qt::markedFrame(QVideoFrameFormat::Format_YUYV, kSize,
                                                 33333 * i + 1000, 8 * i));
            ASSERT_TRUE(sink->waitFor(i + 1u));
        }
        now += std::chrono::microseconds(33333);
        backend->unplug("usb-rec");
        ASSERT_TRUE(pumpUntil([&] { return sink->failed(); }));
        device->stopStreaming();
        ASSERT_TRUE(recorder->flush());
        EXPECT_EQ(recorder->frameCount(), 5u);
        live = sink->samples();
    }

    const auto recording = CameraRecording::load(folder.path());
    ASSERT_TRUE(recording);
    EXPECT_EQ(recording->camera.id, "usb-rec");
    EXPECT_EQ(recording->camera.photoResolutions, QList<QSize>({{128, 72}}));
    ASSERT_EQ(recording->frames.size(), 5u);
    EXPECT_EQ(recording->frames[4].arrival, std::chrono::microseconds(4 * 33333));
    EXPECT_EQ(recording->frames[0].frame.pixelFormat(), QVideoFrameFormat::Format_YUYV);
    ASSERT_TRUE(recording->disconnection);
    EXPECT_EQ(recording->disconnection->message, "Could not read from resource.");

    // Replayed, the recorded camera is the back camera, delivers the same
    // pixels at the same times, then goes away as it did.
    const Replay replay(folder.path());
    ASSERT_EQ(replay.devices.size(), 1u);
    const auto& device = replay.devices.front();
    EXPECT_EQ(device->uniqueID(), "usb-rec");
    EXPECT_EQ(device->position(), device_position::kBack);
    auto sink = std::make_shared<Sink>(portraitBgra());
    ASSERT_EQ(device->startStreaming(sink), nullptr);
    ASSERT_TRUE(pumpUntil([&] { return sink->samples().size() >= 5 && sink->failed(); }));
    const auto replayed = sink->samples();
    ASSERT_EQ(replayed.size(), 5u);
    for (std::size_t i = 0; i < replayed.size(); ++i) {
        EXPECT_EQ(replayed[i]->presentationTimeStamp().value,
                  live[i]->presentationTimeStamp().value);
        EXPECT_TRUE(samePixels(replayed[i]->imageBuffer(), live[i]->imageBuffer())) << i;
    }
    EXPECT_FALSE(device->isConnected());

    // A folder without a recording gives no camera, and says why on the log.
    QTemporaryDir empty;
    const Replay nothing(empty.path());
    EXPECT_TRUE(nothing.devices.empty());
}

TEST(CameraReplay, TheCommittedRecordingPlaysAtItsTiming) {
    // Made from stand-in frames: six 64x36 YUYV frames a thirtieth of a
    // second apart, the marker moving right by 8 pixels each.
    const auto recording = CameraRecording::load(QXD_WEBCAM_RECORDING);
    ASSERT_TRUE(recording);
    ASSERT_EQ(recording->frames.size(), 6u);
    EXPECT_FALSE(recording->disconnection);

    const Replay replay(QXD_WEBCAM_RECORDING);
    ASSERT_EQ(replay.devices.size(), 1u);
    std::vector<std::chrono::steady_clock::time_point> arrivals;
    auto sink = std::make_shared<Sink>(portraitBgra());
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(replay.devices.front()->startStreaming(sink), nullptr);
    ASSERT_TRUE(pumpUntil([&] { return sink->samples().size() >= 6; }));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    const auto samples = sink->samples();
    // Never ahead of the recording: the sixth frame is due 5/30 s in.
    EXPECT_GE(elapsed, recording->frames[5].arrival - recording->frames[0].arrival);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(samples[i]->presentationTimeStamp().value, recording->frames[i].startTime);
        // Portrait: the sensor's top row is the frame's right column, and the
        // marker moves down it.
        const Locked pixels(samples[i]->imageBuffer());
        const int markerY = 8 * static_cast<int>(i) + 2;
        EXPECT_GT(pixels.at(0, 33, markerY, 4)[2], 200) << i;
        EXPECT_LT(pixels.at(0, 33, markerY, 4)[0], 60) << i;
        EXPECT_EQ(pixels.at(0, 2, markerY, 4)[2], 128) << i;
    }
}
