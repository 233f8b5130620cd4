#include "QXDCameraCore.h"
#include "QXDManualEditController.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/AlertController.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Window.h"
#include "tests/common/FrameworkLog.h"

#include <QImage>

#include <gtest/gtest.h>

namespace {

using platform::RunLoop;

// Remembers what the screen told it.
class RecordingDelegate : public QXDManualEditControllerDelegate {
public:
    void controllerDidCancel(QXDManualEditController& /*controller*/) override { ++cancels; }
    void controllerDidConfirmEditedImage(QXDManualEditController& /*controller*/,
                                         const platform::ImagePtr& image) override {
        confirmed.push_back(image);
    }

    int cancels = 0;
    std::vector<platform::ImagePtr> confirmed;
};

// Every pixel tells where it is: red and green are x and y, blue their high bits.
QImage codedImage(int width, int height) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.setPixel(x, y, qRgb(x & 0xFF, y & 0xFF, ((x >> 8) << 4) | (y >> 8)));
        }
    }
    return image;
}

class QXDManualEditControllerTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        window = platform::Window::create({0, 0, 320, 480});
        source = codedImage(300, 200);
        image = platform::Image::withCGImage(source, 1.0);
    }
    void TearDown() override { RunLoop::main().useManualClock(); }

    // The screen on the window, appeared and laid out.
    std::shared_ptr<QXDManualEditController> show(const QString& help = QString()) {
        auto controller = QXDManualEditController::initWithImage(image, help);
        controller->setDelegate(delegate);
        window->setRootViewController(controller);
        window->makeKeyAndVisible();
        RunLoop::main().runPending();
        window->layoutIfNeededForHost();
        return controller;
    }
    void tap(const std::shared_ptr<platform::Button>& button) {
        window->tap(button->convertRectToView(button->bounds(), nullptr).center());
    }
    // One turn, tapped and animated to its end.
    void turn(QXDManualEditController& controller, bool right) {
        tap(right ? controller.rotateRightButton() : controller.rotateLeftButton());
        RunLoop::main().advance(0.3);
    }
    static QImage pixels(const platform::ImagePtr& image) {
        return image->cgImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    }

    std::shared_ptr<platform::Window> window;
    QImage source;
    platform::ImagePtr image;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(QXDManualEditControllerTest, LaysOutTheFixedScreen) {
    const auto controller = show();
    EXPECT_EQ(controller->view()->backgroundColor(), QColor(Qt::black));
    EXPECT_TRUE(controller->prefersStatusBarHidden());
    EXPECT_EQ(controller->showHelpButton()->frame(), QRectF(120, 0, 80, 30));
    EXPECT_EQ(controller->rotateLeftButton()->frame(), QRectF(30, 0, 80, 30));
    EXPECT_EQ(controller->rotateRightButton()->frame(), QRectF(210, 0, 80, 30));
    EXPECT_EQ(controller->cancelButton()->frame(), QRectF(10, 445, 80, 30));
    EXPECT_EQ(controller->confirmButton()->frame(), QRectF(230, 445, 80, 30));
    EXPECT_EQ(controller->watermarkImageView()->frame(), QRectF(110, 450, 100, 20));
    EXPECT_EQ(controller->imageView()->frame(), QRectF(0, 30, 320, 375));
    EXPECT_EQ(controller->view()->subviews().back(), controller->imageView());
    EXPECT_EQ(controller->imageView()->image(), image);
    EXPECT_EQ(controller->imageView()->contentMode(), platform::ContentMode::ScaleAspectFit);
}

TEST_F(QXDManualEditControllerTest, ButtonsHaveTheirTitlesImagesAndAccessibility) {
    const auto controller = show();
    const auto bundle = QXDCameraCore::bundle();
    const auto& cancel = controller->cancelButton();
    const auto& confirm = controller->confirmButton();
    EXPECT_EQ(cancel->titleForState(platform::control_state::kNormal),
              bundle->localizedString(QStringLiteral("button.cancel"), QString()));
    EXPECT_EQ(confirm->titleForState(platform::control_state::kNormal),
              bundle->localizedString(QStringLiteral("button.confirm"), QString()));
    EXPECT_EQ(cancel->titleLabel()->font(),
              platform::fontWithName(QStringLiteral("HelveticaNeue-Light"), 17.0));
    EXPECT_EQ(cancel->titleLabel()->textAlignment(), platform::TextAlignment::Left);
    EXPECT_EQ(confirm->titleLabel()->textAlignment(), platform::TextAlignment::Right);
    EXPECT_EQ(cancel->titleLabel()->textColor(), QColor(Qt::white));
    EXPECT_NE(controller->rotateLeftButton()->imageForState(platform::control_state::kNormal),
              nullptr);
    EXPECT_NE(controller->watermarkImageView()->image(), nullptr);

    const std::vector<std::tuple<std::shared_ptr<platform::Button>, QString, QString>> texts = {
        {cancel, "Cancel", "Dismisses the screen and goes back to the previous screen"},
        {confirm, "Confirm", "Confirms that you are satisfied and done editing the image"},
        {controller->rotateLeftButton(), "Rotate Left",
         "Rotates the image to the left by 90 degrees"},
        {controller->rotateRightButton(), "Rotate Right",
         "Rotates the image to the right by 90 degrees"},
    };
    for (const auto& [button, label, hint] : texts) {
        EXPECT_TRUE(button->isAccessibilityElement());
        EXPECT_EQ(button->accessibilityLabel(), label);
        EXPECT_EQ(button->accessibilityHint(), hint);
    }
}

