// Live frames, stills and errors from the engine to the host, the
// frame-to-view transform, and freezing the picture.

#include "CaptureScreenFixture.h"

#include "QXDCameraView.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/CaptureTypes.h"
#include "platform/foundation/Value.h"
#include "platform/graphics/AffineTransform.h"

namespace {

using qxdtest::CaptureScreenTest;

QImage frameOfSize(int width, int height) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::darkGray);
    return image;
}

void expectTransform(const QTransform& t, double a, double d, double tx, double ty) {
    EXPECT_DOUBLE_EQ(t.m11(), a);
    EXPECT_DOUBLE_EQ(t.m12(), 0.0);
    EXPECT_DOUBLE_EQ(t.m21(), 0.0);
    EXPECT_DOUBLE_EQ(t.m22(), d);
    EXPECT_DOUBLE_EQ(t.dx(), tx);
    EXPECT_DOUBLE_EQ(t.dy(), ty);
}

TEST_F(CaptureScreenTest, FramesReachTheHostOnTheVideoQueueOnlyWhileVisible) {
    make();
    controller->view();
    auto& engine = *controller->camera();

    // Not visible: the frame is dropped and nothing changes.
    controller->setTransform(platform::affine::makeScale(2, 2));
    controller->cameraDidCaptureVideoSample(engine, frameOfSize(640, 480));
    EXPECT_TRUE(host->framesSeen().empty());
    EXPECT_TRUE(controller->currentPreset().isNull());
    EXPECT_EQ(controller->transform(), platform::affine::makeScale(2, 2));

    // Shown: live frames of the virtual camera arrive on the engine's
    // video-data queue, the preset is remembered and the transform maps
    // the portrait frame onto the view.
    show({375, 667});
    ASSERT_TRUE(host->frameArrived.waitFor(kWait));
    const auto frames = host->framesSeen();
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames.front().queue, QString::fromUtf8(QXDCameraVideoDataOutputQueueLabel));
    EXPECT_EQ(frames.front().pixelSize, QSize(1080, 1920));
    EXPECT_EQ(frames.front().scale, 1.0);
    EXPECT_EQ(controller->currentPreset(), platform::session_preset::k1920x1080);
    const QTransform t = controller->transform();
    EXPECT_DOUBLE_EQ(t.m11(), 375.0 / 1080.0);
    EXPECT_DOUBLE_EQ(t.m22(), 667.0 / 1920.0) << "no negative residue here, so sy stays";
    EXPECT_DOUBLE_EQ(t.dx(), 0.0);
    EXPECT_DOUBLE_EQ(t.dy(), 0.0);

    // Gone: frames stop reaching the host.
    hide();
    EXPECT_FALSE(controller->isVisible());
    const auto seen = host->framesSeen().size();
    controller->cameraDidCaptureVideoSample(engine, frameOfSize(640, 480));
    EXPECT_EQ(host->framesSeen().size(), seen);
}

TEST_F(CaptureScreenTest, TransformFollowsTheViewTheFrameAndTheInterfaceOrientation) {
    show({375, 667});
    auto& engine = *controller->camera();
    const auto seenBefore = host->framesSeen().size();

    // A frame of the view's own size maps one to one.
    controller->cameraDidCaptureVideoSample(engine, frameOfSize(375, 667));
    expectTransform(controller->transform(), 1, 1, 0, 0);

    // Portrait 480x640 on 375x667: stretched unevenly, no offsets.
    controller->cameraDidCaptureVideoSample(engine, frameOfSize(480, 640));
    expectTransform(controller->transform(), 0.78125, 1.0421875, 0, 0);

    // Landscape: 640x480 on 667x375. The y offset is negative and kept.
    platform::Application::shared().setStatusBarOrientation(3);
    window->setFrame(QRectF(0, 0, 667, 375));
    window->layoutIfNeededForHost();
    ASSERT_EQ(controller->view()->frame().size(), QSizeF(667, 375));
    controller->cameraDidCaptureVideoSample(engine, frameOfSize(640, 480));
    expectTransform(controller->transform(), 1.0421875, 0.78125, -62.625, 83.5);
    EXPECT_EQ(platform::affine::apply(QPointF(640, 480), controller->transform()),
              QPointF(1.0421875 * 640 - 62.625, 0.78125 * 480 + 83.5));

    // The session's preset object is the one remembered.
    EXPECT_TRUE(platform::value::isSameObject(controller->currentPreset(), engine.sessionPreset()));
    EXPECT_GE(host->framesSeen().size(), seenBefore + 3);
}

