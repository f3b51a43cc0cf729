// The tokenizer: splits a caller's text into blank-, tab- or comma-separated
// tokens one call at a time. Its position and token buffer live in the
// thread's strings record, so every thread tokenises on its own; the text
// itself stays the caller's.
#include <cstring>

#include "strings/strings_state.h"
#include "vq_glob/dbg.h"

namespace vq::strings {
namespace {

// Forgets the text and frees the token buffer: the next str_get_next_token
// needs a new str_init_tokens.
void drop_tokens(StringsRecord &rec) {
    std::free(rec.token);
    rec.token = nullptr;
    rec.token_size = 0;
    rec.token_next = nullptr;
}

// Appends to the thread's token buffer, doubling it whenever fewer than 5
// bytes remain, so that the closing NUL always fits.
class TokenWriter {
public:
    explicit TokenWriter(StringsRecord &rec) : rec_(rec) {}

    bool put(char c) {
        if (rec_.token_size - len_ < 5 && !grow()) {
            return false;
        }
        rec_.token[len_++] = c;
        return true;
    }

    bool put_run(char c, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            if (!put(c)) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] char *finish() const {
        rec_.token[len_] = '\0';
        return rec_.token;
    }

private:
    bool grow() {
        auto *bigger = static_cast<char *>(std::realloc(rec_.token, rec_.token_size * 2));
        if (bigger == nullptr) {
            return false;
        }
        rec_.token = bigger;
        rec_.token_size *= 2;
        return true;
    }

    StringsRecord &rec_;
    size_t len_ = 0;
};

bool ends_token(char c) { return ascii::is_blank(c) || c == ','; }

// Copies one token from p and leaves p on the character that ended it (a
// blank, tab, comma outside quotes, or the NUL). False when out of memory.
bool scan_token(const char *&p, TokenWriter &out, bool keep) {
    bool quoted = false;
    while (*p != '\0') {
        if (*p == '\\') {
            size_t run = std::strspn(p, "\\");
            char after = p[run];
            bool ok = true;
            if (after == '"') {
                // Pairs stand for one backslash each; an odd one left over
                // makes the quote a plain character.
                ok = out.put_run('\\', keep ? run : run / 2);
                p += run;
                if (run % 2 == 1) {
                    ok = ok && out.put('"');
                    ++p;
                }
            } else if (!quoted && ends_token(after)) {
                // The last backslash escapes the separator; those before it
                // are plain.
                ok = out.put_run('\\', keep ? run : run - 1) && out.put(after);
                p += run + 1;
            } else {
                ok = out.put_run('\\', run);
                p += run;
            }
            if (!ok) {
                return false;
            }
        } else if (*p == '"') {
            quoted = !quoted;
            if (keep && !out.put('"')) {
                return false;
            }
            ++p;
        } else if (!quoted && ends_token(*p)) {
            return true;
        } else if (!out.put(*p++)) {
            return false;
        }
    }
    return true;
}

// After a token: a blank or tab ending it takes the blanks that follow and
// then one comma with it, so "A , B", "A,B" and "A B" all read as A and B.
const char *skip_separator(const char *p) {
    if (ascii::is_blank(*p)) {
        while (ascii::is_blank(*p)) {
            ++p;
        }
        if (*p == ',') {
            ++p;
        }
    } else if (*p == ',') {
        ++p;
    }
    return p;
}

}  // namespace
}  // namespace vq::strings

using namespace vq::strings;

extern "C" {

VQ_API int str_init_tokens(char *text) {
    StringsRecord *rec = StringsFrame::get();
    if (rec == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    if (text == nullptr) {
        drop_tokens(*rec);
        return VQ_PARAMS(Report::add, "text");
    }
    str_trim(text);
    char *start = text[0] == '(' ? text + 1 : text;
    size_t len = std::strlen(start);
    if (len > 0 && start[len - 1] == ')') {
        start[len - 1] = '\0';
    }
    drop_tokens(*rec);
    rec->token = static_cast<char *>(std::malloc(kTokenBufferSize));
    if (rec->token == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    rec->token_size = kTokenBufferSize;
    rec->token_next = start;
    return 1;
}

VQ_API char *str_get_next_token(int flag) {
    StringsRecord *rec = StringsFrame::get();
    const char *p = rec != nullptr ? rec->token_next : nullptr;
    new_dbg_str(kTraceChannel, "start: %s\n", p != nullptr ? p : "(null)");
    if (p == nullptr) {
        new_dbg_str(kTraceChannel, "<error - no init>\n");
        return nullptr;
    }
    while (vq::ascii::is_blank(*p)) {
        ++p;
    }
    if (*p == '\0') {
        new_dbg_str(kTraceChannel, "<no token>\n");
        drop_tokens(*rec);
        return nullptr;
    }
    TokenWriter out(*rec);
    if (!scan_token(p, out, flag != 0)) {
        drop_tokens(*rec);
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    // The position points into the caller's writable text (str_init_tokens
    // took it as char *); only reading went through the const pointer.
    rec->token_next += skip_separator(p) - rec->token_next;
    char *token = out.finish();
    new_dbg_str(kTraceChannel, "get_next_token(): token is <%s>\n", token);
    return token;
}

}  // extern "C"
