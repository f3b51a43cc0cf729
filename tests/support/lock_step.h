// A reusable rendezvous of a fixed number of threads, built on a mutex and a
// condition variable. The C++ library of the Windows cross build loses
// wake-ups in std::barrier / std::latch under Wine, so tests use this one.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace vq::test {

class LockStep {
public:
    explicit LockStep(size_t threads) : threads_(threads) {}

    // Blocks until every thread of the group has arrived, then lets them all
    // go on; the group can meet again at once.
    void arrive_and_wait() {
        std::unique_lock<std::mutex> hold(mutex_);
        size_t round = round_;
        if (++arrived_ == threads_) {
            arrived_ = 0;
            ++round_;
            all_arrived_.notify_all();
            return;
        }
        all_arrived_.wait(hold, [&] { return round_ != round; });
    }

private:
    std::mutex mutex_;
    std::condition_variable all_arrived_;
    size_t threads_;
    size_t arrived_ = 0;
    size_t round_ = 0;
};

}  // namespace vq::test
