// The child-process part of the platform layer, below the api_ module: which
// step a failed start names, which descriptors a child gets, the environment
// and working directory it sees, suspended starts, waiting, killing and
// reaping, and (as root on POSIX) the identity switch.
//
// The children are mostly this test program itself: a variable in the
// child's environment tells the start-up code below what to do instead of
// running the tests, so that the same children exist on both platforms.
#include <gtest/gtest.h>

#ifdef _WIN32
#include "../vq_glob/platform/win32/spawn.cpp"
#else
#include "../vq_glob/platform/posix/spawn.cpp"
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

constexpr const char *kChildVariable = "VQ_SPAWN_TEST_CHILD";

// ---- Native helpers ------------------------------------------------------------

struct Pipe {
    PlatHandle read_end = kPlatNoHandle;
    PlatHandle write_end = kPlatNoHandle;
};

void close_handle(PlatHandle *handle) {
    if (*handle != kPlatNoHandle) {
#ifdef _WIN32
        CloseHandle(reinterpret_cast<HANDLE>(*handle));
#else
        close(static_cast<int>(*handle));
#endif
        *handle = kPlatNoHandle;
    }
}

Pipe make_pipe() {
    Pipe result;
#ifdef _WIN32
    HANDLE read_end = nullptr;
    HANDLE write_end = nullptr;
    if (CreatePipe(&read_end, &write_end, nullptr, 0)) {
        result.read_end = reinterpret_cast<PlatHandle>(read_end);
        result.write_end = reinterpret_cast<PlatHandle>(write_end);
    }
#else
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
        result.read_end = ends[0];
        result.write_end = ends[1];
    }
#endif
    return result;
}

// Reads until the writers have gone or until the text holds `until`.
std::string read_from(PlatHandle handle, const std::string &until = std::string()) {
    std::string text;
    char buffer[512];
    for (;;) {
        if (!until.empty() && text.find(until) != std::string::npos) {
            return text;
        }
#ifdef _WIN32
        DWORD got = 0;
        if (!ReadFile(reinterpret_cast<HANDLE>(handle), buffer, sizeof buffer, &got, nullptr) || got == 0) {
            return text;
        }
#else
        ssize_t got = read(static_cast<int>(handle), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return text;
        }
#endif
        text.append(buffer, static_cast<size_t>(got));
    }
}

bool is_not_found(int32_t error) {
#ifdef _WIN32
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_DIRECTORY;
#else
    return error == ENOENT || error == ENOTDIR;
#endif
}

bool is_refusal(int32_t error) {
#ifdef _WIN32
    return error == ERROR_ACCESS_DENIED || error == ERROR_LOGON_FAILURE;
#else
    return error == EPERM || error == EACCES;
#endif
}

std::string self_path() {
#ifdef _WIN32
    char path[MAX_PATH * 2];
    DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    return std::string(path, length);
#else
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
#endif
}

// ---- The child side ------------------------------------------------------------

void child_write(const std::string &text, bool to_error = false) {
#ifdef _WIN32
    DWORD written = 0;
    WriteFile(GetStdHandle(to_error ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE), text.data(),
              static_cast<DWORD>(text.size()), &written, nullptr);
#else
    ssize_t written = write(to_error ? 2 : 1, text.data(), text.size());
    (void)written;
#endif
}

[[noreturn]] void child_exit(int code) {
#ifdef _WIN32
    ExitProcess(static_cast<UINT>(code));
#else
    _exit(code);
#endif
}

std::string child_directory() {
#ifdef _WIN32
    char path[MAX_PATH * 2];
    DWORD length = GetCurrentDirectoryA(sizeof path, path);
    return std::string(path, length);
#else
    char path[4096];
    return getcwd(path, sizeof path) != nullptr ? std::string(path) : std::string();
#endif
}

