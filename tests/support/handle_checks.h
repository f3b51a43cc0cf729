// Helpers for the tests that hand the library a handle of the wrong kind or
// one already freed.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "vq_glob/err.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VQ_TEST_FREED_READS_REPORTED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VQ_TEST_FREED_READS_REPORTED 1
#endif
#endif

namespace vq::test {

// Under AddressSanitizer and ThreadSanitizer any read of freed memory is
// reported as such, so the cases that pass a freed handle back on purpose
// cannot run there.
#ifdef VQ_TEST_FREED_READS_REPORTED
inline constexpr bool kFreedReadsReported = true;
#else
inline constexpr bool kFreedReadsReported = false;
#endif

// Whether the newest error is PARAMS naming function and argument, as a
// refused handle leaves it; the stack is cleared for the next case.
inline ::testing::AssertionResult refused(const char *function, const char *argument) {
    std::string wanted = std::string("(<") + function + ">/<" + argument + ">)";
    std::string text = err_get_error_text(0);
    uint32_t code = err_get_error_code(0);
    err_clear_error_stack();
    if (code == ERR_GEN_PARAMS && text.find(wanted) != std::string::npos) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "newest error " << std::hex << code << " <" << text << ">, wanted PARAMS " << wanted;
}

// One call given a handle of the wrong kind: failed tells whether it came
// back with its failure result.
struct MisuseCase {
    const char *function;
    const char *argument;
    std::function<bool()> failed;
};

// Runs each case on a clear stack and checks its result and its PARAMS error.
inline void expect_refused(const std::vector<MisuseCase> &cases) {
    for (const MisuseCase &c : cases) {
        err_clear_error_stack();
        EXPECT_TRUE(c.failed()) << c.function;
        EXPECT_TRUE(refused(c.function, c.argument)) << c.function;
    }
}

}  // namespace vq::test

// Skips the rest of a test that reads freed memory on purpose.
#define VQ_SKIP_UNDER_SANITIZER()                                                                   \
    do {                                                                                            \
        if (::vq::test::kFreedReadsReported) {                                                      \
            GTEST_SKIP() << "the sanitizer reports the read of freed memory that this case makes"; \
        }                                                                                           \
    } while (0)
