#include "platform/layout/LayoutError.h"

namespace platform::layout {

LayoutError::LayoutError(const QString& message) : _what(message.toUtf8()) {}

ConstraintError::ConstraintError(const QString& problem, Constraint constraint)
    : LayoutError(problem + QStringLiteral(": ") + constraint.toString()),
      _constraint(std::move(constraint)) {}

EditVariableError::EditVariableError(const QString& problem, Variable variable)
    : LayoutError(problem + QStringLiteral(": ") + variable.toString()),
      _variable(std::move(variable)) {}

DuplicateConstraint::DuplicateConstraint(Constraint constraint)
    : ConstraintError(QStringLiteral("duplicate constraint"), std::move(constraint)) {}

UnsatisfiableConstraint::UnsatisfiableConstraint(Constraint constraint)
    : ConstraintError(QStringLiteral("unsatisfiable constraint"), std::move(constraint)) {}

UnknownConstraint::UnknownConstraint(Constraint constraint)
    : ConstraintError(QStringLiteral("unknown constraint"), std::move(constraint)) {}

DuplicateEditVariable::DuplicateEditVariable(Variable variable)
    : EditVariableError(QStringLiteral("duplicate edit variable"), std::move(variable)) {}

UnknownEditVariable::UnknownEditVariable(Variable variable)
    : EditVariableError(QStringLiteral("unknown edit variable"), std::move(variable)) {}

BadRequiredStrength::BadRequiredStrength(Variable variable)
    : EditVariableError(QStringLiteral("an edit variable cannot be required"),
                        std::move(variable)) {}

}  // namespace platform::layout
