#include "QXDManualEditController.h"

#include "QXDCameraCore.h"
#include "manualedit/QuarterTurn.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Bundle.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/ui/AlertController.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/ImageView.h"

#include <QtMath>

namespace {

namespace rect = platform::rect;

const QString kTitleFontName = QStringLiteral("HelveticaNeue-Light");
constexpr double kTitleFontSize = 17.0;
constexpr double kRotationDuration = 0.3;

}  // namespace

std::shared_ptr<QXDManualEditController> QXDManualEditController::initWithImage(
    platform::ImagePtr image, const QString& helpMessage) {
    return make<QXDManualEditController>(std::move(image), helpMessage);
}

QXDManualEditController::QXDManualEditController(platform::ImagePtr image,
                                                 const QString& helpMessage)
    : _originalImage(image), _modifiedImage(std::move(image)), _helpMessage(helpMessage) {}

QString QXDManualEditController::typeName() const {
    return QStringLiteral("QXDManualEditController");
}

// --- Lifecycle -------------------------------------------------------------------------

void QXDManualEditController::viewDidLoad() {
    ViewController::viewDidLoad();
    view()->setBackgroundColor(Qt::black);
    defaultInterface();
}

void QXDManualEditController::viewDidAppear(bool animated) {
    ViewController::viewDidAppear(animated);
    if (!_helpMessage.isNull()) {
        showHelpMessage();
    }
}

platform::ImagePtr QXDManualEditController::loadImage(const QString& name) const {
    return platform::Image::named(name, QXDCameraCore::bundle(), platform::Screen::main().scale());
}

void QXDManualEditController::defaultInterface() {
    const auto& root = view();
    root->addSubview(cancelButton());
    root->addSubview(confirmButton());
    root->addSubview(watermarkImageView());
    root->addSubview(rotateLeftButton());
    root->addSubview(showHelpButton());
    root->addSubview(rotateRightButton());
    root->addSubview(imageView());
}

void QXDManualEditController::viewWillLayoutSubviews() {
    ViewController::viewWillLayoutSubviews();
    // Fixed sizes on every device; the mix of frame- and bounds-based edges
    // is how the screen has always been laid out.
    const QRectF f = view()->frame();
    const QRectF b = view()->bounds();
    showHelpButton()->setFrame(QRectF(rect::midX(f) - 40, rect::minY(f), 80, 30));
    const double helpX = rect::minX(showHelpButton()->frame());
    rotateLeftButton()->setFrame(QRectF(helpX - 90, rect::minY(b), 80, 30));
    rotateRightButton()->setFrame(QRectF(helpX + 90, rect::minY(b), 80, 30));
    cancelButton()->setFrame(QRectF(rect::minX(f) + 10, rect::maxY(f) - 35, 80, 30));
    confirmButton()->setFrame(QRectF(rect::maxX(f) - 90, rect::maxY(f) - 35, 80, 30));
    watermarkImageView()->setFrame(QRectF(rect::midX(f) - 50, rect::maxY(f) - 30, 100, 20));
    imageView()->setFrame(QRectF(rect::minX(f), 30, rect::width(f), rect::height(f) - 105));
}

// --- Help --------------------------------------------------------------------------------

void QXDManualEditController::showHelpMessage() {
    auto alert = platform::AlertController::create(_helpMessage, QString(),
                                                   platform::AlertControllerStyle::Alert);
    alert->addAction(
        platform::AlertAction::create(QStringLiteral("OK"), platform::AlertActionStyle::Default));
    presentViewController(alert, true);
}

// --- Rotation ----------------------------------------------------------------------------

