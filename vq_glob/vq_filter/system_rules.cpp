// Rules that come from the system rather than from the configured patterns:
// the Windows system directories (recycle bins, "System Volume Information",
// the system configuration directory) and the POSIX keys for hidden files,
// mount points and symbolic links.
#include <string_view>

#include "internal/ascii.h"
#include "platform/platform.h"
#include "vq_filter/filter_state.h"
#include "vq_glob/filter.h"

namespace vq::filter {
namespace {

std::string_view without_trailing_separator(std::string_view path) {
    if (path.size() > 1 && path.back() == kSeparator) {
        path.remove_suffix(1);
    }
    return path;
}

// The recycle-bin rules: on the path without its drive ("C:").
bool recycle_rules_skip(const Filter &filter, std::string_view path) {
    if (!filter.ignore_recycle_dir || path.size() <= 2) {
        return false;
    }
    std::string_view below_drive = path.substr(2);
    if (ascii::equal_nocase(below_drive, filter.is_ntfs ? "\\recycler" : "\\recycled")) {
        debug::trace_bit(kTraceBit, "skipped recycled\n");
        return true;
    }
    if (filter.is_ntfs && ascii::equal_nocase(below_drive, "\\System Volume Information")) {
        debug::trace_bit(kTraceBit, "skipped System Volume Information\n");
        return true;
    }
    return false;
}

bool status_of(const char *name, PlatFsStatus *status) { return plat_fs_status(name, status) == 0; }

}  // namespace

bool system_rules_skip(const Filter &filter, const char *path) {
    if (!plat_fs_has_system_dir_rules()) {
        return false;
    }
    std::string_view directory = without_trailing_separator(path);
    if (recycle_rules_skip(filter, directory)) {
        return true;
    }
    if (filter.ignore_config_dir && ascii::equal_nocase(directory, filter.system_config_dir)) {
        debug::trace_bit(kTraceBit, "skipped sys config dir <%s>\n", path);
        return true;
    }
    return false;
}

ObjectFacts unix_key_facts(const Filter &filter, const char *name, std::string_view element, bool is_dir) {
    ObjectFacts facts;
    facts.is_dir = is_dir;
    if (!filter.unix_keys) {
        return facts;
    }
    if (filter.ignore_hidden && !element.empty() && element.front() == '.') {
        debug::trace_bit(kTraceBit, "exclude_check - <%s> is hidden - skipping\n", name);
        facts.skip = true;
        return facts;
    }
    // Links to files judged as files, and links to directories judged as
    // their targets, change nothing: only the other values need the lstat.
    bool links_matter = filter.links_to_files == FILTER_LINKS_SKIP || filter.links_to_dirs != FILTER_LINKS_AS_TARGET;
    PlatFsStatus status;
    if (!links_matter || !status_of(name, &status) || !status.is_link) {
        return facts;
    }
    int32_t handling = status.is_dir ? filter.links_to_dirs : filter.links_to_files;
    if (handling == FILTER_LINKS_SKIP) {
        debug::trace_bit(kTraceBit, "exclude_check - <%s> is a link - skipping\n", name);
        facts.skip = true;
    } else if (handling == FILTER_LINKS_AS_FILE && status.is_dir) {
        facts.is_dir = false;
        facts.never_enter = true;
    }
    return facts;
}

bool is_mount_point(const char *name) {
    std::string_view directory = without_trailing_separator(name);
    size_t separator = directory.rfind(kSeparator);
    if (separator == std::string_view::npos) {
        return false;
    }
    std::string parent(directory.substr(0, separator == 0 ? 1 : separator));
    PlatFsStatus own;
    PlatFsStatus above;
    return status_of(name, &own) && status_of(parent.c_str(), &above) && own.is_dir && own.device != above.device;
}

}  // namespace vq::filter

using namespace vq::filter;

extern "C" {

VQ_API int should_create_dir(void *filter, const char *path, int32_t *should_create) {
    const Filter *checked = checked_filter(filter, "should_create_dir");
    if (checked == nullptr) {
        return 0;
    }
    if (path == nullptr || should_create == nullptr) {
        return null_parameter("should_create_dir", path == nullptr ? "path" : "should_create");
    }
    *should_create = system_rules_skip(*checked, path) ? 0 : 1;
    return 1;
}

}  // extern "C"
