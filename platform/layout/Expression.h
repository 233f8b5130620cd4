#pragma once

#include "platform/layout/Variable.h"

#include <QString>

#include <vector>

namespace platform::layout {

/// A variable times a coefficient.
struct Term {
    Term(Variable v, double c = 1.0) : variable(std::move(v)), coefficient(c) {}

    Variable variable;
    double coefficient;
};

/// A linear expression: a sum of terms plus a constant. Built with the usual
/// operators from variables and numbers (`x + 10`, `2 * x - y`); a variable or
/// a number converts to an expression where one is expected.
class Expression {
public:
    Expression(double constant = 0.0) : _constant(constant) {}
    Expression(const Variable& variable) : _terms{Term(variable)} {}
    Expression(Term term) : _terms{std::move(term)} {}
    Expression(std::vector<Term> terms, double constant = 0.0)
        : _terms(std::move(terms)), _constant(constant) {}

    const std::vector<Term>& terms() const { return _terms; }
    double constant() const { return _constant; }
    void setConstant(double constant) { _constant = constant; }

    /// The value with the variables' current values.
    double value() const;
    /// The same expression with the terms of one variable merged and terms
    /// whose coefficient is zero dropped, in order of first appearance.
    Expression reduced() const;
    /// "2 * x - y + 10"; an empty expression reads "0".
    QString toString() const;

    Expression& operator+=(const Expression& other);
    Expression& operator-=(const Expression& other);
    Expression& operator*=(double factor);
    Expression& operator/=(double divisor);

private:
    std::vector<Term> _terms;
    double _constant = 0.0;
};

Expression operator+(Expression a, const Expression& b);
Expression operator-(Expression a, const Expression& b);
Expression operator-(Expression a);
Expression operator*(Expression a, double factor);
Expression operator*(double factor, Expression a);
Expression operator/(Expression a, double divisor);

/// Shortest readable text of a number: "20", "0.5", "187.5".
QString numberText(double value);

/// Appends `coefficient * name` to a sum being written: with its sign as the
/// operator unless it is the first summand, and without a coefficient of 1.
void appendSummand(QString& text, double coefficient, const QString& name);

}  // namespace platform::layout
