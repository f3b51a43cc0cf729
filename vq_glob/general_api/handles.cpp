// Process handles: the per-thread table of process descriptions, allocating
// and freeing entries, and the errors the module records on the table.
#include <cstdio>
#include <cstring>

#include "general_api/api_state.h"
#include "internal/frame.h"
#include "vq_glob/dbg.h"

namespace vq::api {

using Frame = frame::ModuleFrame<ApiRecord, frame::kSlotProcesses>;

ChildHooks g_child_hooks;

// ---- Secrets and native handles -----------------------------------------------

void SecretText::wipe() {
    volatile char *bytes = text_.data();
    for (size_t i = 0; i < text_.size(); ++i) {
        bytes[i] = 0;
    }
    text_.clear();
    set_ = false;
}

void SecretText::assign(const char *text) {
    // Wiped first, so that a longer text reallocating the buffer never frees
    // memory that still holds the old one.
    wipe();
    if (text != nullptr) {
        text_.assign(text);
        set_ = true;
    }
}

void close_end(PipeEnd &end, int line) {
    if (end.handle == kPlatNoHandle) {
        return;
    }
    int32_t error = plat_handle_close(end.handle);
    if (error != 0) {
        char reason[256];
        plat_system_error_text(error, reason, sizeof reason);
        new_dbg_str(kTraceChannel, "CLOSE_HANDLE() Error - handle is <%s>, line is <%d>, error - <%s>\n",
                    end.name, line, reason);
    }
    end.handle = kPlatNoHandle;
}

bool EntryHandles::has_pipes() const {
    return pipe1_0.handle != kPlatNoHandle || pipe1_1.handle != kPlatNoHandle ||
           pipe2_0.handle != kPlatNoHandle || pipe2_1.handle != kPlatNoHandle;
}

void EntryHandles::close_pipes() {
    close_end(pipe1_0);
    close_end(pipe1_1);
    close_end(pipe2_0);
    close_end(pipe2_1);
}

void EntryHandles::close_all() {
    close_pipes();
    close_end(std_output);
    close_end(std_error);
    close_end(process);
    close_end(thread);
}

// ---- Errors ---------------------------------------------------------------------

void note_last_error(int32_t handle, uint32_t code, int32_t system_error) {
    ApiRecord *r = record();
    if (r == nullptr) {
        return;
    }
    r->last.handle = handle;
    r->last.code = code;
    r->last.system_code = system_error;
    try {
        r->last.text = err_get_error_text(0);
        r->last.system_text = system_error != 0 ? err_get_error_text(1) : "";
    } catch (...) {
        r->last.text.clear();
        r->last.system_text.clear();
    }
}

void raise_bad_param(int32_t handle, const char *what) { raise(handle, ERR_EXE_BADPAR, what); }

void raise_memory(const char *function, int line) {
    raise::memory(raise::Report::add, function, kModule, line);
    note_last_error(kNoHandle, ERR_GEN_MEMORY);
}

// ---- The table --------------------------------------------------------------------

ApiRecord *record() { return Frame::get(); }

namespace {

void set_up_table(Table &table) {
    table.entries.clear();
    table.entries.resize(kTableGrowth);
    table.entries[0] = std::make_unique<Entry>(0);  // reserved, never handed out
    table.in_use = 0;
    table.initialised = true;
}

void clean_table(Table &table) {
    // Moved out first: an entry's clean-up must not find a half-destroyed table.
    std::vector<std::unique_ptr<Entry>> entries;
    entries.swap(table.entries);
    table = Table{};
    entries.clear();
}

int32_t first_free(const Table &table, size_t from) {
    for (size_t h = from; h < table.entries.size(); ++h) {
        if (table.entries[h] == nullptr) {
            return static_cast<int32_t>(h);
        }
    }
    return kNoHandle;
}

bool in_range(const Table &table, int32_t handle) {
    return table.initialised && handle >= 1 && static_cast<size_t>(handle) < table.entries.size();
}

// A child the entry started that may still hold system resources.
bool runs_child(const Entry &entry) {
    return entry.status == EntryStatus::active || entry.status == EntryStatus::zombie;
}

// Ends the entry's child before the entry goes, unless it was set not to be
// killed. False when the kill failed: the handle must then stay, so that a
// later free can try again.
bool end_child(int32_t handle, Entry &entry) {
    if (!runs_child(entry)) {
        return true;
    }
    if (!entry.kill_list_ind) {
        new_dbg_str(kTraceChannel,
                    "api_free_handle() - handle %d which runs process %d was explicitly set to dont kill\n",
                    handle, static_cast<int>(entry.pid));
        return true;
    }
    new_dbg_str(kTraceChannel,
                "api_free_handle() - handle belongs to an active/zombie process %d, killing it !\n",
                static_cast<int>(entry.pid));
    if (g_child_hooks.kill_child != nullptr && !g_child_hooks.kill_child(handle, entry)) {
        new_dbg_str(kTraceChannel,
                    "api_free_handle() - failed in kill so not freeing handle so will try again\n");
        return false;
    }
    return true;
}

void leave_kill_list(int32_t handle, Entry &entry) {
    if (entry.status == EntryStatus::described || entry.status == EntryStatus::attached ||
        g_child_hooks.leave_kill_list == nullptr) {
        return;
    }
    if (!g_child_hooks.leave_kill_list(handle, entry)) {
        new_dbg_str(kTraceChannel,
                    "api_free_handle() - failed removing handle %d from the kill list, ignored\n", handle);
    }
}

int free_handle(int32_t handle) {
    ApiRecord *r = record();
    if (r == nullptr || !in_range(r->table, handle)) {
        new_dbg_str(kTraceChannel, "api_free_handle() - handle is out of range...\n");
        raise_bad_param(handle, "api_free_handle: handle is out of range");
        return 0;
    }
    Entry *entry = r->table.entries[static_cast<size_t>(handle)].get();
    if (entry == nullptr) {
        new_dbg_str(kTraceChannel, "api_free_handle() - handle was already free...\n");
        return 1;
    }
    if (!end_child(handle, *entry)) {
        return 0;
    }
    leave_kill_list(handle, *entry);
    release_entry(r->table, handle);
    return 1;
}

}  // namespace

Table *ready_table(const char *function) {
    ApiRecord *r = record();
    if (r == nullptr) {
        raise_memory(function);
        return nullptr;
    }
    if (!r->table.initialised) {
        set_up_table(r->table);
    }
    return &r->table;
}

Entry *checked_entry(const char *function, int32_t handle, Table **table) {
    ApiRecord *r = record();
    if (r == nullptr || !in_range(r->table, handle)) {
        char what[160];
        std::snprintf(what, sizeof what, "%s: handle %d is out of range", function, static_cast<int>(handle));
        raise_bad_param(handle, what);
        return nullptr;
    }
    Entry *entry = r->table.entries[static_cast<size_t>(handle)].get();
    if (entry == nullptr) {
        raise(handle, ERR_EXE_NOTACTIVE);
    } else if (table != nullptr) {
        *table = &r->table;
    }
    return entry;
}

int32_t allocate_entry(const char *function, int32_t kind) {
    Table *table = ready_table(function);
    if (table == nullptr) {
        return kNoHandle;
    }
    int32_t handle = first_free(*table, 1);
    if (handle == kNoHandle) {
        size_t old_size = table->entries.size();
        table->entries.resize(old_size + kTableGrowth);
        handle = first_free(*table, old_size);
    }
    if (handle == kNoHandle) {
        raise(kNoHandle, ERR_EXE_INCNSNCY);
        return kNoHandle;
    }
    table->entries[static_cast<size_t>(handle)] = std::make_unique<Entry>(kind);
    ++table->in_use;
    new_dbg_str(kTraceChannel, "in ga_init_entry() - entry is %d\n", handle);
    return handle;
}

void release_entry(Table &table, int32_t handle) {
    // The handle is free before its entry's clean-up runs.
    std::unique_ptr<Entry> entry = std::move(table.entries[static_cast<size_t>(handle)]);
    --table.in_use;
    if (table.iterator_handle == handle) {
        table.iterator_handle = kNoHandle;
    }
    entry.reset();
    if (table.in_use == 0) {
        clean_table(table);
    }
}

void assign_text(Text &field, const char *value) {
    if (value == nullptr) {
        field.reset();
    } else {
        field = value;
    }
}

}  // namespace vq::api

