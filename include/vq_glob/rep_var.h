/* "%" variable substitution in templates such as command lines and file names.
 *
 * A template names a variable as "%" and one character; the caller passes a
 * table of (key, value) pairs. Only the low byte of a key counts, and the
 * first pair whose key matches the character wins. "%%" gives one "%", a "%"
 * with no pair for its character stays as written ("%q" gives "%q"), and a
 * lone "%" ending the template stays a "%". Values are inserted as they are
 * and never expanded again. A table may be NULL when count is 0; a negative
 * count, a NULL template or a NULL table with a positive count is a PARAMS
 * error (ERR_GEN_PARAMS), and so is a NULL value when its pair is the one used. */
#ifndef VQ_GLOB_REP_VAR_H
#define VQ_GLOB_REP_VAR_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* One variable: key (low byte only) and its value text. */
typedef struct {
    int32_t key;
    const char *value;
} rep_var;

/* The expansion as a new text that the caller releases with free(); an empty
 * template gives "". NULL on failure: PARAMS, or MEMORY (ERR_GEN_MEMORY). */
VQ_API char *dyn_replace_variables(const char *template_text, const rep_var *table, int32_t count);
/* Writes the expansion with its NUL into target, which must hold at least
 * strlen(expansion) + 1 bytes: at most strlen(template) + 1 plus the length of
 * the longest value for each "%" in the template. Prefer the bounded form.
 * 1, or 0 with target untouched. */
VQ_API int replace_variables(char *target, const char *template_text, const rep_var *table, int32_t count);
/* As replace_variables, but never writes past target[size - 1]: an expansion
 * that needs more than size bytes (its NUL included) fails with a GENERAL
 * error (ERR_GEN_GENERAL) naming both sizes and leaves target untouched. When
 * needed is not NULL it receives the size the expansion needs, NUL included,
 * whether it fitted or not (0 when the expansion itself failed). */
VQ_API int replace_variables_n(char *target, size_t size, const char *template_text, const rep_var *table,
                               int32_t count, size_t *needed);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_REP_VAR_H */
