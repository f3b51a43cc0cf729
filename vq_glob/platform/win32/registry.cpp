// Win32 backend of the registry part: the system's registry through the
// wide Reg* calls. Key paths and value names arrive in UTF-8; string values
// are UTF-8 on the library's side and UTF-16 in the registry, converted
// unit for unit over their whole length so that embedded and terminating
// NULs survive the round trip.
#include "platform/registry.h"

#include <windows.h>

#include <climits>
#include <cstring>
#include <vector>

#include "platform/fs.h"

namespace {

HKEY hive(bool user) { return user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE; }

// A NUL-terminated UTF-8 text in UTF-16; UTF-8 never needs more UTF-16
// units than it has bytes.
int32_t wide_text(const char *text, std::wstring *out) {
    out->assign(std::strlen(text) + 1, L'\0');
    int32_t error = plat_utf8_to_wide(text, out->data(), out->size());
    if (error == 0) {
        out->resize(std::wcslen(out->c_str()));
    }
    return error;
}

bool is_string_type(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// Converts length bytes of UTF-8, NULs included, to UTF-16.
int32_t utf16_of(const char *bytes, size_t length, std::wstring *out) {
    out->clear();
    if (length == 0) {
        return 0;
    }
    if (length > INT_MAX) {
        return ERROR_INVALID_PARAMETER;
    }
    int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, static_cast<int>(length), nullptr, 0);
    if (n <= 0) {
        return static_cast<int32_t>(GetLastError());
    }
    out->assign(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, static_cast<int>(length), out->data(), n);
    return 0;
}

// Converts count UTF-16 units, NULs included, to UTF-8.
int32_t utf8_of(const wchar_t *units, size_t count, std::string *out) {
    out->clear();
    if (count == 0) {
        return 0;
    }
    int n = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, units, static_cast<int>(count), nullptr, 0, nullptr,
                                nullptr);
    if (n <= 0) {
        return static_cast<int32_t>(GetLastError());
    }
    out->assign(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, units, static_cast<int>(count), out->data(), n, nullptr,
                        nullptr);
    return 0;
}

// The wide forms of a key path and a value name.
int32_t wide_names(const char *key, const char *value_name, std::wstring *wkey, std::wstring *wname) {
    int32_t error = wide_text(key, wkey);
    return error != 0 ? error : wide_text(value_name, wname);
}

// Closes the key on every way out.
class OpenKey {
public:
    OpenKey() = default;
    ~OpenKey() {
        if (key_ != nullptr) {
            RegCloseKey(key_);
        }
    }
    OpenKey(const OpenKey &) = delete;
    OpenKey &operator=(const OpenKey &) = delete;
    HKEY *out() { return &key_; }
    HKEY get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

// Queries the value into bytes, again with a larger buffer when it grew
// between the length query and the read.
LONG query(HKEY key, const wchar_t *name, std::vector<BYTE> *bytes, DWORD *type) {
    for (;;) {
        DWORD size = 0;
        LONG rc = RegQueryValueExW(key, name, nullptr, type, nullptr, &size);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        bytes->assign(size, 0);
        if (size == 0) {
            return ERROR_SUCCESS;
        }
        rc = RegQueryValueExW(key, name, nullptr, type, bytes->data(), &size);
        if (rc != ERROR_MORE_DATA) {
            bytes->resize(size);
            return rc;
        }
    }
}

}  // namespace

bool plat_reg_is_native() { return true; }

int32_t plat_reg_get_value(bool user, const char *key, const char *value_name, std::string *data, uint32_t *type,
                           PlatRegStep *failed) {
    *failed = PlatRegStep::open_key;
    std::wstring wkey;
    std::wstring wname;
    int32_t error = wide_names(key, value_name, &wkey, &wname);
    OpenKey opened;
    if (error == 0) {
        error = RegOpenKeyExW(hive(user), wkey.c_str(), 0, KEY_QUERY_VALUE, opened.out());
    }
    if (error != 0) {
        return error;
    }
    *failed = PlatRegStep::query_value;
    std::vector<BYTE> bytes;
    DWORD value_type = REG_NONE;
    error = query(opened.get(), wname.c_str(), &bytes, &value_type);
    if (error != 0) {
        return error;
    }
    *type = value_type;
    if (is_string_type(value_type)) {
        std::wstring units(bytes.size() / sizeof(wchar_t), L'\0');
        std::memcpy(units.data(), bytes.data(), units.size() * sizeof(wchar_t));
        return utf8_of(units.data(), units.size(), data);
    }
    data->assign(bytes.begin(), bytes.end());
    return 0;
}

int32_t plat_reg_set_value(bool user, const char *key, const char *value_name, const void *data, size_t length,
                           uint32_t type, bool volatile_key, PlatRegStep *failed) {
    *failed = PlatRegStep::create_key;
    std::wstring wkey;
    std::wstring wname;
    int32_t error = wide_names(key, value_name, &wkey, &wname);
    OpenKey created;
    if (error == 0) {
        DWORD options = volatile_key ? REG_OPTION_VOLATILE : REG_OPTION_NON_VOLATILE;
        error = RegCreateKeyExW(hive(user), wkey.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr,
                                created.out(), nullptr);
    }
    if (error != 0) {
        return error;
    }
    *failed = PlatRegStep::set_value;
    const BYTE *bytes = static_cast<const BYTE *>(data);
    size_t size = length;
    std::wstring units;
    if (is_string_type(type)) {
        error = utf16_of(static_cast<const char *>(data), length, &units);
        size = units.size() * sizeof(wchar_t);
        // RegSetValueExW counts a terminator the caller "forgot" when the
        // unit just past the data is NUL; a string passed without one must
        // keep its length, so that unit is never NUL.
        units.push_back(L'.');
        bytes = reinterpret_cast<const BYTE *>(units.data());
    }
    if (error == 0 && size > MAXDWORD) {
        error = ERROR_INVALID_PARAMETER;
    }
    if (error == 0) {
        error = RegSetValueExW(created.get(), wname.c_str(), 0, type, size == 0 ? nullptr : bytes,
                               static_cast<DWORD>(size));
    }
    if (error != 0) {
        return error;
    }
    *failed = PlatRegStep::flush_key;
    return RegFlushKey(created.get());
}

int32_t plat_reg_delete_value(bool user, const char *key, const char *value_name, PlatRegStep *failed) {
    *failed = PlatRegStep::open_key;
    std::wstring wkey;
    std::wstring wname;
    int32_t error = wide_names(key, value_name, &wkey, &wname);
    OpenKey opened;
    if (error == 0) {
        error = RegOpenKeyExW(hive(user), wkey.c_str(), 0, KEY_SET_VALUE, opened.out());
    }
    if (error != 0) {
        return error;
    }
    *failed = PlatRegStep::delete_value;
    return RegDeleteValueW(opened.get(), wname.c_str());
}

const char *plat_reg_default_machine_file() { return ""; }

const char *plat_reg_user_file_name() { return ".vq_glob_registry"; }

bool plat_reg_environment(const char *name, std::string *value) {
    std::wstring wname;
    if (wide_text(name, &wname) != 0) {
        return false;
    }
    DWORD needed = GetEnvironmentVariableW(wname.c_str(), nullptr, 0);
    if (needed == 0) {
        return false;
    }
    std::wstring text(needed, L'\0');
    DWORD got = GetEnvironmentVariableW(wname.c_str(), text.data(), needed);
    if (got == 0 || got >= needed) {
        return false;
    }
    return utf8_of(text.data(), got, value) == 0;
}

std::string plat_reg_boot_id() { return std::string(); }
