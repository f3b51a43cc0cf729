// Fuzzes the command-line parser with random lines against a table with
// every kind of item. The first byte chooses the settings (switch character,
// separator, unescape, mode, and whether the rest is a line or an argument
// vector split at 0x01 bytes); the rest is the line, in which "@@" names a
// fixed files list. After a successful parse the canonical line must parse
// again to the same canonical line, and the cache must serve a line back;
// after a failure the stack must hold the parse's code and no result.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vq_glob/cli.h"
#include "vq_glob/err.h"

namespace {

const cli_bit_keyword kEvents[] = {{"START", 0}, {"STOP", 1}, {"ERROR", 9}, {nullptr, 0}};
const cli_item kCopyItems[] = {
    {'P', "SOURCE", CLI_MUST | CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'P', "TARGET", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "MODE", CLI_VALUE_REQUIRED, "FAST|SAFE|SLOW", nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "LOG", CLI_NEGATABLE | CLI_DEFAULT, nullptr, "copy.log", nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "PORT", CLI_PORT, nullptr, nullptr, nullptr, "HOST|LOCAL", nullptr, 0, nullptr, nullptr},
    {'Q', "HOST", 0, nullptr, nullptr, "LOCAL", nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "LOCAL", CLI_NO_VALUE, nullptr, nullptr, "HOST", nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "TIMEOUT", 0, nullptr, "60", nullptr, nullptr, cli_conv_string_to_seconds, 0, nullptr, nullptr},
    {'Q', "DELAY", 0, nullptr, nullptr, nullptr, nullptr, cli_conv_string_to_minutes, 0, nullptr, nullptr},
    {'Q', "AT", 0, nullptr, nullptr, nullptr, nullptr, cli_check_time_string_format, 0, nullptr, nullptr},
    {'Q', "NOTIFY", CLI_LIST, nullptr, "ERROR", nullptr, nullptr, nullptr, 0, kEvents, nullptr},
    {'Q', "PAIRS", CLI_MULTI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 2, nullptr, nullptr},
    {'Q', "PASSWORD", CLI_HIDDEN | CLI_VALUE_REQUIRED, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
     nullptr},
    {'Q', "COUNT", CLI_NUMBER, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "SINCE", CLI_DATE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "VERBOSE", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "VERIFY", CLI_NEGATABLE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_item kDeleteItems[] = {
    {'P', "FILE", CLI_MUST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "CONFIRM", CLI_NEGATABLE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_item kListItems[] = {{0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_command kCommands[] = {{"COPY", kCopyItems, nullptr},
                                 {"COPYALL", kCopyItems, nullptr},
                                 {"DELETE", kDeleteItems, nullptr},
                                 {"LIST", kListItems, nullptr},
                                 {nullptr, nullptr, nullptr}};
const char *const kNames[] = {"SOURCE", "TARGET", "MODE",   "LOG",   "PORT",    "HOST",   "LOCAL",   "TIMEOUT",
                              "DELAY",  "AT",     "NOTIFY", "PAIRS", "PASSWORD", "COUNT", "SINCE",  "VERBOSE",
                              "VERIFY", "FILE",   "CONFIRM"};

std::string list_file() {
    static const std::string path = [] {
        std::string p = "/tmp/vq_cli_parse_fuzz_list.txt";
        if (std::FILE *f = std::fopen(p.c_str(), "wb")) {
            std::fputs("b\n-count=3 -notify=start,stop\r\n-pairs={x,y}", f);
            std::fclose(f);
        }
        return p;
    }();
    return path;
}

// "@@" names the fixed list; any other "@" is made harmless, so that the
// fuzzer never reads files of the machine (a device would never end).
std::string make_line(const uint8_t *data, size_t size) {
    std::string line;
    for (size_t i = 0; i < size; ++i) {
        char c = static_cast<char>(data[i]);
        if (c == '\0') {
            break;
        }
        if (c == '@') {
            if (i + 1 < size && data[i + 1] == '@') {
                line += "@" + list_file();
                ++i;
            } else {
                line += '#';
            }
            continue;
        }
        line += c;
    }
    return line;
}

void read_everything() {
    char *v = nullptr;
    for (const char *name : kNames) {
        cli_present(name, 'Q');
        cli_present_all(name, 'P');
        cli_true_present_no_default(name, 'Q');
        if (cli_get_value(name, 'Q', &v) == 1 && cli_init_qual_iterator(v) == 1) {
            char *item = nullptr;
            while (cli_qual_iterator_next(&item) == 1) {
            }
        }
        cli_get_value(name, 'P', &v);
    }
    char *name = nullptr;
    char kind = 0;
    cli_init_iterator();
    while (cli_iterator_next(&name, &kind, &v) == 1) {
    }
    cli_std_init_iterator();
    while (cli_std_iterate(&name, &kind) == 1) {
        while (cli_std_token_get_next_value(&v) == 1) {
        }
    }
}

// Parses the line's pieces between 0x01 bytes as the arguments after a
// program's name.
int parse_as_argv(const std::string &line) {
    std::vector<std::string> args{"prog"};
    size_t start = 0;
    for (;;) {
        size_t end = line.find('\x01', start);
        args.push_back(line.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    std::vector<const char *> argv;
    for (const std::string &a : args) {
        argv.push_back(a.c_str());
    }
    return cli_dcl_parse_argv(static_cast<int>(argv.size()), argv.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    uint8_t settings = data[0];
    std::string line = make_line(data + 1, size - 1);

    cli_init();
    cli_set_command_table(kCommands);
    cli_set_switch_char((settings & 1) != 0 ? '/' : '-');
    cli_set_separator_char((settings & 2) != 0 ? ';' : ',');
    cli_set_unescape((settings & 4) != 0 ? 0 : 1);
    cli_set_parse_mode((settings & 8) != 0 ? CLI_MODE_NO_COMMAND : CLI_MODE_COMMAND);
    cc_set_command_table_cache("fuzz", 3);

    bool argv_form = (settings & 16) != 0;
    if ((argv_form ? parse_as_argv(line) : cc_dcl_parse(line.c_str())) == 0) {
        uint32_t code = cli_get_err_code();
        if (code == ERR_CLI_NOERR || err_get_error_code(0) != code || cli_get_current_res() != nullptr) {
            std::abort();
        }
        cli_clean_up();
        return 0;
    }
    const void *first = cli_get_current_res();
    if (!argv_form && (cc_dcl_parse(line.c_str()) != 1 || cli_get_current_res() != first)) {
        std::abort();  // the same line again must come from the cache
    }
    read_everything();
    cli_subst_password("PASSWORD");
    if ((settings & 4) == 0) {
        // With escapes taken out, the canonical line reads back to itself.
        std::string canon = cli_get_canon_command_line();
        if (cli_dcl_parse(canon.c_str()) != 1 || canon != cli_get_canon_command_line()) {
            std::fprintf(stderr, "canonical line does not read back: <%s>\n", canon.c_str());
            std::abort();
        }
    }
    char *without = cli_new_get_canon_command_line(1);
    std::free(without);
    cli_clean_up();
    return 0;
}
