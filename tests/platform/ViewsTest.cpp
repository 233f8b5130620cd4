#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/layers/Transaction.h"
#include "platform/layout/VisualFormat.h"
#include "platform/ui/Label.h"
#include "platform/ui/LayoutConstraint.h"
#include "platform/ui/View.h"
#include "platform/ui/Window.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using platform::LayoutAttribute;
using platform::LayoutConstraint;
using platform::LayoutRelation;
using platform::View;
using platform::ViewPtr;
using platform::Window;

constexpr LayoutRelation kEq = LayoutRelation::Equal;
constexpr LayoutAttribute kNone = LayoutAttribute::NotAnAttribute;

ViewPtr constrainedView(const ViewPtr& parent) {
    auto view = View::create();
    view->setTranslatesAutoresizingMaskIntoConstraints(false);
    parent->addSubview(view);
    return view;
}

std::shared_ptr<LayoutConstraint> pin(const ViewPtr& a, LayoutAttribute attribute, const ViewPtr& b,
                                      LayoutAttribute other, double constant = 0.0,
                                      LayoutRelation relation = kEq) {
    return LayoutConstraint::create(a, attribute, relation, b, other, 1.0, constant);
}

std::shared_ptr<LayoutConstraint> size(const ViewPtr& a, LayoutAttribute attribute, double value,
                                       LayoutRelation relation = kEq) {
    return LayoutConstraint::create(a, attribute, relation, nullptr, kNone, 1.0, value);
}

class ViewsTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        window = Window::create({0, 0, 375, 667});
        window->makeKeyAndVisible();
    }

    std::shared_ptr<Window> window;
};

TEST_F(ViewsTest, ScreenOfBarsAndButtonsLaysOutAsComputedByHand) {
    using A = LayoutAttribute;
    auto top = constrainedView(window);
    auto bottom = constrainedView(window);
    auto shutter = constrainedView(bottom);
    auto help = constrainedView(bottom);
    window->addConstraints({
        pin(top, A::Leading, window, A::Leading),
        pin(top, A::Trailing, window, A::Trailing),
        pin(top, A::Top, window, A::Top),
        size(top, A::Height, 60),
        pin(bottom, A::Leading, window, A::Leading),
        pin(bottom, A::Trailing, window, A::Trailing),
        pin(bottom, A::Bottom, window, A::Bottom),
        size(bottom, A::Height, 100),
    });
    bottom->addConstraints({
        pin(shutter, A::CenterX, bottom, A::CenterX),
        pin(shutter, A::CenterY, bottom, A::CenterY),
        size(shutter, A::Width, 66),
        pin(shutter, A::Height, shutter, A::Width),
        pin(help, A::Trailing, bottom, A::Trailing, -20),
        pin(help, A::CenterY, shutter, A::CenterY),
        size(help, A::Width, 32),
        size(help, A::Height, 32),
    });
    window->layoutIfNeeded();

    EXPECT_EQ(top->frame(), QRectF(0, 0, 375, 60));
    EXPECT_EQ(bottom->frame(), QRectF(0, 567, 375, 100));
    EXPECT_EQ(shutter->frame(), QRectF(154.5, 17, 66, 66)) << "centred in the bar";
    EXPECT_EQ(help->frame(), QRectF(323, 34, 32, 32));

    // A changed constant takes effect at the next pass.
    bottom->constraints()[4]->setConstant(-40);
    window->layoutIfNeeded();
    EXPECT_EQ(help->frame().x(), 303);

    // The window grows: the bars follow.
    window->setFrame({0, 0, 667, 375});
    window->layoutIfNeeded();
    EXPECT_EQ(bottom->frame(), QRectF(0, 275, 667, 100));
    EXPECT_EQ(shutter->frame().x(), (667 - 66) / 2.0);
}

