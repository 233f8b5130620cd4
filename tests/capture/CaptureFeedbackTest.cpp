// Tap to focus and the document outline on the capture screen.

#include "CaptureScreenFixture.h"

#include "QXDCameraView.h"
#include "platform/capture/CaptureTypes.h"
#include "platform/graphics/AffineTransform.h"

namespace {

using qxdtest::CaptureScreenTest;

class CaptureFeedbackTest : public CaptureScreenTest {
protected:
    QString focusValue() { return controller->cameraView()->accessibilityValue(); }
    double boxOpacity() { return controller->focusBox()->presentationState().opacity; }
    QSizeF boxSize() { return controller->focusBox()->presentationState().bounds.size(); }
    QStringList focusLogs() { return log.messages().filter(QStringLiteral("point of interest")); }
};

TEST_F(CaptureFeedbackTest, TapFocusesAndExposesAndShowsTheShrinkingBox) {
    show({375, 667});
    drainSession();
    const auto& box = controller->focusBox();
    EXPECT_EQ(box->frame(), QRectF(0, 0, 60, 60));
    EXPECT_EQ(box->opacity(), 0.0);
    EXPECT_FALSE(box->contents().isNull()) << "the focus indicator image";

    // On the top bar: only the spoken value changes.
    log.clear();
    window->tap({100, 30});
    drainSession();
    EXPECT_EQ(focusValue(), QStringLiteral("Focus locked"));
    EXPECT_FALSE(box->animationKeys().contains(QStringLiteral("transform")));
    EXPECT_TRUE(focusLogs().isEmpty());

    // Inside the area: focus and exposure at the point (the preview starts
    // at the top, so the shift is 0), the box at the tap point.
    window->tap({100, 300});
    drainSession();
    EXPECT_EQ(focusLogs(),
              QStringList({QStringLiteral("Configure focus point of interest: x: 100.000000 y: "
                                          "300.000000"),
                           QStringLiteral("Configure exposure point of interest: x: 100.000000 "
                                          "y: 300.000000")}));
    EXPECT_EQ(device()->focusMode(), platform::focus_mode::kAutoFocus);
    EXPECT_EQ(device()->exposureMode(), platform::exposure_mode::kAutoExpose);
    EXPECT_EQ(box->position(), QPointF(100, 300));
    EXPECT_TRUE(box->animationKeys().contains(QStringLiteral("transform")));

    // The size runs 120 -> 60 over the first 0.3 s and stays; the box fades
    // in (the layer's own implicit fade) from the animation's start and out
    // with "Focus unlocked" at its end.
    platform::RunLoop::main().runPending();
    EXPECT_EQ(box->opacity(), 1.0);
    EXPECT_EQ(boxSize(), QSizeF(120, 120));
    advance(0.15);
    EXPECT_EQ(boxSize(), QSizeF(90, 90));
    advance(0.15);
    EXPECT_EQ(boxSize(), QSizeF(60, 60));
    EXPECT_EQ(boxOpacity(), 1.0);
    advance(0.3);
    EXPECT_EQ(boxSize(), QSizeF(60, 60));
    EXPECT_EQ(focusValue(), QStringLiteral("Focus locked"));
    advance(0.4);
    EXPECT_EQ(boxSize(), QSizeF(60, 60));
    EXPECT_FALSE(box->animationKeys().contains(QStringLiteral("transform")));
    EXPECT_EQ(focusValue(), QStringLiteral("Focus unlocked"));
    EXPECT_EQ(box->opacity(), 0.0);
    advance(0.3);
    EXPECT_EQ(boxOpacity(), 0.0);
}

TEST_F(CaptureFeedbackTest, ASecondTapEndsTheFirstAnimationUnfinished) {
    show({375, 667});
    window->tap({100, 300});
    advance(0.5);
    window->tap({200, 400});
    EXPECT_EQ(controller->focusBox()->position(), QPointF(200, 400));
    advance(0.6);
    // 1.1 s after the first tap: its animation was cut short and unlocked nothing.
    EXPECT_EQ(focusValue(), QStringLiteral("Focus locked"));
    EXPECT_EQ(boxOpacity(), 1.0);
    EXPECT_EQ(boxSize(), QSizeF(60, 60));
    advance(0.4);
    EXPECT_EQ(focusValue(), QStringLiteral("Focus unlocked"));

    // draw without removal leaves a running animation alone.
    window->tap({50, 100});
    controller->draw(controller->focusBox(), {300, 300}, false);
    EXPECT_EQ(controller->focusBox()->position(), QPointF(50, 100));
}

TEST_F(CaptureFeedbackTest, ACameraThatCannotFocusStillShowsTheBox) {
    auto fixed = platform::VirtualCameraConfiguration::back();
    fixed.capabilities.focusModes = {platform::focus_mode::kLocked};
    fixed.capabilities.focusPointOfInterest = false;
    fixed.capabilities.exposureModes = {platform::exposure_mode::kLocked};
    fixed.capabilities.exposurePointOfInterest = false;
    useCameras(fixed, platform::VirtualCameraConfiguration::front());
    show({375, 667});
    log.clear();
    window->tap({150, 250});
    drainSession();
    EXPECT_TRUE(focusLogs().isEmpty());
    EXPECT_EQ(device()->focusMode(), platform::focus_mode::kLocked);
    advance(0.3);
    EXPECT_EQ(boxOpacity(), 1.0);
    EXPECT_EQ(controller->focusBox()->position(), QPointF(150, 250));
    advance(0.7);
    EXPECT_EQ(focusValue(), QStringLiteral("Focus unlocked"));
}

TEST_F(CaptureFeedbackTest, OutlineIsDrawnWithTheCurrentTransformWhateverTheFlag) {
    show({375, 667});
    controller->setDrawsFeedback(false);
    const QTransform t = platform::affine::makeScale(0.5, 0.25);
    controller->setTransform(t);
    const std::vector<QPointF> corners{{10, 20}, {300, 20}, {300, 600}, {10, 600}};
    controller->drawPolygonAtKeyPoints(corners, Qt::green);
    const auto& polygon = *controller->polygonLayer();
    ASSERT_TRUE(polygon.keypoints().has_value());
    EXPECT_EQ(*polygon.keypoints(), corners);
    EXPECT_EQ(polygon.t(), t);
    EXPECT_EQ(polygon.lineColor(), QColor(Qt::green));

    // A later change of the screen's transform does not reach a drawn outline.
    controller->setTransform(QTransform());
    EXPECT_EQ(polygon.t(), t);
}

}  // namespace
