// The capture screen's buttons, the host's switches and the trigger timing.

#include "CaptureScreenFixture.h"

#include "platform/capture/CaptureTypes.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"

#include <QFont>

#include <chrono>
#include <functional>
#include <thread>

namespace {

using platform::Button;
using qxdtest::CaptureScreenTest;

class CaptureControlsTest : public CaptureScreenTest {
protected:
    // Turns the main run loop until done() holds: the camera-actions queue
    // and the engine's session queue work on their own threads meanwhile.
    bool runUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            platform::RunLoop::main().runPending();
            std::this_thread::yield();
        }
        return true;
    }

    bool showsImage(const Button& button, const QString& name) const {
        const auto shown = button.imageForState(platform::control_state::kNormal);
        const auto expected = controller->loadImage(name);
        return shown && expected && shown->cgImage() == expected->cgImage();
    }

    // Where the trigger is drawn now, in window coordinates.
    QRectF triggerOnScreen() {
        const auto& trigger = controller->triggerButton();
        const QRectF frame = trigger->layer()->presentationState().frame();
        return trigger->superview()->convertRectToView(frame, nullptr);
    }
    double triggerAlphaOnScreen() {
        return controller->triggerButton()->layer()->presentationState().opacity;
    }
    QPointF cancelCentre() { return inWindow(*controller->cancelButton()).center(); }

    bool buttonsEnabled() {
        return controller->triggerButton()->isEnabled() && controller->torchButton()->isEnabled() &&
               controller->cameraButton()->isEnabled();
    }
};

TEST_F(CaptureControlsTest, EachButtonIsBuiltAsTabledAndActs) {
    show({375, 667});
    const auto& trigger = controller->triggerButton();
    const auto& torch = controller->torchButton();
    const auto& camera = controller->cameraButton();
    const auto& cancel = controller->cancelButton();
    const auto& help = controller->helpButton();
    for (const auto* button :
         {trigger.get(), torch.get(), camera.get(), cancel.get(), help.get()}) {
        EXPECT_EQ(button->buttonType(), platform::ButtonType::Custom);
        EXPECT_FALSE(button->translatesAutoresizingMaskIntoConstraints());
        EXPECT_TRUE(button->isAccessibilityElement());
        EXPECT_TRUE(button->isEnabled());
    }
    EXPECT_EQ(controller->triggerButton(), trigger) << "made once";

    EXPECT_TRUE(showsImage(*trigger, QStringLiteral("Camera-Shutter")));
    EXPECT_EQ(trigger->alpha(), 0.0);
    EXPECT_EQ(trigger->accessibilityLabel(), QStringLiteral("Take picture"));
    EXPECT_TRUE(trigger->accessibilityValue().isEmpty());
    EXPECT_TRUE(trigger->accessibilityHint().isEmpty());

    EXPECT_TRUE(showsImage(*torch, QStringLiteral("Camera-Flash-OFF")));
    EXPECT_EQ(torch->backgroundColor().alpha(), 0);
    EXPECT_EQ(torch->imageEdgeInsets(), (platform::EdgeInsets{12, 8, 12, 8}));
    EXPECT_EQ(torch->accessibilityLabel(), QStringLiteral("Flash"));
    EXPECT_EQ(torch->accessibilityValue(), QStringLiteral("Off"));
    EXPECT_EQ(torch->accessibilityHint(), QStringLiteral("Switch between flash modes"));

    EXPECT_TRUE(showsImage(*camera, QStringLiteral("Camera-Switch")));
    EXPECT_EQ(camera->imageEdgeInsets(), (platform::EdgeInsets{6, 6, 6, 6}));
    EXPECT_EQ(camera->accessibilityLabel(), QStringLiteral("Camera chooser"));
    EXPECT_EQ(camera->accessibilityValue(), QStringLiteral("Back facing"));
    EXPECT_EQ(camera->accessibilityHint(),
              QStringLiteral("Switches between the front and back facing cameras"));

    EXPECT_EQ(cancel->titleForState(platform::control_state::kNormal), QStringLiteral("Cancel"));
    EXPECT_EQ(cancel->imageForState(platform::control_state::kNormal), nullptr);
    const QFont font = cancel->titleLabel()->font();
    EXPECT_EQ(font.pixelSize(), 18);
    EXPECT_EQ(font.weight(), QFont::Thin);
    EXPECT_EQ(cancel->accessibilityLabel(), QStringLiteral("Cancel"));
    EXPECT_EQ(cancel->accessibilityHint(), QStringLiteral("Closes camera view"));

    EXPECT_TRUE(showsImage(*help, QStringLiteral("icon_help_ios")));
    EXPECT_EQ(help->accessibilityLabel(), QStringLiteral("Help"));
    EXPECT_EQ(help->accessibilityHint(), QStringLiteral("Opens help screen"));

    // Cancel and help log, then ask the host; the screen stays.
    log.clear();
    tap(*cancel);
    tap(*help);
    EXPECT_EQ(host->cancels, 1);
    EXPECT_EQ(host->helps, 1);
    EXPECT_EQ(log.messages(),
              QStringList({QStringLiteral("Capture controller did cancel"),
                           QStringLiteral("Capture controller should open help controller")}));
    EXPECT_EQ(controller->view()->window(), window);

    // The host's switches hide and show controls.
    controller->toggleWatermark(true);
    controller->cameraSwitchButton(true);
    controller->cameraHelpButton(true);
    EXPECT_TRUE(controller->watermarkImageView()->isHidden());
    EXPECT_TRUE(camera->isHidden());
    EXPECT_TRUE(help->isHidden());
    controller->cameraHelpButton(false);
    EXPECT_FALSE(help->isHidden());
}

