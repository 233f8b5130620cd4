// The capture screen's view tree and where everything lands on a phone and
// on a pad.

#include "CaptureScreenFixture.h"

#include "PulseAnimationView.h"
#include "QXDCameraView.h"
#include "platform/capture/CaptureConnection.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/TapGestureRecognizer.h"

namespace {

using qxdtest::CaptureScreenTest;

TEST_F(CaptureScreenTest, ComposesTheTreeBackToFront) {
    show({375, 667});
    const auto& root = controller->view();
    EXPECT_EQ(root->backgroundColor(), QColor(Qt::black));
    const auto& views = root->subviews();
    ASSERT_EQ(views.size(), 5u);
    EXPECT_EQ(views[0], controller->cameraView());
    EXPECT_EQ(views[1]->layer()->sublayers(),
              std::vector<platform::LayerPtr>{controller->focusBox()});
    EXPECT_EQ(views[2], controller->topContainerBar());
    EXPECT_EQ(views[3], controller->bottomContainerBar());
    EXPECT_EQ(views[4], controller->middleContainerBar());

    const auto& cameraView = *controller->cameraView();
    EXPECT_TRUE(cameraView.layer()->masksToBounds());
    EXPECT_EQ(
        cameraView.layer()->sublayers(),
        (std::vector<platform::LayerPtr>{controller->cameraPreview(), controller->polygonLayer()}));
    EXPECT_EQ(cameraView.accessibilityLabel(), QStringLiteral("View finder"));
    EXPECT_EQ(cameraView.accessibilityHint(), QStringLiteral("Double tap to focus"));
    EXPECT_EQ(cameraView.accessibilityValue(), QStringLiteral("Focus unlocked"));

    EXPECT_EQ(controller->topContainerBar()->subviews(),
              (std::vector<platform::ViewPtr>{controller->cameraButton(), controller->torchButton(),
                                              controller->progressView()}));
    EXPECT_EQ(controller->bottomContainerBar()->subviews(),
              (std::vector<platform::ViewPtr>{controller->triggerButton(),
                                              controller->cancelButton(), controller->helpButton(),
                                              controller->watermarkImageView()}));
    EXPECT_TRUE(controller->middleContainerBar()->subviews().empty());
    for (const auto& bar : {controller->topContainerBar(), controller->bottomContainerBar(),
                            controller->middleContainerBar()}) {
        EXPECT_EQ(bar->backgroundColor().alpha(), 0);
    }

    ASSERT_EQ(root->gestureRecognizers().size(), 1u);
    const auto tap =
        std::dynamic_pointer_cast<platform::TapGestureRecognizer>(root->gestureRecognizers()[0]);
    ASSERT_NE(tap, nullptr);
    EXPECT_EQ(tap->numberOfTapsRequired(), 1);
    EXPECT_EQ(tap->numberOfTouchesRequired(), 1);
    EXPECT_FALSE(tap->delaysTouchesEnded());

    // The version label is made on request and never shown.
    const auto label = controller->versionLabel();
    EXPECT_EQ(label->text(), QStringLiteral("v1.0"));
    EXPECT_EQ(label->superview(), nullptr);
    EXPECT_NE(controller->versionLabel(), label);
}

TEST_F(CaptureScreenTest, PlacesBarsAndControlsOnAPhone) {
    show({375, 667});
    EXPECT_EQ(inWindow(*controller->topContainerBar()), QRectF(0, 0, 375, 44));
    EXPECT_EQ(inWindow(*controller->bottomContainerBar()), QRectF(0, 547, 375, 120));
    EXPECT_EQ(inWindow(*controller->middleContainerBar()), QRectF(275, 283.5, 100, 100));

    const QRectF torch = inWindow(*controller->torchButton());
    const auto torchImage = controller->loadImage(QStringLiteral("Camera-Flash-OFF"))->size();
    EXPECT_EQ(torch.left(), 0);
    EXPECT_EQ(torch.width(), 50);
    EXPECT_NEAR(torch.height(), 50 * torchImage.height() / torchImage.width(), 1e-9);
    EXPECT_DOUBLE_EQ(torch.center().y(), 22);
    const QRectF camera = inWindow(*controller->cameraButton());
    EXPECT_EQ(camera.right(), 375);
    EXPECT_EQ(camera.width(), 50);
    EXPECT_DOUBLE_EQ(camera.center().y(), 22);
    EXPECT_EQ(inWindow(*controller->progressView()), QRectF(180, 14.5, 15, 15));

    const QRectF cancel = inWindow(*controller->cancelButton());
    EXPECT_EQ(cancel.left(), 10);
    EXPECT_DOUBLE_EQ(cancel.bottom(), 667 - 30);
    const QRectF help = inWindow(*controller->helpButton());
    EXPECT_EQ(help.size(), QSizeF(40, 40));
    EXPECT_EQ(help.right(), 365);
    EXPECT_DOUBLE_EQ(help.center().y(), cancel.center().y());
    const QRectF watermark = inWindow(*controller->watermarkImageView());
    EXPECT_EQ(watermark.size(), QSizeF(100, 20));
    EXPECT_DOUBLE_EQ(watermark.center().x(), 187.5);
    EXPECT_DOUBLE_EQ(watermark.center().y(), cancel.center().y());
    const QRectF trigger = inWindow(*controller->triggerButton());
    EXPECT_EQ(trigger.size(), QSizeF(78, 78));
    EXPECT_DOUBLE_EQ(trigger.center().x(), 187.5);
    EXPECT_DOUBLE_EQ(trigger.center().y(), cancel.center().y() + 120);
    EXPECT_EQ(controller->triggerButton()->alpha(), 0.0);

    EXPECT_EQ(controller->cameraView()->frame(), QRectF(0, 0, 375, 667));
    EXPECT_EQ(controller->cameraPreview()->frame(), QRectF(0, 0, 375, 667));
}

TEST_F(CaptureScreenTest, PlacesTheTriggerInTheSideBarOnAPad) {
    platform::Device::current().setUserInterfaceIdiom(platform::idiom::kPad);
    show({1024, 768});
    EXPECT_EQ(inWindow(*controller->topContainerBar()), QRectF(0, 0, 1024, 44));
    EXPECT_EQ(inWindow(*controller->bottomContainerBar()), QRectF(0, 648, 1024, 120));
    EXPECT_EQ(inWindow(*controller->middleContainerBar()), QRectF(924, 334, 100, 100));
    EXPECT_EQ(controller->triggerButton()->superview(), controller->middleContainerBar());
    EXPECT_EQ(controller->bottomContainerBar()->subviews().size(), 3u);
    EXPECT_EQ(inWindow(*controller->triggerButton()), QRectF(974 + 100 - 39, 384 - 39, 78, 78));
    EXPECT_EQ(controller->triggerButton()->alpha(), 0.0);
    EXPECT_EQ(inWindow(*controller->progressView()), QRectF(504.5, 14.5, 15, 15));
    const QRectF cancel = inWindow(*controller->cancelButton());
    EXPECT_DOUBLE_EQ(inWindow(*controller->watermarkImageView()).center().y(), cancel.center().y());
    EXPECT_EQ(inWindow(*controller->helpButton()).right(), 1014);
}

TEST_F(CaptureScreenTest, IdiomFollowsTheHostWindowUnlessTheHostSetsIt) {
    auto& device = platform::Device::current();
    device.resetUserInterfaceIdiom();
    device.setWindowSize({1024, 768});
    EXPECT_EQ(device.userInterfaceIdiom(), platform::idiom::kPad);
    show({1024, 768});
    EXPECT_EQ(controller->triggerButton()->superview(), controller->middleContainerBar());

    device.setWindowSize({400, 800});
    EXPECT_EQ(device.userInterfaceIdiom(), platform::idiom::kPhone);
    hide();
    make();
    show({400, 800});
    EXPECT_EQ(controller->triggerButton()->superview(), controller->bottomContainerBar());

    // A device that does not answer is treated as a phone; its overlay is short.
    device.setUserInterfaceIdiom(std::nullopt);
    EXPECT_FALSE(device.respondsToUserInterfaceIdiom());
    hide();
    make();
    show({1024, 768});
    EXPECT_EQ(controller->triggerButton()->superview(), controller->bottomContainerBar());
    device.setWindowSize({});
}

TEST_F(CaptureScreenTest, RotationResizesTheCameraViewButNotTheFocusOverlay) {
    show({375, 667});
    const auto connection = controller->cameraPreview()->connection();
    ASSERT_NE(connection, nullptr);

    // The preview follows the status bar on every layout pass; unknown
    // orientations read as portrait.
    for (const auto& [status, expected] :
         std::vector<std::pair<int, int>>{{3, 3}, {4, 4}, {2, 2}, {0, 1}, {5, 1}, {1, 1}}) {
        platform::Application::shared().setStatusBarOrientation(status);
        controller->view()->setNeedsLayout();
        window->layoutIfNeededForHost();
        EXPECT_EQ(connection->videoOrientation(), expected) << "status bar " << status;
    }

    platform::Application::shared().setStatusBarOrientation(3);
    window->setFrame(QRectF(0, 0, 667, 375));
    window->layoutIfNeededForHost();
    EXPECT_EQ(controller->cameraView()->frame(), QRectF(0, 0, 667, 375));
    EXPECT_EQ(controller->cameraPreview()->frame(), QRectF(0, 0, 667, 375));
    EXPECT_EQ(controller->view()->subviews()[1]->frame(), QRectF(0, 0, 375, 667));
    EXPECT_EQ(inWindow(*controller->topContainerBar()), QRectF(0, 0, 667, 44));
    EXPECT_EQ(inWindow(*controller->bottomContainerBar()), QRectF(0, 255, 667, 120));
    EXPECT_EQ(inWindow(*controller->middleContainerBar()), QRectF(567, 137.5, 100, 100));
}

TEST_F(CaptureScreenTest, WatermarkImageIsReplacedOnlyByAnotherImage) {
    show({375, 667});
    const auto& view = controller->watermarkImageView();
    const auto defaultImage = view->image();
    ASSERT_NE(defaultImage, nullptr) << "the framework's own watermark";
    EXPECT_EQ(view->contentMode(), platform::ContentMode::ScaleAspectFit);

    controller->setWatermarkImage(nullptr);
    EXPECT_EQ(view->image(), defaultImage);
    EXPECT_EQ(controller->watermarkImage(), nullptr);

    const auto mine = controller->loadImage(QStringLiteral("Camera-Switch"));
    controller->setWatermarkImage(mine);
    EXPECT_EQ(view->image(), mine);
    view->setImage(defaultImage);
    controller->setWatermarkImage(mine);
    EXPECT_EQ(view->image(), defaultImage) << "the image already stored is ignored";
}

}  // namespace
