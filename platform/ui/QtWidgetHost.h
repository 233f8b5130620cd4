#pragma once

#include "platform/ui/HostAccessibility.h"
#include "platform/ui/HostBridge.h"
#include "platform/ui/ScreenEnvironment.h"

#include <QImage>
#include <QMetaObject>
#include <QWidget>

#include <memory>

namespace platform {

class Window;

/// A widget that shows a Window's tree inside a widget application, the way
/// QtWindowHost does in a window of its own: sized to the widget, painted at
/// its device pixel ratio, repainted on change and while animations run, fed
/// mouse and touch input, with the environment following the screen of the
/// widget's top-level window. Showing it makes the window key and visible.
/// Main thread only; needs a QApplication.
class QtWidgetHost : public QWidget, public AccessibleHost {
    Q_OBJECT

public:
    explicit QtWidgetHost(std::shared_ptr<Window> window, QWidget* parent = nullptr);
    ~QtWidgetHost() override;

    const std::shared_ptr<Window>& hostedWindow() const { return _bridge.window(); }
    /// The tree as the widget paints it, at the widget's device pixel ratio.
    QImage renderImage();
    HostAccessibility& hostAccessibility() override { return _accessibility; }
    QSize sizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void syncSize();
    void followTopLevelScreen();

    HostBridge _bridge;
    HostAccessibility _accessibility;
    ScreenEnvironment _environment;
    QMetaObject::Connection _screenChanges;
};

}  // namespace platform
