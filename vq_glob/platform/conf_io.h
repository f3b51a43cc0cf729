// The narrow OS interface, the configuration module's part: putting a fully
// written temporary file in the place of a configuration file.
#pragma once

#include <cstdint>

// Replaces target by source in one step, so that a reader sees the old file
// or the new one and never a mix: MoveFileExW with MOVEFILE_REPLACE_EXISTING
// and MOVEFILE_WRITE_THROUGH on Windows; on POSIX source is synced, renamed
// over target, and the directory synced so that the new name is durable.
// 0, or the platform's error number (source is left in place then).
int32_t plat_conf_replace_file(const char *source, const char *target);
