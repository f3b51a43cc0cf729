// Running images: starting the child a handle describes, optionally under
// another user's identity with its output in the handle's log files, and
// following it until its end is recorded on the handle.
//
// The platform layer (plat_spawn) reports a failed step synchronously, so a
// run either leaves a running child on the handle or nothing at all. The
// child is reaped as soon as its end is seen; from then on the handle only
// remembers how it ended.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "general_api/images.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

constexpr const char *kHoldVariable = "VQ_SERVER_ALLOW_NEW_PROCS";

// How long a monitored wait lets pass between two calls of the monitor routine.
constexpr int32_t kMonitorSliceMs = 1000;

// Children of another user start on this desktop (Windows only).
constexpr const char *kUserDesktop = "winsta0\\default";

bool is_blank_char(char c) { return c == ' ' || c == '\t'; }

// ---- Before anything starts ------------------------------------------------------

// False (with MORINFO under NONEWPROC) while the administrative hold is on.
bool new_processes_allowed(int32_t h) {
    // The variable is read at every run so that an operator can lift the
    // hold without restarting the daemon. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char *value = std::getenv(kHoldVariable);
    if (value == nullptr) {
        return true;
    }
    new_dbg_str(kTraceChannel, "env var %s value is %s\n", kHoldVariable, value);
    if (std::strcmp(value, "FALSE") != 0) {
        return true;
    }
    raise(h, ERR_GEN_MORINFO, API_ADMIN_HOLD_REFERENCE);
    raise(h, ERR_GEN_NONEWPROC);
    return false;
}

// The user the child runs as: the newest text of the reserved key, else the
// context's user; null for the caller's own identity.
const char *run_as_user(const Entry &entry) {
    if (entry.do_not_change_context) {
        return nullptr;
    }
    const ParamStore::Slot *slot = entry.params.newest(kKeyRunAsUser);
    if (slot != nullptr && slot->type == API_PARAM_STR) {
        return static_cast<const char *>(slot->value);
    }
    return entry.user ? entry.user->c_str() : nullptr;
}

// With another user to run as: checks that the caller may, before any file
// is opened or anything started. The password goes to the platform layer
// only.
bool check_identity(int32_t h, const Entry &entry, const char *user) {
    if (user == nullptr) {
        new_dbg_str(kTraceChannel, "api_go_intern() - No user context set yet, setting it to no change\n");
        return true;
    }
    new_dbg_str(kTraceChannel, "user <%s>, domain <%s>", user, "NULL");
    PlatIdentity identity{user, nullptr, entry.password.get()};
    PlatLogonErrors logon;
    int32_t error = plat_authenticate(identity, &logon);
    if (logon.batch != 0) {
        new_dbg_str(kTraceChannel, "batch logon failed with system error %d\n", static_cast<int>(logon.batch));
    }
    if (logon.network != 0) {
        new_dbg_str(kTraceChannel, "network logon failed with system error %d\n",
                    static_cast<int>(logon.network));
    }
    if (error != 0) {
        raise_system(h, error, ERR_EXE_CONCHG, user);
        return false;
    }
    return true;
}

// ---- Log files -----------------------------------------------------------------------

// A log name may be new or a regular file; anything else (a link that could
// point a privileged caller at another file, a device or fifo that would
// block the open) is refused.
int32_t log_name_refusal(const char *name) {
    PlatFsStatus status;
    if (plat_fs_status(name, &status) != 0) {
        return 0;  // missing: it will be created
    }
    return status.is_link || !status.is_regular ? plat_file_invalid_argument(PlatIo::native) : 0;
}

// Creates or empties one log file for the child.
bool open_log(int32_t h, const char *name, const char *user, uint32_t code, PipeEnd &end) {
    int32_t error = log_name_refusal(name);
    if (error == 0) {
        PlatNativeOpen how;
        how.access = kPlatAccessWrite;
        how.share = kPlatShareRead | kPlatShareWrite;
        how.disposition = PlatDisposition::create_always;
        error = plat_native_file_open(name, how, 0644, &end.handle);
    }
    if (error != 0) {
        end.handle = kPlatNoHandle;
        raise_system(h, error, code, name, user != nullptr ? user : "(caller)");
        return false;
    }
    return true;
}

