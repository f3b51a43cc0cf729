// A debug channel's trace lines sent through a pipe from the thread that
// traces to another thread, which blocks until a line it waits for arrives.
// Tests use it to know that the library has reached a point (a lock wait,
// say) before they act, instead of sleeping and hoping it has.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "vq_glob/dbg.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#else
#include <unistd.h>
#endif

namespace vq::test {

class TracePipe {
public:
    TracePipe() {
        int ends[2] = {-1, -1};
#ifdef _WIN32
        const int made = _pipe(ends, 4096, _O_BINARY);
#else
        const int made = pipe(ends);
#endif
        if (made != 0) {
            ADD_FAILURE() << "no pipe for the trace";
            return;
        }
#ifdef _WIN32
        reader_ = _fdopen(ends[0], "rb");
        writer_ = _fdopen(ends[1], "wb");
#else
        reader_ = fdopen(ends[0], "rb");
        writer_ = fdopen(ends[1], "wb");
#endif
        if (reader_ == nullptr || writer_ == nullptr) {
            ADD_FAILURE() << "no stream on the trace pipe";
        }
    }
    ~TracePipe() {
        close_writer();
        if (reader_ != nullptr) {
            std::fclose(reader_);
        }
    }
    TracePipe(const TracePipe &) = delete;
    TracePipe &operator=(const TracePipe &) = delete;

    // On the calling thread, traces of channel (a mask name such as "GF")
    // go into the pipe from now on.
    void trace_here(const std::string &channel) {
        dbg_set_debug_output(writer_);
        dbg_add_debug_mask(channel.c_str());
    }

    // On the thread that called trace_here: the channel is switched off, the
    // output reset and the pipe's writing end closed, so that a reader still
    // waiting sees the end instead of blocking for ever.
    void stop_here(const std::string &channel) {
        dbg_add_debug_mask(("NO" + channel).c_str());
        dbg_set_debug_output(nullptr);
        close_writer();
    }

    // Blocks until a line containing text arrives (true) or the writing end
    // is closed without one (false). Lines before it are consumed.
    bool await(const std::string &text) {
        char line[1024];
        while (reader_ != nullptr && std::fgets(line, sizeof line, reader_) != nullptr) {
            if (std::string(line).find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    // Reads and drops whatever else arrives until the writing end is closed,
    // so that the tracing thread never blocks on a full pipe.
    void drain() {
        char line[1024];
        while (reader_ != nullptr && std::fgets(line, sizeof line, reader_) != nullptr) {
        }
    }

private:
    void close_writer() {
        if (writer_ != nullptr) {
            std::fclose(writer_);
            writer_ = nullptr;
        }
    }

    std::FILE *reader_ = nullptr;
    std::FILE *writer_ = nullptr;
};

}  // namespace vq::test
