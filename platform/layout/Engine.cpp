#include "platform/layout/Engine.h"

#include "platform/layout/LayoutError.h"

#include <algorithm>
#include <limits>

namespace platform::layout::detail {

namespace {
constexpr std::size_t kMaxMovedBasics = 1024;
}  // namespace

/// The solver moves a constraint's constant in place, so that the views layer
/// can animate a constant without building a new constraint each frame.
struct ConstraintAccess {
    static void setConstant(const Constraint& constraint, double constant) {
        constraint._data->expression.setConstant(constant);
    }
};

// ---- constraints -------------------------------------------------------------

void Engine::addConstraint(const Constraint& constraint) {
    auto [entry, inserted] = _constraints.findOrInsert(constraint.key(), [&] {
        return ConstraintEntry{constraint, Tag{}};
    });
    if (!inserted) {
        throw DuplicateConstraint(constraint);
    }
    try {
        entry->tag = insertRow(constraint);  // touches no other constraint entry
    } catch (...) {
        _constraints.erase(constraint.key());
        releaseVariables(constraint);
        throw;
    }
    optimize(_objective);
    _infeasible.clear();
}

void Engine::removeConstraint(const Constraint& constraint) {
    const ConstraintEntry* entry = _constraints.find(constraint.key());
    if (entry == nullptr) {
        throw UnknownConstraint(constraint);
    }
    const Tag tag = entry->tag;
    _constraints.erase(constraint.key());
    const double priority = constraint.strength().priority();
    if (tag.marker.kind == Symbol::Kind::Error) {
        removeError(tag.marker, priority);
    }
    if (tag.other.kind == Symbol::Kind::Error) {
        removeError(tag.other, priority);
    }
    dropRowOf(tag.marker);
    releaseVariables(constraint);
    optimize(_objective);
    _infeasible.clear();
}

bool Engine::hasConstraint(const Constraint& constraint) const {
    return _constraints.contains(constraint.key());
}

void Engine::updateConstant(const Constraint& constraint, double constant) {
    const ConstraintEntry* entry = _constraints.find(constraint.key());
    if (entry == nullptr) {
        throw UnknownConstraint(constraint);
    }
    const double old = constraint.expression().constant();
    const double delta = constant - old;
    if (delta == 0.0) {
        return;
    }
    const Tag tag = entry->tag;
    ConstraintAccess::setConstant(constraint, constant);
    if (shiftConstant(tag, delta) && dualOptimize()) {
        return;
    }
    // Only a required constraint can get here. The basis is still optimal
    // for the objective, so the old constant is feasible again from it.
    UnsatisfiableConstraint error(constraint);
    ConstraintAccess::setConstant(constraint, old);
    _infeasible.clear();
    shiftConstant(tag, -delta);
    collectInfeasibleRows();
    dualOptimize();
    throw error;
}

// ---- edit variables ----------------------------------------------------------

void Engine::addEditVariable(const Variable& variable, Strength strength) {
    if (_edits.contains(variable.key())) {
        throw DuplicateEditVariable(variable);
    }
    if (strength.isRequired()) {
        throw BadRequiredStrength(variable);
    }
    // Held at its current value until a value is suggested.
    Constraint constraint(Expression({Term(variable)}, -variable.value()), Relation::Equal,
                          strength);
    addConstraint(constraint);
    _edits.findOrInsert(variable.key(), [&] { return EditEntry{variable, constraint}; });
}

void Engine::removeEditVariable(const Variable& variable) {
    const EditEntry* entry = _edits.find(variable.key());
    if (entry == nullptr) {
        throw UnknownEditVariable(variable);
    }
    removeConstraint(entry->constraint);
    _edits.erase(variable.key());
}

bool Engine::hasEditVariable(const Variable& variable) const {
    return _edits.contains(variable.key());
}

void Engine::suggestValue(const Variable& variable, double value) {
    const EditEntry* entry = _edits.find(variable.key());
    if (entry == nullptr) {
        throw UnknownEditVariable(variable);
    }
    updateConstant(entry->constraint, -value);
}

const std::vector<const Variable*>* Engine::updateVariables() {
    auto write = [this](Symbol symbol, Variable& variable) {
        const Row* row = _tableau.rowFor(symbol);
        const double value = row != nullptr ? row->constant() : 0.0;
        variable.setValue(value == 0.0 ? 0.0 : value);  // never -0
    };
    _written.clear();
    const bool partial = _valuesShape == _tableau.shape();
    if (partial) {
        // Only constants moved since the last full pass: only basic
        // variables can have new values.
        for (Symbol basic : _movedBasics) {
            if (auto it = _variablesBySymbol.find(basic.id); it != _variablesBySymbol.end()) {
                write(basic, it->second);
                _written.push_back(&it->second);
            }
        }
    } else {
        _variables.forEach([&](VariableEntry& entry) { write(entry.symbol, entry.variable); });
        _valuesShape = _tableau.shape();
    }
    _movedBasics.clear();
    return partial ? &_written : nullptr;
}

void Engine::reset() {
    _constraints.clear();
    _variables.clear();
    _edits.clear();
    _tableau.clear();
    _objective.clear();
    _artificial.reset();
    _infeasible.clear();
    _nextId = 1;
    _columns.clear();
    _variablesBySymbol.clear();
    _movedBasics.clear();
    _written.clear();
    _valuesShape.reset();
}

// ---- symbols and rows ----------------------------------------------------------

Symbol Engine::newSymbol(Symbol::Kind kind) {
    return Symbol{_nextId++, kind};
}

Engine::VariableEntry& Engine::variableFor(const Variable& variable) {
    return *_variables
                .findOrInsert(variable.key(),
                              [&] {
                                  const Symbol symbol = newSymbol(Symbol::Kind::External);
                                  _variablesBySymbol.emplace(symbol.id, variable);
                                  return VariableEntry{variable, symbol, 0};
                              })
                .first;
}

void Engine::releaseVariables(const Constraint& constraint) {
    for (const Term& term : constraint.expression().terms()) {
        VariableEntry* entry = _variables.find(term.variable.key());
        if (!nearZero(term.coefficient) && entry != nullptr && --entry->uses <= 0) {
            _variablesBySymbol.erase(entry->symbol.id);
            _variables.erase(term.variable.key());
        }
    }
}

Row Engine::createRow(const Constraint& constraint, Tag& tag) {
    const Expression& expression = constraint.expression();
    Row row(expression.constant());
    row.reserve(expression.terms().size() + 2);
    for (const Term& term : expression.terms()) {
        if (nearZero(term.coefficient)) {
            continue;
        }
        VariableEntry& entry = variableFor(term.variable);
        ++entry.uses;  // given back by releaseVariables if the constraint is refused
        const Symbol symbol = entry.symbol;
        if (const Row* basic = _tableau.rowFor(symbol)) {
            row.insert(*basic, term.coefficient);
        } else {
            row.insert(symbol, term.coefficient);
        }
    }

    const double priority = constraint.strength().priority();
    const bool required = constraint.strength().isRequired();
    if (constraint.relation() == Relation::Equal) {
        if (required) {
            tag.marker = newSymbol(Symbol::Kind::Dummy);
            tag.markerCoefficient = 1.0;
            row.insert(tag.marker, 1.0);
        } else {
            // expression = plus - minus, both errors minimised.
            tag.marker = newSymbol(Symbol::Kind::Error);
            tag.other = newSymbol(Symbol::Kind::Error);
            tag.markerCoefficient = -1.0;
            row.insert(tag.marker, -1.0);
            row.insert(tag.other, 1.0);
            _objective.addError(tag.marker, priority);
            _objective.addError(tag.other, priority);
        }
    } else {
        // expression + slack = 0 for <=, expression - slack = 0 for >=.
        const double sign = constraint.relation() == Relation::LessThanOrEqual ? 1.0 : -1.0;
        tag.marker = newSymbol(Symbol::Kind::Slack);
        tag.markerCoefficient = sign;
        row.insert(tag.marker, sign);
        if (!required) {
            tag.other = newSymbol(Symbol::Kind::Error);
            row.insert(tag.other, -sign);
            _objective.addError(tag.other, priority);
        }
    }
    if (row.constant() < 0.0) {
        row.reverseSign();
    }
    return row;
}

Engine::Tag Engine::insertRow(const Constraint& constraint) {
    const std::uint32_t firstFresh = _nextId;
    Tag tag;
    Row row = createRow(constraint, tag);
    Symbol subject = chooseSubject(row, tag, firstFresh);
    if (!subject.valid() && row.allDummies()) {
        if (!nearZero(row.constant())) {
            throw UnsatisfiableConstraint(constraint);
        }
        subject = tag.marker;  // it only restates required equalities already here
    }
    if (subject.valid()) {
        row.solveFor(subject);
        if (subject.id < firstFresh) {
            substitute(subject, row);
        } else {
            _objective.substitute(subject, row);  // no row holds a symbol this new
        }
        _tableau.insert(subject, std::move(row));
    } else if (!addWithArtificialVariable(row)) {
        optimize(_objective);
        _infeasible.clear();
        throw UnsatisfiableConstraint(constraint);
    }
    return tag;
}

Symbol Engine::chooseSubject(const Row& row, const Tag& tag, std::uint32_t firstFresh) {
    // Any variable will do; one the constraint brought in saves substituting.
    Symbol external;
    for (const Row::Cell& cell : row.cells()) {
        if (cell.symbol.isExternal()) {
            if (cell.symbol.id >= firstFresh) {
                return cell.symbol;
            }
            if (!external.valid()) {
                external = cell.symbol;
            }
        }
    }
    if (external.valid()) {
        return external;
    }
    // A restricted symbol with a negative coefficient solves to a
    // non-negative value, since the constant is not negative.
    for (Symbol candidate : {tag.marker, tag.other}) {
        if (candidate.isRestricted() && row.coefficientFor(candidate) < 0.0) {
            return candidate;
        }
    }
    return {};
}

bool Engine::addWithArtificialVariable(const Row& row) {
    // Minimise an artificial variable standing for the row; the constraint
    // can hold exactly when that minimum is zero.
    const Symbol artificial = newSymbol(Symbol::Kind::Slack);
    _tableau.insert(artificial, row);
    _artificial = Objective::single(row);
    optimize(*_artificial);
    const bool satisfiable = nearZero(_artificial->levels().front().row.constant());
    _artificial.reset();

    if (_tableau.rowFor(artificial) != nullptr) {
        Row artificialRow = _tableau.take(artificial);
        if (!satisfiable) {
            return false;  // the new equation lived in that row alone
        }
        if (artificialRow.hasCells()) {
            const Row::Cells& cells = artificialRow.cells();
            const Row::Cell* entering =
                std::find_if(cells.begin(), cells.end(),
                             [](const Row::Cell& cell) { return cell.symbol.isRestricted(); });
            const Symbol subject = entering != cells.end() ? entering->symbol : cells[0].symbol;
            artificialRow.solveFor(artificial, subject);
            substitute(subject, artificialRow);
            _tableau.insert(subject, std::move(artificialRow));
        }
    } else if (!satisfiable) {
        dropRowOf(artificial);
        return false;
    }
    // The artificial variable is zero now; its column goes.
    for (Tableau::Entry& entry : _tableau.entries()) {
        entry.row.remove(artificial);
    }
    _objective.substitute(artificial, Row());
    return true;
}

void Engine::removeError(Symbol error, double priority) {
    if (const Row* row = _tableau.rowFor(error)) {
        _objective.removeError(*row, priority);
    } else {
        Row single;
        single.insert(error, 1.0);
        _objective.removeError(single, priority);
    }
}

void Engine::dropRowOf(Symbol marker) {
    if (_tableau.rowFor(marker) != nullptr) {
        _tableau.take(marker);
        return;
    }
    const Symbol leaving = markerLeavingRow(marker);
    if (!leaving.valid()) {
        return;
    }
    Row row = _tableau.take(leaving);
    row.solveFor(leaving, marker);
    substitute(marker, row);
}

Symbol Engine::markerLeavingRow(Symbol marker) const {
    // Prefer the row that keeps every restricted symbol feasible.
    constexpr double kNone = std::numeric_limits<double>::max();
    double firstRatio = kNone;
    double secondRatio = kNone;
    Symbol first;
    Symbol second;
    Symbol third;
    for (const Tableau::Entry& entry : _tableau.entries()) {
        const double coefficient = entry.row.coefficientFor(marker);
        if (coefficient == 0.0) {
            continue;
        }
        if (entry.basic.isExternal()) {
            third = entry.basic;
        } else if (coefficient < 0.0) {
            const double ratio = -entry.row.constant() / coefficient;
            if (ratio < firstRatio) {
                firstRatio = ratio;
                first = entry.basic;
            }
        } else {
            const double ratio = entry.row.constant() / coefficient;
            if (ratio < secondRatio) {
                secondRatio = ratio;
                second = entry.basic;
            }
        }
    }
    if (first.valid()) {
        return first;
    }
    return second.valid() ? second : third;
}

// ---- simplex -----------------------------------------------------------------

void Engine::optimize(Objective& objective) {
    for (;;) {
        const Symbol entering = objective.entering();
        if (!entering.valid()) {
            return;
        }
        const Symbol leaving = leavingRowFor(entering);
        if (!leaving.valid()) {
            throw LayoutError(QStringLiteral("internal error: the layout objective is unbounded"));
        }
        pivot(leaving, entering);
    }
}

bool Engine::dualOptimize() {
    while (!_infeasible.empty()) {
        const Symbol leaving = _infeasible.back();
        _infeasible.pop_back();
        const Row* row = _tableau.rowFor(leaving);
        if (row == nullptr || row->constant() >= -kEpsilon) {
            continue;
        }
        const Symbol entering = dualEntering(*row);
        if (!entering.valid()) {
            _infeasible.clear();
            return false;
        }
        pivot(leaving, entering);
    }
    return true;
}

Symbol Engine::leavingRowFor(Symbol entering) const {
    // The restricted row that first reaches zero as `entering` grows; ties go
    // to the lowest id, which keeps degenerate pivots from cycling.
    double best = std::numeric_limits<double>::max();
    Symbol found;
    for (const Tableau::Entry& entry : _tableau.entries()) {
        if (entry.basic.isExternal()) {
            continue;
        }
        const double coefficient = entry.row.coefficientFor(entering);
        if (coefficient >= 0.0) {
            continue;
        }
        const double ratio = -entry.row.constant() / coefficient;
        if (ratio < best || (ratio == best && entry.basic.id < found.id)) {
            best = ratio;
            found = entry.basic;
        }
    }
    return found;
}

Symbol Engine::dualEntering(const Row& row) const {
    Symbol best;
    double bestCoefficient = 0.0;
    for (const Row::Cell& cell : row.cells()) {
        if (cell.coefficient <= 0.0 || cell.symbol.isDummy()) {
            continue;
        }
        if (!best.valid() ||
            _objective.ratioLess(cell.symbol, cell.coefficient, best, bestCoefficient)) {
            best = cell.symbol;
            bestCoefficient = cell.coefficient;
        }
    }
    return best;
}

void Engine::pivot(Symbol leaving, Symbol entering) {
    Row row = _tableau.take(leaving);
    row.solveFor(leaving, entering);
    substitute(entering, row);
    _tableau.insert(entering, std::move(row));
}

void Engine::substitute(Symbol symbol, const Row& row) {
    for (Tableau::Entry& entry : _tableau.entries()) {
        if (entry.row.substitute(symbol, row)) {
            noteIfInfeasible(entry.basic, entry.row);
        }
    }
    _objective.substitute(symbol, row);
    if (_artificial) {
        _artificial->substitute(symbol, row);
    }
}

void Engine::noteIfInfeasible(Symbol basic, const Row& row) {
    if (basic.isRestricted() && row.constant() < -kEpsilon) {
        _infeasible.push_back(basic);
    }
}

bool Engine::shiftConstant(const Tag& tag, double delta) {
    // With constant + delta the old marker equals a new marker plus `shift`;
    // substituting that moves only constants, so the basis stays optimal.
    const double shift = delta / tag.markerCoefficient;
    bool consistent = true;
    auto move = [&](Symbol basic, Row& row, double change) {
        row.add(change);
        if (basic.isExternal() && _valuesShape == _tableau.shape()) {
            if (_movedBasics.size() < kMaxMovedBasics) {
                _movedBasics.push_back(basic);
            } else {
                _valuesShape.reset();  // many moves without a read: read everything
            }
        }
        if (basic.isDummy() && !nearZero(row.constant())) {
            consistent = false;
        }
        noteIfInfeasible(basic, row);
    };
    if (Row* row = _tableau.rowFor(tag.marker)) {
        move(tag.marker, *row, -shift);
        return consistent;
    }
    std::vector<Tableau::Entry>& entries = _tableau.entries();
    for (std::uint32_t index : rowsHolding(tag.marker)) {
        Tableau::Entry& entry = entries[index];
        move(entry.basic, entry.row, entry.row.coefficientFor(tag.marker) * shift);
    }
    _objective.shiftConstants(tag.marker, shift);
    return consistent;
}

const std::vector<std::uint32_t>& Engine::rowsHolding(Symbol symbol) {
    if (_columnsShape != _tableau.shape()) {
        _columns.clear();
        _columnsShape = _tableau.shape();
    }
    auto [it, inserted] = _columns.try_emplace(symbol.id);
    if (inserted) {
        const std::vector<Tableau::Entry>& entries = _tableau.entries();
        for (std::size_t index = 0; index < entries.size(); ++index) {
            if (entries[index].row.contains(symbol)) {
                it->second.push_back(static_cast<std::uint32_t>(index));
            }
        }
    }
    return it->second;
}

void Engine::collectInfeasibleRows() {
    for (const Tableau::Entry& entry : _tableau.entries()) {
        noteIfInfeasible(entry.basic, entry.row);
    }
}

// ---- dump ----------------------------------------------------------------------

QString Engine::symbolName(Symbol symbol) const {
    const QString id = QString::number(symbol.id);
    switch (symbol.kind) {
        case Symbol::Kind::External: {
            QString name = QStringLiteral("v") + id;
            _variables.forEach([&](const VariableEntry& entry) {
                if (entry.symbol == symbol && !entry.variable.name().isEmpty()) {
                    name = entry.variable.name();
                }
            });
            return name;
        }
        case Symbol::Kind::Slack:
            return QStringLiteral("s") + id;
        case Symbol::Kind::Error:
            return QStringLiteral("e") + id;
        case Symbol::Kind::Dummy:
            return QStringLiteral("d") + id;
        case Symbol::Kind::Invalid:
            break;
    }
    return QStringLiteral("-");
}

QString Engine::rowText(const Row& row) const {
    QString text = numberText(row.constant());
    for (const Row::Cell& cell : row.cells()) {
        appendSummand(text, cell.coefficient, symbolName(cell.symbol));
    }
    return text;
}

QString Engine::dump() const {
    QString text = QStringLiteral("Objective\n");
    for (const Objective::Level& level : _objective.levels()) {
        text += QStringLiteral("  @%1: %2\n").arg(numberText(level.priority), rowText(level.row));
    }

    text += QStringLiteral("Tableau\n");
    std::vector<const Tableau::Entry*> rows;
    for (const Tableau::Entry& entry : _tableau.entries()) {
        rows.push_back(&entry);
    }
    std::sort(rows.begin(), rows.end(),
              [](const auto* a, const auto* b) { return a->basic.id < b->basic.id; });
    for (const Tableau::Entry* entry : rows) {
        text += QStringLiteral("  %1 = %2\n").arg(symbolName(entry->basic), rowText(entry->row));
    }

    text += QStringLiteral("Constraints\n");
    std::vector<const ConstraintEntry*> constraints;
    _constraints.forEach([&](const ConstraintEntry& entry) { constraints.push_back(&entry); });
    std::sort(constraints.begin(), constraints.end(),
              [](const auto* a, const auto* b) { return a->tag.marker.id < b->tag.marker.id; });
    for (const ConstraintEntry* entry : constraints) {
        text += QStringLiteral("  %1  [%2")
                    .arg(entry->constraint.toString(), symbolName(entry->tag.marker));
        if (entry->tag.other.valid()) {
            text += QStringLiteral(" ") + symbolName(entry->tag.other);
        }
        text += QStringLiteral("]\n");
    }

    text += QStringLiteral("Edit variables\n");
    _edits.forEach([&](const EditEntry& entry) {
        text +=
            QStringLiteral("  %1 @%2\n")
                .arg(entry.variable.toString(), numberText(entry.constraint.strength().priority()));
    });
    return text;
}

}  // namespace platform::layout::detail
