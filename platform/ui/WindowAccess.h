#pragma once

#include "platform/ui/KeyCommand.h"
#include "platform/ui/View.h"

#include <QRectF>

#include <cstdint>
#include <memory>
#include <vector>

class QPainter;

namespace platform {

class Window;

/// Told about what assistive tools follow in a window: the keyboard focus
/// and the accessibility texts of its views.
class WindowAccessObserver {
public:
    virtual ~WindowAccessObserver() = default;
    /// The keyboard focus moved to view (null: no view has it).
    virtual void keyboardFocusChanged(const ViewPtr& /*view*/) {}
    /// A view of the window changed its accessibility value.
    virtual void accessibilityValueChanged(View& /*view*/) {}
    /// A view of the window changed its accessibility label.
    virtual void accessibilityLabelChanged(View& /*view*/) {}
};

/// Keyboard use of one window: its key commands, and a focus that Tab and
/// Shift+Tab move among the pressable accessibility elements of the screen
/// in front, shown as a ring that hosts paint over the tree. Space or Return
/// presses the focused element; while an alert is in front Return chooses
/// its default action and Escape its cancel action. Owned by its window;
/// main thread only.
class WindowAccess {
public:
    using CommandId = std::uint64_t;

    explicit WindowAccess(Window& window);
    ~WindowAccess();
    WindowAccess(const WindowAccess&) = delete;
    WindowAccess& operator=(const WindowAccess&) = delete;

    /// Binds a key; the id removes the binding again. A later binding of the
    /// same key and modifiers takes precedence while it can act.
    CommandId addKeyCommand(KeyCommand command);
    void removeKeyCommand(CommandId id);
    std::vector<KeyCommand> keyCommands() const;

    /// Handles one key press, in this order: Tab/Shift+Tab move the focus,
    /// Space/Return press the focused element, Return/Escape answer an alert
    /// in front, then the key commands. False when nothing used the key;
    /// Tab past the last element (or Shift+Tab before the first) wraps
    /// around when wrapFocus is true, else clears the focus and answers false.
    bool keyPress(int key, Qt::KeyboardModifiers modifiers, bool wrapFocus = true);

    /// The focused view, or null when none is focused or it can no longer be
    /// (hidden, disabled, gone, no longer on the front screen).
    ViewPtr focusedView() const;
    /// Focuses view; false (focus unchanged) when it is not focusable.
    bool setFocusedView(const ViewPtr& view);
    void clearFocus();
    /// Moves the focus to the next (or previous) focusable element. At the
    /// end of the list focus wraps around when wrap is true; otherwise it is
    /// cleared and the call answers false, so a host can pass focus on.
    bool moveFocus(bool forward, bool wrap = true);
    /// What Tab visits on the front screen, in order.
    std::vector<ViewPtr> focusableViews() const;

    /// The focus ring's outline in window coordinates; empty without focus.
    QRectF focusRingRect() const;
    /// Paints the focus ring; painter is in window coordinates.
    void paintFocusRing(QPainter& painter) const;

    void addObserver(WindowAccessObserver* observer);
    void removeObserver(WindowAccessObserver* observer);

    /// Called by views when their accessibility texts change.
    void viewValueChanged(View& view);
    void viewLabelChanged(View& view);

private:
    struct Binding {
        CommandId id;
        KeyCommand command;
    };

    bool answerAlert(int key);
    bool runKeyCommand(int key, Qt::KeyboardModifiers modifiers);
    void focus(const ViewPtr& view);

    Window& _window;
    std::vector<Binding> _bindings;
    CommandId _nextId = 1;
    std::weak_ptr<View> _focused;
    std::vector<WindowAccessObserver*> _observers;
};

}  // namespace platform
