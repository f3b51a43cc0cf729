/* vq_glob: the foundation library of a file-replication product.
 * Including this header gives every public family. */
#ifndef VQ_GLOB_H
#define VQ_GLOB_H

#include "vq_glob/export.h"
#include "vq_glob/glob.h"
#include "vq_glob/err_codes.h"
#include "vq_glob/err.h"
#include "vq_glob/dbg.h"
#include "vq_glob/memory.h"
#include "vq_glob/llist.h"
#include "vq_glob/mlist.h"
#include "vq_glob/hash.h"
#include "vq_glob/hex.h"
#include "vq_glob/str.h"
#include "vq_glob/wildcard.h"
#include "vq_glob/tvtime.h"
#include "vq_glob/api.h"
#include "vq_glob/gm.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/rep_var.h"
#include "vq_glob/slbn.h"
#include "vq_glob/conf.h"
#include "vq_glob/cconf.h"
#include "vq_glob/cli.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"
#include "vq_glob/sle.h"
#include "vq_glob/env.h"
#include "vq_glob/dir.h"
#include "vq_glob/filter.h"
#include "vq_glob/reg.h"

#endif /* VQ_GLOB_H */
