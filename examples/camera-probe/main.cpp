// Runs the camera engine on the cameras of this machine: lists them, streams
// live frames from one, waits for the picture to come into focus, takes a
// still picture and writes the focused frame and the still as PNG files.
//
//   qxd-camera-probe [--virtual] [--front] [--high-resolution] [--grey]
//                    [--frames n] [--output folder] [--record folder]
//
// Real cameras come through Qt Multimedia; without any (or with --virtual)
// the virtual cameras stand in. QXD_CAMERA chooses the camera (see README).
// --record writes what a real camera hands over, for QXD_CAMERA=replay:. Exits 0 once the still is
// written, 1 on a camera error before that or when nothing arrives within 20 seconds (and says how
// far it got). Prints the engine's frame and still counters at the end.

#include "ExampleSupport.h"
#include "QXDCamera.h"
#include "QXDCameraDelegate.h"
#include "platform/capture/CameraChoice.h"
#include "platform/capture/CameraRecording.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/QtCameraDriver.h"
#include "platform/capture/QtCameraSource.h"
#include "platform/foundation/RunLoop.h"

#include <QCommandLineParser>
#include <QDir>
#include <QGuiApplication>
#include <QTimer>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>

using examples::print;
using examples::printError;

namespace {

constexpr int kTimeoutMilliseconds = 20000;
// Light PNG compression: camera noise makes the default level take seconds
// on a 12 MP still for little gain.
constexpr int kPngQuality = 80;

// Frames without a sharper one before the focus counts as settled.
constexpr int kFocusSettleFrames = 5;

void listDevices() {
    const auto cameras = platform::CameraSelection::list();
    const auto devices = platform::DeviceDiscovery::allDevices();
    print(QStringLiteral("%1 camera(s):").arg(cameras.size()));
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        print(QStringLiteral("  ") + platform::CameraSelection::describe(cameras[i]));
        if (i < devices.size()) {
            const auto& caps = devices[i]->capabilities();
            print(QStringLiteral("    stills %1x%2; focus modes %3; torch %4; flash %5")
                      .arg(caps.stillImageSize.width())
                      .arg(caps.stillImageSize.height())
                      .arg(caps.focusModes.size())
                      .arg(caps.hasTorch ? QStringLiteral("yes") : QStringLiteral("no"),
                           caps.hasFlash ? QStringLiteral("yes") : QStringLiteral("no")));
        }
    }
}

// How sharp a frame is: the mean luminance step between neighbours on a
// sparse grid. It grows as a lens comes into focus.
double sharpness(const QImage& frame) {
    const QImage image = frame.format() == QImage::Format_ARGB32_Premultiplied ||
                                 frame.format() == QImage::Format_ARGB32 ||
                                 frame.format() == QImage::Format_RGB32
                             ? frame
                             : frame.convertToFormat(QImage::Format_RGB32);
    constexpr int kStep = 4;
    double sum = 0.0;
    long count = 0;
    for (int y = 0; y + kStep < image.height(); y += kStep) {
        const auto* row = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        const auto* below = reinterpret_cast<const QRgb*>(image.constScanLine(y + 1));
        for (int x = 0; x + 1 < image.width(); x += kStep) {
            const int here = qGray(row[x]);
            sum += std::abs(here - qGray(row[x + 1])) + std::abs(here - qGray(below[x]));
            ++count;
        }
    }
    return count == 0 ? 0.0 : sum / static_cast<double>(count);
}

// Counts frames, keeps the sharpest until the focus settles and writes it,
// asks for a still once it is written and `frames` frames have come, and
// finishes once the still is written. Engine callbacks arrive on its queues;
// everything else happens on the main thread.
class Probe : public QXDCameraDelegate {
public:
    Probe(QString folder, int frames) : _folder(std::move(folder)), _frames(frames) {}

    void setCamera(const std::shared_ptr<QXDCamera>& camera) { _camera = camera; }
    int received() const { return _received.load(); }
    int wanted() const { return _frames; }
    bool pictureAsked() const { return _pictureAsked.load(); }

