// Typed parameters of process handles: the store, the api_*_param functions
// and the thread's parameter iterator.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "general_api/api_state.h"
#include "internal/small_copy.h"
#include "vq_glob/dbg.h"

namespace vq::api {

// ---- The store -----------------------------------------------------------------

void *ParamStore::CellPool::take_from_new_block() noexcept {
    unsigned char *block = spares_;
    if (block != nullptr) {
        std::memcpy(&spares_, block, sizeof spares_);
    } else {
        block = static_cast<unsigned char *>(std::malloc(kHeader + kCellsPerBlock * cell_size_));
        if (block == nullptr) {
            return nullptr;
        }
    }
    std::memcpy(block, &blocks_, sizeof blocks_);
    blocks_ = block;
    carved_ = 1;
    return blocks_ + kHeader;
}

void ParamStore::CellPool::give(void *cell) noexcept {
    std::memcpy(cell, &free_, sizeof free_);
    free_ = static_cast<unsigned char *>(cell);
}

void ParamStore::CellPool::recycle() noexcept {
    while (blocks_ != nullptr) {
        unsigned char *next = nullptr;
        std::memcpy(&next, blocks_, sizeof next);
        std::memcpy(blocks_, &spares_, sizeof spares_);
        spares_ = blocks_;
        blocks_ = next;
    }
    carved_ = kCellsPerBlock;
    free_ = nullptr;
}

void ParamStore::CellPool::free_chain(unsigned char *block) noexcept {
    while (block != nullptr) {
        unsigned char *next = nullptr;
        std::memcpy(&next, block, sizeof next);
        std::free(block);
        block = next;
    }
}

void ParamStore::CellPool::clear() noexcept {
    free_chain(blocks_);
    free_chain(spares_);
    blocks_ = nullptr;
    spares_ = nullptr;
    carved_ = kCellsPerBlock;
    free_ = nullptr;
}

void *ParamStore::copy_value(const void *value, int32_t size, uint8_t *pool) noexcept {
    const auto bytes = static_cast<size_t>(size);
    void *copy = nullptr;
    if (bytes <= kLargestCell) {
        *pool = pool_of(bytes);
        copy = cells_[*pool].take();
    } else {
        *pool = kNoPool;
        copy = std::malloc(bytes);
    }
    if (copy != nullptr) {
        internal::small_copy(copy, value, bytes);
    }
    return copy;
}

void ParamStore::free_value(Slot &slot) noexcept {
    if (slot.pool != kNoPool) {
        cells_[slot.pool].give(slot.value);
    } else {
        std::free(slot.value);
    }
    slot = Slot{};
}

bool ParamStore::add(int32_t key, int32_t type, const void *value, int32_t size, size_t *cursor) noexcept {
    uint8_t pool = kNoPool;
    void *copy = nullptr;
    if (value != nullptr && size > 0) {
        copy = copy_value(value, size, &pool);
        if (copy == nullptr) {
            return false;
        }
    } else {
        size = 0;
    }
    if (top_ == slots_.size()) {
        if (used_ < slots_.size()) {
            compact(cursor);
        } else if (!grow()) {
            Slot unused{key, type, copy, size, 0, pool};
            free_value(unused);
            return false;
        }
    }
    size_t position = top_;
    if (indexed_) {
        index_add(key, position);
    }
    slots_[position] = Slot{key, type, copy, size, 0, pool};
    ++top_;
    ++used_;
    if (!indexed_ && !in_run_ && used_ >= kIndexFrom) {
        build_index();
    }
    return true;
}

const ParamStore::Slot *ParamStore::newest(int32_t key) const noexcept {
    long position = find(key);
    return position < 0 ? nullptr : &slots_[static_cast<size_t>(position)];
}

bool ParamStore::remove_newest(int32_t key) noexcept {
    long found = find(key);
    if (found < 0) {
        return false;
    }
    auto position = static_cast<size_t>(found);
    free_value(slots_[position]);
    --used_;
    if (indexed_) {
        if (older_[position] >= 0) {
            *newest_.find(key) = older_[position];
        } else {
            newest_.erase(key);
        }
    }
    while (top_ > 0 && slots_[top_ - 1].key == kFreeKey) {
        --top_;
    }
    return true;
}

void ParamStore::clear() noexcept {
    for (size_t i = 0; i < top_; ++i) {
        if (slots_[i].pool == kNoPool) {
            std::free(slots_[i].value);
        }
    }
    for (CellPool &pool : cells_) {
        pool.clear();
    }
    std::vector<Slot>().swap(slots_);
    top_ = 0;
    used_ = 0;
    drop_index();
}

void ParamStore::empty(size_t *cursor) noexcept {
    for (size_t i = 0; i < top_; ++i) {
        if (slots_[i].pool == kNoPool) {
            std::free(slots_[i].value);
        }
        slots_[i] = Slot{};
    }
    for (CellPool &pool : cells_) {
        pool.recycle();
    }
    top_ = 0;
    used_ = 0;
    if (cursor != nullptr) {
        *cursor = 0;
    }
    indexed_ = false;
    newest_.clear();
    older_.clear();
}

void ParamStore::begin_run() noexcept {
    in_run_ = true;
    indexed_ = false;
}

void ParamStore::end_run() noexcept {
    in_run_ = false;
    if (used_ >= kIndexFrom) {
        build_index();
    } else {
        drop_index();
    }
}

bool ParamStore::grow() noexcept {
    new_dbg_str(kTraceChannel, "api_set_param() - allocating more space for params\n");
    try {
        // At least kGrowth slots, and as many as there are once the array is
        // large: filling a store of n values then moves and clears slots
        // O(n) times in all rather than O(n * n / kGrowth).
        slots_.resize(slots_.size() + std::max(kGrowth, slots_.size()));
    } catch (...) {
        return false;
    }
    if (indexed_) {
        try {
            older_.resize(slots_.size(), -1);
        } catch (...) {
            drop_index();
        }
    }
    return true;
}

// Moves the used slots down in their order, so the top of the array is free
// again and the newest value of every key is still the highest.
void ParamStore::compact(size_t *cursor) noexcept {
    size_t to = 0;
    size_t moved_cursor = 0;
    for (size_t from = 0; from < top_; ++from) {
        if (slots_[from].key == kFreeKey) {
            continue;
        }
        if (cursor != nullptr && from < *cursor) {
            ++moved_cursor;
        }
        if (to != from) {
            slots_[to] = slots_[from];
            slots_[from] = Slot{};
        }
        ++to;
    }
    if (cursor != nullptr) {
        *cursor = moved_cursor;
    }
    top_ = to;
    if (indexed_) {
        build_index();
    }
}

void ParamStore::index_add(int32_t key, size_t position) noexcept {
    if (key == kFreeKey) {
        return;  // a slot under the free key is never found
    }
    try {
        bool inserted = false;
        int32_t &newest = newest_.try_emplace(key, static_cast<int32_t>(position), &inserted);
        older_[position] = inserted ? -1 : newest;
        newest = static_cast<int32_t>(position);
    } catch (...) {
        drop_index();
    }
}

void ParamStore::build_index() noexcept {
    try {
        NewestIndex newest;
        newest.reserve(used_);
        // The older links are rewritten in place: a store emptied and
        // filled again keeps their memory.
        older_.assign(slots_.size(), -1);
        for (size_t i = 0; i < top_; ++i) {
            if (slots_[i].key == kFreeKey) {
                continue;
            }
            bool inserted = false;
            int32_t &latest = newest.try_emplace(slots_[i].key, static_cast<int32_t>(i), &inserted);
            if (!inserted) {
                older_[i] = latest;
                latest = static_cast<int32_t>(i);
            }
        }
        newest_.swap(newest);
        indexed_ = true;
    } catch (...) {
        drop_index();
    }
}

void ParamStore::drop_index() noexcept {
    indexed_ = false;
    newest_.clear();
    std::vector<int32_t>().swap(older_);
}

long ParamStore::find(int32_t key) const noexcept {
    if (key == kFreeKey) {
        return -1;
    }
    if (indexed_) {
        const int32_t *position = newest_.find(key);
        return position == nullptr ? -1 : *position;
    }
    for (size_t i = top_; i > 0; --i) {
        if (slots_[i - 1].key == key) {
            return static_cast<long>(i - 1);
        }
    }
    return -1;
}

ParamStore *store_of_handle(int32_t handle, size_t **cursor) noexcept {
    ApiRecord *r = record();
    if (r == nullptr || !r->table.initialised || handle <= 0 ||
        static_cast<size_t>(handle) >= r->table.entries.size()) {
        return nullptr;
    }
    Entry *entry = r->table.entries[static_cast<size_t>(handle)].get();
    if (entry == nullptr) {
        return nullptr;
    }
    *cursor = r->table.iterator_handle == handle ? &r->table.iterator_position : nullptr;
    return &entry->params;
}

void raise_param_memory() noexcept {
    try {
        new_dbg_str(kTraceChannel, "api_set_param() - memory allocation error\n");
        raise_memory("api_set_param");
    } catch (...) {
        // Nothing more can be reported without memory.
    }
}

namespace {

// ---- Values --------------------------------------------------------------------

// Bytes a scalar type is stored in; 0 for the others.
int32_t scalar_width(int32_t type) {
    switch (type) {
        case API_PARAM_CHAR:
            return 1;
        case API_PARAM_SHORT:
            return 2;
        case API_PARAM_INT:
        case API_PARAM_LONG:
            return 4;
        default:
            return 0;
    }
}

bool valid_type(int32_t type) { return type >= API_PARAM_INT && type <= API_PARAM_CHAR; }

// The bytes a value of the type occupies; false for a value that cannot be stored.
bool value_size(int32_t type, const void *value, int32_t size, int32_t *bytes) {
    if (type == API_PARAM_VOID) {
        *bytes = size;
        return size >= 0;
    }
    if (type == API_PARAM_STR) {
        size_t length = value == nullptr ? 0 : std::strlen(static_cast<const char *>(value));
        *bytes = static_cast<int32_t>(length + 1);
        return length < static_cast<size_t>(INT32_MAX);
    }
    *bytes = scalar_width(type);
    return true;
}

const char *kBadValue[] = {"", "int", "short", "long", "void size", "string length", "char"};

int set_param(const char *function, int32_t h, int32_t key, int32_t type, const void *value, int32_t size) {
    Table *table = nullptr;
    Entry *entry = checked_entry(function, h, &table);
    if (entry == nullptr) {
        return 0;
    }
    new_dbg_str(kTraceChannel, "api_set_param() - handle is %d , param_id is %d , type is %d\n", h, key,
                type);
    if (key == ParamStore::kFreeKey || !valid_type(type)) {
        raise_bad_param(h, key == ParamStore::kFreeKey ? "param_id -1" : "param type");
        return 0;
    }
    int32_t bytes = 0;
    if (!value_size(type, value, size, &bytes)) {
        raise_bad_param(h, kBadValue[type]);
        return 0;
    }
    if (value == nullptr) {
        new_dbg_str(kTraceChannel, "\tparam value is NULL\n");
    } else if (bytes == 0) {
        new_dbg_str(kTraceChannel, "api_set_param() - param size 0 , not allocating any memory\n");
    }
    size_t *cursor = table->iterator_handle == h ? &table->iterator_position : nullptr;
    if (!entry->params.add(key, type, value, bytes, cursor)) {
        new_dbg_str(kTraceChannel, "api_set_param() - memory allocation error\n");
        raise_memory(function);
        return 0;
    }
    return 1;
}

int get_param(const char *function, int32_t h, int32_t key, int32_t type, void *out, int32_t *size) {
    Entry *entry = checked_entry(function, h);
    if (entry == nullptr) {
        return 0;
    }
    if (out == nullptr || !valid_type(type)) {
        raise_bad_param(h, out == nullptr ? "output address" : "param type");
        return 0;
    }
    const ParamStore::Slot *slot = entry->params.newest(key);
    if (slot == nullptr) {
        new_dbg_str(kTraceChannel, "api_get_param() - param_id %d was not found\n", key);
        return 0;
    }
    if (slot->type != type) {
        new_dbg_str(kTraceChannel,
                    "api_get_param() - found param_id %d but its type is %d instead of requested %d\n", key,
                    slot->type, type);
        return 0;
    }
    int32_t width = scalar_width(type);
    if (width == 0) {
        std::memcpy(out, &slot->value, sizeof slot->value);
    } else {
        // A scalar stored from a null value has no bytes and reads as 0.
        std::memset(out, 0, static_cast<size_t>(width));
        if (slot->value != nullptr) {
            std::memcpy(out, slot->value, static_cast<size_t>(slot->size < width ? slot->size : width));
        }
    }
    if (size != nullptr) {
        *size = slot->size;
    }
    return 1;
}

int set_scalar(const char *function, int32_t h, int32_t key, int32_t type, const void *value) {
    return guarded(function, [&] { return set_param(function, h, key, type, value, 0); });
}

int get_typed(const char *function, int32_t h, int32_t key, int32_t type, void *out) {
    return guarded(function, [&] { return get_param(function, h, key, type, out, nullptr); });
}

}  // namespace
}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_set_param(int32_t h, int32_t key, int32_t type, const void *value, int32_t size) {
    return guarded("api_set_param", [&] { return set_param("api_set_param", h, key, type, value, size); });
}

