// The narrow OS interface, registry part: included by platform.h.
//
// Windows has a registry and the registry module uses it through the three
// value operations below (UTF-8 key paths and value names, converted to
// UTF-16 here). POSIX has none: the value operations fail there, and the
// module keeps its hives in files, for which this part supplies what only
// the system knows (its default files, the identity of the current boot,
// settings from the environment).
//
// Every operation returns 0 or the system's error number (the LONG result of
// the Reg* calls on Windows, errno on POSIX).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Whether the system keeps a registry of its own.
bool plat_reg_is_native();

// The step of a registry operation that failed, which the module reports
// with its own code.
enum class PlatRegStep { open_key, query_value, create_key, set_value, flush_key, delete_value };

// Reads value_name (empty: the key's default value) of key in
// HKEY_LOCAL_MACHINE, or HKEY_CURRENT_USER for user, opened for querying
// values. *data receives the value's bytes; those of a string type (REG_SZ,
// REG_EXPAND_SZ, REG_MULTI_SZ) are converted from UTF-16 to UTF-8, unit for
// unit, NULs included. On failure *failed names the step.
int32_t plat_reg_get_value(bool user, const char *key, const char *value_name, std::string *data, uint32_t *type,
                           PlatRegStep *failed);
// Creates key with its missing parents and full access (volatile keys with
// volatile_key), sets value_name to the length bytes of data (a string type
// converted from UTF-8 to UTF-16, which must be valid), then flushes the key.
int32_t plat_reg_set_value(bool user, const char *key, const char *value_name, const void *data, size_t length,
                           uint32_t type, bool volatile_key, PlatRegStep *failed);
// Opens key for setting values and deletes value_name.
int32_t plat_reg_delete_value(bool user, const char *key, const char *value_name, PlatRegStep *failed);

// ---- For the file-kept hives of a system without a registry ---------------------------

// The machine hive's file when nothing else names one: /var/lib/vq_glob/registry
// on POSIX; "" on Windows, which has a registry instead.
const char *plat_reg_default_machine_file();
// The name of the user hive's file in the home directory (".vq_glob_registry").
const char *plat_reg_user_file_name();
// The value of an environment variable as a program may trust it: on POSIX
// through secure_getenv, so that a set-id program ignores its caller's.
// False when the variable is not set (or not trusted).
bool plat_reg_environment(const char *name, std::string *value);
// An identifier of the current system boot, different after every restart
// (Linux: /proc/sys/kernel/random/boot_id). Empty when the system offers
// none (Windows), so that volatile data in files is then kept.
std::string plat_reg_boot_id();
