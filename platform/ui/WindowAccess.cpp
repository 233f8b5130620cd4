#include "platform/ui/WindowAccess.h"

#include "platform/ui/AccessibleElements.h"
#include "platform/ui/AlertController.h"
#include "platform/ui/Window.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace platform {
namespace {

constexpr double kRingOutset = 3.0;
constexpr double kRingRadius = 6.0;
constexpr double kRingWidth = 3.0;
const QColor kRingColor(10, 132, 255);
const QColor kRingInner(255, 255, 255);

bool isReturn(int key) {
    return key == Qt::Key_Return || key == Qt::Key_Enter;
}

Qt::KeyboardModifiers significant(Qt::KeyboardModifiers modifiers) {
    return modifiers & ~Qt::KeypadModifier;
}

}  // namespace

WindowAccess::WindowAccess(Window& window) : _window(window) {}

WindowAccess::~WindowAccess() = default;

WindowAccess::CommandId WindowAccess::addKeyCommand(KeyCommand command) {
    const CommandId id = _nextId++;
    _bindings.push_back({id, std::move(command)});
    return id;
}

void WindowAccess::removeKeyCommand(CommandId id) {
    std::erase_if(_bindings, [id](const Binding& b) { return b.id == id; });
}

std::vector<KeyCommand> WindowAccess::keyCommands() const {
    std::vector<KeyCommand> commands;
    commands.reserve(_bindings.size());
    for (const Binding& b : _bindings) {
        commands.push_back(b.command);
    }
    return commands;
}

bool WindowAccess::keyPress(int key, Qt::KeyboardModifiers modifiers, bool wrapFocus) {
    const Qt::KeyboardModifiers held = significant(modifiers);
    if (key == Qt::Key_Backtab || (key == Qt::Key_Tab && held == Qt::ShiftModifier)) {
        return moveFocus(false, wrapFocus);
    }
    if (key == Qt::Key_Tab && held == Qt::NoModifier) {
        return moveFocus(true, wrapFocus);
    }
    if ((key == Qt::Key_Space || isReturn(key)) && held == Qt::NoModifier) {
        if (const ViewPtr focused = focusedView()) {
            accessible::press(*focused);
            return true;
        }
    }
    if (held == Qt::NoModifier && answerAlert(key)) {
        return true;
    }
    return runKeyCommand(key, held);
}

bool WindowAccess::answerAlert(int key) {
    const auto alert =
        std::dynamic_pointer_cast<AlertController>(accessible::frontController(_window));
    if (!alert || (!isReturn(key) && key != Qt::Key_Escape)) {
        return false;
    }
    const auto& actions = alert->actions();
    const AlertActionStyle wanted =
        isReturn(key) ? AlertActionStyle::Default : AlertActionStyle::Cancel;
    auto it = std::find_if(actions.begin(), actions.end(), [&](const AlertActionPtr& a) {
        return a->style() == wanted && a->isEnabled();
    });
    // A lone button is both the default and the way out.
    if (it == actions.end() && actions.size() == 1 && actions.front()->isEnabled()) {
        it = actions.begin();
    }
    if (it == actions.end()) {
        return false;
    }
    alert->performAction(*it);
    return true;
}

bool WindowAccess::runKeyCommand(int key, Qt::KeyboardModifiers modifiers) {
    const auto front = accessible::frontController(_window);
    for (auto it = _bindings.rbegin(); it != _bindings.rend(); ++it) {
        const KeyCommand& command = it->command;
        if (command.key != key || significant(command.modifiers) != modifiers || !command.action) {
            continue;
        }
        if (!command.controller.expired() && command.controller.lock() != front) {
            continue;
        }
        // The action may remove bindings, this one included.
        const auto action = command.action;
        action();
        return true;
    }
    return false;
}

std::vector<ViewPtr> WindowAccess::focusableViews() const {
    auto views = accessible::elements(accessible::frontScreen(_window));
    std::erase_if(views, [](const ViewPtr& v) { return !accessible::isPressable(*v); });
    return views;
}

ViewPtr WindowAccess::focusedView() const {
    const ViewPtr focused = _focused.lock();
    if (!focused || focused->window().get() != &_window || !accessible::isShown(*focused) ||
        !accessible::isPressable(*focused)) {
        return nullptr;
    }
    const ViewPtr front = accessible::frontScreen(_window);
    return focused->isDescendantOfView(front.get()) ? focused : nullptr;
}

bool WindowAccess::setFocusedView(const ViewPtr& view) {
    const auto views = focusableViews();
    if (std::find(views.begin(), views.end(), view) == views.end()) {
        return false;
    }
    focus(view);
    return true;
}

void WindowAccess::clearFocus() {
    focus(nullptr);
}

bool WindowAccess::moveFocus(bool forward, bool wrap) {
    const auto views = focusableViews();
    const ViewPtr current = focusedView();
    const auto at = std::find(views.begin(), views.end(), current);
    ViewPtr next;
    if (views.empty()) {
        next = nullptr;
    } else if (!current || at == views.end()) {
        next = forward ? views.front() : views.back();
    } else if (forward) {
        next = std::next(at) != views.end() ? *std::next(at) : (wrap ? views.front() : nullptr);
    } else {
        next = at != views.begin() ? *std::prev(at) : (wrap ? views.back() : nullptr);
    }
    focus(next);
    return next != nullptr;
}

void WindowAccess::focus(const ViewPtr& view) {
    const ViewPtr before = _focused.lock();
    _focused = view;
    if (before == view) {
        return;
    }
    const auto observers = _observers;
    for (WindowAccessObserver* observer : observers) {
        observer->keyboardFocusChanged(view);
    }
}

QRectF WindowAccess::focusRingRect() const {
    const ViewPtr focused = focusedView();
    if (!focused) {
        return {};
    }
    return accessible::frameInWindow(*focused).adjusted(-kRingOutset, -kRingOutset, kRingOutset,
                                                        kRingOutset);
}

void WindowAccess::paintFocusRing(QPainter& painter) const {
    const QRectF ring = focusRingRect();
    if (ring.isEmpty()) {
        return;
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    const double half = kRingWidth / 2;
    painter.setPen(QPen(kRingColor, kRingWidth));
    painter.drawRoundedRect(ring.adjusted(half, half, -half, -half), kRingRadius, kRingRadius);
    // A thin light edge inside keeps the ring visible on blue content.
    painter.setPen(QPen(kRingInner, 1.0));
    const double inner = kRingWidth + 0.5;
    painter.drawRoundedRect(ring.adjusted(inner, inner, -inner, -inner), kRingRadius - half,
                            kRingRadius - half);
    painter.restore();
}

void WindowAccess::addObserver(WindowAccessObserver* observer) {
    if (observer != nullptr &&
        std::find(_observers.begin(), _observers.end(), observer) == _observers.end()) {
        _observers.push_back(observer);
    }
}

void WindowAccess::removeObserver(WindowAccessObserver* observer) {
    std::erase(_observers, observer);
}

void WindowAccess::viewValueChanged(View& view) {
    const auto observers = _observers;
    for (WindowAccessObserver* observer : observers) {
        observer->accessibilityValueChanged(view);
    }
}

void WindowAccess::viewLabelChanged(View& view) {
    const auto observers = _observers;
    for (WindowAccessObserver* observer : observers) {
        observer->accessibilityLabelChanged(view);
    }
}

}  // namespace platform
