// Big numbers: signed decimal integers of any length.
//
// The magnitude is held in base 10^9, least significant limb first, so that
// reading and printing decimal text need no division of the whole number:
// each limb is nine decimal digits. The magnitude never has zero limbs at its
// top, zero has no limbs at all and is never negative; every operation keeps
// that form, so equal values have equal representations.
#include "vq_glob/slbn.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "internal/checked_handle.h"
#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::bignum {

using Limbs = std::vector<uint32_t>;

struct Value {
    bool negative = false;
    Limbs limbs;
};

}  // namespace vq::bignum

// The handle: its tag first, so that every entry point can tell a number
// from another kind of handle or from a number already freed.
struct slbn {
    vq::tag::HandleTag tag{vq::tag::Kind::big_number};
    vq::bignum::Value value;

    slbn() = default;
    explicit slbn(vq::bignum::Value v) : value(std::move(v)) {}
};

static_assert(std::is_standard_layout_v<slbn>, "the tag must sit at the number's address");

namespace vq::bignum {
namespace {

using raise::Report;

constexpr uint32_t kBase = 1000000000u;
constexpr int kLimbDigits = 9;

constexpr const char *kModule = "slbn";

// Whether number is a live number; a PARAMS error when it is null, another
// kind of handle or a number already freed.
bool usable(const char *fn, const slbn *number, const char *argument) {
    return tag::checked<slbn>(number, tag::Kind::big_number, Report::add, fn, argument) != nullptr;
}

void trim(Limbs &limbs) {
    while (!limbs.empty() && limbs.back() == 0) {
        limbs.pop_back();
    }
}

// Reads text into a number; false, with the cause pushed, for a text that is
// not a decimal number. May throw std::bad_alloc.
bool parse(const char *fn, const char *text, Value &out) {
    const char *digits = text;
    bool negative = false;
    if (*digits == '+' || *digits == '-') {
        negative = *digits == '-';
        ++digits;
    }
    size_t count = 0;
    while (digits[count] >= '0' && digits[count] <= '9') {
        ++count;
    }
    if (count == 0 || digits[count] != '\0') {
        char message[160];
        std::snprintf(message, sizeof message, "%s(): <%.64s%s> is not a decimal number", fn, text,
                      std::strlen(text) > 64 ? "..." : "");
        err_add_error(ERR_GEN_GENERAL, message);
        return false;
    }
    Limbs limbs;
    limbs.reserve(count / kLimbDigits + 1);
    // Nine digits at a time from the end; the first group may be shorter.
    for (size_t end = count; end > 0;) {
        size_t begin = end >= kLimbDigits ? end - kLimbDigits : 0;
        uint32_t limb = 0;
        for (size_t i = begin; i < end; ++i) {
            limb = limb * 10 + static_cast<uint32_t>(digits[i] - '0');
        }
        limbs.push_back(limb);
        end = begin;
    }
    trim(limbs);
    out.negative = negative && !limbs.empty();
    out.limbs = std::move(limbs);
    return true;
}

void set_int64(Value &out, int64_t value) {
    // The magnitude as unsigned, so that INT64_MIN needs no special case.
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    out.negative = value < 0;
    out.limbs.clear();
    while (magnitude != 0) {
        out.limbs.push_back(static_cast<uint32_t>(magnitude % kBase));
        magnitude /= kBase;
    }
}

int compare_magnitude(const Limbs &a, const Limbs &b) {
    if (a.size() != b.size()) {
        return a.size() < b.size() ? -1 : 1;
    }
    for (size_t i = a.size(); i-- > 0;) {
        if (a[i] != b[i]) {
            return a[i] < b[i] ? -1 : 1;
        }
    }
    return 0;
}

Limbs add_magnitude(const Limbs &a, const Limbs &b) {
    const Limbs &longer = a.size() >= b.size() ? a : b;
    const Limbs &shorter = a.size() >= b.size() ? b : a;
    Limbs sum;
    sum.reserve(longer.size() + 1);
    uint32_t carry = 0;
    for (size_t i = 0; i < longer.size(); ++i) {
        uint32_t limb = longer[i] + carry + (i < shorter.size() ? shorter[i] : 0);  // < 2 * 10^9 + 1
        carry = limb >= kBase ? 1 : 0;
        sum.push_back(limb - carry * kBase);
    }
    if (carry != 0) {
        sum.push_back(carry);
    }
    return sum;
}

// a - b for a magnitude a not less than b.
Limbs subtract_magnitude(const Limbs &a, const Limbs &b) {
    Limbs difference;
    difference.reserve(a.size());
    uint32_t borrow = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        uint32_t take = borrow + (i < b.size() ? b[i] : 0);
        borrow = a[i] < take ? 1 : 0;
        difference.push_back(a[i] + borrow * kBase - take);
    }
    trim(difference);
    return difference;
}

// a + b, with b's sign flipped when negate_b is set. May throw std::bad_alloc.
Value signed_sum(const Value &a, const Value &b, bool negate_b) {
    bool b_negative = b.negative != negate_b && !b.limbs.empty();
    Value sum;
    if (a.negative == b_negative) {
        sum.limbs = add_magnitude(a.limbs, b.limbs);
        sum.negative = a.negative;
    } else if (compare_magnitude(a.limbs, b.limbs) >= 0) {
        sum.limbs = subtract_magnitude(a.limbs, b.limbs);
        sum.negative = a.negative;
    } else {
        sum.limbs = subtract_magnitude(b.limbs, a.limbs);
        sum.negative = b_negative;
    }
    sum.negative = sum.negative && !sum.limbs.empty();
    return sum;
}

int sum_into(const char *fn, slbn *result, const slbn *a, const slbn *b, bool negate_b) {
    if (!usable(fn, result, "result") || !usable(fn, a, "a") || !usable(fn, b, "b")) {
        return 0;
    }
    try {
        Value sum = signed_sum(a->value, b->value, negate_b);
        result->value = std::move(sum);  // only now, so that result may be a or b
        return 1;
    } catch (const std::bad_alloc &) {
        return raise::memory(Report::add, fn, kModule, __LINE__);
    }
}

// Bytes of the decimal text with its sign and NUL, at the most.
size_t text_size(const Value &number) { return number.limbs.size() * kLimbDigits + 2; }

// Writes the decimal text of number into text, which holds at least
// text_size(number) bytes; returns the text's length.
size_t format(const Value &number, char *text) {
    char *p = text;
    if (number.limbs.empty()) {
        *p++ = '0';
        *p = '\0';
        return 1;
    }
    if (number.negative) {
        *p++ = '-';
    }
    // The top limb without leading zeros, every other limb as nine digits.
    char top[kLimbDigits + 1];
    int n = 0;
    for (uint32_t limb = number.limbs.back(); limb != 0; limb /= 10) {
        top[n++] = static_cast<char>('0' + limb % 10);
    }
    while (n > 0) {
        *p++ = top[--n];
    }
    for (size_t i = number.limbs.size() - 1; i-- > 0;) {
        uint32_t limb = number.limbs[i];
        for (int d = kLimbDigits - 1; d >= 0; --d) {
            p[d] = static_cast<char>('0' + limb % 10);
            limb /= 10;
        }
        p += kLimbDigits;
    }
    *p = '\0';
    return static_cast<size_t>(p - text);
}

}  // namespace
}  // namespace vq::bignum

