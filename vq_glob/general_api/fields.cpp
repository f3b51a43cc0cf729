// Process handles: setters and getters of the entry fields that describe
// what to run, and copying one handle to another.

#include "general_api/api_state.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

// Runs use on the entry of a valid handle. Setters trace the handle with the
// value under the function's own name.
template <typename Use>
int with_entry(const char *function, int32_t h, Use &&use) {
    return guarded(function, [&] {
        Entry *entry = checked_entry(function, h);
        if (entry == nullptr) {
            return 0;
        }
        use(*entry);
        return 1;
    });
}

int set_text(const char *function, int32_t h, Text Entry::*field, const char *value, const char *trace) {
    return with_entry(function, h, [&](Entry &entry) {
        assign_text(entry.*field, value);
        new_dbg_str(kTraceChannel, trace, h, trace_text(value));
    });
}

int set_number(const char *function, int32_t h, int32_t Entry::*field, int32_t value, const char *trace) {
    return with_entry(function, h, [&](Entry &entry) {
        entry.*field = value;
        new_dbg_str(kTraceChannel, trace, h, static_cast<int>(value));
    });
}

int set_flags(const char *function, int32_t h, uint32_t Entry::*field, uint32_t value, const char *trace) {
    return with_entry(function, h, [&](Entry &entry) {
        entry.*field = value;
        new_dbg_str(kTraceChannel, trace, h, static_cast<unsigned>(value));
    });
}

const char *true_false(bool value) { return value ? "true" : "false"; }

// Copies what describes the run. Texts are copied into a scratch entry first
// and swapped in after, so that running out of memory half-way leaves the
// target as it was (at worst without its old password).
void copy_app_fields(const Entry &from, Entry &to) {
    Entry scratch(to.kind);
    scratch.shr_image_name = from.shr_image_name;
    scratch.process_name = from.process_name;
    scratch.user = from.user;
    scratch.working_directory = from.working_directory;
    scratch.user_image_name = from.user_image_name;
    scratch.user_image_params = from.user_image_params;
    scratch.user_image_queue = from.user_image_queue;
    scratch.log_filename = from.log_filename;
    scratch.errlog_filename = from.errlog_filename;
    scratch.env_vars = from.env_vars;

    // The password is copied in place (the old one wiped first) rather than
    // swapped, so that no copy of it is left behind in the scratch entry.
    to.password.copy_from(from.password);
    to.shr_image_name.swap(scratch.shr_image_name);
    to.process_name.swap(scratch.process_name);
    to.user.swap(scratch.user);
    to.working_directory.swap(scratch.working_directory);
    to.user_image_name.swap(scratch.user_image_name);
    to.user_image_params.swap(scratch.user_image_params);
    to.user_image_queue.swap(scratch.user_image_queue);
    to.log_filename.swap(scratch.log_filename);
    to.errlog_filename.swap(scratch.errlog_filename);
    to.env_vars.swap(scratch.env_vars);

    to.shr_function = from.shr_function;
    to.do_not_change_context = from.do_not_change_context;
    to.image_sec_flags = from.image_sec_flags;
    to.creation_flags = from.creation_flags;
    to.group_id = from.group_id;
    to.user_image_mode = from.user_image_mode;
    to.kill_list_ind = from.kill_list_ind;
    to.inherit_handles = from.inherit_handles;
    to.monitor_routine = from.monitor_routine;
    to.callback_info = from.callback_info;
}

// Copies the parameters oldest first, so that the newest value of each key
// is still the one a lookup on the target finds.
int copy_params(const char *function, int32_t to_handle, const Entry &from, Entry &to) {
    Table &table = record()->table;
    size_t *cursor = table.iterator_handle == to_handle ? &table.iterator_position : nullptr;
    for (size_t i = 0; i < from.params.slot_count(); ++i) {
        const ParamStore::Slot &slot = from.params.slot(i);
        if (slot.key == ParamStore::kFreeKey) {
            continue;
        }
        if (!to.params.add(slot.key, slot.type, slot.value, slot.size, cursor)) {
            raise_memory(function);
            return 0;
        }
    }
    return 1;
}

