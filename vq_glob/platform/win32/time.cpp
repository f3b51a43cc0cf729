// Win32 backend: the C runtime's secure time break-downs, which take their
// arguments the other way round from POSIX's re-entrant ones and return an
// error number, and mktime. The runtime keeps its zone state thread-safe on
// its own, so nothing is serialised here.
#include "platform/platform.h"

#include "platform/common/time_range.h"

#include <cerrno>
#include <ctime>

int32_t plat_localtime(int64_t seconds, struct tm *out) {
    std::time_t value = 0;
    if (int32_t error = plat_common::break_down_argument(seconds, out, &value); error != 0) {
        return error;
    }
    return localtime_s(out, &value) == 0 ? 0 : EOVERFLOW;
}

int32_t plat_gmtime(int64_t seconds, struct tm *out) {
    std::time_t value = 0;
    if (int32_t error = plat_common::break_down_argument(seconds, out, &value); error != 0) {
        return error;
    }
    return gmtime_s(out, &value) == 0 ? 0 : EOVERFLOW;
}

int32_t plat_mktime(struct tm *local, int64_t *seconds) {
    if (local == nullptr || seconds == nullptr) {
        return EINVAL;
    }
    std::time_t value = std::mktime(local);
    if (value == static_cast<std::time_t>(-1)) {
        return EOVERFLOW;
    }
    *seconds = static_cast<int64_t>(value);
    return 0;
}
