#include "platform/ui/Window.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/Transaction.h"
#include "platform/render/LayerPainter.h"
#include "platform/ui/GestureRecognizer.h"
#include "platform/ui/LayoutEngine.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/WindowAccess.h"

#include <algorithm>

namespace platform {

std::shared_ptr<Window> Window::create(const QRectF& frame) {
    return make<Window>(frame);
}

Window::Window(const QRectF& frame) : View(frame), _access(std::make_unique<WindowAccess>(*this)) {
    // A window is always the root of its tree.
    _rootLayoutEngine = std::make_unique<LayoutEngine>();
}

Window::~Window() = default;

void Window::didCreate() {
    View::didCreate();
    _window = std::static_pointer_cast<Window>(shared_from_this());
}

QString Window::typeName() const {
    return QStringLiteral("Window");
}

LayoutEngine& Window::layoutEngine() {
    return *_rootLayoutEngine;
}

WindowAccess& Window::access() {
    return *_access;
}

void Window::setRootViewController(const std::shared_ptr<ViewController>& controller) {
    if (controller == _rootViewController) {
        return;
    }
    if (_rootViewController && _rootViewController->isViewLoaded()) {
        _rootViewController->view()->removeFromSuperview();
    }
    _rootViewController = controller;
    if (!controller) {
        return;
    }
    const ViewPtr& content = controller->view();
    {
        Transaction::Scope quiet(true);
        content->setFrame(bounds());
    }
    content->setAutoresizingMask(autoresizing::kFlexibleWidth | autoresizing::kFlexibleHeight);
    insertSubview(content, 0);
}

void Window::makeKeyAndVisible() {
    if (_visible) {
        return;
    }
    _visible = true;
    View::didMoveToWindow();
}

void Window::layoutIfNeededForHost() {
    layoutIfNeeded();
}

QImage Window::snapshot(double scale) {
    layoutIfNeeded();
    return LayerPainter::snapshot(*layer(), bounds().size(), scale, RunLoop::main().now(),
                                  Qt::black);
}

void Window::setNeedsDisplayHandler(std::function<void()> handler) {
    layer()->setTreeChangedHandler(std::move(handler));
}

namespace {

// The recognisers that may act on a touch that hit `hit`: those of the hit
// view and of its ancestors, innermost first, that the hit view lets begin.
std::vector<std::shared_ptr<GestureRecognizer>> recognizersFor(const ViewPtr& hit) {
    std::vector<std::shared_ptr<GestureRecognizer>> result;
    for (ViewPtr v = hit; v; v = v->superview()) {
        for (const auto& r : v->gestureRecognizers()) {
            if (r->isEnabled() && (v == hit || hit->gestureRecognizerShouldBegin(*r))) {
                result.push_back(r);
            }
        }
    }
    return result;
}

bool isFinished(GestureRecognizer::State state) {
    return state == GestureRecognizer::State::Ended ||
           state == GestureRecognizer::State::Cancelled ||
           state == GestureRecognizer::State::Failed;
}

}  // namespace

void Window::sendTouch(Touch::Phase phase, const QPointF& locationInWindow) {
    layoutIfNeeded();
    Touch touch;
    touch.phase = phase;
    touch.locationInWindow = locationInWindow;
    if (phase == Touch::Phase::Began) {
        touch.view = hitTest(convertPointFromView(locationInWindow, nullptr));
        _activeTouches = {touch};
    } else if (!_activeTouches.empty()) {
        touch.view = _activeTouches.front().view;
    }
    const ViewPtr hit = touch.view.lock();
    if (!hit) {
        if (phase == Touch::Phase::Ended || phase == Touch::Phase::Cancelled) {
            _activeTouches.clear();
        }
        return;
    }
    const auto recognizers = recognizersFor(hit);
    const std::vector<Touch> touches{touch};
    bool recognized = false;
    for (const auto& r : recognizers) {
        switch (phase) {
            case Touch::Phase::Began:
                r->touchesBegan(touches);
                break;
            case Touch::Phase::Moved:
                r->touchesMoved(touches);
                break;
            case Touch::Phase::Ended:
                r->touchesEnded(touches);
                break;
            case Touch::Phase::Cancelled:
                r->touchesCancelled(touches);
                break;
        }
        const auto state = r->state();
        if ((state == GestureRecognizer::State::Ended ||
             state == GestureRecognizer::State::Began) &&
            r->cancelsTouchesInView()) {
            recognized = true;
        }
    }
    switch (phase) {
        case Touch::Phase::Began:
            hit->touchesBegan(touches);
            break;
        case Touch::Phase::Moved:
            hit->touchesMoved(touches);
            break;
        case Touch::Phase::Ended:
            if (recognized) {
                hit->touchesCancelled(touches);
            } else {
                hit->touchesEnded(touches);
            }
            break;
        case Touch::Phase::Cancelled:
            hit->touchesCancelled(touches);
            break;
    }
    if (phase == Touch::Phase::Ended || phase == Touch::Phase::Cancelled) {
        _activeTouches.clear();
        for (const auto& r : recognizers) {
            if (isFinished(r->state())) {
                r->reset();
            }
        }
    }
}

void Window::tap(const QPointF& locationInWindow) {
    sendTouch(Touch::Phase::Began, locationInWindow);
    sendTouch(Touch::Phase::Ended, locationInWindow);
}

}  // namespace platform