VQ_API int api_set_char_param(int32_t h, int32_t key, char v) {
    return set_scalar("api_set_char_param", h, key, API_PARAM_CHAR, &v);
}

VQ_API int api_set_short_param(int32_t h, int32_t key, int16_t v) {
    return set_scalar("api_set_short_param", h, key, API_PARAM_SHORT, &v);
}

VQ_API int api_set_int_param(int32_t h, int32_t key, int32_t v) {
    return set_scalar("api_set_int_param", h, key, API_PARAM_INT, &v);
}

VQ_API int api_set_long_param(int32_t h, int32_t key, int32_t v) {
    return set_scalar("api_set_long_param", h, key, API_PARAM_LONG, &v);
}

VQ_API int api_set_str_param(int32_t h, int32_t key, const char *s) {
    return set_scalar("api_set_str_param", h, key, API_PARAM_STR, s);
}

VQ_API int api_set_void_param(int32_t h, int32_t key, const void *data, int32_t size) {
    return guarded("api_set_void_param",
                   [&] { return set_param("api_set_void_param", h, key, API_PARAM_VOID, data, size); });
}

VQ_API int api_get_param(int32_t h, int32_t key, int32_t type, void *out, int32_t *size) {
    return guarded("api_get_param", [&] { return get_param("api_get_param", h, key, type, out, size); });
}

