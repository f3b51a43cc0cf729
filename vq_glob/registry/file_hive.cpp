// The file hive: values kept in a text file per hive. A reader reads the
// whole file and takes nothing on trust (hive.cpp refuses any damage); a
// writer changes the file only under its ".lock" companion, reading it
// afresh, changing it in memory and putting a complete, synced
// "<file>.temp" in its place in one step. So writers of every thread and
// process take turns, none loses another's change, and a writer killed at
// any moment leaves the old file or the new one.
#include <cstdlib>
#include <new>
#include <string>

#include "internal/raise.h"
#include "internal/whole_file.h"
#include "platform/platform.h"
#include "registry/hive.h"
#include "registry/reg_state.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"

namespace vq::reg {
namespace {

// As long as configuration writers wait for their lock: a registry write
// holds it only for one read and one write of the file.
constexpr int32_t kDefaultLockWaitMs = 60000;
constexpr const char *kLockWaitVariable = "VQ_GLOB_REGISTRY_LOCK_WAIT";

// The lock wait in milliseconds from the environment: a whole number,
// negative for no limit; anything else leaves the default.
int32_t lock_wait_ms() {
    std::string text;
    if (!plat_reg_environment(kLockWaitVariable, &text) || text.empty() || text.size() > 11) {
        return kDefaultLockWaitMs;
    }
    char *end = nullptr;
    long long wait = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || wait < INT32_MIN || wait > INT32_MAX) {
        return kDefaultLockWaitMs;
    }
    return static_cast<int32_t>(wait);
}

// The boot does not change while the process runs.
const std::string &current_boot() {
    static const std::string boot = plat_reg_boot_id();
    return boot;
}

// Reads the hive file into *hive; a file that does not exist is an empty hive.
int load(const std::string &file, Hive *hive) {
    std::string text;
    int32_t error = 0;
    PlatWholeRead how = plat_read_regular_file(file.c_str(), kMaxFileBytes, text, &error);
    if (how == PlatWholeRead::open_failed && plat_is_file_not_found_error(error)) {
        hive->keys.clear();
        return 1;
    }
    if (how != PlatWholeRead::ok) {
        whole_file::raise_refusal(how, file.c_str(), kMaxFileBytes, error);
        err_add_error(how == PlatWholeRead::open_failed ? ERR_REG_OPEN : ERR_REG_READ, file.c_str());
        return 0;
    }
    ParseFailure failure;
    if (!parse_hive(text, current_boot(), hive, &failure)) {
        err_set_error(ERR_SYS_ERRMSG, failure.describe().c_str());
        if (failure.unknown_type) {
            err_add_error(ERR_REG_UNKTYP, failure.key.c_str());
        }
        err_add_error(ERR_REG_READ, file.c_str());
        return 0;
    }
    return 1;
}

int write_failed(int32_t error, const std::string &file) {
    raise::system(raise::Report::fresh, error);
    err_add_error(ERR_REG_WRITE, file.c_str());
    return 0;
}

// Writes text as a new file name, whole.
int32_t write_new(const std::string &name, int mode, const std::string &text) {
    const PlatCrtOpenBits &bits = plat_crt_open_bits();
    int fd = -1;
    int32_t error = plat_crt_file_open(name.c_str(), bits.write_only | bits.create | bits.truncate | bits.binary,
                                       mode, false, &fd);
    if (error != 0) {
        return error;
    }
    for (size_t at = 0; at < text.size() && error == 0;) {
        size_t done = 0;
        error = plat_crt_file_write(fd, text.data() + at, text.size() - at, &done);
        if (error == 0 && done == 0) {
            error = plat_file_no_space(PlatIo::crt);
        }
        at += done;
    }
    int32_t close_error = plat_crt_file_close(fd);
    return error != 0 ? error : close_error;
}

// Puts the text of hive in the place of the file: "<file>.temp" written and
// synced first, then renamed over the file.
int store(const HiveFile &file, const Hive &hive) {
    std::string text = format_hive(hive, current_boot());
    if (text.size() > kMaxFileBytes) {
        return refuse("the registry file would be larger than " + std::to_string(kMaxFileBytes) + " bytes",
                      ERR_REG_WRITE, file.name);
    }
    std::string temp = file.name + ".temp";
    int32_t error = write_new(temp, file.mode, text);
    if (error == 0) {
        error = plat_conf_replace_file(temp.c_str(), file.name.c_str());
    }
    if (error != 0) {
        plat_file_remove(temp.c_str());
        return write_failed(error, file.name);
    }
    return 1;
}

// Creates the directory of a default hive file, whose parent exists.
void make_directory_of(const std::string &file) {
    size_t cut = file.size();
    while (cut > 0 && !plat_path_is_separator(file[cut - 1])) {
        --cut;
    }
    if (cut > 1) {
        plat_fs_make_dir(file.substr(0, cut - 1).c_str());
    }
}

// Reads the file afresh under its lock, lets change alter the hive (it
// reports its own refusals), and writes the result back.
template <typename Change>
int update(const HiveFile &file, Change change) {
    if (file.make_directory) {
        make_directory_of(file.name);
    }
    std::string lock = file.name + ".lock";
    if (gf_lock_wait_file(lock.c_str(), lock_wait_ms()) == 0) {
        err_add_error(ERR_REG_LOCK, file.name.c_str());
        return 0;
    }
    vq::debug::trace_bit(kTraceBit, "registry file <%s> locked\n", file.name.c_str());
    int status = 0;
    try {
        Hive hive;
        status = load(file.name, &hive) != 0 && change(hive) != 0 && store(file, hive) != 0 ? 1 : 0;
    } catch (const std::bad_alloc &) {
        status = raise::memory(raise::Report::fresh, "update", "registry", __LINE__);
    }
    if (gf_unlock_file(lock.c_str()) == 0) {
        err_add_error(ERR_REG_LOCK, file.name.c_str());
        status = 0;
    }
    return status;
}

// The checked key path of place, or a refusal with code.
bool checked_path(const Place &place, uint32_t code, std::string *path) {
    *path = place.key;
    std::string problem = key_path_problem(path);
    if (!problem.empty()) {
        refuse(problem, code, place.key, place.value_name);
        return false;
    }
    return true;
}

int no_key(const Place &place, const std::string &file, uint32_t code) {
    return refuse("no key <" + place.key + "> in registry file <" + file + ">", code, place.key, place.value_name);
}

int no_value(const Place &place, uint32_t code) {
    return refuse("no value <" + place.value_name + "> in registry key <" + place.key + ">", code, place.key,
                  place.value_name);
}

}  // namespace

