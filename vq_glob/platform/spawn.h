// The narrow OS interface, child-process part: starting a program, under the
// caller's identity or another user's, and following it to its end. Included
// by platform.h.
//
// POSIX: a password is checked through PAM before anything is started; the
// child then takes the user's groups (initgroups), group and user id, in that
// order and each checked, before it changes to the working directory and
// executes the image; a failed step ends the child before exec with the step
// and the error number reported to the parent through a close-on-exec pipe.
// Windows: LogonUserA (batch, then network), DuplicateTokenEx, impersonation
// while the child is created with CreateProcessAsUserW, RevertToSelf.
//
// POSIX details:
// - PAM service: "vq_glob" (/etc/pam.d/vq_glob; without that file PAM uses
//   its "other" stack). The environment variable VQ_GLOB_PAM_SERVICE names
//   another service; it is ignored in a set-user-id or set-group-id process
//   and when it holds a '/'.
// - Group memberships are read in the parent (getgrouplist, what initgroups
//   reads) and set in the child with setgroups, so that the child calls
//   nothing that allocates between fork and exec.
// - After the switch the child checks its real and effective ids and that it
//   cannot take root back; any mismatch ends it before exec.
// - An image without a '/' is looked up in the caller's PATH, as execvp
//   does; a relative image or PATH entry is taken from the caller's working
//   directory, not the child's.
// - A child started suspended is stopped (SIGSTOP) after the identity switch
//   and the change of directory, just before exec; a failing exec after
//   plat_child_resume ends it with exit code 127.
// - The child keeps the caller's standard input.
// - A caller that sets SIGCHLD to SIG_IGN has its children reaped by the
//   system; plat_child_wait then fails with ECHILD.
//
// Windows details: there is no identity that may switch without a password,
// so a user other than the caller's own needs one. Starts are serialised,
// as each marks the handles its child inherits for the time of the creation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// By its own directory, so that this header also serves a program that
// compiles a backend source without the library's include path.
#include "process.h"

// Who a child runs as. A null user: the caller's own identity. Without a
// password only a caller that may switch identities by itself (root on
// POSIX) can run as another user.
struct PlatIdentity {
    const char *user = nullptr;
    const char *domain = nullptr;    // Windows logon domain; ignored on POSIX
    const char *password = nullptr;  // never copied, logged or passed on
};

struct PlatSpawnRequest {
    const char *image = nullptr;                      // the program file
    std::vector<std::string> arguments;               // argv[1..]
    // Windows: the command line given to CreateProcess as it is, in place of
    // the one quoted from image and arguments (for programs such as cmd.exe
    // that read their command line by rules of their own). POSIX: ignored.
    const char *command_line = nullptr;
    const char *working_directory = nullptr;          // null: the caller's
    // "NAME=value" entries set in the child over the caller's environment (an
    // entry replaces the caller's variable of the same name). A child under
    // another user also gets that user's HOME, USER, LOGNAME and SHELL, before
    // these entries, which win.
    std::vector<std::string> environment;
    PlatHandle std_output = kPlatNoHandle;            // the child's standard output, or the caller's
    PlatHandle std_error = kPlatNoHandle;             // the child's standard error, or the caller's
    std::vector<PlatHandle> inherited;                // further handles only this child inherits, same numbers
    bool suspended = false;                           // start stopped (resumed with plat_child_resume)
    uint32_t creation_flags = 0;                      // Windows creation flags, passed through
    const char *desktop = nullptr;                    // Windows desktop of a child under another user
    PlatIdentity identity;
    // The caller has passed identity through plat_authenticate already, so
    // plat_spawn does not check the password again (POSIX: the user is still
    // looked up, and the kernel still decides the switch; Windows: the logon
    // runs anyway, as it gives the token the child runs under).
    bool authenticated = false;
};

