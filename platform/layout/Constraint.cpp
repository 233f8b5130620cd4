#include "platform/layout/Constraint.h"

#include <cmath>

namespace platform::layout {

namespace {

constexpr double kTolerance = 1e-8;

const char* relationText(Relation relation) {
    switch (relation) {
        case Relation::LessThanOrEqual:
            return " <= ";
        case Relation::Equal:
            return " == ";
        case Relation::GreaterThanOrEqual:
            return " >= ";
    }
    return " ? ";
}

}  // namespace

Constraint::Constraint(const Expression& expression, Relation relation, Strength strength)
    : _data(std::make_shared<Data>(Data{expression.reduced(), relation, strength})) {}

Constraint::Constraint(const Constraint& other, Strength strength)
    : _data(std::make_shared<Data>(Data{other.expression(), other.relation(), strength})) {}

bool Constraint::violated() const {
    const double value = _data->expression.value();
    switch (_data->relation) {
        case Relation::LessThanOrEqual:
            return value > kTolerance;
        case Relation::Equal:
            return std::abs(value) > kTolerance;
        case Relation::GreaterThanOrEqual:
            return value < -kTolerance;
    }
    return false;
}

QString Constraint::toString() const {
    QString left;
    QString right;
    for (const Term& term : _data->expression.terms()) {
        if (term.coefficient > 0) {
            appendSummand(left, term.coefficient, term.variable.toString());
        } else {
            appendSummand(right, -term.coefficient, term.variable.toString());
        }
    }
    const double constant = _data->expression.constant();
    if (constant > 0) {
        appendSummand(left, constant, QString());
    } else if (constant < 0) {
        appendSummand(right, -constant, QString());
    }
    QString text = (left.isEmpty() ? QStringLiteral("0") : left) +
                   QLatin1String(relationText(_data->relation)) +
                   (right.isEmpty() ? QStringLiteral("0") : right);
    if (!_data->strength.isRequired()) {
        text += QStringLiteral(" @") + numberText(_data->strength.priority());
    }
    return text;
}

Constraint operator==(const Expression& a, const Expression& b) {
    return Constraint(a - b, Relation::Equal);
}

Constraint operator<=(const Expression& a, const Expression& b) {
    return Constraint(a - b, Relation::LessThanOrEqual);
}

Constraint operator>=(const Expression& a, const Expression& b) {
    return Constraint(a - b, Relation::GreaterThanOrEqual);
}

Constraint operator|(const Constraint& constraint, Strength strength) {
    return Constraint(constraint, strength);
}

}  // namespace platform::layout
