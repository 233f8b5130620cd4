#pragma once

#include <QSizeF>

#include <functional>
#include <memory>

class QXDCameraController;

namespace platform {
class Window;
}

namespace scanner {

class ScanSession;

/// Keeps the capture screen's layout in step with the window's shape: the
/// pad layout while the window is clearly wide, the phone layout while it is
/// clearly narrow (in between, the layout stays). The capture screen lays
/// itself out once, for the idiom of its time, so a change of shape brings a
/// new screen, made by the factory, which the window shows and the session
/// takes over; the old screen's camera is stopped first. Main thread only.
class ScreenShape {
public:
    using Factory = std::function<std::shared_ptr<QXDCameraController>()>;

    ScreenShape(std::shared_ptr<platform::Window> window, std::shared_ptr<ScanSession> session,
                Factory factory, bool pad);

    /// Whether a window of size wants the pad layout, given the layout now.
    static bool wantsPad(const QSizeF& size, bool padNow);
    bool isPad() const { return _pad; }

    /// The window now has size. True when the screen was replaced; a change
    /// of shape while a picture or a page is on its way waits for the next
    /// call.
    bool windowResized(const QSizeF& size);

private:
    std::weak_ptr<platform::Window> _window;
    std::weak_ptr<ScanSession> _session;
    Factory _factory;
    bool _pad;
};

}  // namespace scanner
