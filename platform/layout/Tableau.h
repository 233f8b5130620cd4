#pragma once

#include "platform/layout/Row.h"
#include "platform/layout/Symbol.h"

#include <cstdint>
#include <vector>

namespace platform::layout::detail {

/// The rows of the simplex tableau, each the value of its basic symbol.
/// A symbol is basic exactly when it has a row; basic symbols appear in no
/// row. Rows are found by symbol id in constant time.
class Tableau {
public:
    struct Entry {
        Symbol basic;
        Row row;
    };

    Row* rowFor(Symbol basic);
    const Row* rowFor(Symbol basic) const;
    void insert(Symbol basic, Row row);
    /// Removes and returns the row of a basic symbol.
    Row take(Symbol basic);
    void clear();

    std::vector<Entry>& entries() { return _entries; }
    const std::vector<Entry>& entries() const { return _entries; }
    /// Changes whenever a row comes or goes. Rows change their cells only
    /// together with such a change (a pivot takes one and inserts another),
    /// so an index of where symbols occur holds while this stays the same.
    std::uint64_t shape() const { return _shape; }

private:
    static constexpr std::int32_t kNoRow = -1;

    std::vector<Entry> _entries;
    std::vector<std::int32_t> _indexById;
    std::uint64_t _shape = 0;
};

}  // namespace platform::layout::detail
