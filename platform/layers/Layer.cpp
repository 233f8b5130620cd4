#include "platform/layers/Layer.h"

#include "platform/layers/LayerRunning.h"

#include "platform/foundation/RunLoop.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/layers/KeyValues.h"
#include "platform/layers/Transaction.h"
#include "platform/layers/TransactionTracking.h"
#include "platform/layers/TransformParts.h"

#include <QHash>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace platform {

// --- Layer: helpers ----------------------------------------------------------------

namespace {

// The property a key path belongs to: "position.x" is part of "position".
QString baseKey(const QString& keyPath) {
    const qsizetype dot = keyPath.indexOf(QLatin1Char('.'));
    return dot < 0 ? keyPath : keyPath.left(dot);
}

bool isAnimatable(const QString& key) {
    static const QStringList animatable = {
        QStringLiteral("bounds"),          QStringLiteral("position"),
        QStringLiteral("anchorPoint"),     QStringLiteral("opacity"),
        QStringLiteral("backgroundColor"), QStringLiteral("cornerRadius"),
        QStringLiteral("transform"),       QStringLiteral("fillColor"),
        QStringLiteral("strokeColor"),     QStringLiteral("lineWidth"),
        QStringLiteral("strokeStart"),     QStringLiteral("strokeEnd"),
    };
    return animatable.contains(key);
}

void applyAnimation(const Animation& animation, double elapsed, const LayerState& model,
                    LayerState& state) {
    const double progress = animation.progressAt(elapsed);
    if (progress < 0.0) {
        return;
    }
    if (const auto* property = dynamic_cast<const PropertyAnimation*>(&animation)) {
        const QString& keyPath = property->keyPath();
        state.setValue(keyPath, property->valueAt(progress, model.value(keyPath)));
        return;
    }
    if (const auto* group = dynamic_cast<const AnimationGroup*>(&animation)) {
        // Children run on the group's local time, so they repeat with it and
        // never outlast it.
        const double local = progress * group->effectiveDuration();
        for (const auto& child : group->animations()) {
            if (child) {
                applyAnimation(*child, local - child->beginTime(), model, state);
            }
        }
    }
}

bool isSelfOrAncestor(const Layer* candidate, const Layer& layer) {
    if (candidate == &layer) {
        return true;
    }
    for (LayerPtr up = layer.superlayer(); up; up = up->superlayer()) {
        if (up.get() == candidate) {
            return true;
        }
    }
    return false;
}

QString formatNumber(double value) {
    return QString::number(value, 'g', 6);
}

}  // namespace

// --- Layer: lifetime ---------------------------------------------------------------

LayerPtr Layer::create() {
    return LayerPtr(new Layer());
}

Layer::Layer() : _madeAtCommit(detail::commitCount()) {}

Layer::~Layer() {
    for (const LayerPtr& sublayer : _sublayers) {
        sublayer->_superlayerPointer = nullptr;
    }
    for (auto& entry : _animations) {
        stopEarly(*entry.second);
    }
}

QString Layer::typeName() const {
    return QStringLiteral("Layer");
}

// --- Layer: geometry and appearance ------------------------------------------------

QRectF Layer::frame() const {
    return _model.frame();
}

void Layer::setFrame(const QRectF& frame) {
    // Like the platform, a transformed layer gets this as its untransformed frame.
    const QRectF f = rect::standardize(frame);
    const QPointF anchor = _model.anchorPoint;
    setPosition({f.x() + anchor.x() * f.width(), f.y() + anchor.y() * f.height()});
    setBounds({_model.bounds.topLeft(), f.size()});
}

QRectF Layer::bounds() const {
    return _model.bounds;
}

void Layer::setBounds(const QRectF& bounds) {
    setGeometryValue(&LayerState::bounds, QStringLiteral("bounds"), bounds);
}

QPointF Layer::position() const {
    return _model.position;
}

void Layer::setPosition(const QPointF& position) {
    setGeometryValue(&LayerState::position, QStringLiteral("position"), position);
}

QPointF Layer::anchorPoint() const {
    return _model.anchorPoint;
}

void Layer::setAnchorPoint(const QPointF& anchorPoint) {
    setModelValue(QStringLiteral("anchorPoint"), anchorPoint);
}