TEST_F(ViewsTest, AHandSetFrameStaysUntilItsConstraintsOrItsSuperviewChange) {
    using A = LayoutAttribute;
    auto banner = constrainedView(window);
    auto icon = constrainedView(banner);
    auto spacing = pin(banner, A::Top, window, A::Top, 40);
    window->addConstraints({pin(banner, A::Leading, window, A::Leading, 20),
                            pin(banner, A::Trailing, window, A::Trailing, -20), spacing,
                            size(banner, A::Height, 60)});
    banner->addConstraints({pin(icon, A::Leading, banner, A::Leading, 8),
                            pin(icon, A::Top, banner, A::Top, 6), size(icon, A::Width, 24),
                            size(icon, A::Height, 24)});
    window->layoutIfNeeded();
    ASSERT_EQ(banner->frame(), QRectF(20, 40, 335, 60));

    // Moved by hand (as an animation block does): passes leave it there,
    // and its subviews keep their places inside it.
    banner->setFrame({0, -100, 375, 50});
    for (int pass = 0; pass < 3; ++pass) {
        window->layoutIfNeeded();
        window->snapshot();
    }
    EXPECT_EQ(banner->frame(), QRectF(0, -100, 375, 50));
    EXPECT_EQ(icon->frame(), QRectF(8, 6, 24, 24));

    // A constraint that moves it puts it back under the constraints' rule.
    spacing->setConstant(50);
    window->layoutIfNeeded();
    EXPECT_EQ(banner->frame(), QRectF(20, 50, 335, 60));

    // So does a new size of its superview, even one that leaves its
    // constrained place as it was.
    banner->setFrame({0, -100, 375, 50});
    window->layoutIfNeeded();
    EXPECT_EQ(banner->frame().y(), -100);
    window->setFrame({0, 0, 375, 700});
    window->layoutIfNeeded();
    EXPECT_EQ(banner->frame(), QRectF(20, 50, 335, 60));
    window->setFrame({0, 0, 667, 375});
    window->layoutIfNeeded();
    EXPECT_EQ(banner->frame(), QRectF(20, 50, 627, 60));
}

TEST_F(ViewsTest, PrioritiesDecideConflictsAndIntrinsicSizesHugAndResist) {
    using A = LayoutAttribute;
    auto box = constrainedView(window);
    window->addConstraints({pin(box, A::Left, window, A::Left, 10),
                            pin(box, A::Top, window, A::Top, 10), size(box, A::Height, 20)});
    auto preferred = size(box, A::Width, 100);
    preferred->setPriority(750);
    auto weak = size(box, A::Width, 50);
    weak->setPriority(250);
    window->addConstraints({preferred, weak});
    window->layoutIfNeeded();
    EXPECT_EQ(box->frame().width(), 100) << "750 beats 250";

    window->addConstraint(size(box, A::Width, 80, LayoutRelation::LessThanOrEqual));
    window->layoutIfNeeded();
    EXPECT_EQ(box->frame().width(), 80) << "a required limit beats 750";
}

TEST_F(ViewsTest, ConstraintsComeAndGoWithActivationAndWithTheirViews) {
    using A = LayoutAttribute;
    auto bar = View::create({0, 0, 375, 100});
    window->addSubview(bar);
    auto left = constrainedView(bar);
    auto right = constrainedView(bar);
    const auto leftEdge = pin(left, A::Leading, bar, A::Leading, 10);
    const auto spacing = pin(right, A::Leading, left, A::Trailing, 8);
    LayoutConstraint::activateConstraints(
        {leftEdge, spacing, size(left, A::Width, 50), size(right, A::Width, 40),
         pin(left, A::Top, bar, A::Top), pin(right, A::Top, bar, A::Top), size(left, A::Height, 20),
         size(right, A::Height, 20)});
    EXPECT_EQ(spacing->owner(), bar) << "held by the nearest common ancestor";
    window->layoutIfNeeded();
    EXPECT_EQ(right->frame().x(), 68);

    // Off: the view keeps its last frame rather than jumping anywhere.
    spacing->setActive(false);
    EXPECT_FALSE(spacing->isActive());
    window->layoutIfNeeded();
    EXPECT_EQ(right->frame().x(), 68);
    spacing->setConstant(20);
    spacing->setActive(true);
    window->layoutIfNeeded();
    EXPECT_EQ(right->frame().x(), 80) << "back on, with its new constant";

    // A view that leaves takes the constraints that mention it along.
    left->removeFromSuperview();
    EXPECT_FALSE(spacing->isActive());
    EXPECT_FALSE(leftEdge->isActive());
    window->layoutIfNeeded();
    EXPECT_EQ(right->frame().x(), 80);

    // Items with no common ancestor cannot be activated.
    QStringList lines;
    platform::log::ScopedSink sink([&](const QString& line) { lines << line; });
    const auto stranded = pin(left, A::Width, right, A::Width);
    stranded->setActive(true);
    EXPECT_FALSE(stranded->isActive());
    EXPECT_EQ(lines.filter(QStringLiteral("no common ancestor")).size(), 1);
}

