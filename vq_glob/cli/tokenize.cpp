// The lexer: "@" file references, qualifiers and their values, parameters,
// quotes, parentheses, escapes and list commas.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"
#include "internal/whole_file.h"
#include "platform/platform.h"

namespace vq::cli {
namespace {

// How much one line may take in from its files lists together: each list
// is bounded by CLI_MAX_FILE_LIST, and this keeps a line of many references
// from adding up to unbounded memory.
constexpr size_t kFileListsPerLine = 16 * static_cast<size_t>(CLI_MAX_FILE_LIST);

// Reads a files list through the platform's whole-file read, which opens
// without blocking and refuses fifos, devices and directories before reading
// a byte. Line ends (and NULs) become blanks. A failure leaves the reason,
// then FILELIST with the name, on the stack and unwinds the parse.
std::string read_list_file(const std::string &name, size_t limit) {
    std::string out;
    int32_t error = 0;
    PlatWholeRead how = plat_read_regular_file(name.c_str(), limit, out, &error);
    if (how == PlatWholeRead::ok) {
        for (char &c : out) {
            if (c == '\r' || c == '\n' || c == '\0') {
                c = ' ';
            }
        }
        return out;
    }
    if (how == PlatWholeRead::too_large && limit < static_cast<size_t>(CLI_MAX_FILE_LIST)) {
        err_set_error(ERR_SYS_ERRMSG, ("the files lists of one line are larger than " +
                                       std::to_string(kFileListsPerLine) + " bytes together")
                                          .c_str());
    } else {
        whole_file::raise_refusal(how, name.c_str(), limit, error);
    }
    err_add_error(ERR_CLI_FILELIST, name.c_str());
    throw ParseError{ERR_CLI_FILELIST};
}

class Lexer {
public:
    Lexer(const CliRecord &st, std::string &line) : st_(st), line_(line) {}

    std::vector<Token> run() {
        std::vector<Token> tokens;
        tokens.reserve(16);
        bool continues = false;
        for (;;) {
            skip_blanks();
            if (at_end()) {
                if (continues) {
                    fail(ERR_CLI_SYNERR, ",");
                }
                return tokens;
            }
            if (cur() == ',') {
                if (tokens.empty() || (tokens.back().kind == 'Q' && !tokens.back().has_value)) {
                    fail(ERR_CLI_SYNERR, near().c_str());
                }
                if (continues) {  // "a,,b": an empty item between the commas
                    tokens.back().items.emplace_back();
                }
                continues = true;
                ++i_;
                continue;
            }
            if (cur() == '@' && i_ >= horizon_) {
                expand_reference();
                continue;
            }
            if (cur() == st_.switch_char) {
                if (continues) {
                    fail(ERR_CLI_SYNERR, near().c_str());
                }
                tokens.push_back(qualifier());
                continue;
            }
            size_t begin = i_;
            std::string item = word(false);
            if (continues) {
                Token &last = tokens.back();
                if (last.kind == 'Q' && !last.has_value) {
                    fail(ERR_CLI_SYNERR, line_.substr(begin, i_ - begin).c_str());
                }
                last.items.push_back(std::move(item));
                last.value_end = i_;
                continues = false;
            } else {
                Token t;
                t.kind = 'P';
                t.begin = begin;
                t.value_begin = begin;
                t.value_end = i_;
                t.items.push_back(std::move(item));
                tokens.push_back(std::move(t));
            }
        }
    }

    // Only the expansion, for cli_subst_shtrudel: quoted text is skipped.
    void expand_only() {
        bool token_start = true;
        while (!at_end()) {
            char c = cur();
            if (token_start && c == '@' && i_ >= horizon_) {
                expand_reference();
                continue;
            }
            if (c == '"') {
                std::string ignored;
                quoted(ignored);
                token_start = false;
                continue;
            }
            token_start = ascii::is_blank(c) || c == ',';
            ++i_;
        }
    }

private:
    bool at_end() const { return i_ >= line_.size(); }
    char cur() const { return line_[i_]; }

    void skip_blanks() {
        while (!at_end() && ascii::is_blank(cur())) {
            ++i_;
        }
    }

    // The rest of the line from the current place, for error texts.
    std::string near() const { return line_.substr(i_, 64); }

    void expand_reference() {
        size_t at = i_;
        size_t end = at + 1;
        while (end < line_.size() && !ascii::is_blank(line_[end]) && line_[end] != ',') {
            ++end;
        }
        std::string name = line_.substr(at + 1, end - at - 1);
        if (name.empty()) {
            fail(ERR_CLI_SYNERR, "@");
        }
        new_dbg_str(kTraceCli, "in subst, file name is %s\n", name.c_str());
        std::string contents = read_list_file(name, std::min<size_t>(CLI_MAX_FILE_LIST, list_budget_));
        list_budget_ -= contents.size();
        line_.replace(at, end - at, contents);
        horizon_ = at + contents.size();
    }

