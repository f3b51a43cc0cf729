// The configuration module's data model and the helpers its sources share:
// handles, sections and fields, the critical-section guard, error raising and
// the per-thread records of the reader and the writer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "internal/ascii.h"
#include "internal/checked_handle.h"
#include "internal/frame.h"
#include "internal/handle_tag.h"
#include "internal/open_addressing.h"
#include "internal/raise.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "vq_glob/conf.h"
#include "vq_glob/err.h"
#include "vq_glob/slbn.h"

namespace vq::conf {

inline constexpr int kTraceBit = debug::kChannelConfig;

// Table row flags: the value is stored enciphered; reading / writing is
// denied while access checking is on.
inline constexpr int32_t kFlagEncrypted = 0x2;
inline constexpr int32_t kFlagDenyRead = 0x4;
inline constexpr int32_t kFlagDenyWrite = 0x8;

inline constexpr const char *kHeaderSection = CONF_HEADER_SECTION;
inline constexpr const char *kVersionField = "version";
inline constexpr const char *kMarkerText = "_ml_text_";
inline constexpr const char *kMarkerInt = "_ml_int_";
inline constexpr const char *kMarkerBool = "_ml_bool_";

// The marker that introduces a multi-line value of the given field type.
inline const char *marker_of(int32_t type) {
    switch (type) {
        case CONF_TYPE_ML_INT: return kMarkerInt;
        case CONF_TYPE_ML_BOOL: return kMarkerBool;
        default: return kMarkerText;
    }
}

inline bool is_multi_line(int32_t type) {
    return type == CONF_TYPE_ML_TEXT || type == CONF_TYPE_ML_INT || type == CONF_TYPE_ML_BOOL;
}

// How long a read or a write waits for another holder of the lock file.
inline constexpr int32_t kLockTimeoutMs = 60000;

// Owns a big number. Null stands for zero, so that a field that never held
// a big number allocates nothing.
class BigNumber {
public:
    BigNumber() = default;
    explicit BigNumber(slbn *number) : p_(number) {}
    ~BigNumber() { slbn_free(p_); }
    BigNumber(BigNumber &&other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    BigNumber &operator=(BigNumber &&other) noexcept {
        if (this != &other) {
            slbn_free(p_);
            p_ = std::exchange(other.p_, nullptr);
        }
        return *this;
    }
    BigNumber(const BigNumber &) = delete;
    BigNumber &operator=(const BigNumber &) = delete;

    const slbn *get() const { return p_; }
    // A new number equal to this one (zero for null); throws bad_alloc.
    slbn *copy_out() const {
        slbn *copy = p_ != nullptr ? slbn_copy(p_) : slbn_new();
        if (copy == nullptr) {
            throw std::bad_alloc();
        }
        return copy;
    }
    BigNumber clone() const { return BigNumber(p_ != nullptr ? copy_out() : nullptr); }
    // The decimal text, "0" for null; throws bad_alloc.
    std::string text() const {
        if (p_ == nullptr) {
            return "0";
        }
        char *raw = slbn_to_string(p_);
        if (raw == nullptr) {
            throw std::bad_alloc();
        }
        std::string out(raw);
        std::free(raw);
        return out;
    }

private:
    slbn *p_ = nullptr;
};

// Whether text is a decimal number as the big numbers read it: an optional
// sign and one or more digits, nothing else.
inline bool is_decimal(std::string_view text) {
    size_t i = !text.empty() && (text[0] == '+' || text[0] == '-') ? 1 : 0;
    if (i == text.size()) {
        return false;
    }
    for (; i < text.size(); ++i) {
        if (!ascii::is_digit(text[i])) {
            return false;
        }
    }
    return true;
}

// out = the number text holds; false (out unchanged) when it is no decimal
// number. An empty text is zero. Throws bad_alloc.
inline bool parse_big(std::string_view text, BigNumber &out) {
    if (text.empty()) {
        out = BigNumber();
        return true;
    }
    if (!is_decimal(text)) {
        return false;
    }
    std::string copy(text);
    slbn *number = slbn_from_string(copy.c_str());
    if (number == nullptr) {
        throw std::bad_alloc();
    }
    out = BigNumber(number);
    return true;
}

// What only typed, multi-line or table-bound fields need. Plain
// "name=value" fields, the bulk of a large file, never allocate one.
struct FieldExtra {
    std::string default_text;
    std::string tag;                 // the multi-line end tag last read
    std::string key;
    std::vector<std::string> lines;  // multi-line text
    std::vector<int32_t> numbers;    // multi-line integer and boolean
    // The NULL-terminated list of multi-line text handed to callers, pointing
    // into lines; rebuilt by every getter.
    std::vector<char *> view;
    BigNumber big;                   // big integer values
    int32_t default_int = 0;
};

// A view of text followed by a NUL, so that data() is also a C string.
class CText : public std::string_view {
public:
    CText(const char *text, size_t size) : std::string_view(text, size) {}
    const char *c_str() const { return data(); }
};

// The text of every empty name and value that owns nothing. Writable,
// since getters hand it out as char *, like any other value.
inline char kNoText[1] = "";

// A NUL-terminated copy of text in a block of its own (delete[] frees it);
// throws bad_alloc.
inline char *copy_text(std::string_view text) {
    char *copy = new char[text.size() + 1];
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

struct Field {
    // A section of 100,000 fields holds 100,000 of these, so a field is
    // 40 bytes: its name and plain text are pointers to NUL-terminated
    // text, which a read leaves in the text it kept (see SectionList::kept) and
    // a setter puts in a block of the field's own; the small members sit
    // together, and the rest is behind a pointer that stays null until a
    // member of it is set.
    Field() : in_table(false), met(false), has_value(false), changed(false), name_owned_(false), text_owned_(false) {}
    ~Field() {
        drop_name();
        drop_text();
    }
    Field(const Field &) = delete;
    Field &operator=(const Field &) = delete;

    CText name() const { return CText(name_, std::strlen(name_)); }
    CText text() const { return CText(text_, text_size_); }
    // Copies name / text into blocks of the field's own; throws bad_alloc
    // (the field keeps its old text).
    void set_name(std::string_view name) {
        char *copy = copy_text(name);
        drop_name();
        name_ = copy;
        name_owned_ = true;
    }
    void set_text(std::string_view text) {
        if (text.empty()) {
            clear_text();
            return;
        }
        if (text.size() > UINT32_MAX) {
            throw std::bad_alloc();
        }
        char *copy = copy_text(text);
        drop_text();
        text_ = copy;
        text_size_ = static_cast<uint32_t>(text.size());
        text_owned_ = true;
    }
    void clear_text() {
        drop_text();
        text_ = kNoText;
        text_size_ = 0;
    }
    // Points the name / the text at text a NUL follows, which lives as long
    // as the field (text the handle keeps); nothing is copied.
    void refer_name(std::string_view name) {
        drop_name();
        name_ = name.data();
    }
    void refer_text(std::string_view text) {
        drop_text();
        text_ = text.empty() ? kNoText : text.data();
        text_size_ = static_cast<uint32_t>(text.size());
    }
    // The bytes (NULs included) that move_views needs for the name and the
    // text this field refers to without owning them.
    size_t viewed_bytes() const {
        return (name_owned_ ? 0 : std::strlen(name_) + 1) + (text_owned_ || text_size_ == 0 ? 0 : text_size_ + 1);
    }
    // Copies the referred name and text to `to' (viewed_bytes() of room,
    // itself text that lives as long as the field) and refers to them
    // there; the position after the copies.
    char *move_views(char *to) {
        if (!name_owned_) {
            size_t size = std::strlen(name_) + 1;
            name_ = static_cast<char *>(std::memcpy(to, name_, size));
            to += size;
        }
        if (!text_owned_ && text_size_ != 0) {
            text_ = static_cast<char *>(std::memcpy(to, text_, text_size_ + 1));
            to += text_size_ + 1;
        }
        return to;
    }

    // The rest, made on first use; throws bad_alloc.
    FieldExtra &more() {
        if (extra_ == nullptr) {
            extra_ = std::make_unique<FieldExtra>();
        }
        return *extra_;
    }
    // The rest for reading: empty members when none was made.
    const FieldExtra &peek() const {
        static const FieldExtra empty;
        return extra_ != nullptr ? *extra_ : empty;
    }
    void clear_view() {
        if (extra_ != nullptr) {
            extra_->view.clear();
        }
    }
    // Empties the multi-line value (lines, numbers and their view).
    void clear_lists() {
        if (extra_ != nullptr) {
            extra_->lines.clear();
            extra_->numbers.clear();
            extra_->view.clear();
        }
    }

private:
    void drop_name() {
        if (name_owned_) {
            delete[] name_;
            name_owned_ = false;
        }
    }
    void drop_text() {
        if (text_owned_) {
            delete[] text_;
            text_owned_ = false;
        }
    }

    const char *name_ = kNoText;
    const char *text_ = kNoText;  // string and untyped values
    uint32_t text_size_ = 0;

public:
    int32_t number = 0;    // integer and boolean values
    int32_t constant = 0;  // meaningful while in_table
    int8_t type = CONF_TYPE_UNKNOWN;
    uint8_t flags = 0;  // the table row's flags (kFlagEncrypted, ...)
    bool in_table : 1;  // named by the bound table
    bool met : 1;
    bool has_value : 1;
    bool changed : 1;  // set by a setter

private:
    bool name_owned_ : 1;
    bool text_owned_ : 1;
    std::unique_ptr<FieldExtra> extra_;
};
static_assert(sizeof(void *) != 8 || sizeof(Field) == 40, "a field stays small");

// Hands out blocks of one size (a list node's) from slabs that grow as the
// list does, and keeps freed blocks for the next node: a section of 100,000
// fields costs a few dozen allocations instead of one per field, and no
// allocator header per node. Blocks of any other size go to operator new.
class NodePool {
public:
    NodePool() = default;
    NodePool(const NodePool &) = delete;
    NodePool &operator=(const NodePool &) = delete;
    ~NodePool() { release(); }

    // The next slab holds at least count blocks, so that a list told how
    // many nodes are coming takes them in one slab.
    void expect(size_t count) { expected_ = count; }

    void *take(size_t size) {
        if (size_ == 0 && size >= sizeof(FreeBlock)) {
            size_ = size;
        }
        if (size != size_) {
            return ::operator new(size);
        }
        if (free_ == nullptr && left_ == 0) {
            add_slab();  // may throw, before anything is counted
        }
        ++live_;
        if (free_ != nullptr) {
            return std::exchange(free_, free_->next);
        }
        --left_;
        void *block = next_;
        next_ += size_;
        return block;
    }
    void give(void *block, size_t size) noexcept {
        if (size != size_) {
            ::operator delete(block);
            return;
        }
        free_ = new (block) FreeBlock{free_};
        // The last node gone (a list cleared): the memory goes back at once.
        if (--live_ == 0) {
            release();
        }
    }

private:
    struct FreeBlock {
        FreeBlock *next;
    };
    struct Slab {
        Slab *next;
        // Slab headers take 16 bytes, so that the blocks behind them keep
        // the alignment operator new gave the slab.
        alignas(16) unsigned char blocks[1];
    };
    static constexpr size_t kFirstBlocks = 8;
    static constexpr size_t kMostBlocks = 4096;

    void add_slab() {
        size_t count = slab_blocks_ < kFirstBlocks ? kFirstBlocks : std::min(slab_blocks_ * 2, kMostBlocks);
        // No larger than the most of any slab: a slab past the allocator's
        // threshold for mapping memory of its own would have its pages faulted
        // in again by every list built after one freed.
        count = std::max(count, std::min(std::exchange(expected_, 0), kMostBlocks));
        auto *slab = static_cast<Slab *>(::operator new(offsetof(Slab, blocks) + count * size_));
        slab->next = slabs_;
        slabs_ = slab;
        slab_blocks_ = count;
        next_ = slab->blocks;
        left_ = count;
    }
    void release() noexcept {
        while (slabs_ != nullptr) {
            ::operator delete(std::exchange(slabs_, slabs_->next));
        }
        free_ = nullptr;
        next_ = nullptr;
        left_ = 0;
        slab_blocks_ = 0;
    }

    size_t size_ = 0;
    size_t live_ = 0;
    FreeBlock *free_ = nullptr;
    Slab *slabs_ = nullptr;
    unsigned char *next_ = nullptr;
    size_t left_ = 0;
    size_t slab_blocks_ = 0;
    size_t expected_ = 0;
};

// The allocator of a NamedList's nodes: its pool travels with the nodes when
// lists are moved or swapped.
template <typename U>
struct PoolAllocator {
    using value_type = U;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;
    using is_always_equal = std::false_type;

    explicit PoolAllocator(NodePool *pool) : pool(pool) {}
    template <typename V>
    PoolAllocator(const PoolAllocator<V> &other) : pool(other.pool) {}  // NOLINT: rebinding converts implicitly

    U *allocate(size_t n) { return static_cast<U *>(pool->take(n * sizeof(U))); }
    void deallocate(U *block, size_t n) noexcept { pool->give(block, n * sizeof(U)); }
    template <typename V>
    bool operator==(const PoolAllocator<V> &other) const {
        return pool == other.pool;
    }

    NodePool *pool;
};

// A list in order with an index by name beside it, so that lookups cost the
// same for the first element and the hundred-thousandth. Elements have
// name() and set_name(). The index is an open-addressing table of (hash,
// list position) kept at most seven eighths full:
// one flat array instead of a node per name, so that building and freeing a
// large section allocates nothing per name. Elements live in list nodes,
// which never move, so positions stay valid while the elements live.
template <typename T>
class NamedList {
public:
    using iterator = typename std::list<T, PoolAllocator<T>>::iterator;

    NamedList() = default;
    NamedList(const NamedList &) = delete;
    NamedList &operator=(const NamedList &) = delete;
    // A list moved from is left empty, with a pool of its own.
    NamedList(NamedList &&other) : NamedList() { swap(other); }
    NamedList &operator=(NamedList &&other) noexcept {
        swap(other);
        return *this;
    }
    // Exchanges the elements, their nodes' pools and the indexes; positions
    // stay valid and follow their elements.
    void swap(NamedList &other) noexcept {
        items_.swap(other.items_);
        pool_.swap(other.pool_);
        slots_.swap(other.slots_);
        std::swap(used_, other.used_);
    }

    // The hash that find and append_named take, so that a name looked up
    // and then appended is hashed once.
    static size_t hash_of(std::string_view name) {
        size_t hash = std::hash<std::string_view>{}(name);
        return hash != 0 ? hash : 1;
    }
    T *find(std::string_view name) { return find(name, hash_of(name)); }
    T *find(std::string_view name, size_t hash) {
        size_t at = slot_of(name, hash);
        return at == kNone ? nullptr : &*slots_[at].item;
    }
    // Appends a new element, which name_it(element) names; the name, whose
    // hash is hash, must not be present. Nothing changes when name_it throws.
    template <typename Namer>
    T &append_named(size_t hash, Namer name_it) {
        make_room();  // may fail, before anything changes
        items_.emplace_back();
        T &item = items_.back();
        try {
            name_it(item);
        } catch (...) {
            items_.pop_back();
            throw;
        }
        place(hash, std::prev(items_.end()));
        return item;
    }
    // Appends a new element named by a copy of name; the name must not be
    // present.
    T &append(std::string_view name) {
        return append_named(hash_of(name), [name](T &item) { item.set_name(name); });
    }
    T &find_or_append(std::string_view name) {
        size_t hash = hash_of(name);
        T *found = find(name, hash);
        return found != nullptr ? *found : append_named(hash, [name](T &item) { item.set_name(name); });
    }
    // Names the element anew, then takes it out of the index and puts it
    // back under its new name: one slot freed, one used, so the table never
    // grows here, and a failure to copy the name changes nothing.
    bool rename(std::string_view old_name, std::string_view new_name) {
        size_t at = slot_of(old_name, hash_of(old_name));
        if (at == kNone) {
            return false;
        }
        iterator item = slots_[at].item;
        item->set_name(new_name);
        unplace(at);
        place(hash_of(new_name), item);
        return true;
    }
    bool remove(std::string_view name) {
        size_t at = slot_of(name, hash_of(name));
        if (at == kNone) {
            return false;
        }
        iterator item = slots_[at].item;
        unplace(at);
        items_.erase(item);
        return true;
    }
    // Makes room for more elements at once: a large section's index is then
    // sized once instead of doubling through every size on the way.
    // Their nodes come in one slab too.
    void reserve(size_t more) {
        size_t want = slots_.empty() ? kFirstSize : slots_.size();
        while (!fits(used_ + more, want)) {
            want *= 2;
        }
        if (want > slots_.size()) {
            resize(want);
        }
        pool_->expect(more);
    }
    void clear() {
        slots_.clear();
        used_ = 0;
        items_.clear();
    }
    iterator begin() { return items_.begin(); }
    iterator end() { return items_.end(); }

private:
    // A slot with hash 0 is free; hash_of never gives 0.
    struct Slot {
        size_t hash = 0;
        iterator item{};
    };
    static constexpr size_t kNone = static_cast<size_t>(-1);
    static constexpr size_t kFirstSize = 16;

    // Whether count names fit a table of size slots: seven eighths full at
    // most. A few more probes per lookup than at half full, but the index of
    // 100,000 names takes 2 MB instead of 4.
    static bool fits(size_t count, size_t size) { return count * 8 <= size * 7; }
    size_t mask() const { return slots_.size() - 1; }

    size_t slot_of(std::string_view name, size_t hash) const {
        if (slots_.empty()) {
            return kNone;
        }
        for (size_t at = hash & mask();; at = (at + 1) & mask()) {
            const Slot &slot = slots_[at];
            if (slot.hash == 0) {
                return kNone;
            }
            if (slot.hash == hash && slot.item->name() == name) {
                return at;
            }
        }
    }
    // Puts a position into the first free slot of its probe sequence; the
    // table has room (make_room ran, or a slot was just freed).
    void place(size_t hash, iterator item) {
        size_t at = hash & mask();
        while (slots_[at].hash != 0) {
            at = (at + 1) & mask();
        }
        slots_[at] = Slot{hash, item};
        ++used_;
    }
    void unplace(size_t hole) {
        internal::remove_by_shifting_back(
            slots_, hole, [](const Slot &s) { return s.hash != 0; },
            [this](const Slot &s) { return s.hash & mask(); });
        --used_;
    }
    // Doubles the table before it would become more than seven eighths full.
    void make_room() {
        if (fits(used_ + 1, slots_.size())) {
            return;
        }
        resize(slots_.empty() ? kFirstSize : slots_.size() * 2);
    }
    // Moves the index into a table of size slots (a power of two).
    void resize(size_t size) {
        std::vector<Slot> old(size);
        old.swap(slots_);
        used_ = 0;
        for (const Slot &slot : old) {
            if (slot.hash != 0) {
                place(slot.hash, slot.item);
            }
        }
    }

    // The pool before the list, so that the list gives its nodes back first.
    std::unique_ptr<NodePool> pool_ = std::make_unique<NodePool>();
    std::list<T, PoolAllocator<T>> items_{PoolAllocator<T>(pool_.get())};
    std::vector<Slot> slots_;
    size_t used_ = 0;
};

struct Section {
    CText name() const { return CText(name_.c_str(), name_.size()); }
    void set_name(std::string_view name) { name_.assign(name); }

    NamedList<Field> fields;
    std::string key;
    bool met = false;
    int32_t constant = 0;  // meaningful while in_table
    bool in_table = false;
    // The range of the constants of the section's bound fields, searched
    // first by a lookup by constant (empty while low > high).
    int32_t low = 1;
    int32_t high = 0;

private:
    std::string name_;
};

// The texts read into a handle, in which fields find their names and values
// until a setter gives them copies of their own. A list, so that a text
// never moves.
struct KeptTexts {
    std::list<std::string> kept;
};

// A handle's sections with the texts read into the handle: the two move
// together when sections go from one handle to another. The texts go after
// the sections, which they were read before, so that memory is given back
// in the order it was taken.
struct SectionList : KeptTexts, NamedList<Section> {
    void clear() {
        NamedList<Section>::clear();
        kept.clear();
    }
};

// A bound field as the hash index finds it.
struct FieldRef {
    Section *section;
    Field *field;
};

// The optional hash index over the bound fields' constants (keys are the
// constants in decimal). It is rebuilt on the first lookup after the
// handle's shape changed (a binding or a removal), since its entries point
// at fields.
struct HashIndex {
    void *table = nullptr;
    int32_t size = 0;
    uint64_t shape = 0;  // the handle's shape when built
    bool built = false;
    std::vector<FieldRef> refs;

    HashIndex() = default;
    HashIndex(const HashIndex &) = delete;
    HashIndex &operator=(const HashIndex &) = delete;
    ~HashIndex() { drop(); }
    void drop();
};

// A configuration handle; its address is the handle the callers hold, so the
// tag comes first.
struct Handle {
    tag::HandleTag tag{tag::Kind::config};
    SectionList sections;
    std::string file_name;
    std::string key;
    bool key_set = false;
    bool lock_use = false;
    bool write_with_temp = false;
    bool write_xml = false;
    bool xml_header = true;
    std::string xml_root = "Configuration_XML_Root";
    bool version_taken = false;
    int32_t version = 0;
    // Counts removals of sections and fields, so that a search context can
    // tell that the element it stood on may be gone and end its walk.
    uint64_t removals = 0;
    // Counts bindings; with removals it tells the hash index to rebuild.
    uint64_t bindings = 0;
    const conf_table_row *table = nullptr;
    int32_t table_rows = 0;
    bool bound = false;
    bool only_table_on_read = false;
    bool only_table_on_write = false;
    bool check_access = false;
    bool changed = false;  // set by a setter, cleared by a complete write
    HashIndex index;
    bool use_cs = false;
    PlatLock cs{};
};

// The std::list inside makes Handle no standard-layout class, for which
// offsetof is only conditionally supported; the compilers the library is
// built with support it, and place a first member at the object's address.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(Handle, tag) == 0, "the tag must sit at the handle's address");
#pragma GCC diagnostic pop

// Holds a handle's critical section (when it has one) for a scope.
class Guard {
public:
    Guard(Handle *h, int line) : h_(h), line_(line) {
        if (h_ != nullptr && h_->use_cs) {
            debug::trace_bit(kTraceBit, "conf: entering critical section on handle <%X> (line %d)\n",
                             static_cast<unsigned>(reinterpret_cast<uintptr_t>(h_)), line_);
            plat_lock_enter(&h_->cs);
        }
    }
    ~Guard() {
        if (h_ != nullptr && h_->use_cs) {
            plat_lock_leave(&h_->cs);
            debug::trace_bit(kTraceBit, "conf: left critical section on handle <%X> (line %d)\n",
                             static_cast<unsigned>(reinterpret_cast<uintptr_t>(h_)), line_);
        }
    }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

private:
    Handle *h_;
    int line_;
};

// Every entry point reports a bad argument, a handle of another kind and a
// lack of memory alone, on a fresh error stack.
using raise::Report;

// The module named in out-of-memory messages.
inline constexpr const char *kModule = "vq_config";

// The handle behind vh, or null with PARAMS naming the function and the
// argument when vh is null, a handle of another kind or one already freed.
inline Handle *handle_of(void *vh, const char *function, const char *argument = "handle") {
    return tag::checked<Handle>(vh, tag::Kind::config, Report::fresh, function, argument);
}

// handle_of(vh), then null with PARAMS naming argument when value is null:
// the handle is named first when both are wrong.
inline Handle *handle_and_argument(void *vh, const void *value, const char *function, const char *argument) {
    Handle *h = handle_of(vh, function);
    if (h != nullptr && value == nullptr) {
        raise::params(Report::fresh, function, argument);
        return nullptr;
    }
    return h;
}

// Runs body(handle) under the handle's critical section, turning an escaping
// allocation failure into ERR_GEN_MEMORY; ERR_GEN_PARAMS for a handle that
// handle_of refuses.
template <typename Body>
int with_handle(void *vh, const char *function, int line, Body body) {
    Handle *h = handle_of(vh, function);
    if (h == nullptr) {
        return 0;
    }
    Guard guard(h, line);
    try {
        return body(*h);
    } catch (const std::bad_alloc &) {
        return raise::memory(Report::fresh, function, kModule, line);
    }
}

// 0 with ERR_CNF_SECTION for the section name.
inline int missing_section(const char *name) {
    err_set_error(ERR_CNF_SECTION, name);
    return 0;
}

// ---- Typed access shared by the sources ----

// atoi over a view that need not be NUL-terminated: optional white space
// and sign, then digits; anything else ends the number; 0 for no digits.
// Wraps as a 32-bit integer instead of overflowing.
inline int32_t text_to_int(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r' ||
                               text[i] == '\v' || text[i] == '\f')) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    uint32_t value = 0;
    while (i < text.size() && ascii::is_digit(text[i])) {
        value = value * 10u + static_cast<uint32_t>(text[i] - '0');
        ++i;
    }
    return static_cast<int32_t>(negative ? 0u - value : value);
}

// The name of a field type in messages ("integer", ...).
const char *type_name(int32_t type);
// The bound field with the constant, searching first the sections whose
// range holds it (or through the hash index); null when none. *section
// receives its section.
Field *find_by_const(Handle &h, int32_t constant, Section **section);
// Gives f the type, converting its value as a binding does: integers by
// atoi, booleans "TRUE" in any case = 1 else 0, an empty text the default.
void retype(Field &f, int32_t type);
// The NULL-terminated list of a multi-line text field's elements, pointing
// into the field (rebuilt on every call).
char **list_view(Field &f);
// The value to put in the messages about a field: its name, or the
// constant in decimal when the name is empty.
std::string field_label(const Field &f);

// Writes into out_table the rows of table whose constants are wanted, each
// preceded once by its section row; written = their number. 0 with
// ERR_GEN_MEMORY.
int build_dynamic_table(const conf_table_row *table, int32_t rows, conf_table_row *out_table,
                        const int32_t *wanted_constants, int32_t wanted_count, int32_t &written);

// A field's value taken out of a handle, for copies and comparisons.
struct Value {
    int32_t type = CONF_TYPE_UNKNOWN;
    int32_t number = 0;
    std::string text;
    std::vector<std::string> lines;
    std::vector<int32_t> numbers;
    BigNumber big;
};
// A typed get of the field bound to constant into out (typed.cpp), with the
// checks of every typed get.
int get_value_by_const(void *h, const char *function, int32_t constant, int32_t type, Value &out);
// A typed set of the field bound to constant from in (of in.type).
int set_value_by_const(void *h, const char *function, int32_t constant, const Value &in);

// The per-thread records: the module's own slot (a file is read into a
// string of its own size, so the reader keeps nothing there), and the writer's
// text, so that a thread writing again reuses the memory.
struct ConfigRecord {};
struct WriterRecord {
    std::string text;
};
using ConfigFrame = frame::ModuleFrame<ConfigRecord, frame::kSlotConfig, frame::OnDemand::yes>;
using WriterFrame = frame::ModuleFrame<WriterRecord, frame::kSlotConfWriter, frame::OnDemand::yes>;

// Appends the handle's text to out (text mode line ends: "\r\n" when
// crlf). False, with the error on the stack, when a field cannot be written.
bool format_handle(Handle &h, std::string &out, bool crlf);
// The same as XML (xml.cpp).
bool format_handle_xml(Handle &h, std::string &out, bool crlf);

// The value in its text form: one text for a scalar, one per element of a
// multi-line value, none for an untyped field that never had a value.
std::vector<std::string> value_texts(const Field &f);
// Whether the writers leave the section (f == nullptr) or the field out;
// a field left out is traced.
bool skipped_on_write(const Handle &h, const Section &s, const Field *f);
// The output texts of a field's value: one for a scalar, one per element of
// a multi-line value, enciphered when the field is stored encrypted. False
// with the error on the stack when a value cannot be written.
bool field_output_texts(Handle &h, const Section &s, const Field &f, std::vector<std::string> &texts);

}  // namespace vq::conf
