// The kill list and killing children.
//
// The kill list names every running child that the process must not leave
// behind: an in-memory list shared by all threads under one lock, with pid,
// creation time and image of each child. Optionally it is saved after every
// change to a configuration file (the kill-list table's section), so that a
// successor of a process that died can end what its predecessor left; a
// listed process is only killed while its pid and creation time both still
// match, never a newer process that reuses the pid.
#include <cstring>
#include <string>
#include <vector>

#include "general_api/images.h"
#include "vq_glob/conf.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

constexpr int32_t kKillListField = 0x2;  // "Kill List Unique Pids And Image Names"

// How long a kill waits for the child's end before it gives up.
constexpr int32_t kKillWaitMs = 2000;

const char *command_name(KillListCommand command) {
    switch (command) {
        case KillListCommand::add:
            return "KILL_LIST_COMMAND_ADD";
        case KillListCommand::add_without_recovery:
            return "KILL_LIST_COMMAND_ADD_WITHOUT_RECOVERY";
        case KillListCommand::remove:
            return "KILL_LIST_COMMAND_REMOVE";
    }
    return "?";
}

struct Listed {
    uint32_t pid;
    uint64_t created;
    std::string image;
    bool recover;
};

struct KillList {
    KillList() { plat_lock_init(&lock); }
    PlatLock lock;
    std::vector<Listed> children;
    std::string file;  // empty: not saved
};

// Never destroyed: children may still be listed while the process ends.
KillList &kill_list() {
    static auto *list = new KillList;
    return *list;
}

class Locked {
public:
    explicit Locked(KillList &list) : list_(list) { plat_lock_enter(&list_.lock); }
    ~Locked() { plat_lock_leave(&list_.lock); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

private:
    KillList &list_;
};

// Keeps the caller's error stack as it was: saving the list is a side job
// whose failure is only traced.
class KeptErrorStack {
public:
    KeptErrorStack() {
        void *entries = nullptr;
        if (err_get_stack_desc(&entries, &size_, &depth_) == 1 && entries != nullptr && size_ > 0) {
            auto *bytes = static_cast<const char *>(entries);
            saved_.assign(bytes, bytes + size_);
        }
    }
    ~KeptErrorStack() {
        if (saved_.empty()) {
            err_clear_error_stack();
        } else {
            err_set_stack_desc(saved_.data(), size_, depth_);
        }
    }
    KeptErrorStack(const KeptErrorStack &) = delete;
    KeptErrorStack &operator=(const KeptErrorStack &) = delete;

private:
    std::vector<char> saved_;
    int32_t size_ = 0;
    int32_t depth_ = 0;
};

// The lines of the file: "<unique id> <image>" for each child to recover.
std::vector<std::string> file_lines(const KillList &list) {
    std::vector<std::string> lines;
    for (const Listed &child : list.children) {
        if (child.recover) {
            char id[API_UNIQUE_ID_SIZE];
            format_unique_id(child.pid, child.created, id);
            lines.push_back(std::string(id) + " " + child.image);
        }
    }
    return lines;
}

// Writes the list to its file; the configuration module's errors stay on
// the stack. Called under the lock.
bool save(const KillList &list) {
    if (list.file.empty()) {
        return true;
    }
    std::vector<std::string> lines = file_lines(list);
    std::vector<char *> pointers;
    for (std::string &line : lines) {
        pointers.push_back(line.data());
    }
    pointers.push_back(nullptr);
    void *conf = nullptr;
    bool saved = conf_allocate_handle(&conf) == 1 &&
                 conf_set_table(conf, vq_get_kill_list_cf_table(), vq_get_kill_list_cf_keys_number()) == 1 &&
                 conf_set_ml_string_field_by_const(conf, kKillListField, pointers.data()) == 1 &&
                 conf_write(conf, list.file.c_str()) == 1;
    if (conf != nullptr) {
        conf_free_handle(&conf);
    }
    return saved;
}

bool listed(const KillList &list, uint32_t pid) {
    for (const Listed &child : list.children) {
        if (child.pid == pid) {
            return true;
        }
    }
    return false;
}

bool apply(KillList &list, KillListCommand command, uint32_t pid, const char *image) {
    if (command == KillListCommand::remove) {
        std::erase_if(list.children, [&](const Listed &child) { return child.pid == pid; });
        return true;
    }
    uint64_t created = 0;
    if (plat_process_creation_time(pid, &created) != 0) {
        return false;  // gone already: nothing to kill later
    }
    list.children.push_back(Listed{pid, created, image != nullptr ? image : "", command == KillListCommand::add});
    return true;
}

// Kills one process of a kill-list file line when it is still the process
// the line names; true when it was killed.
bool kill_recorded(const KillList &list, const char *line) {
    uint32_t pid = 0;
    uint64_t created = 0;
    if (!read_unique_id(line, &pid, &created)) {
        new_dbg_str(kTraceChannel, "api_kill_listed_processes() - line <%s> names no process, skipped\n", line);
        return false;
    }
    if (listed(list, pid) || pid == plat_process_id()) {
        return false;  // ours, and running
    }
    if (plat_process_kill_if_created(pid, created) != 0) {
        new_dbg_str(kTraceChannel, "api_kill_listed_processes() - process %u is gone or another one now\n",
                    static_cast<unsigned>(pid));
        return false;
    }
    new_dbg_str(kTraceChannel, "api_kill_listed_processes() - killed process %u (%s)\n", static_cast<unsigned>(pid),
                line + API_UNIQUE_ID_SIZE - 1);
    return true;
}

int kill_listed(const char *path, int32_t *killed) {
    if (path == nullptr) {
        raise_bad_param(kNoHandle, "api_kill_listed_processes: path is NULL");
        return 0;
    }
    int32_t count = 0;
    PlatFsStatus status;
    if (plat_fs_status(path, &status) == 0) {
        void *conf = nullptr;
        char **lines = nullptr;
        if (conf_allocate_handle(&conf) != 1 ||
            conf_set_table(conf, vq_get_kill_list_cf_table(), vq_get_kill_list_cf_keys_number()) != 1 ||
            conf_read_file_to_handle(conf, path) != 1) {
            if (conf != nullptr) {
                conf_free_handle(&conf);
            }
            return 0;
        }
        KillList &list = kill_list();
        Locked hold(list);
        if (conf_get_ml_string_field_by_const(conf, kKillListField, &lines) == 1 && lines != nullptr) {
            for (char **line = lines; *line != nullptr; ++line) {
                count += kill_recorded(list, *line) ? 1 : 0;
            }
        }
        conf_free_handle(&conf);
        if (list.file == path) {
            KeptErrorStack keep;
            save(list);
        }
    }
    if (killed != nullptr) {
        *killed = count;
    }
    return 1;
}

int set_file(const char *path) {
    KillList &list = kill_list();
    Locked hold(list);
    list.file = path != nullptr ? path : "";
    new_dbg_str(kTraceChannel, "api_set_kill_list_file() - kill list file is %s\n", trace_text(path));
    return save(list) ? 1 : 0;
}

// The kill of api_kill_process_with_protect.
int kill_process(int32_t h, int32_t mode, int32_t *was_running) {
    if (was_running != nullptr) {
        *was_running = 0;
    }
    if (mode != API_KILL_ONLY && mode != API_KILL_AND_DELETE) {
        raise_bad_param(h, "api_kill_process: unknown kill mode");
        return 0;
    }
    Table *table = nullptr;
    Entry *entry = checked_entry("api_kill_process", h, &table);
    if (entry == nullptr) {
        return 0;
    }
    if (entry->status == EntryStatus::attached) {
        raise_bad_param(h, "api_kill_process: the handle names a process it did not start");
        return 0;
    }
    if (!child_running(*entry)) {
        if (mode == API_KILL_AND_DELETE) {
            new_dbg_str(kTraceChannel,
                        "api_kill_process() - image not running, but kill mode was kill_and_delete - deleting entry...\n");
            release_entry(*table, h);
        }
        return 1;
    }
    if (!kill_and_reap(h, *entry)) {
        return 0;
    }
    if (was_running != nullptr) {
        *was_running = 1;
    }
    if (mode == API_KILL_AND_DELETE) {
        release_entry(*table, h);
    }
    return 1;
}

// The hooks api_free_handle calls.
bool kill_child_hook(int32_t handle, Entry &entry) {
    return !child_running(entry) || kill_and_reap(handle, entry);
}

bool leave_kill_list_hook(int32_t, Entry &entry) {
    return entry.kill_list_ind == API_KILL_LIST_NONE || entry.pid == 0 ||
           handle_kill_list(KillListCommand::remove, entry.pid, image_name_of(entry));
}

// Installed while the library loads, before any thread can free a handle.
[[maybe_unused]] const bool kHooksInstalled = [] {
    g_child_hooks.kill_child = kill_child_hook;
    g_child_hooks.leave_kill_list = leave_kill_list_hook;
    return true;
}();

}  // namespace

