// Running images: exit codes, argument splitting and quoting, log files,
// environment, working directory, the administrative hold, scans and
// searches, killing, time-outs, the kill list and its file, identity
// switches with PAM (root only), secrecy of the password, and what 1,000
// runs leave behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/env_var.h"
#include "vq_glob/api.h"
#include "vq_glob/conf.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace fs = std::filesystem;

namespace {

const char *const kChild = VQ_API_IMAGE_CHILD;
constexpr const char *kHold = "VQ_SERVER_ALLOW_NEW_PROCS";

using vq::test::set_env;

std::string random_text(size_t length) {
    static const char kAlphabet[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    std::random_device device;
    std::uniform_int_distribution<size_t> pick(0, sizeof kAlphabet - 2);
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        text += kAlphabet[pick(device)];
    }
    return text;
}

std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::string s = text.str();
    s.erase(std::remove(s.begin(), s.end(), '\r'), s.end());
    return s;
}

uint32_t top_code() { return err_get_stack_depth() == 0 ? 0 : err_get_error_code(0); }

int32_t int_param(int32_t h, int32_t key) {
    int32_t value = -12345;
    return api_get_int_param(h, key, &value) == 1 ? value : -12345;
}

int32_t image_state(int32_t h) {
    int32_t state = -1;
    int32_t code = -1;
    EXPECT_EQ(api_get_image_state_and_exit_code(h, &state, &code), 1);
    return state;
}

// Blocks until the child has ended, without reaping it, so that the
// library's own look finds the end.
void await_end_unreaped(int32_t pid) {
#ifdef _WIN32
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
    ASSERT_NE(process, nullptr);
    WaitForSingleObject(process, INFINITE);
    CloseHandle(process);
#else
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
#endif
}

// True once pid is no child of ours any more: its end was collected.
bool reaped(int32_t pid) {
#ifdef _WIN32
    (void)pid;
    return true;
#else
    int status = 0;
    return waitpid(pid, &status, WNOHANG) == -1 && errno == ECHILD;
#endif
}

class Images : public ::testing::Test {
protected:
    void SetUp() override {
        err_set_log_interactive(0);
        err_clear_error_stack();
        api_clean();
        set_env(kHold, nullptr);
        dir_ = fs::temp_directory_path() / ("vq_images_" + random_text(10));
        fs::create_directories(dir_);
    }
    void TearDown() override {
        for (int32_t h : handles_) {
            api_kill_process(h, API_KILL_AND_DELETE);
        }
        api_clean();
        set_env(kHold, nullptr);
        EXPECT_EQ(api_get_kill_list_size(), 0);
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    // A handle running the helper child with params, its output in "out".
    int32_t child_handle(const std::string &params, bool with_log = true) {
        int32_t h = -1;
        EXPECT_EQ(api_allocate_handle(&h, 0), 1);
        handles_.push_back(h);
        EXPECT_EQ(api_set_user_image_name(h, kChild), 1);
        EXPECT_EQ(api_set_user_image_params(h, params.c_str()), 1);
        if (with_log) {
            EXPECT_EQ(api_set_log_filename(h, path("out").c_str()), 1);
        }
        return h;
    }

    // Runs to the end and returns what the child printed.
    std::string output_of(const std::string &params) {
        int32_t h = child_handle(params);
        EXPECT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
        return read_file(path("out"));
    }

    // A child that hangs until killed, running once it said so.
    int32_t hanging_child(const char *log_name = "hang") {
        int32_t h = child_handle("hang", false);
        EXPECT_EQ(api_set_log_filename(h, path(log_name).c_str()), 1);
        EXPECT_EQ(api_run_user_image(h), 1) << err_get_error_msg();
        await_line(path(log_name), "hanging", api_get_pid(h));
        return h;
    }

    // Waits for the child pid's first line: reading the log until it holds it.
#ifdef _WIN32
    static void await_line(const std::string &file, const std::string &line, int32_t pid) {
        (void)pid;
        while (read_file(file).find(line + "\n") == std::string::npos) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
#else
    // The log's directory is watched and the log read again after each change
    // in it. The child's end is watched too (where the kernel offers process
    // descriptors), so that a child that ends without the line fails the test
    // instead of hanging it.
    static void await_line(const std::string &file, const std::string &line, int32_t pid) {
        const std::string dir = fs::path(file).parent_path().string();
        pollfd ready[2] = {{inotify_init1(IN_CLOEXEC), POLLIN, 0}, {child_end_fd(pid), POLLIN, 0}};
        if (ready[0].fd < 0 ||
            inotify_add_watch(ready[0].fd, dir.c_str(), IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
            ADD_FAILURE() << "cannot watch " << dir << ": " << std::strerror(errno);
        } else {
            bool ended = false;
            while (read_file(file).find(line + "\n") == std::string::npos) {
                if (ended) {
                    ADD_FAILURE() << "the child ended without the line \"" << line << "\" in " << file;
                    break;
                }
                if (poll(ready, ready[1].fd < 0 ? 1 : 2, -1) < 0 && errno != EINTR) {
                    ADD_FAILURE() << "cannot wait for changes of " << dir << ": " << std::strerror(errno);
                    break;
                }
                char events[4096];
                if ((ready[0].revents & POLLIN) != 0 && read(ready[0].fd, events, sizeof events) <= 0) {
                    ADD_FAILURE() << "cannot read the changes of " << dir;
                    break;
                }
                ended = ready[1].revents != 0;  // read the log once more before giving up
            }
        }
        for (const pollfd &one : ready) {
            if (one.fd >= 0) {
                close(one.fd);
            }
        }
    }

    // A descriptor that becomes readable when pid ends, without reaping it;
    // -1 where the kernel has none.
    static int child_end_fd(int32_t pid) {
#ifdef SYS_pidfd_open
        return static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0));
#else
        (void)pid;
        return -1;
#endif
    }
#endif

    std::string path(const char *name) const { return (dir_ / name).string(); }

    fs::path dir_;
    std::vector<int32_t> handles_;
};

// ---- Exit codes ------------------------------------------------------------------------

TEST_F(Images, ExitCodesAreRecordedAndOnlyZeroCountsAsSuccess) {
    int32_t ok = child_handle("exit 0");
    ASSERT_EQ(api_sync_execute_user_image(ok), 1) << err_get_error_msg();
    EXPECT_EQ(int_param(ok, API_KEY_EXIT_CODE), 0);
    EXPECT_EQ(image_state(ok), API_IMAGE_STATE_ENDED);

    for (int code : {3, 255}) {
        int32_t h = child_handle("exit " + std::to_string(code));
        err_clear_error_stack();
        EXPECT_EQ(api_sync_execute_user_image(h), 0);
        EXPECT_EQ(top_code(), ERR_EXE_USRIMGFAIL);
        EXPECT_NE(std::string(err_get_error_text(0)).find("exited with error code " + std::to_string(code)),
                  std::string::npos);
        EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), code);
        int32_t status = -1;
        EXPECT_EQ(api_get_child_exit_status(h, &status), 1);
        EXPECT_EQ(status, code);
        int32_t state = 0;
        int32_t exit_code = 0;
        EXPECT_EQ(api_get_image_state_and_exit_code(h, &state, &exit_code), 1);
        EXPECT_EQ(state, API_IMAGE_STATE_ENDED);
        EXPECT_EQ(exit_code, code);
    }
}

