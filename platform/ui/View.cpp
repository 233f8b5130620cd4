#include "platform/ui/View.h"

#include "platform/environment/Environment.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/layers/Transaction.h"
#include "platform/ui/GestureRecognizer.h"
#include "platform/ui/LayoutEngine.h"
#include "platform/ui/ViewAnimation.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

// From a view's bounds coordinates to the coordinates of the root of its tree.
QTransform toRoot(const View* view) {
    QTransform t;
    for (const View* v = view; v != nullptr && v->superview(); v = v->superview().get()) {
        t = t * v->layer()->modelState().toSuperlayer();
    }
    return t;
}

// New frame of a subview whose superview went from oldSize to newSize,
// following its autoresizing mask: the flexible parts share the change in
// proportion to their current sizes.
QRectF autoresized(const QRectF& frame, unsigned mask, const QSizeF& oldSize,
                   const QSizeF& newSize) {
    auto axis = [](double origin, double size, double oldTotal, double newTotal, bool flexStart,
                   bool flexSize, bool flexEnd) {
        const double delta = newTotal - oldTotal;
        const double end = oldTotal - origin - size;
        double parts = 0.0;
        parts += flexStart ? origin : 0.0;
        parts += flexSize ? size : 0.0;
        parts += flexEnd ? end : 0.0;
        const int flexCount = int(flexStart) + int(flexSize) + int(flexEnd);
        if (flexCount == 0) {
            return std::pair{origin, size};
        }
        auto share = [&](bool flexible, double part) {
            if (!flexible) {
                return 0.0;
            }
            return parts > 0.0 ? delta * part / parts : delta / flexCount;
        };
        return std::pair{origin + share(flexStart, origin), size + share(flexSize, size)};
    };
    using namespace autoresizing;
    const auto [x, w] =
        axis(frame.x(), frame.width(), oldSize.width(), newSize.width(), mask & kFlexibleLeftMargin,
             mask & kFlexibleWidth, mask & kFlexibleRightMargin);
    const auto [y, h] =
        axis(frame.y(), frame.height(), oldSize.height(), newSize.height(),
             mask & kFlexibleTopMargin, mask & kFlexibleHeight, mask & kFlexibleBottomMargin);
    return {x, y, w, h};
}

}  // namespace

QPointF Touch::locationInView(const View* target) const {
    if (target == nullptr) {
        return locationInWindow;
    }
    return target->convertPointFromView(locationInWindow, nullptr);
}

ViewPtr View::create(const QRectF& frame) {
    return make<View>(frame);
}

View::View(const QRectF& frame) : _initialFrame(frame) {}

View::~View() {
    for (const ViewPtr& subview : _subviews) {
        subview->_superviewPointer = nullptr;
    }
    if (_layer) {
        _layer->setDelegate({});
    }
}

void View::didCreate() {
    _layer = makeBackingLayer();
    _layer->setDelegate(
        std::weak_ptr<LayerDelegate>(std::static_pointer_cast<LayerDelegate>(shared_from_this())));
    Transaction::Scope quiet(true);
    // What the view draws is rendered at the screen's pixel density.
    _layer->setContentsScale(Screen::main().scale());
    _layer->setFrame(_initialFrame);
}

LayerPtr View::makeBackingLayer() {
    return Layer::create();
}

// --- Geometry and appearance ------------------------------------------------

QRectF View::frame() const {
    return _layer->frame();
}

void View::setFrame(const QRectF& frame) {
    const QSizeF oldSize = bounds().size();
    const QRectF oldFrame = this->frame();
    _layer->setFrame(frame);
    notePlacementChange();
    if (bounds().size() != oldSize) {
        LayoutEngine::noteResize(*this);
        setNeedsLayout();
        if (_autoresizesSubviews) {
            for (const ViewPtr& subview : _subviews) {
                if (subview->_translatesMask && subview->_autoresizingMask != 0) {
                    subview->setFrame(autoresized(subview->frame(), subview->_autoresizingMask,
                                                  oldSize, bounds().size()));
                }
            }
        }
    }
    // A frame set again unchanged (a layout pass placing its subviews as
    // they are) asks for no further pass.
    if (auto parent = superview(); parent && this->frame() != oldFrame) {
        parent->setNeedsLayout();
    }
}

void View::notePlacementChange() {
    // The solver knows where views that translate their masks are; a frame
    // set by hand on a constrained view stays until its constraints move it.
    if (_translatesMask || _superview.expired()) {
        LayoutEngine::notePlacementChange(*this);
    }
}

QRectF View::bounds() const {
    return _layer->bounds();
}

