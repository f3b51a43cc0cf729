// The parser proper: command and qualifier lookup by unique prefix, the
// checks after tokenising, overrides, defaults, and the entry points that
// catch the unwinding of a failed parse.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"

namespace vq::cli {
namespace {

// How many entries of the list a word abbreviates, and the last of them.
template <typename Name>
size_t prefix_matches(std::string_view word, size_t count, Name name_of, size_t &found) {
    size_t matches = 0;
    for (size_t i = 0; i < count; ++i) {
        const char *name = name_of(i);
        if (name != nullptr && prefix_nocase(word, name)) {
            ++matches;
            found = i;
        }
    }
    return matches;
}

size_t item_count(const cli_item *items) {
    size_t n = 0;
    while (items != nullptr && items[n].kind != 0) {
        ++n;
    }
    return n;
}

int find_command(const cli_command *table, const std::string &word) {
    size_t n = 0;
    size_t found = match_command(table, word, &n);
    if (n == 0) {
        fail(ERR_CLI_CNOTFOUND, word.c_str());
    }
    if (n > 1) {
        fail(ERR_CLI_AMBCOM, word.c_str());
    }
    return static_cast<int>(found);
}

// The qualifier entry a written name stands for, with negation resolved.
const cli_item *find_qualifier(const cli_item *items, const std::string &written, bool &negated) {
    size_t count = item_count(items);
    auto qual_name = [items](size_t i) { return items[i].kind == 'Q' ? items[i].name : nullptr; };
    size_t found = 0;
    size_t n = prefix_matches(written, count, qual_name, found);
    negated = false;
    if (n == 0 && written.size() > 2 && ascii::starts_with_nocase(written, "NO")) {
        n = prefix_matches(std::string_view(written).substr(2), count, qual_name, found);
        negated = n == 1;
    }
    if (n == 0) {
        fail(ERR_CLI_QNOTFOUND, written.c_str());
    }
    if (n > 1) {
        fail(ERR_CLI_AMBQUAL, written.c_str());
    }
    if (negated && (items[found].flags & CLI_NEGATABLE) == 0) {
        fail(ERR_CLI_QNOTNEG, items[found].name);
    }
    return &items[found];
}

Item *find_entry(Result &r, const cli_item *entry) {
    for (Item &item : r.items) {
        if (item.entry == entry) {
            return &item;
        }
    }
    return nullptr;
}

const Item *find_named(const Result &r, const char *name) {
    return find_item(r, name, 'Q');
}

bool stands(const Item *item) { return item != nullptr && !item->negated; }

// A qualifier met on the line (or in an override) goes into the result;
// given twice, the items add up and the last negation decides.
void add_qualifier(Result &r, const cli_item *entry, bool negated, bool has_value, std::vector<std::string> values) {
    Item *item = find_entry(r, entry);
    if (item == nullptr) {
        Item fresh;
        fresh.kind = 'Q';
        fresh.name = entry->name;
        fresh.entry = entry;
        r.items.push_back(std::move(fresh));
        item = &r.items.back();
    }
    item->negated = negated;
    if (negated) {
        item->values.clear();
        item->has_value = false;
        return;
    }
    if (has_value) {
        item->has_value = true;
        for (std::string &v : values) {
            item->values.push_back(std::move(v));
        }
    }
}

std::string allowed_text(const char *allowed) {
    std::string out;
    for (const std::string &k : split(allowed, '|')) {
        if (!out.empty()) {
            out += ", ";
        }
        out += k;
    }
    return out;
}

// A value of an allowed list becomes its full keyword. The list is scanned
// in place: this runs for every value of every keyword qualifier.
void check_keyword(const cli_item &entry, std::string &value) {
    std::string_view allowed = entry.allowed;
    std::string_view found;
    size_t matches = 0;
    while (!value.empty()) {
        size_t bar = allowed.find('|');
        std::string_view keyword = allowed.substr(0, bar);
        if (ascii::starts_with_nocase(keyword, value)) {
            ++matches;
            found = keyword;
        }
        if (bar == std::string_view::npos) {
            break;
        }
        allowed.remove_prefix(bar + 1);
    }
    if (matches == 0) {
        fail(ERR_CLI_INVALP, value.c_str(), entry.name, allowed_text(entry.allowed).c_str());
    }
    if (matches > 1) {
        fail(ERR_CLI_AMBKEYW, value.c_str());
    }
    value.assign(found);
}

// The value of a decimal text of an optional '-' and digits, when it fits
// in 32 bits. Numbers are handed on as int (VALUE=%d, ports), so a longer
// one is refused rather than cut.
bool decimal_int32(const std::string &text, int32_t &out) {
    bool negative = !text.empty() && text[0] == '-';
    size_t first = negative ? 1 : 0;
    if (text.size() == first) {
        return false;  // a lone "-" is no number
    }
    int64_t magnitude = 0;
    const int64_t limit = negative ? -static_cast<int64_t>(INT32_MIN) : INT32_MAX;
    for (size_t i = first; i < text.size(); ++i) {
        if (!ascii::is_digit(text[i])) {
            return false;
        }
        magnitude = magnitude * 10 + (text[i] - '0');
        if (magnitude > limit) {
            return false;
        }
    }
    out = static_cast<int32_t>(negative ? -magnitude : magnitude);
    return true;
}

// Every refusal names the value as written. A port out of range is told by
// its own message when that message, printing the number, shows the same
// text ("070000" or "-0070000" would not).
void check_number(const cli_item &entry, const std::string &value) {
    int32_t number = 0;
    if (!decimal_int32(value, number)) {
        fail(ERR_CLI_INVVAL, value.c_str(), entry.name);
    }
    if ((entry.flags & CLI_PORT) != 0 && (number < 0 || number > 65535)) {
        if (std::to_string(number) == value) {
            fail(ERR_CLI_NOVALPO, static_cast<int>(number));
        }
        fail(ERR_CLI_INVVAL, value.c_str(), entry.name);
    }
}

void run_hook(const cli_item &entry, std::string &value) {
    std::vector<char> buffer(value.size() + 32, '\0');
    std::memcpy(buffer.data(), value.data(), value.size());
    if (entry.hook(0, buffer.data()) == 0) {
        fail(ERR_CLI_INVVAL, value.c_str(), entry.name);
    }
    buffer.back() = '\0';
    value.assign(buffer.data());
}

void check_values(Item &item) {
    const cli_item &entry = *item.entry;
    for (std::string &value : item.values) {
        if (entry.allowed != nullptr) {
            check_keyword(entry, value);
        }
        if ((entry.flags & (CLI_NUMBER | CLI_PORT)) != 0) {
            check_number(entry, value);
        }
        if ((entry.flags & CLI_DATE) != 0 && cli_check_date(0, value.c_str(), nullptr) == 0) {
            fail(ERR_CLI_INVVAL, value.c_str(), entry.name);
        }
        if (entry.hook != nullptr) {
            run_hook(entry, value);
        }
    }
    if ((entry.flags & CLI_MULTI_LIST) != 0) {
        multi_list_elements(join(item.values, ','), entry.list_items);
    }
}

void add_parameter(Result &r, const cli_item *items, const Token &t, size_t &params) {
    size_t count = item_count(items);
    size_t seen = 0;
    const cli_item *entry = nullptr;
    size_t any = 0;
    for (size_t i = 0; i < count; ++i) {
        if (items[i].kind != 'P') {
            continue;
        }
        ++any;
        if (seen++ == params) {
            entry = &items[i];
            break;
        }
    }
    if (any == 0) {
        fail(ERR_CLI_PARAMNOT);
    }
    if (entry == nullptr) {
        fail(ERR_CLI_TOOMANYP);
    }
    ++params;
    if (t.items.size() > 1 && (entry->flags & CLI_LIST) == 0) {
        fail(ERR_CLI_PARAMNOTLIST, std::to_string(params).c_str());
    }
    Item item;
    item.kind = 'P';
    item.name = entry->name;
    item.entry = entry;
    item.values = t.items;
    item.has_value = true;
    r.items.push_back(std::move(item));
}

void apply_overrides(Result &r, const cli_item *items, const cli_override *overrides, int32_t count, bool replace) {
    for (int32_t i = 0; i < count; ++i) {
        const cli_override &o = overrides[i];
        if (o.name == nullptr) {
            continue;
        }
        bool negated = false;
        const cli_item *entry = find_qualifier(items, o.name, negated);
        Item *existing = find_entry(r, entry);
        if (existing != nullptr) {
            if (!replace) {
                continue;
            }
            existing->values.clear();
            existing->has_value = false;
        }
        std::vector<std::string> values;
        if (o.value != nullptr) {
            values.emplace_back(o.value);
        }
        add_qualifier(r, entry, negated, o.value != nullptr, std::move(values));
    }
}

// Values, defaults and the rules between qualifiers, in the table's terms.
void check_result(Result &r, const cli_item *items) {
    for (Item &item : r.items) {
        if (item.kind == 'Q' && !item.negated && !item.has_value) {
            if (item.entry->default_value != nullptr) {
                item.values = split(item.entry->default_value, ',');
                item.has_value = true;
                item.value_default = true;
            } else if ((item.entry->flags & CLI_VALUE_REQUIRED) != 0) {
                fail(ERR_CLI_QMUSTVAL, item.entry->name);
            }
        }
        if (item.has_value && !item.value_default) {
            check_values(item);
        }
    }
    size_t count = item_count(items);
    for (size_t i = 0; i < count; ++i) {
        const cli_item &e = items[i];
        if (e.kind == 'Q' && (e.flags & CLI_DEFAULT) != 0 && find_entry(r, &e) == nullptr) {
            Item item;
            item.kind = 'Q';
            item.name = e.name;
            item.entry = &e;
            item.from_default = true;
            if (e.default_value != nullptr) {
                item.values = split(e.default_value, ',');
                item.has_value = true;
                item.value_default = true;
            }
            r.items.push_back(std::move(item));
        }
    }
    for (char kind : {'P', 'Q'}) {
        for (size_t i = 0; i < count; ++i) {
            if (items[i].kind == kind && (items[i].flags & CLI_MUST) != 0 && find_entry(r, &items[i]) == nullptr) {
                fail(ERR_CLI_QMUST, items[i].name);
            }
        }
    }
    for (const Item &item : r.items) {
        if (item.kind != 'Q' || item.negated || item.from_default) {
            continue;
        }
        const cli_item &e = *item.entry;
        if (e.excludes != nullptr) {
            for (const std::string &other : split(e.excludes, '|')) {
                const Item *o = find_named(r, other.c_str());
                if (stands(o) && !o->from_default) {
                    fail(ERR_CLI_INVQCOMB, e.name, o->name.c_str());
                }
            }
        }
        if (e.needs_one_of != nullptr) {
            bool met = false;
            for (const std::string &other : split(e.needs_one_of, '|')) {
                met = met || stands(find_named(r, other.c_str()));
            }
            if (!met) {
                fail(ERR_CLI_BQMUST, e.name, allowed_text(e.needs_one_of).c_str());
            }
        }
    }
}

// Standard mode: the tokens as items, parameters named P1, P2, ...
void standard_result(Result &r) {
    size_t params = 0;
    for (const Token &t : r.tokens) {
        Item item;
        item.kind = t.kind;
        if (t.kind == 'P') {
            item.name = 'P';
            item.name += std::to_string(++params);
        } else {
            item.name = upper(t.name);
        }
        item.values = t.items;
        item.has_value = t.kind == 'P' || t.has_value;
        r.items.push_back(std::move(item));
    }
}

}  // namespace

size_t match_command(const cli_command *table, std::string_view word, size_t *matches) {
    size_t count = 0;
    while (table[count].name != nullptr) {
        ++count;
    }
    size_t found = 0;
    *matches = word.empty() ? 0 : prefix_matches(word, count, [table](size_t i) { return table[i].name; }, found);
    return found;
}

const Item *find_item(const Result &r, std::string_view name, char kind) {
    for (const Item &item : r.items) {
        if (item.kind == kind && ascii::equal_nocase(item.name, name)) {
            return &item;
        }
    }
    return nullptr;
}

void parse(const CliRecord &st, const char *line, const cli_override *overrides, int32_t count, bool replace,
           Result &r) {
    if (line == nullptr) {
        fail(ERR_CLI_EMPSTR);
    }
    r.line.assign(line, std::strcspn(line, "\n"));
    r.tokens = tokenize(st, r.line);
    if (r.tokens.empty()) {
        fail(ERR_CLI_EMPSTR);
    }
    r.items.reserve(r.tokens.size() + 8);
    if (st.mode == CLI_MODE_STANDARD) {
        standard_result(r);
        return;
    }
    if (st.table == nullptr || st.table[0].name == nullptr) {
        raise::params(raise::Report::fresh, "cli_dcl_parse", "command table");
        throw ParseError{ERR_GEN_PARAMS};
    }
    size_t next = 0;
    if (st.mode == CLI_MODE_COMMAND) {
        const Token &word = r.tokens[0];
        if (word.kind != 'P') {
            fail(ERR_CLI_CNOTFOUND, r.line.substr(word.begin, word.value_end - word.begin).c_str());
        }
        if (word.items.size() > 1) {
            fail(ERR_CLI_SYNERR, r.line.substr(word.begin, word.value_end - word.begin).c_str());
        }
        r.command = find_command(st.table, word.items[0]);
        r.tokens[0].resolved = st.table[r.command].name;
        next = 1;
    } else {
        r.command = 0;
    }
    r.table = st.table;
    const cli_command &cmd = st.table[r.command];
    r.command_name = cmd.name;
    size_t params = 0;
    for (size_t i = next; i < r.tokens.size(); ++i) {
        Token &t = r.tokens[i];
        if (t.kind == 'P') {
            add_parameter(r, cmd.items, t, params);
            t.resolved = r.items.back().entry->name;
            continue;
        }
        bool negated = false;
        const cli_item *entry = find_qualifier(cmd.items, t.name, negated);
        if ((negated || (entry->flags & CLI_NO_VALUE) != 0) && t.has_value) {
            fail(ERR_CLI_SYNERR, r.line.substr(t.begin, t.value_end - t.begin).c_str());
        }
        t.resolved = entry->name;
        add_qualifier(r, entry, negated, t.has_value, t.items);
    }
    apply_overrides(r, cmd.items, overrides, count, replace);
    check_result(r, cmd.items);
}

}  // namespace vq::cli

