#include "platform/foundation/RunLoop.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/layers/Animation.h"
#include "platform/layers/Layer.h"
#include "platform/layers/Transaction.h"

#include <gtest/gtest.h>

#include <QPainter>

#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

namespace {

using namespace platform;

constexpr double kStart = 10.0;

RunLoop& loop() {
    return RunLoop::main();
}

// Events as "name@time", in the order they happened.
using EventLog = std::shared_ptr<std::vector<std::string>>;

void record(const EventLog& log, const std::string& name) {
    log->push_back(name + "@" + QString::number(loop().now()).toStdString());
}

class RecordingAnimationDelegate : public AnimationDelegate {
public:
    explicit RecordingAnimationDelegate(EventLog log, std::string name = "")
        : _log(std::move(log)), _name(std::move(name)) {}
    void animationDidStart(Animation&) override { record(_log, _name + "start"); }
    void animationDidStop(Animation&, bool finished) override {
        record(_log, _name + (finished ? "stop" : "cancel"));
    }

private:
    EventLog _log;
    std::string _name;
};

class ScriptedLayerDelegate : public LayerDelegate {
public:
    std::optional<std::shared_ptr<Animation>> action;
    bool declines = false;
    int draws = 0;
    int layouts = 0;

    bool declinesActions(const Layer&) const override { return declines; }
    void layoutSublayersOfLayer(Layer&) override { ++layouts; }

    std::optional<std::shared_ptr<Animation>> actionForLayer(Layer&, const QString&) override {
        return action;
    }
    void drawLayer(Layer&, QPainter& context) override {
        ++draws;
        context.fillRect(QRectF(10, 0, 10, 10), Qt::red);
    }
};

// Every test runs on a manual clock starting at kStart with an empty loop.
class LayersTest : public ::testing::Test {
protected:
    void SetUp() override { loop().useManualClock(kStart); }
    void TearDown() override { loop().useManualClock(0.0); }

    static std::shared_ptr<BasicAnimation> basic(const QString& keyPath, const QVariant& from,
                                                 const QVariant& to, double duration) {
        auto animation = BasicAnimation::create(keyPath);
        animation->setFromValue(from);
        animation->setToValue(to);
        animation->setDuration(duration);
        return animation;
    }

    // A basic animation whose delegate records into log, its events prefixed with name.
    std::shared_ptr<BasicAnimation> observed(const QString& keyPath, const QVariant& from,
                                             const QVariant& to, double duration,
                                             std::string name = "") {
        auto animation = basic(keyPath, from, to, duration);
        animation->setDelegate(std::make_shared<RecordingAnimationDelegate>(log, std::move(name)));
        return animation;
    }

    // A standalone layer changed without actions, so only explicit
    // animations run on it.
    static LayerPtr quietLayer() {
        Transaction::Scope scope(true);
        auto layer = Layer::create();
        layer->setBounds({0, 0, 100, 50});
        layer->setPosition({100, 100});
        return layer;
    }

    static double opacityAt(const Layer& layer, double elapsed) {
        return layer.presentationState(kStart + elapsed).opacity;
    }

