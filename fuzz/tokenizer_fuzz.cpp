// Fuzzes the tokenizer and the parsing routines of the strings module with
// arbitrary text. The first byte chooses the tokenizer's flag; the rest is
// the text, made NUL-terminated and writable as the tokenizer needs it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/mlist.h"
#include "vq_glob/str.h"

namespace {

// More tokens than the text has bytes means the tokenizer stopped advancing.
void tokenize(std::vector<char> text, int flag) {
    size_t limit = text.size() + 1;
    if (str_init_tokens(text.data()) != 1) {
        std::abort();
    }
    size_t count = 0;
    while (str_get_next_token(flag) != nullptr) {
        if (++count > limit) {
            std::abort();
        }
    }
}

void parse(const char *text) {
    int32_t l = 0;
    str_atol(text, &l);
    double d = 0;
    str_atod(text, &d);
    char **list = nullptr;
    if (str_convert_string_to_list_with_sep(text, ";", &list) == 1) {
        char *joined = str_convert_list_to_string_with_sep(list, ";");
        std::free(joined);
        ml_free(list);
    }
    // The text's own first half as the search string exercises overlapping
    // and self-similar matches.
    size_t len = std::strlen(text);
    std::vector<char> from(text, text + len / 2);
    from.push_back('\0');
    std::free(str_replace_string_in_string(text, from.data(), "<>"));
    std::free(str_replace_string_in_string(text, "a", ""));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    int flag = data[0] & 1;
    std::vector<char> text(data + 1, data + size);
    text.push_back('\0');
    tokenize(text, flag);
    parse(text.data());
    err_clear_error_stack();
    return 0;
}
