// Windows backend: the name of a volume's file system (GetVolumeInformationW
// on the root the caller formed, such as "C:\"), which decides the filter's
// recycle-bin rules.
#include "platform/platform.h"

#include <windows.h>

#include <string>

int32_t plat_fs_volume_name(const char *path, std::string *name) {
    if (path == nullptr || name == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    wchar_t root[MAX_PATH + 1];
    if (int32_t error = plat_utf8_to_wide(path, root, MAX_PATH + 1); error != 0) {
        return error;
    }
    wchar_t file_system[MAX_PATH + 1] = L"";
    if (!GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, nullptr, file_system, MAX_PATH + 1)) {
        return static_cast<int32_t>(GetLastError());
    }
    char utf8[4 * (MAX_PATH + 1)];
    if (int32_t error = plat_wide_to_utf8(file_system, utf8, sizeof utf8); error != 0) {
        return error;
    }
    *name = utf8;
    return 0;
}

bool plat_fs_has_system_dir_rules() { return true; }