    EventLog log = std::make_shared<std::vector<std::string>>();
};

// --- Key paths -------------------------------------------------------------------

using LayerKeyPathTest = LayersTest;

TEST_F(LayerKeyPathTest, GeometryTakesIntegerAndFloatingValuesAndWrongKindsAreIgnored) {
    auto layer = quietLayer();
    Transaction::Scope quiet(true);
    layer->setValueForKeyPath(QStringLiteral("position"), QPoint(7, 9));
    EXPECT_EQ(layer->position(), QPointF(7, 9));
    layer->setValueForKeyPath(QStringLiteral("bounds.size"), QSize(40, 30));
    EXPECT_EQ(layer->bounds().size(), QSizeF(40, 30));
    layer->setValueForKeyPath(QStringLiteral("bounds"), QRect(1, 2, 3, 4));
    EXPECT_EQ(layer->bounds(), QRectF(1, 2, 3, 4));
    layer->setValueForKeyPath(QStringLiteral("position.x"), 12);
    layer->setValueForKeyPath(QStringLiteral("opacity"), 0.5f);
    EXPECT_EQ(layer->position(), QPointF(12, 9));
    EXPECT_DOUBLE_EQ(layer->opacity(), 0.5);
    layer->setValueForKeyPath(QStringLiteral("hidden"), 1);
    EXPECT_TRUE(layer->isHidden()) << "a non-zero number reads as true";

    // Wrong kinds change nothing: a flag is no number, a size no point.
    layer->setValueForKeyPath(QStringLiteral("opacity"), true);
    layer->setValueForKeyPath(QStringLiteral("position"), QSizeF(1, 1));
    layer->setValueForKeyPath(QStringLiteral("backgroundColor"), QStringLiteral("red"));
    layer->setValueForKeyPath(QStringLiteral("no.such.path"), 3.0);
    EXPECT_DOUBLE_EQ(layer->opacity(), 0.5);
    EXPECT_EQ(layer->position(), QPointF(12, 9));
    EXPECT_FALSE(layer->backgroundColor().isValid());
    EXPECT_FALSE(layer->valueForKeyPath(QStringLiteral("no.such.path")).isValid());

    layer->setValueForKeyPath(QStringLiteral("transform.rotation.z"), std::numbers::pi / 2);
    layer->setValueForKeyPath(QStringLiteral("transform.scale"), 2);
    EXPECT_NEAR(layer->valueForKeyPath(QStringLiteral("transform.rotation")).toDouble(),
                std::numbers::pi / 2, 1e-9);
    EXPECT_NEAR(layer->valueForKeyPath(QStringLiteral("transform.scale.x")).toDouble(), 2.0, 1e-9);
}

TEST(InterpolationTest, MixedIntegerAndFloatingValuesBlendAndOtherPairsJumpToTheEnd) {
    EXPECT_DOUBLE_EQ(interpolate(0, 10.0, 0.25).toDouble(), 2.5);
    EXPECT_EQ(interpolate(QPoint(0, 0), QPointF(10, 20), 0.5).toPointF(), QPointF(5, 10));
    EXPECT_EQ(interpolate(QSize(10, 10), QSizeF(20, 30), 0.5).toSizeF(), QSizeF(15, 20));
    EXPECT_EQ(interpolate(QRect(0, 0, 10, 10), QRectF(10, 10, 20, 20), 0.5).toRectF(),
              QRectF(5, 5, 15, 15));
    const QColor half = interpolate(QColor(Qt::black), QColor(Qt::white), 0.5).value<QColor>();
    EXPECT_NEAR(half.redF(), 0.5, 0.01);

    // A flag does not fade, and neither do unlike kinds.
    EXPECT_EQ(interpolate(false, true, 0.5), QVariant(true));
    EXPECT_EQ(interpolate(QPointF(0, 0), QSizeF(4, 4), 0.5), QVariant(QSizeF(4, 4)));
    EXPECT_EQ(interpolate(1.0, QStringLiteral("2"), 0.5), QVariant(QStringLiteral("2")));
}

// --- Sampling ------------------------------------------------------------------

using LayerAnimationSamplingTest = LayersTest;

TEST_F(LayerAnimationSamplingTest, BasicAnimationRunsFromItsStartAndThenShowsTheModel) {
    auto layer = quietLayer();
    auto fade = basic("opacity", 1.0, 0.0, 2.0);
    layer->addAnimation(fade, "fade");

    EXPECT_DOUBLE_EQ(layer->animationForKey("fade")->beginTime(), kStart);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, -0.1), 1.0) << "not in effect before its start";
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.5), 0.75);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 1.5), 0.25);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 2.5), 1.0) << "the model once it has ended";

    fade->setToValue(0.5);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 1.0), 0.5) << "the layer runs its own copy";

    layer->addAnimation(basic("opacity", 0.0, 1.0, 0.0), "quarter");
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.125), 0.5) << "later ones win; 0 s means 0.25 s";
}

