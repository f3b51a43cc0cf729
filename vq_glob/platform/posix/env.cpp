// POSIX backend of the environment queries: the account database for the
// effective user, gethostname and the resolver for the machine's names,
// uname for the system's version.
#include "platform/platform.h"

#include <netdb.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace {

// Account entries larger than this are not believed: the buffer stops growing.
constexpr size_t kMaxAccountBuffer = 1 << 20;
// Host names are short (HOST_NAME_MAX is 64 on Linux); the buffer grows to
// this size at the most for systems that allow more.
constexpr size_t kMaxHostName = 1 << 16;

// The effective user's account entry: 0 with *found set when it exists,
// kPlatEnvNoEntry when it does not, or the error number. The strings of the
// entry live in buffer, which grows until the entry fits.
int32_t own_account(passwd *entry, std::vector<char> *buffer) {
    long hint = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    buffer->resize(hint > 0 ? static_cast<size_t>(hint) : 1024);
    for (;;) {
        passwd *found = nullptr;
        int rc = ::getpwuid_r(::geteuid(), entry, buffer->data(), buffer->size(), &found);
        if (rc == 0) {
            return found != nullptr ? 0 : kPlatEnvNoEntry;
        }
        if (rc == EINTR) {
            continue;
        }
        if (rc != ERANGE || buffer->size() >= kMaxAccountBuffer) {
            return rc;
        }
        buffer->resize(buffer->size() * 2);
    }
}

}  // namespace

std::string plat_env_user_id() { return std::to_string(static_cast<unsigned long>(::geteuid())); }

int32_t plat_env_user_name(std::string *out) {
    try {
        passwd entry{};
        std::vector<char> buffer;
        if (int32_t error = own_account(&entry, &buffer); error != 0) {
            return error;
        }
        out->assign(entry.pw_name);
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

int32_t plat_env_home_dir(std::string *out) {
    try {
        passwd entry{};
        std::vector<char> buffer;
        int32_t error = own_account(&entry, &buffer);
        if (error == 0 && entry.pw_dir != nullptr && entry.pw_dir[0] != '\0') {
            out->assign(entry.pw_dir);
            return 0;
        }
        if (error != 0 && error != kPlatEnvNoEntry) {
            return error;
        }
        // An account without a directory (or no account at all, as for an
        // arbitrary user id in a container) falls back to the environment.
        const char *home = std::getenv("HOME");
        if (home == nullptr || home[0] == '\0') {
            return kPlatEnvNoEntry;
        }
        out->assign(home);
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

int32_t plat_env_host_name(std::string *out) {
    try {
        std::vector<char> buffer(256);
        for (;;) {
            // A name that fills the buffer may have been cut without a
            // terminator (or with ENAMETOOLONG): try again with more room.
            buffer.back() = '\1';
            int rc = ::gethostname(buffer.data(), buffer.size());
            bool cut = (rc != 0 && (errno == ENAMETOOLONG || errno == EINVAL)) || (rc == 0 && buffer.back() != '\1');
            if (!cut) {
                if (rc != 0) {
                    return errno;
                }
                buffer.back() = '\0';
                out->assign(buffer.data());
                return 0;
            }
            if (buffer.size() >= kMaxHostName) {
                return ENAMETOOLONG;
            }
            buffer.resize(buffer.size() * 2);
        }
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

int32_t plat_env_domain_name(const char *host, std::string *out) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_CANONNAME;
    addrinfo *found = nullptr;
    int rc = ::getaddrinfo(host, nullptr, &hints, &found);
    if (rc == EAI_NONAME || rc == EAI_NODATA) {
        out->clear();  // a name the resolver does not know has no domain
        return 0;
    }
    if (rc != 0) {
        return rc == EAI_SYSTEM ? errno : rc;
    }
    int32_t result = 0;
    try {
        const char *canonical = found->ai_canonname != nullptr ? found->ai_canonname : host;
        const char *dot = std::strchr(canonical, '.');
        out->assign(dot != nullptr ? dot + 1 : "");
    } catch (const std::bad_alloc &) {
        result = ENOMEM;
    }
    ::freeaddrinfo(found);
    return result;
}

int32_t plat_env_os_version(std::string *out) {
    utsname names{};
    if (::uname(&names) != 0) {
        return errno;
    }
    try {
        *out = std::string(names.sysname) + ' ' + names.release + ' ' + names.version + ' ' + names.machine;
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

void plat_env_error_text(int32_t code, char *buf, size_t size) {
    // The resolver's codes are negative; errno values are positive.
    if (code < 0 && code != kPlatEnvNoEntry && size > 0) {
        std::snprintf(buf, size, "%s", ::gai_strerror(code));
        return;
    }
    plat_system_error_text(code, buf, size);
}

bool plat_env_is_terminal(int stream) { return stream >= 0 && stream <= 2 && isatty(stream) == 1; }

int32_t plat_env_terminal_columns(int stream, int32_t *columns) {
    if (!plat_env_is_terminal(stream)) {
        return ENOTTY;
    }
    winsize size{};
    if (ioctl(stream, TIOCGWINSZ, &size) != 0) {
        return errno;
    }
    *columns = size.ws_col;
    return 0;
}