VQ_API int api_get_char_param(int32_t h, int32_t key, char *out) {
    return get_typed("api_get_char_param", h, key, API_PARAM_CHAR, out);
}

VQ_API int api_get_short_param(int32_t h, int32_t key, int16_t *out) {
    return get_typed("api_get_short_param", h, key, API_PARAM_SHORT, out);
}

VQ_API int api_get_int_param(int32_t h, int32_t key, int32_t *out) {
    return get_typed("api_get_int_param", h, key, API_PARAM_INT, out);
}

VQ_API int api_get_long_param(int32_t h, int32_t key, int32_t *out) {
    return get_typed("api_get_long_param", h, key, API_PARAM_LONG, out);
}

VQ_API int api_get_str_param(int32_t h, int32_t key, char **out) {
    return get_typed("api_get_str_param", h, key, API_PARAM_STR, out);
}

VQ_API int api_get_void_param(int32_t h, int32_t key, void **out) {
    return get_typed("api_get_void_param", h, key, API_PARAM_VOID, out);
}

VQ_API int api_remove_param(int32_t h, int32_t key) {
    return guarded("api_remove_param", [&] {
        Entry *entry = checked_entry("api_remove_param", h);
        if (entry == nullptr || !entry->params.remove_newest(key)) {
            return 0;
        }
        new_dbg_str(kTraceChannel, "api_remove_param() - param_id %d was removed\n", key);
        return 1;
    });
}

VQ_API int api_param_iterator_init(int32_t h) {
    return guarded("api_param_iterator_init", [&] {
        if (checked_entry("api_param_iterator_init", h) == nullptr) {
            return 0;
        }
        Table &table = record()->table;
        table.iterator_handle = h;
        table.iterator_position = 0;
        return 1;
    });
}

VQ_API int api_param_iterator_next(api_param *entry) {
    return guarded("api_param_iterator_next", [&] {
        ApiRecord *r = record();
        if (entry == nullptr || r == nullptr || r->table.iterator_handle == kNoHandle) {
            raise_bad_param(kNoHandle, entry == nullptr ? "entry" : "no iterator was started");
            return 0;
        }
        Table &table = r->table;
        Entry *owner = checked_entry("api_param_iterator_next", table.iterator_handle);
        if (owner == nullptr) {
            return 0;
        }
        const ParamStore &params = owner->params;
        while (table.iterator_position < params.slot_count()) {
            const ParamStore::Slot &slot = params.slot(table.iterator_position++);
            if (slot.key != ParamStore::kFreeKey) {
                *entry = api_param{slot.key, slot.type, slot.value, slot.size, slot.flag};
                return 1;
            }
        }
        return 0;
    });
}

}  // extern "C"
