#pragma once

#include "platform/ui/WindowAccess.h"

#include <Qt>

#include <functional>
#include <memory>

class QObject;

namespace platform {

class Window;

/// The part of a Qt host that serves keyboard users and assistive tools:
/// repaints when the focus ring moves, and gives the first or last element
/// the focus when the host itself is tabbed into. Main thread only.
class HostAccessibility : private WindowAccessObserver {
public:
    /// host is the QWindow or QWidget that shows window; requestUpdate asks
    /// it for a repaint.
    HostAccessibility(std::shared_ptr<Window> window, QObject* host,
                      std::function<void()> requestUpdate);
    ~HostAccessibility() override;
    HostAccessibility(const HostAccessibility&) = delete;
    HostAccessibility& operator=(const HostAccessibility&) = delete;

    /// The host received the keyboard focus for reason.
    void hostFocusedIn(Qt::FocusReason reason);

private:
    void keyboardFocusChanged(const ViewPtr& view) override;

    std::shared_ptr<Window> _window;
    QObject* _host;
    std::function<void()> _requestUpdate;
};

}  // namespace platform
