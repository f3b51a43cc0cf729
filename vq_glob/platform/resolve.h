// The narrow OS interface for names that come from elsewhere: where a name
// really leads once symbolic links are followed, and when the file behind it
// was last written. Not included by platform.h: the modules that check such
// names include it themselves.
#pragma once

#include <cstdint>
#include <string>

// The last-write time of a file in both clocks. unix_seconds is seconds since
// 1970 UTC; nt_time is the Windows FILETIME (100 ns since 1601 UTC), the
// system's own value on Windows and derived from the Unix time elsewhere.
struct PlatWriteTimes {
    int64_t unix_seconds = 0;
    uint64_t nt_time = 0;
};

// True where nt_time is the system's own value (Windows), so that two
// Windows systems compare it without the loss of a conversion.
bool plat_fs_nt_times_are_native();

// The absolute name of an existing name with every symbolic link (on Windows
// every reparse point) followed and "." and ".." resolved: realpath, or
// GetFinalPathNameByHandleW without its "\\?\" prefix. 0, or the error number
// (a missing name, a dangling link, no access).
int32_t plat_fs_real_path(const char *name, std::string *out);

// The last-write times of the file a name leads to (links followed). 0, or the
// error number.
int32_t plat_fs_write_times(const char *name, PlatWriteTimes *out);