QTransform Layer::affineTransform() const {
    return _model.transform;
}

void Layer::setAffineTransform(const QTransform& transform) {
    setModelValue(QStringLiteral("transform"), QVariant::fromValue(transform));
}

double Layer::opacity() const {
    return _model.opacity;
}

void Layer::setOpacity(double opacity) {
    setModelValue(QStringLiteral("opacity"), opacity);
}

bool Layer::isHidden() const {
    return _model.hidden;
}

void Layer::setHidden(bool hidden) {
    setModelValue(QStringLiteral("hidden"), hidden);
}

QColor Layer::backgroundColor() const {
    return _model.backgroundColor;
}

void Layer::setBackgroundColor(const QColor& color) {
    setModelValue(QStringLiteral("backgroundColor"), QVariant::fromValue(color));
}

double Layer::cornerRadius() const {
    return _model.cornerRadius;
}

void Layer::setCornerRadius(double radius) {
    setModelValue(QStringLiteral("cornerRadius"), radius);
}

void Layer::setMasksToBounds(bool masks) {
    _masksToBounds = masks;
    markChanged();
}

void Layer::setContents(const QImage& contents) {
    _contents = contents;
    markChanged();
}

void Layer::setContentsGravity(ContentsGravity gravity) {
    _contentsGravity = gravity;
    markChanged();
}

void Layer::setContentsScale(double scale) {
    if (!(scale > 0.0)) {
        return;
    }
    _contentsScale = scale;
    markChanged();
}

// --- Layer: model values and actions -------------------------------------------------

QVariant Layer::valueForKeyPath(const QString& keyPath) const {
    return _model.value(keyPath);
}

void Layer::setValueForKeyPath(const QString& keyPath, const QVariant& value) {
    setModelValue(keyPath, value);
}

void Layer::setModelValue(const QString& keyPath, const QVariant& value) {
    const QString key = baseKey(keyPath);
    // The rendered value is only read when an action may follow; without
    // animations it is the model itself.
    const auto delegate = _delegate.lock();
    const bool quiet = Transaction::disableActions() ||
                       (delegate && delegate->declinesActions(*this)) || !isAnimatable(key);
    const QVariant oldRendered = quiet                 ? QVariant()
                                 : _animations.empty() ? _model.value(key)
                                                       : presentationState().value(key);
    const QSizeF oldSize = _model.bounds.size();
    if (!_model.setValue(keyPath, value)) {
        return;
    }
    if (_model.bounds.size() != oldSize) {
        _needsLayout = true;
        noteNeedsLayoutAbove();
    }
    if (quiet) {
        markChanged();
    } else {
        didChangeValue(key, oldRendered);
    }
}

// Layout moves views' layers every frame of a spring, nearly always with
// actions declined: then nothing needs the old or new value as a QVariant, and
// the field is written directly.
template <typename T>
void Layer::setGeometryValue(T LayerState::*field, const QString& key, const T& value) {
    const auto delegate = _delegate.lock();
    const bool quiet =
        Transaction::disableActions() || (delegate && delegate->declinesActions(*this));
    if (!quiet) {
        setModelValue(key, QVariant::fromValue(value));
        return;
    }
    const QSizeF oldSize = _model.bounds.size();
    _model.*field = value;
    if (_model.bounds.size() != oldSize) {
        _needsLayout = true;
        noteNeedsLayoutAbove();
    }
    markChanged();
}

void Layer::didChangeValue(const QString& keyPath, const QVariant& oldRendered) {
    if (isAnimatable(keyPath)) {
        runAction(keyPath, oldRendered);
    }
    markChanged();
}

void Layer::runAction(const QString& key, const QVariant& oldRendered) {
    if (Transaction::disableActions()) {
        return;
    }
    if (const auto delegate = _delegate.lock()) {
        if (auto decided = delegate->actionForLayer(*this, key)) {
            if (!*decided) {
                return;
            }
            std::shared_ptr<Animation> action = (*decided)->clone();
            if (auto* basic = dynamic_cast<BasicAnimation*>(action.get())) {
                if (basic->keyPath().isEmpty()) {
                    basic->setKeyPath(key);
                }
                if (!basic->fromValue().isValid() && basic->keyPath() == key) {
                    basic->setFromValue(oldRendered);
                }
            }
            startAnimation(std::move(action), key);
            return;
        }
    }
    // A layer made since the last commit has never been on screen: it takes
    // its first values at once.
    if (detail::commitCount() == _madeAtCommit) {
        return;
    }
    auto implicit = BasicAnimation::create(key);
    implicit->setFromValue(oldRendered);
    implicit->setToValue(_model.value(key));
    implicit->setDuration(Transaction::animationDuration());
    implicit->setTimingFunction(TimingFunction::Default);
    startAnimation(std::move(implicit), key);
}