TEST_F(ViewsTest, ARequiredContradictionIsBrokenLoggedAndTheRestStillLaidOut) {
    using A = LayoutAttribute;
    auto box = constrainedView(window);
    auto other = constrainedView(window);
    QStringList lines;
    platform::log::ScopedSink sink([&](const QString& line) { lines << line; });
    window->addConstraints({pin(box, A::Left, window, A::Left), pin(box, A::Top, window, A::Top),
                            size(box, A::Height, 10), size(box, A::Width, 100),
                            size(box, A::Width, 200), pin(other, A::Left, box, A::Right, 5),
                            pin(other, A::Top, box, A::Bottom), size(other, A::Width, 30),
                            size(other, A::Height, 30)});
    window->layoutIfNeeded();
    EXPECT_EQ(lines.filter(QStringLiteral("Unable to simultaneously satisfy constraints")).size(),
              1);
    EXPECT_EQ(box->frame().width(), 100) << "the first required width holds";
    EXPECT_EQ(other->frame(), QRectF(105, 10, 30, 30)) << "the rest is laid out as usual";

    // Broken constraints are not retried on every pass.
    lines.clear();
    window->layoutIfNeeded();
    EXPECT_TRUE(lines.isEmpty());
}

TEST_F(ViewsTest, AViewSizedByItsContentIsLaidOutAgainWhenTheContentChanges) {
    using A = LayoutAttribute;
    auto label = platform::Label::create();
    label->setTranslatesAutoresizingMaskIntoConstraints(false);
    label->setText(QStringLiteral("Torch"));
    window->addSubview(label);
    auto badge = constrainedView(window);
    window->addConstraints(
        {pin(label, A::Left, window, A::Left, 10), pin(label, A::Top, window, A::Top, 10),
         pin(badge, A::Left, label, A::Right, 4), pin(badge, A::Top, label, A::Top),
         size(badge, A::Width, 8), size(badge, A::Height, 8)});
    window->layoutIfNeeded();
    const double shortWidth = label->frame().width();
    EXPECT_EQ(shortWidth, label->intrinsicContentSize().width());
    EXPECT_EQ(badge->frame().x(), 10 + shortWidth + 4);

    label->setText(QStringLiteral("Torch unavailable"));
    window->layoutIfNeeded();
    EXPECT_GT(label->frame().width(), shortWidth);
    EXPECT_EQ(label->frame().width(), label->intrinsicContentSize().width());
    EXPECT_EQ(badge->frame().x(), 10 + label->frame().width() + 4) << "its neighbour follows";
}

