// A map from 32-bit keys to 32-bit values in one flat array: open addressing
// with linear probing, at most half full, backward-shift removal. For hot
// indexes whose entries are small and numerous, where a node per entry
// costs more than the lookup. One key value is reserved as the empty mark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "open_addressing.h"

namespace vq::internal {

template <int32_t kEmptyKey>
class FlatIntMap {
public:
    // The value of key, or nullptr.
    int32_t *find(int32_t key) noexcept {
        size_t at = slot_of(key);
        return at == kNone ? nullptr : &slots_[at].value;
    }
    const int32_t *find(int32_t key) const noexcept {
        size_t at = slot_of(key);
        return at == kNone ? nullptr : &slots_[at].value;
    }
    // Inserts key with value, or gives the present entry; *inserted says
    // which. Throws std::bad_alloc when the table cannot grow.
    int32_t &try_emplace(int32_t key, int32_t value, bool *inserted) {
        size_t at = slot_of(key);
        if (at != kNone) {
            *inserted = false;
            return slots_[at].value;
        }
        make_room();
        *inserted = true;
        return slots_[place(key, value)].value;
    }
    bool erase(int32_t key) noexcept {
        size_t hole = slot_of(key);
        if (hole == kNone) {
            return false;
        }
        remove_by_shifting_back(
            slots_, hole, [](const Slot &s) { return s.key != kEmptyKey; },
            [this](const Slot &s) { return home_of(s.key); });
        --used_;
        return true;
    }
    // Room for count entries without growing; throws std::bad_alloc.
    void reserve(size_t count) {
        size_t size = slots_.empty() ? kFirstSize : slots_.size();
        while (size < count * 2) {
            size *= 2;
        }
        if (size != slots_.size()) {
            rehash(size);
        }
    }
    void clear() noexcept {
        std::vector<Slot>().swap(slots_);
        used_ = 0;
    }
    void swap(FlatIntMap &other) noexcept {
        slots_.swap(other.slots_);
        std::swap(used_, other.used_);
    }

private:
    struct Slot {
        int32_t key = kEmptyKey;
        int32_t value = 0;
    };
    static constexpr size_t kNone = static_cast<size_t>(-1);
    static constexpr size_t kFirstSize = 16;

    size_t mask() const noexcept { return slots_.size() - 1; }
    // Fibonacci hashing spreads runs of neighbouring keys over the table.
    size_t home_of(int32_t key) const noexcept {
        return static_cast<size_t>((static_cast<uint32_t>(key) * 0x9E3779B9u) >> 7) & mask();
    }
    size_t slot_of(int32_t key) const noexcept {
        if (slots_.empty() || key == kEmptyKey) {
            return kNone;
        }
        for (size_t at = home_of(key);; at = (at + 1) & mask()) {
            if (slots_[at].key == key) {
                return at;
            }
            if (slots_[at].key == kEmptyKey) {
                return kNone;
            }
        }
    }
    size_t place(int32_t key, int32_t value) noexcept {
        size_t at = home_of(key);
        while (slots_[at].key != kEmptyKey) {
            at = (at + 1) & mask();
        }
        slots_[at] = Slot{key, value};
        ++used_;
        return at;
    }
    void make_room() {
        if ((used_ + 1) * 2 > slots_.size()) {
            rehash(slots_.empty() ? kFirstSize : slots_.size() * 2);
        }
    }
    void rehash(size_t size) {
        std::vector<Slot> old(size);
        old.swap(slots_);
        used_ = 0;
        for (const Slot &slot : old) {
            if (slot.key != kEmptyKey) {
                place(slot.key, slot.value);
            }
        }
    }

    std::vector<Slot> slots_;
    size_t used_ = 0;
};

}  // namespace vq::internal