// The arguments after the program name, each in brackets.
std::string arguments_text() {
    std::string text;
#ifdef _WIN32
    for (int i = 1; i < __argc; ++i) {
        text += std::string("[") + __argv[i] + "]";
    }
#else
    std::ifstream line("/proc/self/cmdline", std::ios::binary);
    std::string argument;
    for (bool first = true; std::getline(line, argument, '\0'); first = false) {
        if (!first) {
            text += "[" + argument + "]";
        }
    }
#endif
    return text;
}

#ifndef _WIN32
// Every descriptor open in this process, found without opening one.
std::string open_descriptors() {
    std::string list;
    for (int fd = 0; fd < 4096; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) {
            list += std::to_string(fd) + " ";
        }
    }
    return list;
}

std::string identity_text() {
    gid_t groups[256];
    int count = getgroups(256, groups);
    std::vector<gid_t> sorted(groups, groups + std::max(count, 0));
    std::sort(sorted.begin(), sorted.end());
    std::string text = std::to_string(getuid()) + " " + std::to_string(geteuid()) + " " +
                       std::to_string(getgid()) + " " + std::to_string(getegid()) + " :";
    for (gid_t group : sorted) {
        text += " " + std::to_string(group);
    }
    return text;
}
#endif

// What a child does, named by kChildVariable: "exit N", "env NAME",
// "out-err", "args", "cwd", "fds", "ids", or "hold H" (say "ready", then read
// handle H until its writers have gone and exit with 3; SIGTERM is ignored).
void run_as_child(const std::string &order) {
    std::istringstream words(order);
    std::string what;
    words >> what;
    if (what == "exit") {
        int code = 0;
        words >> code;
        child_exit(code);
    }
    if (what == "env") {
        std::string name;
        words >> name;
        const char *value = std::getenv(name.c_str());
        child_write(value != nullptr ? std::string("[") + value + "]" : std::string("unset"));
        child_exit(0);
    }
    if (what == "out-err") {
        child_write("to output");
        child_write("to error", true);
        child_exit(0);
    }
    if (what == "args") {
        child_write(arguments_text());
        child_exit(0);
    }
    if (what == "cwd") {
        child_write(child_directory());
        child_exit(0);
    }
#ifndef _WIN32
    if (what == "fds") {
        child_write(open_descriptors());
        child_exit(0);
    }
    if (what == "ids") {
        child_write(identity_text());
        child_exit(0);
    }
#endif
    if (what == "hold") {
        long long handle = -1;
        words >> handle;
#ifndef _WIN32
        signal(SIGTERM, SIG_IGN);
#endif
        child_write("ready");
        read_from(static_cast<PlatHandle>(handle));
        child_exit(3);
    }
    child_exit(99);
}

// Runs before the tests: in a child, do its order instead.
const bool kIsChild = [] {
    const char *order = std::getenv(kChildVariable);
    if (order != nullptr) {
        run_as_child(order);
    }
    return false;
}();

// ---- The parent side -----------------------------------------------------------

std::string child_order(const std::string &order) { return std::string(kChildVariable) + "=" + order; }

PlatSpawnRequest self_request(const std::string &order) {
    static const std::string self = self_path();
    PlatSpawnRequest request;
    request.image = self.c_str();
    request.environment.push_back(child_order(order));
    return request;
}

struct Started {
    PlatChild child;
    PlatSpawnStage stage = PlatSpawnStage::none;
    int32_t error = 0;
};

Started start(const PlatSpawnRequest &request) {
    Started started;
    started.error = plat_spawn(request, &started.child, &started.stage);
    return started;
}

struct Ending {
    int32_t error = 0;
    PlatChildState state = PlatChildState::running;
    uint32_t code = 0;
};

Ending wait_for(const PlatChild &child, int32_t timeout_ms = -1) {
    Ending ending;
    ending.error = plat_child_wait(child, timeout_ms, &ending.state, &ending.code);
    return ending;
}

// Starts request with its standard output on a pipe and returns what the
// child wrote and how it ended.
struct Output {
    Started started;
    std::string text;
    Ending ending;
};