// The step of plat_spawn that failed, so that the caller can name it.
enum class PlatSpawnStage {
    none,
    authenticate,       // wrong password, unknown user, or no right to switch
    identity,           // initgroups/setgid/setuid or the token steps
    working_directory,  // chdir
    execute,            // exec / CreateProcess of the image
    create              // fork, pipes, or anything else before the child ran
};

struct PlatChild {
    uint32_t pid = 0;
    PlatHandle process = kPlatNoHandle;  // Windows process handle; POSIX: a pidfd when available
    PlatHandle thread = kPlatNoHandle;   // Windows main thread handle
};

// What the Windows logon steps reported, so that the caller can trace them:
// the system error of the failed batch logon and of the failed network logon,
// 0 for a step that succeeded or was not tried. Stays 0 on POSIX.
struct PlatLogonErrors {
    int32_t batch = 0;
    int32_t network = 0;
};

// Checks that the caller may run a child as identity.user, without starting
// anything: with a password, the password is checked (PAM / LogonUserA);
// without one, only the caller's own user or a caller that may switch
// identities by itself (root) passes. 0, or the system's error number: a
// wrong password, an unknown user or a missing right is the platform's
// access-denied (EPERM / ERROR_LOGON_FAILURE or what the logon said). A null
// user is the caller's own and passes. logon_errors may be null.
int32_t plat_authenticate(const PlatIdentity &identity, PlatLogonErrors *logon_errors = nullptr);

// Starts the child. 0 with *child filled, or the system's error number with
// *stage naming the step that failed; nothing is left running on failure.
// Arguments and environment entries may not hold NUL bytes, and an entry
// needs a name and '=' (EINVAL / ERROR_INVALID_PARAMETER). logon_errors may
// be null.
// The caller releases *child with plat_child_release.
int32_t plat_spawn(const PlatSpawnRequest &request, PlatChild *child, PlatSpawnStage *stage,
                   PlatLogonErrors *logon_errors = nullptr);

enum class PlatChildState {
    running,  // still running after the wait
    exited,   // ended by itself: *exit_code its status
    killed    // ended by a signal (POSIX) or terminated: *exit_code 0xFFFFFFFF
};

// Waits up to timeout_ms milliseconds (negative: as long as it takes, 0: only
// looks) for the child's end. POSIX: an ended child is reaped so that no
// zombie remains, and asking again afterwards fails with ECHILD; the wait
// goes through the pidfd when there is one, so it never reaches a process
// that took the number of a reaped child. Windows: the process handle keeps
// the end, and asking again gives it again. 0 or the system's error number.
int32_t plat_child_wait(const PlatChild &child, int32_t timeout_ms, PlatChildState *state, uint32_t *exit_code);

// Ends the child at once (SIGKILL / TerminateProcess); a child that has
// already ended succeeds. 0 or the system's error number.
int32_t plat_child_kill(const PlatChild &child);

// Lets a child started suspended run (SIGCONT / ResumeThread). 0 or the
// system's error number.
int32_t plat_child_resume(const PlatChild &child);

// Closes the child's handles (the child itself is not affected); *child is
// emptied.
void plat_child_release(PlatChild *child);

// The system's command interpreter and the arguments that come before the
// command it is to run: POSIX "/bin/sh" and {"-c"}; Windows %ComSpec% (else
// the system folder's cmd.exe) and {"/s", "/c"}, after which cmd.exe takes
// the rest of its command line whole once the first and the last double
// quote are dropped. May throw std::bad_alloc.
void plat_command_shell(std::string *program, std::vector<std::string> *leading_arguments);

// Ends a process that need not be our child (SIGKILL / TerminateProcess), but
// only while its creation time, as plat_process_creation_time gives it, still
// equals creation_time, so that a process that took over a reused pid is left
// alone. The process is held (pidfd / process handle) from the comparison to
// the kill. 0 when killed; ESRCH / ERROR_INVALID_PARAMETER when there is no
// such process or its creation time differs; else the system's error number.
int32_t plat_process_kill_if_created(uint32_t pid, uint64_t creation_time);
