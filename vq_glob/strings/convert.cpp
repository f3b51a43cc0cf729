// Conversions of the strings module: numbers to and from text, addresses,
// string lists to and from separated texts, and the texts built for command
// lines and regular expressions.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "strings/strings_state.h"

namespace vq::strings {
namespace {

constexpr size_t kDefaultWrapWidth = 79;
constexpr const char *kRegexSpecials = "\\^$.|?*+()[]{}";
// An argument holding one of these is quoted on a packed command line: the
// blanks split a Windows command line, and the comma and the parentheses
// would be taken apart by the tokenizer.
constexpr const char *kQuotedArgumentChars = " \t\n\v,()\"";

// Runs build on a std::string and returns a malloc'ed copy of the result; a
// failed allocation on either side is reported as MEMORY and gives null.
template <typename Build>
char *build_text(const char *fn, Build build) {
    try {
        std::string text;
        build(text);
        char *copy = copy_text(text.data(), text.size());
        if (copy == nullptr) {
            raise::memory(Report::add, fn, kModule, __LINE__);
        }
        return copy;
    } catch (...) {
        raise::memory(Report::add, fn, kModule, __LINE__);
        return nullptr;
    }
}

// Pushes GENERAL "fn(): <text> is not <what>"; the text is cut short so that
// one bad line cannot fill the error entry.
int not_a_number(const char *fn, const char *text, const char *what) {
    char message[160];
    std::snprintf(message, sizeof message, "%s(): <%.64s> is not %s", fn, text, what);
    err_add_error(ERR_GEN_GENERAL, message);
    return 0;
}

// The number's digits without the surrounding blanks and a leading "+"
// (which from_chars does not take); empty when the text cannot be a number.
std::string_view number_digits(const char *text) {
    std::string_view digits = trim_blanks(text);
    if (!digits.empty() && digits.front() == '+') {
        digits.remove_prefix(1);
        if (!digits.empty() && digits.front() == '-') {
            return {};
        }
    }
    return digits;
}

// True when all of digits is one number in range. from_chars reads the
// C-locale form whatever the process locale is.
template <typename Number>
bool read_whole(std::string_view digits, Number &number) {
    auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return result.ec == std::errc() && result.ptr == digits.data() + digits.size();
}

void free_list(char **list, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        std::free(list[i]);
    }
    std::free(list);
}

int string_to_list(const char *fn, const char *text, const char *sep, char ***list) {
    if (text == nullptr || sep == nullptr || sep[0] == '\0' || list == nullptr) {
        return raise::params(Report::add, fn, text == nullptr ? "text" : list == nullptr ? "list" : "sep");
    }
    std::string_view rest = text;
    std::string_view separator = sep;
    size_t count = 0;
    if (!trim_blanks(rest).empty()) {
        count = 1;
        for (size_t at = rest.find(separator); at != std::string_view::npos;
             at = rest.find(separator, at + separator.size())) {
            ++count;
        }
    }
    auto **items = static_cast<char **>(std::calloc(count + 1, sizeof(char *)));
    if (items == nullptr) {
        return raise::memory(Report::add, fn, kModule, __LINE__);
    }
    for (size_t i = 0; i < count; ++i) {
        size_t at = rest.find(separator);
        std::string_view item = trim_blanks(rest.substr(0, at));
        items[i] = copy_text(item.data(), item.size());
        if (items[i] == nullptr) {
            free_list(items, i);
            return raise::memory(Report::add, fn, kModule, __LINE__);
        }
        rest.remove_prefix(at == std::string_view::npos ? rest.size() : at + separator.size());
    }
    *list = items;
    return 1;
}

char *list_to_string(const char *fn, char **list, const char *sep) {
    if (sep == nullptr) {
        raise::params(Report::add, fn, "sep");
        return nullptr;
    }
    return build_text(fn, [list, sep](std::string &text) {
        for (char **item = list; item != nullptr && *item != nullptr; ++item) {
            if (item != list) {
                text += sep;
            }
            text += *item;
        }
    });
}

// Appends one argument the way a Windows program's start-up code splits it
// back: backslashes are plain except before a quote, where they are doubled.
void append_argument(std::string &line, std::string_view arg) {
    bool plain = !arg.empty() && arg.back() != '\\' &&
                 arg.find_first_of(kQuotedArgumentChars) == std::string_view::npos;
    if (plain) {
        line += arg;
        return;
    }
    line += '"';
    size_t backslashes = 0;
    for (char c : arg) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        line.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
        backslashes = 0;
        line += c;
    }
    line.append(backslashes * 2, '\\');
    line += '"';
}

// Wraps one line (no LF inside) into text. The blanks before a word stay when
// the word fits on the current line and are dropped at a break.
void wrap_line(std::string &text, std::string_view line, size_t width) {
    size_t column = 0;
    size_t i = 0;
    while (i < line.size()) {
        size_t gap_start = i;
        while (i < line.size() && ascii::is_blank(line[i])) {
            ++i;
        }
        size_t word_start = i;
        while (i < line.size() && !ascii::is_blank(line[i])) {
            ++i;
        }
        std::string_view word = line.substr(word_start, i - word_start);
        if (word.empty()) {
            break;  // blanks at the end of the line
        }
        size_t gap = word_start - gap_start;
        if (column + gap + word.size() <= width) {
            text.append(line.substr(gap_start, gap + word.size()));
            column += gap + word.size();
            continue;
        }
        if (column > 0) {
            text += '\n';
        }
        for (; word.size() > width; word.remove_prefix(width)) {
            text.append(word.substr(0, width));
            text += '\n';
        }
        text.append(word);
        column = word.size();
    }
}

}  // namespace
}  // namespace vq::strings

