/* Wildcard matching of names and of separator-separated paths.
 *
 * Patterns know two wildcards: "?" matches exactly one character and "*" any
 * run of characters (also none, also a separator: a name match knows nothing
 * of paths). Every other byte, "%" and "\" included, stands for itself; there
 * is no escape and no character class. Without case sensitivity only the ASCII
 * letters a-z and A-Z are folded; bytes of 0x80 and above compare exactly.
 *
 * Details that differ from shell globbing, on purpose:
 *  - a NULL pattern or name matches anything;
 *  - with the strike flag set, "?" does not match a literal "*" in the name
 *    (a "*" in the pattern still does);
 *  - a run of two or more stars at the end of a pattern needs at least one
 *    character left to match: "a**" matches "ab" but not "a" (a single
 *    trailing star matches an empty remainder).
 * Cost: matching a name is linear for runs of "?" and for texts between stars
 * that can begin at few places, and proportional to the product of the two
 * lengths at worst (a text between stars that almost matches everywhere); no
 * pattern makes it backtrack exponentially. A path match measures both texts
 * once and then costs no more than matching its elements. */
#ifndef VQ_GLOB_WILDCARD_H
#define VQ_GLOB_WILDCARD_H

#include "vq_glob/export.h"


/* Results of the path matchers. */
#define WILDCARD_NO_MATCH 0
#define WILDCARD_MATCH 1
#define WILDCARD_NAME_BELOW 2 /* the name lies below a matching directory; rest_name is set */
#define WILDCARD_NAME_ABOVE 3 /* the name is an ancestor of what the pattern selects; rest_pattern is set */

VQ_EXTERN_C_BEGIN

/* 1 when name matches pattern, else 0; case_sensitive 0 folds ASCII letters. */
VQ_API int match_wildcard(const char *pattern, const char *name, int case_sensitive);
/* As match_wildcard; with strike non-zero "?" does not match a "*" in the name. */
VQ_API int match_wildcard_with_strike(const char *pattern, const char *name, int case_sensitive, int strike);

/* Matches a path pattern against a path element by element and returns one of
 * the WILDCARD_ results. Both texts must be writable: the separators examined
 * are overwritten with NUL. For result 2 *rest_name, for result 3
 * *rest_pattern, is set to the unmatched remainder inside the caller's buffer;
 * the rest pointers are otherwise left as they were, and a NULL rest pointer is
 * not written. Equal remainders (case as the flag says) match at once; an
 * empty pattern remainder gives 2, an empty name remainder 3. Once neither
 * remainder holds a separator, the two last elements are matched without the
 * strike rule. A NULL pattern or name is an error: 0 with a PARAMS error.
 * Steps are traced on the FILTER channel (bit 56). */
VQ_API int str_iterative_match_wildcard(char *pattern, char *name, int case_sensitive, char **rest_pattern,
                                        char **rest_name);
/* As str_iterative_match_wildcard, with the strike rule for the elements
 * matched before both paths are down to their last element. */
VQ_API int str_iterative_match_wildcard_with_strike(char *pattern, char *name, int case_sensitive,
                                                    char **rest_pattern, char **rest_name, int strike);

/* Non-zero when text holds "*" or "?"; 0 otherwise (NULL: 0 with a PARAMS error). */
VQ_API int str_contain_wildcards(const char *text);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_WILDCARD_H */
