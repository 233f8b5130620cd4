#pragma once

#include "platform/layout/Symbol.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

namespace platform::layout::detail {

/// A coefficient of a symbol in a row.
struct Cell {
    Symbol symbol;
    double coefficient;
};
static_assert(std::is_trivially_copyable_v<Cell>);

/// The cells of one row. Layout rows are short, so the first few cells live
/// in place and a row costs no allocation; longer rows move to the heap.
class CellBuffer {
public:
    static constexpr std::size_t kInline = 6;

    CellBuffer() = default;
    CellBuffer(const CellBuffer& other) { assign(other); }
    CellBuffer& operator=(const CellBuffer& other) {
        if (this != &other) {
            _size = 0;
            assign(other);
        }
        return *this;
    }
    CellBuffer(CellBuffer&& other) noexcept { take(other); }
    CellBuffer& operator=(CellBuffer&& other) noexcept {
        if (this != &other) {
            _heap.reset();
            _capacity = kInline;
            take(other);
        }
        return *this;
    }
    ~CellBuffer() = default;

    std::size_t size() const { return _size; }
    bool empty() const { return _size == 0; }
    Cell* begin() { return data(); }
    Cell* end() { return data() + _size; }
    const Cell* begin() const { return data(); }
    const Cell* end() const { return data() + _size; }
    Cell& operator[](std::size_t index) { return data()[index]; }
    const Cell& operator[](std::size_t index) const { return data()[index]; }

    void reserve(std::size_t capacity) {
        if (capacity <= _capacity) {
            return;
        }
        auto heap = std::make_unique_for_overwrite<Cell[]>(capacity);
        std::memcpy(heap.get(), data(), _size * sizeof(Cell));
        _heap = std::move(heap);
        _capacity = capacity;
    }
    /// New cells are left for the caller to write.
    void resize(std::size_t size) {
        if (size > _capacity) {
            reserve(std::max(size, _capacity * 2));
        }
        _size = size;
    }
    void insert(std::size_t index, const Cell& cell) {
        resize(_size + 1);
        Cell* cells = data();
        std::memmove(cells + index + 1, cells + index, (_size - 1 - index) * sizeof(Cell));
        cells[index] = cell;
    }
    void erase(std::size_t index) {
        Cell* cells = data();
        std::memmove(cells + index, cells + index + 1, (_size - 1 - index) * sizeof(Cell));
        --_size;
    }

private:
    Cell* data() { return _heap ? _heap.get() : _inline; }
    const Cell* data() const { return _heap ? _heap.get() : _inline; }

    void assign(const CellBuffer& other) {
        resize(other._size);
        std::memcpy(data(), other.data(), other._size * sizeof(Cell));
    }
    void take(CellBuffer& other) {
        if (other._heap) {
            _heap = std::move(other._heap);
            _capacity = other._capacity;
        } else {
            std::memcpy(_inline, other._inline, other._size * sizeof(Cell));
        }
        _size = other._size;
        other._size = 0;
        other._capacity = kInline;
    }

    std::size_t _size = 0;
    std::size_t _capacity = kInline;
    std::unique_ptr<Cell[]> _heap;
    Cell _inline[kInline];
};

}  // namespace platform::layout::detail