using namespace vq::strings;

extern "C" {

// ---- Numbers ------------------------------------------------------------------

VQ_API const char *str_ltoa(int32_t value) {
    StringsRecord *rec = StringsFrame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    auto result = std::to_chars(rec->ltoa_text, rec->ltoa_text + sizeof rec->ltoa_text - 1, value);
    *result.ptr = '\0';
    return rec->ltoa_text;
}

VQ_API const char *str_dtoa(double value) {
    StringsRecord *rec = StringsFrame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    if (std::isnan(value)) {
        // to_chars would keep the sign of a negative NaN, which means nothing.
        std::strcpy(rec->dtoa_text, "nan");
        return rec->dtoa_text;
    }
    // The shortest form that reads back as the same double: 17 significant
    // digits, a sign, a point and a 5-character exponent fit in 32 bytes.
    auto result = std::to_chars(rec->dtoa_text, rec->dtoa_text + sizeof rec->dtoa_text - 1, value);
    *result.ptr = '\0';
    return rec->dtoa_text;
}

VQ_API const char *str_conv_addr_to_string(uint32_t address) {
    StringsRecord *rec = StringsFrame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    std::snprintf(rec->addr_text, sizeof rec->addr_text, "%u.%u.%u.%u", static_cast<unsigned>(address >> 24),
                  static_cast<unsigned>((address >> 16) & 0xFF), static_cast<unsigned>((address >> 8) & 0xFF),
                  static_cast<unsigned>(address & 0xFF));
    return rec->addr_text;
}

VQ_API int str_atol(const char *text, int32_t *value) {
    if (text == nullptr || value == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "value");
    }
    std::string_view digits = number_digits(text);
    int32_t number = 0;
    if (digits.empty() || !read_whole(digits, number)) {
        return not_a_number("str_atol", text, "a 32-bit decimal number");
    }
    *value = number;
    return 1;
}

VQ_API int str_atod(const char *text, double *value) {
    if (text == nullptr || value == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "value");
    }
    std::string_view digits = number_digits(text);
    double number = 0;
    if (digits.empty() || !read_whole(digits, number)) {
        return not_a_number("str_atod", text, "a decimal number in the range of a double");
    }
    *value = number;
    return 1;
}

// ---- Lists ---------------------------------------------------------------------

VQ_API char *str_convert_list_to_string(char **list) {
    return list_to_string("str_convert_list_to_string", list, ",");
}

VQ_API char *str_convert_list_to_string_with_sep(char **list, const char *sep) {
    return list_to_string("str_convert_list_to_string_with_sep", list, sep);
}

VQ_API int str_convert_string_to_list(const char *text, char ***list) {
    return string_to_list("str_convert_string_to_list", text, ",", list);
}

VQ_API int str_convert_string_to_list_with_sep(const char *text, const char *sep, char ***list) {
    return string_to_list("str_convert_string_to_list_with_sep", text, sep, list);
}

// ---- Texts for command lines and expressions --------------------------------------

VQ_API char *str_pack_command_line(int32_t argc, char *const *argv) {
    const char *fn = "str_pack_command_line";
    if (argc < 0 || (argc > 0 && argv == nullptr)) {
        VQ_PARAMS(Report::add, argc < 0 ? "argc" : "argv");
        return nullptr;
    }
    for (int32_t i = 0; i < argc; ++i) {
        if (argv[i] == nullptr) {
            VQ_PARAMS(Report::add, "argv");
            return nullptr;
        }
    }
    return build_text(fn, [argc, argv](std::string &line) {
        for (int32_t i = 0; i < argc; ++i) {
            if (i > 0) {
                line += ' ';
            }
            append_argument(line, argv[i]);
        }
    });
}

VQ_API char *str_re_escape(const char *text) {
    if (text == nullptr) {
        VQ_PARAMS(Report::add, "text");
        return nullptr;
    }
    return build_text("str_re_escape", [text](std::string &escaped) {
        for (const char *c = text; *c != '\0'; ++c) {
            if (std::strchr(kRegexSpecials, *c) != nullptr) {
                escaped += '\\';
            }
            escaped += *c;
        }
    });
}

VQ_API char *str_wrap_for_cli(const char *text, int32_t width) {
    if (text == nullptr || width < 0) {
        VQ_PARAMS(Report::add, text == nullptr ? "text" : "width");
        return nullptr;
    }
    size_t columns = width == 0 ? kDefaultWrapWidth : static_cast<size_t>(width);
    return build_text("str_wrap_for_cli", [text, columns](std::string &wrapped) {
        std::string_view rest = text;
        for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            wrap_line(wrapped, rest.substr(0, end), columns);
            wrapped += '\n';
            rest.remove_prefix(end + 1);
        }
        wrap_line(wrapped, rest, columns);
    });
}

}  // extern "C"
