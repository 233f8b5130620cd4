#include "platform/layout/Row.h"

#include <algorithm>

namespace platform::layout::detail {

namespace {

constexpr std::size_t kLinearSearch = 16;

bool byId(const Cell& cell, std::uint32_t id) {
    return cell.symbol.id < id;
}

}  // namespace

std::ptrdiff_t Row::find(Symbol symbol) const {
    if (_cells.size() <= kLinearSearch) {
        for (std::size_t index = 0; index < _cells.size(); ++index) {
            if (_cells[index].symbol.id >= symbol.id) {
                return _cells[index].symbol.id == symbol.id ? static_cast<std::ptrdiff_t>(index)
                                                            : -1;
            }
        }
        return -1;
    }
    const Cell* it = std::lower_bound(_cells.begin(), _cells.end(), symbol.id, byId);
    if (it == _cells.end() || it->symbol.id != symbol.id) {
        return -1;
    }
    return it - _cells.begin();
}

double Row::coefficientFor(Symbol symbol) const {
    if ((_mask & bit(symbol)) == 0) {
        return 0.0;
    }
    const std::ptrdiff_t index = find(symbol);
    return index < 0 ? 0.0 : _cells[static_cast<std::size_t>(index)].coefficient;
}

bool Row::allDummies() const {
    return std::all_of(_cells.begin(), _cells.end(),
                       [](const Cell& cell) { return cell.symbol.isDummy(); });
}

void Row::insert(Symbol symbol, double coefficient) {
    Cell* it = std::lower_bound(_cells.begin(), _cells.end(), symbol.id, byId);
    const auto index = static_cast<std::size_t>(it - _cells.begin());
    if (it != _cells.end() && it->symbol.id == symbol.id) {
        it->coefficient += coefficient;
        if (nearZero(it->coefficient)) {
            _cells.erase(index);
        }
    } else if (!nearZero(coefficient)) {
        _cells.insert(index, Cell{symbol, coefficient});
        _mask |= bit(symbol);
    }
}

void Row::insert(const Row& other, double coefficient) {
    _constant += other._constant * coefficient;
    if (other._cells.empty()) {
        return;
    }
    // Merge from the back into room made at the end, then close the gap that
    // merged symbols leave and drop coefficients that cancelled.
    const auto size = static_cast<std::ptrdiff_t>(_cells.size());
    _cells.resize(_cells.size() + other._cells.size());
    Cell* cells = _cells.begin();
    const Cell* incoming = other._cells.begin();
    std::ptrdiff_t mine = size - 1;
    auto theirs = static_cast<std::ptrdiff_t>(other._cells.size()) - 1;
    auto write = static_cast<std::ptrdiff_t>(_cells.size()) - 1;
    while (theirs >= 0) {
        const Cell& next = incoming[theirs];
        if (mine >= 0 && cells[mine].symbol.id > next.symbol.id) {
            cells[write--] = cells[mine--];
        } else if (mine >= 0 && cells[mine].symbol.id == next.symbol.id) {
            cells[write--] =
                Cell{next.symbol, cells[mine].coefficient + next.coefficient * coefficient};
            --mine;
            --theirs;
        } else {
            cells[write--] = Cell{next.symbol, next.coefficient * coefficient};
            --theirs;
        }
    }
    std::ptrdiff_t kept = mine + 1;
    for (std::ptrdiff_t read = write + 1; read < static_cast<std::ptrdiff_t>(_cells.size());
         ++read) {
        if (!nearZero(cells[read].coefficient)) {
            cells[kept++] = cells[read];
        }
    }
    _cells.resize(static_cast<std::size_t>(kept));
    _mask |= other._mask;
}

void Row::remove(Symbol symbol) {
    const std::ptrdiff_t index = find(symbol);
    if (index >= 0) {
        _cells.erase(static_cast<std::size_t>(index));
    }
}

void Row::reverseSign() {
    _constant = -_constant;
    for (Cell& cell : _cells) {
        cell.coefficient = -cell.coefficient;
    }
}

void Row::solveFor(Symbol subject) {
    const auto index = static_cast<std::size_t>(find(subject));
    const double factor = -1.0 / _cells[index].coefficient;
    _cells.erase(index);
    _constant *= factor;
    for (Cell& cell : _cells) {
        cell.coefficient *= factor;
    }
}

void Row::solveFor(Symbol lhs, Symbol rhs) {
    insert(lhs, -1.0);
    solveFor(rhs);
}

bool Row::substitute(Symbol symbol, const Row& row) {
    if ((_mask & bit(symbol)) == 0) {
        return false;
    }
    const std::ptrdiff_t index = find(symbol);
    if (index < 0) {
        return false;
    }
    const double coefficient = _cells[static_cast<std::size_t>(index)].coefficient;
    _cells.erase(static_cast<std::size_t>(index));
    insert(row, coefficient);
    return true;
}

}  // namespace platform::layout::detail
