#include "platform/layout/VisualFormat.h"

namespace platform::layout {

QString attributeName(LayoutAttribute attribute) {
    switch (attribute) {
        case LayoutAttribute::NotAnAttribute:
            return QStringLiteral("notAnAttribute");
        case LayoutAttribute::Left:
            return QStringLiteral("left");
        case LayoutAttribute::Right:
            return QStringLiteral("right");
        case LayoutAttribute::Top:
            return QStringLiteral("top");
        case LayoutAttribute::Bottom:
            return QStringLiteral("bottom");
        case LayoutAttribute::Leading:
            return QStringLiteral("leading");
        case LayoutAttribute::Trailing:
            return QStringLiteral("trailing");
        case LayoutAttribute::Width:
            return QStringLiteral("width");
        case LayoutAttribute::Height:
            return QStringLiteral("height");
        case LayoutAttribute::CenterX:
            return QStringLiteral("centerX");
        case LayoutAttribute::CenterY:
            return QStringLiteral("centerY");
    }
    return QStringLiteral("?");
}

namespace {

QString relationName(Relation relation) {
    switch (relation) {
        case Relation::LessThanOrEqual:
            return QStringLiteral(" <= ");
        case Relation::Equal:
            return QStringLiteral(" == ");
        case Relation::GreaterThanOrEqual:
            return QStringLiteral(" >= ");
    }
    return QStringLiteral(" ? ");
}

}  // namespace

QString FormatItem::toString() const {
    switch (kind) {
        case Kind::None:
            return {};
        case Kind::Superview:
            return QStringLiteral("|");
        case Kind::View:
            return name;
    }
    return {};
}

QString FormatConstraint::toString() const {
    QString text = firstItem.toString() + QLatin1Char('.') + attributeName(firstAttribute) +
                   relationName(relation);
    if (secondItem.kind == FormatItem::Kind::None) {
        text += numberText(constant);
    } else {
        text += secondItem.toString() + QLatin1Char('.') + attributeName(secondAttribute);
        if (multiplier != 1.0) {
            text += QStringLiteral(" * ") + numberText(multiplier);
        }
        if (constant != 0.0) {
            appendSummand(text, constant, QString());
        }
    }
    if (priority < 1000.0) {
        text += QStringLiteral(" @") + numberText(priority);
    }
    return text;
}

VisualFormatError::VisualFormatError(const QString& format, qsizetype position,
                                     const QString& problem)
    : LayoutError(QStringLiteral("Unable to parse constraint format: %1\n%2\n%3^")
                      .arg(problem, format, QString(position, QLatin1Char(' ')))),
      _format(format),
      _position(position),
      _problem(problem) {}

}  // namespace platform::layout