void View::setBounds(const QRectF& bounds) {
    const QRectF old = this->bounds();
    if (old == bounds) {
        return;
    }
    _layer->setBounds(bounds);
    notePlacementChange();
    if (old.size() != bounds.size()) {
        LayoutEngine::noteResize(*this);
        setNeedsLayout();
        if (_autoresizesSubviews) {
            for (const ViewPtr& subview : _subviews) {
                if (subview->_translatesMask && subview->_autoresizingMask != 0) {
                    subview->setFrame(autoresized(subview->frame(), subview->_autoresizingMask,
                                                  old.size(), bounds.size()));
                }
            }
        }
    }
}

QPointF View::center() const {
    return _layer->position();
}

void View::setCenter(const QPointF& center) {
    _layer->setPosition(center);
    notePlacementChange();
}

QTransform View::transform() const {
    return _layer->affineTransform();
}

void View::setTransform(const QTransform& transform) {
    _layer->setAffineTransform(transform);
}

double View::alpha() const {
    return _layer->opacity();
}

void View::setAlpha(double alpha) {
    _layer->setOpacity(std::clamp(alpha, 0.0, 1.0));
}

bool View::isHidden() const {
    return _layer->isHidden();
}

void View::setHidden(bool hidden) {
    _layer->setHidden(hidden);
}

QColor View::backgroundColor() const {
    return _layer->backgroundColor();
}

void View::setBackgroundColor(const QColor& color) {
    _layer->setBackgroundColor(color);
}

bool View::clipsToBounds() const {
    return _layer->masksToBounds();
}

void View::setClipsToBounds(bool clips) {
    _layer->setMasksToBounds(clips);
}

void View::setContentMode(ContentMode mode) {
    _contentMode = mode;
    setNeedsDisplay();
}

// --- Hierarchy ----------------------------------------------------------------

void View::addSubview(const ViewPtr& view) {
    insertSubview(view, _subviews.size());
}

void View::insertSubview(const ViewPtr& view, std::size_t index) {
    if (!view || view.get() == this) {
        return;
    }
    const bool sameParent = view->superview().get() == this;
    if (sameParent) {
        auto it = std::find(_subviews.begin(), _subviews.end(), view);
        const auto current = static_cast<std::size_t>(it - _subviews.begin());
        _subviews.erase(it);
        if (index > current) {
            --index;
        }
    } else {
        view->willMoveToSuperview(this);
        view->detachFromSuperview(_window.lock());
    }
    index = std::min(index, _subviews.size());
    _subviews.insert(_subviews.begin() + static_cast<std::ptrdiff_t>(index), view);
    // Sublayers of views keep the views' order; other sublayers stay where
    // they are relative to them.
    const Layer* above =
        index + 1 < _subviews.size() ? _subviews[index + 1]->layer().get() : nullptr;
    if (above != nullptr) {
        _layer->insertSublayerBelow(view->layer(), above);
    } else {
        _layer->addSublayer(view->layer());
    }
    view->_superview = weak_from_this();
    view->_superviewPointer = this;
    // No longer the root of its own tree.
    view->_rootLayoutEngine.reset();
    if (!sameParent) {
        const auto oldWindow = view->_window.lock();
        view->_window = _window;
        if (oldWindow != _window.lock()) {
            // The whole subtree knows its window before anyone hears of the
            // move, as it does when leaving one.
            std::function<void(View&)> attach = [&](View& v) {
                v._window = _window;
                for (const ViewPtr& s : v._subviews) {
                    attach(*s);
                }
            };
            attach(*view);
            view->didMoveToWindow();
        }
        view->didMoveToSuperview();
    }
    setNeedsLayout();
    if (view->_needsLayout || view->_subtreeNeedsLayout) {
        markSubtreeNeedsLayout();
    }
    if (view->_needsUpdateConstraints || view->_subtreeNeedsUpdateConstraints) {
        markSubtreeNeedsUpdateConstraints();
    }
    LayoutEngine::noteStructureChange(*this);
}

void View::insertSubviewAbove(const ViewPtr& view, const View* sibling) {
    auto it = std::find_if(_subviews.begin(), _subviews.end(),
                           [sibling](const ViewPtr& v) { return v.get() == sibling; });
    const auto index = it == _subviews.end() ? _subviews.size()
                                             : static_cast<std::size_t>(it - _subviews.begin()) + 1;
    insertSubview(view, index);
}

void View::insertSubviewBelow(const ViewPtr& view, const View* sibling) {
    auto it = std::find_if(_subviews.begin(), _subviews.end(),
                           [sibling](const ViewPtr& v) { return v.get() == sibling; });
    const auto index = it == _subviews.end() ? 0 : static_cast<std::size_t>(it - _subviews.begin());
    insertSubview(view, index);
}

void View::removeFromSuperview() {
    if (!superview()) {
        return;
    }
    willMoveToSuperview(nullptr);
    detachFromSuperview(nullptr);
    didMoveToSuperview();
}

