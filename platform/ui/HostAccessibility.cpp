#include "platform/ui/HostAccessibility.h"

#include "platform/ui/Window.h"

namespace platform {

HostAccessibility::HostAccessibility(std::shared_ptr<Window> window, QObject* host,
                                     std::function<void()> requestUpdate)
    : _window(std::move(window)), _host(host), _requestUpdate(std::move(requestUpdate)) {
    _window->access().addObserver(this);
}

HostAccessibility::~HostAccessibility() {
    _window->access().removeObserver(this);
}

void HostAccessibility::hostFocusedIn(Qt::FocusReason reason) {
    if (reason == Qt::TabFocusReason) {
        _window->access().moveFocus(true);
    } else if (reason == Qt::BacktabFocusReason) {
        _window->access().moveFocus(false);
    }
}

void HostAccessibility::keyboardFocusChanged(const ViewPtr& /*view*/) {
    _requestUpdate();
}

}  // namespace platform
