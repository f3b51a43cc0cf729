// Win32 backend: the C runtime's secure time break-downs, which take their
// arguments the other way round from POSIX's re-entrant ones and return an
// error number, and mktime. The runtime keeps its zone state thread-safe on
// its own, so nothing is serialised here.
#include "platform/platform.h"

#include <ctime>
#include <limits>

namespace {

bool fits_time_t(int64_t seconds) {
    return seconds >= std::numeric_limits<std::time_t>::min() &&
           seconds <= std::numeric_limits<std::time_t>::max();
}

}  // namespace

bool plat_localtime(int64_t seconds, struct tm *out) {
    if (out == nullptr || !fits_time_t(seconds)) {
        return false;
    }
    auto value = static_cast<std::time_t>(seconds);
    return localtime_s(out, &value) == 0;
}

bool plat_gmtime(int64_t seconds, struct tm *out) {
    if (out == nullptr || !fits_time_t(seconds)) {
        return false;
    }
    auto value = static_cast<std::time_t>(seconds);
    return gmtime_s(out, &value) == 0;
}

bool plat_mktime(struct tm *local, int64_t *seconds) {
    if (local == nullptr || seconds == nullptr) {
        return false;
    }
    std::time_t value = std::mktime(local);
    if (value == static_cast<std::time_t>(-1)) {
        return false;
    }
    *seconds = static_cast<int64_t>(value);
    return true;
}
