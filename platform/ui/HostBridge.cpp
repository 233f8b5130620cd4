#include "platform/ui/HostBridge.h"

#include "platform/environment/Environment.h"
#include "platform/foundation/RunLoop.h"
#include "platform/layers/Layer.h"
#include "platform/render/LayerPainter.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QTouchEvent>

#include <cmath>

namespace platform {
namespace {

constexpr int kFrameInterval = 16;  // milliseconds: about 60 frames a second

bool animating(const Layer& layer, double time) {
    if (layer.hasActiveAnimations(time)) {
        return true;
    }
    for (const LayerPtr& sublayer : layer.sublayers()) {
        if (animating(*sublayer, time)) {
            return true;
        }
    }
    return false;
}

}  // namespace

HostBridge::HostBridge(std::shared_ptr<Window> window, std::function<void()> requestUpdate)
    : _window(std::move(window)), _requestUpdate(std::move(requestUpdate)) {
    _frames.setInterval(kFrameInterval);
    QObject::connect(&_frames, &QTimer::timeout, [this] { _requestUpdate(); });
    _window->setNeedsDisplayHandler([this] { treeChanged(); });
}

HostBridge::~HostBridge() {
    _window->setNeedsDisplayHandler({});
}

void HostBridge::treeChanged() {
    // Painting displays layers and lays out, which reports changes of its
    // own; those are already on screen.
    if (!_painting) {
        _requestUpdate();
    }
}

void HostBridge::setSize(const QSizeF& size) {
    Device::current().setWindowSize(size);
    const QRectF frame(QPointF(0, 0), size);
    if (_window->frame() != frame) {
        _window->setFrame(frame);
    }
}

void HostBridge::paint(QPainter& painter) {
    _painting = true;
    _window->layoutIfNeededForHost();
    LayerPainter::paint(painter, *_window->layer(), RunLoop::main().now(), _window->bounds(),
                        Qt::black);
    _window->access().paintFocusRing(painter);
    _painting = false;
    scheduleFrames();
}

QImage HostBridge::render(double devicePixelRatio) {
    const QSizeF size = _window->bounds().size();
    QImage image(QSize(static_cast<int>(std::ceil(size.width() * devicePixelRatio)),
                       static_cast<int>(std::ceil(size.height() * devicePixelRatio))),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::black);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(painter);
    return image;
}

bool HostBridge::isAnimating(double time) const {
    return animating(*_window->layer(), time);
}

void HostBridge::scheduleFrames() {
    if (isAnimating(RunLoop::main().now())) {
        if (!_frames.isActive()) {
            _frames.start();
        }
    } else {
        _frames.stop();
    }
}

bool HostBridge::mouseEvent(const QMouseEvent& event) {
    const QPointF location = event.position();
    switch (event.type()) {
        case QEvent::MouseButtonPress:
            if (_mouseDown) {
                return false;
            }
            _mouseDown = true;
            _window->sendTouch(Touch::Phase::Began, location);
            return true;
        case QEvent::MouseMove:
            if (!_mouseDown) {
                return false;
            }
            _window->sendTouch(Touch::Phase::Moved, location);
            return true;
        case QEvent::MouseButtonRelease:
            if (!_mouseDown || event.buttons() != Qt::NoButton) {
                return false;
            }
            _mouseDown = false;
            _window->sendTouch(Touch::Phase::Ended, location);
            return true;
        default:
            return false;
    }
}

bool HostBridge::touchEvent(const QTouchEvent& event) {
    if (event.type() == QEvent::TouchCancel) {
        _window->sendTouch(Touch::Phase::Cancelled, {});
        return true;
    }
    if (event.points().isEmpty()) {
        return false;
    }
    const QEventPoint& point = event.points().front();
    switch (point.state()) {
        case QEventPoint::State::Pressed:
            _window->sendTouch(Touch::Phase::Began, point.position());
            return true;
        case QEventPoint::State::Updated:
            _window->sendTouch(Touch::Phase::Moved, point.position());
            return true;
        case QEventPoint::State::Released:
            _window->sendTouch(Touch::Phase::Ended, point.position());
            return true;
        default:
            return true;
    }
}

bool HostBridge::keyEvent(const QKeyEvent& event, bool wrapFocus) {
    if (event.type() != QEvent::KeyPress) {
        return false;
    }
    _window->layoutIfNeededForHost();
    return _window->access().keyPress(event.key(), event.modifiers(), wrapFocus);
}

}  // namespace platform