TEST_F(ViewsTest, VisualFormatsBuildConstraintsIncludingTheCentringTrick) {
    namespace fo = platform::format_options;
    auto container = View::create({0, 0, 200, 100});
    window->addSubview(container);
    auto label = constrainedView(container);
    const std::map<QString, ViewPtr> views{{"container", container}, {"label", label}};
    window->addConstraints(LayoutConstraint::constraintsWithVisualFormat(
        "H:[container]-(<=1)-[label(==50)]", fo::kAlignAllCenterY, {}, views));
    window->addConstraints(LayoutConstraint::constraintsWithVisualFormat(
        "V:[container]-(<=1)-[label(==20.000000)]", fo::kAlignAllCenterX, {}, views));

    auto banner = constrainedView(window);
    const std::map<QString, ViewPtr> named{{"banner", banner}};
    window->addConstraints(
        LayoutConstraint::constraintsWithVisualFormat("H:|-20-[banner]-20-|", 0, {}, named));
    window->addConstraints(
        LayoutConstraint::constraintsWithVisualFormat("V:|-40-[banner(==60)]", 0, {}, named));
    window->layoutIfNeeded();

    EXPECT_EQ(label->frame(), QRectF(75, 40, 50, 20)) << "centred in the container";
    EXPECT_EQ(banner->frame(), QRectF(20, 40, 335, 60));
    EXPECT_THROW(LayoutConstraint::constraintsWithVisualFormat("H:|-[banner", 0, {}, named),
                 platform::layout::VisualFormatError);
    EXPECT_THROW(LayoutConstraint::constraintsWithVisualFormat("H:|-[ghost]-|", 0, {}, named),
                 platform::layout::VisualFormatError);
}

TEST_F(ViewsTest, AutoresizingMasksFollowTheSuperview) {
    namespace ar = platform::autoresizing;
    auto container = View::create({0, 0, 200, 100});
    window->addSubview(container);
    auto stretch = View::create({10, 10, 180, 20});
    stretch->setAutoresizingMask(ar::kFlexibleWidth);
    auto docked = View::create({0, 80, 200, 20});
    docked->setAutoresizingMask(ar::kFlexibleTopMargin | ar::kFlexibleWidth);
    container->addSubview(stretch);
    container->addSubview(docked);

    container->setFrame({0, 0, 300, 150});
    EXPECT_EQ(stretch->frame(), QRectF(10, 10, 280, 20));
    EXPECT_EQ(docked->frame(), QRectF(0, 130, 300, 20)) << "stays docked at the bottom";
}

TEST_F(ViewsTest, AFrameSetAgainUnchangedAsksForNoFurtherLayoutPass) {
    // A superview that places its subview on every pass, as a screen does
    // with its camera view: once laid out, it stays laid out.
    struct Placing : View {
        explicit Placing(const QRectF& frame) : View(frame) {}
        ViewPtr child = View::create();
        int passes = 0;
        void layoutSubviews() override {
            ++passes;
            child->setFrame(bounds());
        }
    };
    auto parent = View::make<Placing>(QRectF(0, 0, 100, 50));
    parent->addSubview(parent->child);
    window->addSubview(parent);
    window->layoutIfNeededForHost();
    const int passes = parent->passes;
    EXPECT_GE(passes, 1);
    window->layoutIfNeededForHost();
    EXPECT_EQ(parent->passes, passes);
    EXPECT_FALSE(parent->needsLayout());

    parent->child->setFrame({0, 0, 10, 10});
    EXPECT_TRUE(parent->needsLayout()) << "a real change still asks";
    window->layoutIfNeededForHost();
    EXPECT_EQ(parent->child->frame(), QRectF(0, 0, 100, 50));
}

