// POSIX backend: thread-local storage, start/end hooks and re-entrant locks.
#include "platform/platform.h"

#include <cerrno>

#include <pthread.h>

#include <new>

static_assert(sizeof(pthread_mutex_t) <= sizeof(PlatLock::storage), "PlatLock too small");
static_assert(alignof(pthread_mutex_t) <= alignof(PlatLock), "PlatLock under-aligned");

namespace {

// A thread that exits still holding the frame's value gets the thread-detach
// hook. POSIX has already cleared the value when a key destructor runs, so the
// value is put back for the duration of the hook (the frame reads it through
// plat_tls_get) and cleared afterwards, so the destructor does not run again.
pthread_key_t g_detach_key;
bool g_detach_key_set = false;

void run_thread_detach(void *value) {
    if (!g_detach_key_set || value == nullptr) {
        return;
    }
    pthread_setspecific(g_detach_key, value);
    plat_entry_hook(kPlatThreadDetach);
    pthread_setspecific(g_detach_key, nullptr);
}

pthread_mutex_t *native(PlatLock *lock) {
    return reinterpret_cast<pthread_mutex_t *>(lock->storage);
}

}  // namespace

uint32_t plat_tls_alloc(bool runs_thread_detach) {
    pthread_key_t key;
    if (pthread_key_create(&key, runs_thread_detach ? run_thread_detach : nullptr) != 0) {
        return kPlatTlsInvalid;
    }
    if (runs_thread_detach) {
        g_detach_key = key;
        g_detach_key_set = true;
    }
    return static_cast<uint32_t>(key);
}

void *plat_tls_get(uint32_t index) {
    if (index == kPlatTlsInvalid) {
        return nullptr;
    }
    return pthread_getspecific(static_cast<pthread_key_t>(index));
}

int32_t plat_tls_set(uint32_t index, void *value) {
    if (index == kPlatTlsInvalid) {
        return EINVAL;
    }
    return pthread_setspecific(static_cast<pthread_key_t>(index), value);
}

void plat_lock_init(PlatLock *lock) {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(native(lock), &attr);
    pthread_mutexattr_destroy(&attr);
}

void plat_lock_enter(PlatLock *lock) { pthread_mutex_lock(native(lock)); }

void plat_lock_leave(PlatLock *lock) { pthread_mutex_unlock(native(lock)); }

void plat_lock_destroy(PlatLock *lock) { pthread_mutex_destroy(native(lock)); }

// The shared object's load and unload play the part of the Windows loader's
// process attach and detach. Threads other than the loading one get their
// block lazily on their first call; there is no thread-attach notification.
__attribute__((constructor)) static void vq_glob_on_load() { plat_entry_hook(kPlatProcessAttach); }

__attribute__((destructor)) static void vq_glob_on_unload() { plat_entry_hook(kPlatProcessDetach); }
