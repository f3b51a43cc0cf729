// What the sources of the process-handle module share: the per-thread table,
// its entries, the parameter store, and the error and guard helpers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "general_api/param_store.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_glob/api.h"
#include "vq_glob/err.h"

namespace vq::api {

// Trace lines of this module go to the API channel.
inline constexpr int32_t kTraceChannel = 64;
inline constexpr const char *kModule = "general_api";

inline constexpr int32_t kNoHandle = -1;
inline constexpr int32_t kTableGrowth = 5;

// Where an entry stands. The run functions move an entry from described to
// active when they start its child, to zombie when the child has ended but
// its end has not been collected, and to ended once it has; attached entries
// name a process somebody else started (made from a pid or a unique id) and
// are never killed.
enum class EntryStatus : int32_t { described = 1, attached = 2, active = 3, zombie = 4, ended = 5 };

// The image's own state as the run functions report it; 2 is fixed (running).
enum ImageState : int32_t {
    kImageNone = 0,
    kImageStarting = 1,
    kImageRunning = 2,
    kImageEnded = 3,
    kImageKilled = 4
};

// A text that must not outlive its use in memory: wiped when replaced or freed.
class SecretText {
public:
    SecretText() = default;
    ~SecretText() { wipe(); }
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;

    void assign(const char *text);  // null clears
    void copy_from(const SecretText &other) { assign(other.set_ ? other.text_.c_str() : nullptr); }
    [[nodiscard]] const char *get() const { return set_ ? text_.c_str() : nullptr; }

private:
    void wipe();
    std::string text_;
    bool set_ = false;
};

// One pipe end with its trace name; closed when the entry lets go of it.
struct PipeEnd {
    const char *name;
    PlatHandle handle = kPlatNoHandle;
};

// The handle's pipes and native process handles. pipe1 carries what the
// handle's owner sends (its child reads end 0), pipe2 what it receives (the
// child writes end 1); a channel holds copies of the owner's two ends.
struct EntryHandles {
    PipeEnd pipe1_0{"pipe1_0"};
    PipeEnd pipe1_1{"pipe1_1"};
    PipeEnd pipe2_0{"pipe2_0"};
    PipeEnd pipe2_1{"pipe2_1"};
    PipeEnd std_output{"std_output"};
    PipeEnd std_error{"std_error"};
    PipeEnd process{"hProcess"};
    PipeEnd thread{"hThread"};

    EntryHandles() = default;
    ~EntryHandles() { close_all(); }
    EntryHandles(const EntryHandles &) = delete;
    EntryHandles &operator=(const EntryHandles &) = delete;

    [[nodiscard]] bool has_pipes() const;
    void close_pipes();
    void close_all();
};

// Closes one end if it is open, tracing a refusal with the end's name and the
// caller's line; the end is forgotten either way.
void close_end(PipeEnd &end, int line = __builtin_LINE());

struct EnvVar {
    std::string name;
    std::string value;
};

using Text = std::optional<std::string>;

// The description of one process; every text is the entry's own copy.
struct Entry {
    explicit Entry(int32_t entry_kind) : kind(entry_kind) {}

    EntryStatus status = EntryStatus::described;
    int32_t image_state = kImageNone;
    int32_t kind = 0;

    // What to run and how (the application fields, copied by api_copy_handle).
    Text shr_image_name;
    int32_t shr_function = 0;
    Text process_name;
    Text user;
    Text working_directory;
    bool do_not_change_context = false;
    SecretText password;
    uint32_t image_sec_flags = 0;
    uint32_t creation_flags = 0;
    Text user_image_name;
    Text user_image_params;
    // The image's arguments as they are, used instead of splitting the
    // parameters (the run helpers set it for commands given whole).
    std::optional<std::vector<std::string>> user_image_arguments;
    Text user_image_queue;
    int32_t group_id = 0;
    int32_t user_image_mode = 0;
    Text log_filename;
    Text errlog_filename;
    int32_t kill_list_ind = API_KILL_LIST_RECOVER;  // API_KILL_LIST_*
    bool inherit_handles = true;
    api_monitor_routine monitor_routine = nullptr;
    void *callback_info = nullptr;
    std::vector<EnvVar> env_vars;