TEST_F(LayerAnimationSamplingTest, TimingFunctionsPaceProgress) {
    struct Case {
        TimingFunction function;
        double at25, at50, at75;
    };
    const Case cases[] = {{TimingFunction::Linear, 0.25, 0.5, 0.75},
                          {TimingFunction::EaseIn, 0.093465, 0.315357, 0.621862},
                          {TimingFunction::EaseOut, 0.378138, 0.684643, 0.906535},
                          {TimingFunction::EaseInEaseOut, 0.129162, 0.5, 0.870838},
                          {TimingFunction::Default, 0.408511, 0.802403, 0.960459}};
    for (const Case& c : cases) {
        auto layer = quietLayer();
        auto animation = basic("opacity", 0.0, 1.0, 1.0);
        animation->setTimingFunction(c.function);
        layer->addAnimation(animation, "a");
        EXPECT_NEAR(opacityAt(*layer, 0.25), c.at25, 1e-5) << static_cast<int>(c.function);
        EXPECT_NEAR(opacityAt(*layer, 0.5), c.at50, 1e-5) << static_cast<int>(c.function);
        EXPECT_NEAR(opacityAt(*layer, 0.75), c.at75, 1e-5) << static_cast<int>(c.function);
    }
}

TEST_F(LayerAnimationSamplingTest, RepeatsAndAutoreversesWithinTheActiveDuration) {
    auto layer = quietLayer();
    auto animation = basic("opacity", 0.0, 1.0, 1.0);
    animation->setRepeatCount(2.0f);
    animation->setAutoreverses(true);
    layer->addAnimation(animation, "a");

    EXPECT_DOUBLE_EQ(animation->activeDuration(), 4.0);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.25), 0.25);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 1.25), 0.75) << "on its way back";
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 2.25), 0.25) << "second repeat";
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 3.75), 0.25);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 4.5), 1.0);
}

TEST_F(LayerAnimationSamplingTest, KeyframesWithAKeyTimeBeyondOneNeverReachTheLastValue) {
    auto layer = quietLayer();
    auto sizes = KeyframeAnimation::create("bounds.size");
    sizes->setValues({QSizeF(120, 120), QSizeF(60, 60), QSizeF(60, 60)});
    sizes->setKeyTimes({0.0, 0.3, 1.2});
    sizes->setDuration(1.0);
    layer->addAnimation(sizes, "size");
    auto x = KeyframeAnimation::create("position.x");
    x->setValues({0.0, 30.0, 120.0});
    x->setKeyTimes({0.0, 0.3, 1.2});
    x->setDuration(1.0);
    x->setRemovedOnCompletion(false);
    layer->addAnimation(x, "x");

    const auto sizeAt = [&](double t) {
        return layer->presentationState(kStart + t).bounds.size();
    };
    const auto xAt = [&](double t) { return layer->presentationState(kStart + t).position.x(); };
    EXPECT_EQ(sizeAt(0.0), QSizeF(120, 120));
    EXPECT_EQ(sizeAt(0.15), QSizeF(90, 90));
    EXPECT_EQ(sizeAt(0.3), QSizeF(60, 60));
    EXPECT_EQ(sizeAt(0.6), QSizeF(60, 60));
    EXPECT_EQ(sizeAt(1.0), QSizeF(60, 60));
    EXPECT_EQ(sizeAt(1.5), QSizeF(100, 50)) << "removed on completion: the model";

    EXPECT_NEAR(xAt(0.15), 15.0, 1e-9);
    EXPECT_NEAR(xAt(0.6), 60.0, 1e-9);
    EXPECT_NEAR(xAt(1.0), 100.0, 1e-9) << "between the last two values at the end";
    EXPECT_NEAR(xAt(5.0), 100.0, 1e-9) << "kept at its end value";
}

TEST_F(LayerAnimationSamplingTest, InfiniteGroupRepeatsItsChildrenEveryPeriod) {
    auto layer = quietLayer();
    auto group = AnimationGroup::create();
    group->setAnimations(
        {basic("transform.scale.xy", 0.0, 1.0, 1.0), basic("opacity", 0.8, 0.0, 1.0)});
    group->setDuration(1.0);
    group->setRepeatCount(Animation::kRepeatForever);
    layer->addAnimation(group, "pulse");

    for (double period : {0.0, 1.0, 2.0, 7.0}) {
        for (double phase : {0.0, 0.25, 0.5, 0.75}) {
            const LayerState s = layer->presentationState(kStart + period + phase);
            EXPECT_NEAR(s.transform.m11(), phase, 1e-9) << period + phase;
            EXPECT_NEAR(s.transform.m22(), phase, 1e-9) << period + phase;
            EXPECT_NEAR(s.opacity, 0.8 * (1.0 - phase), 1e-9) << period + phase;
        }
    }
    EXPECT_TRUE(layer->hasActiveAnimations(kStart + 1000.0));
}

