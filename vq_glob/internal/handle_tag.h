// Type tags of the library's opaque handles.
//
// The C interface hands every handle out as a void pointer, so a list handle
// passed where a configuration handle belongs compiles without a word. Each
// handle object therefore begins with a HandleTag naming its kind; every
// entry point checks the tag before it uses the object and answers a wrong
// kind with a parameter error instead of a crash. Freeing a handle overwrites
// its tag, so a handle used after its free is refused too, as long as its
// memory has not been given to another object of the same kind since.
//
// What cannot be detected: a pointer that does not point into readable
// memory at all, or into memory that was never a handle but happens to begin
// with a valid tag; and a freed handle whose block was reused for a new one.
// The check reads the first four bytes behind the pointer, so under
// AddressSanitizer a use after free is still reported as such.
#pragma once

#include <cstdint>
#include <cstring>

namespace vq::tag {

// Four characters each, readable in a little-endian memory dump.
enum class Kind : uint32_t {
    config = 0x464E4F43u,         // "CONF"
    plain_list = 0x54534C4Cu,     // "LLST"
    locked_list = 0x4E4E4C4Cu,    // "LLNN"
    list_iterator = 0x54494E4Cu,  // "LNIT"
    hash_table = 0x48534148u,     // "HASH"
    hash_iterator = 0x54495348u,  // "HSIT"
    string_list = 0x54534C4Du,    // "MLST"
    big_number = 0x4E424C53u,     // "SLBN"
    cli_context = 0x58544343u,    // "CCTX"
    cli_result = 0x53455243u,     // "CRES"
    config_search = 0x48435253u,  // "SRCH"
    net_session = 0x53455353u,    // "SSES"
    net_group = 0x50524753u,      // "SGRP"
    message = 0x484D4C53u,        // "SLMH"
    dir_list = 0x4C524944u,       // "DIRL"
    filter = 0x544C4946u,         // "FILT"
    sle_context = 0x43454C53u,    // "SLEC"
    sle_tls = 0x54454C53u,        // "SLET"
};

inline constexpr uint32_t kFreed = 0x44414544u;  // "DEAD"

// Stamps the tag word of a handle made with malloc (its first member, a
// uint32_t), and erases it just before the handle is freed. The erasing
// store goes through a volatile pointer: a plain store into an object about
// to be freed may be removed by the optimiser as dead.
inline void stamp(uint32_t *tag, Kind kind) { *tag = static_cast<uint32_t>(kind); }
inline void erase(uint32_t *tag) { *static_cast<volatile uint32_t *>(tag) = kFreed; }

// The same for a handle that is a C++ object: make a HandleTag its first
// member (in a standard-layout class, so that it sits at the object's
// address); it stamps on construction and erases on destruction.
class HandleTag {
public:
    explicit HandleTag(Kind kind) { stamp(&value_, kind); }
    ~HandleTag() { erase(&value_); }
    HandleTag(const HandleTag &) = delete;
    HandleTag &operator=(const HandleTag &) = delete;

private:
    uint32_t value_ = 0;
};

// Whether handle is a live object of the given kind (false for null).
inline bool is(const void *handle, Kind kind) {
    if (handle == nullptr) {
        return false;
    }
    uint32_t value = 0;
    std::memcpy(&value, handle, sizeof value);
    return value == static_cast<uint32_t>(kind);
}

// handle as a T when it carries T's tag, else null.
template <typename T>
const T *as(const void *handle, Kind kind) {
    return is(handle, kind) ? static_cast<const T *>(handle) : nullptr;
}

}  // namespace vq::tag
