// Feedback over the preview: tap to focus with its indicator, the outline of
// a detected document, and alerts posted by notification.

#include "QXDCameraController.h"

#include "PulseAnimationView.h"
#include "QXDAlertView.h"
#include "QXDCameraView.h"
#include "platform/capture/CaptureTypes.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/Value.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/layers/Transaction.h"
#include "platform/speech/Accessibility.h"
#include "platform/speech/SpeechSynthesizer.h"
#include "platform/speech/Utterance.h"
#include "platform/ui/GestureRecognizer.h"

const QString QXDAlertViewTitleKey = QStringLiteral("title");
const QString QXDAlertViewMessageKey = QStringLiteral("message");
const QString QXDAlertViewDismissTimeKey = QStringLiteral("dismissTime");
const QString QXDAlertViewUseVoiceKey = QStringLiteral("useVoice");

namespace {

namespace rect = platform::rect;

const QString kFocusAnimationKey = QStringLiteral("transform");
const QString kFocusLocked = QStringLiteral("Focus locked");
const QString kFocusUnlocked = QStringLiteral("Focus unlocked");
constexpr double kFocusBoxSide = 60.0;

// Animations hold their delegate strongly; this one holds the screen weakly,
// so a running focus animation never keeps the screen alive.
class WeakAnimationDelegate : public platform::AnimationDelegate {
public:
    explicit WeakAnimationDelegate(std::weak_ptr<platform::AnimationDelegate> target)
        : _target(std::move(target)) {}
    void animationDidStart(platform::Animation& animation) override {
        if (auto target = _target.lock()) {
            target->animationDidStart(animation);
        }
    }
    void animationDidStop(platform::Animation& animation, bool finished) override {
        if (auto target = _target.lock()) {
            target->animationDidStop(animation, finished);
        }
    }

private:
    std::weak_ptr<platform::AnimationDelegate> _target;
};

QString stringOrNull(const QVariant& value) {
    return platform::value::isString(value) ? value.toString() : QString();
}

}  // namespace

// --- Focus ---------------------------------------------------------------------------------

const platform::LayerPtr& QXDCameraController::focusBox() {
    if (!_focusBox) {
        _focusBox = platform::Layer::create();
        _focusBox->setFrame(QRectF(0, 0, kFocusBoxSide, kFocusBoxSide));
        _focusBox->setBackgroundColor(Qt::transparent);
        _focusBox->setOpacity(0);
        if (const auto image = loadImage(QStringLiteral("Camera-Focus-Indicator"))) {
            _focusBox->setContents(image->cgImage());
        }
    }
    return _focusBox;
}

void QXDCameraController::tapToFocus(platform::GestureRecognizer& recognizer) {
    // Set before any test: a tap outside the area also reads "locked" until
    // the next focus animation completes.
    if (_cameraView) {
        _cameraView->setAccessibilityValue(kFocusLocked);
    }
    const QPointF point = recognizer.locationInView(recognizer.view().get());
    const QRectF top = topContainerBar()->frame();
    const QRectF bottom = bottomContainerBar()->frame();
    const QRectF preview = cameraPreview()->frame();
    const QRectF area(top.x(), top.height(), preview.width(),
                      preview.height() - (top.height() + bottom.height()));
    if (!rect::contains(area, point)) {
        return;
    }
    const QPointF cameraPoint(point.x(), point.y() - rect::minY(preview));
    const auto& engine = camera();
    if (engine->canConfigureFocusMode(platform::focus_mode::kAutoFocus, true)) {
        engine->configureFocusMode(platform::focus_mode::kAutoFocus, cameraPoint);
    }
    if (engine->canConfigureExposureMode(platform::exposure_mode::kAutoExpose, true)) {
        engine->configureExposureMode(platform::exposure_mode::kAutoExpose, cameraPoint);
    }
    // The box goes where the finger was, not to the camera point.
    draw(focusBox(), point, true);
}

