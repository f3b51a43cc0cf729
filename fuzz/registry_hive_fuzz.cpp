// Fuzzes the file registry with arbitrary hive files, through the public
// interface only: the input becomes the thread's registry file
// (new_reg_set_filename), the values it seems to name are read, and one value
// is written. It checks that
//  - a file is refused or accepted as a whole: every read of a refused file
//    fails, with ERR_REG_READ above a "line <n>: ..." text, and none of an
//    accepted one does;
//  - a value read has a stored type and the same bytes through both read
//    functions, the length query included;
//  - a refused write, and any write to a refused file, leaves the file byte
//    for byte as it was;
//  - a value written reads back with exactly its type and bytes, every other
//    value read before reads as before, and writing it once more leaves the
//    text unchanged (what the writer writes, the reader reads back whole);
//  - no lock or temporary file stays behind.
//
// Which value is written (an existing one or a new one, its type, bytes and
// name, a volatile key or not) follows from a hash of the input; its bytes
// and name are pieces of the input, so any byte can appear in them. An input
// line "boot this" becomes the boot line the library writes for the running
// system, so that the corpus can hold volatile keys that are read as well as
// ones that were dropped with an older boot.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "../tests/support/file_bytes.h"
#include "vq_glob/err.h"
#include "vq_glob/reg.h"

namespace {

using vq::test::file_exists;
using vq::test::read_file;
using vq::test::write_file;

constexpr size_t kMaxPlaces = 64;
constexpr std::string_view kBootPlaceholder = "boot this\n";
constexpr uint32_t kStoredTypes[] = {REG_TYPE_STRING, REG_TYPE_BINARY, REG_TYPE_DWORD};

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "registry_hive_fuzz: %s\n%s\n", what, err_get_error_msg());
    std::abort();
}

void check(bool holds, const char *what) {
    if (!holds) {
        fail(what);
    }
}

// The directory of the hive file, made once per process: in memory where
// the system has /dev/shm, since every write syncs the file.
const std::string &hive_path() {
    static const std::string path = [] {
        const char *tmp = std::getenv("TMPDIR");
        std::string base = file_exists("/dev/shm") ? "/dev/shm" : tmp != nullptr ? tmp : "/tmp";
        std::string dir = base + "/vq_registry_hive_fuzz.XXXXXX";
        check(::mkdtemp(dir.data()) != nullptr, "no scratch directory");
        std::string file = dir + "/hive";
        static std::string remove_at_exit[] = {file, file + ".lock", file + ".temp", dir};
        std::atexit([] {
            for (const std::string &name : remove_at_exit) {
                ::remove(name.c_str());
            }
        });
        return file;
    }();
    return path;
}

// The boot line the writer puts in a file for the running system ("" where
// it knows no boot), learnt once from a write to an empty hive.
const std::string &current_boot_line() {
    static const std::string line = [] {
        const std::string &file = hive_path();
        check(write_file(file, "vq_glob registry hive 1\n"), "the hive file cannot be written");
        check(new_reg_set_filename(file.c_str()) == 1, "new_reg_set_filename failed");
        check(reg_set_key_value("Fuzz", "boot", "", 0, REG_TYPE_BINARY, 0, REG_LEVEL_ABSOLUTE) == 1,
              "an empty hive cannot be written");
        std::string text = read_file(file);
        size_t at = text.find("\nboot ");
        if (at == std::string::npos) {
            return std::string();
        }
        return text.substr(at + 1, text.find('\n', at + 1) - at);
    }();
    return line;
}

// The input with its "boot this" lines naming the running system's boot.
std::string with_current_boot(std::string text) {
    const std::string &boot = current_boot_line();
    for (size_t at = 0; (at = text.find(kBootPlaceholder, at)) != std::string::npos;) {
        if (at != 0 && text[at - 1] != '\n') {
            at += kBootPlaceholder.size();
            continue;
        }
        text.replace(at, kBootPlaceholder.size(), boot);
        at += boot.size();
    }
    return text;
}

uint64_t fnv1a(const uint8_t *data, size_t size) {
    uint64_t h = 14695981039346656037ull;
    for (size_t i = 0; i < size; ++i) {
        h = (h ^ data[i]) * 1099511628211ull;
    }
    return h;
}

struct Place {
    std::string key;
    std::string name;
};

