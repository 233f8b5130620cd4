#include "platform/ui/GestureRecognizer.h"

#include <algorithm>

namespace platform {

bool GestureRecognizer::isFinished() const {
    return _state == State::Ended || _state == State::Cancelled || _state == State::Failed;
}

void GestureRecognizer::setEnabled(bool enabled) {
    if (enabled == _enabled) {
        return;
    }
    if (!enabled && (_state == State::Began || _state == State::Changed)) {
        setState(State::Cancelled);
    }
    _enabled = enabled;
    reset();
}

void GestureRecognizer::addTarget(const void* key, Action action) {
    if (action) {
        _actions.emplace_back(key, std::move(action));
    }
}

void GestureRecognizer::removeTarget(const void* key) {
    std::erase_if(_actions, [key](const auto& entry) { return !key || entry.first == key; });
}

QPointF GestureRecognizer::locationInView(const View* view) const {
    return view == nullptr ? _centroidInWindow
                           : view->convertPointFromView(_centroidInWindow, nullptr);
}

void GestureRecognizer::setState(State state) {
    _state = state;
    if (state == State::Possible || state == State::Failed) {
        return;
    }
    // An action may detach or drop this recogniser, or change the targets.
    const auto self = weak_from_this().lock();
    const auto actions = _actions;
    for (const auto& [key, action] : actions) {
        action(*this);
    }
}

void GestureRecognizer::updateTouches(const std::vector<Touch>& touches) {
    const std::size_t count = std::min(touches.size(), _touches.size());
    std::copy_n(touches.begin(), count, _touches.begin());
    const std::vector<Touch>& current = _touches.empty() ? touches : _touches;
    if (current.empty()) {
        return;
    }
    QPointF sum;
    for (const Touch& touch : current) {
        sum += touch.locationInWindow;
    }
    _centroidInWindow = sum / static_cast<double>(current.size());
}

void GestureRecognizer::removeTouches(std::size_t count) {
    _touches.erase(_touches.begin(), _touches.begin() + static_cast<std::ptrdiff_t>(
                                                            std::min(count, _touches.size())));
}

void GestureRecognizer::touchesBegan(const std::vector<Touch>& touches) {
    if (!_enabled || touches.empty()) {
        return;
    }
    if (isFinished() && _touches.empty()) {
        reset();
    }
    _touches.insert(_touches.end(), touches.begin(), touches.end());
    updateTouches(touches);
    if (!isFinished()) {
        handleTouchesBegan(touches);
    }
}

void GestureRecognizer::touchesMoved(const std::vector<Touch>& touches) {
    if (!_enabled || touches.empty()) {
        return;
    }
    updateTouches(touches);
    if (!isFinished()) {
        handleTouchesMoved(touches);
    }
}

void GestureRecognizer::touchesEnded(const std::vector<Touch>& touches) {
    if (!_enabled || touches.empty()) {
        return;
    }
    updateTouches(touches);
    if (!isFinished()) {
        handleTouchesEnded(touches);
    }
    removeTouches(touches.size());
}

void GestureRecognizer::touchesCancelled(const std::vector<Touch>& touches) {
    if (!_enabled || touches.empty()) {
        return;
    }
    updateTouches(touches);
    if (!isFinished()) {
        handleTouchesCancelled(touches);
    }
    removeTouches(touches.size());
}

void GestureRecognizer::handleTouchesCancelled(const std::vector<Touch>& /*touches*/) {
    setState(_state == State::Possible ? State::Failed : State::Cancelled);
}

void GestureRecognizer::reset() {
    _state = State::Possible;
    _touches.clear();
    resetProgress();
}

}  // namespace platform
