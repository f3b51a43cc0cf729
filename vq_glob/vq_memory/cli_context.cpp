// Tracked parser context handles: the parser's own handles, recorded by the
// allocation tracker of the calling thread while tracking is on, so that an
// unfreed one shows in the report as "unfreed context handle".
#include "internal/handle_tag.h"
#include "internal/raise.h"
#include "internal/tracker_state.h"
#include "vq_glob/cli.h"
#include "vq_glob/memory.h"

extern "C" VQ_API void *sl_debug_cli_get_context_handle(const char *file, int32_t line) {
    void *handle = cli_get_context_handle();
    if (handle != nullptr) {
        vq::memory::track_context_handle(file, line, handle);
    }
    return handle;
}

// The tracker hears of every free, a refused one included, so that its
// report names the line that freed what it never handed out.
extern "C" VQ_API void sl_debug_cli_free_context_handle(const char *file, int32_t line, void *handle) {
    vq::memory::forget_context_handle(file, line, handle);
    if (handle == nullptr) {
        return;
    }
    if (!vq::tag::is(handle, vq::tag::Kind::cli_context)) {
        VQ_PARAMS(vq::raise::Report::fresh, "handle");
        return;
    }
    cli_free_context_handle(handle);
}
