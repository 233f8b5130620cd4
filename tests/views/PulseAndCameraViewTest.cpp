#include "PulseAnimationView.h"
#include "QXDCameraView.h"
#include "platform/foundation/RunLoop.h"
#include "platform/layers/Layer.h"
#include "platform/layers/Transaction.h"
#include "platform/ui/VisualEffectView.h"
#include "platform/ui/Window.h"

#include <QImage>

#include <gtest/gtest.h>

#include <cmath>

namespace {

using platform::RunLoop;

class PulseAnimationViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        pulse = PulseAnimationView::initWithRadius(80);
        pulse->setFrame(QRectF(0, 0, 100, 100));
    }
    void TearDown() override { RunLoop::main().useManualClock(); }

    double ringScale() const {
        return pulse->animationLayer()
            ->presentationState()
            .value(QStringLiteral("transform.scale.xy"))
            .toDouble();
    }
    double ringOpacity() const { return pulse->animationLayer()->presentationState().opacity; }

    std::shared_ptr<PulseAnimationView> pulse;
};

TEST_F(PulseAnimationViewTest, BuildsARingAndADotOnlyWhenStarted) {
    EXPECT_EQ(pulse->radius(), 80.0);
    EXPECT_EQ(pulse->animationLayer(), nullptr);
    EXPECT_TRUE(pulse->layer()->sublayers().empty());

    pulse->startAnimation();
    const auto ring = pulse->animationLayer();
    const auto dot = pulse->circleLayer();
    ASSERT_TRUE(ring && dot);
    EXPECT_EQ(pulse->layer()->sublayers(), (std::vector<platform::LayerPtr>{ring, dot}))
        << "the dot above the ring";
    EXPECT_EQ(ring->path().boundingRect(), QRectF(-40, -40, 80, 80));
    EXPECT_EQ(ring->strokeColor(), QColor(Qt::white));
    EXPECT_EQ(ring->lineWidth(), 1.0);
    EXPECT_EQ(ring->fillColor(), QColor(Qt::black)) << "the default fill is kept";
    EXPECT_EQ(dot->path().boundingRect(), QRectF(-5, -5, 10, 10));
    EXPECT_EQ(dot->fillColor(), QColor(Qt::white));
    EXPECT_EQ(ring->position(), QPointF(50, 50));
    EXPECT_EQ(dot->position(), QPointF(50, 50));

    const auto group = ring->animationForKey(QStringLiteral("frame"));
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->duration(), 1.0);
    EXPECT_TRUE(std::isinf(group->repeatCount()));
    EXPECT_FALSE(group->isRemovedOnCompletion());
}

TEST_F(PulseAnimationViewTest, TheRingGrowsAndFadesEverySecond) {
    pulse->startAnimation();
    for (int step = 1; step <= 9; ++step) {
        RunLoop::main().advance(0.1);
        const double t = step / 10.0;
        EXPECT_NEAR(ringScale(), t, 1e-9) << "at " << t;
        EXPECT_NEAR(ringScale() * 40.0, 40.0 * t, 1e-9) << "ring radius at " << t;
        EXPECT_NEAR(ringOpacity(), 0.8 * (1.0 - t), 1e-9) << "at " << t;
    }
    RunLoop::main().advance(0.35);
    EXPECT_NEAR(ringScale(), 0.25, 1e-9) << "the second pulse";
    EXPECT_NEAR(ringOpacity(), 0.6, 1e-9);
}

TEST_F(PulseAnimationViewTest, ASecondStartNeitherAddsLayersNorRestarts) {
    pulse->startAnimation();
    const auto ring = pulse->animationLayer();
    RunLoop::main().advance(0.5);
    pulse->startAnimation();
    EXPECT_EQ(pulse->animationLayer(), ring);
    EXPECT_EQ(pulse->layer()->sublayers().size(), 2u);
    RunLoop::main().advance(0.25);
    EXPECT_NEAR(ringScale(), 0.75, 1e-9);
}