TEST_F(QXDManualEditControllerTest, ARightTurnTakesTheLeftColumnBottomUpAsTheTopRow) {
    const auto controller = show();
    qxdtest::FrameworkLog log;
    tap(controller->rotateRightButton());
    EXPECT_FALSE(controller->rotateRightButton()->isEnabled());
    EXPECT_FALSE(controller->rotateLeftButton()->isEnabled());
    EXPECT_EQ(controller->modifiedImage(), image) << "not baked before the animation ends";

    RunLoop::main().advance(0.3);
    const auto turned = controller->modifiedImage();
    ASSERT_NE(turned, image);
    EXPECT_EQ(turned->size(), QSizeF(200, 300));
    EXPECT_EQ(turned->scale(), 1.0);
    EXPECT_EQ(turned->imageOrientation(), platform::ImageOrientation::Up);
    const QImage result = pixels(turned);
    for (int x = 0; x < 200; ++x) {
        ASSERT_EQ(result.pixel(x, 0), source.pixel(0, 199 - x)) << "top row at " << x;
    }
    for (int y = 0; y < 300; y += 7) {
        for (int x = 0; x < 200; x += 3) {
            ASSERT_EQ(result.pixel(x, y), source.pixel(y, 199 - x)) << x << ", " << y;
        }
    }
    EXPECT_EQ(controller->imageView()->image(), turned);
    EXPECT_TRUE(controller->imageView()->transform().isIdentity());
    EXPECT_TRUE(controller->rotateRightButton()->isEnabled());
    EXPECT_TRUE(controller->rotateLeftButton()->isEnabled());
    EXPECT_EQ(controller->originalImage(), image);
    EXPECT_EQ(log.messages(), QStringList{"right rotation button tapped"});
}

TEST_F(QXDManualEditControllerTest, ALeftTurnIsTheMirrorCase) {
    const auto controller = show();
    turn(*controller, false);
    const QImage result = pixels(controller->modifiedImage());
    ASSERT_EQ(result.size(), QSize(200, 300));
    for (int x = 0; x < 200; ++x) {
        ASSERT_EQ(result.pixel(x, 0), source.pixel(299, x)) << "top row at " << x;
    }
    EXPECT_EQ(result.pixel(0, 299), source.pixel(0, 0));
}

TEST_F(QXDManualEditControllerTest, FourTurnsGiveBackTheOriginalPixels) {
    const auto controller = show();
    for (int i = 0; i < 4; ++i) {
        turn(*controller, true);
    }
    EXPECT_EQ(pixels(controller->modifiedImage()), pixels(image));
    turn(*controller, false);
    turn(*controller, true);
    EXPECT_EQ(pixels(controller->modifiedImage()), pixels(image));
}

TEST_F(QXDManualEditControllerTest, ASecondTapDuringATurnHitsADisabledButton) {
    const auto controller = show();
    qxdtest::FrameworkLog log;
    tap(controller->rotateRightButton());
    RunLoop::main().advance(0.1);
    tap(controller->rotateRightButton());
    RunLoop::main().advance(1.0);
    EXPECT_EQ(controller->modifiedImage()->size(), QSizeF(200, 300)) << "one turn, not two";
    EXPECT_EQ(log.messages(), QStringList{"right rotation button tapped"});
}

TEST_F(QXDManualEditControllerTest, ConfirmAndCancelReachTheDelegate) {
    const auto controller = show();
    qxdtest::FrameworkLog log;
    tap(controller->confirmButton());
    ASSERT_EQ(delegate->confirmed.size(), 1u);
    EXPECT_EQ(delegate->confirmed[0], image) << "the very image given at creation";
    tap(controller->cancelButton());
    EXPECT_EQ(delegate->cancels, 1);
    EXPECT_EQ(controller->delegate(), delegate);

    controller->setDelegate(std::make_shared<QXDManualEditControllerDelegate>());
    tap(controller->confirmButton());
    tap(controller->cancelButton());
    EXPECT_EQ(
        log.messages(),
        (QStringList{"manual edit confirm button tapped", "manual edit cancel button tapped",
                     "manual edit confirm button tapped", "manual edit cancel button tapped"}));
}