struct Read {
    Place place;
    uint32_t type = 0;
    std::string data;
};

std::string folded(std::string_view text) {
    std::string out(text);
    for (char &c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

// Whether a and b name the same value: names compare without regard to
// ASCII case, and one "\" at a key path's end is dropped.
bool same_place(const Place &a, const Place &b) {
    auto path = [](std::string key) {
        if (!key.empty() && key.back() == '\\') {
            key.pop_back();
        }
        return folded(key);
    };
    return path(a.key) == path(b.key) && folded(a.name) == folded(b.name);
}

// The quoted text at the start of rest, its \\, \" and \xHH escapes undone;
// no more than a guess of what the name is, for choosing what to read.
std::string unquoted(std::string_view rest) {
    std::string out;
    for (size_t i = 1; i < rest.size() && rest[i] != '"'; ++i) {
        if (rest[i] == '\\' && i + 1 < rest.size()) {
            char next = rest[++i];
            if (next == 'x' && i + 2 < rest.size()) {
                out.push_back(
                    static_cast<char>(std::strtoul(std::string(rest.substr(i + 1, 2)).c_str(), nullptr, 16)));
                i += 2;
                continue;
            }
            out.push_back(next);
            continue;
        }
        out.push_back(rest[i]);
    }
    return out;
}

// The keys and values the text's lines seem to name.
void places_in(std::string_view text, std::vector<std::string> *keys, std::vector<Place> *values) {
    std::string key;
    bool in_key = false;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        end = end == std::string_view::npos ? text.size() : end;
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            continue;
        }
        if (line.front() == '[') {
            size_t close = line.rfind(']');
            key = std::string(line.substr(1, close == std::string_view::npos || close == 0 ? 0 : close - 1));
            in_key = true;
            keys->push_back(key);
        } else if (in_key && (line.front() == '@' || line.front() == '"') && values->size() < kMaxPlaces) {
            values->push_back({key, line.front() == '@' ? std::string() : unquoted(line)});
        }
    }
}

bool top_error_is(uint32_t code) { return err_get_error_code(0) == code; }

// Whether the stack holds the parser's "line <n>: ..." under ERR_REG_READ.
bool refused_with_line() {
    if (!top_error_is(ERR_REG_READ)) {
        return false;
    }
    int32_t depth = err_get_stack_depth();
    return err_get_error_code(depth - 1) == ERR_SYS_ERRMSG &&
           std::strncmp(err_get_error_text(depth - 1), "line ", 5) == 0;
}

// Reads place through both read functions, which must agree. False when the
// value cannot be read.
bool read_value(const Place &place, Read *out) {
    err_clear_error_stack();
    uint32_t length = 0;
    uint32_t type = 0;
    if (reg_get_key_value(place.key.c_str(), place.name.c_str(), nullptr, &length, &type,
                          REG_LEVEL_ABSOLUTE) != 1) {
        return false;
    }
    std::string data(length, '\0');
    uint32_t size = length;
    check(reg_get_key_value(place.key.c_str(), place.name.c_str(), data.data(), &size, &type,
                            REG_LEVEL_ABSOLUTE) == 1,
          "a value whose length was read cannot be read");
    check(size == length, "the length query and the read disagree");
    check(type == REG_TYPE_STRING || type == REG_TYPE_BINARY || type == REG_TYPE_DWORD, "a type not stored");
    void *copy = nullptr;
    uint32_t copy_length = 0;
    check(new_reg_get_key_value(place.key.c_str(), place.name.c_str(), &copy, &copy_length, 0) == 1,
          "new_reg_get_key_value fails where reg_get_key_value reads");
    check(copy_length == length && (copy == nullptr) == (length == 0),
          "the read functions give other lengths");
    check(copy == nullptr ||
              (std::memcmp(copy, data.data(), length) == 0 && static_cast<char *>(copy)[length] == 0),
          "the read functions give other bytes");
    new_reg_free(&copy);
    *out = {place, type, std::move(data)};
    return true;
}

// What is written: a value the file holds or a new one, of a stored type,
// with bytes and a name cut from the input.
struct Write {
    Place place;
    uint32_t type = REG_TYPE_BINARY;
    std::string data;
    bool volatile_key = false;
};

