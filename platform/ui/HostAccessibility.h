#pragma once

#include "platform/ui/WindowAccess.h"

#include <QAccessible>
#include <QRect>
#include <QRectF>
#include <Qt>

#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

class QAccessibleEvent;
class QAccessibleInterface;
class QObject;
class QWindow;

namespace platform {

class HostAccessibility;
class Window;

/// A Qt object that shows a Window's tree (the window and widget hosts):
/// Qt's accessibility reaches the tree through it.
class AccessibleHost {
public:
    virtual HostAccessibility& hostAccessibility() = 0;

protected:
    ~AccessibleHost() = default;
};

/// The part of a Qt host that serves keyboard users and assistive tools. It
/// exposes the accessibility elements of the screen in front as the
/// children of the host's accessible object (see ViewAccessible), tells
/// assistive tools when the keyboard focus, a value or a label changes,
/// repaints when the focus ring moves, and gives the first or last element
/// the focus when the host itself is tabbed into. Main thread only.
class HostAccessibility : private WindowAccessObserver {
public:
    /// host is the QWindow or QWidget that shows window (and an
    /// AccessibleHost); requestUpdate asks it for a repaint.
    HostAccessibility(std::shared_ptr<Window> window, QObject* host,
                      std::function<void()> requestUpdate);
    ~HostAccessibility() override;
    HostAccessibility(const HostAccessibility&) = delete;
    HostAccessibility& operator=(const HostAccessibility&) = delete;

    const std::shared_ptr<Window>& window() const { return _window; }
    QObject* host() const { return _host; }
    /// The Qt window the host is shown in (null before it has one).
    QWindow* qtWindow() const;
    /// The host's accessible object, whose children are the elements.
    QAccessibleInterface* root() const;

    /// The accessibility elements of the screen in front, in reading order.
    std::vector<ViewPtr> elements() const;
    /// The accessible object of view, made on first request and kept while
    /// the view lives.
    QAccessibleInterface* interfaceFor(const ViewPtr& view);
    // The elements as the children of the host's accessible object.
    int childCount() const;
    QAccessibleInterface* child(int index);
    int indexOfChild(const QAccessibleInterface* child) const;
    /// The element at a point in screen coordinates, or null.
    QAccessibleInterface* childAt(int x, int y);

    /// A rectangle of the tree's window in screen coordinates.
    QRect toGlobal(const QRectF& rectInWindow) const;

    /// Called when the host is shown: makes sure Qt gives assistive tools
    /// the host's own accessible object, even if it made a generic one
    /// while the host was being constructed.
    void hostShown();
    /// The host received the keyboard focus for reason.
    void hostFocusedIn(Qt::FocusReason reason);

    /// Also hands every event posted for assistive tools to listener (null:
    /// none), whether or not a tool is listening through Qt; Qt passes
    /// events on only while an assistive tool is connected.
    void setEventListener(std::function<void(QAccessibleEvent&)> listener);

    /// Qt's accessibility factory for the hosts (installed by every host;
    /// Qt keeps one copy).
    static QAccessibleInterface* factory(const QString& className, QObject* object);

private:
    void keyboardFocusChanged(const ViewPtr& view) override;
    void accessibilityValueChanged(View& view) override;
    void accessibilityLabelChanged(View& view) override;
    bool wantsEvents() const;
    void post(QAccessibleEvent& event);
    // Drops the accessible objects of views that are gone.
    void prune();

    std::shared_ptr<Window> _window;
    QObject* _host;
    std::function<void()> _requestUpdate;
    std::function<void(QAccessibleEvent&)> _listener;
    std::unordered_map<const View*, std::pair<std::weak_ptr<View>, QAccessible::Id>> _ids;
    // Lets the host's accessible object, which Qt owns, outlive this safely.
    std::shared_ptr<HostAccessibility*> _self;
};

}  // namespace platform
