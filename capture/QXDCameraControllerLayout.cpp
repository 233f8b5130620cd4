// The screen's view tree and its constraints: the camera view with the
// preview, the focus overlay, the three bars and what they hold.

#include "QXDCameraController.h"

#include "PulseAnimationView.h"
#include "QXDCameraCore.h"
#include "QXDCameraView.h"
#include "platform/capture/CaptureConnection.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Bundle.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"
#include "platform/ui/TapGestureRecognizer.h"

#include <map>
#include <vector>

namespace {

using platform::LayoutAttribute;
using platform::LayoutConstraint;
using platform::LayoutConstraintPtr;
using platform::LayoutRelation;
using Views = std::map<QString, platform::ViewPtr>;
using Constraints = std::vector<LayoutConstraintPtr>;

constexpr double kPulseRadius = 44.0;

// Visual formats take their numbers written in with six decimals.
QString withNumber(const char* format, double value) {
    return QString::asprintf(format, value);
}

void append(Constraints& list, const QString& format, unsigned options, const Views& views) {
    const auto made = LayoutConstraint::constraintsWithVisualFormat(format, options, {}, views);
    list.insert(list.end(), made.begin(), made.end());
}

LayoutConstraintPtr equal(const platform::ViewPtr& first, LayoutAttribute firstAttribute,
                          const platform::ViewPtr& second, LayoutAttribute secondAttribute,
                          double constant, double multiplier = 1.0) {
    return LayoutConstraint::create(first, firstAttribute, LayoutRelation::Equal, second,
                                    secondAttribute, multiplier, constant);
}

platform::ViewPtr makeBar() {
    auto bar = platform::View::create();
    bar->setBackgroundColor(QColor::fromRgbF(0, 0, 0, 0));
    bar->setTranslatesAutoresizingMaskIntoConstraints(false);
    return bar;
}

}  // namespace

// --- Lazily made views ---------------------------------------------------------------------

const platform::ViewPtr& QXDCameraController::topContainerBar() {
    if (!_topContainerBar) {
        _topContainerBar = makeBar();
    }
    return _topContainerBar;
}

const platform::ViewPtr& QXDCameraController::bottomContainerBar() {
    if (!_bottomContainerBar) {
        _bottomContainerBar = makeBar();
        _bottomContainerBar->setUserInteractionEnabled(true);
    }
    return _bottomContainerBar;
}

const platform::ViewPtr& QXDCameraController::middleContainerBar() {
    if (!_middleContainerBar) {
        _middleContainerBar = makeBar();
    }
    return _middleContainerBar;
}

const std::shared_ptr<PulseAnimationView>& QXDCameraController::progressView() {
    if (!_progressView) {
        _progressView = PulseAnimationView::initWithRadius(kPulseRadius);
        _progressView->setTranslatesAutoresizingMaskIntoConstraints(false);
    }
    return _progressView;
}

const std::shared_ptr<platform::ImageView>& QXDCameraController::watermarkImageView() {
    if (!_watermarkImageView) {
        _watermarkImageView = platform::ImageView::create(QRectF());
        _watermarkImageView->setContentMode(platform::ContentMode::ScaleAspectFit);
        _watermarkImageView->setTranslatesAutoresizingMaskIntoConstraints(false);
        _watermarkImageView->setImage(loadImage(QStringLiteral("velmo_alpha")));
    }
    return _watermarkImageView;
}

void QXDCameraController::setWatermarkImage(platform::ImagePtr image) {
    if (!image || image == _watermarkImage) {
        return;
    }
    _watermarkImage = std::move(image);
    watermarkImageView()->setImage(_watermarkImage);
}

std::shared_ptr<platform::Label> QXDCameraController::versionLabel() {
    const QString version =
        QXDCameraCore::bundle()
            ->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString();
    const QRectF bounds = view()->bounds();
    auto label = platform::Label::create(QRectF(20, platform::rect::midY(bounds), 80, 30));
    label->setText(QStringLiteral("v%1").arg(version));
    label->setFont(platform::systemFont(13));
    label->setTextColor(Qt::red);
    label->setBackgroundColor(Qt::transparent);
    label->setAutoresizingMask(platform::autoresizing::kFlexibleTopMargin |
                               platform::autoresizing::kFlexibleBottomMargin);
    return label;
}

// --- The tree ------------------------------------------------------------------------------

