// What the registry module's sources share: where a value lives, how a
// failure is reported, and the file hive's operations (file_hive.cpp), which
// the public functions (registry.cpp) use whenever the values live in files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "internal/trace.h"

namespace vq::reg {

inline constexpr int kTraceBit = DBG_BIT_MISC;

// One value of one hive: the full key path and the value name ("" for the
// key's default value).
struct Place {
    bool user = false;
    std::string key;
    std::string value_name;
};

// One hive file and how to make it.
struct HiveFile {
    std::string name;
    int mode = 0644;                // of a newly created file, before the umask
    bool make_directory = false;    // create its directory when missing
};

// Reports a failure that has no system error: reason as the system's line
// (ERR_SYS_ERRMSG) on a fresh stack, then code with first and second. 0.
int refuse(const std::string &reason, uint32_t code, const std::string &first, const std::string &second = "");

// The file hive's value operations; each checks the key path and the value
// first, reports its failures as reg.h says, and returns 1 or 0.
int file_get_value(const HiveFile &file, const Place &place, std::string *data, uint32_t *type);
int file_set_value(const HiveFile &file, const Place &place, const void *data, size_t length, uint32_t type,
                   bool volatile_key);
int file_delete_value(const HiveFile &file, const Place &place);

}  // namespace vq::reg