Output run_capturing(PlatSpawnRequest request) {
    Output output;
    Pipe pipe = make_pipe();
    request.std_output = pipe.write_end;
    output.started = start(request);
    close_handle(&pipe.write_end);
    if (output.started.error == 0) {
        output.text = read_from(pipe.read_end);
        output.ending = wait_for(output.started.child);
        plat_child_release(&output.started.child);
    }
    close_handle(&pipe.read_end);
    return output;
}

#ifndef _WIN32
// The state letter and parent of a process from /proc/<pid>/stat, or
// {'\0', ""} when it is gone.
std::pair<char, std::string> process_stat(const std::string &pid) {
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string line;
    std::getline(stat, line);
    size_t close_paren = line.rfind(')');
    if (close_paren == std::string::npos) {
        return {'\0', ""};
    }
    std::istringstream fields(line.substr(close_paren + 1));
    std::string state;
    std::string parent;
    fields >> state >> parent;
    return {state.empty() ? '\0' : state[0], parent};
}

char process_state(uint32_t pid) { return process_stat(std::to_string(pid)).first; }

// Children of this process that have ended but were never reaped.
int zombie_children() {
    int zombies = 0;
    DIR *proc = opendir("/proc");
    if (proc == nullptr) {
        return -1;
    }
    const std::string parent = std::to_string(getpid());
    while (dirent *entry = readdir(proc)) {
        if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') {
            zombies += process_stat(entry->d_name) == std::make_pair('Z', parent) ? 1 : 0;
        }
    }
    closedir(proc);
    return zombies;
}
#endif

void expect_no_zombies() {
#ifndef _WIN32
    EXPECT_EQ(zombie_children(), 0);
#endif
}

// ---- Exit codes and failed starts ------------------------------------------------

TEST(PlatSpawn, ExitCodeIsCollectedOnceAndTheChildReaped) {
    for (int code : {0, 7, 255}) {
        Started started = start(self_request("exit " + std::to_string(code)));
        ASSERT_EQ(started.error, 0);
        EXPECT_EQ(started.stage, PlatSpawnStage::none);
        EXPECT_NE(started.child.pid, 0u);
        Ending ending = wait_for(started.child);
        EXPECT_EQ(ending.error, 0);
        EXPECT_EQ(ending.state, PlatChildState::exited);
        EXPECT_EQ(ending.code, static_cast<uint32_t>(code));
#ifndef _WIN32
        // Asking again finds nothing: the end was collected once.
        Ending again = wait_for(started.child, 0);
        EXPECT_EQ(again.error, ECHILD) << code;
#endif
        // Killing an ended child succeeds without reaching anything else.
        EXPECT_EQ(plat_child_kill(started.child), 0);
        plat_child_release(&started.child);
        EXPECT_EQ(started.child.pid, 0u);
        EXPECT_EQ(started.child.process, kPlatNoHandle);
    }
    expect_no_zombies();
}

#ifdef _WIN32
const char *const kMissingDirectory = "C:\\vq_spawn_test_no_such_dir";
const char *const kMissingImage = "C:\\vq_spawn_test_no_such_dir\\program.exe";
#else
const char *const kMissingDirectory = "/vq_spawn_test_no_such_dir";
const char *const kMissingImage = "/vq_spawn_test_no_such_dir/program";

// A descriptor number that was open a moment ago and is closed now.
PlatHandle closed_descriptor() {
    int fd = open("/dev/null", O_RDONLY);
    close(fd);
    return fd;
}
#endif

