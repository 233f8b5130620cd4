#include "platform/layers/KeyValues.h"

#include "platform/foundation/Value.h"

namespace platform::key_values {
namespace {

bool isOneOf(const QVariant& v, int floating, int integral) {
    const int id = v.metaType().id();
    return id == floating || id == integral;
}

}  // namespace

bool isNumber(const QVariant& v) {
    return value::isNumber(v) && v.metaType().id() != QMetaType::Bool;
}

bool isPoint(const QVariant& v) {
    return isOneOf(v, QMetaType::QPointF, QMetaType::QPoint);
}

bool isSize(const QVariant& v) {
    return isOneOf(v, QMetaType::QSizeF, QMetaType::QSize);
}

bool isRect(const QVariant& v) {
    return isOneOf(v, QMetaType::QRectF, QMetaType::QRect);
}

}  // namespace platform::key_values
