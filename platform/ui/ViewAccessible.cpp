#include "platform/ui/ViewAccessible.h"

#include "platform/ui/AccessibilityTraits.h"
#include "platform/ui/AccessibleElements.h"
#include "platform/ui/HostAccessibility.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

namespace platform {

ViewAccessible::ViewAccessible(const ViewPtr& view, HostAccessibility& host)
    : _view(view), _host(host) {}

bool ViewAccessible::isValid() const {
    const ViewPtr v = view();
    return v && v->window() == _host.window();
}

QWindow* ViewAccessible::window() const {
    return _host.qtWindow();
}

QAccessibleInterface* ViewAccessible::parent() const {
    return _host.root();
}

QAccessibleInterface* ViewAccessible::child(int /*index*/) const {
    return nullptr;
}

int ViewAccessible::indexOfChild(const QAccessibleInterface* /*child*/) const {
    return -1;
}

QAccessibleInterface* ViewAccessible::childAt(int /*x*/, int /*y*/) const {
    return nullptr;
}

QString ViewAccessible::text(QAccessible::Text t) const {
    const ViewPtr v = view();
    if (!v) {
        return {};
    }
    switch (t) {
        case QAccessible::Name:
            return v->accessibilityLabel();
        case QAccessible::Description:
        case QAccessible::Help:
            return v->accessibilityHint();
        case QAccessible::Value:
            return v->accessibilityValue();
        default:
            return {};
    }
}

void ViewAccessible::setText(QAccessible::Text /*t*/, const QString& /*text*/) {
    // The texts are the component's own; assistive tools only read them.
}

QRect ViewAccessible::rect() const {
    const ViewPtr v = view();
    return v ? _host.toGlobal(accessible::frameInWindow(*v)) : QRect();
}

QAccessible::Role ViewAccessible::role() const {
    namespace t = accessibility_traits;
    const ViewPtr v = view();
    const unsigned traits = v ? accessible::traits(*v) : t::kNone;
    if (traits & t::kAdjustable) {
        return QAccessible::Slider;
    }
    if (traits & t::kButton) {
        return QAccessible::Button;
    }
    if (traits & t::kLink) {
        return QAccessible::Link;
    }
    if (traits & t::kHeader) {
        return QAccessible::Heading;
    }
    if (traits & t::kImage) {
        return QAccessible::Graphic;
    }
    if (traits & t::kStaticText) {
        return QAccessible::StaticText;
    }
    return QAccessible::Pane;
}

QAccessible::State ViewAccessible::state() const {
    namespace t = accessibility_traits;
    QAccessible::State s;
    const ViewPtr v = view();
    if (!v || !isValid()) {
        s.invalid = true;
        return s;
    }
    const unsigned traits = accessible::traits(*v);
    s.disabled = (traits & t::kNotEnabled) != 0;
    s.selectable = (traits & t::kSelected) != 0;
    s.selected = (traits & t::kSelected) != 0;
    s.invisible = !accessible::isShown(*v);
    s.offscreen = s.invisible;
    s.focusable = accessible::isPressable(*v);
    const auto window = _host.window();
    s.focused = window && window->access().focusedView() == v;
    return s;
}

void* ViewAccessible::interface_cast(QAccessible::InterfaceType type) {
    if (type == QAccessible::ActionInterface) {
        return static_cast<QAccessibleActionInterface*>(this);
    }
    return nullptr;
}

QStringList ViewAccessible::actionNames() const {
    const ViewPtr v = view();
    if (!v || !isValid() || !accessible::isPressable(*v)) {
        return {};
    }
    return {pressAction(), setFocusAction()};
}

void ViewAccessible::doAction(const QString& actionName) {
    const ViewPtr v = view();
    if (!v || !isValid()) {
        return;
    }
    if (actionName == pressAction()) {
        accessible::press(*v);
    } else if (actionName == setFocusAction()) {
        if (const auto window = _host.window()) {
            window->access().setFocusedView(v);
        }
    }
}

QStringList ViewAccessible::keyBindingsForAction(const QString& actionName) const {
    if (actionName == pressAction()) {
        return {QStringLiteral("Space"), QStringLiteral("Return")};
    }
    return {};
}

}  // namespace platform