// Both handles checked; null when either is not valid.
bool checked_pair(const char *function, int32_t from, int32_t to, Entry **source, Entry **target) {
    *source = checked_entry(function, from);
    *target = *source == nullptr ? nullptr : checked_entry(function, to);
    return *target != nullptr;
}

}  // namespace
}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_set_shr_image_name(int32_t h, const char *name) {
    return set_text("api_set_shr_image_name", h, &Entry::shr_image_name, name,
                    "api_set_shr_image_name() - handle is %d , shareable image name is %s\n");
}

VQ_API int api_get_shr_image_name(int32_t h, char **name) {
    return with_entry("api_get_shr_image_name", h, [&](Entry &entry) {
        if (name != nullptr) {
            *name = entry.shr_image_name ? entry.shr_image_name->data() : nullptr;
        }
    });
}

VQ_API int api_set_shr_function(int32_t h, int32_t function) {
    return set_number("api_set_shr_function", h, &Entry::shr_function, function,
                      "api_set_shr_function() - handle is %d , function is %d\n");
}

VQ_API int api_set_process_name(int32_t h, const char *name) {
    return set_text("api_set_process_name", h, &Entry::process_name, name,
                    "api_set_process_name() - handle is %d , process name is %s\n");
}

VQ_API int api_set_context(int32_t h, const char *user, const char *working_directory) {
    return with_entry("api_set_context", h, [&](Entry &entry) {
        Text new_user;
        assign_text(new_user, user);
        assign_text(entry.working_directory, working_directory);
        entry.user.swap(new_user);
        new_dbg_str(kTraceChannel,
                    "api_set_context() - handle is %d , user is %s , working directory is %s\n", h,
                    trace_text(user), trace_text(working_directory));
    }) != 0 && api_set_str_param(h, API_KEY_RUN_AS_USER, user) != 0 ? 1 : 0;
}

VQ_API int api_get_context(int32_t h, char **user, char **working_directory) {
    return with_entry("api_get_context", h, [&](Entry &entry) {
        if (user != nullptr) {
            *user = entry.user ? entry.user->data() : nullptr;
        }
        if (working_directory != nullptr) {
            *working_directory = entry.working_directory ? entry.working_directory->data() : nullptr;
        }
    });
}

VQ_API int api_set_do_not_change_context(int32_t h, int32_t flag) {
    return with_entry("api_set_do_not_change_context", h, [&](Entry &entry) {
        entry.do_not_change_context = flag != 0;
        new_dbg_str(kTraceChannel,
                    "api_set_do_not_change_context() - handle is %d , do not change context is %s\n", h,
                    true_false(flag != 0));
    });
}

VQ_API int api_set_password(int32_t h, const char *password) {
    return with_entry("api_set_password", h, [&](Entry &entry) {
        entry.password.assign(password);
        new_dbg_str(kTraceChannel, "api_set_password() - handle is %d\n", h);
    });
}

VQ_API int api_set_image_sec_flags(int32_t h, uint32_t flags) {
    return set_flags("api_set_image_sec_flags", h, &Entry::image_sec_flags, flags,
                     "api_set_image_sec_flags() - handle is %d , flags are 0x%X\n");
}

VQ_API int api_set_creation_flags(int32_t h, uint32_t flags) {
    return set_flags("api_set_creation_flags", h, &Entry::creation_flags, flags,
                     "api_set_creation_flags() - handle is %d , flags are 0x%X\n");
}

VQ_API int api_set_user_image_name(int32_t h, const char *path) {
    return set_text("api_set_user_image_name", h, &Entry::user_image_name, path,
                    "api_set_user_image_name() - handle is %d , image name is %s\n");
}

VQ_API int api_set_user_image_params(int32_t h, const char *command_line) {
    return set_text("api_set_user_image_params", h, &Entry::user_image_params, command_line,
                    "api_set_user_image_params() - handle is %d , image params are %s\n");
}

