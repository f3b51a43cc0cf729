// What a program asks after a parse: presence, values, the list and
// multi-list iterators, and the walks over the result and over the tokens.
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"

namespace vq::cli {
namespace {

// The thread's record when cli_init has run; otherwise says so on the trace.
CliRecord *ready(const char *function) {
    CliRecord *st = record();
    if (st == nullptr || !st->initialised) {
        new_dbg_str(0, "%s called without init\n", function);
        return nullptr;
    }
    return st;
}

const Item *lookup(const char *function, const char *name, char kind) {
    CliRecord *st = ready(function);
    if (st == nullptr || name == nullptr || st->current == nullptr) {
        return nullptr;
    }
    return find_item(*st->current, name, kind);
}

// A list item that starts with a double quote loses its quotes and escapes.
std::string clean(std::string_view item) {
    if (item.empty() || item.front() != '"') {
        return std::string(item);
    }
    std::string out;
    for (size_t i = 1; i < item.size(); ++i) {
        if (item[i] == '\\' && i + 1 < item.size()) {
            out += item[++i];
        } else if (item[i] != '"') {
            out += item[i];
        }
    }
    return out;
}

}  // namespace

std::vector<std::string> multi_list_elements(std::string_view text, int32_t per_element) {
    std::vector<std::string> elements;
    size_t i = 0;
    auto skip = [&]() {
        while (i < text.size() && ascii::is_blank(text[i])) {
            ++i;
        }
    };
    int32_t invalid_count = per_element > 0 ? per_element : 1;
    for (;;) {
        skip();
        if (i >= text.size() || text[i] != '{') {
            fail(ERR_CLI_INVASMML, static_cast<int>(invalid_count));
        }
        size_t close = text.find('}', i + 1);
        if (close == std::string_view::npos) {
            fail(ERR_CLI_INVASMML, static_cast<int>(invalid_count));
        }
        std::string_view inner = text.substr(i + 1, close - i - 1);
        if (inner.empty() || inner.find('{') != std::string_view::npos) {
            fail(ERR_CLI_INVASMML, static_cast<int>(invalid_count));
        }
        size_t items = 1;
        for (char c : inner) {
            items += c == ',' ? 1 : 0;
        }
        if (per_element > 0 && items > static_cast<size_t>(per_element)) {
            fail(ERR_CLI_INVALMML, static_cast<int>(elements.size() + 1), static_cast<int>(per_element));
        }
        elements.emplace_back(inner);
        i = close + 1;
        skip();
        if (i >= text.size()) {
            return elements;
        }
        if (text[i] != ',') {
            fail(ERR_CLI_INVASMML, static_cast<int>(invalid_count));
        }
        ++i;
    }
}

}  // namespace vq::cli

using namespace vq::cli;