    // On the engine's serial video queue.
    void cameraDidCaptureVideoSample(QXDCamera& /*camera*/, const QImage& image) override {
        const int count = ++_received;
        if (!_focused) {
            const double sharp = image.isNull() ? 0.0 : sharpness(image);
            if (count == 1 || sharp > _bestSharpness * 1.02) {
                // The frame's pixels are the camera's only for this call.
                _best = image.copy();
                _bestSharpness = sharp;
                _framesSinceBest = 0;
            } else {
                ++_framesSinceBest;
            }
            if (image.isNull() || _framesSinceBest >= kFocusSettleFrames) {
                _focused = true;
                platform::RunLoop::main().post([this, best = _best, count] {
                    save(best, QStringLiteral("frame.png"),
                         QStringLiteral("focused frame (settled after %1 frames)").arg(count));
                });
            }
        }
        if (_focused && count >= _frames && !_pictureAsked.exchange(true)) {
            platform::RunLoop::main().post([this, count] {
                print(QStringLiteral("%1 frames; taking a picture").arg(count));
                if (auto camera = _camera.lock()) {
                    camera->takePicture();
                }
            });
        }
    }

    void cameraDidCaptureStillImage(QXDCamera& /*camera*/, const QImage& image) override {
        const QImage still = image.copy();
        platform::RunLoop::main().post([this, still] {
            const bool saved = save(still, QStringLiteral("still.png"), QStringLiteral("still"));
            QCoreApplication::exit(saved ? EXIT_SUCCESS : EXIT_FAILURE);
        });
    }

    void cameraDidFailWithError(QXDCamera& /*camera*/, const platform::ErrorPtr& error) override {
        const QString text = error ? QStringLiteral("%1 %2: %3")
                                         .arg(error->domain())
                                         .arg(error->code())
                                         .arg(error->localizedDescription())
                                   : QStringLiteral("(no error object)");
        platform::RunLoop::main().post([text] {
            print(QStringLiteral("camera error: ") + text);
            QCoreApplication::exit(EXIT_FAILURE);
        });
    }

private:
    bool save(const QImage& image, const QString& name, const QString& what) {
        if (image.isNull()) {
            print(QStringLiteral("%1: no image (grey frames carry none)").arg(what));
            return true;
        }
        const QString path = QDir(_folder).filePath(name);
        if (!image.save(path, "PNG", kPngQuality)) {
            print(QStringLiteral("cannot write ") + path);
            return false;
        }
        print(QStringLiteral("%1: %2x%3 written to %4")
                  .arg(what)
                  .arg(image.width())
                  .arg(image.height())
                  .arg(path));
        return true;
    }

    const QString _folder;
    const int _frames;
    std::atomic<int> _received{0};
    std::atomic<bool> _pictureAsked{false};
    std::weak_ptr<QXDCamera> _camera;
    // Video queue only.
    bool _focused = false;
    QImage _best;
    double _bestSharpness = 0.0;
    int _framesSinceBest = 0;
};

void printCounters(const QXDCamera& camera) {
    const QXDCameraCounters c = camera.counters();
    print(QStringLiteral("frames: %1 delivered, %2 dropped (%3 late, %4 no free buffer, "
                         "%5 lock refused, %6 unsupported format, %7 no image buffer)")
              .arg(c.framesDelivered)
              .arg(c.framesDropped())
              .arg(c.framesDroppedLate)
              .arg(c.framesDroppedNoBuffer)
              .arg(c.framesDroppedLockRefused)
              .arg(c.framesDroppedUnsupportedFormat)
              .arg(c.framesDroppedNoImageBuffer));
    print(QStringLiteral("stills: %1 requested, %2 completed, %3 failed")
              .arg(c.stillsRequested)
              .arg(c.stillsCompleted)
              .arg(c.stillsFailed));
}

}  // namespace

