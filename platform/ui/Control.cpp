#include "platform/ui/Control.h"

#include "platform/ui/TapGestureRecognizer.h"

#include <algorithm>

namespace platform {
namespace {

// How far outside its bounds a tracked touch still counts as inside.
constexpr double kTrackingSlop = 70.0;

}  // namespace

std::shared_ptr<Control> Control::create(const QRectF& frame) {
    return make<Control>(frame);
}

Control::Control(const QRectF& frame) : View(frame) {}

QString Control::typeName() const {
    return QStringLiteral("Control");
}

void Control::setEnabled(bool enabled) {
    if (enabled == _enabled) {
        return;
    }
    _enabled = enabled;
    if (!enabled) {
        _highlighted = false;
    }
    stateDidChange();
}

void Control::setSelected(bool selected) {
    if (selected != _selected) {
        _selected = selected;
        stateDidChange();
    }
}

void Control::setHighlighted(bool highlighted) {
    if (highlighted != _highlighted) {
        _highlighted = highlighted;
        stateDidChange();
    }
}

unsigned Control::state() const {
    unsigned bits = control_state::kNormal;
    if (_highlighted) {
        bits |= control_state::kHighlighted;
    }
    if (!_enabled) {
        bits |= control_state::kDisabled;
    }
    if (_selected) {
        bits |= control_state::kSelected;
    }
    return bits;
}

void Control::setContentHorizontalAlignment(ContentHorizontalAlignment alignment) {
    _horizontalAlignment = alignment;
    setNeedsLayout();
}

void Control::setContentVerticalAlignment(ContentVerticalAlignment alignment) {
    _verticalAlignment = alignment;
    setNeedsLayout();
}

void Control::addTarget(const std::weak_ptr<void>& target, Action action, unsigned events) {
    if (action && events != 0) {
        _targets.push_back({target.lock().get(), target, true, std::move(action), events});
    }
}

void Control::addTarget(const void* key, Action action, unsigned events) {
    if (action && events != 0) {
        _targets.push_back({key, {}, false, std::move(action), events});
    }
}

void Control::removeTarget(const void* key, unsigned events) {
    for (Target& target : _targets) {
        if (key == nullptr || target.key == key) {
            target.events &= ~events;
        }
    }
    std::erase_if(_targets, [](const Target& target) { return target.events == 0; });
}

unsigned Control::allControlEvents() const {
    unsigned events = 0;
    for (const Target& target : _targets) {
        if (!target.held || !target.owner.expired()) {
            events |= target.events;
        }
    }
    return events;
}

void Control::sendActionsForControlEvents(unsigned events) {
    std::erase_if(_targets,
                  [](const Target& target) { return target.held && target.owner.expired(); });
    // Actions may add or remove targets, or drop the last owner of this control.
    const std::vector<Target> targets = _targets;
    const auto self = shared_from_this();
    for (const Target& target : targets) {
        if ((target.events & events) == 0) {
            continue;
        }
        if (target.held) {
            if (const auto owner = target.owner.lock()) {
                target.action(*this);
            }
        } else {
            target.action(*this);
        }
    }
}

bool Control::isNear(const Touch& touch) const {
    const QRectF area =
        bounds().adjusted(-kTrackingSlop, -kTrackingSlop, kTrackingSlop, kTrackingSlop);
    return area.contains(touch.locationInView(this));
}

void Control::touchesBegan(const std::vector<Touch>& touches) {
    if (!_enabled || touches.empty()) {
        return;
    }
    _tracking = true;
    _touchInside = true;
    setHighlighted(true);
    unsigned events = control_event::kTouchDown;
    if (touches.front().tapCount > 1) {
        events |= control_event::kTouchDownRepeat;
    }
    sendActionsForControlEvents(events);
}

void Control::touchesMoved(const std::vector<Touch>& touches) {
    if (!_tracking || touches.empty()) {
        return;
    }
    const bool inside = isNear(touches.front());
    unsigned events = inside ? control_event::kTouchDragInside : control_event::kTouchDragOutside;
    if (inside != _touchInside) {
        events |= inside ? control_event::kTouchDragEnter : control_event::kTouchDragExit;
    }
    _touchInside = inside;
    setHighlighted(inside && _enabled);
    sendActionsForControlEvents(events);
}

void Control::touchesEnded(const std::vector<Touch>& touches) {
    if (!_tracking || touches.empty()) {
        return;
    }
    _tracking = false;
    _touchInside = isNear(touches.front());
    setHighlighted(false);
    if (_enabled) {
        sendActionsForControlEvents(_touchInside ? control_event::kTouchUpInside
                                                 : control_event::kTouchUpOutside);
    }
}

void Control::touchesCancelled(const std::vector<Touch>& /*touches*/) {
    if (!_tracking) {
        return;
    }
    _tracking = false;
    _touchInside = false;
    setHighlighted(false);
    sendActionsForControlEvents(control_event::kTouchCancel);
}

bool Control::gestureRecognizerShouldBegin(const GestureRecognizer& recognizer) const {
    const auto* tap = dynamic_cast<const TapGestureRecognizer*>(&recognizer);
    const bool takesOurTap = tap != nullptr && tap->numberOfTapsRequired() == 1 &&
                             tap->numberOfTouchesRequired() == 1 && recognizer.view().get() != this;
    return !(takesOurTap && _enabled);
}

}  // namespace platform
