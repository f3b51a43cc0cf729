// The line an argument vector stands for. The shell (or the C runtime on
// Windows) has already split the words at blanks and taken its quotes off,
// so each argument must come back as one token: text the line would split or
// read as quoting is put in double quotes, everything else is left as written
// so that commas, parenthesised values, braces and "@" keep their meaning.
#include <string>
#include <string_view>

#include "cli/cli_state.h"

namespace vq::cli {
namespace {

bool has_any(std::string_view text, const char *chars) { return text.find_first_of(chars) != std::string_view::npos; }

// A parenthesised value reads to its one ')' over blanks on the line too.
bool plain_parenthesised(std::string_view value) {
    return value.size() >= 2 && value.front() == '(' && value.find(')') == value.size() - 1 && !has_any(value, "\"");
}

void append_argument(const CliRecord &st, std::string &line, std::string_view arg) {
    if (arg.find('\n') != std::string_view::npos) {
        fail(ERR_CLI_SYNERR, std::string(arg).c_str());  // a line feed would end the line
    }
    std::string_view head;
    std::string_view value = arg;
    bool qualifier = !arg.empty() && arg[0] == st.switch_char;
    if (qualifier) {
        size_t equals = arg.find('=');
        head = arg.substr(0, equals == std::string_view::npos ? arg.size() : equals + 1);
        value = arg.substr(head.size());
        if (has_any(head, " \t\"")) {
            fail(ERR_CLI_SYNERR, std::string(arg).c_str());
        }
    }
    line += head;
    bool as_written = !has_any(value, " \t\"") || (qualifier && plain_parenthesised(value));
    if (arg.empty()) {
        line += "\"\"";  // an empty parameter, not nothing
    } else if (as_written) {
        line += value;
    } else {
        append_quoted(line, value);
    }
}

}  // namespace

std::string argv_line(const CliRecord &st, int argc, const char *const *argv) {
    std::string line;
    for (int i = 1; i < argc; ++i) {
        if (i > 1) {
            line += ' ';
        }
        append_argument(st, line, argv[i]);
    }
    return line;
}

}  // namespace vq::cli
