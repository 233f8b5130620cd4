// Webcams through the Qt driver, from discovery to the engine's delegate,
// with stand-in Qt cameras (FakeQtCamera.h) under the real driver.
#include "FakeQtCamera.h"

#include "QXDCamera.h"
#include "platform/capture/CameraChoice.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/QtCameraDriver.h"
#include "platform/capture/QtCameraSource.h"

#include <gtest/gtest.h>

#include <QColor>

#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <vector>

using namespace platform;
using fake_qt::Locked;
using fake_qt::pumpUntil;
using fake_qt::Sink;

namespace {

// Installs a fake backend as the hardware source for a test, with neither a
// host choice nor QXD_CAMERA in the way.
class InstalledBackend {
public:
    InstalledBackend() : backend(std::make_shared<fake_qt::Backend>()) {
        qunsetenv("QXD_CAMERA");
        CameraSelection::setChoice(std::nullopt);
    }
    void install() { QtCameraSource::install(backend); }
    ~InstalledBackend() {
        QtCameraSource::uninstall();
        CameraSelection::setChoice(std::nullopt);
        qunsetenv("QXD_CAMERA");
    }
    std::shared_ptr<fake_qt::Backend> backend;
};

class FrameDelegate : public QXDCameraDelegate {
public:
    void cameraDidCaptureVideoSample(QXDCamera&, const QImage& image) override {
        std::lock_guard lock(_mutex);
        _frames.push_back(image.copy());
    }
    void cameraDidFailWithError(QXDCamera&, const ErrorPtr& error) override {
        std::lock_guard lock(_mutex);
        _errors.push_back(error);
    }
    std::size_t frameCount() {
        std::lock_guard lock(_mutex);
        return _frames.size();
    }
    QImage lastFrame() {
        std::lock_guard lock(_mutex);
        return _frames.empty() ? QImage() : _frames.back();
    }
    std::vector<ErrorPtr> errors() {
        std::lock_guard lock(_mutex);
        return _errors;
    }

private:
    std::mutex _mutex;
    std::vector<QImage> _frames;
    std::vector<ErrorPtr> _errors;
};

bool isRed(QRgb pixel) {
    return qRed(pixel) > 200 && qGreen(pixel) < 60 && qBlue(pixel) < 60;
}
bool isGrey(QRgb pixel) {
    return std::abs(qRed(pixel) - 128) < 4 && std::abs(qBlue(pixel) - 128) < 4;
}

}  // namespace

