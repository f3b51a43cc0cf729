// "%" variable substitution on arbitrary templates and tables (templates come
// from configuration files that users edit).
//
// Input: one byte giving the number of pairs (low three bits), then for each
// pair its key byte, a length byte and that many value bytes, then the
// template up to the end of the input (cut at its first NUL). A pair whose
// length byte is 0xFF has a NULL value. Besides running the expansion under
// the sanitizers, the target checks what must hold whatever the input:
//  - the expansion equals a plain left-to-right reading of the rules;
//  - the bounded copy succeeds into exactly the size it reports, fails one
//    byte short without touching the target, and agrees with the dynamic form.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/rep_var.h"

namespace {

constexpr uint8_t kNullValue = 0xFF;

// The expansion read straight from the rules; false when a used pair has a
// NULL value.
bool reference(const std::string &text, const std::vector<rep_var> &table, std::string &out) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char c = text[++i];
        if (c == '%') {
            out += '%';
            continue;
        }
        const rep_var *found = nullptr;
        for (const rep_var &pair : table) {
            if (static_cast<unsigned char>(pair.key) == static_cast<unsigned char>(c)) {
                found = &pair;
                break;
            }
        }
        if (found == nullptr) {
            out += '%';
            out += c;
        } else if (found->value == nullptr) {
            return false;
        } else {
            out += found->value;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    size_t pos = 0;
    const size_t pairs = data[pos++] & 7u;
    std::vector<std::string> values;
    std::vector<rep_var> table;
    values.reserve(pairs);
    for (size_t i = 0; i < pairs && pos + 2 <= size; ++i) {
        // The high bits of the key must not matter: fill them from the input.
        int32_t key = static_cast<int32_t>(static_cast<uint32_t>(data[pos]) * 0x01010101u);
        uint8_t length = data[pos + 1];
        pos += 2;
        if (length == kNullValue) {
            table.push_back({key, nullptr});
            continue;
        }
        size_t take = length < size - pos ? length : size - pos;
        values.emplace_back(reinterpret_cast<const char *>(data + pos), take);
        pos += take;
        table.push_back({key, values.back().c_str()});  // reserve() keeps these pointers valid
    }
    std::string text(reinterpret_cast<const char *>(data + pos), size - pos);
    text = text.c_str();  // up to the first NUL, as the library sees it
    const auto count = static_cast<int32_t>(table.size());

    std::string expected;
    const bool valid = reference(text, table, expected);
    char *result = dyn_replace_variables(text.c_str(), table.data(), count);
    if ((result != nullptr) != valid || (result != nullptr && expected != result)) {
        std::abort();
    }
    std::free(result);

    size_t needed = 0;
    std::vector<char> target(expected.size() + 2, '#');
    if (valid) {
        if (replace_variables_n(target.data(), expected.size(), text.c_str(), table.data(), count, &needed) !=
                0 ||
            needed != expected.size() + 1 || target[0] != '#') {
            std::abort();
        }
        if (replace_variables_n(target.data(), needed, text.c_str(), table.data(), count, &needed) != 1 ||
            expected != target.data() || target[needed] != '#') {
            std::abort();
        }
    } else if (replace_variables(target.data(), text.c_str(), table.data(), count) != 0 || target[0] != '#') {
        std::abort();
    }
    err_clear_error_stack();
    return 0;
}