TEST_F(LayerAnimationSamplingTest, GroupChildrenRunOnGroupTimeClippedToTheGroup) {
    auto layer = quietLayer();
    auto late = basic("opacity", 0.0, 1.0, 0.5);
    late->setBeginTime(0.5);
    auto slow = basic("position.x", 0.0, 200.0, 2.0);
    auto group = AnimationGroup::create();
    group->setAnimations({late, slow});
    group->setDuration(1.0);
    group->setRepeatCount(2.0f);
    layer->addAnimation(group, "g");

    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.25), 1.0) << "the child starts half way through";
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.75), 0.5);
    EXPECT_DOUBLE_EQ(layer->presentationState(kStart + 0.75).position.x(), 75.0);
    EXPECT_DOUBLE_EQ(layer->presentationState(kStart + 1.25).position.x(), 25.0)
        << "the slow child restarts with the group";
    EXPECT_DOUBLE_EQ(layer->presentationState(kStart + 2.5).position.x(), 100.0);
}

// --- Springs -------------------------------------------------------------------------

std::shared_ptr<SpringAnimation> spring(double damping, double velocity = 0.0) {
    auto s = SpringAnimation::create("position.x");
    s->setMass(1.0);
    s->setStiffness(100.0);
    s->setDamping(damping);  // critical at 20
    s->setInitialVelocity(velocity);
    return s;
}

TEST(SpringAnimationTest, OverdampedSpringApproachesWithoutOvershoot) {
    const auto s = spring(40.0);
    double previous = s->springProgress(0.0);
    EXPECT_DOUBLE_EQ(previous, 0.0);
    for (double t = 0.01; t < 5.0; t += 0.01) {
        const double x = s->springProgress(t);
        EXPECT_GE(x, previous) << t;
        EXPECT_LE(x, 1.0) << t;
        previous = x;
    }
}

TEST(SpringAnimationTest, UnderdampedSpringOvershootsAndStartsWithItsVelocity) {
    const auto s = spring(5.0, 3.0);
    double peak = 0.0;
    for (double t = 0.0; t < 2.0; t += 0.005) {
        peak = std::max(peak, s->springProgress(t));
    }
    EXPECT_GT(peak, 1.3);
    EXPECT_NEAR(s->springProgress(1e-6) / 1e-6, 3.0, 1e-3);
}

TEST(SpringAnimationTest, StaysWithinATenthOfAPercentAfterSettling) {
    for (double damping : {5.0, 20.0, 60.0}) {
        const auto s = spring(damping, 2.0);
        const double settle = s->settlingDuration();
        ASSERT_GT(settle, 0.0) << damping;
        EXPECT_GT(std::abs(s->springProgress(settle - 0.01) - 1.0), 0.001) << damping;
        for (double t = settle; t < settle + 10.0; t += 0.001) {
            ASSERT_LE(std::abs(s->springProgress(t) - 1.0), 0.001 + 1e-12) << damping << " " << t;
        }
    }
}

// --- Delegate ----------------------------------------------------------------------

using LayerAnimationDelegateTest = LayersTest;

TEST_F(LayerAnimationDelegateTest, StartsOnTheNextTurnAndStopsFinishedAtTheEnd) {
    auto layer = quietLayer();
    auto animation = observed("opacity", 0.0, 1.0, 1.5);
    layer->addAnimation(animation, "a");
    EXPECT_TRUE(log->empty());

    loop().runPending();
    EXPECT_EQ(*log, (std::vector<std::string>{"start@10"}));
    loop().cancelPreviousPerformRequests(layer.get());
    loop().advance(5.0);
    EXPECT_EQ(*log, (std::vector<std::string>{"start@10", "stop@11.5"}));
    EXPECT_TRUE(layer->animationKeys().isEmpty()) << "removed on completion";
}

TEST_F(LayerAnimationDelegateTest, RemovalStopsUnfinishedOnceAndNeverBeforeTheStart) {
    auto layer = quietLayer();
    auto early = observed("opacity", 0.0, 1.0, 1.0, "early-");
    auto late = observed("position", QPointF(), QPointF(5, 5), 1.0, "late-");
    layer->addAnimation(early, "early");
    layer->removeAllAnimations();
    layer->addAnimation(late, "late");
    loop().advance(0.25);
    layer->removeAnimationForKey("late");
    loop().advance(5.0);
    EXPECT_EQ(*log, (std::vector<std::string>{"early-start@10", "early-cancel@10", "late-start@10",
                                              "late-cancel@10.25"}));
}

