// Setting and removing environment variables of the test process, the same
// way on POSIX and Windows.
#pragma once

#include <stdlib.h>

namespace vq::test {

// Sets name to value, or removes it for a NULL value (on Windows an empty
// value removes it too).
inline void set_env(const char *name, const char *value) {
#ifdef _WIN32
    _putenv_s(name, value != nullptr ? value : "");
#else
    if (value == nullptr) {
        unsetenv(name);
    } else {
        setenv(name, value, 1);
    }
#endif
}

}  // namespace vq::test