TEST_F(PulseAnimationViewTest, StartedOnScreenTheRingAndDotAppearCentredWithAWhiteDot) {
    // The busy indicator as the capture screen shows it: a window that has
    // already been painted, then the pulse starts.
    const auto window = platform::Window::create(QRectF(0, 0, 200, 200));
    window->makeKeyAndVisible();
    pulse->setFrame(QRectF(50, 50, 100, 100));
    window->addSubview(pulse);
    window->snapshot();
    RunLoop::main().advance(0.5);

    pulse->startAnimation();
    const QImage first = window->snapshot();
    first.save(QStringLiteral("pulse-first-frame.png"));
    EXPECT_EQ(pulse->animationLayer()->presentationState().position, QPointF(50, 50));
    EXPECT_EQ(pulse->circleLayer()->presentationState().position, QPointF(50, 50));
    EXPECT_EQ(first.pixelColor(100, 100), QColor(Qt::white)) << "the dot, white at once";
    EXPECT_EQ(first.pixelColor(52, 52), QColor(Qt::black)) << "nothing at the view's corner";

    // Half a pulse on, the ring has grown to half its radius round the dot.
    RunLoop::main().advance(0.5);
    const QImage half = window->snapshot();
    half.save(QStringLiteral("pulse-half-way.png"));
    EXPECT_GT(qGray(half.pixel(120, 100)), 12) << "ring right of the centre";
    EXPECT_GT(qGray(half.pixel(80, 100)), 12) << "ring left of the centre";
    EXPECT_GT(qGray(half.pixel(100, 80)), 12) << "ring above the centre";
    EXPECT_EQ(half.pixelColor(110, 100), QColor(Qt::black)) << "between the dot and the ring";
}

class QXDCameraViewTest : public ::testing::Test {
protected:
    void SetUp() override { RunLoop::main().useManualClock(); }
    void TearDown() override { RunLoop::main().useManualClock(); }
};

TEST_F(QXDCameraViewTest, EveryLayerOfItsLayerCoversTheBounds) {
    const auto view = QXDCameraView::create(QRectF(0, 0, 200, 100));
    const auto preview = platform::Layer::create();
    const auto overlay = platform::Layer::create();
    view->layer()->addSublayer(preview);
    view->layer()->addSublayer(overlay);
    view->setFrame(QRectF(0, 0, 300, 150));
    view->layoutIfNeeded();
    EXPECT_EQ(preview->frame(), QRectF(0, 0, 300, 150));
    EXPECT_EQ(overlay->frame(), QRectF(0, 0, 300, 150));
    EXPECT_TRUE(view->prefersStatusBarHidden());
}

TEST_F(QXDCameraViewTest, OneBlurOverlayWithSiblingEffectViews) {
    const auto view = QXDCameraView::create(QRectF(10, 20, 200, 100));
    view->removeBlurEffect();
    EXPECT_EQ(view->blurView(), nullptr) << "removing nothing is a no-op";

    view->addBlurEffect();
    const auto first = view->blurView();
    view->addBlurEffect();
    const auto container = view->blurView();
    ASSERT_NE(container, nullptr);
    EXPECT_NE(container, first);
    EXPECT_EQ(first->superview(), nullptr);
    EXPECT_EQ(view->subviews(), std::vector<platform::ViewPtr>{container});
    EXPECT_EQ(container->frame(), QRectF(0, 0, 200, 100));
    EXPECT_EQ(container->autoresizingMask(), 63u);

    ASSERT_EQ(container->subviews().size(), 2u);
    const auto blur =
        std::dynamic_pointer_cast<platform::VisualEffectView>(container->subviews()[0]);
    const auto vibrancy =
        std::dynamic_pointer_cast<platform::VisualEffectView>(container->subviews()[1]);
    ASSERT_TRUE(blur && vibrancy);
    const auto blurEffect = std::dynamic_pointer_cast<const platform::BlurEffect>(blur->effect());
    ASSERT_NE(blurEffect, nullptr);
    EXPECT_EQ(blurEffect->style(), platform::BlurEffectStyle::Dark);
    EXPECT_NE(std::dynamic_pointer_cast<const platform::VibrancyEffect>(vibrancy->effect()),
              nullptr);
    // The camera view's frame, so offset by its origin inside the container.
    EXPECT_EQ(blur->frame(), QRectF(10, 20, 200, 100));
    EXPECT_EQ(vibrancy->frame(), QRectF(10, 20, 200, 100));
    EXPECT_EQ(blur->autoresizingMask(), 63u);
    EXPECT_EQ(vibrancy->autoresizingMask(), 63u);

    view->removeBlurEffect();
    EXPECT_EQ(view->blurView(), nullptr);
    EXPECT_TRUE(view->subviews().empty());
}

}  // namespace