// Each start that cannot succeed names the step that failed and starts nothing.
TEST(PlatSpawn, FailedStartsNameTheirStageAndStartNothing) {
    const struct {
        const char *what;
        void (*change)(PlatSpawnRequest &);
        PlatSpawnStage stage;
        bool (*error_is)(int32_t);
    } cases[] = {
        {"image not in the path", [](PlatSpawnRequest &r) { r.image = "vq_spawn_test_no_such_program"; },
         PlatSpawnStage::execute, is_not_found},
        {"image path missing", [](PlatSpawnRequest &r) { r.image = kMissingImage; },
         PlatSpawnStage::execute, is_not_found},
        {"no image", [](PlatSpawnRequest &r) { r.image = nullptr; }, PlatSpawnStage::create, nullptr},
        {"working directory missing", [](PlatSpawnRequest &r) { r.working_directory = kMissingDirectory; },
         PlatSpawnStage::working_directory, is_not_found},
        {"variable without '='", [](PlatSpawnRequest &r) { r.environment.push_back("NO_EQUALS_SIGN"); },
         PlatSpawnStage::create, nullptr},
        {"variable without name", [](PlatSpawnRequest &r) { r.environment.push_back("=value"); },
         PlatSpawnStage::create, nullptr},
        {"argument with a NUL", [](PlatSpawnRequest &r) { r.arguments.push_back(std::string("cut\0off", 7)); },
         PlatSpawnStage::create, nullptr},
#ifndef _WIN32
        {"closed descriptor inherited", [](PlatSpawnRequest &r) { r.inherited.push_back(closed_descriptor()); },
         PlatSpawnStage::create, [](int32_t error) { return error == EBADF; }},
#endif
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        PlatSpawnRequest request = self_request("exit 0");
        c.change(request);
        Started refused = start(request);
        EXPECT_NE(refused.error, 0);
        EXPECT_TRUE(c.error_is == nullptr || c.error_is(refused.error)) << refused.error;
        EXPECT_EQ(refused.stage, c.stage);
        EXPECT_EQ(refused.child.pid, 0u);
    }
    expect_no_zombies();
}

TEST(PlatSpawn, WorkingDirectoryIsTheRequestedOne) {
    PlatSpawnRequest request = self_request("cwd");
    std::string directory = ::testing::TempDir();
    while (directory.size() > 1 && (directory.back() == '/' || directory.back() == '\\')) {
        directory.pop_back();
    }
    request.working_directory = directory.c_str();
    Output good = run_capturing(request);
    ASSERT_EQ(good.started.error, 0);
    EXPECT_EQ(good.ending.code, 0u);
#ifdef _WIN32
    EXPECT_EQ(_stricmp(good.text.c_str(), directory.c_str()), 0) << good.text;
#else
    char wanted[4096];
    ASSERT_NE(realpath(directory.c_str(), wanted), nullptr);
    EXPECT_EQ(good.text, wanted);
#endif
}

TEST(PlatSpawn, ArgumentsArriveUnchanged) {
    // Blanks, quotes and backslashes in every position the command-line
    // rules treat differently, and an empty argument.
    const std::vector<std::string> arguments{"plain",      "with blank", "",          "quote\"inside",
                                             "back\\slash", "trailing\\", "blank and\\", "\\\"both\\\\\""};
    PlatSpawnRequest request = self_request("args");
    request.arguments = arguments;
    Output output = run_capturing(request);
    ASSERT_EQ(output.started.error, 0);
    std::string expected;
    for (const std::string &argument : arguments) {
        expected += "[" + argument + "]";
    }
    EXPECT_EQ(output.text, expected);
    EXPECT_EQ(output.ending.code, 0u);
}

// ---- Environment and standard handles --------------------------------------------

TEST(PlatSpawn, EnvironmentIsTheCallersWithTheRequestedEntriesOver) {
#ifdef _WIN32
    _putenv_s("VQ_SPAWN_TEST_CALLER", "from caller");
#else
    setenv("VQ_SPAWN_TEST_CALLER", "from caller", 1);
#endif
    PlatSpawnRequest caller = self_request("env VQ_SPAWN_TEST_CALLER");
    EXPECT_EQ(run_capturing(caller).text, "[from caller]");

    PlatSpawnRequest replaced = self_request("env VQ_SPAWN_TEST_CALLER");
    replaced.environment.push_back("VQ_SPAWN_TEST_CALLER=from request = with equals");
    EXPECT_EQ(run_capturing(replaced).text, "[from request = with equals]");

    PlatSpawnRequest added = self_request("env VQ_SPAWN_TEST_ADDED");
    added.environment.push_back("VQ_SPAWN_TEST_ADDED=");
    EXPECT_EQ(run_capturing(added).text, "[]");
}

