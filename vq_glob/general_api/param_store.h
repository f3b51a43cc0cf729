// The typed parameters of one process handle.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "internal/flat_int_map.h"

namespace vq::api {

// Slots live in one array that grows by kGrowth slots, or by as many as it
// has once it holds more; a free slot has key -1.
// A value is only ever placed above the highest used slot, so the newest
// value of a key is always the highest slot holding that key: a lookup scans
// from the top down, and removing a value uncovers the next older one of its
// key. When the top of the array is reached while lower slots are free, the
// used slots are first moved down in order instead of growing.
//
// Values of up to 64 bytes (every scalar, most texts and data) live in cells
// of pools owned by the store, one pool per cell size (8, 16, 32, 64), rather
// than in a malloc block of their own; a message taken apart thus costs a few
// blocks instead of an allocation per text. A freed cell is reused by the
// next value of its size, so the pools hold no more than the most values
// ever held at once. The pools' blocks never move, so a value's address is
// as stable either way.
//
// From kIndexFrom used slots on, a hash index from each key to its newest
// slot (and from each slot to the next older one of its key) replaces the
// scan. It only ever speeds lookups up: when it cannot be allocated the store
// drops it and scans. A run of adds with no lookup between them (a message
// taken apart) leaves the index alone and builds it once at the run's end.
//
// Emptying a store keeps its memory (slot array and pool blocks) for the
// next values: a handle that takes apart one message after another allocates
// only while its messages grow.
class ParamStore {
public:
    static constexpr size_t kGrowth = 10;
    static constexpr size_t kIndexFrom = 32;
    static constexpr int32_t kFreeKey = -1;
    static constexpr uint8_t kNoPool = 0xFF;

    struct Slot {
        int32_t key = kFreeKey;
        int32_t type = 0;
        void *value = nullptr;  // the store's copy, or null
        int32_t size = 0;
        uint8_t flag = 0;
        uint8_t pool = kNoPool;  // the pool whose cell value is, or kNoPool: a malloc block
    };

    ParamStore() = default;
    ~ParamStore() { clear(); }
    ParamStore(const ParamStore &) = delete;
    ParamStore &operator=(const ParamStore &) = delete;

    // Stores a copy of size bytes at value (null: no data, size 0) as the
    // newest value of key. When a slot position is given in cursor (an
    // iterator's next slot), moving the slots down keeps it at the same next
    // value. False when there is no memory for the copy or the slots.
    bool add(int32_t key, int32_t type, const void *value, int32_t size, size_t *cursor) noexcept;

    // The newest value of key, or null.
    const Slot *newest(int32_t key) const noexcept;

    // Frees the newest value of key; false when there is none.
    bool remove_newest(int32_t key) noexcept;

    // Frees every value but keeps the slots and pool blocks for the next
    // ones; a cursor given is put back to the first slot.
    void empty(size_t *cursor) noexcept;

    // Starts and ends a run of adds: during the run no lookup is expected,
    // so the index is not kept up to date (a lookup still finds the right
    // value, by scanning); the run's end builds it once.
    void begin_run() noexcept;
    void end_run() noexcept;

    // Slots allocated (used or free), and one of them by position.
    size_t slot_count() const noexcept { return slots_.size(); }
    const Slot &slot(size_t position) const noexcept { return slots_[position]; }
    size_t used() const noexcept { return used_; }

    void clear() noexcept;

private:
    // Cells of one size carved from blocks that are only freed with the store.
    class CellPool {
    public:
        CellPool(size_t cell_size) : cell_size_(cell_size) {}
        ~CellPool() { clear(); }
        CellPool(const CellPool &) = delete;
        CellPool &operator=(const CellPool &) = delete;
        void *take() noexcept {
            if (free_ != nullptr) {
                unsigned char *cell = free_;
                std::memcpy(&free_, cell, sizeof free_);
                return cell;
            }
            if (carved_ < kCellsPerBlock) {
                return blocks_ + kHeader + cell_size_ * carved_++;
            }
            return take_from_new_block();
        }
        void give(void *cell) noexcept;
        // Every cell free again; the blocks are kept as spares.
        void recycle() noexcept;
        void clear() noexcept;

    private:
        static constexpr size_t kCellsPerBlock = 64;
        // A block is this header (the next block) followed by its cells; a
        // free cell holds the next free one.
        static constexpr size_t kHeader = 16;
        // The first cell of a block that is a spare, else of a new one.
        void *take_from_new_block() noexcept;
        static void free_chain(unsigned char *block) noexcept;
        size_t cell_size_;
        unsigned char *blocks_ = nullptr;
        size_t carved_ = kCellsPerBlock;  // cells handed out of the newest block
        unsigned char *free_ = nullptr;
        unsigned char *spares_ = nullptr;  // blocks of a recycled pool not carved again yet
    };

    static constexpr size_t kPools = 4;
    static constexpr size_t kSmallestCell = 8;
    static constexpr size_t kLargestCell = kSmallestCell << (kPools - 1);

    // The pool whose cells hold bytes (bytes <= kLargestCell).
    static uint8_t pool_of(size_t bytes) noexcept {
        constexpr int kSmallestWidth = std::bit_width(kSmallestCell - 1);
        return bytes <= kSmallestCell ? 0 : static_cast<uint8_t>(std::bit_width(bytes - 1) - kSmallestWidth);
    }
    void *copy_value(const void *value, int32_t size, uint8_t *pool) noexcept;
    void free_value(Slot &slot) noexcept;
    bool grow() noexcept;
    void compact(size_t *cursor) noexcept;
    void index_add(int32_t key, size_t position) noexcept;
    void build_index() noexcept;
    void drop_index() noexcept;
    long find(int32_t key) const noexcept;

    CellPool cells_[kPools] = {kSmallestCell, kSmallestCell * 2, kSmallestCell * 4, kLargestCell};
    std::vector<Slot> slots_;
    size_t top_ = 0;  // one past the highest used slot
    size_t used_ = 0;
    bool indexed_ = false;
    bool in_run_ = false;
    using NewestIndex = internal::FlatIntMap<kFreeKey>;
    NewestIndex newest_;  // per key: the slot of its newest value
    std::vector<int32_t> older_;  // per slot: the next older slot of its key, -1 none
};

// For the library's own readers that file many values into one handle: the
// parameter store of a handle of the calling thread, found with one check
// instead of one per value, and in *cursor the thread's iterator position
// when the iterator is on that handle (else null). Null, with nothing
// raised, when the handle names no entry. The store lives until the handle
// is freed.
ParamStore *store_of_handle(int32_t handle, size_t **cursor) noexcept;

// Raises the error of an api_set_param call that ran out of memory.
void raise_param_memory() noexcept;

}  // namespace vq::api
