#pragma once

#include "platform/layout/Constraint.h"
#include "platform/layout/Strength.h"
#include "platform/layout/Variable.h"

#include <QString>

#include <memory>
#include <vector>

namespace platform::layout {

namespace detail {
class Engine;
}

/// An incremental solver of linear equalities and inequalities with
/// priorities (Cassowary). Required constraints always hold; the others are
/// met as well as their priority levels allow. Every change re-solves from
/// the previous solution, and `updateVariables` writes the values into the
/// variables. Misuse throws a `LayoutError` naming the culprit.
///
/// Not thread-safe; layout runs on the main run loop.
class Solver {
public:
    Solver();
    ~Solver();
    Solver(Solver&&) noexcept;
    Solver& operator=(Solver&&) noexcept;
    Solver(const Solver&) = delete;
    Solver& operator=(const Solver&) = delete;

    /// Throws DuplicateConstraint, or UnsatisfiableConstraint when a required
    /// constraint contradicts the required ones already here (the solver is
    /// then unchanged).
    void addConstraint(const Constraint& constraint);
    /// Throws UnknownConstraint.
    void removeConstraint(const Constraint& constraint);
    bool hasConstraint(const Constraint& constraint) const;
    /// Sets the constant of the constraint's expression (the constraint reads
    /// `expression relation 0`) and re-solves from the current solution,
    /// without rebuilding anything: the way to animate a constant. The
    /// constraint object itself changes, for every copy of it. Throws
    /// UnknownConstraint, or UnsatisfiableConstraint when a required
    /// constraint cannot take that constant (it then keeps the old one).
    void updateConstant(const Constraint& constraint, double constant);

    /// A variable whose value is suggested from outside (a drag, an
    /// animation), held at `strength` — never required — at its current value
    /// until `suggestValue`. Throws DuplicateEditVariable or BadRequiredStrength.
    void addEditVariable(const Variable& variable, Strength strength);
    /// Throws UnknownEditVariable.
    void removeEditVariable(const Variable& variable);
    bool hasEditVariable(const Variable& variable) const;
    /// Throws UnknownEditVariable.
    void suggestValue(const Variable& variable, double value);

    /// Writes the current solution into the variables.
    void updateVariables();
    /// Like updateVariables, and says which values it wrote: those of the
    /// variables listed (the list is valid until the next call on the
    /// solver), or, when it returns null, any of them. After changes of
    /// constants alone the list holds only the variables those moved.
    const std::vector<const Variable*>* updateChangedVariables();
    /// Forgets every constraint and edit variable.
    void reset();
    /// The objective, the tableau rows, the constraints with their marker
    /// symbols and the edit variables, as text for debugging.
    QString dump() const;

private:
    std::unique_ptr<detail::Engine> _engine;
};

}  // namespace platform::layout
