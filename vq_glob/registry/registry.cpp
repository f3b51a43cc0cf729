// Registry access, the reg_ and new_reg_ families: key paths and hives are
// worked out here, per thread, and the values are read and written either
// in the system's registry (platform/registry.h) or in the file hives
// (file_hive.cpp), which a system without a registry, and any thread that
// named a registry file, uses.
#include "vq_glob/reg.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "internal/frame.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "registry/reg_state.h"
#include "vq_glob/env.h"
#include "vq_glob/err.h"

namespace vq::reg {
namespace {

using raise::Report;

struct RegRecord {
    int32_t user_mode = 0;          // above 0: the user hive for the reg_ family
    bool has_default_key = false;   // new_reg_set_key
    std::string default_key;
    std::string file_name;          // new_reg_set_filename; empty: none
};

using Frame = frame::ModuleFrame<RegRecord, frame::kSlotRegistry, frame::OnDemand::yes>;

constexpr const char *kModule = "registry";
constexpr const char *kDuplicateSocket = "DuplicateSocket";
constexpr const char *kHiveVariable = "VQ_GLOB_REGISTRY";
constexpr const char *kUserHiveSuffix = ".user";
constexpr int kMachineFileMode = 0644;
constexpr int kUserFileMode = 0600;

uint32_t code_of(PlatRegStep step) {
    switch (step) {
        case PlatRegStep::open_key: return ERR_REG_OPENKEY;
        case PlatRegStep::query_value: return ERR_REG_GETVAL;
        case PlatRegStep::create_key:
        case PlatRegStep::set_value: return ERR_REG_SETKEY;
        case PlatRegStep::flush_key: return ERR_REG_FLSKEY;
        case PlatRegStep::delete_value: return ERR_REG_DELVAL;
    }
    return ERR_REG_OPENKEY;
}

int system_failed(int32_t error, PlatRegStep step, const Place &place) {
    raise::system(Report::fresh, error);
    err_add_error(code_of(step), place.key.c_str(), place.value_name.c_str());
    return 0;
}

// Whether the calling thread's values live in files.
bool in_files(const RegRecord *rec) { return (rec != nullptr && !rec->file_name.empty()) || !plat_reg_is_native(); }

// The file of the machine or user hive of the calling thread.
int hive_file(const RegRecord *rec, bool user, HiveFile *file) {
    file->mode = user ? kUserFileMode : kMachineFileMode;
    std::string base;
    if (rec != nullptr && !rec->file_name.empty()) {
        base = rec->file_name;
    } else if (!plat_reg_environment(kHiveVariable, &base) || base.empty()) {
        if (!user) {
            file->name = plat_reg_default_machine_file();
            file->make_directory = true;
            return 1;
        }
        const char *home = env_get_home_dir();
        if (home == nullptr) {
            err_add_error(ERR_REG_OPEN, plat_reg_user_file_name());
            return 0;
        }
        file->name = std::string(home) + VQ_PATH_SEPARATOR_TEXT + plat_reg_user_file_name();
        return 1;
    }
    file->name = user ? base + kUserHiveSuffix : base;
    return 1;
}

int get_value(const Place &place, std::string *data, uint32_t *type) {
    const RegRecord *rec = Frame::get();
    int status = 0;
    if (in_files(rec)) {
        HiveFile file;
        status = hive_file(rec, place.user, &file) != 0 && file_get_value(file, place, data, type) != 0 ? 1 : 0;
    } else {
        PlatRegStep step = PlatRegStep::open_key;
        int32_t error = plat_reg_get_value(place.user, place.key.c_str(), place.value_name.c_str(), data, type, &step);
        status = error == 0 ? 1 : system_failed(error, step, place);
    }
    if (status != 0) {
        vq::debug::trace_bit(kTraceBit, "len returned from registry is %d\n", static_cast<int>(data->size()));
    }
    return status;
}

int set_value(const Place &place, const void *data, uint32_t length, uint32_t type, bool volatile_key) {
    const RegRecord *rec = Frame::get();
    if (in_files(rec)) {
        HiveFile file;
        return hive_file(rec, place.user, &file) != 0 &&
                       file_set_value(file, place, data, length, type, volatile_key) != 0
                   ? 1
                   : 0;
    }
    PlatRegStep step = PlatRegStep::create_key;
    int32_t error = plat_reg_set_value(place.user, place.key.c_str(), place.value_name.c_str(), data, length, type,
                                       volatile_key, &step);
    return error == 0 ? 1 : system_failed(error, step, place);
}

int delete_value(const Place &place) {
    const RegRecord *rec = Frame::get();
    if (in_files(rec)) {
        HiveFile file;
        return hive_file(rec, place.user, &file) != 0 && file_delete_value(file, place) != 0 ? 1 : 0;
    }
    PlatRegStep step = PlatRegStep::open_key;
    int32_t error = plat_reg_delete_value(place.user, place.key.c_str(), place.value_name.c_str(), &step);
    return error == 0 ? 1 : system_failed(error, step, place);
}

// Runs body, turning an exhausted heap into the memory error.
template <typename Body>
int guarded(const char *function, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return raise::memory(Report::fresh, function, kModule, __LINE__);
    }
}

// Applies change to the calling thread's record. 1, or 0 with the memory
// error when the record or a copy cannot be made.
template <typename Change>
int change_record(const char *function, Change change) {
    RegRecord *rec = Frame::get();
    if (rec == nullptr) {
        return raise::memory(Report::fresh, function, kModule, __LINE__);
    }
    return guarded(function, [&] {
        change(*rec);
        return 1;
    });
}

// The place of a reg_ call: below the product root for a level below
// REG_LEVEL_ABSOLUTE, in the hive of the thread's user mode.
bool reg_place(const char *key, const char *value_name, int32_t level, Place *place) {
    try {
        place->key = level < REG_LEVEL_ABSOLUTE ? std::string(REG_PRODUCT_ROOT) + key : std::string(key);
    } catch (const std::bad_alloc &) {
        err_set_error(ERR_SYS_ERRMSG, "Dynamic memory allocation failed");
        return false;
    }
    place->value_name = value_name != nullptr ? value_name : "";
    const RegRecord *rec = Frame::get();
    place->user = rec != nullptr && rec->user_mode > 0;
    return true;
}

// The place of a new_reg_ call: key, or the thread's default key for a NULL
// one.
bool new_reg_place(const char *function, const char *key, const char *value_name, int32_t user, Place *place) {
    const RegRecord *rec = Frame::get();
    if (key == nullptr && (rec == nullptr || !rec->has_default_key)) {
        raise::params(Report::fresh, function, "key");
        return false;
    }
    place->key = key != nullptr ? std::string(key) : rec->default_key;
    place->value_name = value_name != nullptr ? value_name : "";
    place->user = user != 0;
    return true;
}

// Keeps the calling thread's error stack as it is across a call whose
// failures are no error of the caller's.
class SavedErrorStack {
public:
    SavedErrorStack() {
        void *entries = nullptr;
        int32_t size = 0;
        try {
            if (err_get_stack_desc(&entries, &size, &depth_) != 0 && entries != nullptr && size > 0) {
                const char *bytes = static_cast<const char *>(entries);
                bytes_.assign(bytes, bytes + size);
            }
        } catch (const std::bad_alloc &) {
            saved_ = false;  // the stack then shows what the call left
        }
    }
    ~SavedErrorStack() {
        if (!saved_) {
            return;
        }
        if (bytes_.empty()) {
            err_clear_error_stack();
        } else {
            err_set_stack_desc(bytes_.data(), static_cast<int32_t>(bytes_.size()), depth_);
        }
    }
    SavedErrorStack(const SavedErrorStack &) = delete;
    SavedErrorStack &operator=(const SavedErrorStack &) = delete;

private:
    std::vector<char> bytes_;
    int32_t depth_ = 0;
    bool saved_ = true;
};

}  // namespace
}  // namespace vq::reg