    // A double-quoted piece from the opening quote; escapes as set.
    void quoted(std::string &out) {
        ++i_;
        while (!at_end() && cur() != '"') {
            escaped_char(out);
        }
        if (at_end()) {
            fail(ERR_CLI_MISSQ);
        }
        ++i_;
    }

    // One character, or a backslash and the character it escapes.
    void escaped_char(std::string &out) {
        if (cur() == '\\' && i_ + 1 < line_.size()) {
            if (!st_.unescape) {
                out += '\\';
            }
            out += line_[i_ + 1];
            i_ += 2;
            return;
        }
        out += line_[i_++];
    }

    // A word: up to a blank, a comma outside braces or the end. In
    // parentheses it runs on over blanks to a comma or the closing ')',
    // drops the blanks before them and takes backslash escapes as in quotes.
    std::string word(bool in_parens) {
        std::string out;
        int braces = 0;
        size_t blanks = 0;  // blanks met in parentheses, kept once text follows
        while (!at_end()) {
            char c = cur();
            if ((c == ',' && braces == 0) || (in_parens && c == ')') || (!in_parens && ascii::is_blank(c))) {
                break;
            }
            if (ascii::is_blank(c)) {
                ++blanks;
                ++i_;
                continue;
            }
            out.append(line_, i_ - blanks, blanks);
            blanks = 0;
            if (c == '"') {
                quoted(out);
                continue;
            }
            if (c == '\\' && in_parens) {
                escaped_char(out);
                continue;
            }
            if (c == '\\' && i_ + 1 < line_.size() && line_[i_ + 1] == '"') {
                out += '"';
                i_ += 2;
                continue;
            }
            if (c == '{') {
                ++braces;
            } else if (c == '}' && braces > 0) {
                --braces;
            }
            out += c;
            ++i_;
        }
        return out;
    }

    // "(a, b c)": the items of a parenthesised list, blanks inside them kept.
    void parenthesised(Token &t) {
        ++i_;
        for (;;) {
            skip_blanks();
            t.items.push_back(word(true));
            if (at_end()) {
                fail(ERR_CLI_MISSPART);
            }
            if (cur() == ')') {
                ++i_;
                return;
            }
            ++i_;  // the comma before the next item
        }
    }

    Token qualifier() {
        Token t;
        t.kind = 'Q';
        t.begin = i_;
        ++i_;
        size_t start = i_;
        while (!at_end()) {
            char c = cur();
            if (ascii::is_blank(c) || c == ',' || c == '=' ||
                (st_.switch_char != '-' && c == st_.switch_char)) {
                break;
            }
            ++i_;
        }
        t.name = line_.substr(start, i_ - start);
        if (t.name.empty()) {
            fail(ERR_CLI_SYNERR, line_.substr(t.begin, 64).c_str());
        }
        t.value_begin = t.value_end = i_;
        if (!at_end() && cur() == '=') {
            ++i_;
            t.has_value = true;
            t.value_begin = i_;
            if (!at_end() && cur() == '(') {
                parenthesised(t);
            } else {
                t.items.push_back(word(false));
            }
            t.value_end = i_;
        }
        return t;
    }

    const CliRecord &st_;
    std::string &line_;
    size_t i_ = 0;
    size_t horizon_ = 0;  // text before this came from a files list: no further "@"
    size_t list_budget_ = kFileListsPerLine;
};

}  // namespace

std::vector<Token> tokenize(const CliRecord &st, std::string &line) {
    return Lexer(st, line).run();
}

}  // namespace vq::cli

using namespace vq::cli;
using vq::raise::Report;

extern "C" VQ_API int cli_subst_shtrudel(const char *line, char **result) {
    if (line == nullptr || result == nullptr) {
        return VQ_PARAMS(Report::fresh, line == nullptr ? "line" : "result");
    }
    CliRecord *st = initialised_record();
    if (st == nullptr) {
        return 0;
    }
    try {
        std::string text(line, std::strcspn(line, "\n"));
        Lexer(*st, text).expand_only();
        char *copy = static_cast<char *>(std::malloc(text.size() + 1));
        if (copy == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(copy, text.c_str(), text.size() + 1);
        *result = copy;
        return 1;
    } catch (const ParseError &) {
        return 0;
    } catch (const std::bad_alloc &) {
        err_set_error(ERR_CLI_MALLOCF, "cli_subst_shtrudel", __LINE__);
        return 0;
    }
}
