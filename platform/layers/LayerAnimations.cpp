// Animations added to a layer: started, replaced additively, finished and
// stopped early.

#include "platform/layers/Layer.h"

#include "platform/layers/LayerRunning.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/Transaction.h"
#include "platform/layers/TransactionTracking.h"

#include <algorithm>

namespace platform {

void Layer::addAnimation(const std::shared_ptr<Animation>& animation, const QString& key) {
    if (animation) {
        startAnimation(animation->clone(), key);
    }
}

void Layer::startAnimation(std::shared_ptr<Animation> animation, const QString& key) {
    RunLoop& loop = RunLoop::main();
    const double now = loop.now();
    if (animation->beginTime() == 0.0) {
        animation->setBeginTime(now);
    }
    const auto earlier = std::find_if(_animations.begin(), _animations.end(),
                                      [&key](const auto& e) { return e.first == key; });
    if (animation->letsEarlierFinish() && !key.isEmpty() && earlier != _animations.end()) {
        earlier->first.clear();
        earlier->second->superseded = true;
    } else {
        removeAnimationForKey(key);
    }

    auto running = std::make_shared<Running>();
    running->animation = animation;
    running->start = animation->beginTime();
    running->generation = ++_animationGeneration;
    running->membership = detail::joinOpenTransactions();
    _animations.emplace_back(key, running);

    if (const auto& delegate = animation->delegate()) {
        loop.post([animation, delegate] { delegate->animationDidStart(*animation); });
    }
    const double end = running->start + animation->activeDuration();
    if (std::isfinite(end)) {
        // Keyed by the running animation, so cancelling performs aimed at
        // the layer leaves it alone.
        loop.performAfterDelay(running.get(), end - now,
                               [weak = weak_from_this(), generation = running->generation] {
                                   if (const LayerPtr self = weak.lock()) {
                                       self->finishAnimation(generation);
                                   }
                               });
    }
    markChanged();
}

void Layer::finishAnimation(std::uint64_t generation) {
    const auto it =
        std::find_if(_animations.begin(), _animations.end(),
                     [generation](const auto& e) { return e.second->generation == generation; });
    if (it == _animations.end() || it->second->stopped) {
        return;
    }
    const std::shared_ptr<Running> running = it->second;
    running->stopped = true;
    if (running->animation->isRemovedOnCompletion()) {
        _animations.erase(it);
        markChanged();
    }
    if (const auto& delegate = running->animation->delegate()) {
        delegate->animationDidStop(*running->animation, true);
    }
    running->membership.reset();
}

void Layer::stopEarly(Running& running) {
    RunLoop& loop = RunLoop::main();
    loop.cancelPreviousPerformRequests(&running);
    if (running.stopped) {
        return;
    }
    running.stopped = true;
    if (const auto& delegate = running.animation->delegate()) {
        loop.post([animation = running.animation, delegate] {
            delegate->animationDidStop(*animation, false);
        });
    }
    running.membership.reset();
}

std::shared_ptr<Animation> Layer::animationForKey(const QString& key) const {
    if (key.isEmpty()) {
        return nullptr;
    }
    for (const auto& [k, running] : _animations) {
        if (k == key) {
            return running->animation;
        }
    }
    return nullptr;
}

QStringList Layer::animationKeys() const {
    QStringList keys;
    for (const auto& entry : _animations) {
        if (!entry.first.isEmpty()) {
            keys.append(entry.first);
        }
    }
    return keys;
}

void Layer::removeAnimationForKey(const QString& key) {
    if (key.isEmpty()) {
        return;
    }
    const auto it = std::find_if(_animations.begin(), _animations.end(),
                                 [&key](const auto& e) { return e.first == key; });
    if (it == _animations.end()) {
        return;
    }
    const std::shared_ptr<Running> running = it->second;
    _animations.erase(it);
    stopEarly(*running);
    markChanged();
}

void Layer::removeAllAnimations() {
    if (_animations.empty()) {
        return;
    }
    const auto removed = std::exchange(_animations, {});
    for (const auto& entry : removed) {
        stopEarly(*entry.second);
    }
    markChanged();
}

bool Layer::hasActiveAnimations(double time) const {
    return std::any_of(_animations.begin(), _animations.end(), [time](const auto& entry) {
        const Running& running = *entry.second;
        return !running.superseded && time <= running.start + running.animation->activeDuration();
    });
}

}  // namespace platform