void QXDCameraController::initCameraView() {
    const auto& root = view();
    _cameraView = QXDCameraView::create(root->frame());
    _cameraView->setBackgroundColor(Qt::transparent);
    _cameraView->layer()->setMasksToBounds(true);
    _cameraView->setIsAccessibilityElement(true);
    _cameraView->setAccessibilityLabel(QStringLiteral("View finder"));
    // The hint says double tap while a single tap focuses; it has always read so.
    _cameraView->setAccessibilityHint(QStringLiteral("Double tap to focus"));
    _cameraView->setAccessibilityValue(QStringLiteral("Focus unlocked"));
    root->addSubview(_cameraView);
    _cameraView->layer()->addSublayer(cameraPreview());
    _cameraView->layer()->addSublayer(polygonLayer());

    // The focus box's overlay keeps the frame it is made with.
    auto overlay = platform::View::create(root->frame());
    overlay->setBackgroundColor(Qt::transparent);
    overlay->layer()->addSublayer(focusBox());
    root->addSubview(overlay);

    auto tap = platform::TapGestureRecognizer::create();
    std::weak_ptr<QXDCameraController> weak = weakSelf();
    tap->addTarget(this, [weak](platform::GestureRecognizer& recognizer) {
        if (auto self = weak.lock()) {
            self->tapToFocus(recognizer);
        }
    });
    tap->setDelaysTouchesEnded(false);
    tap->setNumberOfTapsRequired(1);
    tap->setNumberOfTouchesRequired(1);
    root->addGestureRecognizer(tap);
}

void QXDCameraController::defaultInterface() {
    const auto& root = view();
    root->addSubview(topContainerBar());
    root->addSubview(bottomContainerBar());
    root->addSubview(middleContainerBar());

    topContainerBar()->addSubview(cameraButton());
    topContainerBar()->addSubview(torchButton());
    topContainerBar()->addSubview(progressView());

    if (isPad()) {
        middleContainerBar()->addSubview(triggerButton());
    } else {
        bottomContainerBar()->addSubview(triggerButton());
    }
    bottomContainerBar()->addSubview(cancelButton());
    bottomContainerBar()->addSubview(helpButton());
    bottomContainerBar()->addSubview(watermarkImageView());

    initLayoutConstrains();
    prepareDebugView();
}

// --- Constraints ---------------------------------------------------------------------------

void QXDCameraController::initLayoutConstrains() {
    initTopContainerConstraints();
    initBottomLayoutContainerConstraints();
    initMiddleLayoutContainerConstraints();

    const auto& root = view();
    const Views views{{QStringLiteral("_topContainerBar"), topContainerBar()},
                      {QStringLiteral("_bottomContainerBar"), bottomContainerBar()},
                      {QStringLiteral("_middleContainerBar"), middleContainerBar()}};
    Constraints list;
    list.push_back(
        equal(middleContainerBar(), LayoutAttribute::CenterY, root, LayoutAttribute::CenterY, 0));
    append(list, withNumber("H:[_middleContainerBar(==%f)]|", 100), 0, views);
    append(list, withNumber("V:[_middleContainerBar(==%f)]", 100), 0, views);
    append(list, withNumber("V:|[_topContainerBar(==%f)]", 44), 0, views);
    append(list, QStringLiteral("H:|[_topContainerBar]|"), 0, views);
    append(list, withNumber("V:[_bottomContainerBar(==%f)]|", 120), 0, views);
    append(list, QStringLiteral("H:|[_bottomContainerBar]|"), 0, views);
    root->addConstraints(list);

    // The label is not a subview, so this leaves it off screen: it is a
    // debugging aid that stays invisible.
    root->bringSubviewToFront(versionLabel().get());
}

void QXDCameraController::initTopContainerConstraints() {
    const auto& bar = topContainerBar();
    const Views views{{QStringLiteral("_torchButton"), torchButton()},
                      {QStringLiteral("_cameraButton"), cameraButton()},
                      {QStringLiteral("_progressView"), progressView()},
                      {QStringLiteral("_topContainerBar"), bar}};
    Constraints list;
    append(list, withNumber("H:|[_torchButton(==%f)]", 50), 0, views);
    append(list, withNumber("H:[_cameraButton(==%f)]|", 50), 0, views);
    // Relative to the pulse view's own superview, these only centre it.
    append(list, QStringLiteral("V:[_topContainerBar]-(<=1)-[_progressView(==15)]"),
           platform::format_options::kAlignAllCenterX, views);
    append(list, QStringLiteral("H:[_topContainerBar]-(<=1)-[_progressView(==15)]"),
           platform::format_options::kAlignAllCenterY, views);
    const auto& torchImage = torchButton()->imageView()->image();
    const double aspect = (torchImage ? torchImage->size().width() : 0.0) /
                          (torchImage ? torchImage->size().height() : 0.0);
    list.push_back(equal(torchButton(), LayoutAttribute::Width, torchButton(),
                         LayoutAttribute::Height, 0, aspect));
    list.push_back(
        equal(torchButton(), LayoutAttribute::CenterY, bar, LayoutAttribute::CenterY, 0));
    list.push_back(
        equal(cameraButton(), LayoutAttribute::CenterY, bar, LayoutAttribute::CenterY, 0));
    bar->addConstraints(list);
}

