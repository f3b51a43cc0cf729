// POSIX backend: the command interpreter that runs a command line.
#include "platform/platform.h"

void plat_command_shell(std::string *program, std::vector<std::string> *leading_arguments) {
    *program = "/bin/sh";
    *leading_arguments = {"-c"};
}
