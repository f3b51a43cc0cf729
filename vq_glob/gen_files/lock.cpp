// Lock files: a lock is held by whoever created its file, and released by
// removing the file. Processes that share a configuration file serialise on
// "<name>.lock" this way; it works on every file system, network ones
// included, because it rests on nothing but an exclusive create.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "gen_files/gf_state.h"
#include "vq_glob/err.h"

namespace vq::gf {
namespace {

// Waits between attempts start short, for locks held only for a moment, and
// grow to a ceiling, so that a long wait costs little.
constexpr int32_t kFirstPauseMs = 5;
constexpr int32_t kLongestPauseMs = 100;

bool valid_name(FilesRecord *rec, const char *name, const char *function) {
    if (name == nullptr) {
        err_set_error(ERR_FIL_MEMORY_1727, function);
        if (rec != nullptr) {
            mark_error(*rec, kNoHandle, ERR_FIL_MEMORY_1727, kNoOsError);
        }
        return false;
    }
    if (std::strlen(name) > kPlatMaxFileName) {
        err_set_error(ERR_FIL_VLONGNAME, name);
        if (rec != nullptr) {
            mark_error(*rec, kNoHandle, ERR_FIL_VLONGNAME, kNoOsError);
        }
        return false;
    }
    return true;
}

// The system's text, then code with the name; marked on the thread.
int fail(FilesRecord *rec, PlatIo io, int32_t error, uint32_t code, const char *name) {
    if (rec != nullptr) {
        return raise_os_error(*rec, kNoHandle, io, error, code, name);
    }
    return push_os_error(io, error, code, name);
}

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_lock_wait_file(const char *lock_name, int32_t timeout_ms) {
    FilesRecord *rec = state();
    if (!valid_name(rec, lock_name, "gf_lock_wait_file")) {
        return 0;
    }
    const PlatCrtOpenBits &bits = plat_crt_open_bits();
    const int flags = bits.write_only | bits.create | bits.exclusive | bits.binary;
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
    int32_t pause = kFirstPauseMs;
    for (;;) {
        int fd = -1;
        int32_t error = plat_crt_file_open(lock_name, flags, kDefaultProtection, false, &fd);
        if (error == 0) {
            plat_crt_file_close(fd);
            vq::debug::trace_bit(kTraceBit, "gf_lock_wait_file: took lock <%s>\n", lock_name);
            return 1;
        }
        if (!plat_file_is_exists_error(PlatIo::crt, error)) {
            return fail(rec, PlatIo::crt, error, ERR_FIL_LOCK, lock_name);
        }
        Clock::time_point now = Clock::now();
        if (timeout_ms >= 0 && now >= deadline) {
            vq::debug::trace_bit(kTraceBit, "gf_lock_wait_file: lock <%s> still held after %d ms\n",
                                 lock_name, static_cast<int>(timeout_ms));
            return fail(rec, PlatIo::crt, error, ERR_FIL_LOCK, lock_name);
        }
        if (pause == kFirstPauseMs) {  // once per call, so that a waiter can be seen to wait
            vq::debug::trace_bit(kTraceBit, "gf_lock_wait_file: lock <%s> is held, waiting\n", lock_name);
        }
        auto wait = std::chrono::milliseconds(pause);
        if (timeout_ms >= 0) {
            wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now) +
                                      std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(wait);
        pause = std::min(pause * 2, kLongestPauseMs);
    }
}

VQ_API int gf_unlock_file(const char *lock_name) {
    FilesRecord *rec = state();
    if (!valid_name(rec, lock_name, "gf_unlock_file")) {
        return 0;
    }
    int32_t error = plat_file_remove(lock_name);
    if (error != 0) {
        return fail(rec, PlatIo::native, error, ERR_FIL_DELETE_170B, lock_name);
    }
    vq::debug::trace_bit(kTraceBit, "gf_unlock_file: released lock <%s>\n", lock_name);
    return 1;
}

}  // extern "C"
