// What the sources of the strings module share: the per-thread records of
// its two slots and small text helpers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "internal/ascii.h"
#include "internal/frame.h"
#include "internal/raise.h"
#include "vq_glob/err.h"
#include "vq_glob/str.h"

namespace vq::strings {

using raise::Report;

inline constexpr const char *kModule = "strings";
inline constexpr char kSeparator = VQ_PATH_SEPARATOR;
// Tokenizer traces go to the STANDARD channel.
inline constexpr int32_t kTraceChannel = 0x8;
inline constexpr size_t kTokenBufferSize = 255;

// The strings slot: the tokenizer's position in the caller's text and its
// token buffer, and the result buffers of the number-to-text conversions.
struct StringsRecord {
    char *token_next = nullptr;  // null: no text to tokenise
    char *token = nullptr;       // malloc'ed, token_size bytes
    size_t token_size = 0;
    char ltoa_text[16] = {0};
    char dtoa_text[32] = {0};
    char addr_text[16] = {0};

    StringsRecord() = default;
    StringsRecord(const StringsRecord &) = delete;
    StringsRecord &operator=(const StringsRecord &) = delete;
    ~StringsRecord() { std::free(token); }
};

// The time-frames slot: the thread's daily frame in minutes of the day.
struct TimeFrameRecord {
    bool set = false;
    int32_t start = 0;  // 0..1439
    int32_t end = 0;    // 0..1440
};

using StringsFrame = frame::ModuleFrame<StringsRecord, frame::kSlotStrings>;
using TimeFrameFrame = frame::ModuleFrame<TimeFrameRecord, frame::kSlotTimeFrames>;

// The sources of this module raise parameter and memory errors through
// internal/raise.h and read characters with internal/ascii.h.

// Line ends count as blanks when a text is trimmed or tested for emptiness.
inline bool is_trimmed(char c) { return ascii::is_blank(c) || c == '\r' || c == '\n'; }

// The text without the blanks and tabs at its ends.
inline std::string_view trim_blanks(std::string_view text) {
    while (!text.empty() && ascii::is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && ascii::is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// A malloc'ed copy of len bytes of text plus a NUL, or null.
inline char *copy_text(const char *text, size_t len) {
    auto *copy = static_cast<char *>(std::malloc(len + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, len);
        copy[len] = '\0';
    }
    return copy;
}

}  // namespace vq::strings
