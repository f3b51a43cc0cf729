// The filter's questions about one object: Skip and its two halves, their
// wide-name forms, and whether a walk descends into a directory.
//
// Every check first places the object: its path must begin with the base
// directory and a separator and go on below it. The rules then see only the
// path relative to the base directory, so the base directory's own text is
// compared once per object instead of once per rule. What the POSIX keys need
// from the file system (one lstat for the link keys, two stats of a
// directory and its parent for mount points) is asked only when a key that
// needs it is on.
#include <cwchar>
#include <new>
#include <string>
#include <string_view>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_filter/filter_state.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/str.h"

namespace vq::filter {
namespace {

bool is_directory_type(int32_t type) { return type == 2 || type == 8; }

// The object's own name: the last element of name, a directory's trailing
// separator left out.
std::string_view own_name(std::string_view name, bool is_dir) {
    if (is_dir && !name.empty() && name.back() == kSeparator) {
        name.remove_suffix(1);
    }
    size_t separator = name.rfind(kSeparator);
    return separator == std::string_view::npos ? name : name.substr(separator + 1);
}

struct Object {
    const char *name = nullptr;
    bool below_base = false;
    std::string_view relative;  // below the base directory's separator
    ObjectFacts facts;
    Candidate candidate;
};

// Where the object lies: strictly below the base directory (its text, case
// ignored) and without a ".." element that could lead back out of it.
Object locate(const Filter &filter, const char *name, bool is_dir) {
    Object object;
    object.name = name;
    object.facts.is_dir = is_dir;
    std::string_view full(name);
    const std::string &prefix = filter.base_with_separator;
    if (full.size() > prefix.size() && ascii::starts_with_nocase(full, prefix)) {
        object.relative = full.substr(prefix.size());
        // Most names hold no ".." at all; only those need the element scan.
        object.below_base = object.relative.find("..") == std::string_view::npos ||
                            str_relative_up_dir_included(object.relative.data()) == 0;
    }
    return object;
}

// What the POSIX keys make of the object, and its text for the rules.
void examine(const Filter &filter, Object &object) {
    object.facts = unix_key_facts(filter, object.name, own_name(object.name, object.facts.is_dir),
                                  object.facts.is_dir);
    object.candidate = make_candidate(object.relative, object.facts.is_dir);
}

Object describe(const Filter &filter, const char *name, int32_t type) {
    Object object = locate(filter, name, is_directory_type(type));
    examine(filter, object);
    return object;
}

int include_half(const Filter &filter, const Object &object, Scratch &scratch, bool *skip) {
    *skip = false;
    if (!object.below_base) {
        debug::trace_bit(kTraceBit, "include_check - file name doesnt start with base dir, or file name equals to "
                                    "base dir - should skip\n");
        *skip = true;
        return 1;
    }
    bool is_dir = object.candidate.is_dir;
    if ((filter.include_all_files && filter.include_all_dirs) || (filter.include_all_files && !is_dir) ||
        (filter.include_all_dirs && is_dir)) {
        return 1;
    }
    int index = -1;
    if (first_fitting_rule(filter.include, object.candidate, object.name, scratch, &index) == 0) {
        return 0;
    }
    *skip = index < 0;
    return 1;
}

int exclude_half(const Filter &filter, const Object &object, Scratch &scratch, bool *skip) {
    *skip = true;
    if (system_rules_skip(filter, object.name) || object.facts.skip) {
        return 1;
    }
    if (filter.unix_keys && filter.ignore_mount_points && object.facts.is_dir && is_mount_point(object.name)) {
        debug::trace_bit(kTraceBit, "exclude_check - <%s> is a mount point - skipping\n", object.name);
        return 1;
    }
    *skip = false;
    if (!object.below_base) {
        return 1;  // the rules select objects below the base directory only
    }
    int index = -1;
    if (first_fitting_rule(filter.exclude, object.candidate, object.name, scratch, &index) == 0) {
        return 0;
    }
    if (index < 0 && first_fitting_rule(filter.auto_exclude, object.candidate, object.name, scratch, &index) == 0) {
        return 0;
    }
    *skip = index >= 0;
    return 1;
}

int skip_object(const Filter &filter, const char *name, int32_t type, int32_t *skip) {
    Scratch scratch;
    Object object = locate(filter, name, is_directory_type(type));
    bool out = true;
    if (object.below_base) {
        examine(filter, object);
    }
    if (include_half(filter, object, scratch, &out) == 0) {
        debug::trace_bit(kTraceBit, "Skip : failed in include_check\n");
        return 0;
    }
    if (out) {
        *skip = 1;
        return 1;
    }
    if (exclude_half(filter, object, scratch, &out) == 0) {
        debug::trace_bit(kTraceBit, "Skip : failed in exclude_check\n");
        return 0;
    }
    if (out) {
        debug::trace_bit(kTraceBit, "Skip : element <%s> didn't pass the exclude check - skipping...\n", name);
    }
    *skip = out ? 1 : 0;
    return 1;
}

// One half of Skip alone, include_half or exclude_half.
using Half = int (*)(const Filter &, const Object &, Scratch &, bool *);

template <Half kHalf>
int one_half(const Filter &filter, const char *name, int32_t type, int32_t *skip) {
    Scratch scratch;
    Object object = describe(filter, name, type);
    bool out = true;
    if (kHalf(filter, object, scratch, &out) == 0) {
        return 0;
    }
    *skip = out ? 1 : 0;
    return 1;
}

bool include_could_fit_below(const Filter &filter, const Candidate &directory, Scratch &scratch, int *status) {
    *status = 1;
    if (filter.include_all_files || filter.include_all_dirs) {
        return true;
    }
    for (const Rule &rule : filter.include) {
        bool could = false;
        if (rule_could_fit_below(rule, directory, scratch, &could) == 0) {
            *status = 0;
            return false;
        }
        if (could) {
            return true;
        }
    }
    return false;
}

int dig_into(const Filter &filter, const char *path, int32_t *should_dig) {
    *should_dig = 0;
    std::string_view directory(path);
    if (!directory.empty() && directory.back() == kSeparator) {
        directory.remove_suffix(1);
    }
    if (ascii::equal_nocase(directory, filter.base)) {
        *should_dig = filter.include_all_files || filter.include_all_dirs || !filter.include.empty() ? 1 : 0;
        return 1;
    }
    Object object = locate(filter, path, true);
    if (!object.below_base) {
        return 1;
    }
    examine(filter, object);
    if (object.facts.never_enter || !object.facts.is_dir) {
        return 1;
    }
    Scratch scratch;
    int status = 1;
    if (!include_could_fit_below(filter, object.candidate, scratch, &status)) {
        return status;
    }
    bool out = true;
    if (exclude_half(filter, object, scratch, &out) == 0) {
        return 0;
    }
    *should_dig = out ? 0 : 1;
    return 1;
}

using NarrowCheck = int (*)(const Filter &, const char *, int32_t, int32_t *);

int narrow_entry(const char *function, void *handle, const char *name, int32_t type, int32_t *skip,
                 NarrowCheck check) {
    const Filter *filter = checked_filter(handle, function);
    if (filter == nullptr) {
        return 0;
    }
    if (name == nullptr || skip == nullptr) {
        return null_parameter(function, name == nullptr ? "name" : "skip");
    }
    return guarded(function, [&] { return check(*filter, name, type, skip); });
}

// The wide forms name an object relative to the base directory.
int wide_entry(const char *function, void *handle, const wchar_t *name, int32_t type, int32_t *skip,
               NarrowCheck check) {
    const Filter *filter = checked_filter(handle, function);
    if (filter == nullptr) {
        return 0;
    }
    if (name == nullptr || skip == nullptr) {
        return null_parameter(function, name == nullptr ? "name" : "skip");
    }
    return guarded(function, [&] {
        // The base directory, then the name converted in place behind it:
        // at most four bytes of UTF-8 for each wide character.
        const std::string &prefix = filter->base_with_separator;
        std::string full(prefix.size() + std::wcslen(name) * 4 + 1, '\0');
        full.replace(0, prefix.size(), prefix);
        int32_t error = plat_wide_to_utf8(name, full.data() + prefix.size(), full.size() - prefix.size());
        if (error != 0) {
            raise::system(raise::Report::add, error);
            return raise::params(raise::Report::add, function, "name");
        }
        return check(*filter, full.c_str(), type, skip);
    });
}

}  // namespace
}  // namespace vq::filter