TEST_F(QXDManualEditControllerTest, AMissingOrAnEmptyImageSurvivesTurnsConfirmAndCancel) {
    const platform::ImagePtr empty =
        std::make_shared<platform::Image>(QImage(), 1.0, platform::ImageOrientation::Up);
    for (const platform::ImagePtr& given : {platform::ImagePtr(), empty}) {
        SCOPED_TRACE(given ? "empty image" : "no image");
        delegate = std::make_shared<RecordingDelegate>();
        image = given;
        const auto controller = show();
        tap(controller->confirmButton());
        turn(*controller, true);
        EXPECT_EQ(controller->modifiedImage(), nullptr) << "no context, so no image";
        EXPECT_TRUE(controller->rotateLeftButton()->isEnabled()) << "the turn still ends";
        turn(*controller, false);
        tap(controller->confirmButton());
        tap(controller->cancelButton());
        ASSERT_EQ(delegate->confirmed.size(), 2u);
        EXPECT_EQ(delegate->confirmed[0], given) << "what it was given, before any turn";
        EXPECT_EQ(delegate->confirmed[1], nullptr);
        EXPECT_EQ(delegate->cancels, 1);
        EXPECT_EQ(controller->originalImage(), given);

        // The screen still draws: black where the image would be, controls below.
        const QImage screen = window->snapshot();
        screen.save(given ? QStringLiteral("edit-empty-image.png")
                          : QStringLiteral("edit-no-image.png"));
        EXPECT_EQ(screen.pixelColor(160, 200), QColor(Qt::black));
    }
}

TEST_F(QXDManualEditControllerTest, TheHelpAlertShowsAtEveryAppearance) {
    const QString help = QStringLiteral("Turn the page upright, then confirm.");
    const auto controller = show(help);
    auto alert =
        std::dynamic_pointer_cast<platform::AlertController>(controller->presentedViewController());
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->title(), help);
    EXPECT_TRUE(alert->message().isNull());
    EXPECT_EQ(alert->preferredStyle(), platform::AlertControllerStyle::Alert);
    ASSERT_EQ(alert->actions().size(), 1u);
    EXPECT_EQ(alert->actions()[0]->title(), QStringLiteral("OK"));
    EXPECT_EQ(alert->actions()[0]->style(), platform::AlertActionStyle::Default);
    EXPECT_NE(controller->showHelpButton()->imageForState(platform::control_state::kNormal),
              nullptr);
    EXPECT_EQ(controller->showHelpButton()->accessibilityLabel(), QStringLiteral("Help"));

    RunLoop::main().advance(1.0);
    controller->dismissViewControllerAnimated(false);
    RunLoop::main().advance(1.0);
    ASSERT_EQ(controller->presentedViewController(), nullptr);

    // Away and back again: the help comes back with the screen.
    window->setRootViewController(platform::ViewController::create());
    RunLoop::main().advance(1.0);
    window->setRootViewController(controller);
    RunLoop::main().advance(1.0);
    EXPECT_NE(
        std::dynamic_pointer_cast<platform::AlertController>(controller->presentedViewController()),
        nullptr);
}

TEST_F(QXDManualEditControllerTest, TheHelpComesBackWhenAModalOverTheScreenIsDismissed) {
    const auto controller = show(QStringLiteral("Turn the page upright."));
    RunLoop::main().advance(1.0);
    controller->dismissViewControllerAnimated(false);
    RunLoop::main().advance(1.0);
    ASSERT_EQ(controller->presentedViewController(), nullptr);

    // The host shows a full-screen screen of its own over the editor, then
    // takes it away again: the editor reappears and shows its help.
    QStringList lines;
    platform::log::ScopedSink sink([&](const QString& line) { lines << line; });
    const auto modal = platform::ViewController::create();
    controller->presentViewController(modal, true);
    RunLoop::main().advance(1.0);
    ASSERT_EQ(controller->presentedViewController(), modal);
    controller->dismissViewControllerAnimated(true);
    RunLoop::main().advance(1.0);
    EXPECT_NE(
        std::dynamic_pointer_cast<platform::AlertController>(controller->presentedViewController()),
        nullptr);
    EXPECT_EQ(lines.filter(QStringLiteral("in progress")), QStringList());
}

TEST_F(QXDManualEditControllerTest, WithoutHelpThereIsNoAlertAndAnInertHelpButton) {
    const auto controller = show();
    RunLoop::main().advance(1.0);
    EXPECT_EQ(controller->presentedViewController(), nullptr);
    const auto& help = controller->showHelpButton();
    EXPECT_EQ(help->imageForState(platform::control_state::kNormal), nullptr);
    EXPECT_EQ(help->allControlEvents(), 0u);
    EXPECT_FALSE(help->isAccessibilityElement());
}

}  // namespace
