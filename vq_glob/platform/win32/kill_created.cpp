// Win32 backend: ending a process that need not be a child, by pid and
// creation time together.
#include "platform/platform.h"

#include <windows.h>

namespace {

bool has_ended(HANDLE process) { return WaitForSingleObject(process, 0) == WAIT_OBJECT_0; }

int32_t terminate_if_created(HANDLE process, uint32_t pid, uint64_t creation_time) {
    // While the handle is open the system gives the pid to no other process,
    // so the time read by pid is the time of the process held.
    uint64_t now_created = 0;
    int32_t error = plat_process_creation_time(pid, &now_created);
    if (error != 0) {
        return error;
    }
    if (now_created != creation_time || has_ended(process)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (TerminateProcess(process, 0xFFFFFFFFu)) {
        return 0;
    }
    error = static_cast<int32_t>(GetLastError());
    return has_ended(process) ? ERROR_INVALID_PARAMETER : error;
}

}  // namespace

int32_t plat_process_kill_if_created(uint32_t pid, uint64_t creation_time) {
    HANDLE process = OpenProcess(PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (process == nullptr) {
        return static_cast<int32_t>(GetLastError());
    }
    int32_t error = terminate_if_created(process, pid, creation_time);
    CloseHandle(process);
    return error;
}
