// The lexer: "@" file references, qualifiers and their values, parameters,
// quotes, parentheses, escapes and list commas.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"

namespace vq::cli {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// The contents of a files list with its line ends (and NULs) as blanks, or
// false when it cannot be opened.
bool read_list_file(const std::string &name, std::string &out) {
    std::FILE *file = std::fopen(name.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        out.append(chunk, n);
    }
    std::fclose(file);
    for (char &c : out) {
        if (c == '\r' || c == '\n' || c == '\0') {
            c = ' ';
        }
    }
    return true;
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
                    fail(kSyntax, ",");
                }
                return tokens;
            }
            if (cur() == ',') {
                if (tokens.empty() || (tokens.back().kind == 'Q' && !tokens.back().has_value)) {
                    fail(kSyntax, near().c_str());
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
                    fail(kSyntax, near().c_str());
                }
                tokens.push_back(qualifier());
                continue;
            }
            size_t begin = i_;
            std::string item = word(false);
            if (continues) {
                Token &last = tokens.back();
                if (last.kind == 'Q' && !last.has_value) {
                    fail(kSyntax, line_.substr(begin, i_ - begin).c_str());
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
            token_start = is_blank(c) || c == ',';
            ++i_;
        }
    }

private:
    bool at_end() const { return i_ >= line_.size(); }
    char cur() const { return line_[i_]; }

    void skip_blanks() {
        while (!at_end() && is_blank(cur())) {
            ++i_;
        }
    }

    // The rest of the line from the current place, for error texts.
    std::string near() const { return line_.substr(i_, 64); }

    void expand_reference() {
        size_t at = i_;
        size_t end = at + 1;
        while (end < line_.size() && !is_blank(line_[end]) && line_[end] != ',') {
            ++end;
        }
        std::string name = line_.substr(at + 1, end - at - 1);
        if (name.empty()) {
            fail(kSyntax, "@");
        }
        new_dbg_str(kTraceCli, "in subst, file name is %s\n", name.c_str());
        std::string contents;
        if (!read_list_file(name, contents)) {
            fail(kFileList, name.c_str());
        }
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
            fail(kUnclosedQuote);
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

    // A word: up to a blank, a comma outside braces or the end; in_parens
    // also stops at ')' and takes backslash escapes as in quotes.
    std::string word(bool in_parens) {
        std::string out;
        int braces = 0;
        while (!at_end()) {
            char c = cur();
            if (is_blank(c) || (c == ',' && braces == 0) || (in_parens && c == ')')) {
                break;
            }
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

    // "(a, b, c)": the items of a parenthesised list.
    void parenthesised(Token &t) {
        ++i_;
        for (;;) {
            skip_blanks();
            std::string item = word(true);
            skip_blanks();  // blanks before the comma or the closing parenthesis
            if (at_end()) {
                fail(kUnclosedParen);
            }
            if (cur() != ',' && cur() != ')') {  // "(a b)": two words in one item
                fail(kSyntax, near().c_str());
            }
            t.items.push_back(std::move(item));
            if (cur() == ')') {
                ++i_;
                return;
            }
            ++i_;
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
            if (is_blank(c) || c == ',' || c == '=' || (st_.switch_char != '-' && c == st_.switch_char)) {
                break;
            }
            ++i_;
        }
        t.name = line_.substr(start, i_ - start);
        if (t.name.empty()) {
            fail(kSyntax, line_.substr(t.begin, 64).c_str());
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
};

}  // namespace

std::vector<Token> tokenize(const CliRecord &st, std::string &line) {
    return Lexer(st, line).run();
}

}  // namespace vq::cli

using namespace vq::cli;

extern "C" VQ_API int cli_subst_shtrudel(const char *line, char **result) {
    if (line == nullptr || result == nullptr) {
        err_set_error(ERR_GEN_PARAMS, "cli_subst_shtrudel", line == nullptr ? "line" : "result");
        return 0;
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
        err_set_error(kMalloc, "cli_subst_shtrudel", __LINE__);
        return 0;
    }
}