void QXDCameraController::draw(const platform::LayerPtr& layer, const QPointF& point, bool remove) {
    if (!layer) {
        return;
    }
    if (remove) {
        layer->removeAllAnimations();
    }
    if (layer->animationForKey(kFocusAnimationKey)) {
        return;
    }
    {
        platform::Transaction::Scope transaction(true);
        layer->setPosition(point);
    }
    // A size animation filed under "transform", with a last key time past
    // the end: both are how the indicator has always been animated.
    auto animation = platform::KeyframeAnimation::create(QStringLiteral("bounds.size"));
    animation->setValues({QSizeF(120, 120), QSizeF(60, 60), QSizeF(60, 60)});
    animation->setKeyTimes({0.0, 0.3, 1.2});
    animation->setDelegate(std::make_shared<WeakAnimationDelegate>(
        std::static_pointer_cast<platform::AnimationDelegate>(self())));
    animation->setDuration(1.0);
    animation->setRemovedOnCompletion(true);
    layer->addAnimation(animation, kFocusAnimationKey);
}

void QXDCameraController::animationDidStart(platform::Animation& /*animation*/) {
    focusBox()->setOpacity(1.0);
}

void QXDCameraController::animationDidStop(platform::Animation& /*animation*/, bool finished) {
    if (!finished) {
        return;
    }
    focusBox()->setOpacity(0);
    if (_cameraView) {
        _cameraView->setAccessibilityValue(kFocusUnlocked);
    }
}

// --- Document outline ----------------------------------------------------------------------

void QXDCameraController::drawPolygonAtKeyPoints(const QXDPolygonLayer::KeyPoints& keyPoints,
                                                 const QColor& lineColor) {
    polygonLayer()->drawPolygonAtKeyPoints(keyPoints, transform(), lineColor);
}

// --- Alerts --------------------------------------------------------------------------------

void QXDCameraController::registerForNotifications() {
    std::weak_ptr<QXDCameraController> weak = weakSelf();
    platform::NotificationCenter::defaultCenter().addObserver(
        this, QXDAlertViewShowNotification, nullptr,
        [weak](const platform::Notification& notification) {
            if (auto self = weak.lock()) {
                self->showAlertView(notification);
            }
        });
}

void QXDCameraController::unregisterFromNotifications() {
    platform::NotificationCenter::defaultCenter().removeObserver(this, QXDAlertViewShowNotification,
                                                                 nullptr);
}

void QXDCameraController::showAlertView(const platform::Notification& notification) {
    showAlertViewWithInfo(notification.userInfo);
}

void QXDCameraController::showAlertViewWithInfo(const QVariantMap& info) {
    if (!_alertView) {
        const QVariant dismissTime = info.value(QXDAlertViewDismissTimeKey);
        _alertView = QXDAlertView::initWithInitialState(progressView());
        if (!_alertView) {
            return;
        }
        std::weak_ptr<QXDCameraController> weak = weakSelf();
        _alertView->setHideHandler([weak] {
            if (auto self = weak.lock()) {
                self->progressView()->setAlpha(1.0);
                self->_alertView = nullptr;
            }
        });
        if (platform::value::isNumber(dismissTime)) {
            // Read in single precision, as it always was: 0.1 becomes
            // 0.10000000149011612.
            _alertView->setAlertDismissTime(
                static_cast<double>(platform::value::floatValue(dismissTime)));
        }
        _alertView->showInView(view());
        progressView()->setAlpha(0.0);
    }

    // The alert may go while its texts are set or spoken (a hide handler
    // clears the field), so work on a reference of our own.
    const auto alert = _alertView;
    const QString title = stringOrNull(info.value(QXDAlertViewTitleKey));
    const QString message = stringOrNull(info.value(QXDAlertViewMessageKey));
    alert->setTitle(title);
    alert->setMessage(message);

    if (platform::isScreenReaderRunning() &&
        platform::value::isEqual(info.value(QXDAlertViewUseVoiceKey),
                                 platform::value::number(true))) {
        const auto& synthesizer = alert->synthesizer();
        synthesizer->speakUtterance(platform::Utterance::utteranceWithString(title));
        synthesizer->speakUtterance(platform::Utterance::utteranceWithString(message));
    }
}

void QXDCameraController::dismissAlertView() {
    if (const auto alert = _alertView) {
        alert->hide();
    }
}