void QXDManualEditController::rotateImageView(bool clockwise) {
    const double angle = clockwise ? 90.0 : -90.0;
    auto self = std::static_pointer_cast<QXDManualEditController>(shared_from_this());
    platform::View::animate(
        kRotationDuration,
        [self, angle] {
            self->imageView()->setTransform(platform::affine::makeRotation(angle * M_PI / 180.0));
            self->view()->layoutIfNeeded();
        },
        // Whether or not the animation ran to its end, the turn is baked in.
        [self, clockwise](bool /*finished*/) {
            self->imageView()->setTransform(platform::affine::makeRotation(0));
            // A missing image turns into a missing image; an empty one gives
            // no context to draw into, and so no image either.
            self->_modifiedImage =
                self->_modifiedImage ? drawQuarterTurn(*self->_modifiedImage, clockwise) : nullptr;
            self->imageView()->setImage(self->_modifiedImage);
            self->toggleButtons(true);
        });
}

void QXDManualEditController::toggleButtons(bool enabled) {
    rotateRightButton()->setEnabled(enabled);
    rotateLeftButton()->setEnabled(enabled);
}

// --- Actions -----------------------------------------------------------------------------

void QXDManualEditController::rotateLeftButtonTapped() {
    QXD_LOG(QStringLiteral("left rotation button tapped"));
    toggleButtons(false);
    rotateImageView(false);
}

void QXDManualEditController::rotateRightButtonTapped() {
    QXD_LOG(QStringLiteral("right rotation button tapped"));
    toggleButtons(false);
    rotateImageView(true);
}

void QXDManualEditController::helpMessageButtonTapped() {
    QXD_LOG(QStringLiteral("manual edit help button tapped"));
    showHelpMessage();
}

void QXDManualEditController::cancelButtonTapped() {
    QXD_LOG(QStringLiteral("manual edit cancel button tapped"));
    if (_delegate) {
        _delegate->controllerDidCancel(*this);
    }
}

void QXDManualEditController::confirmButtonTapped() {
    QXD_LOG(QStringLiteral("manual edit confirm button tapped"));
    if (_delegate) {
        _delegate->controllerDidConfirmEditedImage(*this, _modifiedImage);
    }
}

// --- Views -------------------------------------------------------------------------------

void QXDManualEditController::connect(platform::Button& button, Action action) {
    std::weak_ptr<QXDManualEditController> weak =
        std::static_pointer_cast<QXDManualEditController>(shared_from_this());
    button.addTarget(
        std::weak_ptr<void>(weak),
        [weak, action](platform::Control&) {
            if (auto self = weak.lock()) {
                ((*self).*action)();
            }
        },
        platform::control_event::kTouchUpInside);
}

std::shared_ptr<platform::Button> QXDManualEditController::makeTextButton(
    const QString& key, bool alignRight, Action action, const QString& label, const QString& hint) {
    auto button = platform::Button::create(platform::ButtonType::Custom);
    button->setBackgroundColor(Qt::transparent);
    const auto& title = button->titleLabel();
    title->setTextColor(Qt::white);
    title->setTextAlignment(alignRight ? platform::TextAlignment::Right
                                       : platform::TextAlignment::Left);
    button->setTitle(
        QXDCameraCore::bundle()->localizedString(key, QString(), QStringLiteral("Localizable")),
        platform::control_state::kNormal);
    title->setFont(platform::fontWithName(kTitleFontName, kTitleFontSize));
    connect(*button, action);
    button->setIsAccessibilityElement(true);
    button->setAccessibilityLabel(label);
    button->setAccessibilityHint(hint);
    return button;
}

std::shared_ptr<platform::Button> QXDManualEditController::makeImageButton(const QString& image,
                                                                           Action action,
                                                                           const QString& label,
                                                                           const QString& hint) {
    auto button = platform::Button::create(platform::ButtonType::Custom);
    button->setBackgroundColor(Qt::transparent);
    button->setImage(loadImage(image), platform::control_state::kNormal);
    connect(*button, action);
    button->setIsAccessibilityElement(true);
    button->setAccessibilityLabel(label);
    button->setAccessibilityHint(hint);
    button->imageView()->setContentMode(platform::ContentMode::ScaleAspectFit);
    return button;
}

