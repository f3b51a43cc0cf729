// Win32 backend: thread-local storage, the DLL entry point and critical sections.
#include "platform/platform.h"

#include <windows.h>

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(PlatLock::storage), "PlatLock too small");
static_assert(alignof(CRITICAL_SECTION) <= alignof(PlatLock), "PlatLock under-aligned");

namespace {

CRITICAL_SECTION *native(PlatLock *lock) { return reinterpret_cast<CRITICAL_SECTION *>(lock->storage); }

}  // namespace

// The loader sends thread attach and detach for every thread, so the POSIX
// backend's key destructor has no counterpart here.
uint32_t plat_tls_alloc(bool /*runs_thread_detach*/) {
    DWORD index = TlsAlloc();
    return index == TLS_OUT_OF_INDEXES ? kPlatTlsInvalid : static_cast<uint32_t>(index);
}

void *plat_tls_get(uint32_t index) {
    if (index == kPlatTlsInvalid) {
        return nullptr;
    }
    // TlsGetValue resets the last error on success; callers that read an OS
    // error after reaching their per-thread state must not lose it.
    DWORD saved = GetLastError();
    void *value = TlsGetValue(index);
    SetLastError(saved);
    return value;
}

int32_t plat_tls_set(uint32_t index, void *value) {
    if (index == kPlatTlsInvalid) {
        return ERROR_INVALID_PARAMETER;
    }
    return TlsSetValue(index, value) ? 0 : static_cast<int32_t>(GetLastError());
}

void plat_lock_init(PlatLock *lock) { InitializeCriticalSection(native(lock)); }

void plat_lock_enter(PlatLock *lock) { EnterCriticalSection(native(lock)); }

void plat_lock_leave(PlatLock *lock) { LeaveCriticalSection(native(lock)); }

void plat_lock_destroy(PlatLock *lock) { DeleteCriticalSection(native(lock)); }

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    switch (reason) {
    case DLL_PROCESS_ATTACH: return plat_entry_hook(kPlatProcessAttach) ? TRUE : FALSE;
    case DLL_THREAD_ATTACH: return plat_entry_hook(kPlatThreadAttach) ? TRUE : FALSE;
    case DLL_THREAD_DETACH: plat_entry_hook(kPlatThreadDetach); return TRUE;
    case DLL_PROCESS_DETACH: plat_entry_hook(kPlatProcessDetach); return TRUE;
    default: return TRUE;
    }
}
