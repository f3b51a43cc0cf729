// Win32 backend: the command interpreter that runs a command line.
#include "platform/platform.h"

#include <windows.h>

void plat_command_shell(std::string *program, std::vector<std::string> *leading_arguments) {
    // The interpreter named by ComSpec, as the C runtime's system() takes it;
    // a value that is missing, too long or not convertible falls back to the
    // system's own.
    wchar_t wide[MAX_PATH + 1];
    char utf8[4 * MAX_PATH + 1];
    DWORD length = GetEnvironmentVariableW(L"ComSpec", wide, MAX_PATH + 1);
    if (length > 0 && length <= MAX_PATH && plat_wide_to_utf8(wide, utf8, sizeof utf8) == 0) {
        *program = utf8;
    } else {
        *program = "C:\\Windows\\System32\\cmd.exe";
    }
    *leading_arguments = {"/s", "/c"};
}
