// Win32 backend: FormatMessage texts, error classes, the event log, process
// id, file mask and shell.
#include "platform/platform.h"

#include <winsock2.h>
#include <windows.h>

#include <io.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int32_t plat_last_error() { return static_cast<int32_t>(GetLastError()); }

int32_t plat_last_socket_error() { return static_cast<int32_t>(WSAGetLastError()); }

void plat_system_error_text(int32_t code, char *buf, size_t size) {
    if (buf == nullptr || size == 0) {
        return;
    }
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             static_cast<DWORD>(code), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), buf,
                             static_cast<DWORD>(size), nullptr);
    if (n == 0) {
        std::snprintf(buf, size, "system error %d", static_cast<int>(code));
        return;
    }
    // FormatMessage ends its texts with "\r\n"; the error stack adds its own.
    size_t len = std::strlen(buf);
    while (len > 0 && (buf[len - 1] == '\n' || buf[len - 1] == '\r' || buf[len - 1] == ' ')) {
        buf[--len] = '\0';
    }
}

bool plat_is_access_error(int32_t code) {
    return code == ERROR_ACCESS_DENIED || code == ERROR_SHARING_VIOLATION || code == ERROR_LOCK_VIOLATION ||
           code == ERROR_WRITE_PROTECT;
}

bool plat_is_file_not_found_error(int32_t code) {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_BAD_NETPATH ||
           code == ERROR_INVALID_DRIVE;
}

bool plat_is_failure_error(int32_t code) {
    return code != ERROR_SUCCESS && code != ERROR_NO_MORE_FILES && code != ERROR_MORE_DATA &&
           code != ERROR_IO_PENDING && code != WSAEWOULDBLOCK;
}

int32_t plat_event_report(const char *source, PlatEventType type, uint32_t event_id, const char *text) {
    HANDLE handle = RegisterEventSourceA(nullptr, source);
    if (handle == nullptr) {
        return static_cast<int32_t>(GetLastError());
    }
    WORD event_type = EVENTLOG_INFORMATION_TYPE;
    switch (type) {
    case PlatEventType::success: event_type = EVENTLOG_SUCCESS; break;
    case PlatEventType::information: event_type = EVENTLOG_INFORMATION_TYPE; break;
    case PlatEventType::warning: event_type = EVENTLOG_WARNING_TYPE; break;
    case PlatEventType::error: event_type = EVENTLOG_ERROR_TYPE; break;
    }
    const char *strings[1] = {text != nullptr ? text : ""};
    BOOL ok = ReportEventA(handle, event_type, 0, event_id, nullptr, 1, 0, strings, nullptr);
    // Taken before DeregisterEventSource can overwrite it.
    DWORD report_error = ok ? ERROR_SUCCESS : GetLastError();
    DeregisterEventSource(handle);
    return static_cast<int32_t>(report_error);
}

uint32_t plat_process_id() { return static_cast<uint32_t>(GetCurrentProcessId()); }

uint32_t plat_set_log_file_mask() { return static_cast<uint32_t>(_umask(0)); }

void plat_restore_file_mask(uint32_t previous) { _umask(static_cast<int>(previous)); }

int32_t plat_run_shell(const char *command, int *exit_status) {
    errno = 0;
    int status = std::system(command);
    if (status == -1 && errno != 0) {
        return errno;
    }
    *exit_status = status;
    return 0;
}

// No ps here: the memory figures of a process are not a shell command away.
bool plat_has_process_memory_command() { return false; }

std::string plat_process_memory_command(uint32_t /*pid*/, const std::string & /*output_file*/) { return {}; }

int32_t plat_system_directory(char *buf, size_t size) {
    if (buf == nullptr || size == 0) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    UINT n = GetSystemDirectoryA(buf, static_cast<UINT>(size));
    if (n == 0) {
        return static_cast<int32_t>(GetLastError());
    }
    return n < size ? 0 : ERROR_INSUFFICIENT_BUFFER;
}

int32_t plat_truncate_stream(std::FILE *stream) {
    if (stream == nullptr) {
        return EINVAL;
    }
    if (std::fflush(stream) != 0) {
        return errno;
    }
    std::rewind(stream);
    return _chsize(_fileno(stream), 0) == 0 ? 0 : errno;
}
