#pragma once

#include "platform/ui/View.h"

#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// Control state bits, with the platform's values.
namespace control_state {
inline constexpr unsigned kNormal = 0;
inline constexpr unsigned kHighlighted = 1u << 0;
inline constexpr unsigned kDisabled = 1u << 1;
inline constexpr unsigned kSelected = 1u << 2;
}  // namespace control_state

/// Control event bits, with the platform's values.
namespace control_event {
inline constexpr unsigned kTouchDown = 1u << 0;
inline constexpr unsigned kTouchDownRepeat = 1u << 1;
inline constexpr unsigned kTouchDragInside = 1u << 2;
inline constexpr unsigned kTouchDragOutside = 1u << 3;
inline constexpr unsigned kTouchDragEnter = 1u << 4;
inline constexpr unsigned kTouchDragExit = 1u << 5;
inline constexpr unsigned kTouchUpInside = 1u << 6;
inline constexpr unsigned kTouchUpOutside = 1u << 7;
inline constexpr unsigned kTouchCancel = 1u << 8;
inline constexpr unsigned kValueChanged = 1u << 12;
inline constexpr unsigned kPrimaryActionTriggered = 1u << 13;
inline constexpr unsigned kAllTouchEvents = 0x00000FFFu;
inline constexpr unsigned kAllEvents = 0xFFFFFFFFu;
}  // namespace control_event

enum class ContentHorizontalAlignment {
    Center = 0,
    Left = 1,
    Right = 2,
    Fill = 3,
    Leading = 4,
    Trailing = 5
};
enum class ContentVerticalAlignment { Center = 0, Top = 1, Bottom = 2, Fill = 3 };

/// A view that turns touches into actions for control events, like the
/// platform's controls: it is highlighted while a touch that began on it is
/// within 70 points of its bounds, and sends touch-up-inside when the touch
/// lifts there. A disabled control still takes the touches that hit it but
/// does nothing with them. Main thread only.
class Control : public View {
public:
    using Action = std::function<void(Control&)>;

    static std::shared_ptr<Control> create(const QRectF& frame = {});

    bool isEnabled() const { return _enabled; }
    /// Disabling also ends the highlight.
    void setEnabled(bool enabled);
    bool isSelected() const { return _selected; }
    void setSelected(bool selected);
    bool isHighlighted() const { return _highlighted; }
    void setHighlighted(bool highlighted);
    /// The control_state bits of the current state.
    unsigned state() const;

    ContentHorizontalAlignment contentHorizontalAlignment() const { return _horizontalAlignment; }
    void setContentHorizontalAlignment(ContentHorizontalAlignment alignment);
    ContentVerticalAlignment contentVerticalAlignment() const { return _verticalAlignment; }
    void setContentVerticalAlignment(ContentVerticalAlignment alignment);

    /// Calls action for the control_event bits in events for as long as
    /// target lives; target's address is the key for removeTarget.
    void addTarget(const std::weak_ptr<void>& target, Action action, unsigned events);
    /// Calls action for events until it is removed under key (null: it can
    /// only go with every other action).
    void addTarget(const void* key, Action action, unsigned events);
    /// Stops the actions added under key for events; a null key means every
    /// action. Actions left with no event are dropped.
    void removeTarget(const void* key, unsigned events = control_event::kAllEvents);
    /// The union of the events that have actions.
    unsigned allControlEvents() const;
    /// Calls, in the order they were added, the actions for any of events.
    void sendActionsForControlEvents(unsigned events);

    bool isTracking() const { return _tracking; }
    bool isTouchInside() const { return _touchInside; }

    void touchesBegan(const std::vector<Touch>& touches) override;
    void touchesMoved(const std::vector<Touch>& touches) override;
    void touchesEnded(const std::vector<Touch>& touches) override;
    void touchesCancelled(const std::vector<Touch>& touches) override;
    /// An enabled control keeps single-tap recognisers of its ancestors from
    /// taking its taps, so its own action wins.
    bool gestureRecognizerShouldBegin(const GestureRecognizer& recognizer) const override;
    QString typeName() const override;

protected:
    explicit Control(const QRectF& frame);
    /// Called after enabled, selected or highlighted changed.
    virtual void stateDidChange() {}

private:
    friend class View;

    struct Target {
        const void* key = nullptr;
        std::weak_ptr<void> owner;
        bool held = false;  // only while owner lives
        Action action;
        unsigned events = 0;
    };

    // Inside the bounds grown by the tracking slop.
    bool isNear(const Touch& touch) const;

    bool _enabled = true;
    bool _selected = false;
    bool _highlighted = false;
    bool _tracking = false;
    bool _touchInside = false;
    ContentHorizontalAlignment _horizontalAlignment = ContentHorizontalAlignment::Center;
    ContentVerticalAlignment _verticalAlignment = ContentVerticalAlignment::Center;
    std::vector<Target> _targets;
};

}  // namespace platform
