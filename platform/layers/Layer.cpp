#include "platform/layers/Layer.h"

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

// --- LayerState ----------------------------------------------------------------

namespace {

using key_values::read;
constexpr auto readNumber = read<double, key_values::isNumber>;
constexpr auto readPoint = read<QPointF, key_values::isPoint>;
constexpr auto readSize = read<QSizeF, key_values::isSize>;
constexpr auto readRect = read<QRectF, key_values::isRect>;
constexpr auto readColor = read<QColor, key_values::isColor>;
constexpr auto readTransform = read<QTransform, key_values::isTransform>;

bool readBool(const QVariant& v, bool& out) {
    double number = 0.0;
    if (v.metaType().id() == QMetaType::Bool) {
        out = v.toBool();
        return true;
    }
    if (readNumber(v, number)) {
        out = number != 0.0;
        return true;
    }
    return false;
}

using detail::TransformParts;

// Reads or replaces one part of the state's transform.
template <double TransformParts::*Part>
QVariant transformPart(const LayerState& s) {
    return TransformParts::of(s.transform).*Part;
}

template <double TransformParts::*Part>
bool setTransformPart(LayerState& s, const QVariant& v) {
    double value = 0.0;
    if (!readNumber(v, value)) {
        return false;
    }
    TransformParts parts = TransformParts::of(s.transform);
    parts.*Part = value;
    s.transform = parts.toTransform();
    return true;
}

QVariant uniformScale(const LayerState& s) {
    const TransformParts parts = TransformParts::of(s.transform);
    return 0.5 * (parts.sx + parts.sy);
}

bool setUniformScale(LayerState& s, const QVariant& v) {
    double value = 0.0;
    if (!readNumber(v, value)) {
        return false;
    }
    TransformParts parts = TransformParts::of(s.transform);
    parts.sx = value;
    parts.sy = value;
    s.transform = parts.toTransform();
    return true;
}

template <typename T, bool (*Read)(const QVariant&, T&), T LayerState::*Field>
QVariant fieldValue(const LayerState& s) {
    return QVariant::fromValue(s.*Field);
}

template <typename T, bool (*Read)(const QVariant&, T&), T LayerState::*Field>
bool setField(LayerState& s, const QVariant& v) {
    return Read(v, s.*Field);
}

struct KeyPathAccess {
    QVariant (*get)(const LayerState&);
    bool (*set)(LayerState&, const QVariant&);
};

template <typename T, bool (*Read)(const QVariant&, T&), T LayerState::*Field>
constexpr KeyPathAccess field() {
    return {&fieldValue<T, Read, Field>, &setField<T, Read, Field>};
}

template <double TransformParts::*Part>
constexpr KeyPathAccess part() {
    return {&transformPart<Part>, &setTransformPart<Part>};
}

KeyPathAccess boundsSize() {
    return {[](const LayerState& s) { return QVariant(s.bounds.size()); },
            [](LayerState& s, const QVariant& v) {
                QSizeF size;
                if (!readSize(v, size)) {
                    return false;
                }
                s.bounds.setSize(size);
                return true;
            }};
}

KeyPathAccess boundsOrigin() {
    return {[](const LayerState& s) { return QVariant(s.bounds.topLeft()); },
            [](LayerState& s, const QVariant& v) {
                QPointF origin;
                if (!readPoint(v, origin)) {
                    return false;
                }
                s.bounds.moveTopLeft(origin);
                return true;
            }};
}

KeyPathAccess positionX() {
    return {[](const LayerState& s) { return QVariant(s.position.x()); },
            [](LayerState& s, const QVariant& v) {
                double x = 0.0;
                if (!readNumber(v, x)) {
                    return false;
                }
                s.position.setX(x);
                return true;
            }};
}

KeyPathAccess positionY() {
    return {[](const LayerState& s) { return QVariant(s.position.y()); },
            [](LayerState& s, const QVariant& v) {
                double y = 0.0;
                if (!readNumber(v, y)) {
                    return false;
                }
                s.position.setY(y);
                return true;
            }};
}

const QHash<QString, KeyPathAccess>& keyPaths() {
    using S = LayerState;
    static const QHash<QString, KeyPathAccess> table = {
        {QStringLiteral("bounds"), field<QRectF, readRect, &S::bounds>()},
        {QStringLiteral("bounds.size"), boundsSize()},
        {QStringLiteral("bounds.origin"), boundsOrigin()},
        {QStringLiteral("position"), field<QPointF, readPoint, &S::position>()},
        {QStringLiteral("position.x"), positionX()},
        {QStringLiteral("position.y"), positionY()},
        {QStringLiteral("anchorPoint"), field<QPointF, readPoint, &S::anchorPoint>()},
        {QStringLiteral("opacity"), field<double, readNumber, &S::opacity>()},
        {QStringLiteral("hidden"), field<bool, readBool, &S::hidden>()},
        {QStringLiteral("backgroundColor"), field<QColor, readColor, &S::backgroundColor>()},
        {QStringLiteral("cornerRadius"), field<double, readNumber, &S::cornerRadius>()},
        {QStringLiteral("transform"), field<QTransform, readTransform, &S::transform>()},
        {QStringLiteral("transform.scale"), {&uniformScale, &setUniformScale}},
        {QStringLiteral("transform.scale.xy"), {&uniformScale, &setUniformScale}},
        {QStringLiteral("transform.scale.x"), part<&TransformParts::sx>()},
        {QStringLiteral("transform.scale.y"), part<&TransformParts::sy>()},
        {QStringLiteral("transform.rotation"), part<&TransformParts::angle>()},
        {QStringLiteral("transform.rotation.z"), part<&TransformParts::angle>()},
        {QStringLiteral("transform.translation.x"), part<&TransformParts::tx>()},
        {QStringLiteral("transform.translation.y"), part<&TransformParts::ty>()},
        {QStringLiteral("fillColor"), field<QColor, readColor, &S::fillColor>()},
        {QStringLiteral("strokeColor"), field<QColor, readColor, &S::strokeColor>()},
        {QStringLiteral("lineWidth"), field<double, readNumber, &S::lineWidth>()},
        {QStringLiteral("strokeStart"), field<double, readNumber, &S::strokeStart>()},
        {QStringLiteral("strokeEnd"), field<double, readNumber, &S::strokeEnd>()},
    };
    return table;
}

}  // namespace

