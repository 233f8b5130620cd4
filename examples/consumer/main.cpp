// The smallest host: a Qt widget window showing the capture screen of an
// installed QXDCameraController. With --snapshot <png> it writes the window
// once the camera has run for a few frames, and quits (for running without a
// display; QXD_CAMERA=virtual picks the built-in virtual cameras).
#include <QXDCameraController.h>
#include <QXDCameraCore.h>
#include <platform/foundation/Bundle.h>
#include <platform/foundation/RunLoop.h>
#include <platform/ui/QtWidgetHost.h>
#include <platform/ui/Window.h>

#include <QApplication>
#include <QMainWindow>

#include <atomic>

// Frames arrive on the engine's queue; the tenth (the preview shows by then)
// asks the main thread to call onFrames.
struct Host : QXDCameraCaptureControllerDelegate {
    std::function<void()> onFrames;
    std::atomic<int> seen = 0;
    void captureControllerDidReceiveFrame(QXDCameraController&,
                                          const platform::ImagePtr&) override {
        if (++seen == 10 && onFrames) {
            QMetaObject::invokeMethod(qApp, onFrames, Qt::QueuedConnection);
        }
    }
    void captureControllerDidCancel(QXDCameraController&) override { QApplication::quit(); }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    platform::RunLoop::main().attachToQt();
    qInfo("resources: %s", qPrintable(QXDCameraCore::bundle()->bundlePath()));

    auto host = std::make_shared<Host>();
    auto controller = QXDCameraController::init();
    controller->setDelegate(host);
    auto window = platform::Window::create({0, 0, 375, 667});
    window->setRootViewController(controller);

    QMainWindow main;
    main.setWindowTitle(QStringLiteral("Consumer"));
    main.setCentralWidget(new platform::QtWidgetHost(window));
    main.resize(375, 667);
    main.show();

    const QStringList args = app.arguments();
    int code = 0;
    if (const auto at = args.indexOf(QStringLiteral("--snapshot"));
        at > 0 && at + 1 < args.size()) {
        host->onFrames = [&] {
            code = main.grab().toImage().save(args[at + 1]) ? 0 : 1;
            QApplication::quit();
        };
    }
    const int result = QApplication::exec();
    controller->camera()->stop();
    return result != 0 ? result : code;
}
