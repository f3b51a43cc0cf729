// Running the post-deploy command (see command.h).
#include "command.h"

#include <vector>

#include "files.h"
#include "vq_glob/api.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"

namespace vqglob {
namespace {

#ifdef _WIN32
// cmd runs a file as a batch script only by its extension, and echoes each
// line of it unless told not to.
constexpr const char *kShell = "cmd.exe";
constexpr const char *kShellArgs = "/c ";
constexpr const char *kScriptPrefix = "post-deploy-cmd";
constexpr const char *kScriptSuffix = ".cmd";
constexpr const char *kScriptHead = "@echo off\r\n";
constexpr const char *kLineEnd = "\r\n";
#else
constexpr const char *kShell = "/bin/sh";
constexpr const char *kShellArgs = "";
constexpr const char *kScriptPrefix = "post-deploy-sh";
constexpr const char *kScriptSuffix = "";
constexpr const char *kScriptHead = "";
constexpr const char *kLineEnd = "\n";
#endif

// A new file under dir holding text; its name in name.
bool write_temp(const std::string &dir, const char *prefix, const std::string &text, std::string &name) {
    int32_t h = -1;
    if (gf_allocate_handle(&h) != 1) {
        return false;
    }
    bool ok = gf_create_temp(h, dir.c_str(), prefix) == 1;
    char *created = nullptr;
    if (ok && gf_get_file_name(h, &created) == 1 && created != nullptr) {
        name = created;
    }
    std::string copy = text;  // the write translates its buffer in place
    ok = ok && (copy.empty() || gf_write_file(h, copy.data(), static_cast<int32_t>(copy.size())) == 1);
    ok = gf_close_file(h) == 1 && ok;
    gf_free_handle(h);
    return ok;
}

// The command as a script under dir that the shell runs; its name in name.
bool write_script(const std::string &dir, const std::string &command, std::string &name) {
    std::string made;
    bool ok = write_temp(dir, kScriptPrefix, kScriptHead + command + kLineEnd, made);
    if (!ok || *kScriptSuffix == '\0') {
        name = made;
        return ok;
    }
    name = made + kScriptSuffix;
    if (!rename_path(made, name)) {
        remove_path(made);
        name.clear();
        return false;
    }
    return true;
}

std::string read_text(const std::string &name) {
    int32_t h = -1;
    std::string text;
    if (gf_allocate_handle(&h) != 1) {
        return text;
    }
    if (gf_set_file_name(h, name.c_str()) == 1 && gf_set_file_open_flags(h, GF_READ) == 1 && gf_open_file(h) == 1) {
        std::vector<char> buffer(65536);
        int32_t got = 0;
        while (text.size() < (1u << 20) && gf_read_file(h, buffer.data(), static_cast<int32_t>(buffer.size()), &got) == 1 &&
               got > 0) {
            text.append(buffer.data(), static_cast<size_t>(got));
        }
        gf_close_file(h);
    }
    gf_free_handle(h);
    return text;
}

}  // namespace

bool run_command(const std::string &command, const std::string &directory, const std::string &user,
                 const std::string &scratch_dir, int32_t &exit_code, std::string &output) {
    exit_code = -1;
    std::string script;
    std::string log;
    bool ok = write_script(scratch_dir, command, script) && write_temp(scratch_dir, "post-deploy-log", "", log);
    int32_t h = -1;
    if (ok && api_allocate_handle(&h, 0) == 1) {
        std::string params = std::string(kShellArgs) + "\"" + script + "\"";
        ok = api_set_user_image_name(h, kShell) == 1 && api_set_user_image_params(h, params.c_str()) == 1 &&
             api_set_context(h, user.empty() ? nullptr : user.c_str(), directory.c_str()) == 1 &&
             api_set_log_filename(h, log.c_str()) == 1 && api_set_errlog_filename(h, log.c_str()) == 1 &&
             api_sync_execute_user_image(h) == 1;
        int32_t code = -1;
        if (api_get_child_exit_status(h, &code) == 1) {
            exit_code = code;
        }
        api_free_handle(h);
    } else {
        ok = false;
    }
    if (!log.empty()) {
        output = read_text(log);
    }
    if (!script.empty()) {
        remove_path(script);
    }
    if (!log.empty()) {
        remove_path(log);
    }
    return ok;
}

}  // namespace vqglob
