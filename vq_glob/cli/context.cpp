// Saved results: the thread's context store and caller-owned context
// handles, the canonical command line, the INI dump, the trace dump and the
// masking of passwords on the kept line.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"
#include "internal/checked_handle.h"

namespace vq::cli {
namespace {

using raise::Report;

// The context behind a caller's handle, or null with a PARAMS error for a
// null handle, another kind of handle or one already freed.
ContextHandle *context_handle(void *handle, const char *function) {
    return tag::checked<ContextHandle>(handle, tag::Kind::cli_context, Report::fresh, function, "handle");
}

// A checked decimal value as an int, held to the int range.
int number_of(const char *text) {
    long long n = std::strtoll(text, nullptr, 10);
    return n > INT_MAX ? INT_MAX : n < INT_MIN ? INT_MIN : static_cast<int>(n);
}

bool needs_quotes(const std::string &v, char switch_char) {
    if (v.empty() || v[0] == switch_char || v[0] == '@' || v[0] == '(') {
        return true;
    }
    return v.find_first_of(" \t,\"(){}\\=") != std::string::npos;
}

void append_value(std::string &out, const std::string &v, char switch_char) {
    if (!needs_quotes(v, switch_char)) {
        out += v;
        return;
    }
    append_quoted(out, v);
}

void append_items(std::string &out, const std::vector<std::string> &values, char switch_char) {
    for (size_t i = 0; i < values.size(); ++i) {
        if (i > 0) {
            out += ',';
        }
        append_value(out, values[i], switch_char);
    }
}

}  // namespace

std::string canonical_line(const CliRecord &st, const Result &r, bool without_defaults) {
    std::string out;
    if (r.command >= 0 && st.mode == CLI_MODE_COMMAND) {
        out += upper(r.command_name);
    }
    for (const Item &item : r.items) {
        if (without_defaults && item.from_default) {
            continue;
        }
        if (!out.empty()) {
            out += ' ';
        }
        if (item.kind == 'P') {
            append_items(out, item.values, st.switch_char);
            continue;
        }
        out += st.switch_char;
        if (item.negated) {
            out += "NO";
        }
        out += upper(item.name);
        if (item.has_value && !item.negated && !(without_defaults && item.value_default)) {
            out += '=';
            append_items(out, item.values, st.switch_char);
        }
    }
    return out;
}

}  // namespace vq::cli

using namespace vq::cli;
using vq::raise::Report;

