#include "platform/ui/HostAccessibleRoots.h"

#include "platform/ui/HostAccessibility.h"

#include <QGuiApplication>

namespace platform {
namespace {

HostAccessibility* reach(const std::weak_ptr<HostAccessibility*>& link) {
    const auto held = link.lock();
    return held ? *held : nullptr;
}

}  // namespace

WindowHostAccessible::WindowHostAccessible(QWindow* window, std::weak_ptr<HostAccessibility*> host)
    : _window(window), _host(std::move(host)) {}

bool WindowHostAccessible::isValid() const {
    return _window != nullptr && reach(_host) != nullptr;
}

QObject* WindowHostAccessible::object() const {
    return _window;
}

QWindow* WindowHostAccessible::window() const {
    return _window;
}

QAccessibleInterface* WindowHostAccessible::parent() const {
    return QAccessible::queryAccessibleInterface(qApp);
}

QAccessibleInterface* WindowHostAccessible::child(int index) const {
    auto* host = reach(_host);
    return host != nullptr ? host->child(index) : nullptr;
}

int WindowHostAccessible::childCount() const {
    const auto* host = reach(_host);
    return host != nullptr ? host->childCount() : 0;
}

int WindowHostAccessible::indexOfChild(const QAccessibleInterface* child) const {
    const auto* host = reach(_host);
    return host != nullptr ? host->indexOfChild(child) : -1;
}

QAccessibleInterface* WindowHostAccessible::childAt(int x, int y) const {
    auto* host = reach(_host);
    return host != nullptr ? host->childAt(x, y) : nullptr;
}

QString WindowHostAccessible::text(QAccessible::Text t) const {
    if (_window != nullptr && t == QAccessible::Name) {
        return _window->title();
    }
    return {};
}

void WindowHostAccessible::setText(QAccessible::Text /*t*/, const QString& /*text*/) {}

QRect WindowHostAccessible::rect() const {
    return _window != nullptr ? _window->geometry() : QRect();
}

QAccessible::Role WindowHostAccessible::role() const {
    return QAccessible::Window;
}

QAccessible::State WindowHostAccessible::state() const {
    QAccessible::State s;
    if (_window == nullptr) {
        s.invalid = true;
        return s;
    }
    s.active = _window->isActive();
    s.focused = _window->isActive();
    s.invisible = !_window->isVisible();
    return s;
}

WidgetHostAccessible::WidgetHostAccessible(QWidget* widget, std::weak_ptr<HostAccessibility*> host)
    : QAccessibleWidget(widget, QAccessible::Client), _host(std::move(host)) {}

QAccessibleInterface* WidgetHostAccessible::child(int index) const {
    auto* host = reach(_host);
    return host != nullptr ? host->child(index) : nullptr;
}

int WidgetHostAccessible::childCount() const {
    const auto* host = reach(_host);
    return host != nullptr ? host->childCount() : 0;
}

int WidgetHostAccessible::indexOfChild(const QAccessibleInterface* child) const {
    const auto* host = reach(_host);
    return host != nullptr ? host->indexOfChild(child) : -1;
}

QAccessibleInterface* WidgetHostAccessible::childAt(int x, int y) const {
    auto* host = reach(_host);
    return host != nullptr ? host->childAt(x, y) : nullptr;
}

QAccessible::State WidgetHostAccessible::state() const {
    QAccessible::State s = QAccessibleWidget::state();
    s.focusable = true;
    return s;
}

}  // namespace platform