void QXDCameraController::initBottomLayoutContainerConstraints() {
    const auto& bar = bottomContainerBar();
    const Views views{{QStringLiteral("_cancelButton"), cancelButton()},
                      {QStringLiteral("_triggerButton"), triggerButton()},
                      {QStringLiteral("_watermarkImageView"), watermarkImageView()},
                      {QStringLiteral("_bottomContainerBar"), bar},
                      {QStringLiteral("_helpButton"), helpButton()}};
    Constraints list;
    append(list, QStringLiteral("V:[_cancelButton]-(==30)-|"), 0, views);
    append(list, QStringLiteral("|-10-[_cancelButton]"), 0, views);
    list.push_back(
        equal(helpButton(), LayoutAttribute::CenterY, cancelButton(), LayoutAttribute::CenterY, 0));
    append(list, QStringLiteral("[_helpButton(==40)]-10-|"), 0, views);
    append(list, QStringLiteral("V:[_helpButton(==40)]"), 0, views);
    append(list, withNumber("V:|-(>=10)-[_watermarkImageView(==%f)]", 20), 0, views);
    append(list, withNumber("[_watermarkImageView(==%f)]", 100), 0, views);
    // Below the required spacing above, so the watermark never leaves the bar.
    auto watermarkRow = equal(watermarkImageView(), LayoutAttribute::CenterY, cancelButton(),
                              LayoutAttribute::CenterY, 0);
    watermarkRow->setPriority(platform::layout_priority::kDefaultHigh);
    list.push_back(watermarkRow);
    append(list, QStringLiteral("V:[_bottomContainerBar]-(<=1)-[_watermarkImageView]"),
           platform::format_options::kAlignAllCenterX, views);
    if (isPhone()) {
        append(list, withNumber("V:[_triggerButton(==%f)]", 78),
               platform::format_options::kAlignAllCenterX, views);
        append(list, withNumber("H:[_triggerButton(==%f)]", 78),
               platform::format_options::kAlignAllCenterX, views);
        list.push_back(
            equal(triggerButton(), LayoutAttribute::CenterX, bar, LayoutAttribute::CenterX, 0));
        // Starts below the cancel row, out of sight.
        list.push_back(equal(triggerButton(), LayoutAttribute::CenterY, cancelButton(),
                             LayoutAttribute::CenterY, 120));
    }
    bar->addConstraints(list);
}

void QXDCameraController::initMiddleLayoutContainerConstraints() {
    if (!isPad()) {
        return;
    }
    const auto& bar = middleContainerBar();
    const Views views{{QStringLiteral("_triggerButton"), triggerButton()}};
    Constraints list;
    append(list, withNumber("V:[_triggerButton(==%f)]", 78),
           platform::format_options::kAlignAllCenterX, views);
    append(list, withNumber("H:[_triggerButton(==%f)]", 78),
           platform::format_options::kAlignAllCenterX, views);
    // Starts to the right of the bar's centre, out of the bar.
    list.push_back(
        equal(triggerButton(), LayoutAttribute::CenterX, bar, LayoutAttribute::CenterX, 100));
    list.push_back(
        equal(triggerButton(), LayoutAttribute::CenterY, bar, LayoutAttribute::CenterY, 0));
    bar->addConstraints(list);
}

// --- Layout passes -------------------------------------------------------------------------

void QXDCameraController::viewWillLayoutSubviews() {
    ViewController::viewWillLayoutSubviews();
    setCameraPreviewOrientation();
    layoutCameraViews();
    std::lock_guard lock(_frameStateMutex);
    _rootFrameForFrames = view()->frame();
}

void QXDCameraController::setCameraPreviewOrientation() {
    const auto connection = cameraPreview()->connection();
    if (!connection || !connection->isVideoOrientationSupported()) {
        return;
    }
    const int orientation = platform::Application::shared().statusBarOrientation();
    // Interface and video orientations share their numbers from 2 to 4.
    const bool kept = static_cast<unsigned>(orientation - 2) < 3u;
    connection->setVideoOrientation(kept ? orientation : 1);
}

void QXDCameraController::layoutCameraViews() {
    const QRectF bounds = view()->bounds();
    if (_cameraView) {
        _cameraView->setFrame(bounds);
    }
    cameraPreview()->setFrame(bounds);
}
