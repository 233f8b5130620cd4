#include "platform/foundation/Error.h"

namespace platform {

Error::Error(QString domain, qint64 code, QVariantMap userInfo)
    : _domain(std::move(domain)), _code(code), _userInfo(std::move(userInfo)) {}

ErrorPtr Error::make(const QString& domain, qint64 code, QVariantMap userInfo) {
    return std::make_shared<const Error>(domain, code, std::move(userInfo));
}

ErrorPtr Error::withDescription(const QString& domain, qint64 code, const QString& description) {
    return make(domain, code, {{QString::fromLatin1(kLocalizedDescriptionKey), description}});
}

QString Error::localizedDescription() const {
    const QVariant description = _userInfo.value(QString::fromLatin1(kLocalizedDescriptionKey));
    if (description.metaType() == QMetaType::fromType<QString>()) {
        return description.toString();
    }
    // One multi-argument arg(), so a "%n" inside the domain stays text.
    return QStringLiteral("The operation couldn\u2019t be completed. (%1 error %2.)")
        .arg(_domain, QString::number(_code));
}

ErrorPtr Error::underlyingError() const {
    const QVariant underlying = _userInfo.value(QString::fromLatin1(kUnderlyingErrorKey));
    if (underlying.metaType() == QMetaType::fromType<ErrorPtr>()) {
        return underlying.value<ErrorPtr>();
    }
    return nullptr;
}

QString Error::debugDescription() const {
    QString text = QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
                       .arg(_domain, QString::number(_code), localizedDescription());
    if (const ErrorPtr underlying = underlyingError()) {
        text += QStringLiteral(" (underlying: %1)").arg(underlying->debugDescription());
    }
    return text;
}

}  // namespace platform
