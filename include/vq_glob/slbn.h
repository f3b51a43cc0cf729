/* Big numbers: signed decimal integers of any length, as the big-integer
 * fields of configuration files hold them.
 *
 * A number is an opaque object made by slbn_new, slbn_from_string,
 * slbn_from_int64 or slbn_copy and released with slbn_free. Its decimal text
 * is an optional "+" or "-" followed by one or more digits 0-9 and nothing
 * else: no blanks, no empty text, no other base. Leading zeros are read and
 * dropped; "-0" is zero. Texts print without a "+" or leading zeros, and zero
 * prints as "0". Failures return 0 (or NULL) and leave a coded message on the
 * error stack: ERR_GEN_PARAMS for a NULL argument or a handle that is not a
 * live number, ERR_GEN_GENERAL naming the problem for a text that is not a
 * number or a value out of range, ERR_GEN_MEMORY. A failed call leaves its
 * output unchanged. A number may be read from several threads at once;
 * changing it needs the caller's own lock.
 *
 * Handle checks: every function checks that each number it takes was made
 * here and not yet freed; another kind of handle, or a freed number, is
 * refused like NULL (a PARAMS error naming the function and the argument).
 * Not detected: a pointer to unreadable memory or to memory that never was a
 * number but begins with a number's tag, and a freed number whose memory was
 * given to a new number. */
#ifndef VQ_GLOB_SLBN_H
#define VQ_GLOB_SLBN_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

typedef struct slbn slbn;

/* A new number holding zero; NULL when out of memory. */
VQ_API slbn *slbn_new(void);
/* A new number read from its decimal text (rules above); NULL on failure. */
VQ_API slbn *slbn_from_string(const char *text);
/* A new number holding value; NULL when out of memory. */
VQ_API slbn *slbn_from_int64(int64_t value);
/* A new number equal to number; NULL on failure. */
VQ_API slbn *slbn_copy(const slbn *number);
/* Releases number; NULL is ignored, anything but a live number refused
 * (PARAMS) and left alone. */
VQ_API void slbn_free(slbn *number);

/* Replaces number's value by the one text reads (rules above). 1, or 0 with
 * number unchanged. */
VQ_API int slbn_set_string(slbn *number, const char *text);
/* The decimal text as a new text that the caller releases with free(); NULL on
 * failure. */
VQ_API char *slbn_to_string(const slbn *number);
/* Stores number in *value. 1, or 0 with a GENERAL error and *value unchanged
 * when it lies outside INT64_MIN..INT64_MAX. */
VQ_API int slbn_to_int64(const slbn *number, int64_t *value);

/* -1, 0 or 1 as a is less than, equal to or greater than b. A NULL argument
 * (or one that is not a live number) pushes a PARAMS error and orders before
 * every number (two such arguments are equal). */
VQ_API int32_t slbn_compare(const slbn *a, const slbn *b);
/* -1, 0 or 1 as number is negative, zero or positive; 0 with a PARAMS error
 * for NULL. */
VQ_API int32_t slbn_sign(const slbn *number);

/* result = a + b / result = a - b. result may be a or b. 1, or 0 with result
 * unchanged. */
VQ_API int slbn_add(slbn *result, const slbn *a, const slbn *b);
VQ_API int slbn_subtract(slbn *result, const slbn *a, const slbn *b);
/* number += value. 1, or 0 with number unchanged. */
VQ_API int slbn_add_int64(slbn *number, int64_t value);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_SLBN_H */
