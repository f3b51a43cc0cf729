// "%" variable substitution: one-letter variables in a template are replaced
// by the values of a caller's table.
#include "vq_glob/rep_var.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::variables {
namespace {

using raise::Report;

constexpr const char *kModule = "rep_var";

// The output buffer starts at 255 bytes and always keeps 10 bytes spare at
// its end; it grows by 100 bytes for plain characters and by three times a
// value's length for a value, so that a long value is not followed at once by
// another reallocation.
constexpr size_t kInitialSize = 255;
constexpr size_t kSpare = 10;
constexpr size_t kCharGrowth = 100;
constexpr size_t kValueGrowthFactor = 3;

// The malloc'ed text under construction; handed to the caller with release().
class Output {
public:
    Output() = default;
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    ~Output() { std::free(text_); }

    bool start() {
        text_ = static_cast<char *>(std::malloc(kInitialSize));
        size_ = text_ != nullptr ? kInitialSize : 0;
        return text_ != nullptr;
    }

    // Makes room for extra more bytes (the NUL and the spare bytes on top),
    // growing by step when a growth is due, or by more when step is too small.
    bool reserve(size_t extra, size_t step) {
        if (length_ + extra <= size_ - kSpare) {
            return true;
        }
        size_t least = length_ + extra + kSpare;
        if (least < length_) {  // no size can hold it
            return false;
        }
        size_t wanted = size_ + step;
        if (wanted < size_ || wanted < least) {  // the step overflows or falls short
            wanted = least;
        }
        auto *grown = static_cast<char *>(std::realloc(text_, wanted));
        if (grown == nullptr) {
            return false;
        }
        text_ = grown;
        size_ = wanted;
        return true;
    }

    // Appends without checking; reserve() made the room.
    void put(char c) { text_[length_++] = c; }
    void put(const char *bytes, size_t count) {
        std::memcpy(text_ + length_, bytes, count);
        length_ += count;
    }

    [[nodiscard]] size_t length() const { return length_; }

    char *release() {
        text_[length_] = '\0';
        char *text = text_;
        text_ = nullptr;
        return text;
    }

private:
    char *text_ = nullptr;
    size_t size_ = 0;
    size_t length_ = 0;
};

// For each key byte, the index of the first pair holding it, or -1.
using KeyIndex = std::array<int32_t, 256>;

KeyIndex index_table(const rep_var *table, int32_t count) {
    KeyIndex index;
    index.fill(-1);
    for (int32_t i = 0; i < count; ++i) {
        auto key = static_cast<unsigned char>(table[i].key & 0xFF);
        if (index[key] < 0) {
            index[key] = i;
        }
    }
    return index;
}

// The expansion as a malloc'ed text and its length in *length, or NULL with
// the cause on the error stack; fn names the exported caller.
char *expand(const char *fn, const char *template_text, const rep_var *table, int32_t count, size_t *length) {
    if (template_text == nullptr || count < 0 || (table == nullptr && count > 0)) {
        raise::params(Report::add, fn, template_text == nullptr ? "template" : count < 0 ? "count" : "table");
        return nullptr;
    }
    const KeyIndex index = index_table(table, count);
    Output out;
    if (!out.start()) {
        raise::memory(Report::add, fn, kModule, __LINE__);
        return nullptr;
    }
    for (const char *p = template_text; *p != '\0'; ++p) {
        // Room for the two characters of an unknown "%x" and the NUL.
        if (!out.reserve(2, kCharGrowth)) {
            raise::memory(Report::add, fn, kModule, __LINE__);
            return nullptr;
        }
        if (*p != '%' || p[1] == '\0') {  // a lone "%" at the end stays literal
            out.put(*p);
            continue;
        }
        ++p;
        if (*p == '%') {
            out.put('%');
            continue;
        }
        int32_t pair = index[static_cast<unsigned char>(*p)];
        if (pair < 0 || table == nullptr) {  // an empty table indexes nothing
            out.put('%');
            out.put(*p);
            continue;
        }
        const char *value = table[pair].value;
        if (value == nullptr) {
            raise::params(Report::add, fn, "table value");
            return nullptr;
        }
        size_t value_length = std::strlen(value);
        size_t step = value_length * kValueGrowthFactor;
        if (value_length != 0 && step / kValueGrowthFactor != value_length) {
            step = 0;  // reserve() then grows to exactly what is needed
        }
        if (!out.reserve(value_length, step)) {
            raise::memory(Report::add, fn, kModule, __LINE__);
            return nullptr;
        }
        out.put(value, value_length);
    }
    *length = out.length();
    return out.release();
}

}  // namespace
}  // namespace vq::variables

using vq::variables::expand;

extern "C" {

VQ_API char *dyn_replace_variables(const char *template_text, const rep_var *table, int32_t count) {
    size_t length = 0;
    return expand("dyn_replace_variables", template_text, table, count, &length);
}

VQ_API int replace_variables(char *target, const char *template_text, const rep_var *table, int32_t count) {
    if (target == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "target");
    }
    size_t length = 0;
    char *text = expand("replace_variables", template_text, table, count, &length);
    if (text == nullptr) {
        return 0;
    }
    std::memcpy(target, text, length + 1);
    std::free(text);
    return 1;
}

VQ_API int replace_variables_n(char *target, size_t size, const char *template_text, const rep_var *table,
                               int32_t count, size_t *needed) {
    if (needed != nullptr) {
        *needed = 0;
    }
    if (target == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "target");
    }
    size_t length = 0;
    char *text = expand("replace_variables_n", template_text, table, count, &length);
    if (text == nullptr) {
        return 0;
    }
    if (needed != nullptr) {
        *needed = length + 1;
    }
    if (length >= size) {
        std::free(text);
        char message[128];
        std::snprintf(message, sizeof message,
                      "replace_variables_n(): the expansion needs %llu bytes, the target holds %llu",
                      static_cast<unsigned long long>(length) + 1, static_cast<unsigned long long>(size));
        err_add_error(ERR_GEN_GENERAL, message);
        return 0;
    }
    std::memcpy(target, text, length + 1);
    std::free(text);
    return 1;
}

}  // extern "C"
