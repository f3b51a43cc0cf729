/* Library frame: process and thread start-up and shut-down.
 *
 * The library starts itself when it is loaded (the DLL entry point on
 * Windows, a shared-library constructor on POSIX) and gives every thread its
 * per-thread block on the thread's first call, so programs rarely call these
 * directly. All return 1 for success and 0 for failure. */
#ifndef VQ_GLOB_GLOB_H
#define VQ_GLOB_GLOB_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Allocates the thread-local index and runs every module's process start-up
 * in the fixed module order, stopping at the first module that fails. */
VQ_API int init_glob(void);

/* Runs every module's process shut-down in the same order; always 1. The
 * thread-local index itself stays allocated. */
VQ_API int clean_glob(void);

/* Creates the calling thread's block and runs every module's thread start-up;
 * 0 when the block cannot be allocated or a module fails (the block then
 * stays, partly filled). */
VQ_API int init_glob_thread(void);

/* Releases the calling thread's block after every module's thread clean-up;
 * 0 when the thread has no block. The next call into the library on this
 * thread creates a fresh block. */
VQ_API int clean_glob_thread(void);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_GLOB_H */