// Opens the handle's log files into its std_output / std_error ends; one
// name given for both is one file.
bool open_logs(int32_t h, Entry &entry, const char *user) {
    EntryHandles &ends = entry.handles;
    if (entry.log_filename && !open_log(h, entry.log_filename->c_str(), user, ERR_EXE_LOGFILE, ends.std_output)) {
        return false;
    }
    if (!entry.errlog_filename) {
        return true;
    }
    if (entry.log_filename && *entry.log_filename == *entry.errlog_filename) {
        int32_t error = plat_handle_duplicate(ends.std_output.handle, &ends.std_error.handle);
        if (error != 0) {
            ends.std_error.handle = kPlatNoHandle;
            raise_system(h, error, ERR_EXE_ERRLOGFILE, entry.errlog_filename->c_str(),
                         user != nullptr ? user : "(caller)");
            return false;
        }
        return true;
    }
    return open_log(h, entry.errlog_filename->c_str(), user, ERR_EXE_ERRLOGFILE, ends.std_error);
}

// ---- The request ---------------------------------------------------------------------

// The directory part of a path ("/" for a file at the root); empty when the
// path names no directory.
std::string directory_of(const std::string &path) {
    size_t last = std::string::npos;
    for (size_t i = 0; i < path.size(); ++i) {
        if (plat_path_is_separator(path[i])) {
            last = i;
        }
    }
    if (last == std::string::npos) {
        return {};
    }
    return last == 0 ? path.substr(0, 1) : path.substr(0, last);
}

// What plat_spawn needs, with the texts it points at kept alive here.
struct Launch {
    PlatSpawnRequest request;
    std::string own_directory;
};

bool build_request(int32_t h, const Entry &entry, const char *user, Launch *launch) {
    PlatSpawnRequest &request = launch->request;
    const std::string &image = *entry.user_image_name;
    const char *params = entry.user_image_params ? entry.user_image_params->c_str() : "";
    if (entry.user_image_arguments) {
        // Arguments given whole come with the command line a Windows child
        // reads instead, when its program reads it by rules of its own.
        request.arguments = *entry.user_image_arguments;
        request.command_line = entry.user_image_params ? entry.user_image_params->c_str() : nullptr;
    } else if (!split_command_line(params, &request.arguments)) {
        raise_bad_param(h, "api_run_user_image: unbalanced double quote in the image parameters");
        return false;
    }
    request.image = image.c_str();
    request.working_directory = entry.working_directory ? entry.working_directory->c_str() : nullptr;
    if (image.find(' ') != std::string::npos) {
        // A command file whose path holds a blank runs from its own directory.
        launch->own_directory = directory_of(image);
        if (!launch->own_directory.empty()) {
            request.working_directory = launch->own_directory.c_str();
        }
        new_dbg_str(kTraceChannel, "\"%s\" %s\n", image.c_str(), params);
    }
    for (const EnvVar &var : entry.env_vars) {
        request.environment.push_back(var.name + "=" + var.value);
    }
    request.std_output = entry.handles.std_output.handle;
    request.std_error = entry.handles.std_error.handle;
    if (entry.handles.has_pipes() && entry.inherit_handles) {
        for (const PipeEnd *end : {&entry.handles.pipe1_0, &entry.handles.pipe2_1}) {
            if (end->handle != kPlatNoHandle) {
                request.inherited.push_back(end->handle);
            }
        }
    }
    request.creation_flags = entry.creation_flags;
    request.suspended = (entry.creation_flags & API_CREATE_SUSPENDED) != 0;
    request.identity = PlatIdentity{user, nullptr, entry.password.get()};
    request.authenticated = true;  // check_identity has, before any file opened
    if (user != nullptr) {
        request.desktop = kUserDesktop;
        new_dbg_str(kTraceChannel, "going to use desktop %s\n", kUserDesktop);
        new_dbg_str(kTraceChannel, "calling create_process_as_user\n");
    } else {
        new_dbg_str(kTraceChannel, "calling create_process\n");
    }
    return true;
}

