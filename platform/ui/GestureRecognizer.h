#pragma once

#include "platform/ui/View.h"

#include <QPointF>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace platform {

/// Recognises a gesture from the touches of its view (and the view's
/// subviews) and then sends its actions, like the platform's gesture
/// recognisers. The window feeds it the touches of the view it is attached
/// to and of that view's descendants. Main thread only.
///
/// States: a recogniser starts Possible; a discrete gesture goes to Ended
/// (Recognized) or Failed, a continuous one through Began and Changed to
/// Ended or Cancelled. Entering Began, Changed, Ended or Cancelled sends the
/// actions. A finished recogniser (ended, cancelled or failed) ignores
/// touches until it is reset: by the window once all touches lifted, or by
/// itself when the next gesture begins.
class GestureRecognizer : public std::enable_shared_from_this<GestureRecognizer> {
public:
    enum class State { Possible, Began, Changed, Ended, Cancelled, Failed };
    /// The platform's name for a discrete gesture that ended.
    static constexpr State Recognized = State::Ended;
    using Action = std::function<void(GestureRecognizer&)>;

    virtual ~GestureRecognizer() = default;
    GestureRecognizer(const GestureRecognizer&) = delete;
    GestureRecognizer& operator=(const GestureRecognizer&) = delete;

    State state() const { return _state; }
    bool isFinished() const;
    bool isEnabled() const { return _enabled; }
    /// Disabling cancels a gesture in progress and resets the recogniser.
    void setEnabled(bool enabled);

    /// Adds an action; key identifies it for removeTarget (null: anonymous).
    void addTarget(const void* key, Action action);
    /// Removes the actions added under key; a null key removes all.
    void removeTarget(const void* key);

    /// The view the recogniser is attached to, or null.
    ViewPtr view() const { return _view.lock(); }
    /// The location of the gesture (the centroid of its touches, or of the
    /// last ones once they lifted) in view's coordinates (window coordinates
    /// for null).
    virtual QPointF locationInView(const View* view) const;
    /// The touches down now, matched in the order they began.
    std::size_t numberOfTouches() const { return _touches.size(); }

    bool cancelsTouchesInView() const { return _cancelsTouchesInView; }
    void setCancelsTouchesInView(bool cancels) { _cancelsTouchesInView = cancels; }
    bool delaysTouchesBegan() const { return _delaysTouchesBegan; }
    void setDelaysTouchesBegan(bool delays) { _delaysTouchesBegan = delays; }
    bool delaysTouchesEnded() const { return _delaysTouchesEnded; }
    void setDelaysTouchesEnded(bool delays) { _delaysTouchesEnded = delays; }

    // Fed by the window.
    void touchesBegan(const std::vector<Touch>& touches);
    void touchesMoved(const std::vector<Touch>& touches);
    void touchesEnded(const std::vector<Touch>& touches);
    void touchesCancelled(const std::vector<Touch>& touches);
    /// Back to Possible, forgetting touches and progress; the window calls
    /// it once a gesture ended, failed or was cancelled and all touches
    /// lifted.
    void reset();

protected:
    GestureRecognizer() = default;
    /// Moves the state machine; entering Began, Changed, Ended or Cancelled
    /// sends the actions.
    void setState(State state);
    const std::vector<Touch>& touches() const { return _touches; }

    // What a recogniser makes of the touches while it is not finished. The
    // touches are still counted in touches() during handleTouchesEnded. By
    // default cancelled touches cancel a gesture in progress and fail a
    // possible one.
    virtual void handleTouchesBegan(const std::vector<Touch>& /*touches*/) {}
    virtual void handleTouchesMoved(const std::vector<Touch>& /*touches*/) {}
    virtual void handleTouchesEnded(const std::vector<Touch>& /*touches*/) {}
    virtual void handleTouchesCancelled(const std::vector<Touch>& touches);
    /// Forgets what a subclass tracks; called by reset.
    virtual void resetProgress() {}

private:
    friend class View;
    void attachToView(std::weak_ptr<View> view) { _view = std::move(view); }

    // Takes the new locations of touches already down (matched in order)
    // and remembers their centroid.
    void updateTouches(const std::vector<Touch>& touches);
    void removeTouches(std::size_t count);

    State _state = State::Possible;
    bool _enabled = true;
    bool _cancelsTouchesInView = true;
    bool _delaysTouchesBegan = false;
    bool _delaysTouchesEnded = true;
    std::weak_ptr<View> _view;
    std::vector<Touch> _touches;
    QPointF _centroidInWindow;
    std::vector<std::pair<const void*, Action>> _actions;
};

}  // namespace platform