TEST_F(CaptureScreenTest, StillsAndErrorsAreLoggedAndPassedOnUnchanged) {
    make();
    controller->view();
    auto& engine = *controller->camera();

    // A still, visible or not, is logged and handed over upright at scale 1.
    controller->cameraDidCaptureStillImage(engine, frameOfSize(40, 30));
    ASSERT_EQ(host->stillsSeen().size(), 1u);
    EXPECT_EQ(host->stillsSeen().front().image->size(), QSizeF(40, 30));
    EXPECT_EQ(host->stillsSeen().front().image->imageOrientation(), platform::ImageOrientation::Up);

    const auto error = platform::Error::withDescription(
        QXDCameraErrorDomain, 404, QStringLiteral("Torch mode is not supported."));
    controller->cameraDidFailWithError(engine, error);
    ASSERT_EQ(host->errorsSeen().size(), 1u);
    EXPECT_EQ(host->errorsSeen().front().error, error) << "the very same error object";

    // Without a host the lines are still written.
    controller->setDelegate({});
    controller->cameraDidCaptureStillImage(engine, frameOfSize(4, 3));
    controller->cameraDidFailWithError(engine, nullptr);
    EXPECT_EQ(log.messages().filter(QStringLiteral("Capture controller did")),
              QStringList({QStringLiteral("Capture controller did capture still image"),
                           QStringLiteral("Capture controller did fail with error: Torch mode is "
                                          "not supported."),
                           QStringLiteral("Capture controller did capture still image"),
                           QStringLiteral("Capture controller did fail with error: ")}));
    EXPECT_EQ(host->stillsSeen().size(), 1u);

    // A real still through the trigger reaches the host on the still queue.
    controller->setDelegate(host);
    show({375, 667});
    drainSession();
    while (host->stillArrived.waitFor(0)) {
    }
    controller->triggerAction(*controller->triggerButton());
    ASSERT_TRUE(host->stillArrived.waitFor(kWait));
    const auto stills = host->stillsSeen();
    ASSERT_EQ(stills.size(), 2u);
    EXPECT_EQ(stills.back().queue, QString::fromUtf8(QXDCameraStillImageOutputQueueLabel));
    EXPECT_TRUE(controller->triggerButton()->isSelected()) << "the trigger flips its selection";
}

TEST_F(CaptureScreenTest, FreezeStopsAndBlursResumeStartsAndClears) {
    show({375, 667});
    const auto& cameraView = controller->cameraView();
    controller->freezeCamera();
    EXPECT_FALSE(controller->camera()->running());
    ASSERT_NE(cameraView->blurView(), nullptr);
    controller->freezeCamera();
    EXPECT_EQ(cameraView->subviews().size(), 1u) << "one blur at a time";
    controller->resumeCamera();
    EXPECT_TRUE(controller->camera()->running());
    EXPECT_EQ(cameraView->blurView(), nullptr);

    // Hidden: the freeze still blurs.
    hide();
    controller->freezeCamera();
    EXPECT_NE(cameraView->blurView(), nullptr);
    EXPECT_FALSE(controller->camera()->running());
    controller->resumeCamera();
    EXPECT_EQ(cameraView->blurView(), nullptr);
    controller->camera()->stop();
}

}  // namespace