TEST_F(ViewsTest, BlockAnimationsCompleteWithFinishedFlags) {
    auto view = View::create({0, 0, 50, 50});
    window->addSubview(view);
    std::vector<bool> results;

    View::animate(
        0.3, [&] { view->setAlpha(0.0); }, [&](bool finished) { results.push_back(finished); });
    EXPECT_EQ(view->alpha(), 0.0) << "the model changes at once";
    platform::RunLoop::main().advance(0.15);
    EXPECT_NEAR(view->layer()->presentationState().opacity, 0.5, 0.1);
    EXPECT_TRUE(results.empty());
    platform::RunLoop::main().advance(0.2);
    ASSERT_EQ(results, std::vector<bool>{true});

    // A second block animating the same property joins the first: the view
    // heads for the new place from where it is, and both blocks finish.
    results.clear();
    View::animate(
        1.0,
        [&] {
            view->setCenter({200, 200});
        },
        [&](bool finished) { results.push_back(finished); });
    platform::RunLoop::main().advance(0.1);
    const QPointF reached = view->layer()->presentationState().position;
    View::animate(
        0.2,
        [&] {
            view->setCenter({10, 10});
        },
        [&](bool finished) { results.push_back(finished); });
    EXPECT_EQ(view->layer()->presentationState().position, reached) << "no jump";
    platform::RunLoop::main().advance(0.25);
    EXPECT_EQ(view->layer()->presentationState().position, QPointF(10, 10));
    EXPECT_EQ(results, std::vector<bool>{true});
    platform::RunLoop::main().advance(0.5);
    EXPECT_EQ(view->layer()->presentationState().position, QPointF(10, 10))
        << "the earlier block runs on unseen";
    platform::RunLoop::main().advance(0.5);
    EXPECT_EQ(results, (std::vector<bool>{true, true})) << "the earlier one ends finished";

    // Removing a block's animations explicitly interrupts it.
    results.clear();
    View::animate(
        1.0,
        [&] {
            view->setCenter({50, 50});
        },
        [&](bool finished) { results.push_back(finished); });
    platform::RunLoop::main().advance(0.1);
    view->layer()->removeAllAnimations();
    platform::RunLoop::main().runPending();
    EXPECT_EQ(results, std::vector<bool>{false});

    // A block that changes nothing still completes, on the next turn.
    results.clear();
    View::animate(
        0.3, [] {}, [&](bool finished) { results.push_back(finished); });
    EXPECT_TRUE(results.empty());
    platform::RunLoop::main().runPending();
    EXPECT_EQ(results, std::vector<bool>{true});
}

TEST_F(ViewsTest, SpringAnimatedConstraintConstantMovesTheView) {
    using A = LayoutAttribute;
    auto knob = constrainedView(window);
    auto left = pin(knob, A::Left, window, A::Left, 0);
    window->addConstraints({left, pin(knob, A::Top, window, A::Top, 100), size(knob, A::Width, 40),
                            size(knob, A::Height, 40)});
    window->layoutIfNeeded();
    ASSERT_EQ(knob->frame().x(), 0);

    bool done = false;
    left->setConstant(200);
    View::animateWithSpring(
        0.5, 0.0, 0.5, 0.0, 0, [&] { window->layoutIfNeeded(); },
        [&](bool finished) { done = finished; });
    EXPECT_EQ(knob->frame().x(), 200) << "the model frame is the solved one";

    auto shownX = [&] {
        const auto state = knob->layer()->presentationState();
        return state.position.x() - state.bounds.width() / 2;
    };
    platform::RunLoop::main().advance(0.05);
    const double early = shownX();
    EXPECT_GT(early, 0);
    EXPECT_LT(early, 200);
    double peak = early;
    for (int i = 0; i < 20; ++i) {
        platform::RunLoop::main().advance(0.02);
        peak = std::max(peak, shownX());
    }
    EXPECT_GT(peak, 200) << "an under-damped spring overshoots";
    platform::RunLoop::main().advance(1.0);
    EXPECT_NEAR(shownX(), 200, 0.5);
    EXPECT_TRUE(done);
}

TEST_F(ViewsTest, HitTestingAndPointConversionFollowTransforms) {
    auto panel = View::create({100, 100, 100, 50});
    window->addSubview(panel);
    auto child = View::create({10, 10, 20, 20});
    panel->addSubview(child);

    EXPECT_EQ(window->hitTest({115, 115}), child);
    EXPECT_EQ(window->hitTest({150, 140}), panel);
    EXPECT_EQ(window->hitTest({200, 120}), window) << "the far edge is outside the panel";
    child->setUserInteractionEnabled(false);
    EXPECT_EQ(window->hitTest({115, 115}), panel);

    panel->setTransform(QTransform(0, 1, -1, 0, 0, 0));  // a quarter turn about the centre
    const QPointF inWindow = panel->convertPointToView({0, 0}, nullptr);
    EXPECT_NEAR(inWindow.x(), 175, 1e-9);
    EXPECT_NEAR(inWindow.y(), 75, 1e-9);
    const QPointF back = panel->convertPointFromView(inWindow, nullptr);
    EXPECT_NEAR(back.x(), 0, 1e-9);
    EXPECT_NEAR(back.y(), 0, 1e-9);
}

}  // namespace
