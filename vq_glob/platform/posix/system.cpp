// POSIX backend: error texts and classes, syslog, process id, file mask, shell.
#include "platform/platform.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int32_t plat_last_error() { return errno; }

int32_t plat_last_socket_error() { return errno; }

namespace {

// strerror_r comes in two forms; these overloads pick up whichever the C
// library declares and return the text either way.
[[maybe_unused]] const char *strerror_result(int rc, const char *buf) { return rc == 0 ? buf : nullptr; }
[[maybe_unused]] const char *strerror_result(const char *text, const char *) { return text; }

}  // namespace

void plat_system_error_text(int32_t code, char *buf, size_t size) {
    if (buf == nullptr || size == 0) {
        return;
    }
    char scratch[256] = {0};
    const char *text = strerror_result(strerror_r(code, scratch, sizeof scratch), scratch);
    bool known = text != nullptr && text[0] != '\0' && std::strncmp(text, "Unknown error", 13) != 0;
    if (known) {
        std::snprintf(buf, size, "%s", text);
    } else {
        std::snprintf(buf, size, "system error %d", static_cast<int>(code));
    }
}

bool plat_is_access_error(int32_t code) { return code == EACCES || code == EPERM || code == EROFS; }

bool plat_is_file_not_found_error(int32_t code) { return code == ENOENT || code == ENOTDIR; }

bool plat_is_failure_error(int32_t code) {
    return code != 0 && code != EAGAIN && code != EWOULDBLOCK && code != EINPROGRESS && code != EINTR;
}

int32_t plat_event_report(const char *source, PlatEventType type, uint32_t event_id, const char *text) {
    int priority = LOG_INFO;
    switch (type) {
    case PlatEventType::success:
    case PlatEventType::information: priority = LOG_INFO; break;
    case PlatEventType::warning: priority = LOG_WARNING; break;
    case PlatEventType::error: priority = LOG_ERR; break;
    }
    // openlog keeps the identity pointer; source names are static texts.
    openlog(source, LOG_PID | LOG_NDELAY, LOG_USER);
    syslog(priority, "[%u] %s", static_cast<unsigned>(event_id), text != nullptr ? text : "");
    closelog();
    return 0;  // syslog reports no failure
}

uint32_t plat_process_id() { return static_cast<uint32_t>(getpid()); }

uint32_t plat_set_log_file_mask() { return static_cast<uint32_t>(umask(S_IWOTH | S_IXOTH)); }

void plat_restore_file_mask(uint32_t previous) { umask(static_cast<mode_t>(previous)); }

int32_t plat_run_shell(const char *command, int *exit_status) {
    errno = 0;
    int status = std::system(command);
    if (status == -1) {
        return errno != 0 ? errno : ECHILD;
    }
    *exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return 0;
}

bool plat_has_process_memory_command() { return true; }

std::string plat_process_memory_command(uint32_t pid, const std::string &output_file) {
    return "ps axO rssize,vsize|grep " + std::to_string(static_cast<int>(pid)) + " >> " + output_file;
}

int32_t plat_system_directory(char *buf, size_t size) {
    if (buf == nullptr) {
        return EINVAL;
    }
    return std::snprintf(buf, size, "/etc") < static_cast<int>(size) ? 0 : ENAMETOOLONG;
}

int32_t plat_truncate_stream(std::FILE *stream) {
    if (stream == nullptr) {
        return EINVAL;
    }
    if (std::fflush(stream) != 0) {
        return errno;
    }
    std::rewind(stream);
    int rc = 0;
    do {
        rc = ftruncate(fileno(stream), 0);
    } while (rc == -1 && errno == EINTR);
    return rc == 0 ? 0 : errno;
}
