// Fuzzes the time module's text parsers with arbitrary NUL-terminated text and
// checks what a successful parse promises: a stamp-form text reads back to the
// stamp it wrote, computed stamps stay in the stamp range, periods are not
// negative, and a failure leaves an entry on the error stack.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "vq_glob/err.h"
#include "vq_glob/tvtime.h"

namespace {

constexpr uint32_t kMaxComputed = 0x7FFFFFFFu;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A failing call must say why.
void check_status(int status) {
    check(status == 1 || err_get_stack_depth() > 0);
    err_clear_error_stack();
}

void parse(const char *text) {
    tvtime t{};
    int status = conv_string_to_tvtime(text, &t);
    check_status(status);
    if (status == 1) {
        if (text[0] == 'G') {
            const char *written = conv_tvtime_to_string(&t);
            check(written != nullptr);
            tvtime back{};
            check(conv_string_to_tvtime(written, &back) == 1);
            check(back.seconds == t.seconds && back.zone == t.zone);
        } else {
            check(t.seconds <= kMaxComputed);
        }
    }

    status = conv_string_to_tolv(text, &t);
    check_status(status);
    check(status == 0 || t.seconds <= kMaxComputed);

    int32_t seconds = -1;
    status = conv_string_to_seconds(text, &seconds);
    check_status(status);
    check(status == 0 || seconds >= 0);

    check_status(check_time_string_format(text));

    time_t value = 0;
    status = conv_vms_string_to_time_t(text, &value);
    check_status(status);
    check(status == 0 || (value >= 0 && value <= static_cast<time_t>(kMaxComputed)));

    int32_t zone = 0;
    status = conv_string_to_timezone(text, &zone);
    check_status(status);
    check(status == 0 || (zone >= -14 * 3600 && zone <= 14 * 3600));

    const tvtime base = {1700000000u, 0};
    status = compute_relative_date_with_base(text, &base, &t);
    check_status(status);
    check(status == 0 || t.seconds <= kMaxComputed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    err_set_log_interactive(0);
    // The parsers read C strings: the input up to its first NUL.
    std::string text(reinterpret_cast<const char *>(data), size);
    parse(text.c_str());
    return 0;
}
