// The hive text: a strict line parser that refuses anything it does not
// fully understand (a damaged file must never read as a different registry),
// and the writer of the same text, which the parser reads back unchanged.
#include "registry/hive.h"

#include <set>
#include <string>
#include <vector>

#include "internal/ascii.h"

namespace vq::reg {
namespace {

constexpr std::string_view kBootPrefix = "boot ";
constexpr std::string_view kVolatileSuffix = "] volatile";
constexpr char kHexDigits[] = "0123456789abcdef";

bool is_control(unsigned char c) { return c < 0x20 || c == 0x7f; }

int hex_value(char c) {
    if (ascii::is_digit(c)) {
        return c - '0';
    }
    char lower = ascii::to_lower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The text of the line without its "\r" and the blanks at its end.
std::string_view trimmed(std::string_view line) {
    size_t end = line.size();
    while (end > 0 && (line[end - 1] == '\r' || line[end - 1] == ' ' || line[end - 1] == '\t')) {
        --end;
    }
    return line.substr(0, end);
}

std::string parent_of(std::string_view path) {
    size_t cut = path.rfind('\\');
    return cut == std::string_view::npos ? std::string() : std::string(path.substr(0, cut));
}

// Reads the text of one line, keeping the position and the reason of a
// refusal; each read_ function returns false on the first thing it cannot
// accept.
class LineReader {
public:
    explicit LineReader(std::string_view line) : line_(line) {}

    bool at_end() const { return at_ == line_.size(); }
    bool next_is(char c) const { return at_ < line_.size() && line_[at_] == c; }
    const std::string &problem() const { return problem_; }

    bool fail(std::string reason) {
        problem_ = std::move(reason);
        return false;
    }

    bool take(std::string_view expected) {
        if (line_.substr(at_, expected.size()) != expected) {
            return false;
        }
        at_ += expected.size();
        return true;
    }

    bool expect_end() { return at_end() || fail("unexpected text after the value"); }

    // "..." with \\, \" and \xHH escapes into *out.
    bool read_quoted(std::string *out) {
        if (!take("\"")) {
            return fail("a quoted text was expected");
        }
        while (at_ < line_.size()) {
            // The run up to the next quote or escape goes over in one piece.
            size_t run = at_;
            while (run < line_.size() && line_[run] != '"' && line_[run] != '\\') {
                unsigned char c = static_cast<unsigned char>(line_[run]);
                if (is_control(c) && c != '\t') {
                    return fail("a control character in quoted text (write it as \\xHH)");
                }
                ++run;
            }
            out->append(line_.substr(at_, run - at_));
            at_ = run;
            if (at_ == line_.size()) {
                break;
            }
            if (line_[at_++] == '"') {
                return true;
            }
            if (at_ == line_.size()) {
                break;
            }
            char escape = line_[at_++];
            if (escape == '\\' || escape == '"') {
                out->push_back(escape);
            } else if (escape == 'x') {
                if (!read_hex_byte(out)) {
                    return fail("\\x is not followed by two hex digits");
                }
            } else {
                return fail(std::string("unknown escape \\") + escape);
            }
        }
        return fail("the quoted text has no closing quote");
    }

    // Bytes as two hex digits each, separated by commas, up to the end.
    bool read_hex_list(std::string *out) {
        if (at_end()) {
            return true;
        }
        out->reserve(out->size() + (line_.size() - at_ + 1) / 3);
        for (;;) {
            if (!read_hex_byte(out)) {
                return fail("a byte of two hex digits was expected");
            }
            if (at_end()) {
                return true;
            }
            if (!take(",")) {
                return fail("bytes are separated by commas");
            }
        }
    }

    // Exactly eight hex digits, the 32-bit number's 4 bytes least
    // significant first.
    bool read_dword(std::string *out) {
        uint32_t number = 0;
        for (int i = 0; i < 8; ++i) {
            int digit = at_ < line_.size() ? hex_value(line_[at_]) : -1;
            if (digit < 0) {
                return fail("dword: takes exactly eight hex digits");
            }
            number = number * 16 + static_cast<uint32_t>(digit);
            ++at_;
        }
        for (int i = 0; i < 4; ++i) {
            out->push_back(static_cast<char>((number >> (8 * i)) & 0xffu));
        }
        return true;
    }

    // The decimal type number of "hex(<type>):".
    bool read_type(uint32_t *type) {
        uint64_t number = 0;
        size_t digits = 0;
        while (at_ < line_.size() && ascii::is_digit(line_[at_]) && digits < 10) {
            number = number * 10 + static_cast<uint64_t>(line_[at_++] - '0');
            ++digits;
        }
        if (digits == 0 || number > UINT32_MAX || !take("):")) {
            return fail("hex( takes a decimal type number and \"):\"");
        }
        *type = static_cast<uint32_t>(number);
        return true;
    }

private:
    // Two hex digits as one byte appended to *out.
    bool read_hex_byte(std::string *out) {
        int high = at_ + 1 < line_.size() ? hex_value(line_[at_]) : -1;
        int low = high >= 0 ? hex_value(line_[at_ + 1]) : -1;
        if (low < 0) {
            return false;
        }
        out->push_back(static_cast<char>(high * 16 + low));
        at_ += 2;
        return true;
    }

    std::string_view line_;
    size_t at_ = 0;
    std::string problem_;
};

// Builds a hive from the lines of a text, one line at a time.
class HiveParser {
public:
    HiveParser(Hive *hive, ParseFailure *failure) : hive_(hive), failure_(failure) { hive_->keys.clear(); }

    bool parse(std::string_view text) {
        if (text.size() > kMaxFileBytes) {
            return fail(1, "the file is larger than " + std::to_string(kMaxFileBytes) + " bytes");
        }
        size_t start = 0;
        while (start < text.size()) {
            ++line_number_;
            size_t end = text.find('\n', start);
            if (end == std::string_view::npos) {
                return fail(line_number_, "the last line has no line end (the file is cut short)");
            }
            if (text.substr(start, end - start).find('\0') != std::string_view::npos) {
                return fail(line_number_, "a NUL byte");
            }
            if (!parse_line(trimmed(text.substr(start, end - start)))) {
                return false;
            }
            start = end + 1;
        }
        if (line_number_ == 0) {
            return fail(1, "the file is empty; its first line must be \"" + std::string(kHiveHeader) + "\"");
        }
        inherit_volatility();
        return true;
    }

    const std::string &boot() const { return boot_; }

private:
    bool fail(size_t line, std::string reason) {
        failure_->line = line;
        failure_->reason = std::move(reason);
        return false;
    }

    bool parse_line(std::string_view line) {
        if (line_number_ == 1) {
            return line == kHiveHeader ||
                   fail(1, "the first line is not \"" + std::string(kHiveHeader) + "\": not a registry file");
        }
        if (line.empty() || line.front() == ';' || line.front() == '#') {
            return true;
        }
        if (line.front() == '[') {
            return parse_key_line(line);
        }
        if (line.front() == '@' || line.front() == '"') {
            return parse_value_line(line);
        }
        if (line.substr(0, kBootPrefix.size()) == kBootPrefix) {
            return parse_boot_line(line.substr(kBootPrefix.size()));
        }
        return fail(line_number_, "the line is no key, value, boot or comment line");
    }

    bool parse_boot_line(std::string_view id) {
        if (current_ != nullptr || boot_seen_) {
            return fail(line_number_, "a boot line may only come once, before the first key");
        }
        for (char c : id) {
            if (c == ' ' || is_control(static_cast<unsigned char>(c))) {
                return fail(line_number_, "the boot id holds a blank or a control character");
            }
        }
        if (id.empty()) {
            return fail(line_number_, "the boot line has no id");
        }
        boot_seen_ = true;
        boot_ = std::string(id);
        return true;
    }

    bool parse_key_line(std::string_view line) {
        bool is_volatile = line.size() >= kVolatileSuffix.size() + 1 &&
                           line.substr(line.size() - kVolatileSuffix.size()) == kVolatileSuffix;
        size_t close = is_volatile ? line.size() - kVolatileSuffix.size() : line.size() - 1;
        if (!is_volatile && line.back() != ']') {
            return fail(line_number_, "a key line ends with \"]\" or \"] volatile\"");
        }
        std::string path(line.substr(1, close - 1));
        std::string problem = key_path_problem(&path);
        if (!problem.empty()) {
            return fail(line_number_, problem);
        }
        if (!explicit_keys_.insert(order_key(path)).second) {
            return fail(line_number_, "the key [" + path + "] appears twice");
        }
        current_ = ensure_key(path);
        current_->path = path;  // the spelling of its own line
        current_->is_volatile = is_volatile;
        return true;
    }

    // The key at path, with every missing key above it created as a
    // non-volatile key spelled as in path.
    Key *ensure_key(const std::string &path) {
        Key *key = nullptr;
        for (size_t end = path.find('\\');; end = path.find('\\', end + 1)) {
            std::string prefix = path.substr(0, end);
            key = &hive_->keys[order_key(prefix)];
            if (key->path.empty()) {
                key->path = prefix;
            }
            if (end == std::string::npos) {
                return key;
            }
        }
    }

    bool parse_value_line(std::string_view line) {
        if (current_ == nullptr) {
            return fail(line_number_, "a value line before the first key line");
        }
        LineReader reader(line);
        Value value;
        if (!reader.take("@") && !reader.read_quoted(&value.name)) {
            return fail(line_number_, reader.problem());
        }
        if (value.name.find('\0') != std::string::npos) {
            return fail(line_number_, "a value name holds a NUL byte");
        }
        if (value.name.size() > kMaxValueName) {
            return fail(line_number_, "the value name is longer than " + std::to_string(kMaxValueName) + " bytes");
        }
        if (!reader.take("=")) {
            return fail(line_number_, "\"=\" must follow the value name");
        }
        if (!read_data(reader, &value)) {
            return failure_->unknown_type ? false : fail(line_number_, reader.problem());
        }
        if (value.data.size() > kMaxValueBytes) {
            return fail(line_number_, "the value is longer than " + std::to_string(kMaxValueBytes) + " bytes");
        }
        std::string folded = fold(value.name);
        if (current_->values.count(folded) != 0) {
            return fail(line_number_, "the value \"" + value.name + "\" appears twice in key [" + current_->path + "]");
        }
        current_->values.emplace(std::move(folded), std::move(value));
        return true;
    }

    bool read_data(LineReader &reader, Value *value) {
        value->type = kTypeString;
        if (reader.take("str:")) {
            return reader.read_quoted(&value->data) && reader.expect_end();
        }
        if (reader.next_is('"')) {
            // The plain form stands for the text and its terminating NUL.
            if (!reader.read_quoted(&value->data) || !reader.expect_end()) {
                return false;
            }
            value->data.push_back('\0');
            return true;
        }
        if (reader.take("dword:")) {
            value->type = kTypeDword;
            return reader.read_dword(&value->data) && reader.expect_end();
        }
        if (reader.take("hex:")) {
            value->type = kTypeBinary;
            return reader.read_hex_list(&value->data);
        }
        if (reader.take("hex(")) {
            if (!reader.read_type(&value->type)) {
                return false;
            }
            if (!is_stored_type(value->type)) {
                failure_->line = line_number_;
                failure_->reason = "value type " + std::to_string(value->type) + " is not one the file registry stores";
                failure_->unknown_type = true;
                failure_->key = current_->path;
                return false;
            }
            return reader.read_hex_list(&value->data);
        }
        return reader.fail("the data is none of \"...\", str:\"...\", dword:, hex: and hex(<type>):");
    }

    // A key below a volatile key is volatile too, marked or not; keys come
    // in order_key order, parents first.
    void inherit_volatility() {
        for (auto &[order, key] : hive_->keys) {
            std::string parent = parent_of(key.path);
            if (!key.is_volatile && !parent.empty()) {
                auto found = hive_->keys.find(order_key(parent));
                key.is_volatile = found != hive_->keys.end() && found->second.is_volatile;
            }
        }
    }

    Hive *hive_;
    ParseFailure *failure_;
    size_t line_number_ = 0;
    Key *current_ = nullptr;
    bool boot_seen_ = false;
    std::string boot_;
    std::set<std::string> explicit_keys_;
};

void append_escaped(std::string &out, std::string_view text) {
    out += '"';
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (is_control(byte)) {
            out += "\\x";
            out += kHexDigits[byte >> 4];
            out += kHexDigits[byte & 0xf];
        } else {
            out += c;
        }
    }
    out += '"';
}

void append_hex_list(std::string &out, std::string_view bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) {
        auto byte = static_cast<unsigned char>(bytes[i]);
        if (i != 0) {
            out += ',';
        }
        out += kHexDigits[byte >> 4];
        out += kHexDigits[byte & 0xf];
    }
}

void append_data(std::string &out, const Value &value) {
    const std::string &data = value.data;
    if (value.type == kTypeString && !data.empty() && data.back() == '\0') {
        append_escaped(out, std::string_view(data).substr(0, data.size() - 1));
    } else if (value.type == kTypeString) {
        out += "str:";
        append_escaped(out, data);
    } else if (value.type == kTypeDword && data.size() == 4) {
        uint32_t number = 0;
        for (int i = 3; i >= 0; --i) {
            number = number << 8 | static_cast<unsigned char>(data[static_cast<size_t>(i)]);
        }
        out += "dword:";
        for (int shift = 28; shift >= 0; shift -= 4) {
            out += kHexDigits[(number >> shift) & 0xf];
        }
    } else if (value.type == kTypeBinary) {
        out += "hex:";
        append_hex_list(out, data);
    } else {
        out += "hex(" + std::to_string(value.type) + "):";
        append_hex_list(out, data);
    }
}

}  // namespace

