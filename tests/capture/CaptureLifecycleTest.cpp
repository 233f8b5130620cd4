// The capture screen's defaults, its engine, appearance and embedding.

#include "CaptureScreenFixture.h"

#include "PulseAnimationView.h"
#include "QXDAlertView.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/foundation/NotificationCenter.h"

#include <atomic>

namespace {

using qxdtest::CaptureScreenTest;

TEST_F(CaptureScreenTest, StartsWithTheDefaultsAndBuildsNothingUntilAsked) {
    make();
    EXPECT_EQ(controller->triggerAppearDelay(), 5.0);
    EXPECT_EQ(controller->initialDevicePosition(), 1);
    EXPECT_FALSE(controller->allowsHighResolution());
    EXPECT_FALSE(controller->drawsFeedback());
    EXPECT_FALSE(controller->isVisible());
    EXPECT_TRUE(controller->transform().isIdentity());
    EXPECT_TRUE(controller->currentPreset().isNull());
    EXPECT_FALSE(controller->isViewLoaded());
    EXPECT_EQ(controller->cameraView(), nullptr);
    EXPECT_EQ(controller->alertView(), nullptr);
    EXPECT_EQ(controller->watermarkImage(), nullptr);
    EXPECT_TRUE(controller->prefersStatusBarHidden());

    // 0 (unspecified) is stored as the back camera; an equal value changes nothing.
    controller->setInitialDevicePosition(2);
    controller->setInitialDevicePosition(0);
    EXPECT_EQ(controller->initialDevicePosition(), 1);

    // The preview fills its layer and is not tied to a session until the engine exists.
    EXPECT_EQ(controller->cameraPreview()->videoGravity(),
              platform::video_gravity::kResizeAspectFill);
    EXPECT_EQ(controller->cameraPreview()->session(), nullptr);
    EXPECT_EQ(controller->polygonLayer(), controller->polygonLayer());
    EXPECT_EQ(controller->loadImage(QStringLiteral("no such image")), nullptr);
    EXPECT_NE(controller->loadImage(QStringLiteral("Camera-Shutter")), nullptr);
}

TEST_F(CaptureScreenTest, MakesOneEngineOnceOnTheInitialCamera) {
    make();
    controller->setInitialDevicePosition(2);
    controller->setAllowsHighResolution(false);
    const auto engine = controller->camera();
    ASSERT_NE(engine, nullptr);
    EXPECT_EQ(controller->camera(), engine) << "read twice, made once";
    EXPECT_EQ(engine->devicePosition(), 2);
    ASSERT_NE(device(), nullptr);
    EXPECT_EQ(device()->position(), 2) << "the front camera, asked for before first use";
    EXPECT_EQ(engine->videoOrientation(), 1);
    EXPECT_EQ(controller->cameraPreview()->session(), engine->captureSession());
    EXPECT_EQ(engine->delegate().get(), static_cast<QXDCameraDelegate*>(controller.get()));

    // Configured at creation only: a later change of orientation stays.
    engine->setVideoOrientation(3);
    controller->camera();
    EXPECT_EQ(engine->videoOrientation(), 3);

    // Changing the initial position afterwards leaves the engine where it is.
    controller->setInitialDevicePosition(1);
    EXPECT_EQ(controller->camera()->devicePosition(), 2);
}

TEST_F(CaptureScreenTest, AppearanceDrivesTheEngineAndTheAlertObservation) {
    make();
    controller->view();
    EXPECT_FALSE(controller->camera()->running());
    auto& center = platform::NotificationCenter::defaultCenter();
    std::atomic<int> starts{0};
    std::atomic<int> stops{0};
    int key = 0;
    center.addObserver(&key, platform::kCaptureSessionDidStartRunningNotification, nullptr,
                       [&](const platform::Notification&) { ++starts; });
    center.addObserver(&key, platform::kCaptureSessionDidStopRunningNotification, nullptr,
                       [&](const platform::Notification&) { ++stops; });
    const auto observersBefore = center.observerCount();

    window = platform::Window::create(QRectF(0, 0, 375, 667));
    window->setRootViewController(controller);
    window->makeKeyAndVisible();
    // Will appear: the engine runs and alerts are observed, but frames are
    // not yet delivered.
    EXPECT_TRUE(controller->camera()->running());
    EXPECT_EQ(center.observerCount(), observersBefore + 1);
    EXPECT_FALSE(controller->isVisible());
    platform::RunLoop::main().runPending();
    EXPECT_TRUE(controller->isVisible());
    EXPECT_NE(controller->progressView()->animationLayer(), nullptr) << "the pulse runs";
    drainSession();
    EXPECT_TRUE(controller->camera()->captureSession()->isRunning());

    // An engine already running is not started again; one already stopped
    // is not stopped again.
    controller->viewWillAppear(false);
    controller->viewDidAppear(false);
    controller->camera()->stop();
    hide();
    EXPECT_FALSE(controller->camera()->running());
    EXPECT_FALSE(controller->isVisible());
    EXPECT_EQ(center.observerCount(), observersBefore);

    // Shown again: running and observing again.
    window->setRootViewController(controller);
    platform::RunLoop::main().runPending();
    EXPECT_TRUE(controller->camera()->running());
    EXPECT_TRUE(controller->isVisible());
    hide();
    drainSession();
    EXPECT_FALSE(controller->camera()->captureSession()->isRunning());
    EXPECT_EQ(starts.load(), 2) << "one start a showing";
    EXPECT_EQ(stops.load(), 2);
    center.removeObserver(&key);
}

TEST_F(CaptureScreenTest, EmbedsAsAnOverlayDockedAtTheBottomWhenTheFrameDoesNotFit) {
    struct Case {
        int idiom;
        QSizeF parentSize;
        QRectF requested;
        QRectF expected;
    };
    const std::vector<Case> cases = {
        // Empty frames dock at the bottom: taller on a pad.
        {platform::idiom::kPad, {1024, 768}, {}, {0, 504, 1024, 264}},
        {platform::idiom::kPhone, {375, 667}, {}, {0, 451, 375, 216}},
        {platform::idiom::kPhone, {375, 667}, {30, 40, 0, 0}, {0, 451, 375, 216}},
        // The right edge exactly at the width is accepted; a point wider is not.
        {platform::idiom::kPhone, {375, 667}, {75, 10, 300, 200}, {75, 10, 300, 200}},
        {platform::idiom::kPhone, {375, 667}, {76, 10, 300, 200}, {0, 451, 375, 216}},
        {platform::idiom::kPhone, {375, 667}, {0, 468, 375, 200}, {0, 451, 375, 216}},
        // Only the far edges count: a negative origin passes.
        {platform::idiom::kPhone, {375, 667}, {-20, -10, 100, 100}, {-20, -10, 100, 100}},
    };
    for (const auto& c : cases) {
        platform::Device::current().setUserInterfaceIdiom(c.idiom);
        auto parent = platform::ViewController::create();
        parent->view()->setFrame(QRectF(QPointF(0, 0), c.parentSize));
        make();
        controller->overlayCameraFromViewController(parent, c.requested);
        EXPECT_EQ(controller->view()->frame(), c.expected)
            << c.requested.x() << "," << c.requested.y();
        EXPECT_EQ(controller->view()->autoresizingMask(), 58u);
        EXPECT_EQ(controller->view()->superview(), parent->view());
        EXPECT_EQ(controller->parentViewController(), parent);
    }

    // Twice into the same parent embeds once; a null parent does nothing.
    auto parent = platform::ViewController::create();
    parent->view()->setFrame(QRectF(0, 0, 375, 667));
    make();
    controller->overlayCameraFromViewController(parent, QRectF(0, 0, 100, 100));
    controller->overlayCameraFromViewController(parent, QRectF(0, 0, 200, 200));
    EXPECT_EQ(parent->childViewControllers().size(), 1u);
    EXPECT_EQ(parent->view()->subviews().size(), 1u);
    EXPECT_EQ(controller->view()->frame(), QRectF(0, 0, 100, 100));
    controller->overlayCameraFromViewController(nullptr, QRectF());

    // Dismissal detaches and calls the completion once; without one it only detaches.
    int completions = 0;
    controller->dismissCameraOverlayWithCompletion([&] { ++completions; });
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(parent->childViewControllers().empty());
    EXPECT_EQ(controller->view()->superview(), nullptr);
    controller->overlayCameraFromViewController(parent, QRectF(0, 0, 100, 100));
    controller->dismissCameraOverlayWithCompletion(nullptr);
    EXPECT_TRUE(parent->childViewControllers().empty());
    EXPECT_EQ(controller->parentViewController(), nullptr);
}

}  // namespace