VQ_API int api_set_user_image_queue(int32_t h, const char *queue) {
    return set_text("api_set_user_image_queue", h, &Entry::user_image_queue, queue,
                    "api_set_user_image_queue() - handle is %d , image queue is %s\n");
}

VQ_API int api_set_user_image_mode(int32_t h, int32_t mode) {
    return set_number("api_set_user_image_mode", h, &Entry::user_image_mode, mode,
                      "api_set_user_image_mode() - handle is %d , image mode is %d\n");
}

VQ_API int api_set_group_id(int32_t h, int32_t group_id) {
    return set_number("api_set_group_id", h, &Entry::group_id, group_id,
                      "api_set_group_id() - handle is %d , group id is %d\n");
}

VQ_API int api_set_log_filename(int32_t h, const char *path) {
    return set_text("api_set_log_filename", h, &Entry::log_filename, path,
                    "api_set_log_filename() - handle is %d , log file name is %s\n");
}

VQ_API int api_set_errlog_filename(int32_t h, const char *path) {
    return set_text("api_set_errlog_filename", h, &Entry::errlog_filename, path,
                    "api_set_errlog_filename() - handle is %d , error log file name is %s\n");
}

VQ_API int api_set_handle_processed(int32_t h) {
    return with_entry("api_set_handle_processed", h, [&](Entry &entry) {
        entry.processed = true;
        new_dbg_str(kTraceChannel, "api_set_handle_processed() - handle is %d\n", h);
    });
}

VQ_API int api_set_kill_list_ind(int32_t h, int32_t ind) {
    if (ind < API_KILL_LIST_NONE || ind > API_KILL_LIST_NO_RECOVERY) {
        raise_bad_param(h, "api_set_kill_list_ind: unknown kill list indication");
        return 0;
    }
    return with_entry("api_set_kill_list_ind", h, [&](Entry &entry) {
        entry.kill_list_ind = ind;
        new_dbg_str(kTraceChannel, "api_set_kill_list_ind() - handle is %d , kill list indication is %d\n", h,
                    static_cast<int>(ind));
    });
}

VQ_API int api_unset_inherit_handles_ind(int32_t h) {
    return with_entry("api_unset_inherit_handles_ind", h, [&](Entry &entry) {
        entry.inherit_handles = false;
        new_dbg_str(kTraceChannel, "api_unset_inherit_handles_ind() - handle is %d\n", h);
    });
}

VQ_API int api_set_user_monitor_routine(int32_t h, api_monitor_routine routine) {
    return with_entry("api_set_user_monitor_routine", h, [&](Entry &entry) {
        entry.monitor_routine = routine;
        new_dbg_str(kTraceChannel, "api_set_user_monitor_routine() - handle is %d , routine is %s\n", h,
                    routine != nullptr ? "set" : "NULL");
    });
}

VQ_API int api_send_callback_info(int32_t h, void *callback_info) {
    return with_entry("api_send_callback_info", h, [&](Entry &entry) {
        entry.callback_info = callback_info;
        new_dbg_str(kTraceChannel, "api_send_callback_info() - handle is %d\n", h);
    });
}

VQ_API int api_copy_handle_app_params(int32_t from, int32_t to) {
    return guarded("api_copy_handle_app_params", [&] {
        Entry *source = nullptr;
        Entry *target = nullptr;
        if (!checked_pair("api_copy_handle_app_params", from, to, &source, &target)) {
            return 0;
        }
        if (source != target) {
            copy_app_fields(*source, *target);
        }
        return 1;
    });
}

VQ_API int api_copy_handle(int32_t from, int32_t to) {
    return guarded("api_copy_handle", [&] {
        Entry *source = nullptr;
        Entry *target = nullptr;
        if (!checked_pair("api_copy_handle", from, to, &source, &target)) {
            return 0;
        }
        if (source == target) {
            return 1;
        }
        new_dbg_str(kTraceChannel, "api_copy_handle() - copying handle %d to handle %d\n", from, to);
        if (copy_params("api_copy_handle", to, *source, *target) == 0) {
            return 0;
        }
        copy_app_fields(*source, *target);
        return 1;
    });
}

}  // extern "C"