// Names the step of a failed start on the stack.
void raise_spawn_failure(int32_t h, const Entry &entry, const PlatSpawnRequest &request, const char *user,
                         int32_t error, PlatSpawnStage stage) {
    switch (stage) {
        case PlatSpawnStage::authenticate:
        case PlatSpawnStage::identity:
            raise_system(h, error, ERR_EXE_CONCHG, user != nullptr ? user : "(caller)");
            break;
        case PlatSpawnStage::working_directory:
            raise_system(h, error, ERR_EXE_SETCWD, trace_text(request.working_directory));
            break;
        case PlatSpawnStage::execute:
            raise_system(h, error, ERR_EXE_UEXECVP, image_name_of(entry));
            break;
        case PlatSpawnStage::none:
        case PlatSpawnStage::create:
            raise_system(h, error, ERR_EXE_FORK, 0);
            break;
    }
}

// Replaces every value of an int key by one value (a handle run many times
// keeps one slot per key).
void replace_int_param(int32_t h, Entry &entry, int32_t key, const int32_t *value) {
    while (entry.params.remove_newest(key)) {
    }
    if (value != nullptr && api_set_int_param(h, key, *value) == 0) {
        new_dbg_str(kTraceChannel, "api_run_user_image() - could not store param %d on handle %d\n",
                    static_cast<int>(key), static_cast<int>(h));
    }
}

// The entry now follows a running child.
void adopt_child(int32_t h, Entry &entry, const PlatChild &child) {
    entry.pid = child.pid;
    entry.handles.process.handle = child.process;
    entry.handles.thread.handle = child.thread;
    entry.status = EntryStatus::active;
    entry.image_state = kImageRunning;
    entry.exit_code = 0;
    entry.processed = false;
    new_dbg_str(kTraceChannel, "user image pid is %d\n", static_cast<int>(child.pid));
    replace_int_param(h, entry, kKeyExitCode, nullptr);
    const auto pid = static_cast<int32_t>(child.pid);
    replace_int_param(h, entry, kKeyScanMarker, &pid);
}

// The child holds its own copies of its pipe ends now.
void close_child_pipe_ends(EntryHandles &handles) {
    if (handles.pipe1_0.handle == kPlatNoHandle && handles.pipe2_1.handle == kPlatNoHandle) {
        return;
    }
    new_dbg_str(kTraceChannel, "api_go_intern() - closing unnecessary pipe descriptors %d %d\n",
                static_cast<int>(handles.pipe1_0.handle), static_cast<int>(handles.pipe2_1.handle));
    close_end(handles.pipe1_0);
    close_end(handles.pipe2_1);
}

void enter_kill_list(const Entry &entry) {
    if (entry.kill_list_ind == API_KILL_LIST_NONE) {
        return;
    }
    bool recover = entry.kill_list_ind == API_KILL_LIST_RECOVER;
    if (!handle_kill_list(recover ? KillListCommand::add : KillListCommand::add_without_recovery, entry.pid,
                          image_name_of(entry))) {
        new_dbg_str(kTraceChannel, recover ? "api_run_user_image() - failed in  api_handle_kill_list with "
                                             "KILL_LIST_COMMAND_ADD\n"
                                           : "api_run_user_image() - failed in  api_handle_kill_list with "
                                             "KILL_LIST_COMMAND_ADD_WITHOUT_RECOVERY\n");
    }
}

bool known_mode(int32_t mode) {
    return mode == API_IMAGE_MODE_ASYNC || mode == API_IMAGE_MODE_SYNC || mode == API_IMAGE_MODE_SETTLE;
}

int32_t wait_time_of(int32_t mode) {
    switch (mode) {
        case API_IMAGE_MODE_SYNC:
            return API_IMAGE_SYNC_WAIT_MS;
        case API_IMAGE_MODE_SETTLE:
            return API_IMAGE_SETTLE_WAIT_MS;
        default:
            return API_IMAGE_ASYNC_WAIT_MS;
    }
}

// ---- Recording the end -------------------------------------------------------------------

