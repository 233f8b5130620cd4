#pragma once

#include "platform/ui/View.h"

#include <functional>
#include <memory>

namespace platform {

class LayoutEngine;
class ViewController;
class WindowAccess;

/// The root of a view tree on screen: holds the root view controller, runs
/// layout passes with its own constraint engine, and routes touches to views
/// and gesture recognisers. Hosts (a Qt window, a widget, an offscreen
/// renderer) show a window and feed it touches. Main thread only.
class Window : public View {
public:
    static std::shared_ptr<Window> create(const QRectF& frame);
    ~Window() override;

    std::shared_ptr<ViewController> rootViewController() const { return _rootViewController; }
    /// Installs controller's view as the window's content, sized to the
    /// window, and runs its appearance callbacks when the window is visible.
    void setRootViewController(const std::shared_ptr<ViewController>& controller);

    void makeKeyAndVisible();
    bool isVisible() const { return _visible; }

    /// The constraint engine of this window's tree.
    LayoutEngine& layoutEngine();
    /// Keyboard focus, key commands and accessibility notifications.
    WindowAccess& access();

    /// Delivers one touch phase at a point in window coordinates: hit-tests
    /// on Began, then feeds the touch to the gesture recognisers of the hit
    /// view and its ancestors and to the view itself.
    void sendTouch(Touch::Phase phase, const QPointF& locationInWindow);
    /// A full tap (began then ended) at a point.
    void tap(const QPointF& locationInWindow);

    /// Runs pending layout passes of the whole tree.
    void layoutIfNeededForHost();

    /// Paints the window's tree at the run loop's current time.
    QImage snapshot(double scale = 1.0);

    /// Called when the tree needs repainting (content, layout or animation).
    void setNeedsDisplayHandler(std::function<void()> handler);

    QString typeName() const override;

protected:
    explicit Window(const QRectF& frame);
    void didCreate() override;

private:
    std::shared_ptr<ViewController> _rootViewController;
    std::unique_ptr<WindowAccess> _access;
    bool _visible = false;
    std::vector<Touch> _activeTouches;
    std::function<void()> _needsDisplay;
};

}  // namespace platform
