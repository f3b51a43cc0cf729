// File handles: the per-thread table of files, the handles' settings and
// their last errors.
#include <cstring>
#include <new>

#include "gen_files/gf_state.h"
#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::gf {
namespace {

constexpr int32_t kGrowth = 5;

// The C runtime flags of the open flags, binary mode always included.
// Read-and-write wins over write alone, which together would make no valid
// access mode.
int crt_flags_of(uint32_t flags) {
    const PlatCrtOpenBits &bits = plat_crt_open_bits();
    int real = bits.binary;
    if ((flags & GF_READ_WRITE) != 0) {
        real |= bits.read_write;
    } else if ((flags & GF_WRITE) != 0) {
        real |= bits.write_only;
    }
    if ((flags & GF_TRUNCATE) != 0) {
        real |= bits.truncate;
    }
    if ((flags & GF_EXCLUSIVE) != 0) {
        real |= bits.exclusive;
    }
    if ((flags & GF_CREATE) != 0) {
        real |= bits.create;
    }
    if ((flags & GF_APPEND) != 0) {
        real |= bits.append;
    }
    return real;
}

// Adds the open flags to a native open, in the order of the bits. Access
// accumulates, read-and-write setting both. A truncation replaces any
// disposition, an exclusive creation makes it create_new, and a plain creation
// applies only while none is chosen: a truncation keeps a later GF_CREATE
// from turning it back into a creation.
void add_native_flags(PlatNativeOpen &native, uint32_t flags) {
    if ((flags & GF_READ) != 0) {
        native.access |= kPlatAccessRead;
    }
    if ((flags & GF_WRITE) != 0) {
        native.access |= kPlatAccessWrite;
    }
    if ((flags & GF_READ_WRITE) != 0) {
        native.access = kPlatAccessRead | kPlatAccessWrite;
    }
    if ((flags & GF_TRUNCATE) != 0) {
        native.disposition = PlatDisposition::truncate_existing;
    }
    if ((flags & GF_EXCLUSIVE) != 0) {
        native.disposition = PlatDisposition::create_new;
    }
    if ((flags & GF_CREATE) != 0 && native.disposition == PlatDisposition::none) {
        native.disposition = PlatDisposition::create_new;
    }
    if ((flags & GF_WRITE_THROUGH) != 0) {
        native.write_through = true;
    }
}

// Closes without reporting: for a table going away with its thread.
void close_quietly(Entry &entry) {
    if (entry.opened == 0) {
        return;
    }
    if (entry.io_type == GF_IO_NATIVE) {
        plat_native_file_close(entry.os_handle);
    } else if (entry.descriptor >= 0) {
        plat_crt_file_close(entry.descriptor);
    }
    entry.opened = 0;
}

bool read_code_page_932() {
    char page[16] = {0};
    int32_t error = plat_default_ansi_code_page(page, sizeof page);
    if (error != 0) {
        char text[512];
        plat_file_error_text(PlatIo::native, error, text, sizeof text);
        vq::debug::trace_bit(kTraceBit, "gf_init: failed to read the default ANSI code page: %s\n", text);
        return false;
    }
    return std::strcmp(page, "932") == 0;
}

// Releases entry i as gf_free_handle does; false when it was free.
bool release_entry(FilesRecord &rec, int32_t h) {
    Entry &entry = rec.entries[static_cast<size_t>(h)];
    if (entry.active == 0) {
        return false;
    }
    if (entry.opened != 0) {
        close_entry(rec, h, entry);
    }
    entry = Entry{};
    --rec.used;
    return true;
}

void initialise(FilesRecord &rec) {
    if (rec.initialised != 0) {
        return;
    }
    rec.used = 0;
    rec.entries.clear();
    rec.entries.shrink_to_fit();
    rec.last_error_msg.reset();
    rec.last_system_msg.reset();
    rec.initialised = 1;
    rec.code_page_932 = read_code_page_932() ? 1 : 0;
}

// A POSIX thread has no block of its own until it first calls a module that
// creates one, and the table's accessor never creates it. Allocation is where
// a thread starts using files, so it is where a missing block is made.
FilesRecord *state_for_allocation() {
    FilesRecord *rec = state();
    return rec != nullptr ? rec : Frame::get_creating_block();
}

}  // namespace

FilesRecord::~FilesRecord() {
    for (Entry &entry : entries) {
        close_quietly(entry);
    }
}

