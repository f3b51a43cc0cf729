// Conversions between the old single-specification form of the rules (one
// comma-separated text and a recursive flag) and the pair-of-lists form.
//
// Old non-recursive element x is the pair (x, "*"): what x selects and all
// below it. Old recursive element y is ("*", y): the names y at every level.
// Going back, a list of pairs is old-form only when all of its pairs have one
// of these two shapes.
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "vq_filter/filter_state.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/memory.h"
#include "vq_glob/mlist.h"
#include "vq_glob/str.h"

namespace vq::filter {
namespace {

struct Side {
    const char *old_to_new;
    const char *new_to_old;
    uint32_t failure;
};

constexpr Side kInclude{"convert_include_old_to_new", "convert_include_new_to_old", ERR_FILTER_FAIL_CNV_INC};
constexpr Side kExclude{"convert_exclude_old_to_new", "convert_exclude_new_to_old", ERR_FILTER_FAIL_CNV_EXC};

std::string_view without_trailing_separator(const char *base) {
    std::string_view text = base != nullptr ? base : "";
    if (!text.empty() && text.back() == kSeparator) {
        text.remove_suffix(1);
    }
    return text;
}

// element with a leading base directory and separator removed.
std::string_view below_base(std::string_view element, std::string_view base) {
    if (!base.empty() && element.size() > base.size() && element[base.size()] == kSeparator &&
        ascii::starts_with_nocase(element, base)) {
        element.remove_prefix(base.size() + 1);
    } else if (!base.empty() && ascii::equal_nocase(element, base)) {
        return std::string_view();  // the base directory itself names no rule
    }
    return element;
}

int report_failures(const Side &side, bool from_old, const std::vector<std::string> &failed) {
    for (const std::string &text : failed) {
        debug::trace_bit(kTraceBit, "%s - cannot convert <%s>\n", from_old ? side.old_to_new : side.new_to_old,
                         text.c_str());
        err_add_error(side.failure, text.c_str());
    }
    return 0;
}

// Two new ml_ lists holding the pairs; 0 with the memory error.
int hand_out(const std::vector<std::string> &non_recursive, const std::vector<std::string> &recursive,
             char ***non_recursive_out, char ***recursive_out) {
    char **first = nullptr;
    char **second = nullptr;
    bool made = ml_init_list(0, &first) != 0 && ml_init_list(0, &second) != 0;
    for (size_t i = 0; made && i < non_recursive.size(); ++i) {
        made = ml_add_element(&first, non_recursive[i].c_str()) != 0 &&
               ml_add_element(&second, recursive[i].c_str()) != 0;
    }
    if (!made) {
        ml_free(first);
        ml_free(second);
        return 0;
    }
    *non_recursive_out = first;
    *recursive_out = second;
    return 1;
}

int old_to_new(const Side &side, const char *old_spec, const char *base, int32_t recursive,
               char ***non_recursive_out, char ***recursive_out) {
    if (non_recursive_out == nullptr || recursive_out == nullptr) {
        return null_parameter(side.old_to_new, non_recursive_out == nullptr ? "non_recursive" : "recursive_list");
    }
    std::vector<std::string> elements;
    if (old_spec != nullptr) {
        char **list = nullptr;
        if (str_convert_string_to_list(old_spec, &list) == 0) {
            return 0;
        }
        for (char **item = list; *item != nullptr; ++item) {
            elements.emplace_back(*item);
        }
        ml_free(list);
    }
    std::string_view base_text = without_trailing_separator(base);
    std::vector<std::string> non_recursive, recursive_parts, failed;
    for (const std::string &element : elements) {
        std::string_view part = below_base(element, base_text);
        std::string_view first = recursive != 0 ? std::string_view("*") : part;
        std::string_view second = recursive != 0 ? part : std::string_view("*");
        if (part.empty() || !pair_is_valid(first, second)) {
            failed.push_back(element);
            continue;
        }
        non_recursive.emplace_back(first);
        recursive_parts.emplace_back(second);
    }
    if (!failed.empty()) {
        return report_failures(side, true, failed);
    }
    return hand_out(non_recursive, recursive_parts, non_recursive_out, recursive_out);
}

bool all_equal_to_star(char **list) {
    for (char **item = list; item != nullptr && *item != nullptr; ++item) {
        if (std::string_view(*item) != "*") {
            return false;
        }
    }
    return true;
}

// Whether the old form's comma-separated text carries element unchanged.
bool carriable(std::string_view element) {
    return !element.empty() && element.find(',') == std::string_view::npos && !ascii::is_blank(element.front()) &&
           !ascii::is_blank(element.back());
}

int new_to_old(const Side &side, char **non_recursive, char **recursive_list, const char *base, char **old_spec,
               int32_t *recursive) {
    if (old_spec == nullptr || recursive == nullptr) {
        return null_parameter(side.new_to_old, old_spec == nullptr ? "old_spec" : "recursive");
    }
    int32_t count = ml_list_count(non_recursive);
    if (count != ml_list_count(recursive_list)) {
        debug::trace_bit(kTraceBit, "%s - recursive list and non recursive list are of different sizes\n",
                         side.new_to_old);
        err_add_error(ERR_FILTER_SPEC_MISMATCH);
        return 0;
    }
    bool non_recursive_form = all_equal_to_star(recursive_list);
    bool recursive_form = !non_recursive_form && all_equal_to_star(non_recursive);
    char **elements = non_recursive_form ? non_recursive : recursive_list;
    std::vector<std::string> failed;
    for (int32_t i = 0; i < count; ++i) {
        bool fits_form = non_recursive_form || recursive_form;
        bool either_shape = std::string_view(recursive_list[i]) == "*" || std::string_view(non_recursive[i]) == "*";
        if ((fits_form && !carriable(elements[i])) || (!fits_form && !either_shape)) {
            failed.push_back(pair_text(non_recursive[i], recursive_list[i]));
        }
    }
    if (failed.empty() && !non_recursive_form && !recursive_form) {
        // Every pair has one of the two shapes, but not all the same one.
        std::string all;
        for (int32_t i = 0; i < count; ++i) {
            all.append(i > 0 ? "," : "").append(pair_text(non_recursive[i], recursive_list[i]));
        }
        failed.push_back(all);
    }
    if (!failed.empty()) {
        return report_failures(side, false, failed);
    }
    std::string_view base_text = without_trailing_separator(base);
    std::string joined;
    for (int32_t i = 0; i < count; ++i) {
        joined.append(i > 0 ? "," : "");
        if (!base_text.empty()) {
            joined.append(base_text).append(1, kSeparator);
        }
        joined.append(elements[i]);
    }
    char *copy = sl_strdup(joined.c_str());
    if (copy == nullptr) {
        return raise::memory(raise::Report::add, side.new_to_old, "vq_filter", __LINE__);
    }
    *old_spec = copy;
    *recursive = recursive_form ? 1 : 0;
    return 1;
}

}  // namespace
}  // namespace vq::filter

