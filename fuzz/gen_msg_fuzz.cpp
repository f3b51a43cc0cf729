// General messages arrive from the network: the input is taken apart as a
// message, every kind of getter is asked for a spread of codes (plain and
// inside a struct), and the same bytes are unpacked as an error stack.
// Besides running under the sanitizers, the target checks what must hold
// whatever the input:
//  - a string found is a readable NUL-terminated text;
//  - a date read back is made of the members it was read from;
//  - unpacking a stack either pushes nothing or succeeds, and leaves at most
//    the stack's nine entries with texts shorter than an entry;
//  - read as a script of writer calls (tests/support/gm_script.h), the input
//    writes a message that takes apart into exactly what was written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "../tests/support/gm_script.h"
#include "vq_glob/err.h"
#include "vq_glob/gm.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void read_code(int32_t code) {
    char c = 0;
    int16_t s = 0;
    int32_t i = 0;
    int32_t l = 0;
    char *str = nullptr;
    void *v = nullptr;
    gm_get_char_param(code, &c);
    gm_get_short_param(code, &s);
    gm_get_int_param(code, &i);
    gm_get_long_param(code, &l);
    if (gm_get_str_param(code, &str) == 1 && str != nullptr) {
        check(std::strlen(str) < 65536);
    }
    gm_get_void_param(code, &v);
}

void read_all(const uint8_t *data, size_t size) {
    const int32_t codes[] = {0, 1, 2, 5, 9, 200, 201, 202, 203, 255, size > 0 ? data[0] : 7};
    for (int32_t code : codes) {
        read_code(code);
    }
    // Struct members under the first bytes' codes.
    for (size_t n = 0; n < size && n < 4; ++n) {
        gm_start_struct(data[n]);
        read_code(0);
        read_code(1);
        read_code(data[size - 1 - n]);
        gm_stop_struct();
    }
    tvtime t{};
    if (gm_get_date_param(size > 0 ? data[0] : 0, &t) == 1) {
        int32_t seconds = 0;
        gm_start_struct(size > 0 ? data[0] : 0);
        check(gm_get_long_param(0, &seconds) == 1 && static_cast<uint32_t>(seconds) == t.seconds);
        gm_stop_struct();
    }
    tvtime_old old{};
    gm_get_old_date_param(size > 0 ? data[0] : 0, &old);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    err_set_log_interactive(0);
    err_clear_error_stack();
    const auto length = static_cast<uint32_t>(size);
    gm_disassemble_message(data, length);
    read_all(data, size);
    gm_clean();

    const int unpacked = gm_unpack_error_stack(data, length);
    const int32_t depth = err_get_stack_depth();
    check(unpacked == 1 || depth == 0);
    check(depth <= 9);
    for (int32_t n = 0; n < depth; ++n) {
        check(std::strlen(err_get_error_text(n)) < sizeof(err_entry{}.text));
    }
    err_clear_error_stack();

    const vq::test::GmScript written(data, size);
    check(written.check_round_trip().empty());
    gm_clean();
    return 0;
}
