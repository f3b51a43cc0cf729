// What a handle's file is: link, fifo, door, directory or regular file.
//
// An open handle is asked through its own system handle, so that the answer
// is about the very file that is open; a handle that is not open is asked
// through its name. Whether the name is a symbolic link is always a question
// about the name: an open file is never the link itself.
#include "gen_files/gf_state.h"
#include "vq_glob/err.h"

namespace vq::gf {
namespace {

int is_kind(int32_t h, PlatFileKind wanted, const char *function) {
    Entry *entry = checked_entry(h);
    if (entry == nullptr) {
        return 0;
    }
    FilesRecord &rec = *state();
    PlatFileKind kind = PlatFileKind::other;
    int32_t error = 0;
    intptr_t native = native_of(*entry);
    if (wanted != PlatFileKind::link && native != kPlatNoFile) {
        error = plat_file_kind(native, &kind);
    } else if (entry->file_name) {
        error = plat_file_kind_by_name(entry->file_name.get(), wanted != PlatFileKind::link, &kind);
    } else {
        return raise_null_argument(rec, h, function);
    }
    if (error != 0) {
        return raise_os_error(rec, h, PlatIo::native, error, ERR_FIL_GETINFO, entry->file_name.get());
    }
    return kind == wanted ? 1 : 0;
}

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_is_handle_link(int32_t h) { return is_kind(h, PlatFileKind::link, "gf_is_handle_link"); }

VQ_API int gf_is_handle_fifo(int32_t h) { return is_kind(h, PlatFileKind::fifo, "gf_is_handle_fifo"); }

VQ_API int gf_is_handle_door(int32_t h) { return is_kind(h, PlatFileKind::door, "gf_is_handle_door"); }

VQ_API int gf_is_handle_dir(int32_t h) { return is_kind(h, PlatFileKind::directory, "gf_is_handle_dir"); }

VQ_API int gf_is_handle_regular(int32_t h) {
    return is_kind(h, PlatFileKind::regular, "gf_is_handle_regular");
}

}  // extern "C"