LayerState Layer::presentationState(double time) const {
    LayerState state = _model;
    for (const auto& entry : _animations) {
        const Running& running = *entry.second;
        if (!running.superseded) {
            applyAnimation(*running.animation, time - running.start, _model, state);
        }
    }
    return state;
}

LayerState Layer::presentationState() const {
    return presentationState(RunLoop::main().now());
}

void Layer::setDelegate(std::weak_ptr<LayerDelegate> delegate) {
    _delegate = std::move(delegate);
    markChanged();
}

// --- Layer: tree -------------------------------------------------------------------

void Layer::addSublayer(const LayerPtr& layer) {
    insertSublayer(layer, _sublayers.size());
}

void Layer::insertSublayer(const LayerPtr& layer, std::size_t index) {
    if (!layer || isSelfOrAncestor(layer.get(), *this)) {
        return;
    }
    // A copy: layer may be a reference into the old superlayer's list.
    const LayerPtr child = layer;
    child->removeFromSuperlayer();
    index = std::min(index, _sublayers.size());
    _sublayers.insert(_sublayers.begin() + static_cast<std::ptrdiff_t>(index), child);
    child->_superlayer = weak_from_this();
    child->_superlayerPointer = this;
    if (child->_needsLayout || child->_sublayerNeedsLayout) {
        _sublayerNeedsLayout = true;
        noteNeedsLayoutAbove();
    }
    requestLayout();
    markChanged();
}

void Layer::insertSublayerBelow(const LayerPtr& layer, const Layer* sibling) {
    if (!layer || isSelfOrAncestor(layer.get(), *this)) {
        return;
    }
    const LayerPtr child = layer;
    child->removeFromSuperlayer();
    const auto it = std::find_if(_sublayers.begin(), _sublayers.end(),
                                 [sibling](const LayerPtr& l) { return l.get() == sibling; });
    const std::size_t index =
        it == _sublayers.end() ? 0 : static_cast<std::size_t>(it - _sublayers.begin());
    insertSublayer(child, index);
}

void Layer::insertSublayerAbove(const LayerPtr& layer, const Layer* sibling) {
    if (!layer || isSelfOrAncestor(layer.get(), *this)) {
        return;
    }
    const LayerPtr child = layer;
    child->removeFromSuperlayer();
    const auto it = std::find_if(_sublayers.begin(), _sublayers.end(),
                                 [sibling](const LayerPtr& l) { return l.get() == sibling; });
    const std::size_t index = it == _sublayers.end()
                                  ? _sublayers.size()
                                  : static_cast<std::size_t>(it - _sublayers.begin()) + 1;
    insertSublayer(child, index);
}

void Layer::removeFromSuperlayer() {
    const LayerPtr super = _superlayer.lock();
    if (!super) {
        _superlayer.reset();
        _superlayerPointer = nullptr;
        return;
    }
    // The superlayer may hold the last reference to this layer.
    const LayerPtr self = weak_from_this().lock();
    auto& siblings = super->_sublayers;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), self), siblings.end());
    _superlayer.reset();
    _superlayerPointer = nullptr;
    super->requestLayout();
    super->markChanged();
}

void Layer::setTreeChangedHandler(std::function<void()> handler) {
    _treeChanged =
        handler ? std::make_shared<const std::function<void()>>(std::move(handler)) : nullptr;
}

void Layer::markChanged() {
    const Layer* root = this;
    while (root->_superlayerPointer != nullptr) {
        root = root->_superlayerPointer;
    }
    if (root->_treeChanged) {
        const auto handler = root->_treeChanged;
        (*handler)();
    }
}