bool handle_kill_list(KillListCommand command, uint32_t pid, const char *image) {
    new_dbg_str(kTraceChannel, "api_handle_kill_list() - %s , pid is %u , image is %s\n", command_name(command),
                static_cast<unsigned>(pid), trace_text(image));
    KillList &list = kill_list();
    Locked hold(list);
    if (!apply(list, command, pid, image)) {
        return false;
    }
    if (command == KillListCommand::add_without_recovery) {
        return true;  // the file does not change
    }
    KeptErrorStack keep;
    return save(list);
}

bool kill_and_reap(int32_t h, Entry &entry) {
    int32_t error = plat_child_kill(child_of(entry));
    if (error == 0) {
        new_dbg_str(kTraceChannel,
                    "api_kill_process() - going to retry killing process...(maximum waiting for 2 seconds)\n");
        switch (wait_for_end(h, entry, kKillWaitMs)) {
            case EndWait::ended:
                new_dbg_str(kTraceChannel, "Process now terminated normally, return...\n");
                return true;
            case EndWait::failed:
                return false;
            case EndWait::running:
                break;
        }
    } else {
        vq::raise::system(vq::raise::Report::add, error);
    }
    raise(h, ERR_EXE_TERMPRC, image_name_of(entry), static_cast<int>(entry.pid));
    return false;
}

}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_kill_process(int32_t h, int32_t mode) {
    return guarded("api_kill_process", [&] { return kill_process(h, mode, nullptr); });
}

VQ_API int api_kill_process_with_protect(int32_t h, int32_t mode, int32_t *was_running) {
    return guarded("api_kill_process_with_protect", [&] { return kill_process(h, mode, was_running); });
}

VQ_API int api_set_kill_list_file(const char *path) {
    return guarded("api_set_kill_list_file", [&] { return set_file(path); });
}

VQ_API int api_kill_listed_processes(const char *path, int32_t *killed) {
    return guarded("api_kill_listed_processes", [&] { return kill_listed(path, killed); });
}

VQ_API int32_t api_get_kill_list_size(void) {
    KillList &list = kill_list();
    Locked hold(list);
    return static_cast<int32_t>(list.children.size());
}

}  // extern "C"