using namespace vq::cli;
using vq::raise::Report;

namespace {

// What a parse reads: a line, or an argument vector turned into its line
// inside the parse, so that a refused argument fails like a refused line.
struct Source {
    const char *line = nullptr;
    int argc = 0;
    const char *const *argv = nullptr;
};

int run_parse(const char *function, Source source, const cli_override *overrides, int32_t count, bool replace,
              bool needs_init) {
    CliRecord *st = needs_init ? record() : initialised_record();
    if (st == nullptr) {
        return 0;
    }
    if (needs_init && !st->initialised) {
        new_dbg_str(0, "%s called without init\n", function);
        return vq::raise::params(Report::fresh, function, "cli_init");
    }
    if (count < 0 || (count > 0 && overrides == nullptr)) {
        return vq::raise::params(Report::fresh, function, "overrides");
    }
    st->reset_walks();
    try {
        auto result = std::make_shared<Result>();
        std::string joined;
        if (source.argv != nullptr) {
            joined = argv_line(*st, source.argc, source.argv);
            source.line = joined.c_str();
        }
        parse(*st, source.line, overrides, count, replace, *result);
        st->current = std::move(result);
        st->err_code = ERR_CLI_NOERR;
        new_dbg_str(kTraceCli, "%s(): command <%s>, %d items\n", function, st->current->command_name.c_str(),
                    static_cast<int>(st->current->items.size()));
        return 1;
    } catch (const ParseError &e) {
        st->err_code = e.code;
    } catch (const std::bad_alloc &) {
        err_set_error(ERR_CLI_MALLOCF, function, __LINE__);
        st->err_code = ERR_CLI_MALLOCF;
    }
    st->current.reset();
    return 0;
}

// Each argument must be there: a null one would stand for nothing.
bool valid_argv(int argc, const char *const *argv) {
    if (argc < 0 || (argc > 0 && argv == nullptr)) {
        return false;
    }
    for (int i = 0; i < argc; ++i) {
        if (argv[i] == nullptr) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" {

VQ_API int cli_dcl_parse(const char *line) {
    return run_parse("cli_dcl_parse", Source{line}, nullptr, 0, false, false);
}

VQ_API int cli_dcl_parse_argv(int argc, const char *const *argv) {
    if (!valid_argv(argc, argv)) {
        return VQ_PARAMS(Report::fresh, "argv");
    }
    return run_parse("cli_dcl_parse_argv", Source{nullptr, argc, argv}, nullptr, 0, false, false);
}

VQ_API int cli_dcl_parse_intern(const char *line, const cli_override *overrides, int32_t count, int32_t replace) {
    return run_parse("cli_dcl_parse_intern", Source{line}, overrides, count, replace != 0, true);
}

VQ_API int cli_dcl_parse_overriden(const char *line, const cli_override *overrides, int32_t count) {
    return run_parse("cli_dcl_parse_overriden", Source{line}, overrides, count, true, true);
}

VQ_API int cli_dcl_parse_overridden_new(const char *line, const cli_override *overrides, int32_t count) {
    return run_parse("cli_dcl_parse_overridden_new", Source{line}, overrides, count, false, true);
}

}  // extern "C"