bool copy_text(OwnedText &target, const char *text) {
    if (text == nullptr) {
        target.reset();
        return true;
    }
    size_t n = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(std::malloc(n));
    if (copy == nullptr) {
        return false;
    }
    std::memcpy(copy, text, n);
    target.reset(copy);
    return true;
}

FilesRecord *state() { return Frame::get(); }

bool code_page_932() {
    FilesRecord *rec = state();
    return rec != nullptr && rec->code_page_932 != 0;
}

Entry *checked_entry(int32_t h) {
    FilesRecord *rec = state();
    if (rec == nullptr) {
        err_set_error(ERR_FIL_NOTACTIVE, static_cast<int>(h));
        return nullptr;
    }
    if (h >= 0 && static_cast<size_t>(h) < rec->entries.size() &&
        rec->entries[static_cast<size_t>(h)].active != 0) {
        return &rec->entries[static_cast<size_t>(h)];
    }
    err_set_error(ERR_FIL_NOTACTIVE, static_cast<int>(h));
    mark_error(*rec, kNoHandle, ERR_FIL_NOTACTIVE, kNoOsError);
    return nullptr;
}

void mark_error(FilesRecord &rec, int32_t h, uint32_t code, int32_t os_error) {
    rec.last_status = static_cast<int32_t>(code);
    rec.last_os_status = os_error;
    Entry *entry = nullptr;
    if (h != kNoHandle && h >= 0 && static_cast<size_t>(h) < rec.entries.size()) {
        entry = &rec.entries[static_cast<size_t>(h)];
        entry->last_status = static_cast<int32_t>(code);
        entry->last_os_status = os_error;
    }
    // A copy that cannot be made leaves no text rather than an old one.
    const char *text = err_get_error_msg();
    if (os_error != kNoOsError) {
        OwnedText &system_msg = entry != nullptr ? entry->last_system_msg : rec.last_system_msg;
        if (!copy_text(system_msg, text)) {
            system_msg.reset();
        }
    }
    OwnedText &error_msg = entry != nullptr ? entry->last_error_msg : rec.last_error_msg;
    if (!copy_text(error_msg, text)) {
        error_msg.reset();
    }
}

int push_os_error(PlatIo io, int32_t error, uint32_t code, const char *name) {
    char text[1024];
    plat_file_error_text(io, error, text, sizeof text);
    err_set_error(ERR_SYS_ERRMSG, text);
    err_add_error(code, printable(name));
    return 0;
}

int raise_os_error(FilesRecord &rec, int32_t h, PlatIo io, int32_t error, uint32_t code, const char *name) {
    push_os_error(io, error, code, name);
    mark_error(rec, h, code, error);
    return 0;
}

int raise_marked(FilesRecord &rec, int32_t h, uint32_t code) {
    mark_error(rec, h, code, kNoOsError);
    return 0;
}

int raise_memory(FilesRecord &rec, int32_t h, const char *function, int line) {
    vq::raise::memory(vq::raise::Report::fresh, function, kModule, line);
    mark_error(rec, h, ERR_FIL_MEMORY_1701, kNoOsError);
    return 0;
}

int raise_null_argument(FilesRecord &rec, int32_t h, const char *function) {
    err_set_error(ERR_FIL_MEMORY_1727, function);
    return raise_marked(rec, h, ERR_FIL_MEMORY_1727);
}

int raise_bad_parameter(FilesRecord &rec, int32_t h, const char *function, int32_t argument) {
    err_set_error(ERR_FIL_BADPAR, function, static_cast<int>(argument));
    return raise_marked(rec, h, ERR_FIL_BADPAR);
}

}  // namespace vq::gf

namespace vq::frame {
constinit const Module kFilesModule = gf::Frame::module("gf");
}  // namespace vq::frame

using namespace vq::gf;

namespace {

// Stores one value through an out-pointer of a valid handle.
template <typename T, typename Get>
int get_value(int32_t h, T *out, const char *function, Get get) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        if (out == nullptr) {
            return raise_null_argument(rec, h, function);
        }
        *out = get(entry);
        return 1;
    });
}

// Stores value in one field of a valid handle.
template <typename T, typename V>
int set_field(int32_t h, T Entry::*field, V value) {
    return with_entry(h, [&](FilesRecord &, Entry &entry) {
        entry.*field = static_cast<T>(value);
        return 1;
    });
}

