// A small host of the manual edit screen: shows one image, lets the user turn
// it, and writes the confirmed image.
//
//   qxd-manual-edit [image] [--output path] [--help-message text]
//                   [--offscreen] [--close] [--screenshot path] [--sample-size WxH]
//
// Without an image it edits a test card of its own (at WxH pixels with
// --sample-size). Photos of any camera open, 48 megapixels and more. With a
// display the screen opens in a window that fits the screen; confirm writes
// the image (default ./out/edited.png) and quits, cancel (or closing the
// window) quits without writing. Keys: Left and Right turn, Return confirms,
// Escape cancels, Tab moves among the buttons and Space presses one. Without
// a display (or with --offscreen) the program drives the screen itself with
// those keys: it turns the image right, left and right again, lets each turn
// run out and confirms with Return (or, with --close, closes the window).

#include "ExampleSupport.h"
#include "QXDManualEditController.h"
#include "SampleCard.h"
#include "WindowPlacement.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/Image.h"
#include "platform/ui/AccessibleElements.h"
#include "platform/ui/Button.h"
#include "platform/ui/OffscreenRender.h"
#include "platform/ui/QtWindowHost.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QKeyEvent>

#include <cstdlib>
#include <cstring>
#include <memory>

using examples::print;
using examples::printError;

namespace {

constexpr double kTurnDuration = 0.3;
// Qt refuses to decode images over 128 MB by default; a 48 MP photo
// (8000x6000) takes 192 MB decoded. Allow photos up to about 250 MP.
constexpr int kImageAllocationLimitMegabytes = 1024;
// A phone-sized window, made smaller where the screen is smaller.
constexpr QSize kWindowSize(375, 667);

bool asksForOffscreen(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--offscreen") == 0) {
            return true;
        }
    }
    return false;
}

// Writes the confirmed image and ends the session; cancel ends it without
// writing. `finish` receives the exit code.
class SaveOnConfirm : public QXDManualEditControllerDelegate {
public:
    SaveOnConfirm(QString output, std::function<void(int)> finish)
        : _output(std::move(output)), _finish(std::move(finish)) {}

    void controllerDidConfirmEditedImage(QXDManualEditController& /*controller*/,
                                         const platform::ImagePtr& image) override {
        QDir().mkpath(QFileInfo(_output).absolutePath());
        if (!image || !image->cgImage().save(_output)) {
            printError(QStringLiteral("cannot write %1").arg(_output));
            _finish(EXIT_FAILURE);
            return;
        }
        print(QStringLiteral("confirmed %1x%2 image written to %3")
                  .arg(image->cgImage().width())
                  .arg(image->cgImage().height())
                  .arg(_output));
        _finish(EXIT_SUCCESS);
    }
    void controllerDidCancel(QXDManualEditController& /*controller*/) override {
        print(QStringLiteral("cancelled; nothing written"));
        _finish(EXIT_FAILURE);
    }

private:
    QString _output;
    std::function<void(int)> _finish;
};

// The screen's keys, acting as the buttons do (not while a turn runs, when
// the buttons are disabled, nor while the help alert is in front).
void bindKeys(platform::Window& window,
              const std::shared_ptr<QXDManualEditController>& controller) {
    const auto bind = [&](int key, const char* title, auto button) {
        const std::weak_ptr<QXDManualEditController> weak = controller;
        window.access().addKeyCommand({key, Qt::NoModifier, QString::fromLatin1(title),
                                       [weak, button] {
                                           if (const auto c = weak.lock()) {
                                               platform::accessible::press(*((*c).*button)());
                                           }
                                       },
                                       controller});
    };
    bind(Qt::Key_Left, "Turn left", &QXDManualEditController::rotateLeftButton);
    bind(Qt::Key_Right, "Turn right", &QXDManualEditController::rotateRightButton);
    bind(Qt::Key_Return, "Confirm", &QXDManualEditController::confirmButton);
    bind(Qt::Key_Enter, "Confirm", &QXDManualEditController::confirmButton);
    bind(Qt::Key_Escape, "Cancel", &QXDManualEditController::cancelButton);
}

// Closing the window cancels, as the cancel button does.
class CancelOnClose : public QObject {
public:
    explicit CancelOnClose(std::weak_ptr<QXDManualEditController> controller)
        : _controller(std::move(controller)) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Close) {
            if (const auto controller = _controller.lock()) {
                controller->cancelButton()->sendActionsForControlEvents(
                    platform::control_event::kTouchUpInside);
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::weak_ptr<QXDManualEditController> _controller;
};

void sendKey(QWindow& host, int key) {
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier);
    QCoreApplication::sendEvent(&host, &press);
    QCoreApplication::sendEvent(&host, &release);
}

