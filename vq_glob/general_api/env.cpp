// Process handles: environment variables to give the child.
//
// The handle keeps its own copies of the name and value pairs in the order
// they were added; the run functions set them, in that order, when they start
// the child, so a name added twice ends with its later value.
#include <algorithm>
#include <cstring>

#include "general_api/api_state.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

// A name the environment can hold: not empty and without '='.
bool valid_name(const char *name, size_t length) {
    return name != nullptr && length > 0 && std::memchr(name, '=', length) == nullptr;
}

int add_env_var(int32_t h, const char *name, const char *value) {
    Entry *entry = checked_entry("api_add_env_var_to_handle", h);
    if (entry == nullptr) {
        return 0;
    }
    if (!valid_name(name, name == nullptr ? 0 : std::strlen(name)) || value == nullptr) {
        raise_bad_param(h, value == nullptr ? "environment variable value is NULL"
                                            : "environment variable name is empty or holds '='");
        return 0;
    }
    entry->env_vars.push_back(EnvVar{name, value});
    // Values may hold secrets of the child's; only the name is traced.
    new_dbg_str(kTraceChannel, "api_add_env_var_to_handle() - handle is %d , variable is %s\n", h, name);
    return 1;
}

// Every "name=value" text of the list is checked before any is added, so a
// bad entry leaves the handle as it was.
int add_env_var_list(int32_t h, char **list) {
    Entry *entry = checked_entry("api_add_env_var_list_to_handle", h);
    if (entry == nullptr) {
        return 0;
    }
    if (list == nullptr) {
        raise_bad_param(h, "environment variable list is NULL");
        return 0;
    }
    std::vector<EnvVar> added;
    for (char **item = list; *item != nullptr; ++item) {
        const char *equals = std::strchr(*item, '=');
        if (equals == nullptr || !valid_name(*item, static_cast<size_t>(equals - *item))) {
            raise_bad_param(h, "environment variable list entry is not name=value");
            return 0;
        }
        added.push_back(
            EnvVar{std::string(*item, static_cast<size_t>(equals - *item)), std::string(equals + 1)});
    }
    entry->env_vars.reserve(entry->env_vars.size() + added.size());
    for (EnvVar &var : added) {
        new_dbg_str(kTraceChannel, "api_add_env_var_list_to_handle() - handle is %d , variable is %s\n", h,
                    var.name.c_str());
        entry->env_vars.push_back(std::move(var));
    }
    return 1;
}

int get_env_var(int32_t h, const char *name, char **value) {
    Entry *entry = checked_entry("api_get_env_var_from_handle", h);
    if (entry == nullptr) {
        return 0;
    }
    if (name == nullptr || value == nullptr) {
        raise_bad_param(h, name == nullptr ? "environment variable name is NULL" : "value address is NULL");
        return 0;
    }
    auto last = std::find_if(entry->env_vars.rbegin(), entry->env_vars.rend(),
                             [&](const EnvVar &var) { return var.name == name; });
    if (last == entry->env_vars.rend()) {
        return 0;
    }
    *value = last->value.data();
    return 1;
}

}  // namespace

const std::vector<EnvVar> *env_vars_of(int32_t h) {
    Entry *entry = checked_entry("env_vars_of", h);
    return entry == nullptr ? nullptr : &entry->env_vars;
}

}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_add_env_var_to_handle(int32_t h, const char *name, const char *value) {
    return guarded("api_add_env_var_to_handle", [&] { return add_env_var(h, name, value); });
}

VQ_API int api_add_env_var_list_to_handle(int32_t h, char **list) {
    return guarded("api_add_env_var_list_to_handle", [&] { return add_env_var_list(h, list); });
}

VQ_API int api_get_env_var_from_handle(int32_t h, const char *name, char **value) {
    return guarded("api_get_env_var_from_handle", [&] { return get_env_var(h, name, value); });
}

}  // extern "C"
