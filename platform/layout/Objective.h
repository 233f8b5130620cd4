#pragma once

#include "platform/layout/Row.h"
#include "platform/layout/Symbol.h"

#include <vector>

namespace platform::layout::detail {

/// The function the simplex minimises: one row per priority level, highest
/// first, compared lexicographically. A level's row sums the errors of its
/// constraints, so a higher level is never traded for any amount of a lower.
class Objective {
public:
    struct Level {
        double priority;
        Row row;
        int errors;
    };

    /// An objective of one row, as the artificial phase minimises.
    static Objective single(const Row& row);

    /// Counts `error` into its level (made on first use) with weight one.
    void addError(Symbol error, double priority);
    /// Takes the error's contribution, `value` (the error's own symbol, or its
    /// row when it is basic), out of its level; drops the level when it was
    /// the last.
    void removeError(const Row& value, double priority);

    void substitute(Symbol symbol, const Row& row);
    /// Adds `shift * coefficient of symbol` to each level's constant.
    void shiftConstants(Symbol symbol, double shift);

    /// A symbol whose entering lowers the objective: the lowest id with a
    /// negative coefficient on the first level that has one, among symbols
    /// every higher level leaves at zero. Invalid when optimal.
    Symbol entering() const;
    /// For the dual ratio test: whether symbol a, at coefficient ca in the
    /// infeasible row, has a lexicographically smaller ratio than b at cb.
    bool ratioLess(Symbol a, double ca, Symbol b, double cb) const;

    const std::vector<Level>& levels() const { return _levels; }
    void clear() { _levels.clear(); }

private:
    Level& levelFor(double priority);

    std::vector<Level> _levels;
};

}  // namespace platform::layout::detail
