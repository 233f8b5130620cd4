#include "platform/ui/QtWidgetHost.h"

#include "platform/ui/Window.h"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QTouchEvent>
#include <QWindow>

namespace platform {

QtWidgetHost::QtWidgetHost(std::shared_ptr<Window> window, QWidget* parent)
    : QWidget(parent),
      _bridge(std::move(window), [this] { update(); }),
      _accessibility(_bridge.window(), this, [this] { update(); }) {
    setAttribute(Qt::WA_AcceptTouchEvents);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

QtWidgetHost::~QtWidgetHost() {
    QObject::disconnect(_screenChanges);
}

QSize QtWidgetHost::sizeHint() const {
    return hostedWindow()->bounds().size().toSize();
}

void QtWidgetHost::syncSize() {
    _bridge.setSize(size());
}

QImage QtWidgetHost::renderImage() {
    syncSize();
    return _bridge.render(devicePixelRatioF());
}

void QtWidgetHost::followTopLevelScreen() {
    QWindow* handle = window()->windowHandle();
    QObject::disconnect(_screenChanges);
    if (handle != nullptr) {
        _screenChanges = connect(handle, &QWindow::screenChanged, this,
                                 [this](QScreen* screen) { _environment.follow(screen); });
    }
    _environment.follow(screen());
}

bool QtWidgetHost::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::TouchBegin:
        case QEvent::TouchUpdate:
        case QEvent::TouchEnd:
        case QEvent::TouchCancel:
            syncSize();
            event->setAccepted(_bridge.touchEvent(*static_cast<QTouchEvent*>(event)));
            return true;
        case QEvent::KeyPress:
            // Before QWidget, which would take Tab to move between widgets:
            // Tab moves among the tree's elements first.
            syncSize();
            if (_bridge.keyEvent(*static_cast<QKeyEvent*>(event), false)) {
                event->accept();
                return true;
            }
            return QWidget::event(event);
        default:
            return QWidget::event(event);
    }
}

void QtWidgetHost::paintEvent(QPaintEvent* /*event*/) {
    syncSize();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    _bridge.paint(painter);
}

void QtWidgetHost::resizeEvent(QResizeEvent* /*event*/) {
    syncSize();
}

void QtWidgetHost::showEvent(QShowEvent* /*event*/) {
    syncSize();
    _accessibility.hostShown();
    followTopLevelScreen();
    if (!hostedWindow()->isVisible()) {
        hostedWindow()->makeKeyAndVisible();
    }
}

void QtWidgetHost::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    _accessibility.hostFocusedIn(event->reason());
}

void QtWidgetHost::mousePressEvent(QMouseEvent* event) {
    syncSize();
    event->setAccepted(_bridge.mouseEvent(*event));
}

void QtWidgetHost::mouseMoveEvent(QMouseEvent* event) {
    event->setAccepted(_bridge.mouseEvent(*event));
}

void QtWidgetHost::mouseReleaseEvent(QMouseEvent* event) {
    event->setAccepted(_bridge.mouseEvent(*event));
}

}  // namespace platform