bool is_stored_type(uint32_t type) { return type == kTypeString || type == kTypeBinary || type == kTypeDword; }

std::string fold(std::string_view name) {
    std::string folded(name);
    for (char &c : folded) {
        c = ascii::to_lower(c);
    }
    return folded;
}

std::string order_key(std::string_view path) {
    std::string key = fold(path);
    for (char &c : key) {
        if (c == '\\') {
            c = '\x01';
        }
    }
    return key;
}

std::string key_path_problem(std::string *path) {
    if (!path->empty() && path->back() == '\\') {
        path->pop_back();
    }
    if (path->empty()) {
        return "the key path is empty";
    }
    if (path->size() > kMaxKeyPath) {
        return "the key path is longer than " + std::to_string(kMaxKeyPath) + " bytes";
    }
    size_t name_start = 0;
    for (size_t i = 0; i <= path->size(); ++i) {
        if (i == path->size() || (*path)[i] == '\\') {
            if (i == name_start) {
                return "the key path <" + *path + "> holds an empty key name";
            }
            if (i - name_start > kMaxKeyName) {
                return "a key name in the key path is longer than " + std::to_string(kMaxKeyName) + " bytes";
            }
            name_start = i + 1;
        } else if (is_control(static_cast<unsigned char>((*path)[i]))) {
            return "the key path holds a control character";
        }
    }
    return std::string();
}