void record_end(int32_t h, Entry &entry, PlatChildState state, uint32_t code) {
    bool killed = state == PlatChildState::killed;
    if (killed) {
        new_dbg_str(kTraceChannel, "api_set_handle_exit_info() - user image was killed\n");
    } else {
        new_dbg_str(kTraceChannel, "api_set_handle_exit_info() - user image terminated normally. exit status was %d\n",
                    static_cast<int>(code));
    }
    entry.exit_code = killed ? -1 : static_cast<int32_t>(code);
    entry.status = EntryStatus::ended;
    entry.image_state = killed ? kImageKilled : kImageEnded;
    close_end(entry.handles.process);
    close_end(entry.handles.thread);
    replace_int_param(h, entry, kKeyScanMarker, nullptr);
    replace_int_param(h, entry, kKeyExitCode, &entry.exit_code);
    if (entry.kill_list_ind != API_KILL_LIST_NONE &&
        !handle_kill_list(KillListCommand::remove, entry.pid, image_name_of(entry))) {
        new_dbg_str(kTraceChannel,
                    "api_set_handle_exit_info() - failed in api_handle_kill_list with KILL_LIST_COMMAND_REMOVE\n");
    }
}

EndWait wait_once(int32_t h, Entry &entry, int32_t timeout_ms) {
    PlatChildState state = PlatChildState::running;
    uint32_t code = 0;
    int32_t error = plat_child_wait(child_of(entry), timeout_ms, &state, &code);
    if (error != 0) {
        raise_system(h, error, ERR_EXE_WAIT);
        return EndWait::failed;
    }
    if (state == PlatChildState::running) {
        return EndWait::running;
    }
    record_end(h, entry, state, code);
    return EndWait::ended;
}

// ---- The checks -----------------------------------------------------------------------------

Entry *running_entry(const char *function, int32_t h) {
    Entry *entry = checked_entry(function, h);
    if (entry != nullptr && entry->status != EntryStatus::active && entry->status != EntryStatus::ended) {
        raise(h, ERR_EXE_NOTACTIVE);
        return nullptr;
    }
    return entry;
}

int check_user_image(int32_t h) {
    Entry *entry = running_entry("api_check_user_image", h);
    if (entry == nullptr) {
        return 0;
    }
    if (!child_running(*entry)) {
        return 1;  // its end is recorded already
    }
    switch (wait_for_end(h, *entry, wait_time_of(entry->user_image_mode))) {
        case EndWait::running:
            new_dbg_str(kTraceChannel,
                        "check_user_image_termination() - user image still running...(execvp succeeded)\n");
            return 1;
        case EndWait::ended:
            new_dbg_str(kTraceChannel, "Process terminated normally. Checking exit code\n");
            return 1;
        case EndWait::failed:
            break;
    }
    return 0;
}

int check_async(int32_t h, int32_t *running, int32_t *exit_code) {
    Entry *entry = running_entry("api_check_async_image_status", h);
    if (entry == nullptr) {
        return 0;
    }
    if (child_running(*entry) && wait_for_end(h, *entry, 0) == EndWait::failed) {
        return 0;
    }
    if (running != nullptr) {
        *running = child_running(*entry) ? 1 : 0;
    }
    if (exit_code != nullptr) {
        *exit_code = child_running(*entry) ? 0 : entry->exit_code;
    }
    return 1;
}

int get_state(int32_t h, int32_t *state, int32_t *exit_code) {
    Entry *entry = checked_entry("api_get_image_state_and_exit_code", h);
    if (entry == nullptr) {
        return 0;
    }
    if (state != nullptr) {
        *state = entry->image_state;
    }
    if (exit_code != nullptr) {
        *exit_code = entry->status == EntryStatus::ended ? entry->exit_code : 0;
    }
    return 1;
}

int get_exit_status(int32_t h, int32_t *exit_code) {
    Entry *entry = checked_entry("api_get_child_exit_status", h);
    if (entry == nullptr) {
        return 0;
    }
    if (exit_code == nullptr) {
        raise_bad_param(h, "api_get_child_exit_status: exit code address is NULL");
        return 0;
    }
    if (entry->status != EntryStatus::ended) {
        raise(h, ERR_EXE_PARNOTFOUND);
        return 0;
    }
    *exit_code = entry->exit_code;
    return 1;
}

