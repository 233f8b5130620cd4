// qxd-scanner: a document scanner on the capture screen.
//
//   qxd-scanner [--camera ID|back|front|virtual] [--output DIR] [--pages N]
//               [--no-auto] [--offscreen] [--idiom phone|pad]
//   qxd-scanner --list-cameras
//   qxd-scanner --detect FILE...
//
// With a display it opens a window on the camera: the outline of the page
// found is drawn over the picture, advice comes as banners (spoken with a
// screen reader), and the picture is taken when the outline has stayed put
// for a second (or with the trigger, Space or Return). Each page opens the
// edit screen: confirm adds it, cancel drops it. Escape, the cancel button or
// closing the window writes the pages and document.pdf to the output folder.
// Without a display (or with --offscreen) it runs the virtual camera, takes
// and confirms --pages pages by itself, writes them with capture-screen.png
// and exits.

#include "ExampleSupport.h"
#include "PhotoScan.h"
#include "QXDCameraController.h"
#include "ScanSession.h"
#include "ScannerOptions.h"
#include "ScreenShape.h"
#include "WindowPlacement.h"
#include "platform/capture/CameraChoice.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/QtCameraSource.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/QtWindowHost.h"
#include "platform/ui/Window.h"

#include <QDir>
#include <QEvent>
#include <QGuiApplication>
#include <QResizeEvent>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

using examples::print;
using examples::printError;

namespace {

// Headless: the window, at the frames' 9:16.
constexpr QSizeF kHeadlessWindow(414, 736);
// Headless: how long the pages may take before the run gives up.
constexpr int kHeadlessLimitMs = 120000;

int detectPhotos(const QStringList& files, const QString& output) {
    const scanner::PageDetector detector;
    int failures = 0;
    for (const QString& file : files) {
        const scanner::PhotoScan scan = scanner::scanPhoto(file, detector, output);
        if (!scan.error.isEmpty()) {
            printError(QStringLiteral("%1: %2").arg(file, scan.error));
            ++failures;
        }
        if (!scan.size.isEmpty()) {
            std::printf("%s\n", scanner::toJson(scan).constData());
            std::fflush(stdout);
        }
    }
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int listCameras() {
    platform::QtCameraSource::install();
    const auto cameras = platform::CameraSelection::list();
    if (cameras.empty()) {
        print(QStringLiteral("no camera"));
    }
    for (const auto& camera : cameras) {
        print(platform::CameraSelection::describe(camera));
    }
    platform::QtCameraSource::uninstall();
    return EXIT_SUCCESS;
}

/// Applies --camera; false (with a message) for a camera that is not there.
bool chooseCamera(const scanner::ScannerOptions& options, bool headless, long& position) {
    position = platform::device_position::kBack;
    const QString& camera = options.camera;
    if (camera == QStringLiteral("virtual") || (headless && camera.isEmpty())) {
        platform::CameraSelection::setChoice(platform::CameraChoice::virtualCameras());
        return true;
    }
    platform::QtCameraSource::install();
    if (camera.isEmpty() || camera == QStringLiteral("back")) {
        return true;
    }
    if (camera == QStringLiteral("front")) {
        position = platform::device_position::kFront;
        return true;
    }
    platform::CameraSelection::setChoice(platform::CameraChoice::camera(camera));
    for (const auto& listed : platform::CameraSelection::list()) {
        if (listed.uniqueID == camera) {
            return true;
        }
    }
    printError(
        QStringLiteral("no camera with the ID \"%1\"; --list-cameras shows them").arg(camera));
    return false;
}

/// The window wanted: narrow at the frames' 9:16 for the phone layout, wide
/// at 4:3 for the pad layout; placing it on the screen scales it to fit.
QSize windowSizeFor(bool pad) {
    return pad ? QSize(1024, 768) : QSize(450, 800);
}

/// Tells about the host window's resizes (in device-independent pixels).
class ResizeWatcher final : public QObject {
public:
    explicit ResizeWatcher(std::function<void(const QSize&)> resized)
        : _resized(std::move(resized)) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Resize) {
            _resized(static_cast<QResizeEvent*>(event)->size());
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void(const QSize&)> _resized;
};

}  // namespace

int main(int argc, char** argv) {
    const bool offscreen = scanner::asksForOffscreen(argc, argv) || !examples::hasDisplay();
    if (offscreen) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("qxd-scanner"));
    const auto parsed = scanner::ScannerOptions::parse(app);
    if (!parsed) {
        return 2;
    }
    const scanner::ScannerOptions& options = *parsed;
    if (!options.detect.isEmpty()) {
        return detectPhotos(options.detect, options.output);
    }
    if (options.listCameras) {
        return listCameras();
    }

