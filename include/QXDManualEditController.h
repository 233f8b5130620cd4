#pragma once

#include "QXDManualEditControllerDelegate.h"

#include "platform/graphics/Image.h"
#include "platform/ui/ViewController.h"

#include <QString>

#include <memory>

namespace platform {
class Button;
class ImageView;
}  // namespace platform

/// A full-screen screen on which the user turns one image upright in quarter
/// turns and then confirms or cancels it. Each turn is animated and then
/// baked into a new, upright image of scale 1, so the confirmed image is real
/// pixels rather than a view transform. While a turn runs the rotation
/// buttons are disabled, so turns never overlap. With a help message the
/// help alert is shown every time the screen appears.
///
/// The delegate is held strongly: the host breaks the cycle by clearing it
/// or releasing the controller. Main thread only.
class QXDManualEditController : public platform::ViewController {
public:
    /// helpMessage may be a null string: no help then.
    static std::shared_ptr<QXDManualEditController> initWithImage(platform::ImagePtr image,
                                                                  const QString& helpMessage);

    const std::shared_ptr<QXDManualEditControllerDelegate>& delegate() const { return _delegate; }
    void setDelegate(std::shared_ptr<QXDManualEditControllerDelegate> delegate) {
        _delegate = std::move(delegate);
    }
    const platform::ImagePtr& originalImage() const { return _originalImage; }
    const platform::ImagePtr& modifiedImage() const { return _modifiedImage; }
    void setModifiedImage(platform::ImagePtr image) { _modifiedImage = std::move(image); }
    const QString& helpMessage() const { return _helpMessage; }
    void setHelpMessage(const QString& message) { _helpMessage = message; }

    // Made on first read and kept; a host may replace them before the view loads.
    const std::shared_ptr<platform::ImageView>& imageView();
    const std::shared_ptr<platform::Button>& rotateLeftButton();
    const std::shared_ptr<platform::Button>& rotateRightButton();
    const std::shared_ptr<platform::Button>& showHelpButton();
    const std::shared_ptr<platform::Button>& cancelButton();
    const std::shared_ptr<platform::Button>& confirmButton();
    const std::shared_ptr<platform::ImageView>& watermarkImageView();
    void setImageView(std::shared_ptr<platform::ImageView> view);
    void setRotateLeftButton(std::shared_ptr<platform::Button> button);
    void setRotateRightButton(std::shared_ptr<platform::Button> button);
    void setShowHelpButton(std::shared_ptr<platform::Button> button);
    void setCancelButton(std::shared_ptr<platform::Button> button);
    void setConfirmButton(std::shared_ptr<platform::Button> button);
    void setWatermarkImageView(std::shared_ptr<platform::ImageView> view);

    void viewDidLoad() override;
    void viewDidAppear(bool animated) override;
    void viewWillLayoutSubviews() override;
    bool prefersStatusBarHidden() const override { return true; }

    /// The framework bundle's image called name.
    platform::ImagePtr loadImage(const QString& name) const;
    /// Adds the controls and the image to the root view.
    void defaultInterface();
    /// Presents the help message in an alert with one "OK" button.
    void showHelpMessage();
    /// Turns the image a quarter turn (clockwise for true), animated, then
    /// re-draws it upright and enables the rotation buttons again.
    void rotateImageView(bool clockwise);
    /// Enables or disables the two rotation buttons.
    void toggleButtons(bool enabled);

    // Button actions.
    void rotateLeftButtonTapped();
    void rotateRightButtonTapped();
    void helpMessageButtonTapped();
    void cancelButtonTapped();
    void confirmButtonTapped();

    QString typeName() const override;

protected:
    QXDManualEditController(platform::ImagePtr image, const QString& helpMessage);

private:
    using Action = void (QXDManualEditController::*)();
    // A button whose taps call action on this controller for as long as it lives.
    void connect(platform::Button& button, Action action);
    std::shared_ptr<platform::Button> makeTextButton(const QString& key, bool alignRight,
                                                     Action action, const QString& label,
                                                     const QString& hint);
    std::shared_ptr<platform::Button> makeImageButton(const QString& image, Action action,
                                                      const QString& label, const QString& hint);

    std::shared_ptr<QXDManualEditControllerDelegate> _delegate;
    platform::ImagePtr _originalImage;
    platform::ImagePtr _modifiedImage;
    QString _helpMessage;
    std::shared_ptr<platform::ImageView> _imageView;
    std::shared_ptr<platform::Button> _rotateLeftButton;
    std::shared_ptr<platform::Button> _rotateRightButton;
    std::shared_ptr<platform::Button> _showHelpButton;
    std::shared_ptr<platform::Button> _cancelButton;
    std::shared_ptr<platform::Button> _confirmButton;
    std::shared_ptr<platform::ImageView> _watermarkImageView;
};
