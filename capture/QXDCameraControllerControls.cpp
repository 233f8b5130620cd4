// The five buttons, their actions, the host's switches and the trigger
// button's timing.

#include "QXDCameraController.h"

#include "QXDCameraCore.h"
#include "platform/capture/CaptureTypes.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/ImageView.h"
#include "views/UIView+NSLayoutContraint.h"

namespace {

using platform::LayoutAttribute;

const QString kFlashOff = QStringLiteral("Camera-Flash-OFF");
const QString kFlashOn = QStringLiteral("Camera-Flash-ON");
const QString kBackFacing = QStringLiteral("Back facing");
const QString kFrontFacing = QStringLiteral("Front facing");

// The font name keeps its capitals as the screen has always spelled it.
const QString kCancelFontName = QStringLiteral("HelveticaNeue-THIN");
constexpr double kCancelFontSize = 18.0;

// The spring's numbers are single-precision constants.
constexpr double kSpringDuration = static_cast<double>(0.6f);
constexpr double kSpringDamping = static_cast<double>(0.3f);
constexpr double kSpringVelocity = static_cast<double>(0.4f);

constexpr double kTriggerHiddenPadOffset = 100.0;
constexpr double kWatermarkAboveTrigger = -78.0;

}  // namespace

// --- Buttons -------------------------------------------------------------------------------

std::shared_ptr<platform::Button> QXDCameraController::makeButton(
    const std::function<void(QXDCameraController&, platform::Control&)>& action) {
    auto button = platform::Button::create(platform::ButtonType::Custom);
    std::weak_ptr<QXDCameraController> weak = weakSelf();
    button->addTarget(
        std::weak_ptr<void>(weak),
        [weak, action](platform::Control& sender) {
            if (auto self = weak.lock()) {
                action(*self, sender);
            }
        },
        platform::control_event::kTouchUpInside);
    button->setTranslatesAutoresizingMaskIntoConstraints(false);
    button->setIsAccessibilityElement(true);
    return button;
}

const std::shared_ptr<platform::Button>& QXDCameraController::triggerButton() {
    if (!_triggerButton) {
        _triggerButton = makeButton([](QXDCameraController& self, platform::Control& sender) {
            self.triggerAction(sender);
        });
        _triggerButton->setImage(loadImage(QStringLiteral("Camera-Shutter")),
                                 platform::control_state::kNormal);
        _triggerButton->setAlpha(0.0);
        _triggerButton->setAccessibilityLabel(QStringLiteral("Take picture"));
    }
    return _triggerButton;
}

const std::shared_ptr<platform::Button>& QXDCameraController::torchButton() {
    if (!_torchButton) {
        _torchButton = makeButton(
            [](QXDCameraController& self, platform::Control& sender) { self.torchAction(sender); });
        _torchButton->setBackgroundColor(Qt::transparent);
        _torchButton->setImage(loadImage(kFlashOff), platform::control_state::kNormal);
        _torchButton->setImageEdgeInsets({12, 8, 12, 8});
        _torchButton->setAccessibilityLabel(QStringLiteral("Flash"));
        _torchButton->setAccessibilityValue(QStringLiteral("Off"));
        _torchButton->setAccessibilityHint(QStringLiteral("Switch between flash modes"));
    }
    return _torchButton;
}

const std::shared_ptr<platform::Button>& QXDCameraController::cameraButton() {
    if (!_cameraButton) {
        _cameraButton = makeButton([](QXDCameraController& self, platform::Control& sender) {
            self.cameraAction(sender);
        });
        _cameraButton->setBackgroundColor(Qt::transparent);
        _cameraButton->setImage(loadImage(QStringLiteral("Camera-Switch")),
                                platform::control_state::kNormal);
        _cameraButton->setImageEdgeInsets({6, 6, 6, 6});
        _cameraButton->setAccessibilityLabel(QStringLiteral("Camera chooser"));
        // "Back facing" whatever the initial position: the first tap corrects it.
        _cameraButton->setAccessibilityValue(kBackFacing);
        _cameraButton->setAccessibilityHint(
            QStringLiteral("Switches between the front and back facing cameras"));
    }
    return _cameraButton;
}

