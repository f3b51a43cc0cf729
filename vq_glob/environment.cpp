// Environment queries: who and where the process runs. Every answer is kept
// whole in a per-thread buffer of its own, so that a caller's pointer stays
// valid until it asks the same question again on the same thread.
#include <string>

#include "internal/frame.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_glob/env.h"
#include "vq_glob/err.h"

namespace vq::env {
namespace {

struct Record {
    std::string user_name;
    std::string home_dir;
    std::string host_name;
    std::string domain_name;
    std::string os_version;
    std::string cwd;
};

using Frame = frame::ModuleFrame<Record, frame::kSlotEnv, frame::OnDemand::yes>;

// A query whose system message says all: no line of the module's own.
constexpr uint32_t kNoLine = 0;

// The system's text for error, then code with its argument (code alone for
// a value the system does not have). Returns null, the failure result of
// every query.
const char *fail(int32_t error, uint32_t code, const char *argument) {
    if (error != kPlatEnvNoEntry) {
        char text[1024];
        plat_env_error_text(error, text, sizeof text);
        err_set_error(ERR_SYS_ERRMSG, text);
        if (code != kNoLine) {
            err_add_error(code, argument);
        }
    } else {
        err_set_error(code, argument);
    }
    return nullptr;
}

// Runs query into the thread's buffer field: the buffer's text, or null with
// code (and the system's reason) on the error stack. The buffer keeps its
// old value when the query fails.
template <typename Query>
const char *answer(std::string Record::*field, Query query, uint32_t code, const char *argument) {
    Record *record = Frame::get();
    if (record == nullptr) {
        vq::raise::memory(vq::raise::Report::fresh, "env", "environment", __LINE__);
        return nullptr;
    }
    std::string value;
    if (int32_t error = query(&value); error != 0) {
        return fail(error, code, argument);
    }
    (record->*field).swap(value);
    return (record->*field).c_str();
}

}  // namespace
}  // namespace vq::env

namespace vq::frame {
constinit const Module kEnvModule = env::Frame::module("env");
}  // namespace vq::frame

using vq::env::answer;
using vq::env::Record;

extern "C" {

VQ_API const char *env_get_user_name(void) {
    return answer(&Record::user_name, plat_env_user_name, ERR_ENV_GETPWUID, plat_env_user_id().c_str());
}

VQ_API const char *env_get_home_dir(void) {
    return answer(&Record::home_dir, plat_env_home_dir, ERR_ENV_GETHDIR, plat_env_user_id().c_str());
}

VQ_API const char *env_get_host_name(void) {
    return answer(
        &Record::host_name,
        [](std::string *out) {
            int32_t error = plat_env_host_name(out);
            // The short name: the domain a system keeps in its host name goes.
            if (error == 0) {
                out->erase(out->find('.') == std::string::npos ? out->size() : out->find('.'));
            }
            return error;
        },
        ERR_ENV_GETHOSTNAME, nullptr);
}

VQ_API const char *env_get_domain_name(void) {
    std::string host;
    if (int32_t error = plat_env_host_name(&host); error != 0) {
        return vq::env::fail(error, ERR_ENV_GETHOSTNAME, nullptr);
    }
    return answer(
        &Record::domain_name, [&host](std::string *out) { return plat_env_domain_name(host.c_str(), out); },
        ERR_ENV_GETHOSTBYNAME, host.c_str());
}

VQ_API const char *env_get_os_version(void) {
    return answer(&Record::os_version, plat_env_os_version, vq::env::kNoLine, nullptr);
}

VQ_API const char *env_get_cwd(void) {
    return answer(&Record::cwd, plat_fs_current_dir, ERR_ENV_GETCWD, nullptr);
}

VQ_API int env_is_terminal(int32_t stream) { return plat_env_is_terminal(stream) ? 1 : 0; }

VQ_API int env_get_terminal_columns(int32_t stream, int32_t *columns) {
    if (columns == nullptr) {
        return vq::raise::params(vq::raise::Report::fresh, __func__, "columns");
    }
    if (int32_t error = plat_env_terminal_columns(stream, columns); error != 0) {
        vq::env::fail(error, vq::env::kNoLine, nullptr);
        return 0;
    }
    return 1;
}

}  // extern "C"