QVariant LayerState::value(const QString& keyPath) const {
    const auto& table = keyPaths();
    const auto it = table.find(keyPath);
    return it == table.end() ? QVariant() : it->get(*this);
}

bool LayerState::setValue(const QString& keyPath, const QVariant& value) {
    const auto& table = keyPaths();
    const auto it = table.find(keyPath);
    return it != table.end() && it->set(*this, value);
}

QRectF LayerState::frame() const {
    const QSizeF size = bounds.size();
    const QRectF aroundAnchor(-anchorPoint.x() * size.width(), -anchorPoint.y() * size.height(),
                              size.width(), size.height());
    return affine::apply(aroundAnchor, transform).translated(position);
}

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

struct Layer::Running {
    std::shared_ptr<Animation> animation;
    double start = 0.0;
    std::uint64_t generation = 0;
    bool stopped = false;
    // Taken over by a later animation of the same key: no longer rendered,
    // but it still runs to its end.
    bool superseded = false;
    std::unique_ptr<detail::TransactionMembership> membership;
};

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

// --- Layer: animations ---------------------------------------------------------------

void Layer::addAnimation(const std::shared_ptr<Animation>& animation, const QString& key) {
    if (animation) {
        startAnimation(animation->clone(), key);
    }
}

void Layer::startAnimation(std::shared_ptr<Animation> animation, const QString& key) {
    RunLoop& loop = RunLoop::main();
    const double now = loop.now();
    if (animation->beginTime() == 0.0) {
        animation->setBeginTime(now);
    }
    const auto earlier = std::find_if(_animations.begin(), _animations.end(),
                                      [&key](const auto& e) { return e.first == key; });
    if (animation->letsEarlierFinish() && !key.isEmpty() && earlier != _animations.end()) {
        earlier->first.clear();
        earlier->second->superseded = true;
    } else {
        removeAnimationForKey(key);
    }

    auto running = std::make_shared<Running>();
    running->animation = animation;
    running->start = animation->beginTime();
    running->generation = ++_animationGeneration;
    running->membership = detail::joinOpenTransactions();
    _animations.emplace_back(key, running);

    if (const auto& delegate = animation->delegate()) {
        loop.post([animation, delegate] { delegate->animationDidStart(*animation); });
    }
    const double end = running->start + animation->activeDuration();
    if (std::isfinite(end)) {
        // Keyed by the running animation, so cancelling performs aimed at
        // the layer leaves it alone.
        loop.performAfterDelay(running.get(), end - now,
                               [weak = weak_from_this(), generation = running->generation] {
                                   if (const LayerPtr self = weak.lock()) {
                                       self->finishAnimation(generation);
                                   }
                               });
    }
    markChanged();
}

void Layer::finishAnimation(std::uint64_t generation) {
    const auto it =
        std::find_if(_animations.begin(), _animations.end(),
                     [generation](const auto& e) { return e.second->generation == generation; });
    if (it == _animations.end() || it->second->stopped) {
        return;
    }
    const std::shared_ptr<Running> running = it->second;
    running->stopped = true;
    if (running->animation->isRemovedOnCompletion()) {
        _animations.erase(it);
        markChanged();
    }
    if (const auto& delegate = running->animation->delegate()) {
        delegate->animationDidStop(*running->animation, true);
    }
    running->membership.reset();
}

void Layer::stopEarly(Running& running) {
    RunLoop& loop = RunLoop::main();
    loop.cancelPreviousPerformRequests(&running);
    if (running.stopped) {
        return;
    }
    running.stopped = true;
    if (const auto& delegate = running.animation->delegate()) {
        loop.post([animation = running.animation, delegate] {
            delegate->animationDidStop(*animation, false);
        });
    }
    running.membership.reset();
}

std::shared_ptr<Animation> Layer::animationForKey(const QString& key) const {
    if (key.isEmpty()) {
        return nullptr;
    }
    for (const auto& [k, running] : _animations) {
        if (k == key) {
            return running->animation;
        }
    }
    return nullptr;
}

QStringList Layer::animationKeys() const {
    QStringList keys;
    for (const auto& entry : _animations) {
        if (!entry.first.isEmpty()) {
            keys.append(entry.first);
        }
    }
    return keys;
}

void Layer::removeAnimationForKey(const QString& key) {
    if (key.isEmpty()) {
        return;
    }
    const auto it = std::find_if(_animations.begin(), _animations.end(),
                                 [&key](const auto& e) { return e.first == key; });
    if (it == _animations.end()) {
        return;
    }
    const std::shared_ptr<Running> running = it->second;
    _animations.erase(it);
    stopEarly(*running);
    markChanged();
}

void Layer::removeAllAnimations() {
    if (_animations.empty()) {
        return;
    }
    const auto removed = std::exchange(_animations, {});
    for (const auto& entry : removed) {
        stopEarly(*entry.second);
    }
    markChanged();
}

bool Layer::hasActiveAnimations(double time) const {
    return std::any_of(_animations.begin(), _animations.end(), [time](const auto& entry) {
        const Running& running = *entry.second;
        return !running.superseded && time <= running.start + running.animation->activeDuration();
    });
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