TEST_F(Images, RunningTheSameHandleAgainReplacesTheRecordedEnd) {
    int32_t h = child_handle("exit 4");
    EXPECT_EQ(api_sync_execute_user_image(h), 0);
    ASSERT_EQ(api_set_user_image_params(h, "exit 0"), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), 0);
    ASSERT_EQ(api_remove_param(h, API_KEY_EXIT_CODE), 1);
    EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), -12345);  // no older value was left behind
}

TEST_F(Images, StateIsRunningFromTheStartUntilTheEndIsRecorded) {
    int32_t h = child_handle("exit 6");
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_NONE);
    int32_t code = 0;
    EXPECT_EQ(api_get_child_exit_status(h, &code), 0);
    EXPECT_EQ(top_code(), ERR_EXE_PARNOTFOUND);

    ASSERT_EQ(api_async_execute_user_image(h), 1) << err_get_error_msg();
    int32_t pid = api_get_pid(h);
    await_end_unreaped(pid);
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_RUNNING);  // ended, but nothing recorded it yet
    EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), -12345);
    int32_t running = -1;
    ASSERT_EQ(api_check_async_image_status(h, &running, &code), 1);
    EXPECT_EQ(running, 0);
    EXPECT_EQ(code, 6);
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_ENDED);
    EXPECT_TRUE(reaped(pid));
}

// ---- Arguments -------------------------------------------------------------------------

TEST_F(Images, ParametersSplitAtBlanksAndQuotedRunsStayWholeWithoutQuotes) {
    EXPECT_EQ(output_of("args a \"b c\"  d\tx\"y z\"w \"\" \"\"e"), "<a>\n<b c>\n<d>\n<xy zw>\n<>\n<e>\n");
    EXPECT_EQ(output_of("args"), "");
    EXPECT_EQ(output_of("args    trailing   "), "<trailing>\n");
}