TEST_F(LayerAnimationDelegateTest, ReplacingUnderTheSameKeyStopsTheOldOne) {
    auto layer = quietLayer();
    auto first = observed("opacity", 0.0, 1.0, 1.0, "first-");
    auto second = observed("opacity", 0.0, 1.0, 1.0, "second-");
    layer->addAnimation(first, "a");
    loop().advance(0.5);
    layer->addAnimation(second, "a");
    loop().advance(5.0);
    EXPECT_EQ(*log, (std::vector<std::string>{"first-start@10", "first-cancel@10.5",
                                              "second-start@10.5", "second-stop@11.5"}));
    EXPECT_EQ(layer->animationKeys(), QStringList());
}

TEST_F(LayerAnimationDelegateTest, InfiniteAnimationsNeverStopByThemselves) {
    auto layer = quietLayer();
    auto animation = observed("opacity", 0.0, 1.0, 1.0);
    animation->setRepeatCount(Animation::kRepeatForever);
    layer->addAnimation(animation, "a");
    loop().advance(100.0);
    EXPECT_EQ(*log, (std::vector<std::string>{"start@10"}));
    EXPECT_EQ(layer->animationKeys(), QStringList{"a"});
    layer->removeAnimationForKey("a");
    loop().runPending();
    EXPECT_EQ(log->back(), "cancel@110");
}

TEST_F(LayerAnimationDelegateTest, NotRemovedOnCompletionKeepsItsFinalValue) {
    auto layer = quietLayer();
    auto animation = observed("opacity", 1.0, 0.2, 1.0);
    animation->setRemovedOnCompletion(false);
    layer->addAnimation(animation, "fade");
    loop().advance(3.0);

    EXPECT_EQ(*log, (std::vector<std::string>{"start@10", "stop@11"}));
    EXPECT_EQ(layer->animationKeys(), QStringList{"fade"});
    EXPECT_DOUBLE_EQ(layer->presentationState().opacity, 0.2);
    EXPECT_DOUBLE_EQ(layer->opacity(), 1.0) << "the model is untouched";
    EXPECT_FALSE(layer->hasActiveAnimations(loop().now()));
    layer->removeAnimationForKey("fade");
    loop().runPending();
    EXPECT_EQ(log->size(), 2u) << "a finished animation does not stop twice";
}

// --- Transactions and implicit actions ----------------------------------------------------

using LayerTransactionTest = LayersTest;

TEST_F(LayerTransactionTest, ChangingAStandaloneLayerAnimatesFromTheRenderedValue) {
    auto layer = quietLayer();
    layer->setOpacity(0.5);

    EXPECT_DOUBLE_EQ(layer->opacity(), 0.5) << "the model changes at once";
    auto implicit = std::dynamic_pointer_cast<BasicAnimation>(layer->animationForKey("opacity"));
    ASSERT_NE(implicit, nullptr);
    EXPECT_DOUBLE_EQ(implicit->fromValue().toDouble(), 1.0);
    EXPECT_DOUBLE_EQ(implicit->toValue().toDouble(), 0.5);
    EXPECT_DOUBLE_EQ(implicit->effectiveDuration(), 0.25);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.0), 1.0);
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 0.3), 0.5);

    loop().advance(0.125);
    const double rendered = layer->presentationState().opacity;
    layer->setOpacity(0.0);
    implicit = std::dynamic_pointer_cast<BasicAnimation>(layer->animationForKey("opacity"));
    ASSERT_NE(implicit, nullptr);
    EXPECT_DOUBLE_EQ(implicit->fromValue().toDouble(), rendered);
}

TEST_F(LayerTransactionTest, SetFrameAnimatesPositionAndBoundsForTheTransactionDuration) {
    auto layer = quietLayer();
    {
        Transaction::Scope scope;
        Transaction::setAnimationDuration(1.0);
        layer->setFrame({0, 0, 10, 10});
    }
    EXPECT_EQ(layer->animationKeys(), (QStringList{"position", "bounds"}));
    EXPECT_DOUBLE_EQ(layer->animationForKey("bounds")->effectiveDuration(), 1.0);
    EXPECT_DOUBLE_EQ(Transaction::animationDuration(), 0.25) << "restored after the commit";
}

