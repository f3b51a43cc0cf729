// The narrow OS interface, process part: included by platform.h.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Native handles and pipes ----------------------------------------------

// A native handle: a file descriptor on POSIX, a HANDLE on Windows. Both fit
// an intptr_t, which is also how the process module hands them to callers.
using PlatHandle = intptr_t;
inline constexpr PlatHandle kPlatNoHandle = -1;

// Every function returns 0 or the system's error number (errno, or
// GetLastError() on Windows), so that callers never depend on the thread's
// last error surviving until they read it.

// Creates an anonymous pipe. Neither end is inherited by child processes
// (close-on-exec / not inheritable); whoever starts a child decides which
// ends it passes on.
int32_t plat_pipe_create(PlatHandle *read_end, PlatHandle *write_end);

// A second, independently closable handle on the same pipe end or file;
// not inherited by child processes.
int32_t plat_handle_duplicate(PlatHandle handle, PlatHandle *copy);

// Closes a handle. The handle must not be used again, whatever the result.
int32_t plat_handle_close(PlatHandle handle);

// Writes all size bytes, blocking while the pipe is full. A pipe whose
// reading end has gone fails with the system's broken-pipe error and never
// raises a signal in the process.
int32_t plat_pipe_write(PlatHandle write_end, const void *data, size_t size);

enum class PlatWait {
    ready,      // *received > 0 bytes were read
    timed_out,  // nothing arrived in time
    closed,     // every writer has closed the pipe and nothing is left to read
    failed      // *error tells why
};

// Waits at most timeout_ms milliseconds (a negative value waits for as long
// as it takes, 0 only looks) for data on the pipe, then reads what is there,
// up to size bytes. *error is the system's error number for failed, else 0.
PlatWait plat_pipe_read(PlatHandle read_end, void *buffer, size_t size, int32_t timeout_ms, size_t *received,
                        int32_t *error);

// ---- Processes -------------------------------------------------------------

// The creation time of a running process as one 64-bit number: the FILETIME
// of GetProcessTimes on Windows, the start time in clock ticks since boot on
// POSIX (field 22 of /proc/<pid>/stat). The number only ever identifies the
// process together with its id; it is not a time of day. Fails (ESRCH or
// the system's error) when there is no such process or it cannot be read.
int32_t plat_process_creation_time(uint32_t pid, uint64_t *out);