const std::shared_ptr<platform::Button>& QXDCameraController::cancelButton() {
    if (!_cancelButton) {
        _cancelButton =
            makeButton([](QXDCameraController& self, platform::Control&) { self.cancelAction(); });
        _cancelButton->setBackgroundColor(Qt::transparent);
        _cancelButton->setTitle(
            QXDCameraCore::bundle()->localizedString(
                QStringLiteral("button.cancel"), QStringLiteral(""), QStringLiteral("Localizable")),
            platform::control_state::kNormal);
        _cancelButton->titleLabel()->setFont(
            platform::fontWithName(kCancelFontName, kCancelFontSize));
        _cancelButton->setAccessibilityLabel(QStringLiteral("Cancel"));
        _cancelButton->setAccessibilityHint(QStringLiteral("Closes camera view"));
    }
    return _cancelButton;
}

const std::shared_ptr<platform::Button>& QXDCameraController::helpButton() {
    if (!_helpButton) {
        _helpButton =
            makeButton([](QXDCameraController& self, platform::Control&) { self.helpAction(); });
        _helpButton->setBackgroundColor(Qt::transparent);
        _helpButton->setImage(loadImage(QStringLiteral("icon_help_ios")),
                              platform::control_state::kNormal);
        _helpButton->setAccessibilityLabel(QStringLiteral("Help"));
        _helpButton->setAccessibilityHint(QStringLiteral("Opens help screen"));
    }
    return _helpButton;
}

void QXDCameraController::setTriggerButton(std::shared_ptr<platform::Button> button) {
    _triggerButton = std::move(button);
}
void QXDCameraController::setTorchButton(std::shared_ptr<platform::Button> button) {
    _torchButton = std::move(button);
}
void QXDCameraController::setCameraButton(std::shared_ptr<platform::Button> button) {
    _cameraButton = std::move(button);
}
void QXDCameraController::setCancelButton(std::shared_ptr<platform::Button> button) {
    _cancelButton = std::move(button);
}
void QXDCameraController::setHelpButton(std::shared_ptr<platform::Button> button) {
    _helpButton = std::move(button);
}

// --- Actions -------------------------------------------------------------------------------

void QXDCameraController::triggerAction(platform::Control& sender) {
    sender.setSelected(!sender.isSelected());
    camera()->takePicture();
}

void QXDCameraController::torchAction(platform::Control& sender) {
    const int mode = sender.isSelected() ? platform::torch_mode::kOff : platform::torch_mode::kOn;
    if (!camera()->canConfigureTorchMode(mode)) {
        return;
    }
    camera()->configureTorchMode(mode, platform::kMaxAvailableTorchLevel);
    const bool wasOn = sender.isSelected();
    sender.setSelected(!wasOn);
    // The torch button shows the result even when the sender is another control.
    const auto& torch = torchButton();
    torch->setAccessibilityValue(wasOn ? QStringLiteral("Off") : QStringLiteral("On"));
    torch->setImage(loadImage(wasOn ? kFlashOff : kFlashOn), platform::control_state::kNormal);
}

void QXDCameraController::cameraAction(platform::Control& sender) {
    QXD_LOG(QStringLiteral("Changing camera position"));
    enableToggleButtons(false);
    sender.setSelected(!sender.isSelected());

    // Selected means "the camera opposite to the initial one", so a second
    // tap always returns to the initial camera.
    const long initial = _initialDevicePosition;
    long target = initial;
    if (!sender.isSelected()) {
        sender.setAccessibilityValue(initial == platform::device_position::kBack ? kBackFacing
                                                                                 : kFrontFacing);
    } else if (initial == platform::device_position::kBack) {
        target = platform::device_position::kFront;
        sender.setAccessibilityValue(kFrontFacing);
    } else if (initial == platform::device_position::kFront) {
        target = platform::device_position::kBack;
        sender.setAccessibilityValue(kBackFacing);
    }

    // The engine waits for its session queue to rebuild the input, which
    // never happens on a stopped engine: such a switch is only recorded.
    const auto engine = camera();
    const bool running = engine->running();
    // The references move on to the main thread, so neither the screen nor
    // the engine is ever released on the camera-actions queue.
    _cameraActionsQueue->async([self = this->self(), engine, target, running]() mutable {
        if (running) {
            engine->setDevicePosition(static_cast<int>(target));
        }
        platform::dispatchMainAsync([self = std::move(self), engine = std::move(engine)] {
            self->enableToggleButtons(true);
        });
    });
}

void QXDCameraController::cancelAction() {
    QXD_LOG(QStringLiteral("Capture controller did cancel"));
    if (auto host = delegate()) {
        host->captureControllerDidCancel(*this);
    }
}

