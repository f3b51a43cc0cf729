// The parser's per-thread state: its frame, cli_init and the settings, the
// parsed command and kept line, and freeing the state.
#include <cstring>
#include <new>

#include "cli/cli_state.h"

namespace vq::frame {
constinit const Module kCliModule = cli::CliFrame::module("cli");
}  // namespace vq::frame

namespace vq::cli {

void CliRecord::reset_walks() {
    values.clear();
    walk_pos = 0;
    walk_stack.clear();
    std_next = 0;
    std_current = SIZE_MAX;
    std_value = 0;
}

CliRecord *initialised_record() {
    CliRecord *st = record();
    if (st != nullptr && !st->initialised) {
        cli_init();
    }
    return st;
}

bool prefix_nocase(std::string_view word, const char *name) {
    for (char c : word) {
        if (*name == '\0' || ascii::to_upper(c) != ascii::to_upper(*name)) {
            return false;
        }
        ++name;
    }
    return true;
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char &c : out) {
        c = ascii::to_upper(c);
    }
    return out;
}

std::vector<std::string> split(std::string_view text, char sep) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(sep, start);
        if (end == std::string_view::npos) {
            out.emplace_back(text.substr(start));
            return out;
        }
        out.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string join(const std::vector<std::string> &items, char sep) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            out += sep;
        }
        out += items[i];
    }
    return out;
}

void append_quoted(std::string &out, std::string_view text) {
    out += '"';
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    out += '"';
}

bool is_hidden(const CliRecord &st, const cli_item &item) {
    if ((item.flags & CLI_HIDDEN) != 0) {
        return true;
    }
    for (const std::string &name : st.hidden) {
        if (ascii::equal_nocase(name, item.name)) {
            return true;
        }
    }
    return false;
}

Result &mutable_current(CliRecord &st) {
    auto copy = st.current != nullptr ? std::make_shared<Result>(*st.current) : std::make_shared<Result>();
    Result &r = *copy;
    st.current = std::move(copy);
    st.reset_walks();
    return r;
}

namespace {

// A switch character must not be one the lexer gives another meaning.
bool valid_switch(char c) {
    return c != '\0' && c != ' ' && c != '\t' && c != '\n' && c != ',' && c != '"' && c != '(' && c != ')' &&
           c != '=' && c != '@' && c != '{' && c != '}' && c != '\\';
}

}  // namespace
}  // namespace vq::cli

using namespace vq::cli;
using vq::raise::Report;

extern "C" {

VQ_API int cli_init(void) {
    CliRecord *st = record();
    if (st == nullptr) {
        return 0;
    }
    if (!st->initialised) {
        st->initialised = true;
        st->switch_char = '-';
        st->separator = ',';
        st->unescape = true;
        st->mode = CLI_MODE_COMMAND;
        st->err_code = ERR_CLI_NOERR;
        st->contexts.clear();
    }
    return 1;
}

VQ_API int cli_set_switch_char(char c) {
    CliRecord *st = initialised_record();
    if (st == nullptr || !valid_switch(c)) {
        return VQ_PARAMS(Report::fresh, "c");
    }
    st->switch_char = c;
    st->settings_changed();
    return 1;
}

VQ_API char cli_get_switch_char(void) {
    CliRecord *st = initialised_record();
    return st != nullptr ? st->switch_char : '-';
}

VQ_API int cli_set_separator_char(char c) {
    CliRecord *st = initialised_record();
    if (st == nullptr || c == '\0' || c == '"') {
        return VQ_PARAMS(Report::fresh, "c");
    }
    st->separator = c;
    st->settings_changed();
    return 1;
}

VQ_API char cli_get_separator_char(void) {
    CliRecord *st = initialised_record();
    return st != nullptr ? st->separator : ',';
}

VQ_API int cli_set_parse_mode(int32_t mode) {
    CliRecord *st = initialised_record();
    if (st == nullptr || mode < CLI_MODE_COMMAND || mode > CLI_MODE_STANDARD) {
        return VQ_PARAMS(Report::fresh, "mode");
    }
    st->mode = mode;
    st->settings_changed();
    return 1;
}

VQ_API int32_t cli_get_parse_mode(void) {
    CliRecord *st = initialised_record();
    return st != nullptr ? st->mode : CLI_MODE_COMMAND;
}

VQ_API int cli_set_unescape(int32_t on) {
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    st->unescape = on != 0;
    st->settings_changed();
    return 1;
}

VQ_API int cli_set_command_table(const cli_command *table) {
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    st->table = table;
    st->settings_changed();
    return 1;
}

VQ_API int32_t cli_get_context_changes(void) {
    CliRecord *st = initialised_record();
    return st != nullptr ? st->changes : 0;
}

VQ_API int cli_hide(const char *name) {
    CliRecord *st = initialised_record();
    if (st == nullptr || name == nullptr || st->table == nullptr) {
        return VQ_PARAMS(Report::fresh, "name");
    }
    bool known = false;
    for (const cli_command *c = st->table; c->name != nullptr && !known; ++c) {
        for (const cli_item *i = c->items; i != nullptr && i->kind != 0; ++i) {
            if (i->kind == 'Q' && vq::ascii::equal_nocase(i->name, name)) {
                known = true;
                break;
            }
        }
    }
    if (!known) {
        return 0;
    }
    try {
        st->hidden.push_back(upper(name));
    } catch (const std::bad_alloc &) {
        return VQ_NO_MEMORY(Report::fresh, kModule);
    }
    st->settings_changed();
    return 1;
}

VQ_API uint32_t cli_get_err_code(void) {
    CliRecord *st = record();
    return st != nullptr ? st->err_code : ERR_CLI_NOERR;
}

VQ_API const char *cli_get_command(void) {
    CliRecord *st = record();
    if (st == nullptr || st->current == nullptr || st->current->command < 0) {
        return nullptr;
    }
    return st->current->command_name.c_str();
}

VQ_API const char *cli_get_command_line(void) {
    CliRecord *st = record();
    return st != nullptr && st->current != nullptr ? st->current->line.c_str() : "";
}

VQ_API int32_t cli_get_command_line_len(void) {
    CliRecord *st = record();
    return st != nullptr && st->current != nullptr ? static_cast<int32_t>(st->current->line.size()) : 0;
}

VQ_API const void *cli_get_current_res(void) {
    CliRecord *st = record();
    return st != nullptr ? st->current.get() : nullptr;
}

VQ_API int cli_free_context(void) {
    CliRecord *st = record();
    if (st != nullptr) {
        st->current.reset();
        st->reset_walks();
    }
    return 1;
}

VQ_API int cli_clean_up(void) {
    CliRecord *st = record();
    if (st != nullptr) {
        *st = CliRecord();
    }
    return 1;
}

}  // extern "C"
