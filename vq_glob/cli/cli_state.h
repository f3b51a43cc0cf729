// The command-line module's data model and what its sources share: the
// tokens of a line, the parsed result, the per-thread record and the error
// raising that unwinds a parse to its entry point.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "internal/ascii.h"
#include "internal/frame.h"
#include "internal/handle_tag.h"
#include "internal/raise.h"
#include "vq_glob/cli.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

namespace vq::cli {

// Trace channels: CLI and CLI_DUMP as new_dbg_str values, CLI_CACHE by its bit.
inline constexpr int32_t kTraceCli = DBG_CHANNEL_CLI;
inline constexpr int32_t kTraceDump = DBG_CHANNEL_CLI_DUMP;
inline constexpr int kTraceCacheBit = DBG_BIT_CLI_CACHE;

// The module named in out-of-memory errors.
inline constexpr const char *kModule = "cli";

inline constexpr size_t kMaxContexts = 32;
inline constexpr size_t kMaxWalkDepth = 16;

// Thrown once the error is on the stack; caught at the parse's entry point.
struct ParseError {
    uint32_t code;
};

template <typename... Args>
[[noreturn]] void fail(uint32_t code, Args... args) {
    err_set_error(code, args...);
    throw ParseError{code};
}

// Runs body for a public entry point: a ParseError (its error already on the
// stack) or an allocation failure (MEMORY for function) gives the result
// type's zero value.
template <typename F>
auto guarded(const char *function, F body) -> decltype(body()) {
    try {
        return body();
    } catch (const ParseError &) {
        return {};
    } catch (const std::bad_alloc &) {
        raise::memory(raise::Report::fresh, function, kModule, __LINE__);
        return {};
    }
}

// A token as written: a parameter's items, or a qualifier's name as written
// and its value items. Spans index the expanded line.
struct Token {
    char kind = 'P';
    std::string name;
    std::vector<std::string> items;
    bool has_value = false;
    size_t begin = 0;
    size_t value_begin = 0;
    size_t value_end = 0;
    const char *resolved = nullptr;  // the table's name it stands for, once looked up
};

// One parameter or qualifier of the result.
struct Item {
    char kind = 'P';
    std::string name;                // the table's name (written name in standard mode)
    const cli_item *entry = nullptr;  // null in standard mode
    std::vector<std::string> values;
    bool has_value = false;
    bool negated = false;
    bool from_default = false;   // present only because of CLI_DEFAULT
    bool value_default = false;  // the value came from default_value
};

// The kind of the results that cli_get_current_res hands out. A result is
// no context handle: cli_set_current_res tells the two apart by their tags.
// (Held here until the tag table lists it beside Kind::cli_context.)
inline constexpr tag::Kind kResultKind = tag::Kind::cli_result;

// The tag of a result. Results are copied before a change, and every copy is
// a result of its own, so unlike tag::HandleTag this one can be copied: the
// copy is stamped afresh, and each object erases its own tag when it goes.
class ResultTag {
public:
    ResultTag() { tag::stamp(&value_, kResultKind); }
    ResultTag(const ResultTag &) : ResultTag() {}
    ResultTag &operator=(const ResultTag &) { return *this; }
    ~ResultTag() { tag::erase(&value_); }

private:
    uint32_t value_ = 0;
};

// A parse result; its address is the handle cli_get_current_res gives out,
// so the tag comes first.
struct Result {
    ResultTag tag;
    const cli_command *table = nullptr;
    int command = -1;
    std::string command_name;
    std::vector<Item> items;
    std::vector<Token> tokens;
    std::string line;
};

// Results are shared between the current state, contexts and cache slots,
// and copied before a change.
using ResultPtr = std::shared_ptr<const Result>;

// A caller-owned context (cli_get_context_handle); its tag first, so that
// the entry points can refuse another kind of handle or one already freed.
struct ContextHandle {
    tag::HandleTag tag{tag::Kind::cli_context};
    ResultPtr result;
};

static_assert(std::is_standard_layout_v<Result> && std::is_standard_layout_v<ContextHandle>,
              "the tags must sit at the handles' addresses");

struct CacheSlot {
    bool used = false;
    uint32_t hash = 0;
    int32_t changes = 0;
    std::string line;
    ResultPtr result;
};

struct Cache {
    std::string id;
    const cli_command *table = nullptr;
    std::vector<CacheSlot> slots;
    int32_t lookups = 0;
    int32_t hits = 0;
};

struct SavedContext {
    int32_t id = 0;
    ResultPtr result;
};

struct CliRecord {
    bool initialised = false;
    char switch_char = '-';
    char separator = ',';
    int32_t mode = CLI_MODE_COMMAND;
    bool unescape = true;
    const cli_command *table = nullptr;
    std::vector<std::string> hidden;  // upper-case names
    int32_t changes = 0;
    uint32_t err_code = ERR_CLI_NOERR;
    ResultPtr current;