    long position = platform::device_position::kBack;
    if (!chooseCamera(options, offscreen, position)) {
        return 2;
    }
    const bool pad = options.idiom ? *options.idiom == platform::idiom::kPad : false;
    platform::Device::current().setUserInterfaceIdiom(pad ? platform::idiom::kPad
                                                          : platform::idiom::kPhone);
    const QSizeF size = offscreen ? kHeadlessWindow : QSizeF(windowSizeFor(pad));

    const auto makeScreen = [position] {
        auto screen = QXDCameraController::init();
        screen->setInitialDevicePosition(position);
        screen->setTriggerAppearDelay(0);
        return screen;
    };
    const auto window = platform::Window::create(QRectF(QPointF(), size));

    scanner::ScanSettings settings;
    settings.outputFolder = options.output;
    settings.autoCapture = options.autoCapture;
    settings.autoConfirm = offscreen;
    settings.pagesWanted = offscreen || options.pagesGiven ? options.pages : 0;
    if (offscreen) {
        settings.screenshotPath =
            QDir(options.output).filePath(QStringLiteral("capture-screen.png"));
    }
    int exitCode = EXIT_SUCCESS;
    // The window holds the screen; a change of the window's shape may bring
    // another (ScreenShape), so nothing else keeps this one.
    const auto session = [&] {
        const auto controller = makeScreen();
        window->setRootViewController(controller);
        return scanner::ScanSession::create(controller, window, settings,
                                            [&exitCode](const scanner::ScanReport& report) {
                                                exitCode = report.exitCode;
                                                QCoreApplication::exit(report.exitCode);
                                            });
    }();
    // Closing the window ends the run; what was confirmed is saved first.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [&session] { session->finish(); });

    platform::RunLoop::main().attachToQt();
    std::unique_ptr<platform::QtWindowHost> host;
    scanner::ScreenShape shape(window, session, makeScreen, pad);
    ResizeWatcher watcher([&shape, &options](const QSize& newSize) {
        if (!options.idiom && shape.windowResized(QSizeF(newSize))) {
            print(QStringLiteral("window %1x%2: %3 layout")
                      .arg(newSize.width())
                      .arg(newSize.height())
                      .arg(shape.isPad() ? QStringLiteral("pad") : QStringLiteral("phone")));
        }
    });
    if (offscreen) {
        print(QStringLiteral("headless: taking %1 page(s) from the virtual camera")
                  .arg(options.pages));
        window->makeKeyAndVisible();
        QTimer::singleShot(kHeadlessLimitMs, &app, [&session, &exitCode] {
            printError(QStringLiteral("no page was taken in time"));
            session->finish();
            exitCode = EXIT_FAILURE;
            QCoreApplication::exit(EXIT_FAILURE);
        });
    } else {
        host = std::make_unique<platform::QtWindowHost>(window);
        host->setTitle(QStringLiteral("Document scanner"));
        examples::placeOnScreen(*host, size.toSize());
        host->installEventFilter(&watcher);
        host->show();
    }
    const int code = QGuiApplication::exec();
    session->finish();
    if (host) {
        host->removeEventFilter(&watcher);
    }
    // Stop the session here (it returns once the camera is idle), so nothing
    // streams while the application goes away.
    if (const auto screen = session->controller()) {
        screen->setDelegate({});
        if (const auto& camera = screen->camera(); camera && camera->captureSession()) {
            camera->captureSession()->stopRunning();
        }
    }
    host.reset();
    platform::QtCameraSource::uninstall();
    return code != EXIT_SUCCESS ? code : exitCode;
}
