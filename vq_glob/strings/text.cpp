// String routines of the strings module: trimming and in-place edits, tests
// and counts, replacing and appending, and reading lines from a stream. The
// module's two frames live here; the tokenizer, conversions, paths and time
// frames have sources of their own beside this one.
#include <cstdio>
#include <cstring>

#include "strings/strings_state.h"

namespace vq::frame {
constinit const Module kStringsModule = strings::StringsFrame::module("str");
constinit const Module kTimeFramesModule = strings::TimeFrameFrame::module("tframe");
}  // namespace vq::frame

namespace vq::strings {
namespace {

// Keeps the characters for which drop() is false, in place.
template <typename Drop>
void squeeze(char *text, Drop drop) {
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in) {
        if (!drop(in)) {
            *out++ = *in;
        }
    }
    *out = '\0';
}

// Reads one line into buffer (see str_read_next_plain_line); fn names the
// exported caller in error texts.
int read_line(std::FILE *stream, char *buffer, int32_t size, const char *fn) {
    buffer[0] = '\0';
    int c = std::getc(stream);
    if (c == EOF) {
        if (std::ferror(stream) != 0) {
            char text[96];
            std::snprintf(text, sizeof text, "%s(): error reading the stream", fn);
            err_add_error(ERR_GEN_GENERAL, text);
        }
        return 0;
    }
    auto room = static_cast<size_t>(size) - 1;
    size_t len = 0;
    size_t dropped = 0;
    int last_dropped = 0;
    for (; c != EOF && c != '\n'; c = std::getc(stream)) {
        if (len < room) {
            buffer[len++] = static_cast<char>(c);
        } else {
            ++dropped;
            last_dropped = c;
        }
    }
    // The CR of a CRLF line end is no part of the line, even when it is the
    // one byte that did not fit.
    if (dropped == 1 && last_dropped == '\r') {
        dropped = 0;
    } else if (dropped == 0 && len > 0 && buffer[len - 1] == '\r') {
        --len;
    }
    buffer[len] = '\0';
    if (dropped != 0) {
        char text[128];
        std::snprintf(text, sizeof text, "%s(): line longer than %ld bytes", fn, static_cast<long>(room));
        err_add_error(ERR_GEN_GENERAL, text);
        return 0;
    }
    return 1;
}

bool is_comment_or_blank(const char *line) {
    while (ascii::is_blank(*line)) {
        ++line;
    }
    return *line == '\0' || *line == '#';
}

}  // namespace
}  // namespace vq::strings

using namespace vq::strings;

extern "C" {

// ---- Trimming and in-place edits ---------------------------------------------

VQ_API int str_trim(char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    size_t len = std::strlen(text);
    size_t start = 0;
    while (start < len && is_trimmed(text[start])) {
        ++start;
    }
    while (len > start && is_trimmed(text[len - 1])) {
        --len;
    }
    std::memmove(text, text + start, len - start);
    text[len - start] = '\0';
    return 1;
}

VQ_API int str_trim_end_crlf(char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    size_t len = std::strlen(text);
    while (len > 0 && (text[len - 1] == '\r' || text[len - 1] == '\n')) {
        --len;
    }
    text[len] = '\0';
    return 1;
}

VQ_API int str_remove_nl(char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    squeeze(text, [](const char *c) { return *c == '\r' || *c == '\n'; });
    return 1;
}

VQ_API int str_handle_double_spaces(char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    char previous = '\0';
    squeeze(text, [&previous](const char *c) {
        bool drop = *c == ' ' && previous == ' ';
        previous = *c;
        return drop;
    });
    return 1;
}

VQ_API int str_up_string(char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    for (; *text != '\0'; ++text) {
        *text = vq::ascii::to_upper(*text);
    }
    return 1;
}

VQ_API int str_remove_end_sign(char *text, char sign) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    if (sign == '\0') {
        return VQ_PARAMS(Report::add, "sign");
    }
    size_t len = std::strlen(text);
    if (len > 0 && text[len - 1] == sign) {
        text[len - 1] = '\0';
    }
    return 1;
}

VQ_API int str_replace_char_in_string(char *text, char from, char to) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    if (from == '\0') {
        return VQ_PARAMS(Report::add, "from");
    }
    if (to == '\0') {
        squeeze(text, [from](const char *c) { return *c == from; });
        return 1;
    }
    for (; *text != '\0'; ++text) {
        if (*text == from) {
            *text = to;
        }
    }
    return 1;
}

VQ_API int str_replace_charset_in_string(char *text, const char *charset, char to) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    if (charset == nullptr) {
        return VQ_PARAMS(Report::add, "charset");
    }
    auto in_set = [charset](char c) { return c != '\0' && std::strchr(charset, c) != nullptr; };
    if (to == '\0') {
        squeeze(text, [&in_set](const char *c) { return in_set(*c); });
        return 1;
    }
    for (; *text != '\0'; ++text) {
        if (in_set(*text)) {
            *text = to;
        }
    }
    return 1;
}