// Gives one field of a valid handle through out.
template <typename T>
int get_field(int32_t h, T *out, const char *function, T Entry::*field) {
    return get_value(h, out, function, [field](Entry &entry) { return entry.*field; });
}

}  // namespace

extern "C" {

VQ_API int gf_init(void) {
    FilesRecord *rec = state();
    if (rec == nullptr) {
        return 0;
    }
    initialise(*rec);
    return 1;
}

VQ_API int gf_clean(void) {
    FilesRecord *rec = state();
    if (rec == nullptr) {
        return 1;
    }
    if (rec->initialised != 0) {
        for (size_t i = 0; i < rec->entries.size(); ++i) {
            release_entry(*rec, static_cast<int32_t>(i));
        }
        rec->initialised = 0;
    }
    initialise(*rec);
    return 1;
}

VQ_API int gf_allocate_handle(int32_t *handle) {
    if (handle != nullptr) {
        *handle = kNoHandle;
    }
    FilesRecord *rec = state_for_allocation();
    if (rec == nullptr) {
        return VQ_NO_MEMORY(vq::raise::Report::fresh, kModule);
    }
    initialise(*rec);
    if (handle == nullptr) {
        return raise_null_argument(*rec, kNoHandle, "gf_allocate_handle");
    }
    auto capacity = static_cast<int32_t>(rec->entries.size());
    if (rec->used >= capacity) {
        try {
            rec->entries.resize(static_cast<size_t>(capacity) + kGrowth);
        } catch (const std::bad_alloc &) {
            return raise_memory(*rec, kNoHandle, "gf_allocate_handle", __LINE__);
        }
    }
    for (size_t i = 0; i < rec->entries.size(); ++i) {
        Entry &entry = rec->entries[i];
        if (entry.active == 0) {
            entry = Entry{};
            entry.active = 1;
            ++rec->used;
            *handle = static_cast<int32_t>(i);
            return 1;
        }
    }
    // The count said there was room, the entries say otherwise.
    err_set_error(ERR_FIL_INCNSNCY);
    return raise_marked(*rec, kNoHandle, ERR_FIL_INCNSNCY);
}

VQ_API int gf_free_handle(int32_t h) {
    FilesRecord *rec = state();
    if (rec != nullptr && h >= 0 && static_cast<size_t>(h) < rec->entries.size() &&
        rec->entries[static_cast<size_t>(h)].active == 0) {
        vq::debug::trace_bit(kTraceBit, "gf_free_handle: entry %d is already free\n", static_cast<int>(h));
        return 1;
    }
    if (checked_entry(h) == nullptr) {
        return 0;
    }
    release_entry(*rec, h);
    return 1;
}

VQ_API int gf_set_file_name(int32_t h, const char *name) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return copy_text(entry.file_name, name) ? 1 : raise_memory(rec, h, "gf_set_file_name", __LINE__);
    });
}

VQ_API int gf_get_file_name(int32_t h, char **name) {
    return get_value(h, name, "gf_get_file_name", [](Entry &entry) { return entry.file_name.get(); });
}

VQ_API int gf_set_res_file_name(int32_t h, const char *name) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return copy_text(entry.res_file_name, name) ? 1
                                                    : raise_memory(rec, h, "gf_set_res_file_name", __LINE__);
    });
}

VQ_API int gf_get_res_file_name(int32_t h, char **name) {
    return get_value(h, name, "gf_get_res_file_name", [](Entry &entry) { return entry.res_file_name.get(); });
}

VQ_API int gf_set_file_open_flags(int32_t h, uint32_t flags) {
    return with_entry(h, [&](FilesRecord &, Entry &entry) {
        entry.open_flags = flags;
        if (entry.io_type == GF_IO_CRT) {
            entry.real_open_flags = crt_flags_of(flags);
        } else if (entry.io_type == GF_IO_NATIVE) {
            add_native_flags(entry.native, flags);
        }
        return 1;
    });
}

VQ_API int gf_add_file_open_flags(int32_t h, uint32_t flags) {
    return with_entry(h, [&](FilesRecord &, Entry &entry) {
        entry.open_flags |= flags;
        if (entry.io_type == GF_IO_CRT) {
            int real = entry.real_open_flags | crt_flags_of(flags);
            const PlatCrtOpenBits &bits = plat_crt_open_bits();
            if ((real & bits.read_write) != 0 && bits.read_write != bits.write_only) {
                real &= ~bits.write_only;
            }
            entry.real_open_flags = real;
        } else if (entry.io_type == GF_IO_NATIVE) {
            add_native_flags(entry.native, flags);
        }
        return 1;
    });
}

