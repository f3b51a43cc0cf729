// The filter's configuration table, and building a filter from a
// configuration handle (init_filter) and releasing it (close_filter).
//
// The fields are read by section and field name, so that a handle bound to
// the filter's table and one read from text without a table both work. A
// field the handle lacks takes the table's default; any other failure of a
// read (no "Filter Params" section, a field of another type, a handle that is
// no configuration handle) fails the initialisation with the configuration
// module's reason under a trace naming the field.
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_filter/filter_state.h"
#include "vq_glob/conf.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"

namespace vq::filter {
namespace {

constexpr conf_table_row kFilterTable[] = {
    {FILTER_CF_SECTION, "Filter Params", CONF_TYPE_SECTION, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_EXCLUDE_NON_RECURSIVE, "Exclude Non Recursive Part List", CONF_TYPE_ML_TEXT, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_EXCLUDE_RECURSIVE, "Exclude Recursive Part List", CONF_TYPE_ML_TEXT, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_IGNORE_RECYCLE_DIR, "Ignore Recycle Dir", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {FILTER_CF_IGNORE_CONFIG_DIR, "Ignore Config Dir", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {FILTER_CF_IGNORE_MOUNT_POINTS, "Ignore UNIX Mount Points", CONF_TYPE_BOOL, "TRUE", 1, 0x1, nullptr},
    {FILTER_CF_IGNORE_HIDDEN_FILES, "Ignore UNIX Hidden Files", CONF_TYPE_BOOL, "TRUE", 1, 0x1, nullptr},
    {FILTER_CF_LINKS_TO_FILES, "Handling of UNIX Links to Files", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_LINKS_TO_DIRS, "Handling of UNIX Links to Directories", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_FOLLOW_LINKS_TO_DIRS, "Follow UNIX Links to Directories", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {FILTER_CF_CASE_SENSITIVE, "Case Sensitive", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {FILTER_CF_IGNORE_INVALID_NAMES, "Ignore Invalid Windows Filenames", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {FILTER_CF_INCLUDE_NON_RECURSIVE, "Include Non Recursive Part List", CONF_TYPE_ML_TEXT, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_INCLUDE_RECURSIVE, "Include Recursive Part List", CONF_TYPE_ML_TEXT, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_BASE_DIRECTORY, "Base Directory", CONF_TYPE_STRING, "", 0, 0x1, nullptr},
    {FILTER_CF_USE_UDL, "USE UDL", CONF_TYPE_BOOL, nullptr, 0, 0x1, nullptr},
    {FILTER_CF_UL_INPUT_FILE, "UL Input File", CONF_TYPE_STRING, "", 0, 0x1, nullptr},
};
static_assert(std::size(kFilterTable) == FILTER_CF_KEYS, "one row per key");

const char *section_name() { return kFilterTable[FILTER_CF_SECTION].name; }

int failed_in_config(const char *field) {
    debug::trace_bit(kTraceBit, "init_filter - failed in config <%s>\n", field);
    return 0;
}

// A read that failed only because the field is not there: the table's
// default stands in, and the configuration module's line is dropped (the
// stack was cleared when the initialisation began).
bool field_is_missing() {
    uint32_t code = err_get_error_code(0);
    if (code != ERR_CNF_FIND_820F && code != ERR_CNF_FIND_820E) {
        return false;
    }
    err_clear_error_stack();
    return true;
}

// Reads one field of the row's type into out; 1, or 0 after the trace.
int read_bool(void *configuration, int32_t constant, bool *out) {
    const conf_table_row &row = kFilterTable[constant];
    int32_t value = row.default_int;
    if (conf_get_bool_field(configuration, section_name(), row.name, &value) == 0 && !field_is_missing()) {
        return failed_in_config(row.name);
    }
    *out = value != 0;
    return 1;
}

int read_link_handling(void *configuration, int32_t constant, int32_t *out) {
    const conf_table_row &row = kFilterTable[constant];
    int32_t value = row.default_int;
    if (conf_get_int_field(configuration, section_name(), row.name, &value) == 0 && !field_is_missing()) {
        return failed_in_config(row.name);
    }
    if (value < FILTER_LINKS_AS_TARGET || value > FILTER_LINKS_AS_FILE) {
        err_add_error(ERR_CNF_VALUE, row.name, std::to_string(value).c_str());
        return failed_in_config(row.name);
    }
    *out = value;
    return 1;
}

int read_string(void *configuration, int32_t constant, std::string *out) {
    const conf_table_row &row = kFilterTable[constant];
    char *value = nullptr;
    if (conf_get_string_field(configuration, section_name(), row.name, &value) == 0 && !field_is_missing()) {
        return failed_in_config(row.name);
    }
    out->assign(value != nullptr ? value : row.default_str);
    return 1;
}

int read_list(void *configuration, int32_t constant, std::vector<std::string> *out) {
    const conf_table_row &row = kFilterTable[constant];
    char **list = nullptr;
    if (conf_get_ml_string_field(configuration, section_name(), row.name, &list) == 0 && !field_is_missing()) {
        return failed_in_config(row.name);
    }
    for (char **item = list; item != nullptr && *item != nullptr; ++item) {
        out->emplace_back(*item);
    }
    return 1;
}

// The system directory's "config", which "Ignore Config Dir" leaves out.
std::string system_config_directory() {
    char directory[4096];
    if (int32_t error = plat_system_directory(directory, sizeof directory); error != 0) {
        debug::trace_bit(kTraceBit, "init_filter - no system directory (error %d)\n", static_cast<int>(error));
        return std::string();
    }
    return std::string(directory) + kSeparator + "config";
}

struct RuleLists {
    std::vector<std::string> exclude_non_recursive, exclude_recursive, include_non_recursive, include_recursive;
};

int read_rule_lists(void *configuration, RuleLists *lists, Filter *filter) {
    if (read_list(configuration, FILTER_CF_EXCLUDE_NON_RECURSIVE, &lists->exclude_non_recursive) == 0 ||
        read_list(configuration, FILTER_CF_EXCLUDE_RECURSIVE, &lists->exclude_recursive) == 0 ||
        read_list(configuration, FILTER_CF_INCLUDE_NON_RECURSIVE, &lists->include_non_recursive) == 0 ||
        read_list(configuration, FILTER_CF_INCLUDE_RECURSIVE, &lists->include_recursive) == 0) {
        return 0;
    }
    filter->system_config_dir = system_config_directory();
    if (lists->include_non_recursive.size() != lists->include_recursive.size() ||
        lists->exclude_non_recursive.size() != lists->exclude_recursive.size()) {
        debug::trace_bit(kTraceBit,
                         "init_filter - number of non recursive elements is not equal to that of the recursive "
                         "elements\n");
        err_add_error(ERR_FILTER_SPEC_MISMATCH);
        return 0;
    }
    return 1;
}

// Pairs the lists into rules. An invalid include pair fails; an invalid
// exclude pair is kept, traced, and never fits.
int make_rules(const RuleLists &lists, Filter *filter) {
    for (size_t i = 0; i < lists.exclude_non_recursive.size(); ++i) {
        Rule rule = make_rule(filter->base, lists.exclude_non_recursive[i], lists.exclude_recursive[i]);
        if (!rule.valid) {
            debug::trace_bit(kTraceBit, "init_filter - exclude specification <%s> is not valid and never fits\n",
                             rule_text(rule).c_str());
        }
        filter->exclude.push_back(std::move(rule));
    }
    for (size_t i = 0; i < lists.include_non_recursive.size(); ++i) {
        Rule rule = make_rule(filter->base, lists.include_non_recursive[i], lists.include_recursive[i]);
        if (!rule.valid) {
            debug::trace_bit(kTraceBit, "init_filter - illegal include specification <%s>\n", rule_text(rule).c_str());
            err_add_error(ERR_FILTER_ILGSPEC, rule_text(rule).c_str());
            return 0;
        }
        filter->include_all_files = filter->include_all_files || pair_is_all(rule.relative_view(), rule.recursive);
        filter->include_all_dirs = filter->include_all_dirs || pair_is_all(rule.relative_view(), rule.recursive) ||
                                   pair_is_all_dirs(rule.relative_view(), rule.recursive);
        filter->include.push_back(std::move(rule));
    }
    return 1;
}

int read_keys(void *configuration, Filter *filter) {
    filter->case_sensitive = false;
    return read_bool(configuration, FILTER_CF_IGNORE_RECYCLE_DIR, &filter->ignore_recycle_dir) != 0 &&
           read_bool(configuration, FILTER_CF_IGNORE_CONFIG_DIR, &filter->ignore_config_dir) != 0 &&
           read_link_handling(configuration, FILTER_CF_LINKS_TO_FILES, &filter->links_to_files) != 0 &&
           read_link_handling(configuration, FILTER_CF_LINKS_TO_DIRS, &filter->links_to_dirs) != 0 &&
           read_bool(configuration, FILTER_CF_IGNORE_HIDDEN_FILES, &filter->ignore_hidden) != 0 &&
           read_bool(configuration, FILTER_CF_IGNORE_INVALID_NAMES, &filter->ignore_invalid_names) != 0 &&
           read_bool(configuration, FILTER_CF_IGNORE_MOUNT_POINTS, &filter->ignore_mount_points) != 0;
}

// The root of the base directory's volume: the base directory cut after its
// first backslash, else after its first slash, else with a separator added.
std::string volume_root(const std::string &base) {
    size_t cut = base.find('\\');
    if (cut == std::string::npos) {
        cut = base.find('/');
    }
    return cut == std::string::npos ? base + kSeparator : base.substr(0, cut + 1);
}

int read_volume(Filter *filter) {
    std::string root = volume_root(filter->base);
    std::string file_system;
    if (int32_t error = plat_fs_volume_name(root.c_str(), &file_system); error != 0) {
        raise::system(raise::Report::add, error);
        err_add_error(ERR_FIL_GETVOLINF, root.c_str());
        return 0;
    }
    filter->is_ntfs = plat_fs_has_system_dir_rules() && ascii::equal_nocase(file_system, "ntfs");
    filter->unix_keys = !plat_fs_has_system_dir_rules();
    return 1;
}

int build(void *configuration, Filter *filter) {
    if (read_string(configuration, FILTER_CF_BASE_DIRECTORY, &filter->base) == 0) {
        return 0;
    }
    if (!filter->base.empty() && filter->base.back() == kSeparator) {
        filter->base.pop_back();
    }
    filter->base_with_separator = filter->base + kSeparator;
    RuleLists lists;
    if (read_rule_lists(configuration, &lists, filter) == 0 || make_rules(lists, filter) == 0 ||
        read_keys(configuration, filter) == 0 || read_volume(filter) == 0) {
        return 0;
    }
    return read_bool(configuration, FILTER_CF_USE_UDL, &filter->use_udl);
}

}  // namespace
}  // namespace vq::filter

using namespace vq::filter;

extern "C" {

VQ_API const conf_table_row *vq_get_filter_cf_table(void) { return kFilterTable; }

VQ_API int32_t vq_get_filter_cf_keys_number(void) { return static_cast<int32_t>(std::size(kFilterTable)); }

VQ_API int init_filter(void **filter, void *configuration) {
    err_clear_error_stack();
    if (filter == nullptr || configuration == nullptr) {
        return null_parameter("init_filter", filter == nullptr ? "filter" : "configuration");
    }
    return guarded("init_filter", [&] {
        auto made = std::make_unique<Filter>();
        if (build(configuration, made.get()) == 0) {
            return 0;
        }
        *filter = made.release();
        return 1;
    });
}

VQ_API void close_filter(void *filter) {
    if (filter == nullptr) {
        return;
    }
    Filter *checked = checked_filter(filter, "close_filter");
    delete checked;
}

}  // extern "C"
