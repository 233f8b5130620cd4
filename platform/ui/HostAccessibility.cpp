#include "platform/ui/HostAccessibility.h"

#include "platform/ui/AccessibleElements.h"
#include "platform/ui/HostAccessibleRoots.h"
#include "platform/ui/ViewAccessible.h"
#include "platform/ui/Window.h"

#include <QAccessibleEvent>
#include <QWidget>
#include <QWindow>

#include <algorithm>

namespace platform {

HostAccessibility::HostAccessibility(std::shared_ptr<Window> window, QObject* host,
                                     std::function<void()> requestUpdate)
    : _window(std::move(window)),
      _host(host),
      _requestUpdate(std::move(requestUpdate)),
      _self(std::make_shared<HostAccessibility*>(this)) {
    _window->access().addObserver(this);
    QAccessible::installFactory(&HostAccessibility::factory);
}

HostAccessibility::~HostAccessibility() {
    _window->access().removeObserver(this);
    for (const auto& [view, entry] : _ids) {
        QAccessible::deleteAccessibleInterface(entry.second);
    }
}

QAccessibleInterface* HostAccessibility::factory(const QString& /*className*/, QObject* object) {
    auto* host = dynamic_cast<AccessibleHost*>(object);
    if (host == nullptr) {
        return nullptr;
    }
    const std::weak_ptr<HostAccessibility*> link = host->hostAccessibility()._self;
    if (object->isWidgetType()) {
        return new WidgetHostAccessible(static_cast<QWidget*>(object), link);
    }
    if (auto* window = qobject_cast<QWindow*>(object)) {
        return new WindowHostAccessible(window, link);
    }
    return nullptr;
}

QWindow* HostAccessibility::qtWindow() const {
    if (_host->isWidgetType()) {
        return static_cast<QWidget*>(_host)->window()->windowHandle();
    }
    return qobject_cast<QWindow*>(_host);
}

QAccessibleInterface* HostAccessibility::root() const {
    return QAccessible::queryAccessibleInterface(_host);
}

std::vector<ViewPtr> HostAccessibility::elements() const {
    return accessible::elements(accessible::frontScreen(*_window));
}

QAccessibleInterface* HostAccessibility::interfaceFor(const ViewPtr& view) {
    if (!view) {
        return nullptr;
    }
    const auto it = _ids.find(view.get());
    if (it != _ids.end()) {
        if (it->second.first.lock() == view) {
            return QAccessible::accessibleInterface(it->second.second);
        }
        // Another view now lives at a gone view's address.
        QAccessible::deleteAccessibleInterface(it->second.second);
        _ids.erase(it);
    }
    prune();
    auto* made = new ViewAccessible(view, *this);
    _ids.emplace(view.get(), std::make_pair(std::weak_ptr<View>(view),
                                            QAccessible::registerAccessibleInterface(made)));
    return made;
}

void HostAccessibility::prune() {
    for (auto it = _ids.begin(); it != _ids.end();) {
        if (it->second.first.expired()) {
            QAccessible::deleteAccessibleInterface(it->second.second);
            it = _ids.erase(it);
        } else {
            ++it;
        }
    }
}

int HostAccessibility::childCount() const {
    return static_cast<int>(elements().size());
}

QAccessibleInterface* HostAccessibility::child(int index) {
    const auto views = elements();
    if (index < 0 || index >= static_cast<int>(views.size())) {
        return nullptr;
    }
    return interfaceFor(views[static_cast<std::size_t>(index)]);
}

int HostAccessibility::indexOfChild(const QAccessibleInterface* child) const {
    const auto* element = dynamic_cast<const ViewAccessible*>(child);
    if (element == nullptr) {
        return -1;
    }
    const auto views = elements();
    const auto it = std::find(views.begin(), views.end(), element->view());
    return it == views.end() ? -1 : static_cast<int>(it - views.begin());
}

QAccessibleInterface* HostAccessibility::childAt(int x, int y) {
    const QPoint point(x, y);
    // Later elements are read later but may lie on top; the topmost that
    // contains the point wins.
    const auto views = elements();
    for (auto it = views.rbegin(); it != views.rend(); ++it) {
        if (toGlobal(accessible::frameInWindow(**it)).contains(point)) {
            return interfaceFor(*it);
        }
    }
    return nullptr;
}

QRect HostAccessibility::toGlobal(const QRectF& rectInWindow) const {
    const QRect rect = rectInWindow.toAlignedRect();
    QPoint origin;
    if (_host->isWidgetType()) {
        origin = static_cast<QWidget*>(_host)->mapToGlobal(QPoint(0, 0));
    } else if (auto* window = qobject_cast<QWindow*>(_host)) {
        origin = window->mapToGlobal(QPoint(0, 0));
    }
    return rect.translated(origin);
}

void HostAccessibility::hostShown() {
    QAccessibleInterface* current = QAccessible::queryAccessibleInterface(_host);
    if (current != nullptr && dynamic_cast<WindowHostAccessible*>(current) == nullptr &&
        dynamic_cast<WidgetHostAccessible*>(current) == nullptr) {
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(current));
    }
}

void HostAccessibility::hostFocusedIn(Qt::FocusReason reason) {
    if (reason == Qt::TabFocusReason) {
        _window->access().moveFocus(true);
    } else if (reason == Qt::BacktabFocusReason) {
        _window->access().moveFocus(false);
    }
}

void HostAccessibility::setEventListener(std::function<void(QAccessibleEvent&)> listener) {
    _listener = std::move(listener);
}

bool HostAccessibility::wantsEvents() const {
    return _listener || QAccessible::isActive();
}

void HostAccessibility::post(QAccessibleEvent& event) {
    QAccessible::updateAccessibility(&event);
    if (_listener) {
        _listener(event);
    }
}

void HostAccessibility::keyboardFocusChanged(const ViewPtr& view) {
    _requestUpdate();
    if (view && wantsEvents()) {
        QAccessibleEvent event(interfaceFor(view), QAccessible::Focus);
        post(event);
    }
}

void HostAccessibility::accessibilityValueChanged(View& view) {
    if (view.isAccessibilityElement() && wantsEvents()) {
        QAccessibleValueChangeEvent event(interfaceFor(view.shared_from_this()),
                                          view.accessibilityValue());
        post(event);
    }
}

void HostAccessibility::accessibilityLabelChanged(View& view) {
    if (view.isAccessibilityElement() && wantsEvents()) {
        QAccessibleEvent event(interfaceFor(view.shared_from_this()), QAccessible::NameChanged);
        post(event);
    }
}

}  // namespace platform
