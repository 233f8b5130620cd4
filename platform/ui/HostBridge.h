#pragma once

#include <QImage>
#include <QSizeF>
#include <QTimer>

#include <functional>
#include <memory>

class QKeyEvent;
class QMouseEvent;
class QPainter;
class QTouchEvent;

namespace platform {

class Window;

/// Shows a window's tree on a Qt surface (a QWindow or a QWidget): keeps the
/// window as large as the surface, runs its layout passes, paints it with
/// LayerPainter at the run loop's time, asks the surface to repaint when the
/// tree changes and 60 times a second while animations run, and turns mouse
/// and touch events into the window's touches and key presses into its
/// keyboard handling; paints the keyboard focus ring. Main thread only.
class HostBridge {
public:
    /// requestUpdate asks the surface for a repaint (it may coalesce).
    HostBridge(std::shared_ptr<Window> window, std::function<void()> requestUpdate);
    ~HostBridge();
    HostBridge(const HostBridge&) = delete;
    HostBridge& operator=(const HostBridge&) = delete;

    const std::shared_ptr<Window>& window() const { return _window; }

    /// Sizes the window to the surface (in points).
    void setSize(const QSizeF& size);
    /// Lays out and paints the tree over black into painter, whose
    /// coordinates are the surface's points (device pixel ratio applied).
    void paint(QPainter& painter);
    /// Paints the tree into a new image at devicePixelRatio pixels a point.
    QImage render(double devicePixelRatio);
    /// Feeds a mouse press, move (while pressed) or release as one finger;
    /// false for events it does not use.
    bool mouseEvent(const QMouseEvent& event);
    /// Feeds the first touch point of a touch sequence.
    bool touchEvent(const QTouchEvent& event);
    /// Feeds a key press to the window's keyboard handling; false when it
    /// did not use the key. See WindowAccess::keyPress for wrapFocus.
    bool keyEvent(const QKeyEvent& event, bool wrapFocus);

    /// True while an animation of the tree is in effect at time.
    bool isAnimating(double time) const;

private:
    void treeChanged();
    // Runs the frame timer while animations run, stops it when they end.
    void scheduleFrames();

    std::shared_ptr<Window> _window;
    std::function<void()> _requestUpdate;
    QTimer _frames;
    bool _painting = false;
    bool _mouseDown = false;
};

}  // namespace platform
