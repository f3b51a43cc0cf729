// Win32 backend, process part: pipes with time-outs and process creation times.
#include "platform/platform.h"

#include <windows.h>

namespace {

HANDLE native(PlatHandle handle) { return reinterpret_cast<HANDLE>(handle); }

PlatHandle portable(HANDLE handle) { return reinterpret_cast<PlatHandle>(handle); }

bool is_broken_pipe(DWORD code) { return code == ERROR_BROKEN_PIPE || code == ERROR_NO_DATA; }

// A failed look or read: a pipe whose writers have all gone is closed,
// anything else fails with the system's reason in *error.
PlatWait read_failure(int32_t *error) {
    DWORD code = GetLastError();
    if (is_broken_pipe(code)) {
        return PlatWait::closed;
    }
    *error = static_cast<int32_t>(code);
    return PlatWait::failed;
}

}  // namespace

int32_t last_error() { return static_cast<int32_t>(GetLastError()); }

int32_t plat_pipe_create(PlatHandle *read_end, PlatHandle *write_end) {
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof attributes;
    attributes.bInheritHandle = FALSE;
    HANDLE r = nullptr;
    HANDLE w = nullptr;
    if (!CreatePipe(&r, &w, &attributes, 0)) {
        return last_error();
    }
    *read_end = portable(r);
    *write_end = portable(w);
    return 0;
}

int32_t plat_handle_duplicate(PlatHandle handle, PlatHandle *copy) {
    HANDLE self = GetCurrentProcess();
    HANDLE duplicate = nullptr;
    if (!DuplicateHandle(self, native(handle), self, &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        return last_error();
    }
    *copy = portable(duplicate);
    return 0;
}

int32_t plat_handle_close(PlatHandle handle) { return CloseHandle(native(handle)) ? 0 : last_error(); }

int32_t plat_pipe_write(PlatHandle write_end, const void *data, size_t size) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    while (size > 0) {
        DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD written = 0;
        if (!WriteFile(native(write_end), bytes, chunk, &written, nullptr)) {
            return last_error();
        }
        bytes += written;
        size -= written;
    }
    return 0;
}

// Anonymous pipes cannot be waited on or read with a time-out (they support
// no overlapped I/O), so the wait looks at the pipe with PeekNamedPipe and
// sleeps a little between looks; ReadFile then never blocks.
PlatWait plat_pipe_read(PlatHandle read_end, void *buffer, size_t size, int32_t timeout_ms,
                        size_t *received, int32_t *error) {
    *received = 0;
    *error = 0;
    const ULONGLONG start = GetTickCount64();
    for (;;) {
        DWORD available = 0;
        if (!PeekNamedPipe(native(read_end), nullptr, 0, nullptr, &available, nullptr)) {
            return read_failure(error);
        }
        if (available > 0) {
            DWORD want = size < available ? static_cast<DWORD>(size) : available;
            DWORD got = 0;
            if (!ReadFile(native(read_end), buffer, want, &got, nullptr)) {
                return read_failure(error);
            }
            *received = got;
            return PlatWait::ready;
        }
        if (timeout_ms >= 0 && GetTickCount64() - start >= static_cast<ULONGLONG>(timeout_ms)) {
            return PlatWait::timed_out;
        }
        Sleep(1);
    }
}

int32_t plat_process_creation_time(uint32_t pid, uint64_t *out) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (process == nullptr) {
        return last_error();
    }
    FILETIME created{};
    FILETIME exited{};
    FILETIME kernel{};
    FILETIME user{};
    BOOL ok = GetProcessTimes(process, &created, &exited, &kernel, &user);
    DWORD error = GetLastError();
    CloseHandle(process);
    if (!ok) {
        return static_cast<int32_t>(error);
    }
    *out = (static_cast<uint64_t>(created.dwHighDateTime) << 32) | created.dwLowDateTime;
    return 0;
}