int main(int argc, char** argv) {
    examples::useOffscreenWithoutDisplay();
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("qxd-camera-probe"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Streams from a camera through the engine and takes a picture."));
    parser.addHelpOption();
    const QCommandLineOption virtualOption(QStringLiteral("virtual"),
                                           QStringLiteral("Use the virtual cameras only."));
    const QCommandLineOption frontOption(QStringLiteral("front"),
                                         QStringLiteral("Start with the front camera."));
    const QCommandLineOption highOption(QStringLiteral("high-resolution"),
                                        QStringLiteral("Allow the 3840x2160 preset."));
    const QCommandLineOption greyOption(QStringLiteral("grey"),
                                        QStringLiteral("Ask for grey live frames."));
    const QCommandLineOption framesOption(QStringLiteral("frames"),
                                          QStringLiteral("Frames before the picture (30)."),
                                          QStringLiteral("n"), QStringLiteral("30"));
    const QCommandLineOption outputOption(QStringLiteral("output"),
                                          QStringLiteral("Folder for the images (out)."),
                                          QStringLiteral("folder"), QStringLiteral("out"));
    const QCommandLineOption recordOption(
        QStringLiteral("record"),
        QStringLiteral("Record what the real camera hands over into folder "
                       "(replay it with QXD_CAMERA=replay:folder)."),
        QStringLiteral("folder"));
    parser.addOptions({virtualOption, frontOption, highOption, greyOption, framesOption,
                       outputOption, recordOption});
    parser.process(app);

    bool framesOk = false;
    const int frames = parser.value(framesOption).toInt(&framesOk);
    if (!framesOk || frames < 1) {
        printError(QStringLiteral("--frames needs a positive number"));
        return EXIT_FAILURE;
    }
    const QString folder = parser.value(outputOption);
    if (!QDir().mkpath(folder)) {
        printError(QStringLiteral("cannot create ") + folder);
        return EXIT_FAILURE;
    }

    if (!parser.isSet(virtualOption)) {
        platform::QtCameraSource::install();
    }
    platform::RunLoop::main().attachToQt();
    listDevices();

    auto probe = std::make_shared<Probe>(folder, frames);
    const int position = parser.isSet(frontOption) ? platform::device_position::kFront
                                                   : platform::device_position::kBack;
    const auto camera = QXDCamera::create(nullptr, position, parser.isSet(highOption), probe);
    probe->setCamera(camera);
    if (!camera->captureSession()) {
        print(QStringLiteral("no camera source"));
        return EXIT_FAILURE;
    }
    const auto device = camera->deviceInput() ? camera->deviceInput()->device() : nullptr;
    const QSize size =
        device ? device->capabilities().videoSizeForPreset(camera->sessionPreset()) : QSize();
    print(QStringLiteral("streaming from %1 at %2x%3")
              .arg(device ? device->localizedName() : QStringLiteral("(no device)"))
              .arg(size.width())
              .arg(size.height()));
    std::shared_ptr<platform::CameraRecorder> recorder;
    if (parser.isSet(recordOption)) {
        auto* qtCamera =
            device ? dynamic_cast<platform::QtCameraDriver*>(&device->driver()) : nullptr;
        if (qtCamera == nullptr) {
            printError(QStringLiteral("--record needs a real camera; this one is virtual"));
            return EXIT_FAILURE;
        }
        QString why;
        recorder = platform::CameraRecorder::create(parser.value(recordOption),
                                                    qtCamera->description(), &why);
        if (!recorder) {
            printError(why);
            return EXIT_FAILURE;
        }
        qtCamera->setObserver(recorder);
    }
    camera->start();
    if (parser.isSet(greyOption)) {
        // The frame format is chosen when the outputs are built: switching to
        // the same camera rebuilds them.
        camera->setGrayscaleMode(true);
        camera->setDevicePosition(camera->devicePosition());
    }
    QTimer::singleShot(kTimeoutMilliseconds, &app, [probe] {
        const int seconds = kTimeoutMilliseconds / 1000;
        if (probe->received() == 0) {
            print(QStringLiteral("timed out: no frame arrived within %1 s; the camera sent "
                                 "nothing (see the counters below)")
                      .arg(seconds));
        } else if (!probe->pictureAsked()) {
            print(QStringLiteral("timed out: only %1 of the %2 frames arrived within %3 s; "
                                 "the stream stopped or is too slow")
                      .arg(probe->received())
                      .arg(probe->wanted())
                      .arg(seconds));
        } else {
            print(QStringLiteral("timed out: %1 frames arrived but the picture did not come "
                                 "within %2 s")
                      .arg(probe->received())
                      .arg(seconds));
        }
        QCoreApplication::exit(EXIT_FAILURE);
    });
    const int code = QGuiApplication::exec();
    printCounters(*camera);
    // The engine stops on its session queue; stop the session here instead,
    // which returns once the camera is idle, so nothing is still streaming
    // while the application object goes away.
    camera->captureSession()->stopRunning();
    if (recorder) {
        dynamic_cast<platform::QtCameraDriver&>(device->driver()).setObserver(nullptr);
        const bool written = recorder->flush();
        print(QStringLiteral("%1 frames recorded to %2%3")
                  .arg(recorder->frameCount())
                  .arg(parser.value(recordOption),
                       written ? QString() : QStringLiteral(" (a write failed)")));
    }
    platform::QtCameraSource::uninstall();
    return code;
}