void View::detachFromSuperview(const std::shared_ptr<Window>& nextWindow) {
    auto parent = superview();
    if (!parent) {
        return;
    }
    auto self = shared_from_this();
    std::erase(parent->_subviews, self);
    _layer->removeFromSuperlayer();
    // Constraints held by former ancestors that mention this subtree go with it.
    for (View* ancestor = parent.get(); ancestor != nullptr;
         ancestor = ancestor->superview().get()) {
        std::erase_if(ancestor->_constraints, [this](const LayoutConstraintPtr& c) {
            auto first = c->firstItem();
            auto second = c->secondItem();
            const bool involves =
                (first && (first.get() == this || first->isDescendantOfView(this))) ||
                (second && (second.get() == this || second->isDescendantOfView(this)));
            if (involves) {
                c->_owner.reset();
            }
            return involves;
        });
    }
    _superview.reset();
    _superviewPointer = nullptr;
    LayoutEngine::noteStructureChange(*parent);
    const auto oldWindow = _window.lock();
    if (oldWindow != nextWindow) {
        std::function<void(View&)> detach = [&](View& v) {
            v._window.reset();
            for (const ViewPtr& s : v._subviews) {
                detach(*s);
            }
        };
        detach(*this);
        if (oldWindow) {
            didMoveToWindow();
        }
    }
    parent->setNeedsLayout();
}

void View::bringSubviewToFront(const View* view) {
    auto it = std::find_if(_subviews.begin(), _subviews.end(),
                           [view](const ViewPtr& v) { return v.get() == view; });
    if (it == _subviews.end()) {
        return;
    }
    ViewPtr moved = *it;
    _subviews.erase(it);
    _subviews.push_back(moved);
    _layer->addSublayer(moved->layer());
}

void View::sendSubviewToBack(const View* view) {
    auto it = std::find_if(_subviews.begin(), _subviews.end(),
                           [view](const ViewPtr& v) { return v.get() == view; });
    if (it == _subviews.end()) {
        return;
    }
    ViewPtr moved = *it;
    _subviews.erase(it);
    _subviews.insert(_subviews.begin(), moved);
    _layer->insertSublayer(moved->layer(), 0);
}