const std::shared_ptr<platform::ImageView>& QXDManualEditController::imageView() {
    if (!_imageView) {
        _imageView = platform::ImageView::create(_originalImage);
        _imageView->setContentMode(platform::ContentMode::ScaleAspectFit);
        _imageView->setBackgroundColor(Qt::transparent);
    }
    return _imageView;
}

const std::shared_ptr<platform::Button>& QXDManualEditController::cancelButton() {
    if (!_cancelButton) {
        _cancelButton = makeTextButton(
            QStringLiteral("button.cancel"), false, &QXDManualEditController::cancelButtonTapped,
            QStringLiteral("Cancel"),
            QStringLiteral("Dismisses the screen and goes back to the previous screen"));
    }
    return _cancelButton;
}

const std::shared_ptr<platform::Button>& QXDManualEditController::confirmButton() {
    if (!_confirmButton) {
        _confirmButton = makeTextButton(
            QStringLiteral("button.confirm"), true, &QXDManualEditController::confirmButtonTapped,
            QStringLiteral("Confirm"),
            QStringLiteral("Confirms that you are satisfied and done editing the image"));
    }
    return _confirmButton;
}

const std::shared_ptr<platform::Button>& QXDManualEditController::rotateLeftButton() {
    if (!_rotateLeftButton) {
        _rotateLeftButton = makeImageButton(
            QStringLiteral("PhotoCorrection-Left"),
            &QXDManualEditController::rotateLeftButtonTapped, QStringLiteral("Rotate Left"),
            QStringLiteral("Rotates the image to the left by 90 degrees"));
    }
    return _rotateLeftButton;
}

const std::shared_ptr<platform::Button>& QXDManualEditController::rotateRightButton() {
    if (!_rotateRightButton) {
        _rotateRightButton = makeImageButton(
            QStringLiteral("PhotoCorrection-Right"),
            &QXDManualEditController::rotateRightButtonTapped, QStringLiteral("Rotate Right"),
            QStringLiteral("Rotates the image to the right by 90 degrees"));
    }
    return _rotateRightButton;
}

const std::shared_ptr<platform::Button>& QXDManualEditController::showHelpButton() {
    if (!_showHelpButton) {
        // Without a help message the button is laid out but empty and inert.
        if (_helpMessage.isNull()) {
            _showHelpButton = platform::Button::create(platform::ButtonType::Custom);
            _showHelpButton->setBackgroundColor(Qt::transparent);
        } else {
            _showHelpButton = makeImageButton(
                QStringLiteral("icon_help_ios"), &QXDManualEditController::helpMessageButtonTapped,
                QStringLiteral("Help"), QStringLiteral("Displays help message"));
        }
    }
    return _showHelpButton;
}

const std::shared_ptr<platform::ImageView>& QXDManualEditController::watermarkImageView() {
    if (!_watermarkImageView) {
        _watermarkImageView = platform::ImageView::create(QRectF());
        _watermarkImageView->setContentMode(platform::ContentMode::ScaleAspectFit);
        _watermarkImageView->setImage(loadImage(QStringLiteral("velmo_alpha")));
    }
    return _watermarkImageView;
}

void QXDManualEditController::setImageView(std::shared_ptr<platform::ImageView> view) {
    _imageView = std::move(view);
}
void QXDManualEditController::setRotateLeftButton(std::shared_ptr<platform::Button> button) {
    _rotateLeftButton = std::move(button);
}
void QXDManualEditController::setRotateRightButton(std::shared_ptr<platform::Button> button) {
    _rotateRightButton = std::move(button);
}
void QXDManualEditController::setShowHelpButton(std::shared_ptr<platform::Button> button) {
    _showHelpButton = std::move(button);
}
void QXDManualEditController::setCancelButton(std::shared_ptr<platform::Button> button) {
    _cancelButton = std::move(button);
}
void QXDManualEditController::setConfirmButton(std::shared_ptr<platform::Button> button) {
    _confirmButton = std::move(button);
}
void QXDManualEditController::setWatermarkImageView(std::shared_ptr<platform::ImageView> view) {
    _watermarkImageView = std::move(view);
}
