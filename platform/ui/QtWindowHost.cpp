#include "platform/ui/QtWindowHost.h"

#include "platform/ui/Window.h"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QTouchEvent>

namespace platform {

QtWindowHost::QtWindowHost(std::shared_ptr<platform::Window> window, QWindow* parent)
    : QRasterWindow(parent),
      _bridge(std::move(window), [this] { update(); }),
      _accessibility(_bridge.window(), this, [this] { update(); }) {
    connect(this, &QWindow::screenChanged, this,
            [this](QScreen* screen) { _environment.follow(screen); });
    _environment.follow(screen());
}

QtWindowHost::~QtWindowHost() = default;

void QtWindowHost::syncSize() {
    _bridge.setSize(size());
}

QImage QtWindowHost::renderImage() {
    syncSize();
    return _bridge.render(devicePixelRatio());
}

void QtWindowHost::paintEvent(QPaintEvent* /*event*/) {
    syncSize();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    _bridge.paint(painter);
}

void QtWindowHost::resizeEvent(QResizeEvent* /*event*/) {
    syncSize();
}

void QtWindowHost::showEvent(QShowEvent* /*event*/) {
    syncSize();
    _accessibility.hostShown();
    if (!hostedWindow()->isVisible()) {
        hostedWindow()->makeKeyAndVisible();
    }
}

void QtWindowHost::keyPressEvent(QKeyEvent* event) {
    syncSize();
    if (_bridge.keyEvent(*event, true)) {
        event->accept();
    } else {
        QRasterWindow::keyPressEvent(event);
    }
}

void QtWindowHost::focusInEvent(QFocusEvent* event) {
    QRasterWindow::focusInEvent(event);
    _accessibility.hostFocusedIn(event->reason());
}

void QtWindowHost::mousePressEvent(QMouseEvent* event) {
    syncSize();
    event->setAccepted(_bridge.mouseEvent(*event));
}

void QtWindowHost::mouseMoveEvent(QMouseEvent* event) {
    event->setAccepted(_bridge.mouseEvent(*event));
}

void QtWindowHost::mouseReleaseEvent(QMouseEvent* event) {
    event->setAccepted(_bridge.mouseEvent(*event));
}

void QtWindowHost::touchEvent(QTouchEvent* event) {
    syncSize();
    event->setAccepted(_bridge.touchEvent(*event));
}

}  // namespace platform
