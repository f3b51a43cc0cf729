// POSIX backend: the re-entrant forms of the C runtime's time break-downs, and
// mktime.
//
// All three consult the process's time-zone state, which the C library
// reloads under its own internal lock (glibc frees and copies the TZ value on
// every call when TZ is unset). Calls from the library are serialised here as
// well, so that the ordering is visible to tools that do not see the C
// library's lock, such as ThreadSanitizer; the lock costs little next to the
// conversions themselves.
#include "platform/platform.h"

#include "platform/common/time_range.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

namespace {

pthread_mutex_t g_zone_lock = PTHREAD_MUTEX_INITIALIZER;

class ZoneLock {
public:
    ZoneLock() { pthread_mutex_lock(&g_zone_lock); }
    ~ZoneLock() { pthread_mutex_unlock(&g_zone_lock); }
    ZoneLock(const ZoneLock &) = delete;
    ZoneLock &operator=(const ZoneLock &) = delete;
};

}  // namespace

int32_t plat_localtime(int64_t seconds, struct tm *out) {
    std::time_t value = 0;
    if (int32_t error = plat_common::break_down_argument(seconds, out, &value); error != 0) {
        return error;
    }
    ZoneLock lock;
    return localtime_r(&value, out) != nullptr ? 0 : EOVERFLOW;
}

int32_t plat_gmtime(int64_t seconds, struct tm *out) {
    std::time_t value = 0;
    if (int32_t error = plat_common::break_down_argument(seconds, out, &value); error != 0) {
        return error;
    }
    ZoneLock lock;
    return gmtime_r(&value, out) != nullptr ? 0 : EOVERFLOW;
}

int32_t plat_mktime(struct tm *local, int64_t *seconds) {
    if (local == nullptr || seconds == nullptr) {
        return EINVAL;
    }
    std::time_t value = 0;
    {
        ZoneLock lock;
        value = std::mktime(local);
    }
    if (value == static_cast<std::time_t>(-1)) {
        return EOVERFLOW;
    }
    *seconds = static_cast<int64_t>(value);
    return 0;
}
