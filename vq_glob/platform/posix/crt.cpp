// POSIX backend: the C runtime's descriptor and stream opens that the
// allocation tracker wraps, with the wide-name and share-mode forms that only
// Windows has natively.
#include "platform/platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace {
// A wide name as UTF-8, whatever the process locale; false (errno EILSEQ)
// for a value that is no Unicode scalar, ENOMEM when out of memory.
bool utf8_from_wide(const wchar_t *text, std::string &out) {
    try {
        out.clear();
        for (; *text != L'\0'; ++text) {
            auto c = static_cast<uint32_t>(static_cast<std::make_unsigned_t<wchar_t> >(*text));
            if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
                errno = EILSEQ;
                return false;
            }
            if (c < 0x80) {
                out += static_cast<char>(c);
            } else if (c < 0x800) {
                out += static_cast<char>(0xC0 | (c >> 6));
                out += static_cast<char>(0x80 | (c & 0x3F));
            } else if (c < 0x10000) {
                out += static_cast<char>(0xE0 | (c >> 12));
                out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (c & 0x3F));
            } else {
                out += static_cast<char>(0xF0 | (c >> 18));
                out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
                out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (c & 0x3F));
            }
        }
        return true;
    } catch (...) {
        errno = ENOMEM;
        return false;
    }
}

}  // namespace

bool plat_crt_open_needs_mode(int flags) {
#ifdef O_TMPFILE
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        return true;
    }
#endif
    return (flags & O_CREAT) != 0;
}
int plat_crt_open(const char *name, int flags, int mode) {
    return ::open(name, flags, static_cast<mode_t>(mode));
}
int plat_crt_close(int fd) { return ::close(fd); }
std::FILE *plat_crt_fdopen(int fd, const char *mode) { return ::fdopen(fd, mode); }
std::FILE *plat_crt_fsopen(const char *name, const char *mode, int /*share*/) { return std::fopen(name, mode); }

int plat_crt_wopen(const wchar_t *name, int flags, int mode) {
    std::string utf8;
    return utf8_from_wide(name, utf8) ? plat_crt_open(utf8.c_str(), flags, mode) : -1;
}

std::FILE *plat_crt_wfopen(const wchar_t *name, const wchar_t *mode) {
    std::string utf8_name;
    std::string utf8_mode;
    if (!utf8_from_wide(name, utf8_name) || !utf8_from_wide(mode, utf8_mode)) {
        return nullptr;
    }
    return std::fopen(utf8_name.c_str(), utf8_mode.c_str());
}

// tempnam as the C library defines it: the directory is TMPDIR, else dir,
// else /tmp (the first that is a directory); the name is up to five
// characters of prefix ("file" when none) and six random ones, chosen so that
// no file of that name exists yet. Written here because glibc's own is
// flagged at every link of the library.
char *plat_crt_tempnam(const char *dir, const char *prefix) {
    try {
        namespace fs = std::filesystem;
        std::error_code ec;
        std::string base;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): read only, as the C library's tempnam does
        const char *const candidates[] = {std::getenv("TMPDIR"), dir, "/tmp"};
        for (const char *candidate : candidates) {
            if (candidate != nullptr && *candidate != '\0' && fs::is_directory(candidate, ec)) {
                base = candidate;
                break;
            }
        }
        if (base.empty()) {
            errno = ENOENT;
            return nullptr;
        }
        if (base.back() != '/') {
            base += '/';
        }
        base += std::string_view(prefix != nullptr ? prefix : "file").substr(0, 5);
        static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
        static std::atomic<uint64_t> counter{0};
        uint64_t seed = static_cast<uint64_t>(std::time(nullptr)) ^ (uint64_t{plat_process_id()} << 32) ^
                        reinterpret_cast<uintptr_t>(&base) ^ (counter.fetch_add(1) * 0x9E3779B97F4A7C15ULL);
        for (int attempt = 0; attempt < 100; ++attempt) {
            std::string name = base;
            for (int i = 0; i < 6; ++i) {
                // xorshift64*: cheap and well spread; the name need not be secret.
                seed ^= seed >> 12;
                seed ^= seed << 25;
                seed ^= seed >> 27;
                name += kLetters[((seed * 0x2545F4914F6CDD1DULL) >> 33) % (sizeof(kLetters) - 1)];
            }
            if (!fs::exists(fs::symlink_status(name, ec))) {
                char *result = static_cast<char *>(std::malloc(name.size() + 1));
                if (result == nullptr) {
                    errno = ENOMEM;
                    return nullptr;
                }
                std::memcpy(result, name.c_str(), name.size() + 1);
                return result;
            }
        }
        errno = EEXIST;
        return nullptr;
    } catch (...) {
        errno = ENOMEM;
        return nullptr;
    }
}
