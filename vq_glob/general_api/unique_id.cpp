// Process handles: process ids and unique process ids.
//
// A process id alone may be reused once its process has ended; together with
// the process's creation time it names one process for good. The unique id
// is both, written as "%016X%08X%08X": the id, then the high and low 32 bits
// of the creation time.
#include <cstdio>
#include <cstring>

#include "general_api/api_state.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

constexpr size_t kUniqueIdDigits = API_UNIQUE_ID_SIZE - 1;

struct UniqueId {
    uint32_t pid;
    uint32_t created_high;
    uint32_t created_low;
};

int hex_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

// Reads count hex digits; false at the first other character.
bool read_hex(const char *digits, size_t count, uint64_t *value) {
    uint64_t v = 0;
    for (size_t i = 0; i < count; ++i) {
        int d = hex_value(digits[i]);
        if (d < 0) {
            return false;
        }
        v = (v << 4) | static_cast<uint64_t>(d);
    }
    *value = v;
    return true;
}

// 32 hexadecimal digits at the start of text whose first 16 hold a 32-bit
// process id; signs, blanks, prefixes and a shorter text are refused.
bool parse_unique_id_prefix(const char *text, UniqueId *id) {
    if (strnlen(text, kUniqueIdDigits) != kUniqueIdDigits) {
        return false;
    }
    uint64_t pid = 0;
    uint64_t high = 0;
    uint64_t low = 0;
    if (!read_hex(text, 16, &pid) || !read_hex(text + 16, 8, &high) || !read_hex(text + 24, 8, &low) ||
        pid == 0 || pid > UINT32_MAX) {
        return false;
    }
    *id = UniqueId{static_cast<uint32_t>(pid), static_cast<uint32_t>(high), static_cast<uint32_t>(low)};
    return true;
}

// Exactly the 32 digits, nothing after them.
bool parse_unique_id(const char *text, UniqueId *id) {
    return strnlen(text, kUniqueIdDigits + 1) == kUniqueIdDigits && parse_unique_id_prefix(text, id);
}

// The creation time of a process; false with the system's reason and a
// GENERAL error naming the process.
bool creation_time(int32_t handle, uint32_t pid, uint64_t *created) {
    int32_t error = plat_process_creation_time(pid, created);
    if (error == 0) {
        return true;
    }
    char what[96];
    std::snprintf(what, sizeof what, "cannot find the creation time of process %u",
                  static_cast<unsigned>(pid));
    raise_system(handle, error, ERR_EXE_GENERAL, what);
    return false;
}

// A new handle carrying a process somebody else started.
int32_t attach_handle(const char *function, uint32_t pid) {
    int32_t handle = allocate_entry(function, 0);
    if (handle != kNoHandle) {
        Entry &entry = *record()->table.entries[static_cast<size_t>(handle)];
        entry.pid = pid;
        entry.status = EntryStatus::attached;
    }
    return handle;
}

int create_from_pid(int32_t pid, int32_t *handle) {
    if (pid <= 0) {
        raise_bad_param(kNoHandle, "api_create_handle_from_pid: pid");
        return 0;
    }
    uint64_t created = 0;
    if (!creation_time(kNoHandle, static_cast<uint32_t>(pid), &created)) {
        return 0;
    }
    *handle = attach_handle("api_create_handle_from_pid", static_cast<uint32_t>(pid));
    return *handle == kNoHandle ? 0 : 1;
}

int get_unique_id(int32_t h, char *buffer) {
    Entry *entry = checked_entry("api_get_process_unique_id", h);
    if (entry == nullptr) {
        return 0;
    }
    if (buffer == nullptr) {
        raise_bad_param(h, "api_get_process_unique_id: buffer");
        return 0;
    }
    if (entry->pid == 0) {
        raise(h, ERR_EXE_NOTACTIVE);
        return 0;
    }
    uint64_t created = 0;
    if (!creation_time(h, entry->pid, &created)) {
        return 0;
    }
    format_unique_id(entry->pid, created, buffer);
    return 1;
}

int create_from_unique_id(const char *text, int32_t *handle) {
    UniqueId id{};
    if (!parse_unique_id(text, &id)) {
        raise_bad_param(kNoHandle,
                        "unique id must be 32 hexadecimal digits starting with a 32-bit process id");
        return 0;
    }
    uint64_t created = 0;
    if (!creation_time(kNoHandle, id.pid, &created)) {
        return 0;
    }
    if (static_cast<uint32_t>(created >> 32) != id.created_high ||
        static_cast<uint32_t>(created & 0xFFFFFFFFu) != id.created_low) {
        new_dbg_str(kTraceChannel, "creation times do not match\n");
        char what[128];
        std::snprintf(what, sizeof what,
                      "process %u is not the process of unique id %.32s (started at another time)",
                      static_cast<unsigned>(id.pid), text);
        raise(kNoHandle, ERR_EXE_GENERAL, what);
        return 0;
    }
    *handle = attach_handle("api_create_handle_from_unique_id", id.pid);
    return *handle == kNoHandle ? 0 : 1;
}

}  // namespace

void format_unique_id(uint32_t pid, uint64_t created, char *buffer) {
    std::snprintf(buffer, API_UNIQUE_ID_SIZE, "%016X%08X%08X", static_cast<unsigned>(pid),
                  static_cast<unsigned>(created >> 32), static_cast<unsigned>(created & 0xFFFFFFFFu));
}

bool read_unique_id(const char *text, uint32_t *pid, uint64_t *created) {
    UniqueId id{};
    if (!parse_unique_id_prefix(text, &id)) {
        return false;
    }
    *pid = id.pid;
    *created = (static_cast<uint64_t>(id.created_high) << 32) | id.created_low;
    return true;
}

}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int32_t api_get_pid(int32_t h) {
    Entry *entry = checked_entry("api_get_pid", h);
    return entry == nullptr ? 0 : static_cast<int32_t>(entry->pid);
}

VQ_API int32_t api_get_current_pid(void) { return static_cast<int32_t>(plat_process_id()); }

VQ_API int api_create_handle_from_pid(int32_t pid, int32_t *handle) {
    if (handle == nullptr) {
        raise_bad_param(kNoHandle, "api_create_handle_from_pid: handle address is NULL");
        return 0;
    }
    *handle = kNoHandle;
    return guarded("api_create_handle_from_pid", [&] { return create_from_pid(pid, handle); });
}

VQ_API int api_get_process_unique_id(int32_t h, char *buffer) {
    return guarded("api_get_process_unique_id", [&] { return get_unique_id(h, buffer); });
}

VQ_API int api_create_handle_from_unique_id(const char *id, int32_t *handle) {
    if (id == nullptr) {
        new_dbg_str(kTraceChannel, "api_create_handle_from_unique_id: unique_id is NULL\n");
    }
    if (id == nullptr || handle == nullptr) {
        raise_bad_param(kNoHandle, id == nullptr
                                       ? "api_create_handle_from_unique_id: unique id is NULL"
                                       : "api_create_handle_from_unique_id: handle address is NULL");
        return 0;
    }
    *handle = kNoHandle;
    return guarded("api_create_handle_from_unique_id", [&] { return create_from_unique_id(id, handle); });
}

}  // extern "C"