void Layer::noteNeedsLayoutAbove() {
    for (Layer* up = _superlayerPointer; up != nullptr && !up->_sublayerNeedsLayout;
         up = up->_superlayerPointer) {
        up->_sublayerNeedsLayout = true;
    }
}

// --- Layer: drawing and layout -------------------------------------------------------

void Layer::setNeedsLayout() {
    requestLayout();
    markChanged();
}

void Layer::setNeedsLayoutForDelegate() {
    if (!_needsLayout) {
        _needsLayout = true;
        noteNeedsLayoutAbove();
    }
    markChanged();
}

void Layer::requestLayout() {
    if (_needsLayout) {
        return;
    }
    _needsLayout = true;
    noteNeedsLayoutAbove();
    if (const auto delegate = _delegate.lock()) {
        delegate->layerNeedsLayout(*this);
    }
}

void Layer::layoutIfNeeded() {
    if (_needsLayout) {
        _needsLayout = false;
        layoutSublayers();
    }
    if (!_sublayerNeedsLayout) {
        return;
    }
    _sublayerNeedsLayout = false;
    // A copy: layout may add or remove sublayers.
    const std::vector<LayerPtr> sublayers = _sublayers;
    for (const LayerPtr& sublayer : sublayers) {
        if (sublayer->_needsLayout || sublayer->_sublayerNeedsLayout) {
            sublayer->layoutIfNeeded();
        }
    }
}

void Layer::layoutSublayers() {
    if (const auto delegate = _delegate.lock()) {
        delegate->layoutSublayersOfLayer(*this);
    }
}

// --- Layer: debugging --------------------------------------------------------------

QString Layer::dump() const {
    QString out;
    appendDump(out, 0);
    return out;
}

void Layer::appendDump(QString& out, int depth) const {
    const QRectF f = frame();
    QStringList keys;
    for (const auto& entry : _animations) {
        keys.append(entry.first.isEmpty() ? QStringLiteral("(unnamed)") : entry.first);
    }
    out += QString(depth * 2, QLatin1Char(' '));
    out += QStringLiteral(
               "%1 frame=(%2, %3, %4, %5) opacity=%6 hidden=%7 sublayers=%8 "
               "animations=[%9]\n")
               .arg(typeName(), formatNumber(f.x()), formatNumber(f.y()), formatNumber(f.width()),
                    formatNumber(f.height()), formatNumber(_model.opacity),
                    _model.hidden ? QStringLiteral("yes") : QStringLiteral("no"),
                    QString::number(_sublayers.size()), keys.join(QStringLiteral(", ")));
    for (const LayerPtr& sublayer : _sublayers) {
        sublayer->appendDump(out, depth + 1);
    }
}

// --- ShapeLayer ----------------------------------------------------------------------

std::shared_ptr<ShapeLayer> ShapeLayer::create() {
    return std::shared_ptr<ShapeLayer>(new ShapeLayer());
}

ShapeLayer::ShapeLayer() {
    mutableModel().fillColor = QColor(Qt::black);
}

QString ShapeLayer::typeName() const {
    return QStringLiteral("ShapeLayer");
}

void ShapeLayer::setPath(const QPainterPath& path) {
    _path = path;
    markChanged();
}

QColor ShapeLayer::fillColor() const {
    return modelState().fillColor;
}

void ShapeLayer::setFillColor(const QColor& color) {
    setModelValue(QStringLiteral("fillColor"), QVariant::fromValue(color));
}

QColor ShapeLayer::strokeColor() const {
    return modelState().strokeColor;
}

void ShapeLayer::setStrokeColor(const QColor& color) {
    setModelValue(QStringLiteral("strokeColor"), QVariant::fromValue(color));
}

double ShapeLayer::lineWidth() const {
    return modelState().lineWidth;
}

void ShapeLayer::setLineWidth(double width) {
    setModelValue(QStringLiteral("lineWidth"), width);
}

double ShapeLayer::strokeStart() const {
    return modelState().strokeStart;
}

void ShapeLayer::setStrokeStart(double start) {
    setModelValue(QStringLiteral("strokeStart"), start);
}

double ShapeLayer::strokeEnd() const {
    return modelState().strokeEnd;
}

void ShapeLayer::setStrokeEnd(double end) {
    setModelValue(QStringLiteral("strokeEnd"), end);
}

}  // namespace platform