extern "C" {

VQ_API int cli_context_init(void) {
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    st->contexts.clear();
    return 1;
}

VQ_API int cli_clean_context(void) {
    CliRecord *st = record();
    if (st != nullptr) {
        st->contexts.clear();
    }
    return 1;
}

VQ_API int cli_save_context(int32_t id) {
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    for (size_t i = 0; i < st->contexts.size(); ++i) {
        if (st->contexts[i].id == id) {
            new_dbg_str(kTraceCli, "save context, i = %d\n", static_cast<int>(i));
            st->contexts[i].result = st->current;
            return 1;
        }
    }
    if (st->contexts.size() >= kMaxContexts) {
        new_dbg_str(kTraceCli, "error allocating new context\n");
        err_set_error(ERR_GEN_GENERAL, "the parse context store is full (32 contexts)");
        return 0;
    }
    new_dbg_str(kTraceCli, "save context, i = %d\n", static_cast<int>(st->contexts.size()));
    return guarded("cli_save_context", [&]() {
        st->contexts.push_back(SavedContext{id, st->current});
        return 1;
    });
}

VQ_API int cli_load_context(int32_t id) {
    CliRecord *st = record();
    if (st == nullptr) {
        return 0;
    }
    for (const SavedContext &c : st->contexts) {
        if (c.id == id) {
            st->current = c.result;
            st->reset_walks();
            return 1;
        }
    }
    return 0;
}

VQ_API int cli_delete_context(int32_t id) {
    CliRecord *st = record();
    if (st == nullptr) {
        return 0;
    }
    auto it = std::find_if(st->contexts.begin(), st->contexts.end(), [id](const SavedContext &c) { return c.id == id; });
    if (it == st->contexts.end()) {
        new_dbg_str(kTraceCli, "context %d was not found in delete!\n", static_cast<int>(id));
        return 0;
    }
    st->contexts.erase(it);
    return 1;
}

VQ_API void *cli_get_context_handle(void) {
    auto *h = new (std::nothrow) ContextHandle();
    if (h == nullptr) {
        VQ_NO_MEMORY(Report::fresh, kModule);
    }
    return h;
}

VQ_API int cli_free_context_handle(void *handle) {
    ContextHandle *h = context_handle(handle, __func__);
    if (h == nullptr) {
        return 0;
    }
    delete h;  // the tag's destructor marks the memory freed
    return 1;
}

VQ_API int cli_truncate_handle(void *handle) {
    ContextHandle *h = context_handle(handle, __func__);
    if (h == nullptr) {
        return 0;
    }
    h->result.reset();
    return 1;
}

VQ_API int cli_save_context_to_handle(void *handle) {
    ContextHandle *h = context_handle(handle, __func__);
    if (h == nullptr) {
        return 0;
    }
    CliRecord *st = record();
    if (st == nullptr) {
        return VQ_PARAMS(Report::fresh, "handle");
    }
    h->result = st->current;
    return 1;
}

VQ_API int cli_load_context_from_handle(void *handle) {
    ContextHandle *h = context_handle(handle, __func__);
    if (h == nullptr) {
        return 0;
    }
    CliRecord *st = record();
    if (st == nullptr) {
        return VQ_PARAMS(Report::fresh, "handle");
    }
    st->current = h->result;
    st->reset_walks();
    return 1;
}

VQ_API int cli_set_current_res(const void *result) {
    CliRecord *st = record();
    if (st == nullptr) {
        return 0;
    }
    if (result == nullptr) {
        st->current.reset();
        st->reset_walks();
        return 1;
    }
    if (vq::tag::is(result, vq::tag::Kind::cli_context)) {
        // A context handle: its result is shared, as a load from it shares it.
        st->current = static_cast<const ContextHandle *>(result)->result;
        st->reset_walks();
        return 1;
    }
    const auto *given = vq::tag::checked<Result>(result, kResultKind, Report::fresh, __func__, "result");
    if (given == nullptr) {
        return 0;
    }
    if (given == st->current.get()) {
        return 1;
    }
    return guarded(__func__, [&]() {
        st->current = std::make_shared<Result>(*given);
        st->reset_walks();
        return 1;
    });
}

VQ_API const char *cli_get_canon_command_line(void) {
    CliRecord *st = initialised_record();
    if (st == nullptr || st->current == nullptr) {
        return nullptr;
    }
    return guarded("cli_get_canon_command_line", [&]() -> const char * {
        st->canon_buf = canonical_line(*st, *st->current, false);
        return st->canon_buf.c_str();
    });
}

VQ_API char *cli_new_get_canon_command_line(int32_t without_defaults) {
    CliRecord *st = initialised_record();
    if (st == nullptr || st->current == nullptr) {
        return nullptr;
    }
    return guarded("cli_new_get_canon_command_line", [&]() -> char * {
        std::string line = canonical_line(*st, *st->current, without_defaults != 0);
        char *copy = static_cast<char *>(std::malloc(line.size() + 1));
        if (copy == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(copy, line.c_str(), line.size() + 1);
        return copy;
    });
}

VQ_API int cli_remove_defaults(void) {
    CliRecord *st = record();
    if (st == nullptr || st->current == nullptr) {
        return 1;
    }
    return guarded("cli_remove_defaults", [&]() {
        Result &r = mutable_current(*st);
        std::erase_if(r.items, [](const Item &item) { return item.from_default; });
        st->reset_walks();
        return 1;
    });
}

VQ_API int cli_dump_to_ini(const char *file, int32_t number) {
    CliRecord *st = record();
    if (file == nullptr || st == nullptr) {
        return VQ_PARAMS(Report::fresh, "file");
    }
    std::FILE *out = std::fopen(file, "a");
    if (out == nullptr) {
        err_set_error(ERR_GEN_GENERAL, (std::string("cannot open INI dump file ") + file).c_str());
        return 0;
    }
    bool ok = true;
    if (st->current != nullptr) {
        for (const Item &item : st->current->items) {
            if (item.kind == 'Q') {
                std::fprintf(out, "[%s_%03d]\n", item.name.c_str(), static_cast<int>(number));
                std::fprintf(out, "NAME=%s\n", item.name.c_str());
                if (item.from_default) {
                    std::fputs("DEFAULT=1\n", out);
                }
                if (item.negated && item.entry != nullptr && (item.entry->flags & CLI_NEGATABLE) != 0) {
                    std::fputs("NEGATED=1\n", out);
                }
                if (item.value_default) {
                    std::fputs("VALUE_DEFAULT=1\n", out);
                }
                bool numeric = item.entry != nullptr && (item.entry->flags & (CLI_NUMBER | CLI_PORT)) != 0;
                if (numeric && item.has_value && !item.negated) {
                    std::fprintf(out, "VALUE=%d\n", number_of(item.values.empty() ? "0" : item.values[0].c_str()));
                } else if (item.has_value && !item.negated) {
                    std::fprintf(out, "VALUE=%s\n", join(item.values, st->separator).c_str());
                } else {
                    std::fputs("VALUE=\n", out);
                }
            }
            std::fputs("\n", out);
        }
    }
    ok = std::ferror(out) == 0;
    ok = std::fclose(out) == 0 && ok;
    if (!ok) {
        err_set_error(ERR_GEN_GENERAL, (std::string("error writing INI dump file ") + file).c_str());
        return 0;
    }
    return 1;
}

VQ_API int cli_dbg_dump(void) {
    CliRecord *st = record();
    if (st == nullptr || st->current == nullptr || dbg_check_mask(kTraceDump) == 0) {
        return 1;
    }
    const Result &r = *st->current;
    new_dbg_str(kTraceDump, "cli_dbg_dump(): command <%s>\n", r.command_name.c_str());
    for (const Item &item : r.items) {
        new_dbg_str(kTraceDump, "  %c %s%s%s%s value=<%s>\n", item.kind, item.negated ? "NO" : "", item.name.c_str(),
                    item.from_default ? " (default)" : "", item.value_default ? " (value default)" : "",
                    join(item.values, st->separator).c_str());
    }
    return 1;
}

VQ_API int cli_subst_password(const char *name) {
    CliRecord *st = record();
    if (st == nullptr || name == nullptr || st->current == nullptr) {
        return 0;
    }
    return guarded("cli_subst_password", [&]() {
        Result &r = mutable_current(*st);
        int masked = 0;
        for (size_t i = 0; i < r.tokens.size(); ++i) {
            Token &t = r.tokens[i];
            if (t.kind != 'Q' || !t.has_value || t.resolved == nullptr ||
                !vq::ascii::equal_nocase(t.resolved, name)) {
                continue;
            }
            static constexpr std::string_view kMask = "********";
            size_t old_length = t.value_end - t.value_begin;
            r.line.replace(t.value_begin, old_length, kMask);
            t.value_end = t.value_begin + kMask.size();
            // the tokens behind it move with the text
            for (size_t j = i + 1; j < r.tokens.size(); ++j) {
                for (size_t *at : {&r.tokens[j].begin, &r.tokens[j].value_begin, &r.tokens[j].value_end}) {
                    *at = *at + kMask.size() - old_length;
                }
            }
            masked = 1;
        }
        return masked;
    });
}

}  // extern "C"
