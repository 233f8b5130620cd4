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

private:
    static constexpr std::int32_t kNoRow = -1;

    std::vector<Entry> _entries;
    std::vector<std::int32_t> _indexById;
};

}  // namespace platform::layout::detail