// Starts the "out-err" child with the given output and error handles, runs
// after_start, closes the pipes' write ends and returns what each pipe's read
// end received, in order.
std::vector<std::string> run_out_err(PlatHandle std_output, PlatHandle std_error, std::vector<Pipe> pipes,
                                     const std::function<void()> &after_start = [] {}) {
    PlatSpawnRequest request = self_request("out-err");
    request.std_output = std_output;
    request.std_error = std_error;
    Started started = start(request);
    after_start();
    std::vector<std::string> texts;
    for (Pipe &pipe : pipes) {
        close_handle(&pipe.write_end);
    }
    for (Pipe &pipe : pipes) {
        texts.push_back(started.error == 0 ? read_from(pipe.read_end) : "start failed");
        close_handle(&pipe.read_end);
    }
    if (started.error == 0) {
        EXPECT_EQ(wait_for(started.child).code, 0u);
        plat_child_release(&started.child);
    }
    return texts;
}

TEST(PlatSpawn, OutputAndErrorGoToTheirOwnHandles) {
    const std::vector<std::string> apart{"to output", "to error"};
    Pipe output = make_pipe();
    Pipe error = make_pipe();
    EXPECT_EQ(run_out_err(output.write_end, error.write_end, {output, error}), apart);

    // One handle for both.
    Pipe both = make_pipe();
    std::string text = run_out_err(both.write_end, both.write_end, {both})[0];
    EXPECT_NE(text.find("to output"), std::string::npos) << text;
    EXPECT_NE(text.find("to error"), std::string::npos) << text;

#ifndef _WIN32
    // The child's error goes to whatever is the caller's descriptor 1 while
    // its output goes elsewhere: putting the output in place first must not
    // overwrite the error's source.
    output = make_pipe();
    error = make_pipe();
    int saved_stdout = dup(1);
    ASSERT_GE(saved_stdout, 0);
    ASSERT_EQ(dup2(static_cast<int>(error.write_end), 1), 1);
    EXPECT_EQ(run_out_err(output.write_end, 1, {output, error},
                          [saved_stdout] {
                              dup2(saved_stdout, 1);
                              close(saved_stdout);
                          }),
              apart);
#endif
}

#ifndef _WIN32
TEST(PlatSpawn, OnlyStandardAndInheritedDescriptorsReachTheChild) {
    // A descriptor the caller left inheritable by mistake must not leak.
    int careless = open("/dev/null", O_RDONLY);
    ASSERT_GE(careless, 3);
    Pipe handed = make_pipe();
    PlatSpawnRequest request = self_request("fds");
    request.inherited.push_back(handed.read_end);
    Output output = run_capturing(request);
    ASSERT_EQ(output.started.error, 0);
    std::istringstream listed(output.text);
    std::set<int> seen;
    for (int fd; listed >> fd;) {
        seen.insert(fd);
    }
    EXPECT_EQ(seen.count(1), 1u) << output.text;
    EXPECT_EQ(seen.count(static_cast<int>(handed.read_end)), 1u) << output.text;
    for (int fd : seen) {
        EXPECT_TRUE(fd <= 2 || fd == handed.read_end) << "descriptor " << fd << " leaked: " << output.text;
    }
    close(careless);
    close_handle(&handed.read_end);
    close_handle(&handed.write_end);
}

