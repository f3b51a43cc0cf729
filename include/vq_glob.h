/* vq_glob: the foundation library of a file-replication product.
 * Including this header gives every public family. */
#ifndef VQ_GLOB_H
#define VQ_GLOB_H

#include "vq_glob/export.h"
#include "vq_glob/glob.h"
#include "vq_glob/err.h"
#include "vq_glob/dbg.h"
#include "vq_glob/memory.h"
#include "vq_glob/llist.h"

#endif /* VQ_GLOB_H */