Key *find_key(Hive &hive, std::string_view path) {
    auto found = hive.keys.find(order_key(path));
    return found == hive.keys.end() ? nullptr : &found->second;
}

Key *create_key(Hive &hive, const std::string &path, bool is_volatile, std::string *problem) {
    // Checked whole first, so that a refusal leaves the hive as it was.
    std::vector<std::string> missing;
    const Key *parent = nullptr;
    for (size_t end = path.find('\\');; end = path.find('\\', end + 1)) {
        std::string prefix = path.substr(0, end);
        const Key *existing = find_key(hive, prefix);
        if (existing == nullptr) {
            if (parent != nullptr && parent->is_volatile && !is_volatile) {
                *problem = "a key below the volatile key <" + parent->path + "> must be volatile too";
                return nullptr;
            }
            missing.push_back(prefix);
        }
        parent = existing;
        if (end == std::string::npos) {
            break;
        }
    }
    for (const std::string &prefix : missing) {
        Key &key = hive.keys[order_key(prefix)];
        key.path = prefix;
        key.is_volatile = is_volatile;
    }
    return find_key(hive, path);
}

std::string ParseFailure::describe() const { return "line " + std::to_string(line) + ": " + reason; }

bool parse_hive(std::string_view text, const std::string &current_boot, Hive *hive, ParseFailure *failure) {
    HiveParser parser(hive, failure);
    if (!parser.parse(text)) {
        return false;
    }
    if (!current_boot.empty() && parser.boot() != current_boot) {
        std::erase_if(hive->keys, [](const auto &entry) { return entry.second.is_volatile; });
    }
    return true;
}

std::string format_hive(const Hive &hive, const std::string &current_boot) {
    std::string out(kHiveHeader);
    out += '\n';
    if (!current_boot.empty()) {
        out += kBootPrefix;
        out += current_boot;
        out += '\n';
    }
    for (const auto &[order, key] : hive.keys) {
        out += "\n[";
        out += key.path;
        out += key.is_volatile ? kVolatileSuffix : std::string_view("]");
        out += '\n';
        for (const auto &[folded, value] : key.values) {
            if (value.name.empty()) {
                out += '@';
            } else {
                append_escaped(out, value.name);
            }
            out += '=';
            append_data(out, value);
            out += '\n';
        }
    }
    return out;
}

}  // namespace vq::reg