TEST(PlatSpawn, ImageIsLookedUpInThePathLikeExecvp) {
    std::string base = ::testing::TempDir() + "vq_spawn_path_" + std::to_string(getpid());
    std::string refusing = base + "_a";
    std::string running = base + "_b";
    ASSERT_EQ(mkdir(refusing.c_str(), 0700), 0);
    ASSERT_EQ(mkdir(running.c_str(), 0700), 0);
    std::ofstream(refusing + "/vq_tool") << "#!/bin/sh\nexit 4\n";
    std::ofstream(running + "/vq_tool") << "#!/bin/sh\nexit 5\n";
    ASSERT_EQ(chmod((refusing + "/vq_tool").c_str(), 0600), 0);
    ASSERT_EQ(chmod((running + "/vq_tool").c_str(), 0700), 0);
    const char *old_path = std::getenv("PATH");
    std::string saved = old_path != nullptr ? old_path : "";

    PlatSpawnRequest request;
    request.image = "vq_tool";
    setenv("PATH", (refusing + ":" + running).c_str(), 1);
    Started found = start(request);
    setenv("PATH", refusing.c_str(), 1);
    Started refused = start(request);
    setenv("PATH", saved.c_str(), 1);

    ASSERT_EQ(found.error, 0);
    EXPECT_EQ(wait_for(found.child).code, 5u);
    plat_child_release(&found.child);
    EXPECT_EQ(refused.error, EACCES);
    EXPECT_EQ(refused.stage, PlatSpawnStage::execute);
    unlink((refusing + "/vq_tool").c_str());
    unlink((running + "/vq_tool").c_str());
    rmdir(refusing.c_str());
    rmdir(running.c_str());
    expect_no_zombies();
}
#endif

// ---- Waiting, suspending, killing -------------------------------------------------

// A child holding on to the read end of a pipe: it has said "ready" once
// start() returns, and ends with 3 when the write end is closed.
struct HeldChild {
    Pipe hold;
    Pipe output;
    Started started;

    explicit HeldChild(bool suspended = false) {
        hold = make_pipe();
        output = make_pipe();
        PlatSpawnRequest request = self_request("hold " + std::to_string(static_cast<long long>(hold.read_end)));
        request.inherited.push_back(hold.read_end);
        request.std_output = output.write_end;
        request.suspended = suspended;
        started = start(request);
        close_handle(&output.write_end);
        close_handle(&hold.read_end);
    }

    std::string await_ready() { return read_from(output.read_end, "ready"); }

    ~HeldChild() {
        close_handle(&hold.write_end);
        close_handle(&output.read_end);
        plat_child_release(&started.child);
    }
};

TEST(PlatSpawn, WaitingOnARunningChildSaysRunningUntilItEnds) {
    HeldChild held;
    ASSERT_EQ(held.started.error, 0);
    ASSERT_EQ(held.await_ready(), "ready");
    Ending looked = wait_for(held.started.child, 0);
    EXPECT_EQ(looked.error, 0);
    EXPECT_EQ(looked.state, PlatChildState::running);
    Ending waited = wait_for(held.started.child, 20);
    EXPECT_EQ(waited.error, 0);
    EXPECT_EQ(waited.state, PlatChildState::running);

    // Ending the hold lets it exit; a long time-out returns with its end.
    close_handle(&held.hold.write_end);
    Ending ended = wait_for(held.started.child, 600000);
    EXPECT_EQ(ended.error, 0);
    EXPECT_EQ(ended.state, PlatChildState::exited);
    EXPECT_EQ(ended.code, 3u);
    expect_no_zombies();
}

TEST(PlatSpawn, KillEndsAChildThatIgnoresTerminationAndTheWaitReapsIt) {
    HeldChild held;
    ASSERT_EQ(held.started.error, 0);
    ASSERT_EQ(held.await_ready(), "ready");
#ifndef _WIN32
    // The child ignores SIGTERM from here on.
    kill(static_cast<pid_t>(held.started.child.pid), SIGTERM);
#endif
    EXPECT_EQ(plat_child_kill(held.started.child), 0);
    Ending ended = wait_for(held.started.child);
    EXPECT_EQ(ended.error, 0);
    EXPECT_EQ(ended.state, PlatChildState::killed);
    EXPECT_EQ(ended.code, 0xFFFFFFFFu);
#ifndef _WIN32
    EXPECT_EQ(process_state(held.started.child.pid), '\0') << "the killed child is still in the process table";
#endif
    EXPECT_EQ(plat_child_kill(held.started.child), 0);
    expect_no_zombies();
}

