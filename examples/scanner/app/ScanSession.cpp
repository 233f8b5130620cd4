#include "ScanSession.h"

#include "DocumentOutput.h"
#include "ExampleSupport.h"
#include "PageWarp.h"
#include "PreviewMapping.h"
#include "QXDAlertView.h"
#include "QXDCameraController.h"
#include "QXDManualEditController.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/Button.h"
#include "platform/ui/OffscreenRender.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QDir>

namespace scanner {
namespace {

// How long the outline must stay put before the picture is taken.
constexpr double kSteadyBeforeCapture = 1.0;
// A page smaller than this share of the frame is not taken automatically.
constexpr double kSmallestAutoPage = 0.2;
// After a picture, the next one is taken automatically once the outline has
// gone (a new page) or after this pause.
constexpr double kPauseBetweenPictures = 2.5;
// Headless: how long the edit screen shows before it is confirmed.
constexpr double kAutoConfirmDelay = 0.5;

const QColor kSettlingColor(241, 196, 15);
const QColor kSteadyColor(46, 204, 113);

QString adviceHint(Advice advice) {
    switch (advice) {
        case Advice::NoDocument:
            return QStringLiteral("Place a page where the camera sees all of it");
        case Advice::MoveCloser:
            return QStringLiteral("Bring the camera closer to the page");
        case Advice::HoldStill:
            return QStringLiteral("Keep the camera steady");
        case Advice::None:
            break;
    }
    return {};
}

}  // namespace

/// Hears the edit screen's answer. Held strongly by the edit screen, so it
/// holds the session weakly.
class EditOutcome final : public QXDManualEditControllerDelegate {
public:
    explicit EditOutcome(std::weak_ptr<ScanSession> session) : _session(std::move(session)) {}
    void controllerDidConfirmEditedImage(QXDManualEditController& /*controller*/,
                                         const platform::ImagePtr& image) override {
        if (auto session = _session.lock()) {
            session->pageConfirmed(image ? image->cgImage() : QImage());
        }
    }
    void controllerDidCancel(QXDManualEditController& /*controller*/) override {
        if (auto session = _session.lock()) {
            session->pageDropped();
        }
    }

private:
    std::weak_ptr<ScanSession> _session;
};

std::shared_ptr<ScanSession> ScanSession::create(
    const std::shared_ptr<QXDCameraController>& controller,
    const std::shared_ptr<platform::Window>& window, ScanSettings settings, Finished finished) {
    auto session = std::make_shared<ScanSession>(Key{}, controller, window, std::move(settings),
                                                 std::move(finished));
    controller->setDelegate(session);
    session->bindCaptureKeys();
    return session;
}

ScanSession::ScanSession(Key, const std::shared_ptr<QXDCameraController>& controller,
                         const std::shared_ptr<platform::Window>& window, ScanSettings settings,
                         Finished finished)
    : _controller(controller),
      _window(window),
      _settings(std::move(settings)),
      _finishedCallback(std::move(finished)) {}

void ScanSession::bindCaptureKeys() {
    auto window = _window.lock();
    if (!window) {
        return;
    }
    for (const auto id : _captureKeys) {
        window->access().removeKeyCommand(id);
    }
    _captureKeys.clear();
    const std::weak_ptr<ScanSession> weak = weak_from_this();
    const std::weak_ptr<platform::ViewController> screen = _controller;
    const auto bind = [&](int key, const QString& title, std::function<void(ScanSession&)> act) {
        _captureKeys.push_back(window->access().addKeyCommand({key, Qt::NoModifier, title,
                                                               [weak, act] {
                                                                   if (auto self = weak.lock()) {
                                                                       act(*self);
                                                                   }
                                                               },
                                                               screen}));
    };
    const auto onScreen = [](void (QXDCameraController::*call)()) {
        return [call](ScanSession& self) {
            if (auto screenController = self._controller.lock()) {
                (screenController.get()->*call)();
            }
        };
    };
    bind(Qt::Key_Space, QStringLiteral("Take picture"), [](ScanSession& s) { s.takePicture(); });
    bind(Qt::Key_Return, QStringLiteral("Take picture"), [](ScanSession& s) { s.takePicture(); });
    bind(Qt::Key_Enter, QStringLiteral("Take picture"), [](ScanSession& s) { s.takePicture(); });
    bind(Qt::Key_Escape, QStringLiteral("Finish and save"), [](ScanSession& s) { s.finish(); });
    bind(Qt::Key_T, QStringLiteral("Torch"), onScreen(&QXDCameraController::toggleFlash));
    bind(Qt::Key_C, QStringLiteral("Switch camera"), onScreen(&QXDCameraController::toggleCamera));
}

bool ScanSession::attachController(const std::shared_ptr<QXDCameraController>& controller) {
    if (_finished || _editing.load() || _capturing.load() || !controller) {
        return false;
    }
    if (auto old = _controller.lock()) {
        old->setDelegate({});
    }
    _controller = controller;
    controller->setDelegate(shared_from_this());
    _resetSmoother = true;
    _outlineShown = false;
    bindCaptureKeys();
    return true;
}

std::pair<std::optional<Quad>, QSize> ScanSession::lastOutline() const {
    std::lock_guard lock(_mutex);
    return {_outline, _frameSize};
}

void ScanSession::captureControllerDidReceiveFrame(QXDCameraController& /*controller*/,
                                                   const platform::ImagePtr& frame) {
    if (!frame || frame->cgImage().isNull() || _stopped.load()) {
        return;
    }
    const QImage picture = frame->cgImage();
    const double now = platform::RunLoop::main().now();
    if (_resetSmoother.exchange(false)) {
        _smoother.reset();
    }
    std::optional<Quad> detected;
    if (!_editing.load()) {
        if (const auto found = _detector.detect(picture)) {
            detected = found->corners;
        }
    }
    const std::optional<Quad> outline = _smoother.update(detected, now);
    {
        std::lock_guard lock(_mutex);
        _outline = outline;
        _frameSize = picture.size();
    }
    ++_framesAnalysed;
    if (_settings.frameAnalysed) {
        _settings.frameAnalysed();
    }

    Guidance::Situation situation;
    situation.outline = outline.has_value();
    situation.coverage =
        outline ? area(*outline) / (double(picture.width()) * picture.height()) : 0.0;
    situation.shownSeconds = _smoother.shownSeconds(now);
    situation.steadySeconds = _smoother.steadySeconds(now);
    if (outline) {
        _missingSince = -1;
    } else if (_missingSince < 0) {
        _missingSince = now;
    }
    situation.missingSeconds = outline ? 0.0 : now - _missingSince;
    const std::optional<Advice> advice =
        _editing.load() ? std::nullopt : _guidance.update(situation, now);

    if (!outline) {
        _rearmed = true;  // the page went: the next one may be taken at once
    }
    bool shoot = _settings.autoCapture && outline && !_editing.load() &&
                 situation.steadySeconds >= kSteadyBeforeCapture &&
                 situation.coverage >= kSmallestAutoPage &&
                 (_rearmed || now - _lastCaptureAt >= kPauseBetweenPictures);
    if (shoot && _capturing.exchange(true)) {
        shoot = false;  // a picture is on its way already
    }
    if (shoot) {
        _rearmed = false;
        _lastCaptureAt = now;
    }
    const bool steady = situation.steadySeconds >= kSteadyBeforeCapture;
    const QSize size = picture.size();
    platform::dispatchMainAsync([weak = weak_from_this(), outline, size, advice, shoot, steady] {
        auto self = weak.lock();
        if (!self || self->_finished) {
            return;
        }
        self->showOutline(outline, size, steady);
        if (advice) {
            self->announce(*advice);
        }
        if (shoot) {
            self->takeScreenshotOnce();
            self->pressTrigger();
        }
    });
}

void ScanSession::takeScreenshotOnce() {
    auto window = _window.lock();
    if (_screenshotTaken || _settings.screenshotPath.isEmpty() || !window) {
        return;
    }
    _screenshotTaken = true;
    QDir().mkpath(QFileInfo(_settings.screenshotPath).absolutePath());
    if (platform::renderToPng(*window, _settings.screenshotPath,
                              platform::Screen::main().scale())) {
        examples::print(
            QStringLiteral("capture screen written to %1").arg(_settings.screenshotPath));
    } else {
        examples::printError(QStringLiteral("cannot write %1").arg(_settings.screenshotPath));
    }
}

void ScanSession::showOutline(const std::optional<Quad>& outline, const QSize& frameSize,
                              bool steady) {
    auto controller = _controller.lock();
    if (!controller || !controller->isViewLoaded()) {
        return;
    }
    if (!outline) {
        if (_outlineShown) {
            controller->polygonLayer()->clean();
            _outlineShown = false;
        }
        return;
    }
    const std::vector<QPointF> points = keyPointsForPreview(
        *outline, frameSize, controller->view()->bounds().size(), controller->transform(),
        platform::Application::shared().statusBarOrientation(),
        platform::Screen::main().bounds().height());
    if (points.empty()) {
        return;
    }
    controller->drawPolygonAtKeyPoints(points, steady ? kSteadyColor : kSettlingColor);
    _outlineShown = true;
}

void ScanSession::announce(Advice advice) {
    postBanner(adviceText(advice), adviceHint(advice));
}

void ScanSession::postBanner(const QString& title, const QString& message) {
    QVariantMap info;
    info.insert(QXDAlertViewTitleKey, title);
    info.insert(QXDAlertViewMessageKey, message);
    info.insert(QXDAlertViewDismissTimeKey, 2.5);
    info.insert(QXDAlertViewUseVoiceKey, true);
    platform::NotificationCenter::defaultCenter().post(QXDAlertViewShowNotification, nullptr, info);
}

void ScanSession::takePicture() {
    if (_finished || _editing.load() || _capturing.exchange(true)) {
        return;
    }
    pressTrigger();
}

void ScanSession::pressTrigger() {
    if (auto controller = _controller.lock()) {
        controller->triggerAction(*controller->triggerButton());
    } else {
        _capturing = false;
    }
}

void ScanSession::captureControllerDidFailWithError(QXDCameraController& /*controller*/,
                                                    const platform::ErrorPtr& error) {
    const QString text = error ? error->localizedDescription() : QStringLiteral("unknown error");
    platform::dispatchMainAsync([weak = weak_from_this(), text] {
        auto self = weak.lock();
        if (!self || self->_finished) {
            return;
        }
        examples::printError(QStringLiteral("camera: %1").arg(text));
        self->_capturing = false;
        self->postBanner(QStringLiteral("Camera problem"), text);
    });
}

void ScanSession::captureControllerDidCancel(QXDCameraController& /*controller*/) {
    finish();
}

void ScanSession::cameraDidCaptureStillImage(QXDCameraController& /*controller*/,
                                             const platform::ImagePtr& image) {
    const QImage still = image ? image->cgImage() : QImage();
    if (still.isNull() || _stopped.load()) {
        _capturing = false;
        return;
    }
    _editing = true;
    const auto [outline, frameSize] = lastOutline();
    const std::optional<Quad> prior =
        outline ? std::optional(frameToStill(*outline, frameSize, still.size())) : std::nullopt;
    QImage page;
    if (const auto found = _detector.detect(still, prior)) {
        page = flattenPage(still, found->corners);
    } else if (prior) {
        page = flattenPage(still, *prior);
    }
    if (page.isNull()) {
        page = still.convertToFormat(QImage::Format_RGB32);  // no page seen: the whole picture
    }
    platform::dispatchMainAsync([weak = weak_from_this(), page] {
        if (auto self = weak.lock()) {
            self->openEditor(page);
        }
    });
}

void ScanSession::openEditor(const QImage& page) {
    auto controller = _controller.lock();
    if (_finished || !controller) {
        _editing = false;
        _capturing = false;
        return;
    }
    auto editor = QXDManualEditController::initWithImage(platform::Image::withCGImage(page), {});
    editor->setDelegate(std::make_shared<EditOutcome>(weak_from_this()));
    _editor = editor;
    if (auto window = _window.lock()) {
        const std::weak_ptr<QXDManualEditController> weakEditor = editor;
        const std::weak_ptr<platform::ViewController> screen = editor;
        const auto press = [weakEditor](auto button) {
            return [weakEditor, button] {
                if (auto e = weakEditor.lock()) {
                    (e.get()->*button)()->sendActionsForControlEvents(
                        platform::control_event::kTouchUpInside);
                }
            };
        };
        auto& access = window->access();
        _editorKeys = {
            access.addKeyCommand({Qt::Key_Left, Qt::NoModifier, QStringLiteral("Turn left"),
                                  press(&QXDManualEditController::rotateLeftButton), screen}),
            access.addKeyCommand({Qt::Key_Right, Qt::NoModifier, QStringLiteral("Turn right"),
                                  press(&QXDManualEditController::rotateRightButton), screen}),
            access.addKeyCommand({Qt::Key_Return, Qt::NoModifier, QStringLiteral("Add the page"),
                                  press(&QXDManualEditController::confirmButton), screen}),
            access.addKeyCommand({Qt::Key_Enter, Qt::NoModifier, QStringLiteral("Add the page"),
                                  press(&QXDManualEditController::confirmButton), screen}),
            access.addKeyCommand({Qt::Key_Escape, Qt::NoModifier, QStringLiteral("Drop the page"),
                                  press(&QXDManualEditController::cancelButton), screen})};
    }
    const bool autoConfirm = _settings.autoConfirm;
    controller->presentViewController(editor, true, [weak = weak_from_this(), autoConfirm] {
        auto self = weak.lock();
        if (!self || !autoConfirm) {
            return;
        }
        platform::RunLoop::main().performAfterDelay(self.get(), kAutoConfirmDelay, [weak] {
            auto session = weak.lock();
            if (session && session->_editor) {
                examples::print(QStringLiteral("confirming the page"));
                session->_editor->confirmButton()->sendActionsForControlEvents(
                    platform::control_event::kTouchUpInside);
            }
        });
    });
}

void ScanSession::closeEditor(std::function<void()> then) {
    auto editor = std::move(_editor);
    if (auto window = _window.lock()) {
        for (const auto id : _editorKeys) {
            window->access().removeKeyCommand(id);
        }
    }
    _editorKeys.clear();
    if (!editor) {
        then();
        return;
    }
    editor->dismissViewControllerAnimated(true, [weak = weak_from_this(), then, editor] {
        editor->setDelegate(nullptr);
        if (auto self = weak.lock()) {
            self->_resetSmoother = true;
            self->_editing = false;
            self->_capturing = false;
        }
        then();
    });
}

void ScanSession::pageConfirmed(const QImage& page) {
    if (page.isNull()) {
        pageDropped();
        return;
    }
    _pages.push_back(page);
    const int number = int(_pages.size());
    examples::print(
        QStringLiteral("page %1 added (%2x%3)").arg(number).arg(page.width()).arg(page.height()));
    closeEditor([weak = weak_from_this(), number] {
        auto self = weak.lock();
        if (!self || self->_finished) {
            return;
        }
        self->postBanner(QStringLiteral("Page %1 added").arg(number),
                         QStringLiteral("Press Escape to finish"));
        if (self->_settings.pagesWanted > 0 && number >= self->_settings.pagesWanted) {
            self->finish();
        }
    });
}

void ScanSession::pageDropped() {
    examples::print(QStringLiteral("page dropped"));
    closeEditor([weak = weak_from_this()] {
        if (auto self = weak.lock(); self && !self->_finished) {
            self->postBanner(QStringLiteral("Page not added"), QString());
        }
    });
}

void ScanSession::finish() {
    if (_finished) {
        return;
    }
    _finished = true;
    _stopped = true;
    platform::RunLoop::main().cancelPreviousPerformRequests(this);
    ScanReport report;
    report.pages = int(_pages.size());
    if (_pages.empty()) {
        examples::print(QStringLiteral("no page confirmed: nothing written"));
    } else {
        QString error;
        report.written =
            writeDocument(_pages, _settings.outputFolder, QStringLiteral("document.pdf"), &error);
        if (!error.isEmpty()) {
            examples::printError(error);
            report.exitCode = 1;
        }
        examples::print(QStringLiteral("%1 page(s) scanned; written: %2")
                            .arg(_pages.size())
                            .arg(report.written.join(QStringLiteral(", "))));
    }
    if (_finishedCallback) {
        _finishedCallback(report);
    }
}

}  // namespace scanner