TEST_F(LayerTransactionTest, DisabledActionsChangeOnlyTheModelAndNestedLevelsInheritIt) {
    auto layer = quietLayer();
    Transaction::begin();
    Transaction::setDisableActions(true);
    Transaction::begin();
    EXPECT_TRUE(Transaction::disableActions());
    layer->setPosition({0, 0});
    layer->setBackgroundColor(Qt::red);
    Transaction::commit();
    layer->setOpacity(0.1);
    Transaction::commit();

    EXPECT_TRUE(layer->animationKeys().isEmpty());
    EXPECT_EQ(layer->presentationState().position, QPointF(0, 0));
    EXPECT_FALSE(Transaction::disableActions());

    Transaction::begin();
    Transaction::begin();
    Transaction::setDisableActions(true);
    Transaction::commit();
    layer->setCornerRadius(4.0);
    Transaction::commit();
    EXPECT_EQ(layer->animationKeys(), QStringList{"cornerRadius"})
        << "a nested level's setting ends with it";
}

// Layout writes frames this way every frame of a constraint animation.
TEST_F(LayerTransactionTest, GeometryChangesWithoutActionsStillRelayoutAndRepaint) {
    auto layer = quietLayer();
    auto delegate = std::make_shared<ScriptedLayerDelegate>();
    delegate->declines = true;
    layer->setDelegate(delegate);
    layer->layoutIfNeeded();
    const int layoutsBefore = delegate->layouts;
    int repaints = 0;
    layer->setTreeChangedHandler([&repaints] { ++repaints; });

    layer->setPosition({10, 20});
    EXPECT_FALSE(layer->needsLayout()) << "a move does not resize";
    layer->setBounds({5, 5, 100, 50});
    EXPECT_FALSE(layer->needsLayout()) << "nor does a new origin";
    layer->setFrame({0, 0, 40, 30});
    EXPECT_TRUE(layer->needsLayout());
    EXPECT_EQ(repaints, 4);
    EXPECT_TRUE(layer->animationKeys().isEmpty());
    EXPECT_EQ(layer->presentationState().frame(), QRectF(0, 0, 40, 30));
    EXPECT_EQ(layer->bounds(), QRectF(5, 5, 40, 30));
    layer->layoutIfNeeded();
    EXPECT_EQ(delegate->layouts, layoutsBefore + 1);

    delegate->declines = false;
    layer->setPosition({60, 60});
    EXPECT_EQ(layer->animationKeys(), QStringList{"position"}) << "actions are back";
    EXPECT_EQ(layer->presentationState().position, QPointF(20, 15)) << "from where it was";
    layer->setTreeChangedHandler({});
}

TEST_F(LayerTransactionTest, DelegateDecidesTheAction) {
    auto layer = quietLayer();
    auto delegate = std::make_shared<ScriptedLayerDelegate>();
    layer->setDelegate(delegate);

    delegate->action = std::shared_ptr<Animation>();
    layer->setOpacity(0.5);
    EXPECT_TRUE(layer->animationKeys().isEmpty()) << "a null action";

    auto custom = BasicAnimation::create("opacity");
    custom->setDuration(2.0);
    delegate->action = custom;
    layer->setOpacity(0.0);
    auto added = std::dynamic_pointer_cast<BasicAnimation>(layer->animationForKey("opacity"));
    ASSERT_NE(added, nullptr);
    EXPECT_DOUBLE_EQ(added->fromValue().toDouble(), 0.5) << "from the rendered value";
    EXPECT_DOUBLE_EQ(opacityAt(*layer, 1.0), 0.25);
}

TEST_F(LayerTransactionTest, CompletionRunsOnceEveryAnimationOfTheTransactionHasStopped) {
    auto layer = quietLayer();
    {
        Transaction::Scope outer;
        Transaction::setCompletionBlock([this] { record(log, "done"); });
        auto animation = observed("opacity", 0.0, 1.0, 1.0);
        layer->addAnimation(animation, "a");
        Transaction::Scope inner;
        layer->addAnimation(basic("position", QPointF(), QPointF(5, 5), 2.0), "b");
    }
    loop().advance(1.5);
    EXPECT_EQ(*log, (std::vector<std::string>{"start@10", "stop@11"}));
    loop().advance(1.0);
    EXPECT_EQ(log->back(), "done@12");
}

