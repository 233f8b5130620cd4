#include "platform/layout/Tableau.h"

#include <algorithm>
#include <utility>

namespace platform::layout::detail {

Row* Tableau::rowFor(Symbol basic) {
    if (basic.id >= _indexById.size() || _indexById[basic.id] == kNoRow) {
        return nullptr;
    }
    return &_entries[static_cast<std::size_t>(_indexById[basic.id])].row;
}

const Row* Tableau::rowFor(Symbol basic) const {
    if (basic.id >= _indexById.size() || _indexById[basic.id] == kNoRow) {
        return nullptr;
    }
    return &_entries[static_cast<std::size_t>(_indexById[basic.id])].row;
}

void Tableau::insert(Symbol basic, Row row) {
    if (basic.id >= _indexById.size()) {
        _indexById.resize(std::max<std::size_t>(basic.id + 1, _indexById.size() * 2), kNoRow);
    }
    ++_shape;
    _indexById[basic.id] = static_cast<std::int32_t>(_entries.size());
    _entries.push_back(Entry{basic, std::move(row)});
}

Row Tableau::take(Symbol basic) {
    ++_shape;
    const auto index = static_cast<std::size_t>(_indexById[basic.id]);
    Row row = std::move(_entries[index].row);
    _indexById[basic.id] = kNoRow;
    if (index + 1 != _entries.size()) {
        _entries[index] = std::move(_entries.back());
        _indexById[_entries[index].basic.id] = static_cast<std::int32_t>(index);
    }
    _entries.pop_back();
    return row;
}

void Tableau::clear() {
    ++_shape;
    _entries.clear();
    _indexById.clear();
}

}  // namespace platform::layout::detail