// Uses the keys a user would, letting each turn's animation run out on the
// manual clock, then confirms (or closes the window).
void driveOffscreen(platform::QtWindowHost& host, QXDManualEditController& controller,
                    const QString& screenshot, bool close) {
    auto& loop = platform::RunLoop::main();
    host.show();
    loop.advance(1.0);  // appearance, and the help alert's arrival if there is help
    if (controller.presentedViewController()) {
        print(QStringLiteral("help shown: \"%1\"; Escape dismisses it")
                  .arg(controller.helpMessage()));
        sendKey(host, Qt::Key_Escape);
        loop.advance(1.0);
    }

    const auto original = controller.modifiedImage()->size();
    for (const int key : {Qt::Key_Right, Qt::Key_Left, Qt::Key_Right}) {
        sendKey(host, key);
        loop.advance(kTurnDuration);
    }
    const auto turned = controller.modifiedImage()->size();
    print(QStringLiteral("keys Right, Left, Right: %1x%2 pt -> %3x%4 pt")
              .arg(original.width())
              .arg(original.height())
              .arg(turned.width())
              .arg(turned.height()));

    if (!screenshot.isEmpty()) {
        QDir().mkpath(QFileInfo(screenshot).absolutePath());
        if (platform::renderToPng(*host.hostedWindow(), screenshot,
                                  platform::Screen::main().scale())) {
            print(QStringLiteral("screen written to %1").arg(screenshot));
        } else {
            printError(QStringLiteral("cannot write %1").arg(screenshot));
        }
    }

    if (close) {
        print(QStringLiteral("closing the window"));
        host.close();
    } else {
        sendKey(host, Qt::Key_Return);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const bool offscreen = asksForOffscreen(argc, argv) || !examples::hasDisplay();
    if (offscreen) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("qxd-manual-edit"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Turns one image upright with the manual "
                       "edit screen and writes the result."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("image"),
                                 QStringLiteral("The image to edit (default: a test card)."));
    const QCommandLineOption outputOption(
        QStringLiteral("output"), QStringLiteral("Where the confirmed image goes."),
        QStringLiteral("path"), QStringLiteral("./out/edited.png"));
    const QCommandLineOption helpMessageOption(QStringLiteral("help-message"),
                                               QStringLiteral("Help text the screen shows."),
                                               QStringLiteral("text"));
    const QCommandLineOption offscreenOption(QStringLiteral("offscreen"),
                                             QStringLiteral("Drive the screen without a display."));
    const QCommandLineOption closeOption(
        QStringLiteral("close"),
        QStringLiteral("Offscreen: close the window instead of confirming."));
    const QCommandLineOption screenshotOption(
        QStringLiteral("screenshot"),
        QStringLiteral("Offscreen: also write the screen after the turn."), QStringLiteral("path"));
    const QCommandLineOption sampleSizeOption(
        QStringLiteral("sample-size"),
        QStringLiteral("Without an image: the test card's size in pixels (600x800)."),
        QStringLiteral("WxH"));
    parser.addOptions({outputOption, helpMessageOption, offscreenOption, closeOption,
                       screenshotOption, sampleSizeOption});
    parser.process(app);
    QImageReader::setAllocationLimit(kImageAllocationLimitMegabytes);

    platform::ImagePtr image;
    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        QImage card = renderSampleCard();
        if (parser.isSet(sampleSizeOption)) {
            const QStringList sides = parser.value(sampleSizeOption).split(u'x');
            const int width = sides.size() == 2 ? sides[0].toInt() : 0;
            const int height = sides.size() == 2 ? sides[1].toInt() : 0;
            if (width <= 0 || height <= 0 || width > 20000 || height > 20000) {
                printError(QStringLiteral("--sample-size needs WxH, each side 1 to 20000 pixels"));
                return EXIT_FAILURE;
            }
            card = card.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        }
        image = platform::Image::withCGImage(card);
        print(QStringLiteral("editing the built-in test card (%1x%2)")
                  .arg(card.width())
                  .arg(card.height()));
    } else {
        QImageReader reader(positional.first());
        const QSize size = reader.size();
        image = platform::Image::withContentsOfFile(positional.first());
        if (!image) {
            printError(QStringLiteral("cannot read %1: %2")
                           .arg(positional.first(),
                                size.isValid() ? QStringLiteral("%1x%2 pixels, not decodable (%3)")
                                                     .arg(size.width())
                                                     .arg(size.height())
                                                     .arg(reader.errorString())
                                               : reader.errorString()));
            return EXIT_FAILURE;
        }
        print(QStringLiteral("editing %1").arg(positional.first()));
    }

    const QString helpMessage =
        parser.isSet(helpMessageOption) ? parser.value(helpMessageOption) : QString();
    const auto controller = QXDManualEditController::initWithImage(image, helpMessage);
    const auto window = platform::Window::create(QRectF(QPointF(), QSizeF(kWindowSize)));
    window->setRootViewController(controller);
    bindKeys(*window, controller);
    CancelOnClose cancelOnClose(controller);

    int exitCode = EXIT_FAILURE;
    if (offscreen) {
        platform::RunLoop::main().useManualClock();
        controller->setDelegate(std::make_shared<SaveOnConfirm>(
            parser.value(outputOption), [&exitCode](int code) { exitCode = code; }));
        platform::QtWindowHost host(window);
        host.installEventFilter(&cancelOnClose);
        host.resize(kWindowSize);
        driveOffscreen(host, *controller, parser.value(screenshotOption),
                       parser.isSet(closeOption));
        // The delegate holds nothing of the screen, but let go of it anyway.
        controller->setDelegate(nullptr);
        return exitCode;
    }

    controller->setDelegate(std::make_shared<SaveOnConfirm>(
        parser.value(outputOption), [](int code) { QCoreApplication::exit(code); }));
    platform::RunLoop::main().attachToQt();
    platform::QtWindowHost host(window);
    host.setTitle(QStringLiteral("Manual edit"));
    host.installEventFilter(&cancelOnClose);
    examples::placeOnScreen(host, kWindowSize);
    host.show();
    exitCode = QGuiApplication::exec();
    controller->setDelegate(nullptr);
    return exitCode;
}