VQ_API int gf_get_file_open_flags(int32_t h, uint32_t *flags) {
    return get_field(h, flags, "gf_get_file_open_flags", &Entry::open_flags);
}

VQ_API int gf_set_real_open_flags(int32_t h, int32_t flags) {
    return with_entry(h, [&](FilesRecord &, Entry &entry) {
        if (entry.io_type == GF_IO_CRT) {
            entry.real_open_flags = flags;
        }
        return 1;
    });
}

VQ_API int gf_set_file_io_type(int32_t h, int32_t type) { return set_field(h, &Entry::io_type, type); }

VQ_API int gf_get_file_io_type(int32_t h, int32_t *type) {
    return get_field(h, type, "gf_get_file_io_type", &Entry::io_type);
}

VQ_API int gf_set_file_packet_size(int32_t h, int32_t bytes) {
    return set_field(h, &Entry::packet_size, bytes);
}

VQ_API int gf_get_file_packet_size(int32_t h, int32_t *bytes) {
    return get_field(h, bytes, "gf_get_file_packet_size", &Entry::packet_size);
}

VQ_API int gf_set_file_protection(int32_t h, int32_t mode) { return set_field(h, &Entry::protection, mode); }

VQ_API int gf_get_file_protection(int32_t h, int32_t *mode) {
    return get_field(h, mode, "gf_get_file_protection", &Entry::protection);
}

VQ_API int gf_set_file_handle(int32_t h, int32_t fd) { return set_field(h, &Entry::descriptor, fd); }

VQ_API int gf_get_file_handle(int32_t h, int32_t *fd) {
    return get_field(h, fd, "gf_get_file_handle", &Entry::descriptor);
}

VQ_API int gf_set_handle_inherit_mode(int32_t h, int32_t inherit) {
    return set_field(h, &Entry::inherit, inherit != 0);
}

VQ_API int gf_is_file_opened(int32_t h) {
    return with_entry(h, [](FilesRecord &, Entry &entry) { return entry.opened != 0 ? 1 : 0; });
}

VQ_API int32_t gf_get_last_error(int32_t h) {
    if (h != kNoHandle) {
        if (Entry *entry = checked_entry(h)) {
            return entry->last_status;
        }
    }
    FilesRecord *rec = state();
    if (rec == nullptr) {
        return h == kNoHandle ? 0 : static_cast<int32_t>(ERR_FIL_NOTACTIVE);
    }
    return rec->last_status;
}

VQ_API int32_t gf_get_last_system_error(int32_t h) {
    if (h != kNoHandle) {
        if (Entry *entry = checked_entry(h)) {
            return entry->last_os_status;
        }
    }
    FilesRecord *rec = state();
    return rec != nullptr ? rec->last_os_status : kNoOsError;
}

VQ_API const char *gf_get_last_error_msg(int32_t h) {
    const char *text = nullptr;
    if (h != kNoHandle) {
        if (Entry *entry = checked_entry(h)) {
            return entry->last_error_msg ? entry->last_error_msg.get() : "";
        }
    }
    FilesRecord *rec = state();
    if (rec != nullptr) {
        text = rec->last_error_msg.get();
    }
    return text != nullptr ? text : "";
}

VQ_API const char *gf_get_last_system_msg(int32_t h) {
    const char *text = nullptr;
    if (h != kNoHandle) {
        if (Entry *entry = checked_entry(h)) {
            return entry->last_system_msg ? entry->last_system_msg.get() : "";
        }
    }
    FilesRecord *rec = state();
    if (rec != nullptr) {
        text = rec->last_system_msg.get();
    }
    return text != nullptr ? text : "";
}

VQ_API int32_t gf_get_last_status(int32_t h) {
    Entry *entry = checked_entry(h);
    return entry != nullptr ? entry->last_status : -1;
}

VQ_API int gf_get_last_os_status(int32_t h, int32_t *status) {
    return get_field(h, status, "gf_get_last_os_status", &Entry::last_os_status);
}

VQ_API int gf_get_last_os_status_1(int32_t h, int32_t *status) {
    return get_field(h, status, "gf_get_last_os_status_1", &Entry::last_status_1);
}

}  // extern "C"
