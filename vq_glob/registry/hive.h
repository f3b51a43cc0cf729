// One hive of the file registry in memory, and its text: keys by path, each
// with its values, read from and written to the format reg.h describes.
// Pure text handling, no files: file_hive.cpp reads and writes the files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace vq::reg {

inline constexpr std::string_view kHiveHeader = "vq_glob registry hive 1";

inline constexpr uint32_t kTypeString = 1;
inline constexpr uint32_t kTypeBinary = 3;
inline constexpr uint32_t kTypeDword = 4;

inline constexpr size_t kMaxFileBytes = 16u * 1024u * 1024u;
inline constexpr size_t kMaxValueBytes = 1024u * 1024u;
inline constexpr size_t kMaxValueName = 16383;
inline constexpr size_t kMaxKeyPath = 32767;
inline constexpr size_t kMaxKeyName = 255;

// Whether the file registry stores values of this type.
bool is_stored_type(uint32_t type);

struct Value {
    std::string name;  // as first written; "" is the default value
    uint32_t type = kTypeBinary;
    std::string data;
};

struct Key {
    std::string path;  // as first written
    bool is_volatile = false;
    // By folded name (fold()), so that lookups ignore ASCII case and the
    // text lists the values in one stable order.
    std::map<std::string, Value> values;
};

struct Hive {
    // By order_key(path): case folded, and ordered so that a key's children
    // follow it directly.
    std::map<std::string, Key> keys;
};

// ASCII lower case of a name, the form names are compared in.
std::string fold(std::string_view name);
// The map key of a key path.
std::string order_key(std::string_view path);

// Checks a key path: non-empty key names of at most kMaxKeyName bytes
// between single "\", no control characters, at most kMaxKeyPath bytes
// (one trailing "\" is dropped first, into *path). Empty, or what is wrong.
std::string key_path_problem(std::string *path);

// The key at path, or null.
Key *find_key(Hive &hive, std::string_view path);
// The key at path, created with every missing key above it (volatile ones
// when is_volatile); an existing key keeps its kind. Null, with *problem
// set, when the key would be a non-volatile key below a volatile one.
Key *create_key(Hive &hive, const std::string &path, bool is_volatile, std::string *problem);

// Why a text was refused: the line and what was wrong there; unknown_type
// is set when the reason is a value type the registry does not store (then
// key holds the key's path).
struct ParseFailure {
    size_t line = 0;
    std::string reason;
    bool unknown_type = false;
    std::string key;

    std::string describe() const;
};

// Reads a whole hive text into *hive (replacing it). Volatile keys are
// dropped unless the text's boot line equals current_boot, or current_boot
// is empty. False, with *failure set and *hive unspecified, for any text
// that breaks the format. Throws std::bad_alloc.
bool parse_hive(std::string_view text, const std::string &current_boot, Hive *hive, ParseFailure *failure);

// The text of a hive, with current_boot in its boot line when not empty.
// Throws std::bad_alloc.
std::string format_hive(const Hive &hive, const std::string &current_boot);

}  // namespace vq::reg
