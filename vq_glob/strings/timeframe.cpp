// The thread's daily time frame: a window of clock times such as 22:00-06:00,
// the test whether a moment falls into it, and the comparison of two clock
// times in the frame's own order (from its start, across midnight).
#include <cstdint>
#include <string_view>

#include "strings/strings_state.h"

namespace vq::strings {
namespace {

constexpr int32_t kMinutesPerDay = 24 * 60;
constexpr int64_t kSecondsPerDay = int64_t{24} * 60 * 60;

// Minutes of the day of "H:MM" or "HH:MM", blanks around allowed; -1 for
// anything else. 24:00 (1440) is read only when allow_end_of_day is set.
int32_t clock_minutes(std::string_view text, bool allow_end_of_day) {
    text = trim_blanks(text);
    size_t colon = text.find(':');
    if (colon < 1 || colon > 2 || text.size() != colon + 3) {
        return -1;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != colon && !ascii::is_digit(text[i])) {
            return -1;
        }
    }
    int32_t hours = colon == 1 ? text[0] - '0' : (text[0] - '0') * 10 + (text[1] - '0');
    int32_t minutes = (text[colon + 1] - '0') * 10 + (text[colon + 2] - '0');
    if (minutes > 59 || hours > 24 || (hours == 24 && (minutes != 0 || !allow_end_of_day))) {
        return -1;
    }
    return hours * 60 + minutes;
}

// Position of a clock time in the frame's order, counted from origin.
int32_t frame_position(int32_t minutes, int32_t origin) {
    return (minutes - origin + kMinutesPerDay) % kMinutesPerDay;
}

}  // namespace
}  // namespace vq::strings

using namespace vq::strings;

extern "C" {

VQ_API int tframe(const char *text) {
    TimeFrameRecord *rec = TimeFrameFrame::get();
    if (rec == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    if (text == nullptr) {
        *rec = TimeFrameRecord{};
        return 1;
    }
    std::string_view frame = text;
    size_t dash = frame.find('-');
    if (dash == std::string_view::npos) {
        return VQ_PARAMS(Report::add, "text");
    }
    int32_t start = clock_minutes(frame.substr(0, dash), false);
    int32_t end = clock_minutes(frame.substr(dash + 1), true);
    if (start < 0 || end < 0) {
        return VQ_PARAMS(Report::add, "text");
    }
    rec->set = true;
    rec->start = start;
    rec->end = end;
    return 1;
}

VQ_API int tframe_time(uint32_t seconds, int32_t zone) {
    TimeFrameRecord *rec = TimeFrameFrame::get();
    if (rec == nullptr || !rec->set || rec->start == rec->end) {
        return 1;
    }
    int64_t local = static_cast<int64_t>(seconds) + zone;
    auto minute = static_cast<int32_t>(((local % kSecondsPerDay + kSecondsPerDay) % kSecondsPerDay) / 60);
    if (rec->start < rec->end) {
        return minute >= rec->start && minute < rec->end ? 1 : 0;
    }
    return minute >= rec->start || minute < rec->end ? 1 : 0;
}

VQ_API int compare_two(const char *time1, const char *time2, int32_t *result) {
    if (time1 == nullptr || time2 == nullptr || result == nullptr) {
        return VQ_PARAMS(Report::add, time1 == nullptr ? "time1" : time2 == nullptr ? "time2" : "result");
    }
    int32_t a = clock_minutes(time1, false);
    int32_t b = clock_minutes(time2, false);
    if (a < 0 || b < 0) {
        return VQ_PARAMS(Report::add, a < 0 ? "time1" : "time2");
    }
    TimeFrameRecord *rec = TimeFrameFrame::get();
    int32_t origin = rec != nullptr && rec->set ? rec->start : 0;
    a = frame_position(a, origin);
    b = frame_position(b, origin);
    *result = a < b ? -1 : a > b ? 1 : 0;
    return 1;
}

}  // extern "C"
