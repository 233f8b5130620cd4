#pragma once

#include "platform/ui/View.h"

#include <QAccessibleActionInterface>
#include <QAccessibleInterface>

#include <memory>

namespace platform {

class HostAccessibility;

/// What assistive tools (through Qt's accessibility, on Linux AT-SPI) see of
/// one accessibility element of a hosted tree: role from its traits, name
/// from its label, description from its hint, value from its value, a press
/// action when it can be pressed, and its states (disabled, selected,
/// hidden, focused). Made and kept by the host's HostAccessibility; invalid
/// once the view is gone or has left the host's window. Main thread only.
class ViewAccessible : public QAccessibleInterface, public QAccessibleActionInterface {
public:
    ViewAccessible(const ViewPtr& view, HostAccessibility& host);

    ViewPtr view() const { return _view.lock(); }

    // QAccessibleInterface
    bool isValid() const override;
    QObject* object() const override { return nullptr; }
    QWindow* window() const override;
    QAccessibleInterface* parent() const override;
    QAccessibleInterface* child(int index) const override;
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;
    QString text(QAccessible::Text t) const override;
    void setText(QAccessible::Text t, const QString& text) override;
    QRect rect() const override;
    QAccessible::Role role() const override;
    QAccessible::State state() const override;
    void* interface_cast(QAccessible::InterfaceType type) override;

    // QAccessibleActionInterface
    QStringList actionNames() const override;
    void doAction(const QString& actionName) override;
    QStringList keyBindingsForAction(const QString& actionName) const override;

private:
    std::weak_ptr<View> _view;
    HostAccessibility& _host;
};

}  // namespace platform
