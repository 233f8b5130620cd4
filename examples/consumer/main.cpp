// The smallest host: a Qt widget window showing the manual edit screen of an
// installed QXDCameraController. With --snapshot <png> it writes what the
// window shows and quits (for running without a display).
#include <QXDCameraCore.h>
#include <QXDManualEditController.h>
#include <platform/foundation/Bundle.h>
#include <platform/foundation/RunLoop.h>
#include <platform/graphics/Image.h>
#include <platform/ui/QtWidgetHost.h>
#include <platform/ui/Window.h>

#include <QApplication>
#include <QImage>
#include <QMainWindow>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    platform::RunLoop::main().attachToQt();

    QImage page(300, 400, QImage::Format_RGB32);
    page.fill(Qt::white);
    auto controller =
        QXDManualEditController::initWithImage(platform::Image::withCGImage(page), {});
    auto window = platform::Window::create({0, 0, 375, 667});
    window->setRootViewController(controller);

    QMainWindow main;
    main.setWindowTitle(QStringLiteral("Consumer"));
    main.setCentralWidget(new platform::QtWidgetHost(window));
    main.resize(375, 667);
    main.show();

    qInfo("resources: %s", qPrintable(QXDCameraCore::bundle()->bundlePath()));
    const QStringList args = app.arguments();
    if (const auto at = args.indexOf(QStringLiteral("--snapshot"));
        at > 0 && at + 1 < args.size()) {
        QApplication::processEvents();
        return main.grab().toImage().save(args[at + 1]) ? 0 : 1;
    }
    return QApplication::exec();
}
