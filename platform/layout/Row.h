#pragma once

#include "platform/layout/CellBuffer.h"
#include "platform/layout/Symbol.h"

#include <cstddef>
#include <cstdint>

namespace platform::layout::detail {

/// One row of the tableau: a constant plus coefficients of symbols, kept
/// sorted by symbol id. As a tableau row it is the value of its basic symbol;
/// freshly made from a constraint it is an expression that must equal zero.
class Row {
public:
    using Cell = detail::Cell;
    using Cells = CellBuffer;

    explicit Row(double constant = 0.0) : _constant(constant) {}

    double constant() const { return _constant; }
    const Cells& cells() const { return _cells; }
    bool hasCells() const { return !_cells.empty(); }

    double coefficientFor(Symbol symbol) const;
    bool contains(Symbol symbol) const { return (_mask & bit(symbol)) != 0 && find(symbol) >= 0; }
    bool allDummies() const;

    void reserve(std::size_t cells) { _cells.reserve(cells); }
    void add(double value) { _constant += value; }
    /// Adds `coefficient * symbol`; a coefficient that ends near zero goes.
    void insert(Symbol symbol, double coefficient);
    /// Adds `coefficient * other`, constant included.
    void insert(const Row& other, double coefficient = 1.0);
    void remove(Symbol symbol);
    void reverseSign();

    /// Reads the row as `0 = row` and rewrites it as the value of `subject`.
    void solveFor(Symbol subject);
    /// Reads the row as `lhs = row` and rewrites it as the value of `rhs`.
    void solveFor(Symbol lhs, Symbol rhs);
    /// Replaces `symbol` by the value `row` gives it; false when absent.
    bool substitute(Symbol symbol, const Row& row);

private:
    static std::uint64_t bit(Symbol symbol) { return std::uint64_t{1} << (symbol.id & 63U); }
    /// The index of the symbol's cell, or -1.
    std::ptrdiff_t find(Symbol symbol) const;

    Cells _cells;
    double _constant;
    /// A bit per id modulo 64 of every symbol that was ever present: a quick
    /// "not here" before the search.
    std::uint64_t _mask = 0;
};

}  // namespace platform::layout::detail
