#include "platform/layout/Objective.h"

#include <algorithm>

namespace platform::layout::detail {

Objective Objective::single(const Row& row) {
    Objective objective;
    objective._levels.push_back(Level{0.0, row, 0});
    return objective;
}

Objective::Level& Objective::levelFor(double priority) {
    auto it = std::find_if(_levels.begin(), _levels.end(),
                           [&](const Level& level) { return level.priority <= priority; });
    if (it == _levels.end() || it->priority != priority) {
        it = _levels.insert(it, Level{priority, Row(), 0});
    }
    return *it;
}

void Objective::addError(Symbol error, double priority) {
    Level& level = levelFor(priority);
    level.row.insert(error, 1.0);
    ++level.errors;
}

void Objective::removeError(const Row& value, double priority) {
    Level& level = levelFor(priority);
    level.row.insert(value, -1.0);
    if (--level.errors <= 0) {
        std::erase_if(_levels, [](const Level& l) { return l.errors <= 0; });
    }
}

void Objective::substitute(Symbol symbol, const Row& row) {
    for (Level& level : _levels) {
        level.row.substitute(symbol, row);
    }
}

void Objective::shiftConstants(Symbol symbol, double shift) {
    for (Level& level : _levels) {
        level.row.add(level.row.coefficientFor(symbol) * shift);
    }
}

Symbol Objective::entering() const {
    for (std::size_t index = 0; index < _levels.size(); ++index) {
        for (const Row::Cell& cell : _levels[index].row.cells()) {
            if (cell.coefficient >= 0.0 || cell.symbol.isDummy()) {
                continue;
            }
            const bool heldAbove = std::any_of(
                _levels.begin(), _levels.begin() + static_cast<std::ptrdiff_t>(index),
                [&](const Level& above) { return above.row.coefficientFor(cell.symbol) != 0.0; });
            if (!heldAbove) {
                return cell.symbol;
            }
        }
    }
    return {};
}

bool Objective::ratioLess(Symbol a, double ca, Symbol b, double cb) const {
    for (const Level& level : _levels) {
        const double ra = level.row.coefficientFor(a) / ca;
        const double rb = level.row.coefficientFor(b) / cb;
        if (ra < rb - kEpsilon) {
            return true;
        }
        if (rb < ra - kEpsilon) {
            return false;
        }
    }
    return false;
}

}  // namespace platform::layout::detail