using namespace vq::filter;

extern "C" {

VQ_API int convert_include_old_to_new(const char *old_spec, const char *base, int32_t recursive,
                                      char ***non_recursive, char ***recursive_list) {
    return guarded(kInclude.old_to_new,
                   [&] { return old_to_new(kInclude, old_spec, base, recursive, non_recursive, recursive_list); });
}

VQ_API int convert_exclude_old_to_new(const char *old_spec, const char *base, int32_t recursive,
                                      char ***non_recursive, char ***recursive_list) {
    return guarded(kExclude.old_to_new,
                   [&] { return old_to_new(kExclude, old_spec, base, recursive, non_recursive, recursive_list); });
}

VQ_API int convert_include_new_to_old(char **non_recursive, char **recursive_list, const char *base,
                                      char **old_spec, int32_t *recursive) {
    return guarded(kInclude.new_to_old,
                   [&] { return new_to_old(kInclude, non_recursive, recursive_list, base, old_spec, recursive); });
}

VQ_API int convert_exclude_new_to_old(char **non_recursive, char **recursive_list, const char *base,
                                      char **old_spec, int32_t *recursive) {
    return guarded(kExclude.new_to_old,
                   [&] { return new_to_old(kExclude, non_recursive, recursive_list, base, old_spec, recursive); });
}

}  // extern "C"
