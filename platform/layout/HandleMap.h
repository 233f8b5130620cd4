#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace platform::layout::detail {

/// A hash map keyed by the identity of a handle (`Variable::key()`,
/// `Constraint::key()`): open addressing with linear probing, so that
/// building a solver costs no allocation per entry. Values move when the
/// table grows or an entry is erased; hold keys, not pointers, across those.
template <class Value>
class HandleMap {
public:
    Value* find(const void* key) {
        if (_slots.empty()) {
            return nullptr;
        }
        for (std::size_t index = home(key);; index = next(index)) {
            Slot& slot = _slots[index];
            if (slot.key == key) {
                return &*slot.value;
            }
            if (slot.key == nullptr) {
                return nullptr;
            }
        }
    }
    const Value* find(const void* key) const { return const_cast<HandleMap*>(this)->find(key); }
    bool contains(const void* key) const { return find(key) != nullptr; }

    /// Inserts `make()` under `key` unless the key is there; returns the
    /// value under the key and whether it was inserted.
    template <class Make>
    std::pair<Value*, bool> findOrInsert(const void* key, Make&& make) {
        if ((_size + 1) * 2 > _slots.size()) {
            grow();
        }
        std::size_t index = home(key);
        for (; _slots[index].key != nullptr; index = next(index)) {
            if (_slots[index].key == key) {
                return {&*_slots[index].value, false};
            }
        }
        _slots[index].key = key;
        _slots[index].value.emplace(make());
        ++_size;
        return {&*_slots[index].value, true};
    }

    bool erase(const void* key) {
        if (_slots.empty()) {
            return false;
        }
        std::size_t hole = home(key);
        while (_slots[hole].key != key) {
            if (_slots[hole].key == nullptr) {
                return false;
            }
            hole = next(hole);
        }
        // Shift back the entries of the run after the hole that may live there.
        for (std::size_t index = next(hole); _slots[index].key != nullptr; index = next(index)) {
            const std::size_t wanted = home(_slots[index].key);
            const bool between = hole <= index ? (hole < wanted && wanted <= index)
                                               : (hole < wanted || wanted <= index);
            if (!between) {
                _slots[hole] = std::move(_slots[index]);
                hole = index;
            }
        }
        _slots[hole] = Slot{};
        --_size;
        return true;
    }

    void clear() {
        _slots.clear();
        _size = 0;
    }
    std::size_t size() const { return _size; }

    template <class Visit>
    void forEach(Visit&& visit) {
        for (Slot& slot : _slots) {
            if (slot.key != nullptr) {
                visit(*slot.value);
            }
        }
    }
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (const Slot& slot : _slots) {
            if (slot.key != nullptr) {
                visit(*slot.value);
            }
        }
    }

private:
    struct Slot {
        const void* key = nullptr;
        std::optional<Value> value;
    };

    std::size_t home(const void* key) const {
        // Fibonacci hashing of the address; allocations are 16-byte aligned.
        const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key)) >> 4;
        return static_cast<std::size_t>((bits * 0x9E3779B97F4A7C15ULL) >> _shift);
    }
    std::size_t next(std::size_t index) const { return (index + 1) & (_slots.size() - 1); }

    void grow() {
        std::vector<Slot> old = std::move(_slots);
        const std::size_t capacity = old.empty() ? 16 : old.size() * 2;
        _slots = std::vector<Slot>(capacity);
        _shift = 64;
        for (std::size_t c = capacity; c > 1; c >>= 1) {
            --_shift;
        }
        for (Slot& slot : old) {
            if (slot.key != nullptr) {
                std::size_t index = home(slot.key);
                while (_slots[index].key != nullptr) {
                    index = next(index);
                }
                _slots[index] = std::move(slot);
            }
        }
    }

    std::vector<Slot> _slots;
    std::size_t _size = 0;
    int _shift = 64;
};

}  // namespace platform::layout::detail
