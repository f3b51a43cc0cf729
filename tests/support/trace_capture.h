// What the library traces on one debug channel while a piece of test code
// runs, caught in a temporary file so that the test can look at the lines.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "vq_glob/dbg.h"

namespace vq::test {

// Runs body with this thread's traces of channel (a mask name such as
// "CONFIG") going to a temporary file and returns what was written. The
// channel is switched off and the output reset afterwards.
template <typename Body>
std::string traced_on(const std::string &channel, Body body) {
    std::FILE *out = std::tmpfile();
    if (out == nullptr) {
        ADD_FAILURE() << "no temporary file for the trace";
        return "";
    }
    dbg_set_debug_output(out);
    dbg_add_debug_mask(channel.c_str());
    body();
    dbg_add_debug_mask(("NO" + channel).c_str());
    dbg_set_debug_output(nullptr);
    std::rewind(out);
    std::string trace;
    char line[1024];
    while (std::fgets(line, sizeof line, out) != nullptr) {
        trace += line;
    }
    std::fclose(out);
    return trace;
}

}  // namespace vq::test