TEST(Webcams, PositionlessWebcamsServeAsBackAndFrontAndStreamTurnedFrames) {
    InstalledBackend installed;
    auto builtIn = installed.backend->add(fake_qt::webcam("/dev/video2", "Integrated Camera"));
    auto usb = installed.backend->add(fake_qt::webcam("/dev/video0", "USB Webcam"));
    installed.backend->setDefault("/dev/video2");
    installed.install();

    // The default camera is back although Qt lists it second; the other is
    // front. Hosts see both with their formats.
    const auto cameras = CameraSelection::list();
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_EQ(cameras[0].uniqueID, "/dev/video2");
    EXPECT_EQ(cameras[0].position, device_position::kBack);
    EXPECT_EQ(cameras[1].position, device_position::kFront);
    EXPECT_FALSE(cameras[0].isVirtual);
    EXPECT_EQ(CameraSelection::describe(cameras[0]),
              "/dev/video2 \"Integrated Camera\" (back): 640x480 YUYV 30fps, 1280x720 YUYV 10fps");

    auto delegate = std::make_shared<FrameDelegate>();
    auto camera = QXDCamera::create(nullptr, device_position::kBack, false, delegate);
    ASSERT_TRUE(camera->captureSession());
    ASSERT_TRUE(camera->deviceInput());
    EXPECT_EQ(camera->deviceInput()->device()->uniqueID(), "/dev/video2");
    camera->setVideoOrientation(video_orientation::kPortrait);
    camera->start();
    ASSERT_TRUE(pumpUntil([&] { return builtIn->active; }));

    // A landscape 1280x720 YUYV frame becomes a portrait 720x1280 one: the
    // marker in the sensor's top-left corner ends top right.
    builtIn->deliver(fake_qt::markedFrame(QVideoFrameFormat::Format_YUYV, {1280, 720}));
    ASSERT_TRUE(pumpUntil([&] { return delegate->frameCount() == 1; }));
    QImage frame = delegate->lastFrame();
    EXPECT_EQ(frame.size(), QSize(720, 1280));
    EXPECT_TRUE(isRed(frame.pixel(700, 20)));
    EXPECT_TRUE(isGrey(frame.pixel(20, 20)));
    EXPECT_TRUE(isGrey(frame.pixel(700, 1260)));
    EXPECT_EQ(builtIn->format.resolution, QSize(1280, 720)) << "the preset's format was asked for";

    // The front camera is mirrored as well: the marker ends top left.
    camera->setDevicePosition(device_position::kFront);
    ASSERT_TRUE(pumpUntil([&] { return usb->active && !builtIn->active; }));
    usb->deliver(fake_qt::markedFrame(QVideoFrameFormat::Format_YUYV, {1280, 720}));
    ASSERT_TRUE(pumpUntil([&] { return delegate->frameCount() == 2; }));
    frame = delegate->lastFrame();
    EXPECT_EQ(frame.size(), QSize(720, 1280));
    EXPECT_TRUE(isRed(frame.pixel(20, 20)));
    EXPECT_TRUE(isGrey(frame.pixel(700, 20)));

    // The cable is pulled mid-stream: the engine reports the lost camera
    // (404, the driver's disconnection underneath), the session stops, later
    // frames go nowhere and nothing crashes.
    installed.backend->unplug("/dev/video0");
    ASSERT_TRUE(pumpUntil([&] { return !delegate->errors().empty(); }));
    const ErrorPtr lost = delegate->errors().front();
    ASSERT_TRUE(lost);
    EXPECT_EQ(lost->code(), 404);
    const auto cause = lost->userInfo().value(kUnderlyingErrorKey).value<ErrorPtr>();
    ASSERT_TRUE(cause);
    EXPECT_EQ(cause->code(), av_error::kDeviceWasDisconnected);
    ASSERT_TRUE(pumpUntil([&] { return !camera->captureSession()->isRunning(); }));
    EXPECT_FALSE(camera->deviceInput()->device()->isConnected());
    usb->active = true;  // a late frame from the backend's thread
    usb->deliver(fake_qt::markedFrame(QVideoFrameFormat::Format_YUYV, {1280, 720}));
    QCoreApplication::processEvents();
    EXPECT_EQ(delegate->frameCount(), 2u);
    camera->stop();
    EXPECT_EQ(CameraSelection::list().size(), 1u) << "only the built-in camera is left";
}

TEST(Webcams, TheCameraChoiceComesFromTheHostOrTheEnvironment) {
    InstalledBackend installed;
    installed.backend->add(fake_qt::webcam("usb-a", "Camera A"));
    installed.backend->add(fake_qt::webcam("usb-b", "Camera B"));
    auto back = installed.backend->add(fake_qt::webcam("usb-c", "Camera C"));
    back->description.position = QCameraDevice::BackFace;
    installed.backend->setDefault("usb-a");
    installed.install();

    const auto positions = [] {
        std::map<QString, int> byID;
        for (const auto& camera : CameraSelection::list()) {
            byID[camera.uniqueID] = camera.position;
        }
        return byID;
    };
    // A camera Qt calls back keeps that; the default one, unspecified, is
    // then front.
    EXPECT_EQ(positions(), (std::map<QString, int>{{"usb-a", 2}, {"usb-b", 0}, {"usb-c", 1}}));

    qputenv("QXD_CAMERA", "usb-b");
    EXPECT_EQ(positions(), (std::map<QString, int>{{"usb-a", 2}, {"usb-b", 1}, {"usb-c", 0}}));
    qputenv("QXD_CAMERA", "usb-b,usb-c");
    EXPECT_EQ(positions(), (std::map<QString, int>{{"usb-a", 0}, {"usb-b", 1}, {"usb-c", 2}}));
    qputenv("QXD_CAMERA", "no-such-camera");
    EXPECT_EQ(positions()["usb-c"], device_position::kBack) << "an unknown ID changes nothing";

    qputenv("QXD_CAMERA", "virtual");
    auto cameras = CameraSelection::list();
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_TRUE(cameras[0].isVirtual);
    EXPECT_EQ(cameras[0].position, device_position::kBack);

    // None: the engine is made without a session, as on a machine without a
    // camera.
    qputenv("QXD_CAMERA", "none");
    EXPECT_TRUE(CameraSelection::list().empty());
    auto delegate = std::make_shared<FrameDelegate>();
    EXPECT_FALSE(
        QXDCamera::create(nullptr, device_position::kBack, false, delegate)->captureSession());

    // The host's choice wins over the environment's.
    CameraSelection::setChoice(CameraChoice::camera("usb-a"));
    EXPECT_EQ(positions()["usb-a"], device_position::kBack);
    auto camera = QXDCamera::create(nullptr, device_position::kBack, false, delegate);
    ASSERT_TRUE(camera->deviceInput());
    EXPECT_EQ(camera->deviceInput()->device()->uniqueID(), "usb-a");

    QString why;
    EXPECT_FALSE(CameraChoice::parse("a,b,c", &why));
    EXPECT_FALSE(why.isEmpty());
    EXPECT_FALSE(CameraChoice::parse("replay:"));
    EXPECT_FALSE(CameraChoice::parse("same,same"));
    for (const QString text : {"", "virtual", "none", "replay:/tmp/rec", "id", "back,front"}) {
        EXPECT_EQ(CameraChoice::parse(text)->toString(), text);
    }
}

