// POSIX backend, child-process part: checking a user's password through PAM,
// starting a child with fork and exec under the caller's or another user's
// identity, waiting for it, killing and resuming it.
//
// Everything the child needs (argument and environment vectors, the program
// paths to try, the user's groups, the descriptors to keep) is prepared in
// the parent; between fork and exec the child only makes system calls that
// are safe after fork in a threaded process. A step that fails in the child
// is written to a close-on-exec pipe as {stage, errno} before the child ends
// with status 127; end of file on that pipe means exec succeeded.
//
// Included by relative path so that a program can compile this source
// without the library's include path (see spawn.h).
#include "../spawn.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

extern char **environ;

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

#include "monotonic.h"
#include "pidfd.h"

namespace {

// ---- Users -------------------------------------------------------------------

struct UserEntry {
    uid_t uid = 0;
    gid_t gid = 0;
    std::string name;
    std::string home;
    std::string shell;
};

// The passwd entry of user: 0, ENOENT for an unknown user, or the lookup's
// error number.
int32_t find_user(const char *user, UserEntry *out) {
    long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(hint > 0 ? static_cast<size_t>(hint) : 1024);
    for (;;) {
        passwd entry{};
        passwd *found = nullptr;
        int rc = getpwnam_r(user, &entry, buffer.data(), buffer.size(), &found);
        if (rc == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (rc != 0) {
            return rc;
        }
        if (found == nullptr) {
            return ENOENT;
        }
        out->uid = entry.pw_uid;
        out->gid = entry.pw_gid;
        out->name = entry.pw_name;
        out->home = entry.pw_dir != nullptr ? entry.pw_dir : "/";
        out->shell = entry.pw_shell != nullptr && *entry.pw_shell != '\0' ? entry.pw_shell : "/bin/sh";
        return 0;
    }
}

// Whether the process already runs as uid, really and effectively, so that
// nothing needs to change.
bool runs_as(uid_t uid) { return getuid() == uid && geteuid() == uid; }

// The groups initgroups would give the user, read here so that the child
// only has to set them.
int32_t groups_of(const UserEntry &user, std::vector<gid_t> *groups) {
    int count = 32;
    for (int attempt = 0; attempt < 8; ++attempt) {
        groups->assign(static_cast<size_t>(count), 0);
        int wanted = count;
        if (getgrouplist(user.name.c_str(), user.gid, groups->data(), &wanted) >= 0) {
            groups->resize(static_cast<size_t>(wanted));
            return 0;
        }
        if (wanted <= count) {
            return EINVAL;
        }
        count = wanted;
    }
    return EOVERFLOW;
}

// ---- PAM ---------------------------------------------------------------------

constexpr const char *kDefaultPamService = "vq_glob";
constexpr const char *kPamServiceVariable = "VQ_GLOB_PAM_SERVICE";

// The PAM service: the environment may name another one, except in a set-id
// process (secure_getenv), where it would let the invoking user pick a
// lenient stack; a name with a '/' could reach outside /etc/pam.d.
const char *pam_service() {
    const char *chosen = secure_getenv(kPamServiceVariable);
    if (chosen == nullptr || *chosen == '\0' || std::strchr(chosen, '/') != nullptr) {
        return kDefaultPamService;
    }
    return chosen;
}

void drop_replies(pam_response *replies, int count) {
    for (int i = 0; i < count; ++i) {
        if (replies[i].resp != nullptr) {
            explicit_bzero(replies[i].resp, std::strlen(replies[i].resp));
            std::free(replies[i].resp);
        }
    }
    std::free(replies);
}

// Answers the password prompts from the caller's password. PAM takes the
// replies over and wipes them when it frees them; when this function fails
// they are wiped here before they are freed.
int answer_prompts(int count, const pam_message **messages, pam_response **replies_out, void *data) {
    if (count <= 0 || count > PAM_MAX_NUM_MSG) {
        return PAM_CONV_ERR;
    }
    const char *password = static_cast<const char *>(data);
    auto *replies = static_cast<pam_response *>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
    if (replies == nullptr) {
        return PAM_BUF_ERR;
    }
    for (int i = 0; i < count; ++i) {
        int style = messages[i]->msg_style;
        if (style == PAM_ERROR_MSG || style == PAM_TEXT_INFO) {
            continue;
        }
        if (style != PAM_PROMPT_ECHO_OFF) {
            // Anything else would need a person at a terminal.
            drop_replies(replies, count);
            return PAM_CONV_ERR;
        }
        size_t size = std::strlen(password) + 1;
        replies[i].resp = static_cast<char *>(std::malloc(size));
        if (replies[i].resp == nullptr) {
            drop_replies(replies, count);
            return PAM_BUF_ERR;
        }
        std::memcpy(replies[i].resp, password, size);
    }
    *replies_out = replies;
    return PAM_SUCCESS;
}

int32_t errno_of_pam(int result) {
    if (result == PAM_SUCCESS) {
        return 0;
    }
    return result == PAM_BUF_ERR ? ENOMEM : EPERM;
}

int32_t check_password(const char *user, const char *password) {
    pam_conv conversation{answer_prompts, const_cast<char *>(password)};
    pam_handle_t *pam = nullptr;
    int result = pam_start(pam_service(), user, &conversation, &pam);
    if (result != PAM_SUCCESS) {
        return errno_of_pam(result);
    }
    result = pam_authenticate(pam, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    if (result == PAM_SUCCESS) {
        result = pam_acct_mgmt(pam, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    }
    pam_end(pam, result);
    return errno_of_pam(result);
}

// The decision of plat_authenticate with the user already looked up.
int32_t authorise(const PlatIdentity &identity, const UserEntry &user) {
    if (identity.password != nullptr) {
        return check_password(identity.user, identity.password);
    }
    return geteuid() == 0 || runs_as(user.uid) ? 0 : EPERM;
}

// Looks the user up and, unless the caller has done so already, authorises
// the caller: an unknown user is refused like a forbidden one.
int32_t admit(const PlatIdentity &identity, bool authorised, UserEntry *user) {
    if (*identity.user == '\0') {
        return EPERM;
    }
    int32_t error = find_user(identity.user, user);
    if (error != 0) {
        return error == ENOENT ? EPERM : error;
    }
    return authorised ? 0 : authorise(identity, *user);
}

// ---- What the child needs, prepared before fork -------------------------------

bool holds_nul(const std::string &text) { return text.find('\0') != std::string::npos; }

std::string variable_name(const std::string &entry) { return entry.substr(0, entry.find('=')); }

// Sets "NAME=value" in environment, replacing an entry of the same name.
void set_variable(std::vector<std::string> *environment, const std::string &entry) {
    const std::string name = variable_name(entry);
    for (std::string &present : *environment) {
        if (present.compare(0, name.size() + 1, name + "=") == 0) {
            present = entry;
            return;
        }
    }
    environment->push_back(entry);
}

int32_t build_environment(const PlatSpawnRequest &request, const UserEntry *user,
                          std::vector<std::string> *environment) {
    for (char **entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        environment->emplace_back(*entry);
    }
    if (user != nullptr) {
        set_variable(environment, "HOME=" + user->home);
        set_variable(environment, "USER=" + user->name);
        set_variable(environment, "LOGNAME=" + user->name);
        set_variable(environment, "SHELL=" + user->shell);
    }
    for (const std::string &entry : request.environment) {
        size_t equals = entry.find('=');
        if (equals == std::string::npos || equals == 0 || holds_nul(entry)) {
            return EINVAL;
        }
        set_variable(environment, entry);
    }
    return 0;
}

// The caller's working directory with a trailing '/', or "" when it cannot
// be read (a relative name then stays relative).
std::string caller_directory() {
    std::vector<char> buffer(4096);
    while (getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (errno != ERANGE || buffer.size() >= (1u << 20)) {
            return std::string();
        }
        buffer.resize(buffer.size() * 2);
    }
    std::string directory(buffer.data());
    if (directory.empty() || directory.back() != '/') {
        directory += '/';
    }
    return directory;
}

std::string from_caller_directory(const std::string &path, const std::string &directory) {
    return path.empty() || path[0] == '/' ? path : directory + path;
}

// The program files to try in turn: the image itself when it names a
// directory, else the image in each directory of the caller's PATH (an
// empty entry is the working directory), as execvp does.
std::vector<std::string> program_candidates(const char *image) {
    const std::string directory = caller_directory();
    if (std::strchr(image, '/') != nullptr) {
        return {from_caller_directory(image, directory)};
    }
    const char *path = std::getenv("PATH");
    std::string search = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    std::vector<std::string> candidates;
    size_t start = 0;
    for (;;) {
        size_t end = search.find(':', start);
        std::string entry = search.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!entry.empty() && entry.back() != '/') {
            entry += '/';
        }
        candidates.push_back(from_caller_directory(entry + image, directory));
        if (end == std::string::npos) {
            return candidates;
        }
        start = end + 1;
    }
}

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

bool is_open(PlatHandle handle) {
    return handle >= 0 && handle <= INT32_MAX && fcntl(static_cast<int>(handle), F_GETFD) >= 0;
}

// Everything the child uses between fork and exec, complete before fork.
struct ChildPlan {
    std::vector<std::string> argument_texts;
    std::vector<std::string> environment_texts;
    std::vector<std::string> program_texts;
    std::vector<char *> argv;
    std::vector<char *> envp;
    std::vector<char *> programs;
    std::vector<int> kept;  // descriptors above 2 that survive, ascending
    std::vector<gid_t> groups;
    bool switch_identity = false;
    uid_t uid = 0;
    gid_t gid = 0;
    const char *working_directory = nullptr;
    int std_output = -1;
    int std_error = -1;
    int report = -1;  // write end of the report pipe
    bool suspended = false;
    unsigned long descriptor_limit = 1024;
};

int32_t plan_descriptors(const PlatSpawnRequest &request, ChildPlan *plan) {
    for (PlatHandle handle : {request.std_output, request.std_error}) {
        if (handle != kPlatNoHandle && !is_open(handle)) {
            return EBADF;
        }
    }
    plan->std_output = static_cast<int>(request.std_output);
    plan->std_error = static_cast<int>(request.std_error);
    for (PlatHandle handle : request.inherited) {
        if (!is_open(handle)) {
            return EBADF;
        }
        if (handle > 2) {
            plan->kept.push_back(static_cast<int>(handle));
        }
    }
    // Only used where the kernel lacks close_range.
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        plan->descriptor_limit =
            limit.rlim_cur == RLIM_INFINITY ? (1ul << 20) : static_cast<unsigned long>(limit.rlim_cur);
    }
    return 0;
}

int32_t plan_child(const PlatSpawnRequest &request, const UserEntry *user, ChildPlan *plan) {
    if (request.image == nullptr) {
        return EINVAL;
    }
    if (*request.image == '\0') {
        return ENOENT;
    }
    plan->argument_texts.emplace_back(request.image);
    for (const std::string &argument : request.arguments) {
        if (holds_nul(argument)) {
            return EINVAL;
        }
        plan->argument_texts.push_back(argument);
    }
    int32_t error = build_environment(request, user, &plan->environment_texts);
    if (error == 0) {
        error = plan_descriptors(request, plan);
    }
    if (error == 0 && user != nullptr) {
        plan->switch_identity = true;
        plan->uid = user->uid;
        plan->gid = user->gid;
        error = groups_of(*user, &plan->groups);
    }
    if (error != 0) {
        return error;
    }
    plan->program_texts = program_candidates(request.image);
    plan->argv = pointers_to(plan->argument_texts);
    plan->envp = pointers_to(plan->environment_texts);
    plan->programs = pointers_to(plan->program_texts);
    plan->working_directory = request.working_directory;
    plan->suspended = request.suspended;
    return 0;
}

// ---- The child, between fork and exec ----------------------------------------

struct Report {
    int32_t stage;
    int32_t error;
};

void write_report(int report, PlatSpawnStage stage, int error) {
    Report record{static_cast<int32_t>(stage), error};
    ssize_t written;
    do {
        written = write(report, &record, sizeof record);
    } while (written < 0 && errno == EINTR);
}

[[noreturn]] void fail_child(const ChildPlan &plan, PlatSpawnStage stage, int error) {
    write_report(plan.report, stage, error);
    _exit(127);
}

void reset_signals() {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigemptyset(&standard.sa_mask);
    for (int signal_number = 1; signal_number < NSIG; ++signal_number) {
        sigaction(signal_number, &standard, nullptr);  // fails harmlessly for KILL, STOP and unused numbers
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Puts source on target (0, 1 or 2) without the close-on-exec mark.
int place_standard(int source, int target) {
    if (source == target) {
        return fcntl(target, F_SETFD, 0);
    }
    return dup2(source, target) < 0 ? -1 : 0;
}

// Closes first..last; close_range where the kernel has it (5.9), else one
// by one.
void close_between(unsigned first, unsigned last) {
#ifdef SYS_close_range
    if (syscall(SYS_close_range, first, last, 0) == 0) {
        return;
    }
#endif
    for (unsigned fd = first; fd <= last && fd <= INT32_MAX; ++fd) {
        close(static_cast<int>(fd));
    }
}

// Closes first and everything above it; without close_range, up to the
// descriptor limit, beyond which nothing can be open.
void close_from(unsigned first, unsigned limit) {
#ifdef SYS_close_range
    if (syscall(SYS_close_range, first, ~0U, 0) == 0) {
        return;
    }
#endif
    if (limit > first) {
        close_between(first, limit - 1);
    }
}

// Closes every descriptor above 2 except the kept ones and the report pipe,
// which stays until exec closes it. Walks both in ascending order at once,
// as nothing may be allocated here.
void close_others(const ChildPlan &plan) {
    unsigned next = 3;
    size_t index = 0;
    bool report_passed = plan.report < 0;
    for (;;) {
        int keep;
        if (!report_passed && (index == plan.kept.size() || plan.report < plan.kept[index])) {
            keep = plan.report;
            report_passed = true;
        } else if (index < plan.kept.size()) {
            keep = plan.kept[index++];
        } else {
            break;
        }
        if (static_cast<unsigned>(keep) > next) {
            close_between(next, static_cast<unsigned>(keep) - 1);
        }
        next = std::max(next, static_cast<unsigned>(keep) + 1);
    }
    close_from(next, static_cast<unsigned>(std::min<unsigned long>(plan.descriptor_limit, ~0U)));
}

void set_descriptors(const ChildPlan &plan) {
    // Both sources are copied above 2 first, so that putting one in place
    // cannot overwrite the other (a caller may pass its stdout as stderr).
    int output = plan.std_output < 0 ? -1 : fcntl(plan.std_output, F_DUPFD_CLOEXEC, 3);
    int error = plan.std_error < 0 ? -1 : fcntl(plan.std_error, F_DUPFD_CLOEXEC, 3);
    if ((plan.std_output >= 0 && output < 0) || (plan.std_error >= 0 && error < 0)) {
        fail_child(plan, PlatSpawnStage::create, errno);
    }
    if ((output >= 0 && place_standard(output, 1) != 0) || (error >= 0 && place_standard(error, 2) != 0)) {
        fail_child(plan, PlatSpawnStage::create, errno);
    }
    close_others(plan);
    for (int keep : plan.kept) {
        if (fcntl(keep, F_SETFD, 0) != 0) {
            fail_child(plan, PlatSpawnStage::create, errno);
        }
    }
}

// Takes the user's groups, group and user id, then proves the change: the
// real and effective ids are the user's, and root cannot be taken back.
void switch_identity(const ChildPlan &plan) {
    if (setgroups(plan.groups.size(), plan.groups.data()) != 0) {
        fail_child(plan, PlatSpawnStage::identity, errno);
    }
    if (setgid(plan.gid) != 0) {
        fail_child(plan, PlatSpawnStage::identity, errno);
    }
    if (setuid(plan.uid) != 0) {
        fail_child(plan, PlatSpawnStage::identity, errno);
    }
    if (getuid() != plan.uid || geteuid() != plan.uid || getgid() != plan.gid || getegid() != plan.gid) {
        fail_child(plan, PlatSpawnStage::identity, EPERM);
    }
    if (plan.uid != 0 && (setuid(0) == 0 || seteuid(0) == 0)) {
        fail_child(plan, PlatSpawnStage::identity, EPERM);
    }
}

// execvp's rule: go on past programs that are missing or not allowed, and
// report "not allowed" when one was found but none could run.
[[noreturn]] void execute(const ChildPlan &plan) {
    int error = ENOENT;
    bool refused = false;
    for (size_t i = 0; plan.programs[i] != nullptr; ++i) {
        execve(plan.programs[i], plan.argv.data(), plan.envp.data());
        error = errno;
        if (error == EACCES) {
            refused = true;
        } else if (error != ENOENT && error != ENOTDIR && error != ESTALE) {
            break;
        }
    }
    fail_child(plan, PlatSpawnStage::execute, refused && error != ENOEXEC ? EACCES : error);
}

[[noreturn]] void run_child(ChildPlan &plan) {
    reset_signals();
    set_descriptors(plan);
    if (plan.switch_identity) {
        switch_identity(plan);
    }
    if (plan.working_directory != nullptr && chdir(plan.working_directory) != 0) {
        fail_child(plan, PlatSpawnStage::working_directory, errno);
    }
    if (plan.suspended) {
        // Tell the parent the child got this far, then leave the pipe: a
        // stopped child must not hold up the parent's read.
        write_report(plan.report, PlatSpawnStage::none, 0);
        close(plan.report);
        plan.report = -1;
        raise(SIGSTOP);
    }
    execute(plan);
}

// ---- The parent ----------------------------------------------------------------

using vq::posix::open_pidfd;

void reap(pid_t pid) {
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// Reads the child's report: 0 bytes when exec closed the pipe.
ssize_t read_report(int report, Report *record) {
    size_t got = 0;
    auto *bytes = reinterpret_cast<char *>(record);
    while (got < sizeof *record) {
        ssize_t n = read(report, bytes + got, sizeof *record - got);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

// Waits for a child that said it is about to stop until it has stopped, so
// that a resume cannot come before the stop. 0; ECHILD when it ended
// instead (it is reaped then); or waitpid's error.
int32_t await_stop(pid_t pid) {
    int status = 0;
    for (;;) {
        pid_t rc = waitpid(pid, &status, WUNTRACED);
        if (rc < 0 && errno == EINTR) {
            continue;
        }
        if (rc < 0) {
            return errno;
        }
        return WIFSTOPPED(status) ? 0 : ECHILD;
    }
}

int32_t fork_child(ChildPlan &plan, pid_t *pid_out, PlatSpawnStage *stage) {
    int pipe_ends[2];
    if (pipe2(pipe_ends, O_CLOEXEC) != 0) {
        return errno;
    }
    plan.report = pipe_ends[1];
    // No handler of the caller may run in the child: every signal stays
    // blocked over fork until the child has reset them.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    pid_t pid = fork();
    if (pid == 0) {
        close(pipe_ends[0]);
        run_child(plan);
    }
    int fork_error = errno;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    close(pipe_ends[1]);
    if (pid < 0) {
        close(pipe_ends[0]);
        return fork_error;
    }
    Report record{};
    ssize_t got = read_report(pipe_ends[0], &record);
    close(pipe_ends[0]);
    if (got == 0) {
        *pid_out = pid;
        return 0;
    }
    if (got == static_cast<ssize_t>(sizeof record) && record.stage == static_cast<int32_t>(PlatSpawnStage::none)) {
        int32_t error = await_stop(pid);
        if (error == 0) {
            *pid_out = pid;
        }
        return error;
    }
    reap(pid);
    if (got != static_cast<ssize_t>(sizeof record) || record.error == 0) {
        return EIO;
    }
    *stage = static_cast<PlatSpawnStage>(record.stage);
    return record.error;
}

using vq::posix::monotonic_ms;

int pidfd_of(const PlatChild &child) {
    return child.process >= 0 && child.process <= INT32_MAX ? static_cast<int>(child.process) : -1;
}

// Waits until the child has ended or deadline (monotonic ms) has passed,
// without reaping it: on its pidfd when there is one, else by looking
// every few milliseconds.
void await_end(const PlatChild &child, int64_t deadline) {
    int pidfd = pidfd_of(child);
    for (;;) {
        int64_t left = deadline - monotonic_ms();
        if (left <= 0) {
            return;
        }
        if (pidfd >= 0) {
            pollfd p{pidfd, POLLIN, 0};
            int rc = poll(&p, 1, static_cast<int>(std::min<int64_t>(left, INT32_MAX)));
            if (rc < 0 && errno == EINTR) {
                continue;
            }
            return;
        }
        siginfo_t info{};
        if (waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
            info.si_pid != 0) {
            return;
        }
        timespec pause{0, static_cast<long>(std::min<int64_t>(left, 5)) * 1000000L};
        nanosleep(&pause, nullptr);
    }
}

int signal_child(const PlatChild &child, int signal_number) {
    return vq::posix::signal_process(pidfd_of(child), static_cast<pid_t>(child.pid), signal_number);
}

}  // namespace

int32_t plat_authenticate(const PlatIdentity &identity, PlatLogonErrors *logon_errors) {
    if (logon_errors != nullptr) {
        *logon_errors = PlatLogonErrors{};
    }
    if (identity.user == nullptr) {
        return 0;
    }
    UserEntry user;
    return admit(identity, false, &user);
}

int32_t plat_spawn(const PlatSpawnRequest &request, PlatChild *child, PlatSpawnStage *stage,
                   PlatLogonErrors *logon_errors) {
    *child = PlatChild{};
    *stage = PlatSpawnStage::none;
    if (logon_errors != nullptr) {
        *logon_errors = PlatLogonErrors{};
    }
    UserEntry user;
    const UserEntry *switch_to = nullptr;
    if (request.identity.user != nullptr) {
        int32_t error = admit(request.identity, request.authenticated, &user);
        if (error != 0) {
            *stage = PlatSpawnStage::authenticate;
            return error;
        }
        if (!runs_as(user.uid)) {
            switch_to = &user;
        }
    }
    ChildPlan plan;
    int32_t error = plan_child(request, switch_to, &plan);
    if (error != 0) {
        *stage = error == ENOENT ? PlatSpawnStage::execute : PlatSpawnStage::create;
        return error;
    }
    pid_t pid = 0;
    PlatSpawnStage failed_stage = PlatSpawnStage::create;
    error = fork_child(plan, &pid, &failed_stage);
    if (error != 0) {
        *stage = failed_stage;
        return error;
    }
    child->pid = static_cast<uint32_t>(pid);
    int pidfd = open_pidfd(pid);
    child->process = pidfd >= 0 ? pidfd : kPlatNoHandle;
    return 0;
}

int32_t plat_child_wait(const PlatChild &child, int32_t timeout_ms, PlatChildState *state, uint32_t *exit_code) {
    *state = PlatChildState::running;
    *exit_code = 0;
    if (child.pid == 0) {
        return EINVAL;
    }
    if (timeout_ms > 0) {
        await_end(child, monotonic_ms() + timeout_ms);
    }
    int pidfd = pidfd_of(child);
    idtype_t type = pidfd >= 0 ? static_cast<idtype_t>(P_PIDFD) : P_PID;
    id_t id = pidfd >= 0 ? static_cast<id_t>(pidfd) : static_cast<id_t>(child.pid);
    int options = WEXITED | (timeout_ms < 0 ? 0 : WNOHANG);
    siginfo_t info{};
    while (waitid(type, id, &info, options) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    if (info.si_pid == 0) {
        return 0;
    }
    if (info.si_code == CLD_EXITED) {
        *state = PlatChildState::exited;
        *exit_code = static_cast<uint32_t>(info.si_status);
    } else {
        *state = PlatChildState::killed;
        *exit_code = 0xFFFFFFFFu;
    }
    return 0;
}

int32_t plat_child_kill(const PlatChild &child) {
    if (child.pid == 0) {
        return EINVAL;
    }
    int error = signal_child(child, SIGKILL);
    return error == ESRCH ? 0 : error;
}

int32_t plat_child_resume(const PlatChild &child) {
    if (child.pid == 0) {
        return EINVAL;
    }
    return signal_child(child, SIGCONT);
}

void plat_child_release(PlatChild *child) {
    if (child->process != kPlatNoHandle) {
        close(static_cast<int>(child->process));
    }
    *child = PlatChild{};
}
