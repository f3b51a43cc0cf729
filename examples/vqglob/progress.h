// Progress of a deployment over all targets: a bar redrawn in place on a
// terminal (files, bytes, rate, time left), plain lines otherwise. Safe to
// call from the target threads.
#ifndef VQGLOB_PROGRESS_H
#define VQGLOB_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace vqglob {

class Progress {
public:
    Progress();
    // Adds what one target is going to send.
    void plan(uint64_t files, uint64_t bytes);
    // Records a batch target has sent (and the daemon acknowledged).
    void advance(const std::string &target, uint64_t files, uint64_t bytes);
    // Bytes that left for a target and are not acknowledged yet: the bar
    // moves with them, redrawn at most every kRedraw.
    void sending(uint64_t bytes);
    // A line of its own (above the bar on a terminal).
    void line(const std::string &text);
    // Ends the bar's line.
    void finish();
    // "12.3 MB" and the like.
    static std::string human_bytes(double bytes);

private:
    void draw();

    std::mutex mutex_;
    bool terminal_;
    int bar_width_;  // the bar's share of the terminal's line
    bool drawn_ = false;
    uint64_t files_total_ = 0;
    uint64_t bytes_total_ = 0;
    uint64_t files_done_ = 0;
    uint64_t bytes_done_ = 0;
    uint64_t bytes_in_flight_ = 0;
    std::chrono::steady_clock::time_point drawn_at_;
    std::chrono::steady_clock::time_point begin_;
};

}  // namespace vqglob

#endif
