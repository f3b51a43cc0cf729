// POSIX backend of the registry part: the system has no registry, so the
// value operations refuse and the module keeps its hives in files; this
// file only answers where those files go by default.
#include "platform/registry.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>

bool plat_reg_is_native() { return false; }

int32_t plat_reg_get_value(bool, const char *, const char *, std::string *, uint32_t *, PlatRegStep *failed) {
    *failed = PlatRegStep::open_key;
    return ENOSYS;
}

int32_t plat_reg_set_value(bool, const char *, const char *, const void *, size_t, uint32_t, bool,
                           PlatRegStep *failed) {
    *failed = PlatRegStep::create_key;
    return ENOSYS;
}

int32_t plat_reg_delete_value(bool, const char *, const char *, PlatRegStep *failed) {
    *failed = PlatRegStep::open_key;
    return ENOSYS;
}

const char *plat_reg_default_machine_file() { return "/var/lib/vq_glob/registry"; }

const char *plat_reg_user_file_name() { return ".vq_glob_registry"; }

bool plat_reg_environment(const char *name, std::string *value) {
    const char *text = secure_getenv(name);
    if (text == nullptr) {
        return false;
    }
    *value = text;
    return true;
}

std::string plat_reg_boot_id() {
    std::ifstream in("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(in, id);
    return in ? id : std::string();
}