void QXDCameraController::helpAction() {
    QXD_LOG(QStringLiteral("Capture controller should open help controller"));
    if (auto host = delegate()) {
        host->captureControllerShouldOpenHelpController(*this);
    }
}

// --- Host switches -------------------------------------------------------------------------

void QXDCameraController::changeCameraDevicePosition(long position) {
    cameraButton()->setSelected(position == platform::device_position::kFront);
    if (torchButton()->isSelected()) {
        torchAction(*torchButton());
    }
    setInitialDevicePosition(position);
}

void QXDCameraController::toggleFlash() {
    torchAction(*torchButton());
}

void QXDCameraController::toggleCamera() {
    cameraAction(*cameraButton());
}

void QXDCameraController::toggleWatermark(bool hidden) {
    watermarkImageView()->setHidden(hidden);
}

void QXDCameraController::cameraSwitchButton(bool hidden) {
    cameraButton()->setHidden(hidden);
}

void QXDCameraController::cameraHelpButton(bool hidden) {
    helpButton()->setHidden(hidden);
}

void QXDCameraController::enableToggleButtons(bool enabled) {
    triggerButton()->setEnabled(enabled);
    torchButton()->setEnabled(enabled);
    cameraButton()->setEnabled(enabled);
}

// --- Trigger timing ------------------------------------------------------------------------

void QXDCameraController::toggleTriggerButtonHidden(bool hidden) {
    toggleTriggerButton(hidden, true, 0);
}

void QXDCameraController::toggleTriggerButton(bool hidden, bool animated, double delay) {
    QXD_LOG(
        QString::asprintf("Toggle trigger button to hidden state: %d animated: %d after "
                          "delay: %f",
                          hidden ? 1 : 0, animated ? 1 : 0, delay));
    auto& loop = platform::RunLoop::main();
    loop.cancelPreviousPerformRequests(this);
    if (animated) {
        auto self = this->self();
        loop.performAfterDelay(this, delay,
                               [self, hidden] { self->animateTriggerButtonHidden(hidden); });
        return;
    }
    updateTriggerButtonConstraintsHidden(hidden);
    // Only asked: the constants are set and the next layout pass takes them.
    (void)view()->needsUpdateConstraints();
    triggerButton()->setAlpha(hidden ? 0.0 : 1.0);
}

void QXDCameraController::toggleTriggerAfterDelay(double delay, bool fromViewDidLoad) {
    // The trigger hides by alpha, never by its hidden flag, so the flag is
    // normally false here and the trigger is shown.
    const bool hidden = triggerButton()->isHidden();
    if (delay == 0) {
        toggleTriggerButton(hidden, false, 0);
    } else if (delay > 0 && !fromViewDidLoad) {
        toggleTriggerButton(hidden, true, delay);
    }
}

void QXDCameraController::animateTriggerButtonHidden(bool hidden) {
    const double alpha = hidden ? 0.0 : 1.0;
    auto self = this->self();
    platform::View::animateWithSpring(kSpringDuration, 0, kSpringDamping, kSpringVelocity, 0,
                                      [self, hidden, alpha] {
                                          self->triggerButton()->setAlpha(alpha);
                                          self->updateTriggerButtonConstraintsHidden(hidden);
                                          self->view()->layoutIfNeeded();
                                      });
}

void QXDCameraController::updateTriggerButtonConstraintsHidden(bool hidden) {
    double triggerConstant = 0;
    double watermarkConstant = 0;
    if (!hidden) {
        watermarkConstant = isPhone() ? kWatermarkAboveTrigger : 0;
    } else if (isPhone()) {
        triggerConstant = platform::rect::maxY(view()->bounds());
    } else {
        triggerConstant = kTriggerHiddenPadOffset;
    }

    if (isPhone()) {
        if (auto constraint = constraintForAttribute(*triggerButton(), LayoutAttribute::CenterY)) {
            constraint->setConstant(triggerConstant);
        }
        if (auto constraint =
                constraintForAttribute(*watermarkImageView(), LayoutAttribute::CenterY)) {
            constraint->setConstant(watermarkConstant);
        }
    } else if (auto constraint =
                   constraintForAttribute(*triggerButton(), LayoutAttribute::CenterX)) {
        constraint->setConstant(triggerConstant);
    }
}