TEST_F(Images, UnbalancedQuoteIsRefusedAndStartsNothing) {
    int32_t h = child_handle("args \"open");
    EXPECT_EQ(api_run_user_image(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
    EXPECT_EQ(api_get_pid(h), 0);
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_NONE);
    EXPECT_FALSE(fs::exists(path("out")));  // not even the log was touched
}

TEST_F(Images, RunLocalImageReportsTheExitCode) {
    int32_t code = -1;
    EXPECT_EQ(api_run_local_image(kChild, "exit 0", &code), 1) << err_get_error_msg();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(api_run_local_image(kChild, "exit 9", &code), 0);
    EXPECT_EQ(code, 9);
    EXPECT_EQ(top_code(), ERR_EXE_USRIMGFAIL);
}

TEST_F(Images, SystemCommandGivesTheShellTheCommandWhole) {
    int32_t code = -1;
    std::string marker = path("marker");
    std::string command = "echo \"quoted text\" > \"" + marker + "\"";
    ASSERT_EQ(api_system_command(command.c_str(), &code), 1) << err_get_error_msg();
    EXPECT_EQ(code, 0);
    std::string written = read_file(marker);
    EXPECT_NE(written.find("quoted text"), std::string::npos) << written;
    EXPECT_EQ(api_system_command("exit 5", &code), 0);
    EXPECT_EQ(code, 5);
}

// ---- Log files -----------------------------------------------------------------------------

TEST_F(Images, OutputAndErrorGoToTheirLogFilesWhichStartEmpty) {
    int32_t h = child_handle("err to-error-log");
    ASSERT_EQ(api_set_errlog_filename(h, path("err").c_str()), 1);
    {
        std::ofstream old(path("err"));
        old << "an older and much longer text that must not survive\n";
    }
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    EXPECT_EQ(read_file(path("err")), "to-error-log\n");
    EXPECT_EQ(read_file(path("out")), "");

    ASSERT_EQ(api_set_user_image_params(h, "out to-log"), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    EXPECT_EQ(read_file(path("out")), "to-log\n");
    EXPECT_EQ(read_file(path("err")), "");
}

TEST_F(Images, OneNameForBothLogsCollectsBothStreams) {
    int32_t h = child_handle("out first");
    ASSERT_EQ(api_set_errlog_filename(h, path("out").c_str()), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    ASSERT_EQ(api_set_user_image_params(h, "err second"), 1);
    ASSERT_EQ(api_set_log_filename(h, path("both").c_str()), 1);
    ASSERT_EQ(api_set_errlog_filename(h, path("both").c_str()), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    EXPECT_EQ(read_file(path("both")), "second\n");
}

TEST_F(Images, LogNamesThatAreNoRegularFilesAreRefusedWithoutHanging) {
    int32_t h = child_handle("out x", false);
    ASSERT_EQ(api_set_log_filename(h, dir_.string().c_str()), 1);  // a directory
    EXPECT_EQ(api_run_user_image(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_LOGFILE);
    EXPECT_NE(std::string(err_get_error_text(0)).find(dir_.string()), std::string::npos);
    EXPECT_EQ(api_get_pid(h), 0);

    ASSERT_EQ(api_set_log_filename(h, nullptr), 1);
    std::string missing_dir = path("no/such/dir/err");
    ASSERT_EQ(api_set_errlog_filename(h, missing_dir.c_str()), 1);
    err_clear_error_stack();
    EXPECT_EQ(api_run_user_image(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_ERRLOGFILE);
#ifndef _WIN32
    std::string fifo = path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(api_set_errlog_filename(h, fifo.c_str()), 1);
    err_clear_error_stack();
    EXPECT_EQ(api_run_user_image(h), 0);  // returns: an open for writing would wait for a reader
    EXPECT_EQ(top_code(), ERR_EXE_ERRLOGFILE);

    std::string target = path("target");
    { std::ofstream(target) << "keep me\n"; }
    std::string link = path("link");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    ASSERT_EQ(api_set_errlog_filename(h, link.c_str()), 1);
    EXPECT_EQ(api_run_user_image(h), 0);
    EXPECT_EQ(read_file(target), "keep me\n");
#endif
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_NONE);
}

// ---- Environment and working directory ------------------------------------------------------

TEST_F(Images, HandleVariablesReachTheChildTheLaterOneWinning) {
    set_env("VQ_IMAGES_FROM_CALLER", "inherited");
    EXPECT_EQ(output_of("env VQ_IMAGES_FROM_CALLER"), "inherited\n");

    int32_t h = child_handle("env VQ_IMAGES_VAR");
    ASSERT_EQ(api_add_env_var_to_handle(h, "VQ_IMAGES_VAR", "first"), 1);
    ASSERT_EQ(api_add_env_var_to_handle(h, "VQ_IMAGES_VAR", "second value"), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    EXPECT_EQ(read_file(path("out")), "second value\n");

    int32_t over = child_handle("env VQ_IMAGES_FROM_CALLER");
    ASSERT_EQ(api_add_env_var_to_handle(over, "VQ_IMAGES_FROM_CALLER", "replaced"), 1);
    ASSERT_EQ(api_sync_execute_user_image(over), 1) << err_get_error_msg();
    EXPECT_EQ(read_file(path("out")), "replaced\n");
    set_env("VQ_IMAGES_FROM_CALLER", nullptr);
}

TEST_F(Images, WorkingDirectoryIsTheContextsAndAMissingOneFailsWithSetcwd) {
    fs::create_directories(dir_ / "work");
    int32_t h = child_handle("cwd");
    ASSERT_EQ(api_set_context(h, nullptr, path("work").c_str()), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    EXPECT_TRUE(fs::equivalent(fs::path(read_file(path("out")).substr(0, read_file(path("out")).size() - 1)),
                               dir_ / "work"));

    ASSERT_EQ(api_set_context(h, nullptr, path("missing").c_str()), 1);
    err_clear_error_stack();
    EXPECT_EQ(api_run_user_image(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_SETCWD);
    EXPECT_NE(std::string(err_get_error_text(0)).find("missing"), std::string::npos);
    EXPECT_EQ(api_get_kill_list_size(), 0);
}

TEST_F(Images, MissingImageFailsWithUexecvpAndStartsNothing) {
    int32_t h = child_handle("x");
    std::string missing = path("no-such-image");
    ASSERT_EQ(api_set_user_image_name(h, missing.c_str()), 1);
    EXPECT_EQ(api_run_user_image(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_UEXECVP);
    EXPECT_NE(std::string(err_get_error_text(0)).find(missing), std::string::npos);
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_NONE);
    EXPECT_EQ(api_check_user_image(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_NOTACTIVE);
}

#ifndef _WIN32
TEST_F(Images, CommandFileWithABlankInItsPathRunsFromItsOwnDirectory) {
    fs::path folder = dir_ / "dir with blank";
    fs::create_directories(folder);
    fs::path script = folder / "run me.sh";
    { std::ofstream(script) << "#!/bin/sh\npwd\necho \"$1\"\n"; }
    fs::permissions(script, fs::perms::owner_all);
    int32_t h = child_handle("\"one arg\"");
    ASSERT_EQ(api_set_user_image_name(h, script.string().c_str()), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    std::string out = read_file(path("out"));
    EXPECT_EQ(out, fs::canonical(folder).string() + "\none arg\n");
}

TEST_F(Images, OnlyTheStandardStreamsReachTheChild) {
    EXPECT_EQ(output_of("fds"), "");
}
#endif

// ---- The administrative hold -------------------------------------------------------------------

TEST_F(Images, AdministrativeHoldStartsNothingUntilItIsLifted) {
    int32_t h = child_handle("exit 0");
    set_env(kHold, "FALSE");
    EXPECT_EQ(api_run_user_image(h), 0);
    ASSERT_GE(err_get_stack_depth(), 2);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_NONEWPROC);
    EXPECT_EQ(err_get_error_code(1), ERR_GEN_MORINFO);
    EXPECT_NE(std::string(err_get_error_text(1)).find(API_ADMIN_HOLD_REFERENCE), std::string::npos);
    EXPECT_EQ(api_get_pid(h), 0);
    EXPECT_FALSE(fs::exists(path("out")));
    int32_t code = -1;
    EXPECT_EQ(api_run_local_image(kChild, "exit 0", &code), 0);
    EXPECT_EQ(top_code(), ERR_GEN_NONEWPROC);

    for (const char *value : {"false", "FALSE ", "TRUE", ""}) {
        set_env(kHold, value);
        EXPECT_EQ(api_sync_execute_user_image(h), 1) << "hold value <" << value << "> " << err_get_error_msg();
    }
}

// ---- Scans and searches ---------------------------------------------------------------------------

TEST_F(Images, ScanFindsEndedChildrenUntilTheyAreProcessed) {
    int32_t first = child_handle("exit 0", false);
    int32_t hanging = hanging_child();
    int32_t third = child_handle("exit 5", false);
    ASSERT_EQ(api_run_user_image(first), 1);
    ASSERT_EQ(api_run_user_image(third), 1);
    await_end_unreaped(api_get_pid(first));
    await_end_unreaped(api_get_pid(third));
    EXPECT_EQ(int_param(third, API_KEY_SCAN_MARKER), api_get_pid(third));

    int32_t found = -1;
    ASSERT_EQ(api_scan_for_ended_child(&found), 1);
    EXPECT_EQ(found, first);
    EXPECT_EQ(int_param(first, API_KEY_EXIT_CODE), 0);
    ASSERT_EQ(api_scan_for_ended_child(&found), 1);
    EXPECT_EQ(found, first);  // not processed yet

    api_init_search();
    ASSERT_EQ(api_get_next_ended_child(&found), 1);
    EXPECT_EQ(found, first);
    ASSERT_EQ(api_get_next_ended_child(&found), 1);
    EXPECT_EQ(found, third);
    EXPECT_EQ(int_param(third, API_KEY_EXIT_CODE), 5);
    EXPECT_EQ(api_get_next_ended_child(&found), 0);
    EXPECT_EQ(found, -1);

    ASSERT_EQ(api_set_handle_processed(first), 1);
    ASSERT_EQ(api_scan_for_ended_child(&found), 1);
    EXPECT_EQ(found, third);
    ASSERT_EQ(api_set_handle_processed(third), 1);
    EXPECT_EQ(api_scan_for_ended_child(&found), 0);
    EXPECT_EQ(found, -1);
    EXPECT_EQ(err_get_stack_depth(), 0);

    api_init_active_search();
    ASSERT_EQ(api_get_next_active_child(&found), 1);
    EXPECT_EQ(found, hanging);
    EXPECT_EQ(api_get_next_active_child(&found), 0);
    EXPECT_EQ(api_get_kill_list_size(), 1);
}

// ---- Killing ----------------------------------------------------------------------------------------

TEST_F(Images, KillOnlyEndsAChildThatIgnoresTermAndKeepsTheHandle) {
    int32_t h = hanging_child();
    int32_t pid = api_get_pid(h);
    int32_t was_running = -1;
    ASSERT_EQ(api_kill_process_with_protect(h, API_KILL_ONLY, &was_running), 1) << err_get_error_msg();
    EXPECT_EQ(was_running, 1);
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_KILLED);
    EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), -1);
    EXPECT_TRUE(reaped(pid));
    EXPECT_EQ(api_get_kill_list_size(), 0);

    // Ended already: nothing is signalled, the handle stays.
    ASSERT_EQ(api_kill_process_with_protect(h, API_KILL_ONLY, &was_running), 1);
    EXPECT_EQ(was_running, 0);
    EXPECT_EQ(api_get_pid(h), pid);
    ASSERT_EQ(api_kill_process(h, API_KILL_AND_DELETE), 1);
    err_clear_error_stack();
    EXPECT_EQ(api_get_pid(h), 0);
    EXPECT_NE(top_code(), 0u);  // the handle is gone
}

TEST_F(Images, KillAndDeleteAndFreeingEndTheChildAndItsEntry) {
    int32_t deleted = hanging_child("one");
    int32_t freed = hanging_child("two");
    int32_t pid_deleted = api_get_pid(deleted);
    int32_t pid_freed = api_get_pid(freed);
    ASSERT_EQ(api_get_kill_list_size(), 2);
    ASSERT_EQ(api_kill_process(deleted, API_KILL_AND_DELETE), 1) << err_get_error_msg();
    EXPECT_EQ(api_get_pid(deleted), 0);
    EXPECT_TRUE(reaped(pid_deleted));
    ASSERT_EQ(api_free_handle(freed), 1);
    EXPECT_TRUE(reaped(pid_freed));
    EXPECT_EQ(api_get_kill_list_size(), 0);
    EXPECT_EQ(api_kill_process(freed, 7), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
}

TEST_F(Images, AHandleMadeFromAPidIsNeverKilled) {
    int32_t own = hanging_child();
    int32_t attached = -1;
    ASSERT_EQ(api_create_handle_from_pid(api_get_pid(own), &attached), 1);
    EXPECT_EQ(api_kill_process(attached, API_KILL_ONLY), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
    int32_t running = 0;
    ASSERT_EQ(api_check_async_image_status(own, &running, nullptr), 1);
    EXPECT_EQ(running, 1);
    EXPECT_EQ(api_free_handle(attached), 1);
}

TEST_F(Images, TimeOutKillsAndReapsTheChildAndFailsWithTimeout) {
    int32_t h = child_handle("hang");
    EXPECT_EQ(api_sync_execute_user_image_with_timeout(h, 1), 0);
    EXPECT_EQ(top_code(), ERR_EXE_TIMEOUT);
    EXPECT_NE(std::string(err_get_error_text(0)).find(kChild), std::string::npos);
    EXPECT_EQ(image_state(h), API_IMAGE_STATE_KILLED);
    EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), -1);
    EXPECT_TRUE(reaped(api_get_pid(h)));
    EXPECT_EQ(api_get_kill_list_size(), 0);

    ASSERT_EQ(api_set_user_image_params(h, "exit 0"), 1);
    EXPECT_EQ(api_sync_execute_user_image_with_timeout(h, 30), 1) << err_get_error_msg();
    EXPECT_EQ(api_sync_execute_user_image_with_timeout(h, 0), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
}

int count_calls(int32_t, void *calls) {
    ++*static_cast<int *>(calls);
    return 1;
}

TEST_F(Images, MonitorRoutineIsCalledBetweenTheSlicesOfALongWait) {
    int32_t h = child_handle("hang");
    int calls = 0;
    ASSERT_EQ(api_set_user_monitor_routine(h, count_calls), 1);
    ASSERT_EQ(api_send_callback_info(h, &calls), 1);
    EXPECT_EQ(api_sync_execute_user_image_with_timeout(h, 2), 0);
    EXPECT_EQ(top_code(), ERR_EXE_TIMEOUT);
    EXPECT_EQ(calls, 1);  // after the first second; the second one ends in the time-out
}

TEST_F(Images, SuspendedChildRunsOnlyOnceResumed) {
    int32_t h = child_handle("exit 7", false);
    ASSERT_EQ(api_set_creation_flags(h, API_CREATE_SUSPENDED), 1);
    ASSERT_EQ(api_set_user_image_mode(h, API_IMAGE_MODE_SYNC), 1);
    ASSERT_EQ(api_run_user_image(h), 1) << err_get_error_msg();
    int32_t running = 0;
    ASSERT_EQ(api_check_async_image_status(h, &running, nullptr), 1);
    EXPECT_EQ(running, 1);
    ASSERT_EQ(api_resume(h), 1) << err_get_error_msg();
    ASSERT_EQ(api_check_user_image(h), 1) << err_get_error_msg();
    EXPECT_EQ(int_param(h, API_KEY_EXIT_CODE), 7);
    EXPECT_EQ(api_resume(h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_NOTACTIVE);
}

TEST_F(Images, ExitFileHoldsTheRecordedExitCode) {
    int32_t h = child_handle("exit 12", false);
    std::string file = path("exit");
    EXPECT_EQ(api_write_exit_file(h, file.c_str()), 0);
    EXPECT_EQ(top_code(), ERR_EXE_PARNOTFOUND);
    EXPECT_EQ(api_sync_execute_user_image(h), 0);
    ASSERT_EQ(api_write_exit_file(h, file.c_str()), 1) << err_get_error_msg();
    EXPECT_EQ(read_file(file), "12\n");
    EXPECT_EQ(api_write_exit_file(h, path("no/dir/exit").c_str()), 0);
    EXPECT_EQ(top_code(), ERR_EXE_GENERAL);
}

// ---- The kill list and its file -----------------------------------------------------------------------

std::vector<std::string> kill_list_lines(const std::string &file) {
    void *conf = nullptr;
    std::vector<std::string> lines;
    EXPECT_EQ(conf_allocate_handle(&conf), 1);
    EXPECT_EQ(conf_set_table(conf, vq_get_kill_list_cf_table(), vq_get_kill_list_cf_keys_number()), 1);
    EXPECT_EQ(conf_read_file_to_handle(conf, file.c_str()), 1) << err_get_error_msg();
    char **list = nullptr;
    if (conf_get_ml_string_field_by_const(conf, 0x2, &list) == 1 && list != nullptr) {
        for (char **line = list; *line != nullptr; ++line) {
            lines.emplace_back(*line);
        }
    }
    conf_free_handle(&conf);
    return lines;
}

void write_kill_list(const std::string &file, std::vector<std::string> lines) {
    void *conf = nullptr;
    ASSERT_EQ(conf_allocate_handle(&conf), 1);
    ASSERT_EQ(conf_set_table(conf, vq_get_kill_list_cf_table(), vq_get_kill_list_cf_keys_number()), 1);
    std::vector<char *> pointers;
    for (std::string &line : lines) {
        pointers.push_back(line.data());
    }
    pointers.push_back(nullptr);
    ASSERT_EQ(conf_set_ml_string_field_by_const(conf, 0x2, pointers.data()), 1);
    ASSERT_EQ(conf_write(conf, file.c_str()), 1) << err_get_error_msg();
    conf_free_handle(&conf);
}

std::string unique_id(int32_t h) {
    char id[API_UNIQUE_ID_SIZE] = {};
    EXPECT_EQ(api_get_process_unique_id(h, id), 1) << err_get_error_msg();
    return id;
}

TEST_F(Images, KillListFileFollowsTheRecoverableChildren) {
    std::string file = path("kill.list");
    ASSERT_EQ(api_set_kill_list_file(file.c_str()), 1) << err_get_error_msg();
    EXPECT_TRUE(kill_list_lines(file).empty());

    int32_t listed = hanging_child("one");
    int32_t unlisted = child_handle("hang", false);
    ASSERT_EQ(api_set_kill_list_ind(unlisted, API_KILL_LIST_NO_RECOVERY), 1);
    ASSERT_EQ(api_run_user_image(unlisted), 1);
    EXPECT_EQ(api_get_kill_list_size(), 2);
    std::vector<std::string> lines = kill_list_lines(file);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], unique_id(listed) + " " + kChild);

    ASSERT_EQ(api_kill_process(listed, API_KILL_ONLY), 1);
    EXPECT_TRUE(kill_list_lines(file).empty());
    ASSERT_EQ(api_set_kill_list_file(nullptr), 1);
    EXPECT_EQ(api_set_kill_list_ind(unlisted, 3), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
}

TEST_F(Images, ListedProcessesAreKilledOnlyWhileTheirIdAndCreationTimeMatch) {
    // Children a predecessor left: not on this process's list.
    int32_t left = child_handle("hang", false);
    ASSERT_EQ(api_set_kill_list_ind(left, API_KILL_LIST_NONE), 1);
    ASSERT_EQ(api_run_user_image(left), 1);
    int32_t reused = child_handle("hang", false);
    ASSERT_EQ(api_set_kill_list_ind(reused, API_KILL_LIST_NONE), 1);
    ASSERT_EQ(api_run_user_image(reused), 1);
    int32_t ours = hanging_child();
    EXPECT_EQ(api_get_kill_list_size(), 1);

    std::string reused_id = unique_id(reused);
    reused_id[31] = reused_id[31] == '0' ? '1' : '0';  // same pid, another creation time
    std::string file = path("old.list");
    write_kill_list(file, {unique_id(left) + " left behind", reused_id + " pid reused", unique_id(ours) + " ours",
                           "garbage line"});
    int32_t killed = -1;
    ASSERT_EQ(api_kill_listed_processes(file.c_str(), &killed), 1) << err_get_error_msg();
    EXPECT_EQ(killed, 1);

    ASSERT_EQ(api_set_user_image_mode(left, API_IMAGE_MODE_SYNC), 1);
    ASSERT_EQ(api_check_user_image(left), 1);
    EXPECT_EQ(image_state(left), API_IMAGE_STATE_KILLED);
    int32_t running = 0;
    ASSERT_EQ(api_check_async_image_status(reused, &running, nullptr), 1);
    EXPECT_EQ(running, 1);
    ASSERT_EQ(api_check_async_image_status(ours, &running, nullptr), 1);
    EXPECT_EQ(running, 1);

    EXPECT_EQ(api_kill_listed_processes(path("none.list").c_str(), &killed), 1);
    EXPECT_EQ(killed, 0);
}

// ---- What runs leave behind ---------------------------------------------------------------------------

#ifndef _WIN32
size_t open_descriptors() {
    size_t count = 0;
    for ([[maybe_unused]] const auto &item : fs::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

size_t zombie_children() {
    size_t count = 0;
    std::string own = std::to_string(getpid());
    for (const auto &item : fs::directory_iterator("/proc")) {
        std::string stat = read_file(item.path() / "stat");
        size_t close = stat.rfind(')');
        if (close == std::string::npos) {
            continue;
        }
        std::istringstream fields(stat.substr(close + 2));
        std::string state;
        std::string parent;
        fields >> state >> parent;
        count += state == "Z" && parent == own ? 1 : 0;
    }
    return count;
}

TEST_F(Images, AThousandRunsLeaveNoZombieDescriptorOrKillListEntry) {
    int32_t h = child_handle("");
    ASSERT_EQ(api_set_user_image_name(h, "/bin/true"), 1);
    ASSERT_EQ(api_set_errlog_filename(h, path("errlog").c_str()), 1);
    ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
    size_t descriptors = open_descriptors();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(api_sync_execute_user_image(h), 1) << i << ": " << err_get_error_msg();
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(zombie_children(), 0u);
    EXPECT_EQ(api_get_kill_list_size(), 0);
}
#endif

// ---- Identity ---------------------------------------------------------------------------------------------

// Traces of every channel go to a file for the life of the object.
class AllTraces {
public:
    explicit AllTraces(const std::string &file) {
        EXPECT_EQ(dbg_set_debug_output_filename(file.c_str()), 1);
        dbg_set_debug(1);
    }
    ~AllTraces() {
        dbg_set_debug(0);
        dbg_close_debug_output();
        dbg_set_debug_output(nullptr);
    }
    AllTraces(const AllTraces &) = delete;
    AllTraces &operator=(const AllTraces &) = delete;
};

TEST_F(Images, WrongPasswordFailsWithConchgBeforeAnythingStarts) {
#ifdef _WIN32
    GTEST_SKIP() << "logon is not implemented by Wine";
#else
    std::string password = "Pw" + random_text(16);
    const char *me = getpwuid(geteuid())->pw_name;
    int32_t h = child_handle("out started");
    ASSERT_EQ(api_set_context(h, me, nullptr), 1);
    ASSERT_EQ(api_set_password(h, password.c_str()), 1);
    char *user = nullptr;
    ASSERT_EQ(api_get_str_param(h, API_KEY_RUN_AS_USER, &user), 1);
    EXPECT_STREQ(user, me);
    {
        AllTraces traces(path("trace"));
        EXPECT_EQ(api_run_user_image(h), 0);
    }
    EXPECT_EQ(top_code(), ERR_EXE_CONCHG);
    EXPECT_NE(std::string(err_get_error_text(0)).find(me), std::string::npos);
    EXPECT_EQ(api_get_pid(h), 0);
    EXPECT_FALSE(fs::exists(path("out")));
    EXPECT_EQ(api_get_kill_list_size(), 0);
    std::string trace = read_file(path("trace"));
    EXPECT_NE(trace.find("user <"), std::string::npos);
    EXPECT_EQ(trace.find(password), std::string::npos);
    EXPECT_EQ(std::string(err_get_error_msg()).find(password), std::string::npos);
#endif
}

#ifndef _WIN32
// A user made for one test, with a password and a supplementary group;
// removed with its group afterwards.
class TestUser {
public:
    TestUser() : name_("vqimg" + random_text(6)), group_(name_ + "g"), password_("Pw" + random_text(20)) {
        std::transform(name_.begin(), name_.end(), name_.begin(), [](unsigned char c) { return std::tolower(c); });
        std::transform(group_.begin(), group_.end(), group_.begin(), [](unsigned char c) { return std::tolower(c); });
        ok_ = run("groupadd " + group_) && run("useradd -M -s /bin/sh -G " + group_ + " " + name_);
        if (ok_) {
            FILE *pipe = popen("chpasswd", "w");
            ok_ = pipe != nullptr && std::fprintf(pipe, "%s:%s\n", name_.c_str(), password_.c_str()) > 0;
            ok_ = pipe != nullptr && pclose(pipe) == 0 && ok_;
        }
    }
    ~TestUser() {
        run("userdel " + name_ + " 2>/dev/null");
        run("groupdel " + group_ + " 2>/dev/null");
    }
    TestUser(const TestUser &) = delete;
    TestUser &operator=(const TestUser &) = delete;

    [[nodiscard]] bool ok() const { return ok_; }
    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] const std::string &password() const { return password_; }

private:
    static bool run(const std::string &command) { return std::system(command.c_str()) == 0; }
    std::string name_;
    std::string group_;
    std::string password_;
    bool ok_ = false;
};

std::set<std::string> words(const std::string &line) {
    std::istringstream in(line);
    std::set<std::string> out;
    for (std::string word; in >> word;) {
        out.insert(word);
    }
    return out;
}

// The first count lines of text, empty ones where it has fewer.
std::vector<std::string> first_lines(const std::string &text, size_t count) {
    std::istringstream in(text);
    std::vector<std::string> lines(count);
    for (std::string &line : lines) {
        std::getline(in, line);
    }
    return lines;
}

// What id says for the user: uid, gid and every group, as id prints them.
std::string expected_ids(const std::string &user) {
    struct passwd *pw = getpwnam(user.c_str());
    EXPECT_NE(pw, nullptr);
    if (pw == nullptr) {
        return {};
    }
    int count = 64;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    EXPECT_GE(getgrouplist(user.c_str(), pw->pw_gid, groups.data(), &count), 0);
    std::set<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.insert(std::to_string(groups[static_cast<size_t>(i)]));
    }
    std::string all;
    for (const std::string &g : names) {
        all += g + " ";
    }
    return std::to_string(pw->pw_uid) + "\n" + std::to_string(pw->pw_gid) + "\n" + all;
}
#endif

TEST_F(Images, RootRunsTheChildAsTheUserWithItsGroups) {
#ifdef _WIN32
    GTEST_SKIP() << "logon is not implemented by Wine";
#else
    if (geteuid() != 0) {
        GTEST_SKIP() << "switching users needs root";
    }
    TestUser user;
    ASSERT_TRUE(user.ok()) << "useradd/chpasswd failed";
    for (bool with_password : {true, false}) {
        int32_t h = -1;
        ASSERT_EQ(api_allocate_handle(&h, 0), 1);
        handles_.push_back(h);
        ASSERT_EQ(api_set_user_image_name(h, "/bin/sh"), 1);
        ASSERT_EQ(api_set_user_image_params(h, "-c \"id -u; id -g; id -G; echo $HOME $USER; env; cat /proc/$$/cmdline\""),
                  1);
        ASSERT_EQ(api_set_context(h, user.name().c_str(), "/"), 1);
        if (with_password) {
            ASSERT_EQ(api_set_password(h, user.password().c_str()), 1);
        }
        ASSERT_EQ(api_set_log_filename(h, path("out").c_str()), 1);
        {
            AllTraces traces(path("trace"));
            ASSERT_EQ(api_sync_execute_user_image(h), 1) << err_get_error_msg();
        }
        std::vector<std::string> out = first_lines(read_file(path("out")), 4);
        std::vector<std::string> want = first_lines(expected_ids(user.name()), 3);
        EXPECT_EQ(out[0], want[0]);  // uid
        EXPECT_EQ(out[1], want[1]);  // gid
        EXPECT_EQ(words(out[2]), words(want[2]));
        EXPECT_EQ(words(out[2]).size(), 2u);  // the user's own group and the supplementary one
        EXPECT_NE(out[3].find(user.name()), std::string::npos);  // $HOME $USER

        // Child environment, command line, traces and errors never carry the password.
        std::string everything = read_file(path("out")) + read_file(path("trace")) + err_get_error_msg();
        EXPECT_EQ(everything.find(user.password()), std::string::npos);
        EXPECT_NE(read_file(path("trace")).find("calling create_process_as_user"), std::string::npos);
    }

    int32_t wrong = child_handle("exit 0");
    ASSERT_EQ(api_set_context(wrong, user.name().c_str(), nullptr), 1);
    ASSERT_EQ(api_set_password(wrong, (user.password() + "x").c_str()), 1);
    EXPECT_EQ(api_run_user_image(wrong), 0);
    EXPECT_EQ(top_code(), ERR_EXE_CONCHG);
    EXPECT_EQ(api_get_pid(wrong), 0);
#endif
}

}  // namespace