    // joined values handed out by cli_get_value, kept until the result
    // changes: (item, separator) -> text
    std::deque<std::pair<std::pair<const Item *, char>, std::string>> values;  // stable texts
    std::string usage_buf;
    std::string canon_buf;
    std::string weekly_buf;

    // list iterator
    std::string qual_text;
    size_t qual_pos = 0;
    bool qual_more = false;
    std::string qual_item;
    // multi-list iterator
    std::vector<std::string> multi_elements;
    size_t multi_pos = 0;
    // walk over the result's items
    size_t walk_pos = 0;
    std::vector<size_t> walk_stack;
    std::string walk_value;
    // walk over the tokens
    size_t std_next = 0;
    size_t std_current = SIZE_MAX;
    size_t std_value = 0;

    std::vector<SavedContext> contexts;
    std::unique_ptr<Cache> cache;

    // Forgets the walk positions and the values handed out: the current
    // result changed.
    void reset_walks();
    void settings_changed() { ++changes; }
};

using CliFrame = frame::ModuleFrame<CliRecord, frame::kSlotCli, frame::OnDemand::yes>;

// The thread's record, or null when the thread cannot have one.
inline CliRecord *record() { return CliFrame::get(); }

// The thread's record initialised (cli_init's work), or null.
CliRecord *initialised_record();

// ---- shared helpers ----------------------------------------------------------

// The index of the command word abbreviates; *matches says how many
// commands it abbreviates (the index is meaningful when it is 1).
size_t match_command(const cli_command *table, std::string_view word, size_t *matches);
// Whether word is a prefix of name, ignoring ASCII case. The C string form
// stops at the name's NUL without measuring it first: the lookups call it
// for every name of a table.
bool prefix_nocase(std::string_view word, const char *name);
std::string upper(std::string_view text);
// Splits text at sep (no quoting).
std::vector<std::string> split(std::string_view text, char sep);
std::string join(const std::vector<std::string> &items, char sep);
// Appends text in double quotes, a backslash before each quote and backslash,
// as the lexer reads it back into text (with unescape on).
void append_quoted(std::string &out, std::string_view text);

// Expands "@file" references and splits line into tokens; line becomes the
// expanded text. Throws ParseError.
std::vector<Token> tokenize(const CliRecord &st, std::string &line);

// The line that argv[1] to argv[argc - 1] stand for, one token each (see
// cli_dcl_parse_argv). Throws ParseError.
std::string argv_line(const CliRecord &st, int argc, const char *const *argv);

// Parses line into out. Throws ParseError (and std::bad_alloc).
void parse(const CliRecord &st, const char *line, const cli_override *overrides, int32_t count, bool replace,
           Result &out);

// The result item of name (full name, any case) and kind, or null.
const Item *find_item(const Result &r, std::string_view name, char kind);

// Validates a multi-list text into its elements' inner texts. Throws.
std::vector<std::string> multi_list_elements(std::string_view text, int32_t per_element);

// Whether the qualifier is hidden on this thread.
bool is_hidden(const CliRecord &st, const cli_item &item);

// The canonical line of r.
std::string canonical_line(const CliRecord &st, const Result &r, bool without_defaults);

// A writable copy of the current result (or an empty one), installed as current.
Result &mutable_current(CliRecord &st);

}  // namespace vq::cli
