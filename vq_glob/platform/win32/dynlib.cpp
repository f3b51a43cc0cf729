// Win32 backend of the dynamic-library interface: LoadLibraryW,
// GetProcAddress, FreeLibrary.
#include "platform/dynlib.h"

#include <windows.h>

#include <string>

#include "platform/platform.h"

namespace {

void copy_reason(DWORD error, char *why, size_t why_size) {
    if (why == nullptr || why_size == 0) {
        return;
    }
    plat_system_error_text(static_cast<int32_t>(error), why, why_size);
}

bool wide_text(const char *text, std::wstring &out) {
    int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (n <= 0) {
        return false;
    }
    out.assign(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, out.data(), n);
    out.resize(static_cast<size_t>(n - 1));
    return true;
}

}  // namespace

PlatDynlib *plat_dynlib_open(const char *name, char *why, size_t why_size) {
    std::wstring wide;
    if (!wide_text(name, wide)) {
        copy_reason(GetLastError(), why, why_size);
        return nullptr;
    }
    // A library that is missing, or that lacks a dependency, must fail
    // quietly instead of raising the system's error dialog box.
    DWORD previous_mode = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previous_mode);
    HMODULE lib = LoadLibraryW(wide.c_str());
    DWORD error = GetLastError();
    SetThreadErrorMode(previous_mode, nullptr);
    if (lib == nullptr) {
        copy_reason(error, why, why_size);
    }
    return reinterpret_cast<PlatDynlib *>(lib);
}

PlatDynlibFunction plat_dynlib_function(PlatDynlib *lib, const char *name) {
    if (lib == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<PlatDynlibFunction>(GetProcAddress(reinterpret_cast<HMODULE>(lib), name));
}

void plat_dynlib_close(PlatDynlib *lib) {
    if (lib != nullptr) {
        FreeLibrary(reinterpret_cast<HMODULE>(lib));
    }
}
