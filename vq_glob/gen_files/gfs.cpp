// The file status record in general messages: a struct of a char and two
// longs under the record's code.
#include "gen_files/gf_state.h"
#include "vq_glob/gm.h"

namespace {

// The value the struct head carries.
constexpr int32_t kGfsStructValue = 2;

}  // namespace

extern "C" {

VQ_API int add_gfs_to_message(int32_t code, const gfs *record) {
    if (record == nullptr) {
        return 0;
    }
    gm_init_struct(code, kGfsStructValue);
    gm_add_char_to_message(0, record->flag);
    gm_add_long_to_message(1, record->value1);
    gm_add_long_to_message(2, record->value2);
    gm_close_struct();
    return 1;
}

VQ_API int get_gfs_from_message(int32_t code, gfs *record) {
    if (record == nullptr) {
        return 0;
    }
    char flag = 0;
    int32_t value1 = 0;
    int32_t value2 = 0;
    gm_start_struct(code);
    bool found = gm_get_char_param(0, &flag) != 0 && gm_get_long_param(1, &value1) != 0 &&
                 gm_get_long_param(2, &value2) != 0;
    gm_stop_struct();
    if (!found) {
        return 0;
    }
    record->flag = flag;
    record->value1 = value1;
    record->value2 = value2;
    return 1;
}

}  // extern "C"
