// Rule pairs of the filter: what makes a pair valid or all-embracing, and
// how one pair is matched against an object below the base directory.
//
// Matching goes through the library's path matcher, which works element by
// element. The non-recursive part N is matched against the object's relative
// path; a whole match hands the object's name to the recursive part R, a
// match of a leading directory hands R the rest of the path, which R may fit
// from its first element or from any deeper one. R always has to match what
// it is given whole: a star never crosses a separator, so R without a
// separator can only fit the object's name. That case is by far the most
// common one: the name is tested first, with the name matcher on the caller's
// own text, and the path matcher (which needs writable copies) runs only for
// names that fit. A literal first element of N rules out most other paths
// with one comparison.
#include <cstring>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_filter/filter_state.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/str.h"
#include "vq_glob/wildcard.h"

namespace vq::filter {
namespace {

bool only_stars(std::string_view text) { return text.find_first_not_of('*') == std::string_view::npos; }

bool is_rooted(std::string_view text) {
    return !text.empty() && (plat_path_is_separator(text.front()) || plat_path_drive_length(text.data()) > 0);
}

// rooted or climbing out with ".."; text must be NUL-terminated behind the view.
bool leaves_base(const std::string &text) {
    return is_rooted(text) || str_relative_up_dir_included(text.c_str()) != 0;
}

enum class Fit { none, whole, below, above };

struct PathMatch {
    Fit fit = Fit::none;
    size_t rest_at = 0;  // for below: where the rest of the path begins
};

// Matches pattern against text (a directory with a trailing separator) with
// the path matcher. 1, or 0 for a failure of the matcher.
int match_path(std::string_view pattern, std::string_view text, bool add_separator, Scratch &scratch,
               PathMatch *result) {
    char *p = scratch.pattern.load(pattern, false);
    char *n = scratch.name.load(text, add_separator);
    char *rest_pattern = nullptr;
    char *rest_name = nullptr;
    int code = str_iterative_match_wildcard(p, n, 0, &rest_pattern, &rest_name);
    switch (code) {
        case WILDCARD_NO_MATCH:
            result->fit = Fit::none;
            return 1;
        case WILDCARD_MATCH:
            result->fit = Fit::whole;
            return 1;
        case WILDCARD_NAME_BELOW:
            // A directory's trailing separator leaves an empty rest: the
            // directory itself is what matched.
            result->fit = *rest_name == '\0' ? Fit::whole : Fit::below;
            result->rest_at = static_cast<size_t>(rest_name - n);
            return 1;
        case WILDCARD_NAME_ABOVE:
            result->fit = Fit::above;
            return 1;
        default:
            debug::trace_bit(kTraceBit, "wrong return code <%d> from str_iterative_match_wildcard\n", code);
            err_add_error(ERR_FILTER_MORINFO, "wrong return code from str_iterative_match_wildcard");
            return 0;
    }
}

// False when N's literal first element rules the candidate out: the path
// matcher compares first elements before anything else that could match.
bool first_element_may_match(const Rule &rule, const Candidate &candidate) {
    if (rule.literal_first.empty()) {
        return true;
    }
    std::string_view first = candidate.relative.substr(0, candidate.relative.find(kSeparator));
    return ascii::equal_nocase(first, rule.literal_first);
}

// Whether R, free of separators, fits the candidate's own name.
bool name_fits(const Rule &rule, const Candidate &candidate, Scratch &scratch) {
    std::string_view name = candidate.relative.substr(candidate.name_at);
    if (name.empty()) {
        return false;
    }
    // The candidate's text ends the caller's NUL-terminated name, unless a
    // trailing separator was cut off it.
    const char *terminated = name.data()[name.size()] == '\0' ? name.data() : scratch.name.load(name, false);
    return match_wildcard(rule.recursive.c_str(), terminated, 0) != 0;
}

// Whether R fits the candidate's text from offset from on, whole.
int recursive_fits_at(const Rule &rule, const Candidate &candidate, size_t from, Scratch &scratch, bool *fits) {
    PathMatch match;
    if (match_path(rule.recursive, candidate.relative.substr(from), candidate.is_dir, scratch, &match) == 0) {
        return 0;
    }
    *fits = match.fit == Fit::whole;
    return 1;
}

// Whether R fits the rest of the path from rest_at, or from a deeper level.
int recursive_fits_below(const Rule &rule, const Candidate &candidate, size_t rest_at, Scratch &scratch,
                         bool *fits) {
    *fits = false;
    for (size_t from = rest_at; from <= candidate.name_at && !*fits;) {
        if (recursive_fits_at(rule, candidate, from, scratch, fits) == 0) {
            return 0;
        }
        size_t separator = candidate.relative.find(kSeparator, from);
        if (separator == std::string_view::npos) {
            break;
        }
        from = separator + 1;
    }
    return 1;
}

}  // namespace

char *MatchBuffer::load(std::string_view text, bool add_separator) {
    size_t needed = text.size() + (add_separator ? 2 : 1);
    if (needed > capacity_) {
        heap_ = std::make_unique<char[]>(needed);
        capacity_ = needed;
        data_ = heap_.get();
    }
    std::memcpy(data_, text.data(), text.size());
    size_t end = text.size();
    if (add_separator) {
        data_[end++] = kSeparator;
    }
    data_[end] = '\0';
    return data_;
}

bool pair_is_valid(std::string_view non_recursive, std::string_view recursive) {
    return !recursive.empty() && !leaves_base(std::string(non_recursive)) && !leaves_base(std::string(recursive));
}

bool pair_is_all(std::string_view non_recursive, std::string_view recursive) {
    return only_stars(non_recursive) && !recursive.empty() && only_stars(recursive);
}

bool pair_is_all_dirs(std::string_view non_recursive, std::string_view recursive) {
    return only_stars(non_recursive) && recursive.size() >= 2 && recursive.back() == kSeparator &&
           only_stars(recursive.substr(0, recursive.size() - 1));
}

Rule make_rule(const std::string &base, std::string_view non_recursive, std::string_view recursive) {
    Rule rule;
    rule.non_recursive.reserve(base.size() + 1 + non_recursive.size());
    rule.non_recursive.append(base).append(1, kSeparator).append(non_recursive);
    rule.relative_at = base.size() + 1;
    rule.recursive.assign(recursive);
    rule.recursive_is_name = recursive.find(kSeparator) == std::string_view::npos;
    std::string_view first = non_recursive.substr(0, non_recursive.find(kSeparator));
    if (!first.empty() && first.find_first_of("*?") == std::string_view::npos) {
        rule.literal_first.assign(first);
    }
    rule.valid = pair_is_valid(non_recursive, recursive);
    return rule;
}

std::string pair_text(std::string_view non_recursive, std::string_view recursive) {
    std::string text;
    text.reserve(non_recursive.size() + recursive.size() + 1);
    return text.append(non_recursive).append(1, '|').append(recursive);
}

std::string rule_text(const Rule &rule) { return pair_text(rule.relative_view(), rule.recursive); }

Candidate make_candidate(std::string_view relative, bool is_dir) {
    Candidate candidate;
    if (is_dir && !relative.empty() && relative.back() == kSeparator) {
        relative.remove_suffix(1);
    }
    candidate.relative = relative;
    candidate.is_dir = is_dir;
    size_t separator = relative.rfind(kSeparator);
    candidate.name_at = separator == std::string_view::npos ? 0 : separator + 1;
    return candidate;
}

int rule_fits(const Rule &rule, const Candidate &candidate, Scratch &scratch, bool *fits) {
    *fits = false;
    if (!rule.valid || !first_element_may_match(rule, candidate)) {
        return 1;
    }
    // R that names the object fits whether N selects the object or a
    // directory above it: the cheap test on the name comes first.
    if (rule.recursive_is_name && !name_fits(rule, candidate, scratch)) {
        return 1;
    }
    PathMatch match;
    if (match_path(rule.relative_view(), candidate.relative, candidate.is_dir, scratch, &match) == 0) {
        return 0;
    }
    if (rule.recursive_is_name) {
        *fits = match.fit == Fit::whole || match.fit == Fit::below;
        return 1;
    }
    if (match.fit == Fit::whole) {
        return recursive_fits_at(rule, candidate, candidate.name_at, scratch, fits);
    }
    if (match.fit == Fit::below) {
        return recursive_fits_below(rule, candidate, match.rest_at, scratch, fits);
    }
    return 1;
}

int rule_could_fit_below(const Rule &rule, const Candidate &candidate, Scratch &scratch, bool *could) {
    *could = false;
    if (!rule.valid || !first_element_may_match(rule, candidate)) {
        return 1;
    }
    PathMatch match;
    if (match_path(rule.relative_view(), candidate.relative, true, scratch, &match) == 0) {
        return 0;
    }
    *could = match.fit != Fit::none;
    return 1;
}

int first_fitting_rule(const std::vector<Rule> &rules, const Candidate &candidate, const char *name,
                       Scratch &scratch, int *index) {
    *index = -1;
    for (size_t i = 0; i < rules.size(); ++i) {
        bool fits = false;
        if (rule_fits(rules[i], candidate, scratch, &fits) == 0) {
            return 0;
        }
        if (fits) {
            debug::trace_bit(kTraceBit, "check_skip_by_lists: element <%s> fits the current spec <%s>, <%s> - exiting...\n",
                             name, rules[i].non_recursive.c_str(), rules[i].recursive.c_str());
            *index = static_cast<int>(i);
            return 1;
        }
    }
    return 1;
}

const Filter *checked_filter(const void *handle, const char *function) {
    if (handle == nullptr) {
        debug::trace_bit(kTraceBit, "%s - NULL handle\n", function);
        raise::params(raise::Report::add, function, "filter");
        return nullptr;
    }
    if (!tag::is(handle, tag::Kind::filter)) {
        debug::trace_bit(kTraceBit, "%s - not a filter handle\n", function);
        raise::params(raise::Report::add, function, "filter");
        return nullptr;
    }
    return static_cast<const Filter *>(handle);
}

Filter *checked_filter(void *handle, const char *function) {
    return const_cast<Filter *>(checked_filter(static_cast<const void *>(handle), function));
}

int null_parameter(const char *function, const char *argument) {
    debug::trace_bit(kTraceBit, "%s - NULL parameter\n", function);
    return raise::params(raise::Report::add, function, argument);
}

}  // namespace vq::filter

extern "C" {

VQ_API int include_spec_is_all(const char *non_recursive, const char *recursive, int32_t *is_all) {
    if (non_recursive == nullptr || recursive == nullptr || is_all == nullptr) {
        return vq::filter::null_parameter(
            "include_spec_is_all",
            non_recursive == nullptr ? "non_recursive" : (recursive == nullptr ? "recursive" : "is_all"));
    }
    *is_all = vq::filter::pair_is_all(non_recursive, recursive) ? 1 : 0;
    return 1;
}

}  // extern "C"
