// Automatic exclusions: rules read from the controller's ignore list in a
// working directory and added behind the configured exclude rules. The file
// is read whole (a regular file of at most 1 MiB: a fifo or a device cannot
// hang the reader) and every line is checked before any rule is added, so a
// bad file leaves the filter as it was.
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "internal/whole_file.h"
#include "platform/platform.h"
#include "vq_filter/filter_state.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"

namespace vq::filter {
namespace {

constexpr size_t kLimit = 1024 * 1024;

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (ascii::is_blank(text.front()) || text.front() == '\r')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (ascii::is_blank(text.back()) || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

// The rules of the file's text; 0 with ERR_FILTER_ILGSPEC for the first line
// that is no valid rule.
int parse_rules(const Filter &filter, std::string_view text, const std::string &file, std::vector<Rule> *rules) {
    int line_number = 0;
    while (!text.empty()) {
        size_t end = text.find('\n');
        std::string_view line = trimmed(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        ++line_number;
        if (line.empty() || line.front() == '#') {
            continue;
        }
        size_t bar = line.find('|');
        std::string_view non_recursive = trimmed(line.substr(0, bar));
        std::string_view recursive = bar == std::string_view::npos ? "*" : trimmed(line.substr(bar + 1));
        Rule rule = make_rule(filter.base, non_recursive, recursive);
        if (!rule.valid || line.find('\0') != std::string_view::npos) {
            std::string where = file + " line " + std::to_string(line_number) + ": " + rule_text(rule);
            debug::trace_bit(kTraceBit, "set_auto_exclude - illegal specification in <%s>\n", where.c_str());
            err_add_error(ERR_FILTER_ILGSPEC, where.c_str());
            return 0;
        }
        rules->push_back(std::move(rule));
    }
    return 1;
}

int add_from_file(Filter &filter, const char *working_directory) {
    std::string file(working_directory);
    if (!file.empty() && !plat_path_is_separator(file.back())) {
        file += kSeparator;
    }
    file += FILTER_AUTO_EXCLUDE_FILE;
    std::string text;
    int32_t error = 0;
    PlatWholeRead how = plat_read_regular_file(file.c_str(), kLimit, text, &error);
    if (how == PlatWholeRead::open_failed && plat_is_file_not_found_error(error)) {
        debug::trace_bit(kTraceBit, "set_auto_exclude - no <%s>, nothing to add\n", file.c_str());
        return 1;
    }
    if (how != PlatWholeRead::ok) {
        whole_file::raise_refusal(how, file.c_str(), kLimit, error);
        err_add_error(ERR_FIL_OPEN, file.c_str());
        return 0;
    }
    std::vector<Rule> rules;
    if (parse_rules(filter, text, file, &rules) == 0) {
        return 0;
    }
    filter.auto_exclude.reserve(filter.auto_exclude.size() + rules.size());
    for (Rule &rule : rules) {
        filter.auto_exclude.push_back(std::move(rule));
    }
    debug::trace_bit(kTraceBit, "set_auto_exclude - %d rules added from <%s>\n", static_cast<int>(rules.size()),
                     file.c_str());
    return 1;
}

}  // namespace
}  // namespace vq::filter

using namespace vq::filter;

extern "C" {

VQ_API int set_auto_exclude(void *filter, const char *working_directory) {
    Filter *checked = checked_filter(filter, "set_auto_exclude");
    if (checked == nullptr) {
        return 0;
    }
    if (working_directory == nullptr) {
        return null_parameter("set_auto_exclude", "working_directory");
    }
    return guarded("set_auto_exclude", [&] { return add_from_file(*checked, working_directory); });
}

}  // extern "C"
