#pragma once

#include "platform/layout/Constraint.h"
#include "platform/layout/HandleMap.h"
#include "platform/layout/Objective.h"
#include "platform/layout/Row.h"
#include "platform/layout/Strength.h"
#include "platform/layout/Symbol.h"
#include "platform/layout/Tableau.h"
#include "platform/layout/Variable.h"

#include <QString>

#include <optional>
#include <unordered_map>
#include <vector>

namespace platform::layout::detail {

/// The incremental simplex behind `Solver`: constraints become tableau rows
/// with slack, error and dummy symbols; additions and removals re-optimise
/// from the current basis (primal simplex), changed constants and suggested
/// values restore feasibility from it (dual simplex).
class Engine {
public:
    void addConstraint(const Constraint& constraint);
    void removeConstraint(const Constraint& constraint);
    bool hasConstraint(const Constraint& constraint) const;
    void updateConstant(const Constraint& constraint, double constant);

    void addEditVariable(const Variable& variable, Strength strength);
    void removeEditVariable(const Variable& variable);
    bool hasEditVariable(const Variable& variable) const;
    void suggestValue(const Variable& variable, double value);

    /// Writes the solution; returns the variables written when only those
    /// could have changed, null when any could.
    const std::vector<const Variable*>* updateVariables();
    void reset();
    QString dump() const;

private:
    /// The symbols a constraint brought: the marker that identifies its row
    /// (a slack, the positive error, or a dummy) and the other error if any.
    /// `markerCoefficient` is the marker's coefficient in `expression + ... = 0`.
    struct Tag {
        Symbol marker;
        Symbol other;
        double markerCoefficient = 1.0;
    };
    struct ConstraintEntry {
        Constraint constraint;
        Tag tag;
    };
    struct VariableEntry {
        Variable variable;
        Symbol symbol;
        int uses = 0;
    };
    struct EditEntry {
        Variable variable;
        Constraint constraint;
    };

    Symbol newSymbol(Symbol::Kind kind);
    VariableEntry& variableFor(const Variable& variable);
    void releaseVariables(const Constraint& constraint);

    /// Brings the constraint's row into the tableau; throws
    /// UnsatisfiableConstraint with the tableau as it was.
    Tag insertRow(const Constraint& constraint);
    /// The constraint as a row over parametric symbols, with its own slack,
    /// error or dummy symbols; counts a use of each of its variables.
    Row createRow(const Constraint& constraint, Tag& tag);
    static Symbol chooseSubject(const Row& row, const Tag& tag, std::uint32_t firstFresh);
    bool addWithArtificialVariable(const Row& row);
    void removeError(Symbol error, double priority);
    /// Takes a constraint's equation out: pivots the marker into the basis
    /// if needed and drops its row.
    void dropRowOf(Symbol marker);
    Symbol markerLeavingRow(Symbol marker) const;

    void optimize(Objective& objective);
    bool dualOptimize();
    Symbol leavingRowFor(Symbol entering) const;
    Symbol dualEntering(const Row& row) const;
    void pivot(Symbol leaving, Symbol entering);
    void substitute(Symbol symbol, const Row& row);
    void noteIfInfeasible(Symbol basic, const Row& row);
    /// Moves a constraint's constant by `delta` in the tableau; false when a
    /// required equality that only restated others no longer agrees.
    bool shiftConstant(const Tag& tag, double delta);
    void collectInfeasibleRows();
    /// The positions in the tableau of the rows that hold `symbol`, kept
    /// until the tableau changes shape: a constant animated frame after frame
    /// touches only the rows it moves.
    const std::vector<std::uint32_t>& rowsHolding(Symbol symbol);

    QString symbolName(Symbol symbol) const;
    QString rowText(const Row& row) const;

    HandleMap<ConstraintEntry> _constraints;
    HandleMap<VariableEntry> _variables;
    HandleMap<EditEntry> _edits;
    Tableau _tableau;
    Objective _objective;
    std::optional<Objective> _artificial;
    std::vector<Symbol> _infeasible;
    std::uint32_t _nextId = 1;

    std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> _columns;
    std::uint64_t _columnsShape = 0;
    /// Variables by their symbol, and the basic ones whose values moved
    /// since `updateVariables` last ran over all of them at `_valuesShape`.
    std::unordered_map<std::uint32_t, Variable> _variablesBySymbol;
    std::vector<Symbol> _movedBasics;
    std::vector<const Variable*> _written;
    std::optional<std::uint64_t> _valuesShape;
};

}  // namespace platform::layout::detail