TEST(PlatSpawn, SuspendedChildRunsOnlyAfterResumeAndCanBeKilledBefore) {
    for (bool resume : {true, false}) {
        SCOPED_TRACE(resume ? "resumed" : "killed");
        HeldChild held(true);
        ASSERT_EQ(held.started.error, 0);
#ifndef _WIN32
        EXPECT_EQ(process_state(held.started.child.pid), 'T');
#endif
        EXPECT_EQ(wait_for(held.started.child, 0).state, PlatChildState::running);
        if (resume) {
            EXPECT_EQ(plat_child_resume(held.started.child), 0);
            EXPECT_EQ(held.await_ready(), "ready");
            close_handle(&held.hold.write_end);
        } else {
            EXPECT_EQ(plat_child_kill(held.started.child), 0);
        }
        Ending ended = wait_for(held.started.child);
        EXPECT_EQ(ended.state, resume ? PlatChildState::exited : PlatChildState::killed);
        EXPECT_EQ(ended.code, resume ? 3u : 0xFFFFFFFFu);
        // A child killed before it ran wrote nothing.
        EXPECT_EQ(read_from(held.output.read_end), "");
    }
    expect_no_zombies();
}

// ---- Identity ---------------------------------------------------------------------

#ifdef _WIN32
bool under_wine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}
#endif

TEST(PlatSpawn, UnknownUserIsRefusedBeforeAnythingStarts) {
#ifdef _WIN32
    if (under_wine()) {
        GTEST_SKIP() << "Wine's logon accepts any user and password";
    }
#endif
    PlatSpawnRequest request = self_request("exit 0");
    request.identity.user = "vq_spawn_no_such_user";
    Started started = start(request);
    EXPECT_TRUE(is_refusal(started.error)) << started.error;
    EXPECT_EQ(started.stage, PlatSpawnStage::authenticate);
    EXPECT_EQ(started.child.pid, 0u);
    PlatIdentity nobody{"vq_spawn_no_such_user", nullptr, "any password"};
    EXPECT_TRUE(is_refusal(plat_authenticate(nobody)));
}

#ifndef _WIN32
// A user with a password and a supplementary group, made with the system's
// tools and removed again; only root can.
class PlatSpawnUser : public ::testing::Test {
protected:
    static constexpr const char *kUser = "vqspawnt";
    static constexpr const char *kGroup = "vqspawng";
    static constexpr const char *kPassword = "Corr3ct-h0rse";

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "switching users needs root";
        }
        if (std::system("command -v useradd >/dev/null 2>&1 && command -v chpasswd >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "useradd or chpasswd is missing";
        }
        remove_user();
        std::string make = std::string("groupadd ") + kGroup + " && useradd -M -N -g nogroup -G " + kGroup +
                           " -s /bin/sh " + kUser + " && echo '" + kUser + ":" + kPassword + "' | chpasswd";
        ASSERT_EQ(std::system(make.c_str()), 0) << make;
        made_ = true;
        UserEntry entry;
        ASSERT_EQ(find_user(kUser, &entry), 0);
        uid_ = entry.uid;
        gid_ = entry.gid;
        group_ = getgrnam(kGroup)->gr_gid;
    }

    void TearDown() override {
        if (made_) {
            remove_user();
        }
    }

    static void remove_user() {
        std::string remove =
            std::string("userdel ") + kUser + " >/dev/null 2>&1; groupdel " + kGroup + " >/dev/null 2>&1";
        int ignored = std::system(remove.c_str());
        (void)ignored;
    }

    std::string expected_ids() const {
        std::vector<gid_t> groups{gid_, group_};
        std::sort(groups.begin(), groups.end());
        std::string text = std::to_string(uid_) + " " + std::to_string(uid_) + " " + std::to_string(gid_) + " " +
                           std::to_string(gid_) + " :";
        for (gid_t group : groups) {
            text += " " + std::to_string(group);
        }
        return text;
    }

    bool made_ = false;
    uid_t uid_ = 0;
    gid_t gid_ = 0;
    gid_t group_ = 0;
};

