// A layer's model and presentation values, and their key paths.

#include "platform/layers/Layer.h"

#include "platform/graphics/AffineTransform.h"
#include "platform/layers/KeyValues.h"
#include "platform/layers/TransformParts.h"

#include <QHash>

#include <algorithm>
#include <cmath>

namespace platform {

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

QTransform LayerState::toSuperlayer() const {
    const QSizeF size = bounds.size();
    const QPointF anchor(anchorPoint.x() * size.width(), anchorPoint.y() * size.height());
    return QTransform::fromTranslate(-bounds.x() - anchor.x(), -bounds.y() - anchor.y()) *
           transform * QTransform::fromTranslate(position.x(), position.y());
}

QRectF LayerState::frame() const {
    const QSizeF size = bounds.size();
    const QRectF aroundAnchor(-anchorPoint.x() * size.width(), -anchorPoint.y() * size.height(),
                              size.width(), size.height());
    return affine::apply(aroundAnchor, transform).translated(position);
}

}  // namespace platform
