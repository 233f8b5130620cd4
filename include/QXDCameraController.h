#pragma once

#include "QXDCamera.h"
#include "QXDCameraCaptureControllerDelegate.h"
#include "QXDPolygonLayer.h"

#include "platform/graphics/Image.h"
#include "platform/layers/Animation.h"
#include "platform/ui/ViewController.h"

#include <QColor>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QTransform>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class PulseAnimationView;
class QXDAlertView;
class QXDCameraView;

namespace platform {
class Button;
class Control;
class DispatchQueue;
class GestureRecognizer;
class ImageView;
class Label;
class VideoPreviewLayer;
struct Notification;
}  // namespace platform

/// User-info keys of QXDAlertViewShowNotification (declared with the alert
/// view), all optional: "title" and "message" (strings), "dismissTime"
/// (a number of seconds, read in single precision) and "useVoice" (the
/// number YES: speak title and message when a screen reader runs).
extern const QString QXDAlertViewTitleKey;
extern const QString QXDAlertViewMessageKey;
extern const QString QXDAlertViewDismissTimeKey;
extern const QString QXDAlertViewUseVoiceKey;

/// The full-screen capture screen a host embeds to photograph documents: a
/// live preview under three transparent bars with the trigger (shutter),
/// torch, camera-switch, cancel and help buttons, a watermark and a pulsing
/// ring. It owns the camera engine, hands every live frame (while visible),
/// every still and every error to its delegate, and shows what the host asks
/// for in return: the outline of a detected document, alerts posted as
/// QXDAlertViewShowNotification, and a frozen (blurred) picture.
///
/// Made with init(); the views, layers, buttons and the engine are made on
/// first read of their getters and kept; the setters replace them (before
/// the view loads, for the screen to use the replacement). The engine starts
/// when the screen is about to appear and stops when it is about to go.
///
/// Threads: main thread only, except the three QXDCameraDelegate callbacks
/// (the engine's queues; they read isVisible and write transform and
/// currentPreset, which are safe to use from any thread) and
/// drawPolygonAtKeyPoints, which runs on the caller's thread and should be
/// called on the main thread since it changes a layer. The delegate is held
/// weakly.
class QXDCameraController : public platform::ViewController,
                            public QXDCameraDelegate,
                            public platform::AnimationDelegate {
public:
    /// Trigger delay 5 s, back camera, no high resolution, identity
    /// transform, not visible, and the serial camera-actions queue.
    static std::shared_ptr<QXDCameraController> init();
    ~QXDCameraController() override;

    // --- Properties --------------------------------------------------------------------

    std::shared_ptr<QXDCameraCaptureControllerDelegate> delegate() const {
        return _delegate.lock();
    }
    void setDelegate(const std::weak_ptr<QXDCameraCaptureControllerDelegate>& delegate) {
        _delegate = delegate;
    }
    /// Seconds from each appearance to the trigger button's showing; 0 shows
    /// it at load, a negative value never.
    double triggerAppearDelay() const { return _triggerAppearDelay; }
    void setTriggerAppearDelay(double delay);
    /// The camera the engine is made with (1 back, 2 front); 0 is stored as
    /// 1. Changing it later does not move an existing engine.
    long initialDevicePosition() const { return _initialDevicePosition; }
    void setInitialDevicePosition(long position);
    bool allowsHighResolution() const { return _allowsHighResolution; }
    void setAllowsHighResolution(bool allows) { _allowsHighResolution = allows; }
    /// Stored for the host; the screen never reads it.
    bool drawsFeedback() const { return _drawsFeedback; }
    void setDrawsFeedback(bool draws) { _drawsFeedback = draws; }
    /// True between viewDidAppear and viewDidDisappear. Any thread.
    bool isVisible() const { return _isVisible.load(); }
    void setIsVisible(bool visible) { _isVisible.store(visible); }
    /// Frame-image pixels to root-view points, as of the latest visible
    /// frame. Any thread.
    QTransform transform() const;
    void setTransform(const QTransform& transform);
    /// The session preset the transform was last reset for. Any thread.
    QString currentPreset() const;
    void setCurrentPreset(const QString& preset);

    /// The engine: made on first read with the preview, the initial position,
    /// the high-resolution flag and this screen as its delegate; then both
    /// stabilisations on and portrait video orientation.
    const std::shared_ptr<QXDCamera>& camera();
    void setCamera(std::shared_ptr<QXDCamera> camera) { _camera = std::move(camera); }
    /// The live preview (aspect fill); the engine attaches its session.
    const std::shared_ptr<platform::VideoPreviewLayer>& cameraPreview();
    void setCameraPreview(std::shared_ptr<platform::VideoPreviewLayer> preview);
    const std::shared_ptr<QXDPolygonLayer>& polygonLayer();
    void setPolygonLayer(std::shared_ptr<QXDPolygonLayer> layer) {
        _polygonLayer = std::move(layer);
    }
    /// The focus indicator: 60 x 60, transparent until a tap shows it.
    const platform::LayerPtr& focusBox();
    void setFocusBox(platform::LayerPtr layer) { _focusBox = std::move(layer); }
    /// The alert standing on screen, if any.
    const std::shared_ptr<QXDAlertView>& alertView() const { return _alertView; }
    void setAlertView(std::shared_ptr<QXDAlertView> alert) { _alertView = std::move(alert); }

    // Views of the screen: made by viewDidLoad (or on first read).
    const std::shared_ptr<QXDCameraView>& cameraView() const { return _cameraView; }
    void setCameraView(std::shared_ptr<QXDCameraView> view) { _cameraView = std::move(view); }
    const platform::ViewPtr& topContainerBar();
    void setTopContainerBar(platform::ViewPtr bar) { _topContainerBar = std::move(bar); }
    const platform::ViewPtr& middleContainerBar();
    void setMiddleContainerBar(platform::ViewPtr bar) { _middleContainerBar = std::move(bar); }
    const platform::ViewPtr& bottomContainerBar();
    void setBottomContainerBar(platform::ViewPtr bar) { _bottomContainerBar = std::move(bar); }
    /// Kept for hosts; the screen makes neither.
    const platform::ViewPtr& instructionsBox() const { return _instructionsBox; }
    void setInstructionsBox(platform::ViewPtr box) { _instructionsBox = std::move(box); }
    const std::shared_ptr<platform::Label>& instructionsLabel() const { return _instructionsLabel; }
    void setInstructionsLabel(std::shared_ptr<platform::Label> label) {
        _instructionsLabel = std::move(label);
    }
    const std::shared_ptr<PulseAnimationView>& progressView();
    void setProgressView(std::shared_ptr<PulseAnimationView> view) {
        _progressView = std::move(view);
    }
    const std::shared_ptr<platform::ImageView>& watermarkImageView();
    void setWatermarkImageView(std::shared_ptr<platform::ImageView> view) {
        _watermarkImageView = std::move(view);
    }
    const platform::ImagePtr& watermarkImage() const { return _watermarkImage; }
    /// Shows image as the watermark; null, or the image already shown, is ignored.
    void setWatermarkImage(platform::ImagePtr image);

    // Buttons: made on first read.
    const std::shared_ptr<platform::Button>& triggerButton();
    const std::shared_ptr<platform::Button>& torchButton();
    const std::shared_ptr<platform::Button>& cameraButton();
    const std::shared_ptr<platform::Button>& cancelButton();
    const std::shared_ptr<platform::Button>& helpButton();
    void setTriggerButton(std::shared_ptr<platform::Button> button);
    void setTorchButton(std::shared_ptr<platform::Button> button);
    void setCameraButton(std::shared_ptr<platform::Button> button);
    void setCancelButton(std::shared_ptr<platform::Button> button);
    void setHelpButton(std::shared_ptr<platform::Button> button);

    /// Pictures a build for a device without a camera may feed as frames;
    /// only stored.
    const platform::ImagePtr& simulatorBackCameraOutput() const {
        return _simulatorBackCameraOutput;
    }
    void setSimulatorBackCameraOutput(platform::ImagePtr image) {
        _simulatorBackCameraOutput = std::move(image);
    }
    const platform::ImagePtr& simulatorFrontCameraOutput() const {
        return _simulatorFrontCameraOutput;
    }
    void setSimulatorFrontCameraOutput(platform::ImagePtr image) {
        _simulatorFrontCameraOutput = std::move(image);
    }

    // --- Lifecycle ---------------------------------------------------------------------

    void viewDidLoad() override;
    void viewWillAppear(bool animated) override;
    void viewDidAppear(bool animated) override;
    void viewWillDisappear(bool animated) override;
    void viewDidDisappear(bool animated) override;
    void viewWillLayoutSubviews() override;
    bool prefersStatusBarHidden() const override { return true; }

    /// The framework bundle's image called name; null when there is none.
    platform::ImagePtr loadImage(const QString& name) const;

    /// Embeds the screen as a child of parent with frame, or docked at the
    /// bottom of parent (264 points high on a pad, 216 otherwise) when frame
    /// is empty or reaches past parent's bounds. Nothing happens for a null
    /// parent or one that holds the screen already.
    void overlayCameraFromViewController(const std::shared_ptr<platform::ViewController>& parent,
                                         const QRectF& frame);
    /// Takes the screen out of its parent, then calls completion (may be empty).
    void dismissCameraOverlayWithCompletion(const std::function<void()>& completion);

    // --- Camera events -----------------------------------------------------------------

    /// Stops the camera and blurs the picture.
    void freezeCamera();
    /// Starts the camera and takes the blur away.
    void resumeCamera();

    void cameraDidCaptureVideoSample(QXDCamera& camera, const QImage& image) override;
    void cameraDidCaptureStillImage(QXDCamera& camera, const QImage& image) override;
    void cameraDidFailWithError(QXDCamera& camera, const platform::ErrorPtr& error) override;

    // --- Controls ----------------------------------------------------------------------

    void triggerAction(platform::Control& sender);
    void torchAction(platform::Control& sender);
    void cameraAction(platform::Control& sender);
    void cancelAction();
    void helpAction();

    /// Marks the camera button for position, switches the torch off and
    /// makes position the initial one; it does not move the running camera.
    void changeCameraDevicePosition(long position);
    void toggleFlash();
    void toggleCamera();
    void toggleWatermark(bool hidden);
    void cameraSwitchButton(bool hidden);
    void cameraHelpButton(bool hidden);
    /// Enables or disables the trigger, torch and camera buttons.
    void enableToggleButtons(bool enabled);
    void toggleTriggerButtonHidden(bool hidden);
    /// Moves the trigger in or out, with a spring after delay seconds when
    /// animated, at once otherwise; replaces any change still pending.
    void toggleTriggerButton(bool hidden, bool animated, double delay);
    void toggleTriggerAfterDelay(double delay, bool fromViewDidLoad);
    void animateTriggerButtonHidden(bool hidden);
    void updateTriggerButtonConstraintsHidden(bool hidden);

    // --- Layout ------------------------------------------------------------------------

    void initCameraView();
    void defaultInterface();
    void initLayoutConstrains();
    void initTopContainerConstraints();
    void initBottomLayoutContainerConstraints();
    void initMiddleLayoutContainerConstraints();
    /// Turns the preview's connection to the status bar's orientation
    /// (portrait for any unknown one).
    void setCameraPreviewOrientation();
    /// Sizes the camera view and the preview to the root view.
    void layoutCameraViews();
    /// A new, never shown label with the framework's version.
    std::shared_ptr<platform::Label> versionLabel();
    void prepareDebugView() {}

    // --- Feedback ----------------------------------------------------------------------

    /// Focuses and exposes at a tap inside the preview's active area and
    /// shows the focus box there.
    void tapToFocus(platform::GestureRecognizer& recognizer);
    /// Moves layer to point without animation and runs the shrinking focus
    /// animation on it.
    void draw(const platform::LayerPtr& layer, const QPointF& point, bool remove);
    void animationDidStart(platform::Animation& animation) override;
    void animationDidStop(platform::Animation& animation, bool finished) override;
    /// Draws the outline through keyPoints (frame-image pixels) with the
    /// current transform.
    void drawPolygonAtKeyPoints(const QXDPolygonLayer::KeyPoints& keyPoints,
                                const QColor& lineColor);

    // --- Alerts ------------------------------------------------------------------------

    void registerForNotifications();
    void unregisterFromNotifications();
    void showAlertView(const platform::Notification& notification);
    /// Shows an alert (or updates the one standing) from a user-info
    /// dictionary, speaking it when asked and a screen reader runs.
    void showAlertViewWithInfo(const QVariantMap& info);
    void dismissAlertView();

    QString typeName() const override;

protected:
    QXDCameraController();

private:
    std::shared_ptr<QXDCameraController> self();
    std::weak_ptr<QXDCameraController> weakSelf();
    // A button whose touch-up-inside calls action for as long as this screen lives.
    std::shared_ptr<platform::Button> makeButton(
        const std::function<void(QXDCameraController&, platform::Control&)>& action);
    static bool isPhone();
    static bool isPad();

    std::weak_ptr<QXDCameraCaptureControllerDelegate> _delegate;
    double _triggerAppearDelay = 5.0;
    long _initialDevicePosition = 1;
    bool _allowsHighResolution = false;
    bool _drawsFeedback = false;
    std::atomic<bool> _isVisible{false};

    // Written on the video-data queue, read anywhere.
    mutable std::mutex _frameStateMutex;
    QTransform _transform;
    QString _currentPreset;
    // The root view's frame as of the last layout pass, for the video queue.
    QRectF _rootFrameForFrames;

    std::shared_ptr<platform::DispatchQueue> _cameraActionsQueue;
    std::shared_ptr<QXDCamera> _camera;
    std::shared_ptr<platform::VideoPreviewLayer> _cameraPreview;
    std::shared_ptr<QXDPolygonLayer> _polygonLayer;
    platform::LayerPtr _focusBox;
    std::shared_ptr<QXDAlertView> _alertView;
    std::shared_ptr<QXDCameraView> _cameraView;
    platform::ViewPtr _topContainerBar;
    platform::ViewPtr _middleContainerBar;
    platform::ViewPtr _bottomContainerBar;
    platform::ViewPtr _instructionsBox;
    std::shared_ptr<platform::Label> _instructionsLabel;
    std::shared_ptr<PulseAnimationView> _progressView;
    std::shared_ptr<platform::ImageView> _watermarkImageView;
    platform::ImagePtr _watermarkImage;
    std::shared_ptr<platform::Button> _cancelButton;
    std::shared_ptr<platform::Button> _triggerButton;
    std::shared_ptr<platform::Button> _helpButton;
    std::shared_ptr<platform::Button> _cameraButton;
    std::shared_ptr<platform::Button> _torchButton;
    platform::ImagePtr _simulatorBackCameraOutput;
    platform::ImagePtr _simulatorFrontCameraOutput;
};
