// Deployment progress (see progress.h): a bar redrawn in place when standard
// output is a terminal, plain lines otherwise.
#include "progress.h"

#include <algorithm>
#include <cstdio>

#include "vq_glob/env.h"
#include "vq_glob/err.h"

namespace vqglob {

namespace {

// The figures after the bar take about this many columns; the bar gets what
// the terminal has beyond them, within bounds, so that the line never wraps
// (a wrapped line cannot be redrawn in place).
constexpr int kFiguresWidth = 72;
constexpr int kWidestBar = 30;
constexpr int kNarrowestBar = 5;

int bar_width() {
    int32_t columns = 0;
    if (env_get_terminal_columns(1, &columns) != 1) {
        err_clear_error_stack();
        return kWidestBar;
    }
    const int room = static_cast<int>(columns) - kFiguresWidth;
    return room < kNarrowestBar ? kNarrowestBar : room > kWidestBar ? kWidestBar : room;
}

}  // namespace

Progress::Progress()
    : terminal_(env_is_terminal(1) == 1),
      bar_width_(terminal_ ? bar_width() : 0),
      begin_(std::chrono::steady_clock::now()) {}

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

void Progress::sending(uint64_t bytes) {
    constexpr auto kRedraw = std::chrono::milliseconds(100);
    std::lock_guard<std::mutex> lock(mutex_);
    bytes_in_flight_ += bytes;
    const auto now = std::chrono::steady_clock::now();
    if (terminal_ && now - drawn_at_ >= kRedraw) {
        draw();
    }
}

void Progress::advance(const std::string &target, uint64_t files, uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    files_done_ += files;
    bytes_done_ += bytes;
    bytes_in_flight_ -= bytes < bytes_in_flight_ ? bytes : bytes_in_flight_;
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
    drawn_at_ = std::chrono::steady_clock::now();
    const uint64_t moved = std::min(bytes_done_ + bytes_in_flight_, bytes_total_);
    double elapsed = std::chrono::duration<double>(drawn_at_ - begin_).count();
    double rate = elapsed > 0 ? static_cast<double>(moved) / elapsed : 0;
    double share = bytes_total_ > 0 ? static_cast<double>(moved) / static_cast<double>(bytes_total_) : 1;
    int filled = static_cast<int>(share * bar_width_);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(static_cast<size_t>(bar_width_), ' ');
    // Rate and time left mean little before the first half second.
    constexpr double kSettled = 0.5;
    char left[32] = "";
    if (elapsed >= kSettled && rate > 0) {
        std::snprintf(left, sizeof left, " %.0f s left", static_cast<double>(bytes_total_ - moved) / rate);
    }
    std::printf("\r[%s] %llu/%llu files %s/%s %s/s%s\033[K", bar.c_str(),
                static_cast<unsigned long long>(files_done_), static_cast<unsigned long long>(files_total_),
                human_bytes(static_cast<double>(moved)).c_str(), human_bytes(static_cast<double>(bytes_total_)).c_str(),
                human_bytes(elapsed >= kSettled ? rate : 0).c_str(), left);
    std::fflush(stdout);
    drawn_ = true;
}

}  // namespace vqglob
