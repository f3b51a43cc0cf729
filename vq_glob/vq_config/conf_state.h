// The configuration module's data model and the helpers its sources share:
// handles, sections and fields, the critical-section guard, error raising and
// the per-thread records of the reader and the writer.
#pragma once

#include <cstdint>
#include <list>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "internal/frame.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "vq_glob/conf.h"
#include "vq_glob/err.h"

namespace vq::conf {

inline constexpr int kTraceBit = debug::kChannelConfig;

// Codes of the CNF facility.
inline constexpr uint32_t kErrOpen = 0x8202;
inline constexpr uint32_t kErrRead = 0x8203;
inline constexpr uint32_t kErrWrite = 0x8204;
inline constexpr uint32_t kErrValue = 0x8207;
inline constexpr uint32_t kErrGeneral = 0x8209;
inline constexpr uint32_t kErrSection = 0x820a;
inline constexpr uint32_t kErrReadField = 0x820b;
inline constexpr uint32_t kErrWriteField = 0x820c;
inline constexpr uint32_t kErrFieldByName = 0x820f;
inline constexpr uint32_t kErrEmpty = 0x8211;

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

// How long a read or a write waits for another holder of the lock file.
inline constexpr int32_t kLockTimeoutMs = 60000;

// The line buffer starts at this size and grows by kLineStep at a time.
inline constexpr size_t kLineFirst = 8804;
inline constexpr size_t kLineStep = 8800;

struct Field {
    std::string name;
    int32_t type = CONF_TYPE_UNKNOWN;
    std::string default_text;
    int32_t default_int = 0;
    std::string text;                // string, big integer and untyped values
    int32_t number = 0;              // integer and boolean values
    std::vector<std::string> lines;  // multi-line text
    std::vector<int32_t> numbers;    // multi-line integer and boolean
    std::string tag;                 // the multi-line end tag last read
    int32_t constant = 0;
    std::string key;
    bool met = false;
    bool has_value = false;
};

// A list in order with an index by name beside it, so that lookups cost the
// same for the first element and the hundred-thousandth. Elements live in
// list nodes, so the index's views of their names stay valid while the
// elements live; a rename re-indexes.
template <typename T>
class NamedList {
public:
    using iterator = typename std::list<T>::iterator;

    T *find(std::string_view name) {
        auto it = index_.find(name);
        return it == index_.end() ? nullptr : &*it->second;
    }
    // Appends a new element named name; the name must not be present.
    T &append(std::string name) {
        items_.emplace_back();
        T &item = items_.back();
        item.name = std::move(name);
        try {
            index_.emplace(std::string_view(item.name), std::prev(items_.end()));
        } catch (...) {
            items_.pop_back();  // never listed without being indexed
            throw;
        }
        return item;
    }
    T &find_or_append(std::string_view name) {
        T *found = find(name);
        return found != nullptr ? *found : append(std::string(name));
    }
    // Re-keys the index node itself, so that a rename allocates nothing once
    // the new name is made and cannot leave an element unindexed.
    bool rename(std::string_view old_name, std::string new_name) {
        auto it = index_.find(old_name);
        if (it == index_.end()) {
            return false;
        }
        auto entry = index_.extract(it);
        entry.mapped()->name = std::move(new_name);
        entry.key() = entry.mapped()->name;
        index_.insert(std::move(entry));
        return true;
    }
    bool remove(std::string_view name) {
        auto it = index_.find(name);
        if (it == index_.end()) {
            return false;
        }
        auto node = it->second;
        index_.erase(it);
        items_.erase(node);
        return true;
    }
    void clear() {
        index_.clear();
        items_.clear();
    }
    iterator begin() { return items_.begin(); }
    iterator end() { return items_.end(); }

private:
    std::list<T> items_;
    std::unordered_map<std::string_view, iterator> index_;
};

struct Section {
    std::string name;
    NamedList<Field> fields;
    std::string key;
    bool met = false;
};

struct Handle {
    NamedList<Section> sections;
    std::string line;  // the reader's line buffer (kLineFirst, grown by kLineStep)
    std::string file_name;
    std::string key;
    bool key_set = false;
    bool lock_use = false;
    bool write_with_temp = false;
    bool version_taken = false;
    int32_t version = 0;
    // Counts removals of sections and fields, so that a search context can
    // tell that the element it stood on may be gone and end its walk.
    uint64_t removals = 0;
    bool use_cs = false;
    PlatLock cs{};
};

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

// 0 with 0x100e naming the function and the argument.
int raise_params(const char *function, const char *argument);
// 0 with 0x1001 for the function at the line.
int raise_memory(const char *function, int line);

// Runs body(handle) under the handle's critical section, turning an escaping
// allocation failure into 0x1001; 0x100e for a NULL handle.
template <typename Body>
int with_handle(void *vh, const char *function, int line, Body body) {
    if (vh == nullptr) {
        return raise_params(function, "handle");
    }
    auto *h = static_cast<Handle *>(vh);
    Guard guard(h, line);
    try {
        return body(*h);
    } catch (const std::bad_alloc &) {
        return raise_memory(function, line);
    }
}

// 0 with 0x820a for the section name.
inline int missing_section(const char *name) {
    err_set_error(kErrSection, name);
    return 0;
}

// The per-thread records: the reader keeps its file chunk buffer, the writer
// the text it builds, so that a thread reusing the module reuses the memory.
struct ConfigRecord {
    std::vector<char> chunk;
};
struct WriterRecord {
    std::string text;
};
using ConfigFrame = frame::ModuleFrame<ConfigRecord, frame::kSlotConfig, frame::OnDemand::yes>;
using WriterFrame = frame::ModuleFrame<WriterRecord, frame::kSlotConfWriter, frame::OnDemand::yes>;

// Appends the handle's text to out (text mode line ends: "\r\n" when
// crlf). False, with the error on the stack, when a field cannot be written.
bool format_handle(Handle &h, std::string &out, bool crlf);

}  // namespace vq::conf
