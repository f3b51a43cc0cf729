// What the parts of the include/exclude filter share: the filter handle, its
// rules, and the matching of one rule pair against an object below the base
// directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "internal/handle_tag.h"
#include "internal/raise.h"
#include "internal/trace.h"
#include "vq_glob/export.h"

namespace vq::filter {

inline constexpr int kTraceBit = debug::kChannelFilter;
inline constexpr char kSeparator = VQ_PATH_SEPARATOR;

// One rule pair. The non-recursive part is kept as configured behind the
// base directory and a separator (so traces show the full pattern); matching
// starts at relative_at, since the object's own path has been checked to
// begin with the same base directory already.
struct Rule {
    std::string non_recursive;
    size_t relative_at = 0;
    std::string recursive;
    // R holds no separator, so it can only ever fit the object's own name.
    bool recursive_is_name = false;
    // N's first element when it holds no wildcard (and N is not empty): an
    // object whose first element differs cannot match N at all, which is
    // known without the path matcher.
    std::string literal_first;
    // An invalid exclude pair is kept (its index still pairs the lists) but
    // never fits.
    bool valid = true;

    const char *relative() const { return non_recursive.c_str() + relative_at; }
    std::string_view relative_view() const { return std::string_view(non_recursive).substr(relative_at); }
};

struct Filter {
    tag::HandleTag tag{tag::Kind::filter};
    std::vector<Rule> exclude;
    std::string base;                 // "Base Directory" without its trailing separator
    std::string base_with_separator;  // base and one separator: what every kept name begins with
    bool case_sensitive = false;      // always false: every comparison ignores case
    std::vector<Rule> include;
    bool ignore_config_dir = false;
    bool ignore_recycle_dir = false;
    bool is_ntfs = false;
    bool include_all_files = false;
    bool include_all_dirs = false;
    bool ignore_hidden = false;
    bool ignore_mount_points = false;
    int32_t links_to_files = 0;
    int32_t links_to_dirs = 0;
    bool ignore_invalid_names = false;
    bool use_udl = false;
    std::vector<Rule> auto_exclude;
    std::string system_config_dir;
    // Whether the POSIX keys (hidden files, mount points, links) act here.
    bool unix_keys = false;
};
static_assert(std::is_standard_layout_v<Filter>, "the tag must sit at the filter's address");

// ---- Rules (rules.cpp) -------------------------------------------------------

// Whether the pair can be a rule: R not empty, neither part a full path or
// holding a ".." element.
bool pair_is_valid(std::string_view non_recursive, std::string_view recursive);
// Whether the pair takes in every object / every directory below the base.
bool pair_is_all(std::string_view non_recursive, std::string_view recursive);
bool pair_is_all_dirs(std::string_view non_recursive, std::string_view recursive);
// The rule for the pair, N stored behind base and a separator. Throws
// std::bad_alloc.
Rule make_rule(const std::string &base, std::string_view non_recursive, std::string_view recursive);
// "N|R", the way rules are named in traces and messages. Throws std::bad_alloc.
std::string pair_text(std::string_view non_recursive, std::string_view recursive);
std::string rule_text(const Rule &rule);

// A writable NUL-terminated copy of a text for the path matcher, which cuts
// its arguments at their separators. Short texts stay in the object itself,
// so a check costs no allocation. Throws std::bad_alloc for a long text.
class MatchBuffer {
public:
    MatchBuffer() = default;
    MatchBuffer(const MatchBuffer &) = delete;
    MatchBuffer &operator=(const MatchBuffer &) = delete;

    char *load(std::string_view text, bool add_separator);
    char *data() { return data_; }

private:
    char local_[512];
    std::unique_ptr<char[]> heap_;
    size_t capacity_ = sizeof local_;
    char *data_ = local_;
};

struct Scratch {
    MatchBuffer pattern;
    MatchBuffer name;
};

// An object below the base directory as the rules see it: its path relative
// to the base directory without a trailing separator, whether it is a
// directory (matched with a trailing separator), and where its own name
// begins in relative.
struct Candidate {
    std::string_view relative;
    bool is_dir = false;
    size_t name_at = 0;
};

Candidate make_candidate(std::string_view relative, bool is_dir);

// Whether rule fits candidate: 1 with *fits set, or 0 when the matcher
// failed (its error is on the stack).
int rule_fits(const Rule &rule, const Candidate &candidate, Scratch &scratch, bool *fits);
// Whether some object below candidate, a directory, could still fit rule:
// its non-recursive part matches the directory, a directory above it, or
// leads through it. 1 with *could set, or 0 when the matcher failed.
int rule_could_fit_below(const Rule &rule, const Candidate &candidate, Scratch &scratch, bool *could);

// The index of the first rule of rules that fits candidate, or -1; traces
// the fit. 1, or 0 when the matcher failed.
int first_fitting_rule(const std::vector<Rule> &rules, const Candidate &candidate, const char *name,
                       Scratch &scratch, int *index);

// ---- System rules and POSIX keys (system_rules.cpp) ---------------------------

// Whether the Windows system-directory rules leave path out (never on POSIX).
bool system_rules_skip(const Filter &filter, const char *path);

// What the POSIX keys make of an object, found with one lstat when a link
// key needs it.
struct ObjectFacts {
    bool is_dir = false;      // after the link keys: a link judged as a file is a file
    bool skip = false;        // left out by a link key or as hidden
    bool never_enter = false; // a link to a directory judged as a file
};
ObjectFacts unix_key_facts(const Filter &filter, const char *name, std::string_view element, bool is_dir);
// Whether the directory name lies on another device than its parent.
bool is_mount_point(const char *name);

// ---- Shared by the entry points --------------------------------------------------

// The filter behind a C handle, or null after a trace naming function and a
// PARAMS error (a NULL handle or one of another kind).
const Filter *checked_filter(const void *handle, const char *function);
Filter *checked_filter(void *handle, const char *function);
// A PARAMS error and trace for a NULL parameter of function; returns 0.
int null_parameter(const char *function, const char *argument);

// Runs body behind the C boundary: running out of memory becomes the
// library's memory error and a failure status.
template <typename Body>
int guarded(const char *function, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return raise::memory(raise::Report::add, function, "vq_filter", __LINE__);
    }
}

}  // namespace vq::filter