TEST_F(PlatSpawnUser, ChildTakesTheUsersIdsGroupsAndEnvironment) {
    // Root needs no password; a given one is checked, unless the caller says
    // it authenticated the user already (a password PAM would refuse shows
    // that no second check happens).
    for (const auto &[password, authenticated] : {std::pair<const char *, bool>{nullptr, false},
                                                   {kPassword, false}, {"not checked again", true}}) {
        SCOPED_TRACE(password != nullptr ? password : "no password");
        PlatSpawnRequest request = self_request("ids");
        request.identity.user = kUser;
        request.identity.password = password;
        request.authenticated = authenticated;
        Output ids = run_capturing(request);
        ASSERT_EQ(ids.started.error, 0);
        EXPECT_EQ(ids.text, expected_ids());
        EXPECT_EQ(ids.ending.code, 0u);
    }
    for (const char *variable : {"HOME", "LOGNAME"}) {
        PlatSpawnRequest request = self_request(std::string("env ") + variable);
        request.identity.user = kUser;
        std::string home = variable == std::string("HOME") ? "/home/" : "";
        EXPECT_EQ(run_capturing(request).text, "[" + home + kUser + "]");
    }
    expect_no_zombies();
}

TEST_F(PlatSpawnUser, WrongPasswordOrUnknownUserStartsNothing) {
    // An unknown user is looked up and refused even when the caller says it
    // authenticated it.
    for (const auto &[user, password, authenticated] :
         {std::tuple{kUser, "wrong", false}, std::tuple{"vqspawn-nobody", "any", true}}) {
        PlatSpawnRequest request = self_request("exit 0");
        request.identity.user = user;
        request.identity.password = password;
        request.authenticated = authenticated;
        Started started = start(request);
        EXPECT_EQ(started.error, EPERM) << user;
        EXPECT_EQ(started.stage, PlatSpawnStage::authenticate) << user;
        EXPECT_EQ(started.child.pid, 0u) << user;
    }
    PlatIdentity wrong{kUser, nullptr, "Corr3ct-h0rs"};
    EXPECT_EQ(plat_authenticate(wrong), EPERM);
    PlatIdentity right{kUser, nullptr, kPassword};
    EXPECT_EQ(plat_authenticate(right), 0);
    expect_no_zombies();
}

TEST_F(PlatSpawnUser, CallerWithoutRootNeedsThePasswordForAnotherUser) {
    // A forked helper becomes the user and asks to run as root.
    pid_t helper = fork();
    ASSERT_GE(helper, 0);
    if (helper == 0) {
        if (setgid(gid_) != 0 || setuid(uid_) != 0) {
            _exit(90);
        }
        PlatIdentity root{"root", nullptr, nullptr};
        if (plat_authenticate(root) != EPERM) {
            _exit(91);
        }
        PlatSpawnRequest request;
        request.image = "/bin/true";
        request.identity = root;
        PlatChild child;
        PlatSpawnStage stage = PlatSpawnStage::none;
        if (plat_spawn(request, &child, &stage) != EPERM || stage != PlatSpawnStage::authenticate) {
            _exit(92);
        }
        // Its own user needs no password.
        PlatIdentity self{kUser, nullptr, nullptr};
        _exit(plat_authenticate(self) == 0 ? 0 : 93);
    }
    int status = 0;
    ASSERT_EQ(waitpid(helper, &status, 0), helper);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
#endif

}  // namespace
