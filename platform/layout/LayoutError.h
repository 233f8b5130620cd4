#pragma once

#include "platform/layout/Constraint.h"
#include "platform/layout/Variable.h"

#include <QByteArray>
#include <QString>

#include <exception>

namespace platform::layout {

/// Base of every misuse the layout code reports; `what()` names the culprit.
class LayoutError : public std::exception {
public:
    explicit LayoutError(const QString& message);

    const char* what() const noexcept override { return _what.constData(); }
    QString message() const { return QString::fromUtf8(_what); }

private:
    QByteArray _what;
};

/// A misuse about one constraint, which it names.
class ConstraintError : public LayoutError {
public:
    ConstraintError(const QString& problem, Constraint constraint);
    const Constraint& constraint() const { return _constraint; }

private:
    Constraint _constraint;
};

/// A misuse about one edit variable, which it names.
class EditVariableError : public LayoutError {
public:
    EditVariableError(const QString& problem, Variable variable);
    const Variable& variable() const { return _variable; }

private:
    Variable _variable;
};

class DuplicateConstraint : public ConstraintError {
public:
    explicit DuplicateConstraint(Constraint constraint);
};

/// The required constraint contradicts the required constraints already in
/// the solver; the solver is left as it was.
class UnsatisfiableConstraint : public ConstraintError {
public:
    explicit UnsatisfiableConstraint(Constraint constraint);
};

class UnknownConstraint : public ConstraintError {
public:
    explicit UnknownConstraint(Constraint constraint);
};

class DuplicateEditVariable : public EditVariableError {
public:
    explicit DuplicateEditVariable(Variable variable);
};

class UnknownEditVariable : public EditVariableError {
public:
    explicit UnknownEditVariable(Variable variable);
};

/// An edit variable was asked for with the required strength.
class BadRequiredStrength : public EditVariableError {
public:
    explicit BadRequiredStrength(Variable variable);
};

}  // namespace platform::layout
