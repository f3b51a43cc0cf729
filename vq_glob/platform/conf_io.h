// The narrow OS interface, the configuration module's part: putting a fully
// written temporary file in the place of a configuration file, reserving the
// room an in-place rewrite needs, and the system's convention for
// configuration text.
#pragma once

#include <cstdint>

// Replaces target by source in one step, so that a reader sees the old file
// or the new one and never a mix: MoveFileExW with MOVEFILE_REPLACE_EXISTING
// and MOVEFILE_WRITE_THROUGH on Windows; on POSIX source is synced, renamed
// over target, and the directory synced so that the new name is durable.
// 0, or the platform's error number (source is left in place then).
int32_t plat_conf_replace_file(const char *source, const char *target);

// Makes sure that the open file behind the C runtime descriptor fd can hold
// size bytes from its start without asking the device for more room, while
// leaving every byte it holds as it is: posix_fallocate on POSIX (or, where
// the file system cannot allocate, writing the zero bytes past the end),
// FileAllocationInfo or an extended end of file on Windows. When the room
// cannot be had, the file is left at its old length and the native error is
// returned (ENOSPC, ERROR_DISK_FULL...); 0 on success. A file may come out
// longer than it was, up to size bytes, padded with zero bytes.
int32_t plat_conf_reserve(int fd, uint64_t size);

// Whether configuration text ends its lines as the C runtime's text mode
// writes them on this system: "\r\n" on Windows, "\n" on POSIX.
bool plat_conf_text_uses_crlf();

