/* Hexadecimal text of byte runs. */
#ifndef VQ_GLOB_HEX_H
#define VQ_GLOB_HEX_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* The count bytes as 2*count upper-case hexadecimal digits, in a per-thread
 * buffer that the next call on the thread overwrites; "" for NULL bytes, a
 * negative count or no memory. */
VQ_API const char *convert_to_hex(const unsigned char *bytes, int32_t count);
/* Reads hexadecimal digits (either case, an even number of them) into out,
 * at most size bytes; *count receives the bytes written. 1, or 0 with a
 * ERR_GEN_PARAMS for an odd length, a non-digit or too small an out. */
VQ_API int convert_from_hex(const char *text, unsigned char *out, int32_t size, int32_t *count);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_HEX_H */