namespace {

FrameLayout portrait(std::uint32_t format, QSize sensor = {1280, 720}) {
    return {sensor, format, video_orientation::kPortrait, false};
}

}  // namespace

TEST(Webcams, EveryFormatReachesTheEngineTurnedInGreyAndInColour) {
    // What Qt's backend hands over for a webcam: YUYV, decoded MJPEG as I420,
    // NV12, and BGRX whose padding is zero.
    for (const auto format : {QVideoFrameFormat::Format_YUYV, QVideoFrameFormat::Format_YUV420P,
                              QVideoFrameFormat::Format_NV12, QVideoFrameFormat::Format_BGRX8888}) {
        SCOPED_TRACE(qt_camera::pixelFormatName(format).toStdString());
        auto backend = std::make_shared<fake_qt::Backend>();
        auto state = backend->add(fake_qt::webcam("cam", "Webcam", format));
        for (const bool grey : {true, false}) {
            const auto driver = QtCameraDriver::create(state->description, backend);
            auto sink = std::make_shared<Sink>(portrait(
                grey ? pixel_format::k420YpCbCr8BiPlanarFullRange : pixel_format::k32BGRA));
            ASSERT_EQ(driver->startStreaming(sink), nullptr);
            ASSERT_TRUE(pumpUntil([&] { return state->active; }));
            for (int i = 0; i < 3; ++i) {  // buffers come back to the pool
                state->deliver(fake_qt::markedFrame(format, {1280, 720}, 1000 * i));
                ASSERT_TRUE(sink->waitFor(i + 1u));
            }
            driver->stopStreaming();
            ASSERT_TRUE(pumpUntil([&] { return !state->active; }));

            const auto& buffer = sink->samples().back()->imageBuffer();
            EXPECT_EQ(QSize(buffer->width(), buffer->height()), QSize(720, 1280));
            EXPECT_EQ(sink->lastLayout().orientation, video_orientation::kPortrait);
            EXPECT_EQ(sink->lastLayout().sensorSize, QSize(1280, 720));
            const Locked pixels(buffer);
            if (grey) {
                ASSERT_EQ(buffer->pixelFormatType(), pixel_format::k420YpCbCr8BiPlanarFullRange);
                EXPECT_NEAR(*pixels.at(0, 700, 20, 1), 76, 1) << "the marker, top right";
                EXPECT_NEAR(*pixels.at(0, 20, 20, 1), 128, 1);
                EXPECT_NEAR(*pixels.at(0, 700, 1260, 1), 128, 1);
                const std::uint8_t* red = pixels.at(1, 350, 10, 2);
                EXPECT_GT(red[1], 200) << "Cr of red";
            } else {
                ASSERT_EQ(buffer->pixelFormatType(), pixel_format::k32BGRA);
                const std::uint8_t* red = pixels.at(0, 700, 20, 4);
                EXPECT_GT(red[2], 200);
                EXPECT_LT(red[0], 60);
                bool opaque = true;
                for (int y = 0; y < buffer->height(); y += 7) {
                    for (int x = 0; x < buffer->width(); x += 5) {
                        opaque = opaque && pixels.at(0, x, y, 4)[3] == 255;
                    }
                }
                EXPECT_TRUE(opaque);
            }
        }
    }
}