int resume(int32_t h) {
    Entry *entry = checked_entry("api_resume", h);
    if (entry == nullptr) {
        return 0;
    }
    if (!child_running(*entry)) {
        raise(h, ERR_EXE_NOTACTIVE);
        return 0;
    }
    int32_t error = plat_child_resume(child_of(*entry));
    if (error != 0) {
        raise_system(h, error, ERR_EXE_GENERAL, "error resuming the user image");
        return 0;
    }
    return 1;
}

// ---- The searches ----------------------------------------------------------------------------

// Looks at a running entry without waiting; true when its end is recorded
// and nobody has processed it yet. A failed look is only traced: the scan
// goes on with the other children.
bool ended_unprocessed(int32_t h, Entry &entry) {
    if (child_running(entry) && entry.params.newest(kKeyScanMarker) != nullptr) {
        if (wait_for_end(h, entry, 0) == EndWait::failed) {
            new_dbg_str(kTraceChannel, "api_scan_for_ended_child() - looking at handle %d failed\n",
                        static_cast<int>(h));
        }
    }
    return entry.status == EntryStatus::ended && !entry.processed;
}

// The next handle from *cursor up that passes test; kNoHandle at the end.
template <typename Test>
int32_t next_matching(Table &table, int32_t *cursor, Test &&test) {
    while (static_cast<size_t>(++*cursor) < table.entries.size()) {
        Entry *entry = table.entries[static_cast<size_t>(*cursor)].get();
        if (entry != nullptr && test(*cursor, *entry)) {
            return *cursor;
        }
    }
    return kNoHandle;
}

// The next handle after *cursor whose child has ended unprocessed (ended)
// or runs; 0 without an error at the end of the table.
int search(const char *function, int32_t *handle, int32_t *cursor, bool ended) {
    if (handle == nullptr) {
        char what[96];
        std::snprintf(what, sizeof what, "%s: handle address is NULL", function);
        raise_bad_param(kNoHandle, what);
        return 0;
    }
    *handle = kNoHandle;
    ApiRecord *r = record();
    if (r == nullptr || !r->table.initialised) {
        return 0;
    }
    *handle = ended ? next_matching(r->table, cursor, ended_unprocessed)
                    : next_matching(r->table, cursor, [](int32_t, const Entry &entry) { return child_running(entry); });
    return *handle == kNoHandle ? 0 : 1;
}

// The search cursor of the calling thread's table; a scratch one before the
// table exists (the search then finds nothing).
int32_t *cursor_of(int32_t Table::*cursor) {
    thread_local int32_t none = 0;
    ApiRecord *r = record();
    if (r == nullptr) {
        none = 0;
        return &none;
    }
    return &(r->table.*cursor);
}

void reset_cursor(int32_t Table::*cursor) {
    ApiRecord *r = record();
    if (r != nullptr) {
        r->table.*cursor = 0;
    }
}

}  // namespace

bool split_command_line(const char *line, std::vector<std::string> *arguments) {
    std::string current;
    bool in_argument = false;
    bool quoted = false;
    for (const char *c = line; *c != '\0'; ++c) {
        if (*c == '"') {
            quoted = !quoted;
            in_argument = true;
        } else if (!quoted && is_blank_char(*c)) {
            if (in_argument) {
                arguments->push_back(std::move(current));
                current.clear();
                in_argument = false;
            }
        } else {
            current += *c;
            in_argument = true;
        }
    }
    if (in_argument) {
        arguments->push_back(std::move(current));
    }
    return !quoted;
}

PlatChild child_of(const Entry &entry) {
    PlatChild child;
    child.pid = entry.pid;
    child.process = entry.handles.process.handle;
    child.thread = entry.handles.thread.handle;
    return child;
}

