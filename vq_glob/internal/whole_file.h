// The reasons a whole-file read (plat_read_regular_file) refused or failed,
// as lines of the error stack. Every module that reads a named file whole
// reports the same reasons in the same words, with its own line above them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"

namespace vq::whole_file {

// Pushes, on a fresh error stack, why reading name whole (at most limit
// bytes) ended as how: "<name> is not a regular file", "<name> is larger than
// <limit> bytes", or the system's text for error after a failed open or read,
// each as ERR_SYS_ERRMSG. Returns 0, the failure status, for the caller to
// add its own line naming the file; 1 with nothing pushed for
// PlatWholeRead::ok. Throws std::bad_alloc when the text cannot be built.
int raise_refusal(PlatWholeRead how, const char *name, size_t limit, int32_t error);

}  // namespace vq::whole_file
