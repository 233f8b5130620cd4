#pragma once

#include <QString>
#include <QVariant>

/// Dictionary values with the platform's object semantics, over QVariant.
///
/// Dictionaries are QVariantMaps; a value is a "number" when it holds a bool,
/// an integer or a floating-point type, and a "string" when it holds a QString.
/// Everything here is a pure function and safe from any thread.
namespace platform::value {

bool isNumber(const QVariant& v);
bool isString(const QVariant& v);

/// A number is true when non-zero. A string is true when, after leading
/// blanks, an optional sign and zeros, it starts with Y, y, T, t or a digit
/// 1-9. Anything else (including a missing value) is false.
bool boolValue(const QVariant& v);

/// A number's value narrowed to single precision; a string's leading decimal
/// number; 0 for anything else.
float floatValue(const QVariant& v);
double doubleValue(const QVariant& v);
qint64 integerValue(const QVariant& v);

/// Object equality: two numbers are equal when their values are (so the
/// number 1 equals YES), two strings when their characters are; a number
/// never equals a string, even one that reads "YES".
bool isEqual(const QVariant& a, const QVariant& b);

/// The boolean number YES or NO.
QVariant number(bool b);

/// Identity of string objects: true only when both are the very same string
/// storage (a copy of a string is the same object; a string built again from
/// the same characters is not). Two null strings are identical, as two nils are.
bool isSameObject(const QString& a, const QString& b);

}  // namespace platform::value
