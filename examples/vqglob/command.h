// The post-deploy command: run through the library's process handles under
// the configured user, in a given directory, its output collected.
#ifndef VQGLOB_COMMAND_H
#define VQGLOB_COMMAND_H

#include <cstdint>
#include <string>

namespace vqglob {

// Runs command with the system shell in directory, as user (empty: this
// process's user), waiting for its end. The command text goes into a script
// under scratch_dir, so no quoting of it is needed; standard output and error
// end up in output. 1 when it exited with 0; false with the reason on the
// stack otherwise, *exit_code -1 when it did not start or was killed.
bool run_command(const std::string &command, const std::string &directory, const std::string &user,
                 const std::string &scratch_dir, int32_t &exit_code, std::string &output);

}  // namespace vqglob

#endif
