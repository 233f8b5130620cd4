#pragma once

#include "platform/ui/HostAccessibility.h"
#include "platform/ui/HostBridge.h"
#include "platform/ui/ScreenEnvironment.h"

#include <QImage>
#include <QRasterWindow>

#include <memory>

namespace platform {

class Window;

/// A top-level Qt window that shows a Window's tree: the tree is sized to
/// it, laid out and painted at its device pixel ratio, repainted on change
/// and while animations run, and fed its mouse and touch input; the
/// environment follows its screen. Showing the host makes the window key
/// and visible. Main thread only.
class QtWindowHost : public QRasterWindow, public AccessibleHost {
    Q_OBJECT

public:
    explicit QtWindowHost(std::shared_ptr<platform::Window> window, QWindow* parent = nullptr);
    ~QtWindowHost() override;

    const std::shared_ptr<platform::Window>& hostedWindow() const { return _bridge.window(); }
    /// The tree as the host paints it, at the host's device pixel ratio.
    QImage renderImage();
    HostAccessibility& hostAccessibility() override { return _accessibility; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void touchEvent(QTouchEvent* event) override;

private:
    void syncSize();

    HostBridge _bridge;
    HostAccessibility _accessibility;
    ScreenEnvironment _environment;
};

}  // namespace platform