EndWait wait_for_end(int32_t h, Entry &entry, int32_t timeout_ms) {
    if (entry.monitor_routine == nullptr || timeout_ms == 0) {
        return wait_once(h, entry, timeout_ms);
    }
    // A monitored wait goes in slices, calling the routine between them.
    int32_t left = timeout_ms;
    for (;;) {
        int32_t slice = left < 0 || left > kMonitorSliceMs ? kMonitorSliceMs : left;
        EndWait result = wait_once(h, entry, slice);
        if (result != EndWait::running) {
            return result;
        }
        if (left >= 0) {
            left -= slice;
            if (left == 0) {
                return EndWait::running;
            }
        }
        entry.monitor_routine(h, entry.callback_info);
    }
}

int run_image(int32_t h, Entry &entry) {
    if (child_running(entry)) {
        raise_bad_param(h, "api_run_user_image: the handle runs a child already");
        return 0;
    }
    if (!entry.user_image_name || entry.user_image_name->empty()) {
        raise_bad_param(h, "api_run_user_image: no user image name");
        return 0;
    }
    if (!known_mode(entry.user_image_mode)) {
        raise_bad_param(h, "api_run_user_image: unknown user image mode");
        return 0;
    }
    if (!new_processes_allowed(h)) {
        return 0;
    }
    const char *user = run_as_user(entry);
    Launch launch;
    if (!check_identity(h, entry, user) || !build_request(h, entry, user, &launch)) {
        return 0;
    }
    if (!open_logs(h, entry, user)) {
        close_end(entry.handles.std_output);
        return 0;
    }
    launch.request.std_output = entry.handles.std_output.handle;
    launch.request.std_error = entry.handles.std_error.handle;
    PlatChild child;
    PlatSpawnStage stage = PlatSpawnStage::none;
    PlatLogonErrors logon;
    int32_t error = plat_spawn(launch.request, &child, &stage, &logon);
    // The child holds its own copies of the log files.
    close_end(entry.handles.std_output);
    close_end(entry.handles.std_error);
    if (error != 0) {
        raise_spawn_failure(h, entry, launch.request, user, error, stage);
        return 0;
    }
    adopt_child(h, entry, child);
    close_child_pipe_ends(entry.handles);
    enter_kill_list(entry);
    return 1;
}

}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_run_user_image(int32_t h) {
    return guarded("api_run_user_image", [&] {
        Entry *entry = checked_entry("api_run_user_image", h);
        return entry == nullptr ? 0 : run_image(h, *entry);
    });
}

VQ_API int api_resume(int32_t h) {
    return guarded("api_resume", [&] { return resume(h); });
}

VQ_API int api_check_user_image(int32_t h) {
    return guarded("api_check_user_image", [&] { return check_user_image(h); });
}

VQ_API int api_get_image_state_and_exit_code(int32_t h, int32_t *state, int32_t *exit_code) {
    return guarded("api_get_image_state_and_exit_code", [&] { return get_state(h, state, exit_code); });
}

VQ_API int api_get_child_exit_status(int32_t h, int32_t *exit_code) {
    return guarded("api_get_child_exit_status", [&] { return get_exit_status(h, exit_code); });
}

VQ_API int api_check_async_image_status(int32_t h, int32_t *running, int32_t *exit_code) {
    return guarded("api_check_async_image_status", [&] { return check_async(h, running, exit_code); });
}

VQ_API int api_scan_for_ended_child(int32_t *handle) {
    return guarded("api_scan_for_ended_child", [&] {
        int32_t from_the_start = 0;
        return search("api_scan_for_ended_child", handle, &from_the_start, true);
    });
}

VQ_API int api_init_search(void) {
    reset_cursor(&Table::ended_search);
    return 1;
}

VQ_API int api_get_next_ended_child(int32_t *handle) {
    return guarded("api_get_next_ended_child",
                   [&] { return search("api_get_next_ended_child", handle, cursor_of(&Table::ended_search), true); });
}

VQ_API int api_init_active_search(void) {
    reset_cursor(&Table::active_search);
    return 1;
}

VQ_API int api_get_next_active_child(int32_t *handle) {
    return guarded("api_get_next_active_child",
                   [&] { return search("api_get_next_active_child", handle, cursor_of(&Table::active_search), false); });
}

}  // extern "C"