TEST_F(LayerTransactionTest, CompletionFollowsAnEarlyRemovalOrTheNextTurn) {
    auto layer = quietLayer();
    {
        Transaction::Scope scope;
        Transaction::setCompletionBlock([this] { record(log, "removed"); });
        layer->addAnimation(basic("opacity", 0.0, 1.0, 5.0), "a");
    }
    {
        Transaction::Scope scope;
        Transaction::setCompletionBlock([this] { record(log, "empty"); });
    }
    EXPECT_TRUE(log->empty());
    loop().advance(0.5);
    EXPECT_EQ(*log, (std::vector<std::string>{"empty@10"}));
    layer->removeAnimationForKey("a");
    loop().runPending();
    EXPECT_EQ(*log, (std::vector<std::string>{"empty@10", "removed@10.5"}));
}

// --- Geometry ------------------------------------------------------------------------

using LayerGeometryTest = LayersTest;

TEST_F(LayerGeometryTest, DefaultsMatchThePlatform) {
    auto layer = Layer::create();
    EXPECT_EQ(layer->anchorPoint(), QPointF(0.5, 0.5));
    EXPECT_DOUBLE_EQ(layer->opacity(), 1.0);
    EXPECT_FALSE(layer->backgroundColor().isValid());
    auto shape = ShapeLayer::create();
    EXPECT_EQ(shape->fillColor(), QColor(Qt::black));
    EXPECT_FALSE(shape->strokeColor().isValid());
    EXPECT_DOUBLE_EQ(shape->lineWidth(), 1.0);
}

TEST_F(LayerGeometryTest, FramePlacesTheBoundsSizeAtThePositionByTheAnchor) {
    Transaction::Scope scope(true);
    auto layer = Layer::create();
    layer->setBounds({5, 5, 100, 50});
    layer->setPosition({100, 100});
    EXPECT_EQ(layer->frame(), QRectF(50, 75, 100, 50));
    layer->setAnchorPoint({0, 1});
    EXPECT_EQ(layer->frame(), QRectF(100, 50, 100, 50));

    layer->setFrame({10, 20, 30, 40});
    EXPECT_EQ(layer->bounds(), QRectF(5, 5, 30, 40)) << "the bounds origin stays";
    EXPECT_EQ(layer->position(), QPointF(10, 60));
    EXPECT_EQ(layer->frame(), QRectF(10, 20, 30, 40));
}

TEST_F(LayerGeometryTest, FrameGoesThroughTheTransformAboutTheAnchor) {
    Transaction::Scope scope(true);
    auto layer = Layer::create();
    layer->setBounds({0, 0, 100, 50});
    layer->setPosition({100, 100});
    layer->setAffineTransform(affine::makeRotation(std::numbers::pi / 2));
    const QRectF rotated = layer->frame();
    EXPECT_NEAR(rotated.x(), 75, 1e-9);
    EXPECT_NEAR(rotated.y(), 50, 1e-9);
    EXPECT_NEAR(rotated.width(), 50, 1e-9);
    EXPECT_NEAR(rotated.height(), 100, 1e-9);

    layer->setFrame({0, 0, 40, 20});
    EXPECT_EQ(layer->position(), QPointF(20, 10)) << "sets the untransformed frame";
    EXPECT_EQ(layer->bounds().size(), QSizeF(40, 20));
    EXPECT_NEAR(layer->frame().x(), 10, 1e-9);
    EXPECT_NEAR(layer->frame().height(), 40, 1e-9);

    layer->setAnchorPoint({0, 0});
    layer->setAffineTransform(affine::makeScale(2, 3));
    EXPECT_EQ(layer->frame(), QRectF(20, 10, 80, 60));
}

// --- Tree ----------------------------------------------------------------------------

using LayerTreeTest = LayersTest;

