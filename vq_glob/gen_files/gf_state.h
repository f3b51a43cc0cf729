// The files module's per-thread state and the helpers its sources share:
// the handle table, handle checking, error marking and tracing.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "internal/frame.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"

namespace vq::gf {

// This module's trace lines go to channel GF.
inline constexpr int kTraceBit = debug::kChannelGf;

// The module's name in out-of-memory reports.
inline constexpr const char *kModule = "gen_files";

inline constexpr int32_t kNoOsError = -1;
inline constexpr int32_t kNoHandle = -1;

// Permission of created files when the handle's protection is 0.
inline constexpr int kDefaultProtection = 0666;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
// An owned C string: handed out as a plain pointer that stays put when the
// table grows.
using OwnedText = std::unique_ptr<char, FreeDeleter>;

// Replaces target by a copy of text (NULL clears it); false when out of memory.
bool copy_text(OwnedText &target, const char *text);

// A translation pair; shared by every handle that uses it.
struct Tables {
    unsigned char read[256];
    unsigned char write[256];
};

// The search under way on a handle (search.cpp): the directory being listed
// or the list file being read. Destroying it releases both, so that freeing
// or cleaning the handle ends its search.
struct SearchStream;
struct SearchStreamDeleter {
    void operator()(SearchStream *stream) const;
};
using SearchStreamPtr = std::unique_ptr<SearchStream, SearchStreamDeleter>;

// One handle. A default-constructed entry is free; gf_allocate_handle turns
// it into an active one with the defaults below.
struct Entry {
    int32_t active = 0;
    OwnedText file_name;
    OwnedText res_file_name;
    uint8_t search_mark = 0;  // the search active byte: cleared by every init and next-file call
    uint8_t opened = 0;
    uint32_t open_flags = 0;
    int32_t packet_size = 0;
    int32_t position = 0;  // in packets
    int32_t io_type = GF_IO_CRT;
    int32_t last_status = -1;
    int32_t last_os_status = -1;
    int32_t last_status_1 = -1;
    OwnedText last_error_msg;
    OwnedText last_system_msg;
    bool inherit = false;
    int32_t descriptor = -1;
    int32_t protection = 0;
    int32_t real_open_flags = 0;  // type 0: the C runtime's flags
    intptr_t os_handle = kPlatNoFile;
    PlatNativeOpen native{};  // type 2: the open flags in the platform's terms
    OwnedText table_name;     // set when the handle made its own tables
    std::shared_ptr<const Tables> tables;
    int32_t search_type = GF_SEARCH_DIRECTORY;
    OwnedText search_dir;     // directory searches: where the names are, ending with a separator
    OwnedText search_prefix;  // list files: put before each name, without a trailing separator
    OwnedText search_file;    // list files: the list's path
    SearchStreamPtr search;   // the search under way; null before an init and after gf_close_search
};

struct FilesRecord {
    int32_t initialised = 0;
    int32_t used = 0;
    std::vector<Entry> entries;  // its size is the table's capacity
    int32_t last_status = 0;
    int32_t last_os_status = kNoOsError;
    OwnedText last_error_msg;
    OwnedText last_system_msg;
    int32_t code_page_932 = 0;

    FilesRecord() = default;
    FilesRecord(const FilesRecord &) = delete;
    FilesRecord &operator=(const FilesRecord &) = delete;
    // Closes the files still open (quietly: the error stack may be gone).
    ~FilesRecord();
};

using Frame = frame::ModuleFrame<FilesRecord, frame::kSlotFiles, frame::OnDemand::without_block>;

// The thread's table; null when the thread has no state.
FilesRecord *state();

// The active entry h of the thread's table, or null after recording ERR_FIL_NOTACTIVE
// (also when the thread has no state).
Entry *checked_entry(int32_t h);

// Runs body(rec, entry) for a valid handle of the thread; 0 otherwise.
template <typename Body>
int with_entry(int32_t h, Body body) {
    Entry *entry = checked_entry(h);
    if (entry == nullptr) {
        return 0;
    }
    return body(*state(), *entry);
}

// Records a failure: the thread's last status and system error, the handle's
// when h is not -1, and copies of the error stack's text.
void mark_error(FilesRecord &rec, int32_t h, uint32_t code, int32_t os_error);

// The system's text for error under ERR_SYS_ERRMSG, code with name after it, marked.
// Returns 0 so that callers can return it.
int raise_os_error(FilesRecord &rec, int32_t h, PlatIo io, int32_t error, uint32_t code, const char *name);
// The same on the stack alone, for a thread without the module's state. 0.
int push_os_error(PlatIo io, int32_t error, uint32_t code, const char *name);
// code alone (already pushed by the caller with its arguments), marked. 0.
int raise_marked(FilesRecord &rec, int32_t h, uint32_t code);
// ERR_GEN_MEMORY with function and line, marked ERR_FIL_MEMORY_1701. 0.
int raise_memory(FilesRecord &rec, int32_t h, const char *function, int line);
// ERR_FIL_MEMORY_1727 for a NULL argument of function, marked. 0.
int raise_null_argument(FilesRecord &rec, int32_t h, const char *function);
// ERR_FIL_BADPAR for a bad argument (1-based) of function, marked. 0.
int raise_bad_parameter(FilesRecord &rec, int32_t h, const char *function, int32_t argument);

// A name for messages: the text, or "" for NULL.
inline const char *printable(const char *name) { return name != nullptr ? name : ""; }

// The I/O kind of a type (0 crt, 2 native).
inline PlatIo io_of(const Entry &entry) {
    return entry.io_type == GF_IO_NATIVE ? PlatIo::native : PlatIo::crt;
}

// Closes the entry's file, reporting a failure on the error stack. 1 or 0.
int close_entry(FilesRecord &rec, int32_t h, Entry &entry);

// The native handle of the entry's file: the type 2 handle, or the one behind
// the type 0 descriptor.
intptr_t native_of(const Entry &entry);

// Replaces count bytes of buffer by their table values.
void apply_table(const unsigned char *table, void *buffer, size_t count);

// Eight letters and digits for a temporary name, unlike those of other calls,
// threads and processes (io.cpp).
std::string random_suffix();

// Whether the system's default ANSI code page is 932 (for the path rules).
bool code_page_932();

}  // namespace vq::gf