TEST(Webcams, FramesArriveInOrderAndLateOnesAreDropped) {
    auto backend = std::make_shared<fake_qt::Backend>();
    auto state = backend->add(fake_qt::webcam("cam", "Webcam", QVideoFrameFormat::Format_NV12));
    const auto driver = QtCameraDriver::create(state->description, backend);
    auto sink = std::make_shared<Sink>(FrameLayout{{1280, 720},
                                                   pixel_format::k420YpCbCr8BiPlanarFullRange,
                                                   video_orientation::kLandscapeRight,
                                                   false});
    ASSERT_EQ(driver->startStreaming(sink), nullptr);
    ASSERT_TRUE(pumpUntil([&] { return state->active; }));
    const auto frame = [](qint64 time) {
        return fake_qt::markedFrame(QVideoFrameFormat::Format_NV12, {1280, 720}, time);
    };
    state->deliver(QVideoFrame());  // an empty frame is no frame
    state->deliver(frame(0));
    ASSERT_TRUE(sink->waitFor(1));
    // While the consumer holds the queue one more frame may wait; the next is
    // dropped rather than queued.
    sink->hold(true);
    state->deliver(frame(1000));
    ASSERT_TRUE(sink->waitFor(2));
    state->deliver(frame(2000));
    state->deliver(frame(3000));
    sink->hold(false);
    ASSERT_TRUE(sink->waitFor(3));
    driver->stopStreaming();

    const auto samples = sink->samples();
    ASSERT_EQ(samples.size(), 3u);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i]->presentationTimeStamp().value, static_cast<qint64>(1000 * i));
    }
    // Unturned NV12 for a 420f consumer is handed on as the camera made it.
    EXPECT_EQ(samples[0]->imageBuffer()->pixelFormatType(),
              pixel_format::k420YpCbCr8BiPlanarFullRange);
    EXPECT_EQ(samples[0]->imageBuffer()->width(), 1280);
}

TEST(Webcams, StillsKeepTheStreamsAspectAndAStopWaitsForTheStill) {
    auto backend = std::make_shared<fake_qt::Backend>();
    auto description = fake_qt::webcam("cam", "Webcam");
    description.photoResolutions = {{2592, 1944}, {1920, 1080}, {640, 480}};
    auto state = backend->add(description);
    const auto driver = QtCameraDriver::create(state->description, backend);
    auto sink = std::make_shared<Sink>(portrait(pixel_format::k32BGRA));
    ASSERT_EQ(driver->startStreaming(sink), nullptr);
    ASSERT_TRUE(pumpUntil([&] { return state->active; }));
    state->deliver(fake_qt::markedFrame(QVideoFrameFormat::Format_YUYV, {1280, 720}));
    ASSERT_TRUE(sink->waitFor(1));

    // The still is taken as the still output asks, on a thread of its own,
    // at the Photo size (4:3 here) in portrait.
    StillRequest request;
    request.layout = portrait(pixel_format::k32BGRA, driver->capabilities().stillImageSize);
    const auto take = [&] {
        return std::async(std::launch::async, [&] { return driver->captureStill(request); });
    };
    auto first = take();
    ASSERT_TRUE(pumpUntil(
        [&] { return first.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    const StillResult still = first.get();
    ASSERT_TRUE(still.sampleBuffer)
        << (still.error ? still.error->localizedDescription().toStdString() : "");
    EXPECT_EQ(state->stillResolution, QSize(1920, 1080)) << "16:9 like the stream, never squashed";
    const auto& buffer = still.sampleBuffer->imageBuffer();
    EXPECT_EQ(QSize(buffer->width(), buffer->height()), QSize(1080, 1920));
    {
        const Locked pixels(buffer);
        EXPECT_GT(pixels.at(0, 1070, 10, 4)[2], 200) << "the marker, turned to the top right";
        EXPECT_EQ(pixels.at(0, 10, 10, 4)[2], 128);
    }

    // A stop while a still is pending leaves the camera running for the
    // still, and stops it as soon as the still is done.
    state->holdStills = true;
    auto second = take();
    ASSERT_TRUE(pumpUntil([&] { return !state->heldStills.empty(); }));
    driver->stopStreaming();
    QCoreApplication::processEvents();
    EXPECT_TRUE(state->active);
    state->releaseStills();
    ASSERT_TRUE(pumpUntil(
        [&] { return second.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_TRUE(second.get().sampleBuffer);
    QCoreApplication::processEvents();
    EXPECT_FALSE(state->active);

    // A still of a stopped camera starts it for the still alone.
    state->holdStills = false;
    auto third = take();
    ASSERT_TRUE(pumpUntil(
        [&] { return third.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_TRUE(third.get().sampleBuffer);
    EXPECT_EQ(state->stillResolution, QSize(2592, 1944)) << "no stream: the request's aspect";
    QCoreApplication::processEvents();
    EXPECT_FALSE(state->active);
}