bool View::isDescendantOfView(const View* view) const {
    for (const View* v = this; v != nullptr; v = v->_superviewPointer) {
        if (v == view) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<Window> View::window() const {
    return _window.lock();
}

ViewPtr View::viewWithTag(int tag) {
    if (_tag == tag) {
        return shared_from_this();
    }
    for (const ViewPtr& subview : _subviews) {
        if (auto found = subview->viewWithTag(tag)) {
            return found;
        }
    }
    return nullptr;
}

void View::willMoveToSuperview(const View* /*newSuperview*/) {}
void View::didMoveToSuperview() {}

void View::didMoveToWindow() {
    if (auto controller = _viewController.lock()) {
        auto host = _window.lock();
        controller->viewDidMoveToWindow(host && host->isVisible());
    }
    for (const ViewPtr& subview : _subviews) {
        subview->_window = _window;
        subview->didMoveToWindow();
    }
}

// --- Drawing ------------------------------------------------------------------

void View::setNeedsDisplay() {
    if (drawsContent()) {
        _layer->setNeedsDisplay();
    }
}

void View::drawRect(QPainter& /*context*/, const QRectF& /*rect*/) {}

void View::drawLayer(Layer& /*layer*/, QPainter& context) {
    drawRect(context, bounds());
}

void View::layoutSublayersOfLayer(Layer& /*layer*/) {}

bool View::declinesActions(const Layer& /*layer*/) const {
    return !ViewAnimationBlock::isInsideBlock();
}

void View::layerNeedsLayout(Layer& /*layer*/) {
    // Sublayers added to the view's layer are placed by layoutSubviews.
    setNeedsLayout();
}

bool View::layerDrawsContent(const Layer& /*layer*/) const {
    return drawsContent();
}

std::optional<std::shared_ptr<Animation>> View::actionForLayer(Layer& layer, const QString& key) {
    // A view's layer animates only inside animation blocks.
    return ViewAnimationBlock::actionFor(layer, key, QVariant());
}

// --- Interaction ----------------------------------------------------------------

void View::addGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer) {
    if (!recognizer) {
        return;
    }
    if (auto previous = recognizer->view(); previous && previous.get() != this) {
        previous->removeGestureRecognizer(recognizer.get());
    }
    if (std::find(_gestureRecognizers.begin(), _gestureRecognizers.end(), recognizer) ==
        _gestureRecognizers.end()) {
        _gestureRecognizers.push_back(recognizer);
        recognizer->attachToView(weak_from_this());
    }
}

void View::removeGestureRecognizer(const GestureRecognizer* recognizer) {
    auto it = std::find_if(_gestureRecognizers.begin(), _gestureRecognizers.end(),
                           [recognizer](const auto& r) { return r.get() == recognizer; });
    if (it != _gestureRecognizers.end()) {
        (*it)->attachToView({});
        _gestureRecognizers.erase(it);
    }
}

ViewPtr View::hitTest(const QPointF& point) {
    if (isHidden() || !_userInteractionEnabled || alpha() < 0.01 || !pointInside(point)) {
        return nullptr;
    }
    for (auto it = _subviews.rbegin(); it != _subviews.rend(); ++it) {
        const QPointF local = convertPointToView(point, it->get());
        if (auto hit = (*it)->hitTest(local)) {
            return hit;
        }
    }
    return shared_from_this();
}

bool View::pointInside(const QPointF& point) const {
    return rect::contains(bounds(), point);
}

bool View::gestureRecognizerShouldBegin(const GestureRecognizer& /*recognizer*/) const {
    return true;
}

QPointF View::convertPointToView(const QPointF& point, const View* view) const {
    const QPointF inRoot = toRoot(this).map(point);
    if (view == nullptr) {
        return inRoot;
    }
    return toRoot(view).inverted().map(inRoot);
}

QPointF View::convertPointFromView(const QPointF& point, const View* view) const {
    const QPointF inRoot = view == nullptr ? point : toRoot(view).map(point);
    return toRoot(this).inverted().map(inRoot);
}

QRectF View::convertRectToView(const QRectF& rect, const View* view) const {
    const QTransform t = view == nullptr ? toRoot(this) : toRoot(this) * toRoot(view).inverted();
    return affine::apply(rect, t);
}

void View::touchesBegan(const std::vector<Touch>& touches) {
    if (auto parent = superview()) {
        parent->touchesBegan(touches);
    }
}

void View::touchesMoved(const std::vector<Touch>& touches) {
    if (auto parent = superview()) {
        parent->touchesMoved(touches);
    }
}

void View::touchesEnded(const std::vector<Touch>& touches) {
    if (auto parent = superview()) {
        parent->touchesEnded(touches);
    }
}

void View::touchesCancelled(const std::vector<Touch>& touches) {
    if (auto parent = superview()) {
        parent->touchesCancelled(touches);
    }
}

// --- Animations -----------------------------------------------------------------

void View::animate(double duration, const Animations& animations, Completion completion) {
    animate(duration, 0.0, animation_options::kCurveEaseInOut, animations, std::move(completion));
}

void View::animate(double duration, double delay, unsigned options, const Animations& animations,
                   Completion completion) {
    ViewAnimationBlock::Parameters p;
    p.duration = duration;
    p.delay = delay;
    p.options = options;
    ViewAnimationBlock::run(p, animations, std::move(completion));
}

void View::animateWithSpring(double duration, double delay, double dampingRatio,
                             double initialVelocity, unsigned options, const Animations& animations,
                             Completion completion) {
    ViewAnimationBlock::Parameters p;
    p.duration = duration;
    p.delay = delay;
    p.options = options;
    p.spring = true;
    p.dampingRatio = dampingRatio;
    p.initialVelocity = initialVelocity;
    ViewAnimationBlock::run(p, animations, std::move(completion));
}

void View::performWithoutAnimation(const Animations& changes) {
    ViewAnimationBlock::runWithoutAnimation(changes);
}

bool View::areAnimationsEnabled() {
    return true;
}

// --- Debugging ------------------------------------------------------------------

QString View::typeName() const {
    return QStringLiteral("View");
}

QString View::dump() const {
    QString out;
    std::function<void(const View&, int)> line = [&](const View& v, int depth) {
        const QRectF f = v.frame();
        out += QString(depth * 2, u' ') +
               QStringLiteral("%1 frame=(%2 %3; %4 %5)%6%7%8\n")
                   .arg(v.typeName())
                   .arg(f.x())
                   .arg(f.y())
                   .arg(f.width())
                   .arg(f.height())
                   .arg(v.isHidden() ? QStringLiteral(" hidden") : QString())
                   .arg(v.alpha() < 1.0 ? QStringLiteral(" alpha=%1").arg(v.alpha()) : QString())
                   .arg(v._translatesMask ? QString() : QStringLiteral(" constrained"));
        for (const ViewPtr& s : v._subviews) {
            line(*s, depth + 1);
        }
    };
    line(*this, 0);
    return out;
}

void View::setAccessibilityLabel(const QString& label) {
    if (label == _accessibilityLabel) {
        return;
    }
    _accessibilityLabel = label;
    if (const auto w = window()) {
        w->access().viewLabelChanged(*this);
    }
}

void View::setAccessibilityValue(const QString& value) {
    if (value == _accessibilityValue) {
        return;
    }
    _accessibilityValue = value;
    if (const auto w = window()) {
        w->access().viewValueChanged(*this);
    }
}

}  // namespace platform
