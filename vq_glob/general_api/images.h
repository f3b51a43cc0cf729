// What the sources that run images share: following a child to its end,
// recording the end on its entry, killing it, and the process-wide kill list.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "general_api/api_state.h"

namespace vq::api {

// Reserved parameter keys of a handle that runs images.
inline constexpr int32_t kKeyRunAsUser = API_KEY_RUN_AS_USER;
inline constexpr int32_t kKeyExitCode = API_KEY_EXIT_CODE;
inline constexpr int32_t kKeyScanMarker = API_KEY_SCAN_MARKER;

// The image's name for messages and traces.
inline const char *image_name_of(const Entry &entry) { return trace_text(entry.user_image_name); }

// ---- Following a child (images.cpp) -----------------------------------------------

// True while the entry's child has started and its end is not yet recorded.
inline bool child_running(const Entry &entry) { return entry.status == EntryStatus::active; }

// The child of a running entry as the platform layer knows it.
PlatChild child_of(const Entry &entry);

enum class EndWait { running, ended, failed };

// Waits up to timeout_ms (negative: without limit, 0: only looks) for the
// entry's child and records its end when it came. failed leaves WAIT on the
// stack. The entry must be running.
EndWait wait_for_end(int32_t handle, Entry &entry, int32_t timeout_ms);

// Splits a command line at blanks (spaces, tabs); a double-quoted run
// belongs to the argument it stands in, without its quotes. False for an
// unbalanced quote.
bool split_command_line(const char *line, std::vector<std::string> *arguments);

// Starts the handle's image (the body of api_run_user_image).
int run_image(int32_t handle, Entry &entry);

// ---- Killing and the kill list (kill_list.cpp) ----------------------------------------

enum class KillListCommand { add, add_without_recovery, remove };

// Applies one command to the process-wide kill list: adding records the
// child's pid, creation time and image; removing forgets the pid. False
// (traced by the caller) when the child is gone before it could be recorded
// or the list cannot be saved.
bool handle_kill_list(KillListCommand command, uint32_t pid, const char *image);

// Ends a running entry's child and reaps it within 2 seconds, recording the
// end (killed, -1). False with TERMPRC or WAIT on the stack.
bool kill_and_reap(int32_t handle, Entry &entry);

}  // namespace vq::api