extern "C" {

VQ_API int cli_present(const char *name, char kind) {
    const Item *item = lookup("cli_present", name, kind);
    return item != nullptr && !item->negated ? 1 : 0;
}

VQ_API int cli_present_all(const char *name, char kind) {
    const Item *item = lookup("cli_present_all", name, kind);
    if (item == nullptr) {
        return 0;
    }
    return item->negated ? CLI_NEGATED : 1;
}

VQ_API int cli_true_present(const char *name, char kind) {
    const Item *item = lookup("cli_true_present", name, kind);
    return item != nullptr && !item->negated && !item->from_default ? 1 : 0;
}

VQ_API int cli_true_present_no_default(const char *name, char kind) {
    const Item *item = lookup("cli_true_present_no_default", name, kind);
    return item != nullptr && !item->negated && !item->from_default && !item->value_default && item->has_value
               ? 1
               : 0;
}

VQ_API int cli_get_value(const char *name, char kind, char **value) {
    if (value == nullptr) {
        return VQ_PARAMS(vq::raise::Report::fresh, "value");
    }
    const Item *item = lookup("cli_get_value", name, kind);
    CliRecord *st = record();
    if (kind == 'P' && st != nullptr) {
        st->walk_pos = 0;
    }
    if (item == nullptr || item->negated || !item->has_value) {
        return 0;
    }
    return guarded("cli_get_value", [&]() {
        auto key = std::make_pair(item, st->separator);
        for (auto &[k, text] : st->values) {
            if (k == key) {
                *value = text.data();
                return 1;
            }
        }
        st->values.emplace_back(key, join(item->values, st->separator));
        *value = st->values.back().second.data();
        return 1;
    });
}

VQ_API int cli_reset_get_all(void) {
    CliRecord *st = record();
    if (st != nullptr) {
        st->walk_pos = 0;
    }
    return 1;
}

VQ_API int cli_init_qual_iterator(const char *value) {
    CliRecord *st = initialised_record();
    if (st == nullptr || value == nullptr) {
        return 0;
    }
    return guarded("cli_init_qual_iterator", [&]() {
        st->qual_text = value;
        st->qual_pos = 0;
        st->qual_more = !st->qual_text.empty();
        return 1;
    });
}

VQ_API int cli_qual_iterator_next(char **item) {
    CliRecord *st = record();
    if (st == nullptr || item == nullptr || !st->qual_more) {
        return 0;
    }
    return guarded("cli_qual_iterator_next", [&]() {
        size_t end = st->qual_text.find(st->separator, st->qual_pos);
        size_t stop = end == std::string::npos ? st->qual_text.size() : end;
        st->qual_item = clean(std::string_view(st->qual_text).substr(st->qual_pos, stop - st->qual_pos));
        st->qual_pos = stop + 1;
        st->qual_more = end != std::string::npos && st->qual_pos < st->qual_text.size();
        *item = st->qual_item.data();
        return 1;
    });
}

VQ_API int cli_init_qual_multi_list_iterator(const char *value, int32_t items_per_element) {
    CliRecord *st = initialised_record();
    if (st == nullptr || value == nullptr) {
        return 0;
    }
    st->multi_elements.clear();
    st->multi_pos = 0;
    return guarded("cli_init_qual_multi_list_iterator", [&]() {
        st->multi_elements = multi_list_elements(value, items_per_element);
        return 1;
    });
}

VQ_API int cli_qual_multi_list_iterator_next(char **element) {
    CliRecord *st = record();
    if (st == nullptr || element == nullptr || st->multi_pos >= st->multi_elements.size()) {
        return 0;
    }
    *element = st->multi_elements[st->multi_pos++].data();
    return 1;
}

VQ_API int cli_init_iterator(void) {
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    st->walk_pos = 0;
    st->walk_stack.clear();
    return 1;
}

VQ_API int cli_iterator_next(char **name, char *kind, char **value) {
    CliRecord *st = record();
    if (st == nullptr || st->current == nullptr || st->walk_pos >= st->current->items.size()) {
        return 0;
    }
    return guarded("cli_iterator_next", [&]() {
        const Item &item = st->current->items[st->walk_pos++];
        if (name != nullptr) {
            *name = const_cast<char *>(item.name.c_str());
        }
        if (kind != nullptr) {
            *kind = item.kind;
        }
        if (value != nullptr) {
            if (item.has_value && !item.negated) {
                st->walk_value = join(item.values, st->separator);
                *value = st->walk_value.data();
            } else {
                *value = nullptr;
            }
        }
        return 1;
    });
}

VQ_API int cli_push_iterator(void) {
    CliRecord *st = record();
    if (st == nullptr || st->walk_stack.size() >= kMaxWalkDepth) {
        return 0;
    }
    return guarded("cli_push_iterator", [&]() {
        st->walk_stack.push_back(st->walk_pos);
        return 1;
    });
}

VQ_API int cli_pop_iterator(void) {
    CliRecord *st = record();
    if (st == nullptr || st->walk_stack.empty()) {
        return 0;
    }
    st->walk_pos = st->walk_stack.back();
    st->walk_stack.pop_back();
    return 1;
}

VQ_API int cli_goto_param(const char *name) {
    CliRecord *st = record();
    if (st == nullptr || name == nullptr || st->current == nullptr) {
        return 0;
    }
    const auto &items = st->current->items;
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].kind == 'P' && vq::ascii::equal_nocase(items[i].name, name)) {
            new_dbg_str(kTraceCli, "found param %s\n", items[i].name.c_str());
            st->walk_pos = i;
            return 1;
        }
    }
    return 0;
}

VQ_API int cli_std_init_iterator(void) {
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    st->std_next = 0;
    st->std_current = SIZE_MAX;
    st->std_value = 0;
    return 1;
}

VQ_API int cli_std_iterate_pos(int32_t pos, char **text, char *kind) {
    CliRecord *st = record();
    if (st == nullptr || st->current == nullptr || pos < 0 ||
        static_cast<size_t>(pos) >= st->current->tokens.size()) {
        return 0;
    }
    const Token &t = st->current->tokens[static_cast<size_t>(pos)];
    st->std_current = static_cast<size_t>(pos);
    st->std_next = st->std_current + 1;
    st->std_value = t.kind == 'P' ? 1 : 0;
    if (text != nullptr) {
        *text = const_cast<char *>(t.kind == 'Q' ? t.name.c_str() : t.items[0].c_str());
    }
    if (kind != nullptr) {
        *kind = t.kind;
    }
    return 1;
}

VQ_API int cli_std_iterate(char **text, char *kind) {
    CliRecord *st = record();
    if (st == nullptr) {
        return 0;
    }
    return cli_std_iterate_pos(static_cast<int32_t>(st->std_next), text, kind);
}

VQ_API int cli_std_token_get_next_value(char **value) {
    CliRecord *st = record();
    if (st == nullptr || value == nullptr || st->current == nullptr ||
        st->std_current >= st->current->tokens.size()) {
        return 0;
    }
    const Token &t = st->current->tokens[st->std_current];
    if (st->std_value >= t.items.size()) {
        return 0;
    }
    *value = const_cast<char *>(t.items[st->std_value++].c_str());
    return 1;
}

VQ_API int cli_std_get_qual_name(char **name) {
    CliRecord *st = record();
    if (st == nullptr || name == nullptr || st->current == nullptr ||
        st->std_current >= st->current->tokens.size()) {
        return 0;
    }
    const Token &t = st->current->tokens[st->std_current];
    if (t.kind != 'Q') {
        return 0;
    }
    *name = const_cast<char *>(t.name.c_str());
    return 1;
}

}  // extern "C"
