#pragma once

#include <QAccessibleInterface>
#include <QAccessibleWidget>
#include <QPointer>
#include <QWindow>

#include <memory>

namespace platform {

class HostAccessibility;

/// The accessible object of a QtWindowHost: a window whose children are
/// the tree's elements. Internal to the hosts.
class WindowHostAccessible : public QAccessibleInterface {
public:
    WindowHostAccessible(QWindow* window, std::weak_ptr<HostAccessibility*> host);

    bool isValid() const override;
    QObject* object() const override;
    QWindow* window() const override;
    QAccessibleInterface* parent() const override;
    QAccessibleInterface* child(int index) const override;
    int childCount() const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;
    QString text(QAccessible::Text t) const override;
    void setText(QAccessible::Text t, const QString& text) override;
    QRect rect() const override;
    QAccessible::Role role() const override;
    QAccessible::State state() const override;

private:
    QPointer<QWindow> _window;
    std::weak_ptr<HostAccessibility*> _host;
};

/// The accessible object of a QtWidgetHost: a widget whose children are the
/// tree's elements. Internal to the hosts.
class WidgetHostAccessible : public QAccessibleWidget {
public:
    WidgetHostAccessible(QWidget* widget, std::weak_ptr<HostAccessibility*> host);

    QAccessibleInterface* child(int index) const override;
    int childCount() const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;
    QAccessible::State state() const override;

private:
    std::weak_ptr<HostAccessibility*> _host;
};

}  // namespace platform