namespace vq::frame {
constinit const Module kProcessesModule = ModuleFrame<api::ApiRecord, kSlotProcesses>::module("api");
}  // namespace vq::frame

using namespace vq::api;

extern "C" {

VQ_API int api_init(void) {
    return guarded("api_init", [] {
        ApiRecord *r = record();
        if (r != nullptr && r->table.initialised) {
            new_dbg_str(kTraceChannel, "api_init() - already initialized...\n");
            return 1;
        }
        return ready_table("api_init") != nullptr ? 1 : 0;
    });
}

VQ_API int api_clean(void) {
    ApiRecord *r = record();
    if (r != nullptr) {
        clean_table(r->table);
    }
    return 1;
}

VQ_API int api_allocate_handle(int32_t *handle, int32_t kind) {
    if (handle == nullptr) {
        raise_bad_param(kNoHandle, "api_allocate_handle: handle address is NULL");
        return 0;
    }
    *handle = kNoHandle;
    return guarded("api_allocate_handle", [&] {
        *handle = allocate_entry("api_allocate_handle", kind);
        return *handle == kNoHandle ? 0 : 1;
    });
}

VQ_API int api_free_handle(int32_t handle) {
    return guarded("api_free_handle", [&] { return free_handle(handle); });
}

VQ_API uint32_t api_get_last_error_code(void) {
    ApiRecord *r = record();
    return r == nullptr ? 0 : r->last.code;
}

VQ_API const char *api_get_last_error_msg(void) {
    ApiRecord *r = record();
    return r == nullptr ? "" : r->last.text.c_str();
}

VQ_API int32_t api_get_last_system_error_code(void) {
    ApiRecord *r = record();
    return r == nullptr ? 0 : r->last.system_code;
}

VQ_API const char *api_get_last_system_error_msg(void) {
    ApiRecord *r = record();
    return r == nullptr ? "" : r->last.system_text.c_str();
}

}  // extern "C"
