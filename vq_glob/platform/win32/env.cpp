// Win32 backend of the environment queries: GetUserNameW, the profile
// directory, GetComputerNameExW for the DNS host and domain names and
// RtlGetVersion for the system's version (GetVersionExW, which the
// application manifest can make lie, only when ntdll does not have it).
#include "platform/platform.h"

#include "platform/win32/wide_text.h"

#include <windows.h>

#include <cstdio>
#include <new>
#include <string>

namespace {

int32_t last_error() { return static_cast<int32_t>(GetLastError()); }

// Calls fill(buffer, &size) with a buffer that grows until the value fits,
// as the W functions that report the size they need do.
template <typename Fill>
int32_t grown_wide(Fill fill, std::wstring *out) {
    DWORD size = 256;
    for (;;) {
        out->assign(size, L'\0');
        DWORD room = size;
        if (fill(out->data(), &room)) {
            out->resize(std::wcslen(out->c_str()));
            return 0;
        }
        DWORD error = GetLastError();
        if ((error != ERROR_INSUFFICIENT_BUFFER && error != ERROR_MORE_DATA) || size >= (1u << 20)) {
            return static_cast<int32_t>(error);
        }
        size = room > size ? room : size * 2;
    }
}

int32_t computer_name(COMPUTER_NAME_FORMAT format, std::string *out) {
    try {
        std::wstring wide;
        int32_t error =
            grown_wide([format](wchar_t *buffer, DWORD *size) { return GetComputerNameExW(format, buffer, size); },
                       &wide);
        return error != 0 ? error : vq::win32::utf8_of(wide.c_str(), out);
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

// GetUserProfileDirectoryW lives in userenv.dll, which the library does not
// link: it is loaded for the one call.
int32_t profile_directory(std::wstring *out) {
    using GetProfileDir = BOOL(WINAPI *)(HANDLE, LPWSTR, LPDWORD);
    HMODULE userenv = LoadLibraryW(L"userenv.dll");
    if (userenv == nullptr) {
        return last_error();
    }
    auto get = reinterpret_cast<GetProfileDir>(
        reinterpret_cast<void *>(GetProcAddress(userenv, "GetUserProfileDirectoryW")));
    HANDLE token = nullptr;
    int32_t error = 0;
    if (get == nullptr) {
        error = last_error();
    } else if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) == 0 &&
               OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) == 0) {
        error = last_error();
    } else {
        error = grown_wide([get, token](wchar_t *buffer, DWORD *size) { return get(token, buffer, size); }, out);
        CloseHandle(token);
    }
    FreeLibrary(userenv);
    return error;
}

int32_t environment_value(const wchar_t *name, std::wstring *out) {
    return grown_wide(
        [name](wchar_t *buffer, DWORD *size) {
            DWORD n = GetEnvironmentVariableW(name, buffer, *size);
            if (n == 0) {
                return FALSE;
            }
            if (n >= *size) {
                *size = n;
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return FALSE;
            }
            return TRUE;
        },
        out);
}

}  // namespace

std::string plat_env_user_id() {
    std::string name;
    return plat_env_user_name(&name) == 0 ? name : std::string();
}

int32_t plat_env_user_name(std::string *out) {
    try {
        std::wstring wide;
        int32_t error = grown_wide([](wchar_t *buffer, DWORD *size) { return GetUserNameW(buffer, size); }, &wide);
        return error != 0 ? error : vq::win32::utf8_of(wide.c_str(), out);
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_env_home_dir(std::string *out) {
    try {
        std::wstring wide;
        if (profile_directory(&wide) == 0 && !wide.empty()) {
            return vq::win32::utf8_of(wide.c_str(), out);
        }
        if (environment_value(L"USERPROFILE", &wide) == 0 && !wide.empty()) {
            return vq::win32::utf8_of(wide.c_str(), out);
        }
        return kPlatEnvNoEntry;
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_env_host_name(std::string *out) { return computer_name(ComputerNameDnsHostname, out); }

int32_t plat_env_domain_name(const char * /*host*/, std::string *out) {
    return computer_name(ComputerNameDnsDomain, out);
}

int32_t plat_env_os_version(std::string *out) {
    using RtlGetVersionFn = LONG(WINAPI *)(OSVERSIONINFOW *);
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    auto rtl_get_version = ntdll == nullptr ? nullptr
                                            : reinterpret_cast<RtlGetVersionFn>(reinterpret_cast<void *>(
                                                  GetProcAddress(ntdll, "RtlGetVersion")));
    if (rtl_get_version == nullptr || rtl_get_version(&info) != 0) {
        info = OSVERSIONINFOW{};
        info.dwOSVersionInfoSize = sizeof info;
        if (GetVersionExW(&info) == 0) {
            return last_error();
        }
    }
    char text[96];
    std::snprintf(text, sizeof text, "Windows %lu.%lu.%lu", static_cast<unsigned long>(info.dwMajorVersion),
                  static_cast<unsigned long>(info.dwMinorVersion), static_cast<unsigned long>(info.dwBuildNumber));
    try {
        out->assign(text);
        return 0;
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

void plat_env_error_text(int32_t code, char *buf, size_t size) { plat_system_error_text(code, buf, size); }

namespace {

// The console handle of standard stream 0, 1 or 2, or null when the stream
// is a file, a pipe, absent or no such stream.
HANDLE console_of(int stream) {
    static const DWORD kStdHandles[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    if (stream < 0 || stream > 2) {
        return nullptr;
    }
    HANDLE handle = GetStdHandle(kStdHandles[stream]);
    DWORD mode = 0;
    return handle != nullptr && handle != INVALID_HANDLE_VALUE && GetConsoleMode(handle, &mode) != 0 ? handle
                                                                                                    : nullptr;
}

}  // namespace

bool plat_env_is_terminal(int stream) { return console_of(stream) != nullptr; }

int32_t plat_env_terminal_columns(int stream, int32_t *columns) {
    HANDLE console = console_of(stream);
    if (console == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(console, &info) == 0) {
        return last_error();
    }
    *columns = info.srWindow.Right - info.srWindow.Left + 1;
    return 0;
}