VQ_API int str_cat_with_realloc(char **target, const char *text) {
    if (target == nullptr) {
        return VQ_PARAMS(Report::add, "target");
    }
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    size_t old_len = *target != nullptr ? std::strlen(*target) : 0;
    size_t add = std::strlen(text);
    auto *grown = static_cast<char *>(std::realloc(*target, old_len + add + 1));
    if (grown == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    std::memcpy(grown + old_len, text, add + 1);
    *target = grown;
    return 1;
}

// ---- Tests and counts ----------------------------------------------------------

VQ_API int str_is_empty(const char *text) {
    if (text == nullptr) {
        return 1;
    }
    while (is_trimmed(*text)) {
        ++text;
    }
    return *text == '\0' ? 1 : 0;
}

VQ_API int str_is_not_empty(const char *text) { return str_is_empty(text) != 0 ? 0 : 1; }

VQ_API int str_match_head(const char *text, const char *head) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    if (head == nullptr) {
        return VQ_PARAMS(Report::add, "head");
    }
    return std::strncmp(text, head, std::strlen(head)) == 0 ? 1 : 0;
}

VQ_API int str_match_tail(const char *text, const char *tail) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    if (tail == nullptr) {
        return VQ_PARAMS(Report::add, "tail");
    }
    size_t len = std::strlen(text);
    size_t tail_len = std::strlen(tail);
    return tail_len <= len && std::memcmp(text + len - tail_len, tail, tail_len) == 0 ? 1 : 0;
}

VQ_API int str_char_in_string(const char *text, char c) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    return c != '\0' && std::strchr(text, c) != nullptr ? 1 : 0;
}

VQ_API int32_t str_count_nl_in_string(const char *text) {
    if (text == nullptr) {
        VQ_PARAMS(Report::add, "text");
        return -1;
    }
    int32_t count = 0;
    for (; *text != '\0'; ++text) {
        count += *text == '\n' ? 1 : 0;
    }
    return count;
}

// ---- Replacing ---------------------------------------------------------------------

VQ_API char *str_replace_string_in_string(const char *text, const char *from, const char *to) {
    if (text == nullptr || from == nullptr || to == nullptr) {
        VQ_PARAMS(Report::add, text == nullptr ? "text" : from == nullptr ? "from" : "to");
        return nullptr;
    }
    size_t from_len = std::strlen(from);
    if (from_len == 0) {
        // Every position would match an empty text: refused, not looped on.
        VQ_PARAMS(Report::add, "from");
        return nullptr;
    }
    size_t to_len = std::strlen(to);
    size_t count = 0;
    for (const char *hit = std::strstr(text, from); hit != nullptr; hit = std::strstr(hit + from_len, from)) {
        ++count;
    }
    // The result is never longer than count * to_len plus the text itself,
    // so this sum only overflows for texts that cannot exist in memory; it is
    // checked all the same.
    size_t text_len = std::strlen(text);
    if (to_len != 0 && count > (SIZE_MAX - text_len - 1) / to_len) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    auto *result = static_cast<char *>(std::malloc(text_len - count * from_len + count * to_len + 1));
    if (result == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    char *out = result;
    const char *in = text;
    for (const char *hit = std::strstr(in, from); hit != nullptr; hit = std::strstr(in, from)) {
        std::memcpy(out, in, static_cast<size_t>(hit - in));
        out += hit - in;
        std::memcpy(out, to, to_len);
        out += to_len;
        in = hit + from_len;
    }
    std::memcpy(out, in, std::strlen(in) + 1);
    return result;
}

// ---- Reading lines -------------------------------------------------------------------

VQ_API int str_read_next_plain_line(FILE *stream, char *buffer, int32_t size) {
    if (stream == nullptr) {
        return VQ_PARAMS(Report::add, "stream");
    }
    if (buffer == nullptr || size < 1) {
        return VQ_PARAMS(Report::add, buffer == nullptr ? "buffer" : "size");
    }
    return read_line(stream, buffer, size, __func__);
}

VQ_API int str_read_next_line(FILE *stream, char *buffer, int32_t size) {
    if (stream == nullptr) {
        return VQ_PARAMS(Report::add, "stream");
    }
    if (buffer == nullptr || size < 1) {
        return VQ_PARAMS(Report::add, buffer == nullptr ? "buffer" : "size");
    }
    while (read_line(stream, buffer, size, __func__) != 0) {
        if (!is_comment_or_blank(buffer)) {
            return str_trim(buffer);
        }
    }
    return 0;
}

}  // extern "C"
