#include "platform/foundation/Value.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace platform::value {
namespace {

bool isIntegral(const QVariant& v) {
    switch (v.metaType().id()) {
        case QMetaType::Bool:
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UChar:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Long:
        case QMetaType::ULong:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            return true;
        default:
            return false;
    }
}

bool isFloating(const QVariant& v) {
    const int id = v.metaType().id();
    return id == QMetaType::Double || id == QMetaType::Float;
}

bool isUnsignedBeyondSigned(const QVariant& v) {
    const int id = v.metaType().id();
    return (id == QMetaType::ULongLong || id == QMetaType::ULong) &&
           v.toULongLong() > static_cast<qulonglong>(std::numeric_limits<qint64>::max());
}

// Skips leading blanks, then an optional sign and leading zeros, and returns
// the position of the first significant character.
qsizetype significantStart(const QString& s) {
    qsizetype i = 0;
    while (i < s.size() && s.at(i).isSpace()) {
        ++i;
    }
    if (i < s.size() && (s.at(i) == u'+' || s.at(i) == u'-')) {
        ++i;
    }
    while (i < s.size() && s.at(i) == u'0') {
        ++i;
    }
    return i;
}

double leadingDecimal(const QString& s) {
    const QByteArray bytes = s.trimmed().toLatin1();
    return std::strtod(bytes.constData(), nullptr);
}

}  // namespace

bool isNumber(const QVariant& v) {
    return isIntegral(v) || isFloating(v);
}

bool isString(const QVariant& v) {
    return v.metaType().id() == QMetaType::QString;
}

bool boolValue(const QVariant& v) {
    if (isIntegral(v)) {
        return v.toULongLong() != 0 || v.toLongLong() != 0;
    }
    if (isFloating(v)) {
        return v.toDouble() != 0.0;
    }
    if (isString(v)) {
        const QString s = v.toString();
        const qsizetype i = significantStart(s);
        if (i >= s.size()) {
            return false;
        }
        const QChar c = s.at(i);
        return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
    }
    return false;
}

double doubleValue(const QVariant& v) {
    if (isNumber(v)) {
        return isUnsignedBeyondSigned(v) ? static_cast<double>(v.toULongLong()) : v.toDouble();
    }
    if (isString(v)) {
        return leadingDecimal(v.toString());
    }
    return 0.0;
}

float floatValue(const QVariant& v) {
    return static_cast<float>(doubleValue(v));
}

qint64 integerValue(const QVariant& v) {
    if (isIntegral(v)) {
        return v.toLongLong();
    }
    const double d = doubleValue(v);
    if (!std::isfinite(d)) {
        return 0;
    }
    return static_cast<qint64>(d);
}

bool isEqual(const QVariant& a, const QVariant& b) {
    if (isNumber(a) && isNumber(b)) {
        if (isIntegral(a) && isIntegral(b)) {
            const bool bigA = isUnsignedBeyondSigned(a);
            const bool bigB = isUnsignedBeyondSigned(b);
            if (bigA || bigB) {
                return bigA && bigB && a.toULongLong() == b.toULongLong();
            }
            return a.toLongLong() == b.toLongLong();
        }
        return doubleValue(a) == doubleValue(b);
    }
    if (isString(a) && isString(b)) {
        return a.toString() == b.toString();
    }
    // QVariant's own comparison converts strings to numbers ("1" == 1), so a
    // number or a string only ever equals its own kind, handled above.
    if (isNumber(a) || isNumber(b) || isString(a) || isString(b)) {
        return false;
    }
    if (!a.isValid() || !b.isValid()) {
        return false;
    }
    return a == b;
}

QVariant number(bool b) {
    return QVariant(b);
}

bool isSameObject(const QString& a, const QString& b) {
    if (a.isNull() || b.isNull()) {
        return a.isNull() && b.isNull();
    }
    return a.constData() == b.constData() && a.size() == b.size();
}

}  // namespace platform::value
