// Construction, properties, the view lifecycle, the lazily made engine and
// layers, resources, and presentation as an overlay.

#include "QXDCameraController.h"

#include "PulseAnimationView.h"
#include "QXDAlertView.h"
#include "QXDCameraCore.h"
#include "platform/capture/CaptureTypes.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/ui/View.h"

#include <algorithm>

namespace {

namespace rect = platform::rect;

constexpr double kPadOverlayHeight = 264.0;
constexpr double kPhoneOverlayHeight = 216.0;

}  // namespace

std::shared_ptr<QXDCameraController> QXDCameraController::init() {
    return make<QXDCameraController>();
}

QXDCameraController::QXDCameraController()
    : _cameraActionsQueue(platform::DispatchQueue::createSerial(kCameraActionsQueueLabel)) {}

QXDCameraController::~QXDCameraController() {
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    platform::RunLoop::main().cancelPreviousPerformRequests(this);
}

QString QXDCameraController::typeName() const {
    return QStringLiteral("QXDCameraController");
}

std::shared_ptr<QXDCameraController> QXDCameraController::self() {
    return std::static_pointer_cast<QXDCameraController>(shared_from_this());
}

std::weak_ptr<QXDCameraController> QXDCameraController::weakSelf() {
    return self();
}

bool QXDCameraController::isPhone() {
    const auto& device = platform::Device::current();
    return !device.respondsToUserInterfaceIdiom() ||
           device.userInterfaceIdiom() == platform::idiom::kPhone;
}

bool QXDCameraController::isPad() {
    const auto& device = platform::Device::current();
    return device.respondsToUserInterfaceIdiom() &&
           device.userInterfaceIdiom() == platform::idiom::kPad;
}

// --- Properties ------------------------------------------------------------------------

void QXDCameraController::setTriggerAppearDelay(double delay) {
    if (delay != _triggerAppearDelay) {
        _triggerAppearDelay = delay;
    }
}

void QXDCameraController::setInitialDevicePosition(long position) {
    if (position != _initialDevicePosition) {
        _initialDevicePosition = position == platform::device_position::kUnspecified
                                     ? platform::device_position::kBack
                                     : position;
    }
}

QTransform QXDCameraController::transform() const {
    std::lock_guard lock(_frameStateMutex);
    return _transform;
}

void QXDCameraController::setTransform(const QTransform& transform) {
    std::lock_guard lock(_frameStateMutex);
    _transform = transform;
}

QString QXDCameraController::currentPreset() const {
    std::lock_guard lock(_frameStateMutex);
    return _currentPreset;
}

void QXDCameraController::setCurrentPreset(const QString& preset) {
    std::lock_guard lock(_frameStateMutex);
    _currentPreset = preset;
}

// --- Lazily made engine and layers ---------------------------------------------------------

const std::shared_ptr<QXDCamera>& QXDCameraController::camera() {
    if (!_camera) {
        std::weak_ptr<QXDCameraDelegate> delegate = self();
        _camera = QXDCamera::create(cameraPreview(), static_cast<int>(_initialDevicePosition),
                                    _allowsHighResolution, delegate);
        _camera->configureStillImageStabilization(true);
        _camera->configureVideoStabilization(true);
        _camera->setVideoOrientation(1);
    }
    return _camera;
}

const std::shared_ptr<platform::VideoPreviewLayer>& QXDCameraController::cameraPreview() {
    if (!_cameraPreview) {
        _cameraPreview = platform::VideoPreviewLayer::create();
        _cameraPreview->setVideoGravity(platform::video_gravity::kResizeAspectFill);
    }
    return _cameraPreview;
}

void QXDCameraController::setCameraPreview(std::shared_ptr<platform::VideoPreviewLayer> preview) {
    _cameraPreview = std::move(preview);
}

const std::shared_ptr<QXDPolygonLayer>& QXDCameraController::polygonLayer() {
    if (!_polygonLayer) {
        _polygonLayer = QXDPolygonLayer::create();
    }
    return _polygonLayer;
}

platform::ImagePtr QXDCameraController::loadImage(const QString& name) const {
    return platform::Image::named(name, QXDCameraCore::bundle(), platform::Screen::main().scale());
}

// --- View lifecycle ------------------------------------------------------------------------

void QXDCameraController::viewDidLoad() {
    ViewController::viewDidLoad();
    initCameraView();
    view()->setBackgroundColor(Qt::black);
    defaultInterface();
    toggleTriggerAfterDelay(_triggerAppearDelay, true);
}

void QXDCameraController::viewWillAppear(bool animated) {
    ViewController::viewWillAppear(animated);
    if (!camera()->running()) {
        camera()->start();
    }
    registerForNotifications();
}

void QXDCameraController::viewWillDisappear(bool animated) {
    ViewController::viewWillDisappear(animated);
    if (camera()->running()) {
        camera()->stop();
    }
    unregisterFromNotifications();
}

// Neither of the two "did" callbacks calls the base class: nothing above
// this screen needs them, and it has always been so.
void QXDCameraController::viewDidAppear(bool /*animated*/) {
    {
        std::lock_guard lock(_frameStateMutex);
        _rootFrameForFrames = view()->frame();
    }
    _isVisible.store(true);
    progressView()->startAnimation();
    toggleTriggerAfterDelay(_triggerAppearDelay, false);
}

void QXDCameraController::viewDidDisappear(bool /*animated*/) {
    _isVisible.store(false);
}

// --- Overlay -------------------------------------------------------------------------------

void QXDCameraController::overlayCameraFromViewController(
    const std::shared_ptr<platform::ViewController>& parent, const QRectF& frame) {
    if (!parent) {
        return;
    }
    const auto& children = parent->childViewControllers();
    if (std::find(children.begin(), children.end(), shared_from_this()) != children.end()) {
        return;
    }
    const QRectF bounds = parent->view()->bounds();
    parent->addChildViewController(self());

    // Only the far edges are tested: a negative origin passes.
    const bool sizeIsZero = frame.width() == 0.0 && frame.height() == 0.0;
    const bool fits = rect::minX(frame) + rect::width(frame) <= rect::width(bounds) &&
                      rect::minY(frame) + rect::height(frame) <= rect::height(bounds);
    QRectF chosen = frame;
    if (sizeIsZero || !fits) {
        const double height = isPad() ? kPadOverlayHeight : kPhoneOverlayHeight;
        chosen =
            QRectF(rect::minX(bounds), rect::maxY(bounds) - height, rect::width(bounds), height);
    }
    view()->setFrame(chosen);
    view()->setAutoresizingMask(
        platform::autoresizing::kFlexibleWidth | platform::autoresizing::kFlexibleTopMargin |
        platform::autoresizing::kFlexibleHeight | platform::autoresizing::kFlexibleBottomMargin);
    parent->view()->addSubview(view());
    didMoveToParentViewController(parent.get());
}

void QXDCameraController::dismissCameraOverlayWithCompletion(
    const std::function<void()>& completion) {
    willMoveToParentViewController(nullptr);
    view()->removeFromSuperview();
    removeFromParentViewController();
    if (completion) {
        completion();
    }
}