TEST_F(LayerTreeTest, InsertionsPlaceSublayersInOrder) {
    auto root = Layer::create();
    auto a = Layer::create(), b = Layer::create(), c = Layer::create();
    auto d = Layer::create(), e = Layer::create(), f = Layer::create();
    root->addSublayer(a);
    root->addSublayer(b);
    root->insertSublayer(c, 1);
    root->insertSublayerBelow(d, a.get());
    root->insertSublayerAbove(e, b.get());
    root->insertSublayer(f, 99);
    EXPECT_EQ(root->sublayers(), (std::vector<LayerPtr>{d, a, c, b, e, f}));
    EXPECT_EQ(c->superlayer(), root);

    root->addSublayer(root->sublayers().front());
    EXPECT_EQ(root->sublayers(), (std::vector<LayerPtr>{a, c, b, e, f, d})) << "moved to the top";
}

TEST_F(LayerTreeTest, AddingElsewhereReparentsAndTheSuperlayerIsWeak) {
    auto first = Layer::create(), second = Layer::create();
    auto child = Layer::create();
    first->addSublayer(child);
    second->addSublayer(child);
    EXPECT_TRUE(first->sublayers().empty());
    EXPECT_EQ(child->superlayer(), second);

    second->addSublayer(Layer::create());
    second->sublayers().back()->removeFromSuperlayer();
    EXPECT_EQ(second->sublayers().size(), 1u);

    child->addSublayer(second);
    EXPECT_TRUE(child->sublayers().empty()) << "a layer cannot go inside its own subtree";
    EXPECT_EQ(child->superlayer(), second);
    second.reset();
    EXPECT_EQ(child->superlayer(), nullptr);
}

TEST_F(LayerTreeTest, ChangesAnywhereInTheTreeReachTheRootsHandler) {
    Transaction::Scope scope(true);
    auto root = Layer::create(), child = Layer::create(), grandchild = Layer::create();
    int changes = 0;
    int childChanges = 0;
    root->setTreeChangedHandler([&changes] { ++changes; });
    child->setTreeChangedHandler([&childChanges] { ++childChanges; });
    root->addSublayer(child);
    child->addSublayer(grandchild);
    EXPECT_EQ(changes, 2);
    changes = 0;

    grandchild->setOpacity(0.5);
    grandchild->setNeedsDisplay();
    grandchild->addAnimation(basic("opacity", 0.0, 1.0, 1.0), "a");
    grandchild->removeAnimationForKey("a");
    EXPECT_EQ(changes, 4);
    EXPECT_EQ(childChanges, 0) << "only the root is told";

    grandchild->addAnimation(basic("opacity", 0.0, 1.0, 1.0), "fade");
    EXPECT_EQ(root->dump(),
              "Layer frame=(0, 0, 0, 0) opacity=1 hidden=no sublayers=1 animations=[]\n"
              "  Layer frame=(0, 0, 0, 0) opacity=1 hidden=no sublayers=1 animations=[]\n"
              "    Layer frame=(0, 0, 0, 0) opacity=0.5 hidden=no sublayers=0 "
              "animations=[fade]\n");
}

// --- Display -------------------------------------------------------------------------

using LayerDisplayTest = LayersTest;

TEST_F(LayerDisplayTest, DrawsTheDelegateIntoAScaledTransparentBackingStoreWhenNeeded) {
    Transaction::Scope scope(true);
    auto delegate = std::make_shared<ScriptedLayerDelegate>();
    auto plain = Layer::create();
    EXPECT_FALSE(plain->needsDisplay()) << "nothing to draw";
    auto layer = Layer::create();
    layer->setBounds({10, 0, 20, 10});
    layer->setContentsScale(2.0);
    layer->setDelegate(delegate);
    EXPECT_TRUE(layer->needsDisplay()) << "a new layer that draws";

    layer->displayIfNeeded();
    const QImage& store = layer->backingStore();
    ASSERT_EQ(store.size(), QSize(40, 20));
    EXPECT_EQ(store.format(), QImage::Format_ARGB32_Premultiplied);
    EXPECT_EQ(store.pixelColor(5, 5), QColor(Qt::red)) << "origin at the bounds origin";
    EXPECT_EQ(store.pixelColor(25, 5).alpha(), 0) << "in points, scaled";
    EXPECT_FALSE(layer->needsDisplay());

    layer->displayIfNeeded();
    EXPECT_EQ(delegate->draws, 1);
    layer->setNeedsDisplay();
    layer->displayIfNeeded();
    EXPECT_EQ(delegate->draws, 2);
}

}  // namespace
