// Deployment progress (see progress.h). The library has no terminal query,
// so whether standard output is a terminal is asked of the C runtime.
#include "progress.h"

#include <cstdio>

#ifdef _WIN32
#include <io.h>
#define VQGLOB_ISATTY(f) _isatty(_fileno(f))
#else
#include <unistd.h>
#define VQGLOB_ISATTY(f) isatty(fileno(f))
#endif

namespace vqglob {

Progress::Progress() : terminal_(VQGLOB_ISATTY(stdout) != 0), begin_(std::chrono::steady_clock::now()) {}

std::string Progress::human_bytes(double bytes) {
    static const char *const kUnits[] = {"B", "KB", "MB", "GB", "TB"};
    int unit = 0;
    while (bytes >= 1024 && unit < 4) {
        bytes /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", bytes, kUnits[unit]);
    return text;
}

void Progress::plan(uint64_t files, uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    files_total_ += files;
    bytes_total_ += bytes;
}

void Progress::advance(const std::string &target, uint64_t files, uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    files_done_ += files;
    bytes_done_ += bytes;
    if (terminal_) {
        draw();
    } else {
        std::printf("%s: sent %llu files, %s\n", target.c_str(), static_cast<unsigned long long>(files),
                    human_bytes(static_cast<double>(bytes)).c_str());
        std::fflush(stdout);
    }
}

void Progress::line(const std::string &text) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::printf("%s%s\n", drawn_ ? "\r\033[K" : "", text.c_str());
    drawn_ = false;
    std::fflush(stdout);
}

void Progress::finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (drawn_) {
        std::printf("\n");
        drawn_ = false;
    }
}

void Progress::draw() {
    constexpr int kWidth = 30;
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
    double rate = elapsed > 0 ? static_cast<double>(bytes_done_) / elapsed : 0;
    double share = bytes_total_ > 0 ? static_cast<double>(bytes_done_) / static_cast<double>(bytes_total_) : 1;
    int filled = static_cast<int>(share * kWidth);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(kWidth, ' ');
    double left = rate > 0 ? static_cast<double>(bytes_total_ - bytes_done_) / rate : 0;
    std::printf("\r[%s] %llu/%llu files %s/%s %s/s %.0f s left\033[K", bar.c_str(),
                static_cast<unsigned long long>(files_done_), static_cast<unsigned long long>(files_total_),
                human_bytes(static_cast<double>(bytes_done_)).c_str(),
                human_bytes(static_cast<double>(bytes_total_)).c_str(), human_bytes(rate).c_str(), left);
    std::fflush(stdout);
    drawn_ = true;
}

}  // namespace vqglob
