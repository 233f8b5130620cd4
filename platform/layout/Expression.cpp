#include "platform/layout/Expression.h"

#include <algorithm>
#include <cmath>

namespace platform::layout {

double Expression::value() const {
    double sum = _constant;
    for (const Term& term : _terms) {
        sum += term.coefficient * term.variable.value();
    }
    return sum;
}

Expression Expression::reduced() const {
    std::vector<Term> merged;
    merged.reserve(_terms.size());
    for (const Term& term : _terms) {
        auto same = std::find_if(merged.begin(), merged.end(), [&](const Term& existing) {
            return existing.variable.is(term.variable);
        });
        if (same == merged.end()) {
            merged.push_back(term);
        } else {
            same->coefficient += term.coefficient;
        }
    }
    std::erase_if(merged, [](const Term& term) { return term.coefficient == 0.0; });
    return Expression(std::move(merged), _constant);
}

QString Expression::toString() const {
    QString text;
    for (const Term& term : _terms) {
        appendSummand(text, term.coefficient, term.variable.toString());
    }
    if (_constant != 0.0 || text.isEmpty()) {
        appendSummand(text, _constant, QString());
    }
    return text;
}

Expression& Expression::operator+=(const Expression& other) {
    _terms.insert(_terms.end(), other._terms.begin(), other._terms.end());
    _constant += other._constant;
    return *this;
}

Expression& Expression::operator-=(const Expression& other) {
    _terms.reserve(_terms.size() + other._terms.size());
    for (const Term& term : other._terms) {
        _terms.emplace_back(term.variable, -term.coefficient);
    }
    _constant -= other._constant;
    return *this;
}

Expression& Expression::operator*=(double factor) {
    for (Term& term : _terms) {
        term.coefficient *= factor;
    }
    _constant *= factor;
    return *this;
}

Expression& Expression::operator/=(double divisor) {
    return *this *= 1.0 / divisor;
}

Expression operator+(Expression a, const Expression& b) {
    return a += b;
}

Expression operator-(Expression a, const Expression& b) {
    return a -= b;
}

Expression operator-(Expression a) {
    return a *= -1.0;
}

Expression operator*(Expression a, double factor) {
    return a *= factor;
}

Expression operator*(double factor, Expression a) {
    return a *= factor;
}

Expression operator/(Expression a, double divisor) {
    return a /= divisor;
}

QString numberText(double value) {
    if (value == 0.0) {
        return QStringLiteral("0");  // never "-0"
    }
    return QString::number(value, 'g', 12);
}

void appendSummand(QString& text, double coefficient, const QString& name) {
    const bool first = text.isEmpty();
    if (!first) {
        text += coefficient < 0 ? QStringLiteral(" - ") : QStringLiteral(" + ");
    } else if (coefficient < 0) {
        text += QLatin1Char('-');
    }
    const double magnitude = std::abs(coefficient);
    if (name.isEmpty()) {
        text += numberText(magnitude);
    } else if (magnitude == 1.0) {
        text += name;
    } else {
        text += numberText(magnitude) + QStringLiteral(" * ") + name;
    }
}

}  // namespace platform::layout
