// POSIX backend of resolve.h: realpath and stat.
#include "platform/resolve.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

// Seconds between 1601-01-01 and 1970-01-01, the offset of the two clocks.
constexpr int64_t kNtEpochOffset = 11644473600;
constexpr int64_t kNtTicksPerSecond = 10000000;

}  // namespace

bool plat_fs_nt_times_are_native() { return false; }

int32_t plat_fs_real_path(const char *name, std::string *out) {
    char *resolved = ::realpath(name, nullptr);
    if (resolved == nullptr) {
        return errno;
    }
    int32_t error = 0;
    try {
        out->assign(resolved);
    } catch (...) {
        error = ENOMEM;
    }
    std::free(resolved);
    return error;
}

int32_t plat_fs_write_times(const char *name, PlatWriteTimes *out) {
    struct stat st;
    if (::stat(name, &st) != 0) {
        return errno;
    }
    out->unix_seconds = static_cast<int64_t>(st.st_mtime);
    const int64_t ticks = (out->unix_seconds + kNtEpochOffset) * kNtTicksPerSecond + st.st_mtim.tv_nsec / 100;
    out->nt_time = ticks < 0 ? 0 : static_cast<uint64_t>(ticks);
    return 0;
}