using namespace vq::bignum;

extern "C" {

VQ_API slbn *slbn_new(void) {
    auto *number = new (std::nothrow) slbn;
    if (number == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
    }
    return number;
}

VQ_API slbn *slbn_from_string(const char *text) {
    if (text == nullptr) {
        VQ_PARAMS(Report::add, "text");
        return nullptr;
    }
    try {
        Value parsed;
        if (!parse("slbn_from_string", text, parsed)) {
            return nullptr;
        }
        return new slbn(std::move(parsed));
    } catch (const std::bad_alloc &) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
}

VQ_API slbn *slbn_from_int64(int64_t value) {
    try {
        Value number;
        set_int64(number, value);
        return new slbn(std::move(number));
    } catch (const std::bad_alloc &) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
}

VQ_API slbn *slbn_copy(const slbn *number) {
    if (!usable(__func__, number, "number")) {
        return nullptr;
    }
    try {
        return new slbn(number->value);
    } catch (const std::bad_alloc &) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
}

// Anything but a live number is left alone: freeing it would corrupt the heap.
VQ_API void slbn_free(slbn *number) {
    if (number != nullptr && usable(__func__, number, "number")) {
        delete number;
    }
}

VQ_API int slbn_set_string(slbn *number, const char *text) {
    if (!usable(__func__, number, "number")) {
        return 0;
    }
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    try {
        Value parsed;
        if (!parse("slbn_set_string", text, parsed)) {
            return 0;
        }
        number->value = std::move(parsed);
        return 1;
    } catch (const std::bad_alloc &) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
}

VQ_API char *slbn_to_string(const slbn *number) {
    if (!usable(__func__, number, "number")) {
        return nullptr;
    }
    auto *text = static_cast<char *>(std::malloc(text_size(number->value)));
    if (text == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    format(number->value, text);
    return text;
}

VQ_API int slbn_to_int64(const slbn *number, int64_t *value) {
    if (!usable(__func__, number, "number")) {
        return 0;
    }
    if (value == nullptr) {
        return VQ_PARAMS(Report::add, "value");
    }
    const Value &v = number->value;
    // 2^63 fits in three limbs; a fourth makes the magnitude at least 10^27.
    bool fits = v.limbs.size() <= 3;
    uint64_t magnitude = 0;
    for (size_t i = v.limbs.size(); fits && i-- > 0;) {
        fits = magnitude <= (UINT64_MAX - v.limbs[i]) / kBase;
        magnitude = magnitude * kBase + v.limbs[i];
    }
    const uint64_t limit = v.negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
    if (!fits || magnitude > limit) {
        // Long numbers are named by their leading limb and digit count.
        char text[64];
        if (v.limbs.size() <= 5) {
            format(v, text);
        } else {
            unsigned long long digits = (v.limbs.size() - 1) * kLimbDigits;
            for (uint32_t top = v.limbs.back(); top != 0; top /= 10) {
                ++digits;
            }
            std::snprintf(text, sizeof text, "%s%u... (%llu digits)", v.negative ? "-" : "",
                          static_cast<unsigned>(v.limbs.back()), digits);
        }
        char message[160];
        std::snprintf(message, sizeof message, "slbn_to_int64(): <%s> does not fit in a 64-bit integer",
                      text);
        err_add_error(ERR_GEN_GENERAL, message);
        return 0;
    }
    *value = v.negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    return 1;
}

// Something that is not a live number orders as NULL does: before every
// number. One error is enough: b is checked aloud only when a was live.
VQ_API int32_t slbn_compare(const slbn *a, const slbn *b) {
    bool a_live = usable(__func__, a, "a");
    bool b_live = a_live ? usable(__func__, b, "b") : vq::tag::is(b, vq::tag::Kind::big_number);
    if (!a_live || !b_live) {
        return a_live == b_live ? 0 : a_live ? 1 : -1;
    }
    if (a->value.negative != b->value.negative) {
        return a->value.negative ? -1 : 1;
    }
    int magnitude = compare_magnitude(a->value.limbs, b->value.limbs);
    return a->value.negative ? -magnitude : magnitude;
}

VQ_API int32_t slbn_sign(const slbn *number) {
    if (!usable(__func__, number, "number")) {
        return 0;
    }
    return number->value.limbs.empty() ? 0 : number->value.negative ? -1 : 1;
}

VQ_API int slbn_add(slbn *result, const slbn *a, const slbn *b) {
    return sum_into("slbn_add", result, a, b, false);
}

VQ_API int slbn_subtract(slbn *result, const slbn *a, const slbn *b) {
    return sum_into("slbn_subtract", result, a, b, true);
}

VQ_API int slbn_add_int64(slbn *number, int64_t value) {
    if (!usable(__func__, number, "number")) {
        return 0;
    }
    try {
        Value addend;
        set_int64(addend, value);
        number->value = signed_sum(number->value, addend, false);
        return 1;
    } catch (const std::bad_alloc &) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
}

}  // extern "C"