TEST_F(CaptureControlsTest, TorchTogglesOnlyWhenTheCameraCanTakeTheMode) {
    show({375, 667});
    const auto& torch = controller->torchButton();
    tap(*torch);
    EXPECT_TRUE(torch->isSelected());
    EXPECT_TRUE(showsImage(*torch, QStringLiteral("Camera-Flash-ON")));
    EXPECT_EQ(torch->accessibilityValue(), QStringLiteral("On"));
    EXPECT_EQ(device()->torchMode(), platform::torch_mode::kOn);

    controller->toggleFlash();
    EXPECT_FALSE(torch->isSelected());
    EXPECT_TRUE(showsImage(*torch, QStringLiteral("Camera-Flash-OFF")));
    EXPECT_EQ(torch->accessibilityValue(), QStringLiteral("Off"));
    EXPECT_EQ(device()->torchMode(), platform::torch_mode::kOff);

    // Switching to the front camera through the host turns the torch off
    // first and records the new initial position without moving the camera.
    controller->toggleFlash();
    controller->changeCameraDevicePosition(2);
    EXPECT_FALSE(torch->isSelected());
    EXPECT_EQ(torch->accessibilityValue(), QStringLiteral("Off"));
    EXPECT_TRUE(controller->cameraButton()->isSelected());
    EXPECT_EQ(controller->initialDevicePosition(), 2);
    EXPECT_EQ(device()->position(), 1);
    EXPECT_EQ(device()->torchMode(), platform::torch_mode::kOff);

    // A camera without a torch: the tap changes nothing at all.
    auto noTorch = platform::VirtualCameraConfiguration::back();
    noTorch.capabilities.hasTorch = false;
    noTorch.capabilities.torchModes = {};
    noTorch.torchAvailable = false;
    useCameras(noTorch, platform::VirtualCameraConfiguration::front());
    hide();
    make();
    show({375, 667});
    log.clear();
    tap(*controller->torchButton());
    EXPECT_FALSE(controller->torchButton()->isSelected());
    EXPECT_TRUE(showsImage(*controller->torchButton(), QStringLiteral("Camera-Flash-OFF")));
    EXPECT_EQ(controller->torchButton()->accessibilityValue(), QStringLiteral("Off"));
}

TEST_F(CaptureControlsTest, CameraSwitchDisablesTheButtonsUntilTheEngineHasSwitched) {
    show({375, 667});
    drainSession();
    const auto& cameraButton = controller->cameraButton();

    log.clear();
    tap(*cameraButton);
    EXPECT_FALSE(controller->triggerButton()->isEnabled());
    EXPECT_FALSE(controller->torchButton()->isEnabled());
    EXPECT_FALSE(cameraButton->isEnabled());
    EXPECT_TRUE(controller->cancelButton()->isEnabled()) << "cancel and help stay usable";
    EXPECT_TRUE(cameraButton->isSelected());
    EXPECT_EQ(cameraButton->accessibilityValue(), QStringLiteral("Front facing"));
    EXPECT_TRUE(log.messages().contains(QStringLiteral("Changing camera position")));

    // The buttons come back only once the engine runs on the front camera.
    int positionWhenEnabled = 0;
    ASSERT_TRUE(runUntil([&] {
        if (buttonsEnabled()) {
            positionWhenEnabled = controller->camera()->deviceInput()->device()->position();
            return true;
        }
        return false;
    }));
    EXPECT_EQ(positionWhenEnabled, 2);
    EXPECT_EQ(controller->camera()->devicePosition(), 2);

    // A second tap returns to the initial camera.
    controller->toggleCamera();
    EXPECT_FALSE(buttonsEnabled());
    ASSERT_TRUE(runUntil([&] { return buttonsEnabled(); }));
    EXPECT_FALSE(cameraButton->isSelected());
    EXPECT_EQ(cameraButton->accessibilityValue(), QStringLiteral("Back facing"));
    EXPECT_EQ(device()->position(), 1);

    // With the front camera as the initial one, selected means the back one.
    controller->changeCameraDevicePosition(2);
    controller->cameraButton()->setSelected(false);
    tap(*cameraButton);
    ASSERT_TRUE(runUntil([&] { return buttonsEnabled(); }));
    EXPECT_EQ(cameraButton->accessibilityValue(), QStringLiteral("Back facing"));
    EXPECT_EQ(device()->position(), 1);
    tap(*cameraButton);
    ASSERT_TRUE(runUntil([&] { return buttonsEnabled(); }));
    EXPECT_EQ(cameraButton->accessibilityValue(), QStringLiteral("Front facing"));
    EXPECT_EQ(device()->position(), 2);
}

