// Environment queries checked against what the system says through other
// means (the account database read directly, uname, getcwd, the
// environment), the current directory of any length and one that has been
// removed, and answers kept per thread.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <netdb.h>
#include <pty.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>
#endif

#include "support/net_support.h"
#include "vq_glob/env.h"
#include "vq_glob/err.h"

namespace {

namespace fs = std::filesystem;

std::string utf8(const fs::path &path) {
    std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

std::string text_of(const char *answer) {
    EXPECT_NE(answer, nullptr) << err_get_error_msg();
    return answer != nullptr ? answer : "";
}

// Goes back to the directory it was made in.
class CwdGuard {
public:
    CwdGuard() : before_(fs::current_path()) {}
    ~CwdGuard() { fs::current_path(before_); }
    CwdGuard(const CwdGuard &) = delete;
    CwdGuard &operator=(const CwdGuard &) = delete;

private:
    fs::path before_;
};

#ifndef _WIN32
TEST(Env, UserAndHomeComeFromTheAccountDatabase) {
    const passwd *entry = getpwuid(geteuid());
    ASSERT_NE(entry, nullptr) << "this test needs an account entry for its user";
    const std::string name = entry->pw_name;
    const std::string home = entry->pw_dir;
    EXPECT_EQ(text_of(env_get_user_name()), name);
    EXPECT_EQ(text_of(env_get_home_dir()), home);
}

TEST(Env, HostDomainAndSystemMatchTheSystemsOwnAnswers) {
    char host[1024] = {0};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    const std::string full = host;
    EXPECT_EQ(text_of(env_get_host_name()), full.substr(0, full.find('.')));

    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    std::string domain;
    if (getaddrinfo(host, nullptr, &hints, &found) == 0) {
        const std::string canonical = found->ai_canonname != nullptr ? found->ai_canonname : host;
        freeaddrinfo(found);
        domain = canonical.find('.') == std::string::npos ? "" : canonical.substr(canonical.find('.') + 1);
    }
    EXPECT_EQ(text_of(env_get_domain_name()), domain);

    utsname names{};
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(text_of(env_get_os_version()), std::string(names.sysname) + " " + names.release + " " +
                                                 names.version + " " + names.machine);
}

// What a child whose standard output is the given descriptor answers:
// env_is_terminal(1) in bit 0, and when env_get_terminal_columns(1) works,
// its value shifted left by one.
int terminal_answers_on(int fd) {
    const pid_t child = fork();
    if (child == 0) {
        dup2(fd, 1);
        int32_t columns = 0;
        const int is_terminal = env_is_terminal(1);
        const int known = env_get_terminal_columns(1, &columns);
        _exit(is_terminal | (known == 1 ? columns << 1 : 0));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Env, TerminalsAreToldFromPipesAndGiveTheirWidth) {
    int master = -1;
    int slave = -1;
    winsize size{};
    size.ws_col = 97;
    size.ws_row = 30;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    EXPECT_EQ(terminal_answers_on(slave), 1 | 97 << 1);
    close(master);
    close(slave);

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(terminal_answers_on(ends[1]), 0);
    close(ends[0]);
    close(ends[1]);

    EXPECT_EQ(env_is_terminal(7), 0);
    EXPECT_EQ(env_is_terminal(-1), 0);
    int32_t columns = -5;
    EXPECT_EQ(env_get_terminal_columns(9, &columns), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    EXPECT_EQ(columns, -5);
    EXPECT_EQ(env_get_terminal_columns(1, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST(Env, RemovedCurrentDirectoryIsAnErrorNotAnEmptyText) {
    vq::test::ScratchDir scratch("vq_env_gone_");
    const fs::path gone = scratch.path() / "gone";
    fs::create_directory(gone);
    CwdGuard guard;
    fs::current_path(gone);
    fs::remove(gone);
    err_clear_error_stack();
    EXPECT_EQ(env_get_cwd(), nullptr);
    ASSERT_EQ(err_get_stack_depth(), 2);
    EXPECT_EQ(err_get_error_code(0), ERR_ENV_GETCWD);
    EXPECT_EQ(err_get_error_code(1), ERR_SYS_ERRMSG);
    EXPECT_STRNE(err_get_error_text(1), "");
    err_clear_error_stack();
}
#else
// Windows keeps the same facts in the process environment, set at logon.
std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool same_ignoring_case(const std::string &a, const std::string &b) {
    return a.size() == b.size() && _stricmp(a.c_str(), b.c_str()) == 0;
}

TEST(Env, WindowsValuesMatchTheLogonEnvironment) {
    const std::string user = environment("USERNAME");
    const std::string profile = environment("USERPROFILE");
    if (user.empty() || profile.empty()) {
        GTEST_SKIP() << "USERNAME or USERPROFILE is not set";
    }
    EXPECT_TRUE(same_ignoring_case(text_of(env_get_user_name()), user)) << env_get_user_name();
    EXPECT_TRUE(same_ignoring_case(text_of(env_get_home_dir()), profile)) << env_get_home_dir();
    const std::string host = text_of(env_get_host_name());
    EXPECT_FALSE(host.empty());
    EXPECT_EQ(host.find('.'), std::string::npos);
    EXPECT_NE(env_get_domain_name(), nullptr) << err_get_error_msg();
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_NE(GetVersionExW(&info), 0);
    EXPECT_EQ(text_of(env_get_os_version()).rfind("Windows " + std::to_string(info.dwMajorVersion) + ".", 0), 0u)
        << env_get_os_version();
}
#endif

TEST(Env, CurrentDirectoryOfAnyLengthIsWhole) {
    vq::test::ScratchDir scratch("vq_env_cwd_");
    // Deeper than the first buffers a query might try; Windows keeps a
    // current directory within MAX_PATH characters.
#ifdef _WIN32
    constexpr int kLevels = 4;
#else
    constexpr int kLevels = 12;
#endif
    fs::path deep = scratch.path();
    for (int i = 0; i < kLevels; ++i) {
        deep /= std::string(40, static_cast<char>('a' + i));
    }
    fs::create_directories(deep);
    CwdGuard guard;
    fs::current_path(deep);
    const std::string expected = utf8(fs::current_path());
    ASSERT_GT(expected.size(), static_cast<size_t>(kLevels) * 40);
    EXPECT_EQ(text_of(env_get_cwd()), expected);
}

TEST(Env, AnswersArePerThreadAndPerQuery) {
    const char *user = env_get_user_name();
    const char *os = env_get_os_version();
    ASSERT_NE(user, nullptr);
    ASSERT_NE(os, nullptr);
    const std::string user_text = user;
    const std::string os_text = os;
    // Another query of the same thread keeps its own buffer.
    ASSERT_NE(env_get_cwd(), nullptr);
    EXPECT_EQ(std::string(user), user_text);

    const char *other = nullptr;
    std::string other_text;
    std::thread([&] {
        other = env_get_os_version();
        other_text = other != nullptr ? other : "";
    }).join();
    EXPECT_NE(other, os) << "each thread answers in its own buffer";
    EXPECT_EQ(other_text, os_text);
    EXPECT_EQ(std::string(os), os_text) << "another thread's query leaves this thread's answer alone";
}

}  // namespace