    // The running state.
    EntryHandles handles;
    uint32_t pid = 0;
    int32_t exit_code = 0;
    bool processed = false;

    ParamStore params;
};

// The calling thread's table. Entry 0 is reserved and never handed out; a
// null slot is a free entry.
struct Table {
    std::vector<std::unique_ptr<Entry>> entries;
    int32_t in_use = 0;
    bool initialised = false;
    // Cursors of the ended-child and active-child searches of the run functions.
    int32_t ended_search = 0;
    int32_t active_search = 0;
    // The thread's one parameter iterator.
    int32_t iterator_handle = kNoHandle;
    size_t iterator_position = 0;
};

struct LastError {
    int32_t handle = kNoHandle;
    uint32_t code = 0;
    std::string text;
    int32_t system_code = 0;
    std::string system_text;
};

struct ApiRecord {
    Table table;
    LastError last;  // outlives api_clean
};

// Hooks the run functions install; null until they exist. kill_child ends
// the child of an active or zombie entry before the entry is freed (false:
// the kill failed and the handle stays); leave_kill_list takes the entry off
// the kill list (its failure is only traced).
struct ChildHooks {
    bool (*kill_child)(int32_t handle, Entry &entry) = nullptr;
    bool (*leave_kill_list)(int32_t handle, Entry &entry) = nullptr;
};
extern ChildHooks g_child_hooks;

// ---- Reaching the table ------------------------------------------------------

// The calling thread's record; null when the thread has no per-thread block.
ApiRecord *record();

// The table, set up on demand; null (with an error) when that fails.
Table *ready_table(const char *function);

// The in-use entry a handle names, and its table in *table when asked for;
// null with an error on the stack when the handle is out of range or free.
Entry *checked_entry(const char *function, int32_t handle, Table **table = nullptr);

// A new described entry of the given kind; kNoHandle with an error on failure.
int32_t allocate_entry(const char *function, int32_t kind);

// Releases an entry's resources and frees the handle (no kill involved);
// cleans the whole table when it was the last one in use.
void release_entry(Table &table, int32_t handle);

// The environment variables a handle gives its child, oldest first; null
// (with an error) for a handle that is not valid.
const std::vector<EnvVar> *env_vars_of(int32_t handle);

// Writes the unique id of a process (its id and creation time, 32 digits) and
// a NUL into buffer, which holds API_UNIQUE_ID_SIZE bytes.
void format_unique_id(uint32_t pid, uint64_t created, char *buffer);
// Reads the 32 digits of a unique id at the start of text; false for
// anything else.
bool read_unique_id(const char *text, uint32_t *pid, uint64_t *created);

// Copies a caller's text into an entry field (null clears it).
void assign_text(Text &field, const char *value);

// A field's text for a trace line.
inline const char *trace_text(const Text &field) { return field ? field->c_str() : "NULL"; }
inline const char *trace_text(const char *value) { return value != nullptr ? value : "NULL"; }

// ---- Errors --------------------------------------------------------------------

// Records the newest entry of the error stack as the table's last error;
// with a system error number, the entry under it holds the system's text.
// Never fails.
void note_last_error(int32_t handle, uint32_t code, int32_t system_error = 0);

// Pushes a coded message of this module and records it as the last error.
template <typename... Args>
void raise(int32_t handle, uint32_t code, Args... args) {
    err_add_error(code, args...);
    note_last_error(handle, code);
}

// Pushes the system's text for an error number, then the module's message.
template <typename... Args>
void raise_system(int32_t handle, int32_t system_error, uint32_t code, Args... args) {
    vq::raise::system(vq::raise::Report::add, system_error);
    err_add_error(code, args...);
    note_last_error(handle, code, system_error);
}

void raise_bad_param(int32_t handle, const char *what);
void raise_memory(const char *function, int line = __builtin_LINE());

// Runs body (returning int) so that no exception leaves the C interface: a
// failed allocation becomes the MEMORY error, anything else GENERAL.
template <typename Body>
int guarded(const char *function, Body &&body, int line = __builtin_LINE()) {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        raise_memory(function, line);
    } catch (...) {
        raise(kNoHandle, ERR_EXE_GENERAL, "unexpected failure in the process-handle module");
    }
    return 0;
}

}  // namespace vq::api
