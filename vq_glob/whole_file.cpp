// The error-stack lines of a whole-file read that did not succeed.
#include "internal/whole_file.h"

#include <string>

#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::whole_file {
namespace {

int refused(const std::string &reason) {
    err_set_error(ERR_SYS_ERRMSG, reason.c_str());
    return 0;
}

}  // namespace

int raise_refusal(PlatWholeRead how, const char *name, size_t limit, int32_t error) {
    switch (how) {
        case PlatWholeRead::ok:
            return 1;
        case PlatWholeRead::not_regular:
            return refused(std::string(name) + " is not a regular file");
        case PlatWholeRead::too_large:
            return refused(std::string(name) + " is larger than " + std::to_string(limit) + " bytes");
        case PlatWholeRead::open_failed:
        case PlatWholeRead::read_failed:
            break;
    }
    return raise::system(raise::Report::fresh, error);
}

}  // namespace vq::whole_file
