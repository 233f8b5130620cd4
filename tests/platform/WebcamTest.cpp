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

#include <mutex>
#include <vector>

using namespace platform;
using fake_qt::pumpUntil;

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

    // The cable is pulled mid-stream: the device is gone, the session stops,
    // later frames go nowhere and nothing crashes.
    installed.backend->unplug("/dev/video0");
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
