// Time stamps inside general messages: a stamp travels as a struct of its
// fields, written into the thread's message under construction and read back
// from the message it last took apart.
#include <cstdint>

#include "time_conv/time_conv.h"
#include "vq_glob/gm.h"
#include "vq_glob/tvtime.h"

namespace vq::timeconv {
namespace {

// The value every stamp struct carries in its head.
constexpr int32_t kStructValue = 1;

// The old stamp's fields in their wire order, member codes 0 to 8.
constexpr int kOldFields = 9;

int32_t *old_field(tvtime_old *t, int i) {
    int32_t *fields[kOldFields] = {&t->tm_sec,  &t->tm_min,  &t->tm_hour, &t->tm_mday, &t->tm_mon,
                                   &t->tm_year, &t->tm_wday, &t->tm_yday, &t->tm_isdst};
    return fields[i];
}

}  // namespace
}  // namespace vq::timeconv

using vq::timeconv::Report;

extern "C" {

// A refused add of a bounded message leaves the message overflowed, and so
// does every add after it: the check at the end covers the whole struct.
VQ_API int add_tvtime_to_message(int32_t code, const tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    gm_init_struct(code, vq::timeconv::kStructValue);
    gm_add_long_to_message(0, static_cast<int32_t>(t->seconds));
    gm_add_int_to_message(1, t->zone);
    gm_close_struct();
    return gm_message_overflowed() ? 0 : 1;
}

VQ_API int get_tvtime_from_message(int32_t code, tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    int32_t seconds = 0;
    int32_t zone = 0;
    gm_start_struct(code);
    const bool found = gm_get_long_param(0, &seconds) == 1 && gm_get_int_param(1, &zone) == 1;
    gm_stop_struct();
    if (!found) {
        return 0;
    }
    t->seconds = static_cast<uint32_t>(seconds);
    t->zone = zone;
    return 1;
}

VQ_API int add_tvtime_old_to_message(int32_t code, const tvtime_old *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    tvtime_old copy = *t;
    gm_init_struct(code, vq::timeconv::kStructValue);
    for (int i = 0; i < vq::timeconv::kOldFields; ++i) {
        gm_add_int_to_message(i, *vq::timeconv::old_field(&copy, i));
    }
    gm_close_struct();
    return gm_message_overflowed() ? 0 : 1;
}

VQ_API int get_tvtime_old_from_message(int32_t code, tvtime_old *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    tvtime_old read{};
    bool found = true;
    gm_start_struct(code);
    for (int i = 0; i < vq::timeconv::kOldFields && found; ++i) {
        found = gm_get_int_param(i, vq::timeconv::old_field(&read, i)) == 1;
    }
    gm_stop_struct();
    if (!found) {
        return 0;
    }
    *t = read;
    return 1;
}

}  // extern "C"