std::string piece(const std::string &input, uint64_t where, uint64_t length) {
    size_t at = static_cast<size_t>(where % (input.size() + 1));
    return input.substr(at, static_cast<size_t>(length));
}

Write choose_write(const std::string &input, uint64_t h, const std::vector<std::string> &keys,
                   const std::vector<Read> &reads) {
    Write w;
    if (!reads.empty() && (h & 3) != 0) {
        w.place = reads[(h >> 2) % reads.size()].place;
    } else {
        w.place.key = keys.empty() || ((h >> 2) & 1) != 0 ? "Fuzz" : keys[(h >> 3) % keys.size()];
        if (((h >> 12) & 1) != 0) {
            w.place.key += "\\Added";
        }
        w.place.name = piece(input, h >> 24, (h >> 44) % 17);
        std::erase(w.place.name, '\0');
    }
    w.type = kStoredTypes[(h >> 8) % std::size(kStoredTypes)];
    uint64_t length = w.type == REG_TYPE_DWORD && ((h >> 40) & 1) != 0 ? 4 : (h >> 32) % 65;
    w.data = piece(input, h >> 16, length);
    w.volatile_key = ((h >> 48) & 1) != 0;
    return w;
}

int set(const Write &w) {
    return reg_set_key_value(w.place.key.c_str(), w.place.name.c_str(), w.data.data(),
                             static_cast<uint32_t>(w.data.size()), w.type, w.volatile_key ? 1 : 0,
                             REG_LEVEL_ABSOLUTE);
}

void check_no_companions(const std::string &file) {
    check(!file_exists(file + ".lock"), "the lock file stayed behind");
    check(!file_exists(file + ".temp"), "the temporary file stayed behind");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string &file = hive_path();
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::string text = with_current_boot(input);
    ::remove((file + ".lock").c_str());
    ::remove((file + ".temp").c_str());
    check(write_file(file, text), "the hive file cannot be written");
    check(new_reg_set_filename(file.c_str()) == 1, "new_reg_set_filename failed");
    check(reg_set_user_mode(0) == 1, "reg_set_user_mode failed");

    // A key no input names: refused files say so, accepted ones lack it.
    Read probe;
    bool refused = false;
    if (!read_value({"Fuzz\\Probe\\Unnamed", "probe"}, &probe)) {
        refused = top_error_is(ERR_REG_READ);
        check(refused || top_error_is(ERR_REG_OPENKEY) || top_error_is(ERR_REG_GETVAL),
              "a read failed for neither the file nor a missing key or value");
        check(!refused || refused_with_line(), "a refused file without the line at fault");
    }

    std::vector<std::string> keys;
    std::vector<Place> places;
    places_in(text, &keys, &places);
    std::vector<Read> reads;
    for (const Place &place : places) {
        Read read;
        if (read_value(place, &read)) {
            check(!refused, "a value read from a refused file");
            reads.push_back(std::move(read));
        } else if (refused) {
            // A key path the reader cannot take is refused before the file is read.
            check(top_error_is(ERR_REG_READ) || top_error_is(ERR_REG_OPENKEY),
                  "a refused file read otherwise");
        } else {
            check(top_error_is(ERR_REG_OPENKEY) || top_error_is(ERR_REG_GETVAL),
                  "an accepted file refused by another read");
        }
    }

    Write w = choose_write(input, fnv1a(data, size), keys, reads);
    err_clear_error_stack();
    if (set(w) != 1) {
        check(refused || top_error_is(ERR_REG_SETKEY), "an accepted file not written");
        check(read_file(file) == text, "a refused write changed the file");
        check_no_companions(file);
        err_clear_error_stack();
        return 0;
    }
    check(!refused, "a refused file was written");
    check_no_companions(file);
    Read back;
    check(read_value(w.place, &back), "a written value cannot be read");
    check(back.type == w.type && back.data == w.data, "a written value reads back otherwise");
    for (const Read &before : reads) {
        if (same_place(before.place, w.place)) {
            continue;
        }
        Read after;
        check(read_value(before.place, &after), "a value was lost by writing another");
        check(after.type == before.type && after.data == before.data,
              "a value was changed by writing another");
    }
    const std::string written = read_file(file);
    check(set(w) == 1, "the same write failed the second time");
    check(read_file(file) == written, "the same write changed the text the second time");
    check_no_companions(file);
    err_clear_error_stack();
    return 0;
}
