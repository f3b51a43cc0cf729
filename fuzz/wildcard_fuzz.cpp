// Wildcard matchers on arbitrary patterns and names (filter rules and file
// names come from users and from the network).
//
// Input: one flag byte (bit 0 case-sensitive, bit 1 strike), then the pattern,
// a NUL byte, and the name. Besides running both matchers under the
// sanitizers, the target checks what must hold whatever the input:
//  - the name matcher agrees with a bottom-up form of the recursive rules;
//  - a case-sensitive match is also a case-blind one, and a match with the
//    strike rule also one without it;
//  - the path matcher returns 0 to 3 and sets only the rest its result names,
//    pointing inside the caller's buffer;
//  - where glibc's fnmatch has the same rules (tests/support/wildcard_fnmatch.h),
//    the name matcher answers as fnmatch does with flags 0, and a full path
//    match is fnmatch's match with FNM_PATHNAME.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../tests/support/wildcard_fnmatch.h"
#include "vq_glob/wildcard.h"

namespace {

constexpr size_t kReferenceLimit = 1024;

// The recursive matching rules evaluated bottom-up: after_star[i][j] tells
// whether the pattern from i (just behind a star) matches the name from some
// place k >= j before its end, which is exactly what the recursion tries at
// that star. Filled from the last star backwards, it takes pattern x name steps.
class Reference {
public:
    Reference(const std::string &pattern, const std::string &name, bool case_sensitive, bool strike)
        : p_(pattern),
          n_(name),
          case_sensitive_(case_sensitive),
          strike_(strike),
          after_star_(pattern.size() + 1) {}

    bool match() {
        for (size_t i = p_.size(); i > 0; --i) {
            if (p_[i - 1] != '*') {
                continue;
            }
            std::vector<char> &row = after_star_[i];
            row.assign(n_.size() + 1, 0);
            for (size_t j = n_.size(); j-- > 0;) {
                row[j] = static_cast<char>(row[j + 1] != 0 || walk(i, j));
            }
        }
        return walk(0, 0);
    }

private:
    char fold(char c) const {
        return !case_sensitive_ && c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    }

    // Walks to the next star, then asks whether the rest matches from some later place.
    bool walk(size_t p, size_t n) const {
        for (; p < p_.size() && p_[p] != '*'; ++p, ++n) {
            if (n == n_.size()) {
                return false;
            }
            bool same = p_[p] == '?' ? !(strike_ && n_[n] == '*') : fold(p_[p]) == fold(n_[n]);
            if (!same) {
                return false;
            }
        }
        if (p == p_.size()) {
            return n == n_.size();
        }
        if (n == n_.size()) {
            return p + 1 == p_.size();
        }
        if (p + 1 == p_.size()) {
            return true;
        }
        return after_star_[p + 1][n] != 0;
    }

    const std::string &p_;
    const std::string &n_;
    bool case_sensitive_;
    bool strike_;
    std::vector<std::vector<char>> after_star_;
};

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool inside(const char *p, const std::vector<char> &buffer) {
    return p >= buffer.data() && p < buffer.data() + buffer.size();
}

// Returns the path matcher's result after checking its rests.
int check_path_match(const std::string &pattern, const std::string &name, int case_sensitive, int strike) {
    std::vector<char> p(pattern.begin(), pattern.end()), n(name.begin(), name.end());
    p.push_back('\0');
    n.push_back('\0');
    char *rest_pattern = nullptr, *rest_name = nullptr;
    int result = str_iterative_match_wildcard_with_strike(p.data(), n.data(), case_sensitive, &rest_pattern,
                                                          &rest_name, strike);
    check(result >= WILDCARD_NO_MATCH && result <= WILDCARD_NAME_ABOVE);
    check((rest_name != nullptr) == (result == WILDCARD_NAME_BELOW));
    check((rest_pattern != nullptr) == (result == WILDCARD_NAME_ABOVE));
    check(rest_name == nullptr || inside(rest_name, n));
    check(rest_pattern == nullptr || inside(rest_pattern, p));
    return result;
}

// fnmatch recurses at every star, so only texts of reference size go to it.
void check_against_fnmatch(const std::string &pattern, const std::string &name, int case_sensitive) {
    if (!vq_test::fnmatch_comparable(pattern) || !vq_test::fnmatch_comparable(name)) {
        return;
    }
    int theirs = vq_test::fnmatch_result(vq_test::fnmatch_pattern(pattern, '\0'), name, case_sensitive, 0);
    check(theirs < 0 || match_wildcard(pattern.c_str(), name.c_str(), case_sensitive) == theirs);
    if (vq_test::path_comparable(name, VQ_PATH_SEPARATOR)) {
        theirs = vq_test::fnmatch_result(vq_test::fnmatch_pattern(pattern, VQ_PATH_SEPARATOR), name, case_sensitive,
                                         FNM_PATHNAME);
        check(theirs < 0 || (check_path_match(pattern, name, case_sensitive, 0) == WILDCARD_MATCH) == (theirs == 1));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    int case_sensitive = data[0] & 1;
    int strike = (data[0] >> 1) & 1;
    std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    size_t split = rest.find('\0');
    std::string pattern = rest.substr(0, split);
    std::string name = split == std::string::npos ? std::string() : rest.substr(split + 1);
    name = name.substr(0, name.find('\0'));

    int matched = match_wildcard_with_strike(pattern.c_str(), name.c_str(), case_sensitive, strike);
    check(matched == 0 || matched == 1);
    if (pattern.size() <= kReferenceLimit && name.size() <= kReferenceLimit) {
        check((matched == 1) == Reference(pattern, name, case_sensitive != 0, strike != 0).match());
        check_against_fnmatch(pattern, name, case_sensitive);
    }
    if (matched == 1) {
        check(match_wildcard_with_strike(pattern.c_str(), name.c_str(), 0, strike) == 1);
        check(match_wildcard(pattern.c_str(), name.c_str(), case_sensitive) == 1);
    }
    check(str_contain_wildcards(pattern.c_str()) == (pattern.find_first_of("*?") != std::string::npos));
    check_path_match(pattern, name, case_sensitive, strike);
    return 0;
}
