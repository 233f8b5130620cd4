// Layout passes over a view tree the size of the capture screen: a window, the
// screen's root view with the camera view and focus overlay, three bars and
// eight controls under about sixty constraints. A live host lays out before
// every paint, so a pass that finds nothing changed must cost next to nothing;
// a spring on one constraint constant (the trigger button sliding in) changes
// one constant a frame and must re-solve no slower than the solver changes a
// constant on its own (BM_LayoutChangeConstant, measured in the same run).
#include "Ratio.h"

#include "platform/ui/LayoutConstraint.h"
#include "platform/ui/View.h"
#include "platform/ui/Window.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

using platform::LayoutAttribute;
using platform::LayoutConstraint;
using platform::LayoutConstraintPtr;
using platform::LayoutRelation;
using platform::View;
using platform::ViewPtr;
using A = LayoutAttribute;

LayoutConstraintPtr pin(const ViewPtr& a, A attribute, const ViewPtr& b, A other,
                        double constant = 0) {
    return LayoutConstraint::create(a, attribute, LayoutRelation::Equal, b, other, 1.0, constant);
}

LayoutConstraintPtr size(const ViewPtr& a, A attribute, double value) {
    return LayoutConstraint::create(a, attribute, LayoutRelation::Equal, nullptr, A::NotAnAttribute,
                                    1.0, value);
}

ViewPtr constrained(const ViewPtr& superview) {
    auto view = View::create();
    view->setTranslatesAutoresizingMaskIntoConstraints(false);
    superview->addSubview(view);
    return view;
}

/// The capture screen's shape, laid out once.
struct Screen {
    Screen() {
        window = platform::Window::create(QRectF(0, 0, 375, 812));
        window->makeKeyAndVisible();
        root = View::create(window->bounds());
        window->addSubview(root);
        root->addSubview(View::create(root->bounds()));  // camera view
        root->addSubview(View::create(root->bounds()));  // focus overlay
        auto top = constrained(root);
        auto bottom = constrained(root);
        auto middle = constrained(root);
        auto camera = constrained(top);
        auto torch = constrained(top);
        auto progress = constrained(top);
        auto cancel = constrained(bottom);
        auto help = constrained(bottom);
        auto watermark = constrained(bottom);
        trigger = constrained(bottom);
        std::vector<LayoutConstraintPtr> rules = {
            pin(top, A::Leading, root, A::Leading),
            pin(top, A::Trailing, root, A::Trailing),
            pin(top, A::Top, root, A::Top),
            size(top, A::Height, 60),
            pin(bottom, A::Leading, root, A::Leading),
            pin(bottom, A::Trailing, root, A::Trailing),
            pin(bottom, A::Bottom, root, A::Bottom),
            size(bottom, A::Height, 140),
            pin(middle, A::Leading, root, A::Leading),
            pin(middle, A::Trailing, root, A::Trailing),
            pin(middle, A::Top, top, A::Bottom),
            pin(middle, A::Bottom, bottom, A::Top),
        };
        root->addConstraints(rules);
        top->addConstraints({
            pin(camera, A::Leading, top, A::Leading, 20),
            pin(camera, A::CenterY, top, A::CenterY),
            size(camera, A::Width, 44),
            size(camera, A::Height, 44),
            pin(torch, A::Trailing, top, A::Trailing, -20),
            pin(torch, A::CenterY, top, A::CenterY),
            size(torch, A::Width, 44),
            size(torch, A::Height, 44),
            pin(progress, A::CenterX, top, A::CenterX),
            pin(progress, A::CenterY, top, A::CenterY),
            size(progress, A::Width, 40),
            size(progress, A::Height, 40),
        });
        triggerOffset = pin(trigger, A::CenterY, cancel, A::CenterY, 120);
        bottom->addConstraints({
            pin(cancel, A::Leading, bottom, A::Leading, 20),
            pin(cancel, A::Bottom, bottom, A::Bottom, -20),
            size(cancel, A::Width, 80),
            size(cancel, A::Height, 30),
            pin(help, A::Trailing, bottom, A::Trailing, -20),
            pin(help, A::CenterY, cancel, A::CenterY),
            size(help, A::Width, 30),
            size(help, A::Height, 30),
            pin(watermark, A::CenterX, bottom, A::CenterX),
            pin(watermark, A::Top, bottom, A::Top, 8),
            size(watermark, A::Width, 120),
            size(watermark, A::Height, 40),
            pin(trigger, A::CenterX, bottom, A::CenterX),
            triggerOffset,
            size(trigger, A::Width, 78),
            size(trigger, A::Height, 78),
        });
        window->layoutIfNeededForHost();
    }

    std::shared_ptr<platform::Window> window;
    ViewPtr root;
    ViewPtr trigger;
    LayoutConstraintPtr triggerOffset;
};

void BM_LayoutPassNothingChanged(benchmark::State& state) {
    Screen screen;
    for (auto _ : state) {
        screen.window->layoutIfNeededForHost();
    }
}
BENCHMARK(BM_LayoutPassNothingChanged)->Unit(benchmark::kNanosecond);

// One frame of the trigger's spring: a new constant, then the host's pass.
void BM_LayoutPassOneConstant(benchmark::State& state) {
    Screen screen;
    double offset = 0;
    for (auto _ : state) {
        offset = offset >= 120 ? 0 : offset + 7.5;
        screen.triggerOffset->setConstant(offset);
        screen.window->layoutIfNeededForHost();
    }
    benchmark::DoNotOptimize(screen.trigger->frame());
}
BENCHMARK(BM_LayoutPassOneConstant)->Unit(benchmark::kMicrosecond);

// The solver on its own changing one constant of a system of this size, the
// reference its constant changes are held to, and the tree solved afresh (what
// every change of a constraint cost before passes were incremental).
const bool kGoals =
    bench::declareLimit("BM_LayoutPassNothingChanged", 1e-6) &&
    bench::declareRatio("BM_LayoutPassOneConstant", "BM_LayoutChangeConstant", 1.0) &&
    bench::declareRatio("BM_LayoutPassOneConstant", "BM_KiwiChangeConstant/manual_time", 1.0) &&
    bench::declareRatio("BM_LayoutPassOneConstant", "BM_LayoutSolveScreen", 1.0);

}  // namespace
