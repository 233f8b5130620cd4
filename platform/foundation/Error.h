#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

#include <memory>

namespace platform {

class Error;

/// Errors are shared, immutable objects; a null pointer is the "no error" value
/// that the design hands to delegates as it stands.
using ErrorPtr = std::shared_ptr<const Error>;

/// User-info key of the human-readable description.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";
/// User-info key of the error that caused this one (an ErrorPtr in a QVariant).
inline constexpr const char* kUnderlyingErrorKey = "NSUnderlyingError";

/// An error: a domain, an integer code and a user-info dictionary.
/// Immutable once made, so it may be shared between threads freely.
class Error {
public:
    Error(QString domain, qint64 code, QVariantMap userInfo = {});

    static ErrorPtr make(const QString& domain, qint64 code, QVariantMap userInfo = {});
    /// An error whose user info holds only a localised description.
    static ErrorPtr withDescription(const QString& domain, qint64 code, const QString& description);

    const QString& domain() const { return _domain; }
    qint64 code() const { return _code; }
    const QVariantMap& userInfo() const { return _userInfo; }

    /// The description from the user info or, when there is none, a generic
    /// text naming the domain and the code, as the platform composes it.
    QString localizedDescription() const;
    /// The underlying error stored under kUnderlyingErrorKey, or null.
    ErrorPtr underlyingError() const;

    /// A one-line rendering for logs and test failure messages.
    QString debugDescription() const;

private:
    QString _domain;
    qint64 _code;
    QVariantMap _userInfo;
};

}  // namespace platform

Q_DECLARE_METATYPE(platform::ErrorPtr)
