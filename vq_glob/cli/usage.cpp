// Usage texts built from the command table; hidden qualifiers are left out.
#include <cstdio>
#include <new>
#include <string>

#include "cli/cli_state.h"

namespace vq::cli {
namespace {

constexpr size_t kNameColumn = 26;

std::string qualifier_form(const CliRecord &st, const cli_item &item) {
    std::string form(1, st.switch_char);
    if ((item.flags & CLI_NEGATABLE) != 0) {
        form += "[NO]";
    }
    form += item.name;
    if ((item.flags & CLI_NO_VALUE) != 0) {
        return form;
    }
    const char *value = (item.flags & CLI_MULTI_LIST) != 0 ? "{...},..."
                        : (item.flags & CLI_LIST) != 0     ? "value,..."
                                                           : "value";
    bool required = (item.flags & CLI_VALUE_REQUIRED) != 0 && item.default_value == nullptr;
    form += required ? "=" : "[=";
    form += value;
    if (!required) {
        form += "]";
    }
    return form;
}

void line_with_help(std::string &out, const std::string &form, const cli_item &item) {
    out += "  ";
    out += form;
    std::string notes = item.help != nullptr ? item.help : "";
    auto note = [&notes](const std::string &text) {
        notes += notes.empty() ? "" : " ";
        notes += "(" + text + ")";
    };
    if (item.allowed != nullptr) {
        std::string values;
        for (const std::string &k : split(item.allowed, '|')) {
            values += values.empty() ? k : ", " + k;
        }
        note("values: " + values);
    }
    if (item.default_value != nullptr) {
        note("default: " + std::string(item.default_value));
    }
    if ((item.flags & CLI_MUST) != 0) {
        note("required");
    }
    if ((item.flags & CLI_DEFAULT) != 0) {
        note("on by default");
    }
    if (!notes.empty()) {
        out += form.size() + 2 < kNameColumn ? std::string(kNameColumn - form.size() - 2, ' ') : "  ";
        out += notes;
    }
    out += '\n';
}

void command_usage(const CliRecord &st, const cli_command &cmd, std::string &out) {
    out += "Usage: ";
    out += cmd.name;
    bool any_param = false;
    bool any_qual = false;
    for (const cli_item *i = cmd.items; i != nullptr && i->kind != 0; ++i) {
        if (i->kind == 'P') {
            bool must = (i->flags & CLI_MUST) != 0;
            out += must ? " " : " [";
            out += i->name;
            out += (i->flags & CLI_LIST) != 0 ? "[,...]" : "";
            out += must ? "" : "]";
            any_param = true;
        } else if (!is_hidden(st, *i)) {
            any_qual = true;
        }
    }
    if (any_qual) {
        out += " [qualifiers]";
    }
    out += '\n';
    if (cmd.help != nullptr) {
        out += "  ";
        out += cmd.help;
        out += '\n';
    }
    if (any_param) {
        out += "Parameters:\n";
        for (const cli_item *i = cmd.items; i->kind != 0; ++i) {
            if (i->kind == 'P') {
                line_with_help(out, i->name, *i);
            }
        }
    }
    if (any_qual) {
        out += "Qualifiers:\n";
        for (const cli_item *i = cmd.items; i->kind != 0; ++i) {
            if (i->kind == 'Q' && !is_hidden(st, *i)) {
                line_with_help(out, qualifier_form(st, *i), *i);
            }
        }
    }
}

// The command a name abbreviates uniquely, or null.
const cli_command *lookup_command(const cli_command *table, const char *name) {
    size_t matches = 0;
    size_t found = match_command(table, name, &matches);
    return matches == 1 ? &table[found] : nullptr;
}

}  // namespace
}  // namespace vq::cli

using namespace vq::cli;

extern "C" {

VQ_API const char *cli_get_command_usage(const char *command) {
    CliRecord *st = initialised_record();
    if (st == nullptr || st->table == nullptr) {
        return nullptr;
    }
    try {
        std::string out;
        if (command == nullptr && st->current != nullptr && st->current->command >= 0 &&
            st->current->table == st->table) {
            command = st->current->command_name.c_str();
        }
        if (command != nullptr) {
            const cli_command *cmd = lookup_command(st->table, command);
            if (cmd == nullptr) {
                err_set_error(ERR_CLI_CNOTFOUND, command);
                return nullptr;
            }
            command_usage(*st, *cmd, out);
        } else {
            for (const cli_command *c = st->table; c->name != nullptr; ++c) {
                out += out.empty() ? "" : "\n";
                command_usage(*st, *c, out);
            }
        }
        st->usage_buf = std::move(out);
        return st->usage_buf.c_str();
    } catch (const std::bad_alloc &) {
        VQ_NO_MEMORY(vq::raise::Report::fresh, kModule);
        return nullptr;
    }
}

VQ_API int cli_print_usage(const char *command) {
    const char *text = cli_get_command_usage(command);
    if (text == nullptr) {
        return 0;
    }
    std::fputs(text, stdout);
    std::fflush(stdout);
    return 1;
}

}  // extern "C"
