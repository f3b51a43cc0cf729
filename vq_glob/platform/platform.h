// The narrow operating-system interface. Modules reach the OS only through
// these functions; posix/ and win32/ each implement all of them under the same
// names. Errors are reported as the platform's own error numbers (errno on
// POSIX, GetLastError/WSAGetLastError on Windows) so that the error module can
// turn them into text in one place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

// ---- Thread-local storage -------------------------------------------------

inline constexpr uint32_t kPlatTlsInvalid = 0xFFFFFFFFu;

// Allocates a thread-local slot; kPlatTlsInvalid on failure. When
// runs_thread_detach is set, the POSIX backend arranges for plat_entry_hook
// (reason kPlatThreadDetach) to run when a thread that holds a value exits;
// on Windows the DLL entry point does this for every thread anyway.
uint32_t plat_tls_alloc(bool runs_thread_detach);
void *plat_tls_get(uint32_t index);
// Stores value in the calling thread's slot: 0, or the system's error
// number (EINVAL for an invalid index).
int32_t plat_tls_set(uint32_t index, void *value);

// ---- Process and thread start/end ------------------------------------------

// Reasons passed to the entry hook, numbered as the Windows loader numbers them.
inline constexpr int kPlatProcessDetach = 0;
inline constexpr int kPlatProcessAttach = 1;
inline constexpr int kPlatThreadAttach = 2;
inline constexpr int kPlatThreadDetach = 3;

// Implemented by the library frame (glob.cpp); the platform's entry point
// (DllMain, or the shared-object constructor/destructor and the TLS key
// destructor) calls it. Returns the loader's verdict: 1 go on, 0 refuse.
int plat_entry_hook(int reason);

// ---- Re-entrant locks ------------------------------------------------------

// Storage for one re-entrant lock (a critical section on Windows, a recursive
// mutex on POSIX). Large enough and aligned for either native object; the
// alignment is no more than malloc gives, so locks may live in heap blocks.
struct alignas(8) PlatLock {
    unsigned char storage[64];
};

void plat_lock_init(PlatLock *lock);
void plat_lock_enter(PlatLock *lock);
void plat_lock_leave(PlatLock *lock);
void plat_lock_destroy(PlatLock *lock);

// ---- Errors ----------------------------------------------------------------

// The calling thread's last system error number (errno / GetLastError).
int32_t plat_last_error();
// The last socket error (errno / WSAGetLastError).
int32_t plat_last_socket_error();

// Writes the system's text for an error number into buf (always
// NUL-terminated when size > 0, trailing line ends removed); a number the
// system has no text for gets a generic "system error N" text.
void plat_system_error_text(int32_t code, char *buf, size_t size);

// Classifiers over the platform's own error numbers.
bool plat_is_access_error(int32_t code);
bool plat_is_file_not_found_error(int32_t code);
// True for numbers that report a failure, false for success and for the
// informational statuses (no more data, pending, more data).
bool plat_is_failure_error(int32_t code);

// ---- Event log -------------------------------------------------------------

enum class PlatEventType { success, information, warning, error };

// Reports one text to the system event log (ReportEventA on Windows, syslog
// on POSIX) under the given source name. 0, or the system error number when
// the source cannot be registered or the report fails.
int32_t plat_event_report(const char *source, PlatEventType type, uint32_t event_id, const char *text);

// ---- Process ---------------------------------------------------------------

uint32_t plat_process_id();

// File-creation mask for log files: owner and group may read and write,
// others only read. Returns the previous mask for plat_restore_file_mask.
uint32_t plat_set_log_file_mask();
void plat_restore_file_mask(uint32_t previous);
// Opens a log file (UTF-8 name of any length) for appending in text mode.
// 0 with *stream set, or the C runtime's error number with *stream null.
int32_t plat_open_log_file(const char *name, std::FILE **stream);

// Runs a command line through the system shell and waits for it: 0 with
// *exit_status set (-1 for a shell that did not exit normally), or the C
// runtime's error number when the shell could not be started.
int32_t plat_run_shell(const char *command, int *exit_status);

// Whether the system has a shell command that lists a process's memory use
// (ps on POSIX; Windows has none).
bool plat_has_process_memory_command();
// That command for process pid, appending its output to output_file, which
// the caller has checked needs no shell quoting. Throws std::bad_alloc.
std::string plat_process_memory_command(uint32_t pid, const std::string &output_file);

// The system directory (GetSystemDirectory on Windows, "/etc" on POSIX),
// NUL-terminated in buf: 0, or the system's error number when it cannot be
// read or does not fit (ERROR_INSUFFICIENT_BUFFER / ENAMETOOLONG).
int32_t plat_system_directory(char *buf, size_t size);

// Truncates an open stream's file to length 0 and rewinds the stream: 0, or
// the C runtime's error number (EINVAL for a null stream).
int32_t plat_truncate_stream(std::FILE *stream);

// ---- Time ------------------------------------------------------------------

struct tm;

// Broken-down local time / UTC of a number of seconds since the epoch
// (localtime_r and gmtime_r on POSIX, localtime_s and gmtime_s on Windows,
// which differ only in name and argument order). 0, or EOVERFLOW when the
// value does not fit the runtime's time_t or the runtime cannot break it down
// (the Windows runtime refuses times before 1970), EINVAL for a null out.
int32_t plat_localtime(int64_t seconds, struct tm *out);
int32_t plat_gmtime(int64_t seconds, struct tm *out);
// mktime: local broken-down time (normalised in place) to seconds. EOVERFLOW
// when the runtime fails, which it reports as -1, so that second (the last
// one of 1969 UTC) cannot be told from a failure.
int32_t plat_mktime(struct tm *local, int64_t *seconds);

// The file and process parts of the interface live in headers of their own.
#include "platform/file.h"
#include "platform/process.h"
#include "platform/fs.h"
#include "platform/dir.h"
#include "platform/conf_io.h"
#include "platform/net.h"
#include "platform/spawn.h"
#include "platform/registry.h"
#include "platform/find.h"
#include "platform/env.h"
