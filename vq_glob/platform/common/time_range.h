// What the time conversions of both backends share: the check that a number
// of seconds is a time_t of this runtime, which is 64 bits wide on Linux and
// mingw-w64 but need not be everywhere.
#pragma once

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <limits>

namespace plat_common {

// The value as the runtime's time_t; false when it does not fit.
inline bool to_time_t(int64_t seconds, std::time_t *value) {
    if (seconds < std::numeric_limits<std::time_t>::min() || seconds > std::numeric_limits<std::time_t>::max()) {
        return false;
    }
    *value = static_cast<std::time_t>(seconds);
    return true;
}

// The checks every break-down makes before calling the runtime: 0 with
// *value set, EINVAL for a null out, EOVERFLOW for seconds beyond time_t.
inline int32_t break_down_argument(int64_t seconds, const struct tm *out, std::time_t *value) {
    if (out == nullptr) {
        return EINVAL;
    }
    return to_time_t(seconds, value) ? 0 : EOVERFLOW;
}

}  // namespace plat_common
