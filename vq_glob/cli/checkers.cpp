// Value checkers and converters: numbers, dates, times of day, periods,
// weekly schedules and named bit masks. Those with a leading flag double as
// value hooks and accept at once when the flag is set.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"
#include "vq_glob/tvtime.h"

namespace vq::cli {
namespace {

constexpr size_t kMaskBytes = 40;
constexpr int32_t kMaskBits = static_cast<int32_t>(kMaskBytes * 8);
constexpr size_t kWeeklyMax = 226;
constexpr size_t kWeeklyFirst = 16;  // the first element's width
constexpr size_t kWeeklyNext = 17;   // each further element's width

constexpr const char *kDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

bool set_bits(const char *list, char sep, const cli_bit_keyword *keywords, unsigned char *mask,
              const char *qualifier) {
    for (const std::string &word : split(list, sep)) {
        const cli_bit_keyword *k = keywords;
        while (k != nullptr && k->keyword != nullptr && !ascii::equal_nocase(k->keyword, word)) {
            ++k;
        }
        if (k == nullptr || k->keyword == nullptr || k->bit < 0 || k->bit >= kMaskBits) {
            err_set_error(ERR_CLI_INVVAL, word.c_str(), qualifier);
            return false;
        }
        mask[k->bit / 8] = static_cast<unsigned char>(mask[k->bit / 8] | (1U << (k->bit % 8)));
    }
    return true;
}

// One element of a schedule at text, read with the given format.
bool weekly_element(const char *text, const char *format, int &day, int &hour, int &minute) {
    return std::sscanf(text, format, &day, &hour, &minute) == 3 && day >= 0 && day <= 6;
}

}  // namespace
}  // namespace vq::cli

using namespace vq::cli;
using vq::raise::Report;

extern "C" {

VQ_API int32_t cli_check_number(const char *text, int32_t length) {
    if (length < 1) {
        return 1;
    }
    if (text == nullptr) {
        return 0;
    }
    int32_t i = text[0] == '-' ? 1 : 0;
    int32_t digits = 0;
    for (; i < length; ++i) {
        if (!vq::ascii::is_digit(text[i])) {  // the NUL stops here too
            return 0;
        }
        ++digits;
    }
    return digits > 0 ? digits : 1;
}

VQ_API int cli_check_date(int32_t flag, const char *text, struct tm *out) {
    if (flag != 0) {
        return 1;
    }
    tvtime t{};
    if (text == nullptr || conv_string_to_tvtime(text, &t) != 1) {
        return 0;
    }
    struct tm parts {};
    if (conv_tolvenar_to_tm(&t, &parts) != 1) {
        return 0;
    }
    if (out != nullptr) {
        *out = parts;
    }
    return 1;
}

VQ_API int cli_asc_to_clidate(const char *text, struct tm *out) {
    return cli_check_date(0, text, out);
}

VQ_API int cli_check_time_string_format(int32_t flag, char *text) {
    if (flag != 0) {
        return 1;
    }
    return text != nullptr && check_time_string_format(text) == 1 ? 1 : 0;
}

VQ_API int cli_conv_string_to_seconds(int32_t flag, char *text) {
    if (flag != 0) {
        return 1;
    }
    int32_t seconds = 0;
    if (text == nullptr || conv_string_to_seconds(text, &seconds) != 1) {
        return 0;
    }
    std::snprintf(text, 12, "%d", static_cast<int>(seconds));
    return 1;
}

VQ_API int cli_conv_string_to_minutes(int32_t flag, char *text) {
    if (flag != 0) {
        return 1;
    }
    if (text == nullptr || text[0] == '\0') {
        return 0;
    }
    bool digits = true;
    for (const char *p = text; *p != '\0'; ++p) {
        digits = digits && vq::ascii::is_digit(*p);
    }
    if (digits) {
        return 1;
    }
    int32_t seconds = 0;
    if (conv_string_to_seconds(text, &seconds) != 1) {
        return 0;
    }
    std::snprintf(text, 12, "%d", static_cast<int>(seconds / 60));
    return 1;
}

VQ_API const char *parse_weekly(const char *text) {
    CliRecord *st = record();
    if (text == nullptr || st == nullptr) {
        return text;
    }
    size_t length = std::strlen(text);
    int day = 0;
    int hour = 0;
    int minute = 0;
    if (length > kWeeklyMax || !weekly_element(text, "(w:%d h:%d m:%d)", day, hour, minute)) {
        return text;
    }
    try {
        char piece[64];
        std::snprintf(piece, sizeof piece, "%s %02d:%02d", kDays[day], hour, minute);
        std::string out = piece;
        for (size_t at = kWeeklyFirst; at < length; at += kWeeklyNext) {
            if (!weekly_element(text + at, " (w:%d h:%d m:%d)", day, hour, minute)) {
                break;
            }
            std::snprintf(piece, sizeof piece, ", %s %02d:%02d", kDays[day], hour, minute);
            out += piece;
        }
        st->weekly_buf = std::move(out);
        return st->weekly_buf.c_str();
    } catch (const std::bad_alloc &) {
        return text;
    }
}

VQ_API int cli_user_bit_mask(int32_t flag, const char *value, unsigned char **mask, const cli_item *item) {
    if (flag != 0) {
        return 1;
    }
    if (mask == nullptr || item == nullptr) {
        return VQ_PARAMS(Report::fresh, mask == nullptr ? "mask" : "item");
    }
    *mask = static_cast<unsigned char *>(std::calloc(1, kMaskBytes));
    if (*mask == nullptr) {
        err_set_error(ERR_CLI_MALLOCF, "cli_user_bit_mask", __LINE__);
        return 0;
    }
    try {
        const char *name = item->name != nullptr ? item->name : "";
        bool ok = (item->default_value == nullptr || set_bits(item->default_value, ',', item->bits, *mask, name)) &&
                  (value == nullptr || value[0] == '\0' || set_bits(value, cli_get_separator_char(), item->bits, *mask, name));
        if (ok) {
            return 1;
        }
    } catch (const std::bad_alloc &) {
        err_set_error(ERR_CLI_MALLOCF, "cli_user_bit_mask", __LINE__);
    }
    std::free(*mask);
    *mask = nullptr;
    return 0;
}

VQ_API int cli_user_bit_mask_test(int32_t bit, const unsigned char *mask) {
    if (mask == nullptr || bit < 0 || bit >= kMaskBits) {
        return 0;
    }
    return (mask[bit / 8] >> (bit % 8)) & 1;
}

VQ_API char *cli_to_upper(char *text) {
    if (text != nullptr) {
        for (char *p = text; *p != '\0'; ++p) {
            *p = vq::ascii::to_upper(*p);
        }
    }
    return text;
}

}  // extern "C"
