// The monotonic clock in milliseconds, for the POSIX backend's deadlines
// (waits on pipes, sockets and children); never goes back with the time of day.
#pragma once

#include <cstdint>
#include <ctime>

namespace vq::posix {

inline int64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace vq::posix
