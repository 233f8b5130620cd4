#include "platform/ui/ViewAnimation.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/Layer.h"
#include "platform/ui/View.h"

#include <cmath>
#include <vector>

namespace platform {
namespace {

// Completion bookkeeping shared by every animation a block made.
struct BlockState {
    std::function<void(bool)> completion;
    int pending = 0;
    bool finished = true;
    bool closed = false;

    void finishIfDone(const std::shared_ptr<BlockState>& self) {
        if (!closed || pending > 0 || !completion) {
            return;
        }
        auto done = std::move(completion);
        completion = nullptr;
        const bool result = finished;
        RunLoop::main().post([done = std::move(done), result] { done(result); });
        (void)self;
    }
};

class BlockAnimationDelegate : public AnimationDelegate {
public:
    explicit BlockAnimationDelegate(std::shared_ptr<BlockState> state) : _state(std::move(state)) {}

    void animationDidStop(Animation& /*animation*/, bool finished) override {
        _state->finished = _state->finished && finished;
        --_state->pending;
        _state->finishIfDone(_state);
    }

private:
    std::shared_ptr<BlockState> _state;
};

struct Frame {
    ViewAnimationBlock::Parameters parameters;
    std::shared_ptr<BlockState> state;
    bool disabled = false;
};

thread_local std::vector<Frame> tlsBlocks;

bool isAnimatableKey(const QString& key) {
    static const QStringList keys = {
        QStringLiteral("bounds"),          QStringLiteral("position"),
        QStringLiteral("opacity"),         QStringLiteral("transform"),
        QStringLiteral("backgroundColor"), QStringLiteral("cornerRadius"),
        QStringLiteral("anchorPoint"),
    };
    return keys.contains(key);
}

TimingFunction timingFor(unsigned options) {
    switch (options & (3u << 16)) {
        case animation_options::kCurveEaseIn:
            return TimingFunction::EaseIn;
        case animation_options::kCurveEaseOut:
            return TimingFunction::EaseOut;
        case animation_options::kCurveLinear:
            return TimingFunction::Linear;
        default:
            return TimingFunction::EaseInEaseOut;
    }
}

// A spring that settles within the block's duration: the natural frequency
// is chosen from the damping ratio so that the motion stays within 0.1% of
// its target after `duration` seconds.
std::shared_ptr<SpringAnimation> springFor(const QString& key,
                                           const ViewAnimationBlock::Parameters& p) {
    auto spring = SpringAnimation::create(key);
    const double duration = std::max(p.duration, 1e-3);
    const double zeta = std::max(p.dampingRatio, 1e-3);
    const double omega = zeta < 1.0 ? 6.9 / (zeta * duration) : 9.23 / duration;
    spring->setMass(1.0);
    spring->setStiffness(omega * omega);
    spring->setDamping(2.0 * zeta * omega);
    spring->setInitialVelocity(p.initialVelocity);
    return spring;
}

}  // namespace

void ViewAnimationBlock::run(const Parameters& parameters, const std::function<void()>& animations,
                             std::function<void(bool)> completion) {
    auto state = std::make_shared<BlockState>();
    state->completion = std::move(completion);
    tlsBlocks.push_back(Frame{parameters, state, false});
    if (animations) {
        animations();
    }
    tlsBlocks.pop_back();
    state->closed = true;
    state->finishIfDone(state);
}

void ViewAnimationBlock::runWithoutAnimation(const std::function<void()>& changes) {
    tlsBlocks.push_back(Frame{{}, nullptr, true});
    if (changes) {
        changes();
    }
    tlsBlocks.pop_back();
}

bool ViewAnimationBlock::isInsideBlock() {
    return !tlsBlocks.empty() && !tlsBlocks.back().disabled;
}

std::shared_ptr<Animation> ViewAnimationBlock::actionFor(Layer& /*layer*/, const QString& key,
                                                         const QVariant& from) {
    if (!isInsideBlock() || !isAnimatableKey(key)) {
        return nullptr;
    }
    Frame& frame = tlsBlocks.back();
    const Parameters& p = frame.parameters;
    std::shared_ptr<BasicAnimation> animation;
    if (p.spring) {
        animation = springFor(key, p);
    } else {
        animation = BasicAnimation::create(key);
        animation->setTimingFunction(timingFor(p.options));
    }
    animation->setFromValue(from);
    animation->setDuration(std::max(p.duration, 1e-6));
    if (p.delay > 0) {
        animation->setBeginTime(RunLoop::main().now() + p.delay);
        animation->setFillsBackwards(true);
    }
    // A block that changes a property already animating joins the running
    // animation instead of cancelling it: the earlier block still completes.
    animation->setLetsEarlierFinish(true);
    ++frame.state->pending;
    animation->setDelegate(std::make_shared<BlockAnimationDelegate>(frame.state));
    return animation;
}

}  // namespace platform