int refuse(const std::string &reason, uint32_t code, const std::string &first, const std::string &second) {
    err_set_error(ERR_SYS_ERRMSG, reason.c_str());
    err_add_error(code, first.c_str(), second.c_str());
    return 0;
}

int file_get_value(const HiveFile &file, const Place &place, std::string *data, uint32_t *type) {
    std::string path;
    if (!checked_path(place, ERR_REG_OPENKEY, &path)) {
        return 0;
    }
    Hive hive;
    if (load(file.name, &hive) == 0) {
        return 0;
    }
    Key *key = find_key(hive, path);
    if (key == nullptr) {
        return no_key(place, file.name, ERR_REG_OPENKEY);
    }
    auto found = key->values.find(fold(place.value_name));
    if (found == key->values.end()) {
        return no_value(place, ERR_REG_GETVAL);
    }
    *data = std::move(found->second.data);
    *type = found->second.type;
    return 1;
}

int file_set_value(const HiveFile &file, const Place &place, const void *data, size_t length, uint32_t type,
                   bool volatile_key) {
    std::string path;
    if (!checked_path(place, ERR_REG_SETKEY, &path)) {
        return 0;
    }
    if (!is_stored_type(type)) {
        return refuse("value type " + std::to_string(type) +
                          " is not one the file registry stores (1 string, 3 binary, 4 32-bit number)",
                      ERR_REG_UNKTYP, place.key);
    }
    if (length > kMaxValueBytes) {
        return refuse("a value of " + std::to_string(length) + " bytes is larger than the " +
                          std::to_string(kMaxValueBytes) + " a registry file holds",
                      ERR_REG_SETKEY, place.key, place.value_name);
    }
    if (place.value_name.size() > kMaxValueName) {
        return refuse("the value name is longer than " + std::to_string(kMaxValueName) + " bytes", ERR_REG_SETKEY,
                      place.key, place.value_name);
    }
    return update(file, [&](Hive &hive) {
        std::string problem;
        Key *key = create_key(hive, path, volatile_key, &problem);
        if (key == nullptr) {
            return refuse(problem, ERR_REG_SETKEY, place.key, place.value_name);
        }
        Value &value = key->values[fold(place.value_name)];
        if (value.name.empty()) {
            value.name = place.value_name;  // a new value, or the default one
        }
        value.type = type;
        if (length == 0) {
            value.data.clear();
        } else {
            value.data.assign(static_cast<const char *>(data), length);
        }
        return 1;
    });
}

int file_delete_value(const HiveFile &file, const Place &place) {
    std::string path;
    if (!checked_path(place, ERR_REG_OPENKEY, &path)) {
        return 0;
    }
    return update(file, [&](Hive &hive) {
        Key *key = find_key(hive, path);
        if (key == nullptr) {
            return no_key(place, file.name, ERR_REG_OPENKEY);
        }
        if (key->values.erase(fold(place.value_name)) == 0) {
            return no_value(place, ERR_REG_DELVAL);
        }
        return 1;
    });
}

}  // namespace vq::reg