TEST_F(CaptureControlsTest, TriggerSpringsInFiveSecondsAfterEachAppearanceOnAPhone) {
    show({375, 667});
    EXPECT_TRUE(log.messages().contains(QStringLiteral(
        "Toggle trigger button to hidden state: 0 animated: 1 after delay: 5.000000")));
    const QPointF cancel = cancelCentre();
    EXPECT_EQ(triggerOnScreen().size(), QSizeF(78, 78));
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().y(), cancel.y() + 120);

    advance(4.99);
    EXPECT_EQ(triggerAlphaOnScreen(), 0.0) << "still waiting just before 5 s";
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().y(), cancel.y() + 120);

    advance(0.11);
    const double moving = triggerOnScreen().center().y();
    EXPECT_LT(moving, cancel.y() + 120) << "on its way up";
    EXPECT_GT(triggerAlphaOnScreen(), 0.0);

    advance(3);
    EXPECT_DOUBLE_EQ(triggerAlphaOnScreen(), 1.0);
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().y(), cancel.y());
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().x(), 375 / 2.0);
    // The watermark rises 78 points above the trigger but no higher than 10
    // points below the bar's top: the required spacing wins.
    EXPECT_DOUBLE_EQ(inWindow(*controller->watermarkImageView()).top(),
                     inWindow(*controller->bottomContainerBar()).top() + 10);

    // Hidden on a phone: down by the root view's maximum Y, at once.
    controller->toggleTriggerButton(true, false, 0);
    window->layoutIfNeededForHost();
    EXPECT_EQ(controller->triggerButton()->alpha(), 0.0);
    EXPECT_DOUBLE_EQ(inWindow(*controller->triggerButton()).center().y(), cancel.y() + 667);
    EXPECT_DOUBLE_EQ(inWindow(*controller->watermarkImageView()).center().y(), cancel.y());

    // A newer toggle cancels a pending one: shown again in 2 s, but hidden
    // once more before that.
    controller->toggleTriggerButton(false, true, 2);
    advance(1);
    controller->toggleTriggerButton(true, false, 0);
    advance(5);
    EXPECT_EQ(triggerAlphaOnScreen(), 0.0);
}

TEST_F(CaptureControlsTest, TriggerDelayZeroShowsAtLoadAndANegativeOneNever) {
    make();
    controller->setTriggerAppearDelay(0);
    show({375, 667});
    EXPECT_EQ(controller->triggerButton()->alpha(), 1.0);
    EXPECT_DOUBLE_EQ(inWindow(*controller->triggerButton()).center().y(), cancelCentre().y());

    hide();
    make();
    controller->setTriggerAppearDelay(-1);
    show({375, 667});
    advance(30);
    EXPECT_EQ(triggerAlphaOnScreen(), 0.0);
    EXPECT_FALSE(log.messages().join('\n').contains(QStringLiteral("after delay: -1")));
}

TEST_F(CaptureControlsTest, TriggerSlidesInFromTheRightOnAPad) {
    platform::Device::current().setUserInterfaceIdiom(platform::idiom::kPad);
    show({1024, 768});
    const auto& middle = controller->middleContainerBar();
    EXPECT_EQ(controller->triggerButton()->superview(), middle);
    const QPointF barCentre = inWindow(*middle).center();
    EXPECT_EQ(triggerOnScreen().size(), QSizeF(78, 78));
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().x(), barCentre.x() + 100);
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().y(), barCentre.y());

    advance(5.1);
    EXPECT_LT(triggerOnScreen().center().x(), barCentre.x() + 100);
    advance(3);
    EXPECT_DOUBLE_EQ(triggerOnScreen().center().x(), barCentre.x());
    EXPECT_DOUBLE_EQ(triggerAlphaOnScreen(), 1.0);

    // Hiding only moves the trigger's centre X back; the watermark stays.
    const QRectF watermark = inWindow(*controller->watermarkImageView());
    controller->toggleTriggerButton(true, false, 0);
    window->layoutIfNeededForHost();
    EXPECT_DOUBLE_EQ(inWindow(*controller->triggerButton()).center().x(), barCentre.x() + 100);
    EXPECT_EQ(inWindow(*controller->watermarkImageView()), watermark);
}

}  // namespace