using namespace vq::filter;

extern "C" {

VQ_API int Skip(void *filter, const char *name, int32_t type, int32_t *skip) {
    return narrow_entry("Skip", filter, name, type, skip, skip_object);
}

VQ_API int WSkip(void *filter, const wchar_t *name, int32_t type, int32_t *skip) {
    return wide_entry("WSkip", filter, name, type, skip, skip_object);
}

VQ_API int include_check(void *filter, const char *name, int32_t type, int32_t *skip) {
    return narrow_entry("include_check", filter, name, type, skip, one_half<include_half>);
}

VQ_API int W_include_check(void *filter, const wchar_t *name, int32_t type, int32_t *skip) {
    return wide_entry("W_include_check", filter, name, type, skip, one_half<include_half>);
}

VQ_API int exclude_check(void *filter, const char *name, int32_t type, int32_t *skip) {
    return narrow_entry("exclude_check", filter, name, type, skip, one_half<exclude_half>);
}

VQ_API int W_exclude_check(void *filter, const wchar_t *name, int32_t type, int32_t *skip) {
    return wide_entry("W_exclude_check", filter, name, type, skip, one_half<exclude_half>);
}

VQ_API int should_dig_into_dir(void *filter, const char *path, int32_t *should_dig) {
    const Filter *checked = checked_filter(filter, "should_dig_into_dir");
    if (checked == nullptr) {
        return 0;
    }
    if (path == nullptr || should_dig == nullptr) {
        return null_parameter("should_dig_into_dir", path == nullptr ? "path" : "should_dig");
    }
    return guarded("should_dig_into_dir", [&] { return dig_into(*checked, path, should_dig); });
}

}  // extern "C"
