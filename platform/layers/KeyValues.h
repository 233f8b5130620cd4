#pragma once

#include <QVariant>

/// The kinds of value a layer's animatable key paths hold. Geometry accepts
/// Qt's integer types as well as its floating ones; booleans are not numbers
/// here (a flag does not interpolate).
namespace platform::key_values {

bool isNumber(const QVariant& v);
bool isPoint(const QVariant& v);
bool isSize(const QVariant& v);
bool isRect(const QVariant& v);

inline bool isColor(const QVariant& v) {
    return v.metaType().id() == QMetaType::QColor;
}

inline bool isTransform(const QVariant& v) {
    return v.metaType().id() == QMetaType::QTransform;
}

/// Reads v as T when it is of the kind `accepts` describes.
template <typename T, bool (*accepts)(const QVariant&)>
bool read(const QVariant& v, T& out) {
    if (!accepts(v)) {
        return false;
    }
    out = v.value<T>();
    return true;
}

}  // namespace platform::key_values