namespace vq::frame {
constinit const Module kRegistryModule = reg::Frame::module("reg");
}  // namespace vq::frame

using namespace vq::reg;

extern "C" {

VQ_API int reg_set_user_mode(int32_t mode) {
    return change_record(__func__, [&](RegRecord &rec) { rec.user_mode = mode; });
}

VQ_API int reg_get_key_value(const char *key, const char *value_name, void *buffer, uint32_t *size, uint32_t *type,
                             int32_t level) {
    if (key == nullptr || size == nullptr) {
        return VQ_PARAMS(Report::fresh, key == nullptr ? "key" : "size");
    }
    return guarded(__func__, [&] {
        Place place;
        std::string data;
        uint32_t value_type = 0;
        if (!reg_place(key, value_name, level, &place) || get_value(place, &data, &value_type) == 0) {
            return 0;
        }
        if (data.size() > UINT32_MAX || (buffer != nullptr && data.size() > *size)) {
            std::string reason = "the value has " + std::to_string(data.size()) + " bytes, more than the " +
                                 std::to_string(*size) + " of the buffer";
            *size = static_cast<uint32_t>(std::min<size_t>(data.size(), UINT32_MAX));
            return refuse(reason, ERR_REG_GETVAL, place.key, place.value_name);
        }
        if (buffer != nullptr && !data.empty()) {
            std::memcpy(buffer, data.data(), data.size());
        }
        *size = static_cast<uint32_t>(data.size());
        if (type != nullptr) {
            *type = value_type;
        }
        return 1;
    });
}

VQ_API int reg_set_key_value(const char *key, const char *value_name, const void *data, uint32_t length,
                             uint32_t type, int32_t volatile_key, int32_t level) {
    if (key == nullptr || (data == nullptr && length != 0)) {
        return VQ_PARAMS(Report::fresh, key == nullptr ? "key" : "data");
    }
    return guarded(__func__, [&] {
        Place place;
        return reg_place(key, value_name, level, &place) && set_value(place, data, length, type, volatile_key != 0)
                   ? 1
                   : 0;
    });
}

VQ_API int reg_delete_value(const char *key, const char *value_name, int32_t level) {
    if (key == nullptr) {
        return VQ_PARAMS(Report::fresh, "key");
    }
    return guarded(__func__, [&] {
        Place place;
        return reg_place(key, value_name, level, &place) && delete_value(place) ? 1 : 0;
    });
}

VQ_API int new_reg_set_key(const char *default_key_path) {
    return change_record(__func__, [&](RegRecord &rec) {
        rec.has_default_key = default_key_path != nullptr;
        rec.default_key = default_key_path != nullptr ? default_key_path : "";
    });
}

VQ_API int new_reg_set_filename(const char *name) {
    return change_record(__func__, [&](RegRecord &rec) { rec.file_name = name != nullptr ? name : ""; });
}

VQ_API int new_reg_get_key_value(const char *key, const char *value_name, void **data, uint32_t *length,
                                 int32_t user) {
    if (data == nullptr || length == nullptr) {
        return VQ_PARAMS(Report::fresh, data == nullptr ? "data" : "length");
    }
    *data = nullptr;
    *length = 0;
    return guarded(__func__, [&] {
        Place place;
        std::string bytes;
        uint32_t type = 0;
        if (!new_reg_place(__func__, key, value_name, user, &place) || get_value(place, &bytes, &type) == 0) {
            return 0;
        }
        if (bytes.empty()) {
            return 1;
        }
        if (bytes.size() >= UINT32_MAX) {
            return refuse("the value is larger than 4 GiB", ERR_REG_GETVAL, place.key, place.value_name);
        }
        auto *copy = static_cast<char *>(std::malloc(bytes.size() + 1));
        if (copy == nullptr) {
            return VQ_NO_MEMORY(Report::fresh, kModule);
        }
        std::memcpy(copy, bytes.data(), bytes.size());
        copy[bytes.size()] = '\0';
        *data = copy;
        *length = static_cast<uint32_t>(bytes.size());
        return 1;
    });
}

VQ_API int new_reg_set_key_value(const char *key, const char *value_name, const void *data, uint32_t length,
                                 uint32_t type, int32_t user) {
    if (data == nullptr && length != 0) {
        return VQ_PARAMS(Report::fresh, "data");
    }
    return guarded(__func__, [&] {
        Place place;
        return new_reg_place(__func__, key, value_name, user, &place) && set_value(place, data, length, type, false)
                   ? 1
                   : 0;
    });
}

VQ_API int new_reg_delete_value(const char *key, const char *value_name, int32_t user) {
    return guarded(__func__, [&] {
        Place place;
        return new_reg_place(__func__, key, value_name, user, &place) && delete_value(place) ? 1 : 0;
    });
}

VQ_API void new_reg_free(void **data) {
    if (data != nullptr) {
        std::free(*data);
        *data = nullptr;
    }
}

VQ_API int new_reg_should_work_advance_socket(void) {
    SavedErrorStack saved;
    void *data = nullptr;
    uint32_t length = 0;
    int on = 0;
    if (new_reg_get_key_value(REG_PRODUCT_KEY, kDuplicateSocket, &data, &length, 0) != 0) {
        on = length == 4 && static_cast<const unsigned char *>(data)[0] == 1 ? 1 : 0;
    }
    new_reg_free(&data);
    return on;
}

}  // extern "C"
