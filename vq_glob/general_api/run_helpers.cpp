// Running images in one call: synchronously, asynchronously, with a
// time-out, through the system's shell, and writing an exit code down.
#include <cstdio>
#include <string>
#include <vector>

#include "general_api/images.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

// Judges a recorded end: 1 for exit code 0, else 0 with the reason.
int judge_end(int32_t h, const Entry &entry) {
    if (entry.image_state == kImageKilled) {
        raise(h, ERR_EXE_IMGUNEXPTERM, image_name_of(entry));
        return 0;
    }
    if (entry.exit_code != 0) {
        raise(h, ERR_EXE_USRIMGFAIL, image_name_of(entry), static_cast<int>(entry.exit_code));
        return 0;
    }
    return 1;
}

// Runs the handle's image and waits up to timeout_ms (negative: without
// limit) for its end; a child still running then is killed and reaped.
int execute(const char *function, int32_t h, int32_t timeout_ms) {
    Entry *entry = checked_entry(function, h);
    if (entry == nullptr || run_image(h, *entry) == 0) {
        return 0;
    }
    switch (wait_for_end(h, *entry, timeout_ms)) {
        case EndWait::ended:
            return judge_end(h, *entry);
        case EndWait::failed:
            return 0;
        case EndWait::running:
            break;
    }
    new_dbg_str(kTraceChannel, "%s() - handle %d timed out after %d ms, killing pid %u\n", function,
                static_cast<int>(h), static_cast<int>(timeout_ms), static_cast<unsigned>(entry->pid));
    if (kill_and_reap(h, *entry)) {
        raise(h, ERR_EXE_TIMEOUT, image_name_of(*entry));
    }
    return 0;
}

// A handle of its own for a one-call run, freed (its child ended and
// reaped) whatever happens.
class OwnHandle {
public:
    explicit OwnHandle(const char *function) : handle_(allocate_entry(function, 0)) {}
    ~OwnHandle() {
        if (handle_ != kNoHandle) {
            api_free_handle(handle_);
        }
    }
    OwnHandle(const OwnHandle &) = delete;
    OwnHandle &operator=(const OwnHandle &) = delete;

    [[nodiscard]] int32_t handle() const { return handle_; }
    [[nodiscard]] Entry *entry() const {
        return handle_ == kNoHandle ? nullptr : record()->table.entries[static_cast<size_t>(handle_)].get();
    }

private:
    int32_t handle_;
};

// Runs image with arguments under the caller's identity and waits; the
// exit code goes to *exit_code whenever the child ended. A command_line is
// what a Windows child gets instead of the one quoted from the arguments.
int run_local(const char *function, const char *image, std::vector<std::string> arguments, int32_t *exit_code,
              const std::string *command_line = nullptr) {
    OwnHandle own(function);
    Entry *entry = own.entry();
    if (entry == nullptr) {
        return 0;
    }
    entry->user_image_name = image;
    entry->user_image_arguments = std::move(arguments);
    if (command_line != nullptr) {
        entry->user_image_params = *command_line;
    }
    int result = execute(function, own.handle(), -1);
    if (exit_code != nullptr && entry->status == EntryStatus::ended) {
        *exit_code = entry->exit_code;
    }
    return result;
}

int write_exit_file(int32_t h, const char *path) {
    Entry *entry = checked_entry("api_write_exit_file", h);
    if (entry == nullptr) {
        return 0;
    }
    if (path == nullptr) {
        raise_bad_param(h, "api_write_exit_file: path is NULL");
        return 0;
    }
    if (entry->status != EntryStatus::ended) {
        raise(h, ERR_EXE_PARNOTFOUND);
        return 0;
    }
    char line[16];
    int length = std::snprintf(line, sizeof line, "%d\n", static_cast<int>(entry->exit_code));
    PlatNativeOpen how;
    how.access = kPlatAccessWrite;
    how.disposition = PlatDisposition::create_always;
    intptr_t file = kPlatNoFile;
    int32_t error = plat_native_file_open(path, how, 0644, &file);
    size_t done = 0;
    if (error == 0) {
        error = plat_native_file_write(file, line, static_cast<size_t>(length), &done);
        if (error == 0 && done != static_cast<size_t>(length)) {
            error = plat_file_no_space(PlatIo::native);
        }
        int32_t close_error = plat_native_file_close(file);
        error = error != 0 ? error : close_error;
    }
    if (error != 0) {
        std::string what = "error writing exit file <" + std::string(path) + ">";
        raise_system(h, error, ERR_EXE_GENERAL, what.c_str());
        return 0;
    }
    return 1;
}

}  // namespace
}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_sync_execute_user_image(int32_t h) {
    return guarded("api_sync_execute_user_image", [&] { return execute("api_sync_execute_user_image", h, -1); });
}

VQ_API int api_async_execute_user_image(int32_t h) {
    return guarded("api_async_execute_user_image", [&] {
        Entry *entry = checked_entry("api_async_execute_user_image", h);
        return entry == nullptr ? 0 : run_image(h, *entry);
    });
}

VQ_API int api_sync_execute_user_image_with_timeout(int32_t h, int32_t timeout_seconds) {
    if (timeout_seconds < 1 || timeout_seconds > INT32_MAX / 1000) {
        raise_bad_param(h, "api_sync_execute_user_image_with_timeout: timeout_seconds");
        return 0;
    }
    return guarded("api_sync_execute_user_image_with_timeout", [&] {
        return execute("api_sync_execute_user_image_with_timeout", h, timeout_seconds * 1000);
    });
}

VQ_API int api_system_command(const char *command, int32_t *exit_code) {
    if (command == nullptr) {
        raise_bad_param(kNoHandle, "api_system_command: command is NULL");
        return 0;
    }
    return guarded("api_system_command", [&] {
        std::string shell;
        std::vector<std::string> arguments;
        plat_command_shell(&shell, &arguments);
        // The interpreter reads its own command line; the command goes to it
        // in one pair of double quotes, which it drops, and is otherwise left
        // as the caller wrote it.
        std::string line = "\"" + shell + "\"";
        for (const std::string &argument : arguments) {
            line += " " + argument;
        }
        line += " \"" + std::string(command) + "\"";
        arguments.emplace_back(command);
        return run_local("api_system_command", shell.c_str(), std::move(arguments), exit_code, &line);
    });
}

VQ_API int api_run_local_image(const char *image, const char *command_line, int32_t *exit_code) {
    if (image == nullptr) {
        raise_bad_param(kNoHandle, "api_run_local_image: image is NULL");
        return 0;
    }
    return guarded("api_run_local_image", [&] {
        std::vector<std::string> arguments;
        if (command_line != nullptr && !split_command_line(command_line, &arguments)) {
            raise_bad_param(kNoHandle, "api_run_local_image: unbalanced double quote in the command line");
            return 0;
        }
        return run_local("api_run_local_image", image, std::move(arguments), exit_code);
    });
}

VQ_API int api_write_exit_file(int32_t h, const char *path) {
    return guarded("api_write_exit_file", [&] { return write_exit_file(h, path); });
}

}  // extern "C"
