// The daemon's log lines (see log.h).
#include "log.h"

#include <cstdio>
#include <ctime>
#include <mutex>
#include <vector>
#ifdef _WIN32
#include <cwchar>
#endif

#include "vq_glob/err.h"
#include "vq_glob/gf_path.h"

namespace vqglob {
namespace {

std::mutex log_mutex;
FILE *log_file = nullptr;
bool use_syslog = false;

// Opens the UTF-8 name file for appending. On Windows fopen would read the
// name in the ANSI code page, so it goes through its UTF-16 form; the
// long-path prefix that form carries holds for full names only.
FILE *open_for_append(const std::string &file) {
#ifdef _WIN32
    std::vector<wchar_t> wide(GF_WPATH_SIZE);
    if (file.size() > GF_MAX_PATH_LENGTH || gf_path_to_wpath(file.c_str(), wide.data()) != 1) {
        return nullptr;
    }
    const wchar_t *name = wide.data();
    if (gf_is_full_path(file.c_str()) != 1 && std::wcsncmp(name, L"\\\\?\\", 4) == 0) {
        name += 4;
    }
    return _wfopen(name, L"a");
#else
    return std::fopen(file.c_str(), "a");
#endif
}


}  // namespace

std::string utc_text(const char *format) {
    std::time_t now = std::time(nullptr);
    std::tm parts{};
#ifdef _WIN32
    gmtime_s(&parts, &now);
#else
    gmtime_r(&now, &parts);
#endif
    char text[64];
    std::strftime(text, sizeof text, format, &parts);
    return text;
}

bool log_open(const std::string &file) {
    std::lock_guard<std::mutex> lock(log_mutex);
    FILE *opened = nullptr;
    if (!file.empty() && (opened = open_for_append(file)) == nullptr) {
        err_set_error(ERR_GEN_GENERAL, ("cannot open the log file <" + file + ">").c_str());
        return false;
    }
    if (log_file != nullptr) {
        std::fclose(log_file);
    }
    log_file = opened;
    use_syslog = opened == nullptr;
    err_set_log_syslog(use_syslog ? 1 : 0);
    // Informational lines too: the system log is then the daemon's only log.
    err_set_syslog_severity(0);
    err_set_log_interactive(0);
    return true;
}

void log_close() {
    std::lock_guard<std::mutex> lock(log_mutex);
    if (log_file != nullptr) {
        std::fclose(log_file);
        log_file = nullptr;
    }
}

namespace {

// Severities of the library's message table: information and error.
constexpr int32_t kInformation = 1;
constexpr int32_t kError = 3;

void write_line(const std::string &text, int32_t severity) {
    std::string line = utc_text("%Y-%m-%dT%H:%M:%SZ") + " " + text;
    std::lock_guard<std::mutex> lock(log_mutex);
    std::fprintf(stdout, "%s\n", line.c_str());
    std::fflush(stdout);
    if (log_file != nullptr) {
        std::fprintf(log_file, "%s\n", line.c_str());
        std::fflush(log_file);
    } else if (use_syslog) {
        err_log_line(severity, text.c_str());
    }
}

}  // namespace

void log_line(const std::string &text) { write_line(text, kInformation); }

void log_failure(const std::string &context) {
    std::string text = context + ": " + err_get_error_msg();
    for (char &c : text) {
        c = c == '\n' ? ' ' : c;
    }
    write_line(text, kError);
}

}  // namespace vqglob
