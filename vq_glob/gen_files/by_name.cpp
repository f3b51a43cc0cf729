// One file by name: its status, permission bits and times, renames, hard and
// symbolic links, one directory made or removed, and a file copied into
// place. Failures are reported as the handle functions report theirs, and
// recorded as the thread's last status.
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "gen_files/gf_state.h"
#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::gf {
namespace {

constexpr uint32_t kLargestMode = 07777;
constexpr int32_t kLargestNanoseconds = 999999999;

// The thread's table when it has one: failures are recorded there too.
struct NameReport {
    FilesRecord *rec = state();

    // A failure found before any system call: code has been pushed already.
    int marked(uint32_t code) const {
        if (rec != nullptr) {
            mark_error(*rec, kNoHandle, code, kNoOsError);
        }
        return 0;
    }

    int null_argument(const char *function) const {
        err_set_error(ERR_FIL_MEMORY_1727, function);
        return marked(ERR_FIL_MEMORY_1727);
    }

    int bad_parameter(const char *function, int argument) const {
        err_set_error(ERR_FIL_BADPAR, function, argument);
        return marked(ERR_FIL_BADPAR);
    }

    int memory(const char *function, int line) const {
        vq::raise::memory(vq::raise::Report::fresh, function, kModule, line);
        return marked(ERR_FIL_MEMORY_1701);
    }

    // A refusal of the library's own, explained by reason, then code with its names.
    template <typename... Names>
    int refused(const std::string &reason, uint32_t code, Names... names) const {
        err_set_error(ERR_SYS_ERRMSG, reason.c_str());
        err_add_error(code, names...);
        return marked(code);
    }

    // The system's text for error, then code with its names.
    template <typename... Names>
    int system(int32_t error, uint32_t code, Names... names) const {
        char text[1024];
        plat_file_error_text(PlatIo::native, error, text, sizeof text);
        err_set_error(ERR_SYS_ERRMSG, text);
        err_add_error(code, names...);
        if (rec != nullptr) {
            mark_error(*rec, kNoHandle, code, error);
        }
        return 0;
    }

    // Every name present and short enough for the system.
    template <typename... Names>
    bool usable(const char *function, Names... names) const {
        for (const char *name : {names...}) {
            if (name == nullptr) {
                null_argument(function);
                return false;
            }
            if (std::strlen(name) > kPlatMaxFileName) {
                err_set_error(ERR_FIL_VLONGNAME, name);
                marked(ERR_FIL_VLONGNAME);
                return false;
            }
        }
        return true;
    }
};

int32_t public_type(PlatFileType type) {
    switch (type) {
        case PlatFileType::file:
            return GF_TYPE_FILE;
        case PlatFileType::dir:
            return GF_TYPE_DIR;
        case PlatFileType::link:
            return GF_TYPE_LINK;
        default:
            return GF_TYPE_OTHER;
    }
}

// A name cut after its last separator: what comes before (empty for a bare
// element; "C:" for "C:x", the drive's current directory) and the element.
struct SplitName {
    std::string_view before;
    std::string element;

    // The directory to open for the element: "." when the name has none.
    std::string dir() const { return before.empty() ? std::string(".") : std::string(before); }
};

// false when no element ends the name ("", "dir/", "..").
bool split_name(const char *name, SplitName *out) {
    const std::string_view text(name);
    const size_t drive = plat_path_drive_length(name);
    size_t cut = text.size();
    while (cut > drive && !plat_path_is_separator(text[cut - 1])) {
        --cut;
    }
    out->before = text.substr(0, cut);
    out->element.assign(text.substr(cut));
    return !(out->element.empty() || out->element == "." || out->element == "..");
}

struct DirCloser {
    void operator()(PlatDir *dir) const { plat_dir_close(dir); }
};
using OpenDir = std::unique_ptr<PlatDir, DirCloser>;

int32_t open_dir(const std::string &path, OpenDir *out) {
    PlatDir *dir = nullptr;
    int32_t error = plat_dir_open(path.c_str(), false, &dir);
    out->reset(dir);
    return error;
}

// Copies from into a new file under a temporary name in to's directory (the
// library's own copy, as for trees), then renames it over to: nobody ever
// sees a part of the file under to's name, and a failure removes the copy.
int copy_file(const NameReport &report, const char *from, const char *to, bool replace) {
    SplitName source;
    SplitName target;
    if (!split_name(from, &source)) {
        return report.bad_parameter("gf_copy_file", 1);
    }
    if (!split_name(to, &target)) {
        return report.bad_parameter("gf_copy_file", 2);
    }
    PlatFileStatus status;
    if (int32_t error = plat_fs_file_status(from, true, &status); error != 0) {
        return report.system(error, ERR_FIL_COPY, from, to);
    }
    // Checked here for a clear message; the copy itself refuses one that
    // turns up meanwhile, opening without blocking so that a fifo never hangs.
    if (status.type != PlatFileType::file) {
        return report.refused(std::string(from) + " is not a regular file", ERR_FIL_COPY, from, to);
    }
    // The rename refuses an existing name too; asking first spares copying
    // a large file only to throw the copy away.
    if (PlatFileStatus existing; !replace && plat_fs_file_status(to, false, &existing) == 0) {
        return report.system(plat_fs_exists_error(), ERR_FIL_COPY, from, to);
    }
    OpenDir source_dir;
    OpenDir target_dir;
    if (int32_t error = open_dir(source.dir(), &source_dir); error != 0) {
        return report.system(error, ERR_FIL_COPY, from, to);
    }
    if (int32_t error = open_dir(target.dir(), &target_dir); error != 0) {
        return report.system(error, ERR_FIL_COPY, from, to);
    }
    const std::string temporary = ".vq_copy_" + random_suffix() + ".tmp";
    if (int32_t error = plat_dir_copy_file(source_dir.get(), source.element.c_str(), target_dir.get(),
                                           temporary.c_str(), true);
        error != 0) {
        return report.system(error, ERR_FIL_COPY, from, to);
    }
    int32_t error = plat_dir_rename_child(target_dir.get(), temporary.c_str(), target.element.c_str(), replace);
    if (error != 0) {
        if (plat_dir_remove_child(target_dir.get(), temporary.c_str(), false) != 0) {
            // A read-only copy (Windows) can only be deleted once writable.
            plat_fs_set_mode((std::string(target.before) + temporary).c_str(), 0600);
            plat_dir_remove_child(target_dir.get(), temporary.c_str(), false);
        }
        return report.system(error, ERR_FIL_COPY, from, to);
    }
    return 1;
}

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_get_file_status(const char *name, int32_t follow_links, gf_file_status *status) {
    const NameReport report;
    if (!report.usable("gf_get_file_status", name)) {
        return 0;
    }
    if (status == nullptr) {
        return report.null_argument("gf_get_file_status");
    }
    PlatFileStatus found;
    if (int32_t error = plat_fs_file_status(name, follow_links != 0, &found); error != 0) {
        return report.system(error, ERR_FIL_GETINFO, name);
    }
    *status = gf_file_status{};
    status->type = public_type(found.type);
    status->size = found.size;
    status->modified_seconds = found.modified_seconds;
    status->modified_nanoseconds = found.modified_nanoseconds;
    status->mode = found.mode;
    status->device = found.device;
    status->inode = found.inode;
    status->links = found.links;
    status->changed_seconds = found.changed_seconds;
    status->changed_nanoseconds = found.changed_nanoseconds;
    return 1;
}

VQ_API int gf_set_file_mode(const char *name, uint32_t mode) {
    const NameReport report;
    if (!report.usable("gf_set_file_mode", name)) {
        return 0;
    }
    if (mode > kLargestMode) {
        return report.bad_parameter("gf_set_file_mode", 2);
    }
    if (int32_t error = plat_fs_set_mode(name, mode); error != 0) {
        return report.system(error, ERR_FIL_SETPROT, name);
    }
    return 1;
}

VQ_API int gf_set_file_times(const char *name, int64_t seconds, int32_t nanoseconds) {
    const NameReport report;
    if (!report.usable("gf_set_file_times", name)) {
        return 0;
    }
    if (nanoseconds < 0 || nanoseconds > kLargestNanoseconds) {
        return report.bad_parameter("gf_set_file_times", 3);
    }
    if (int32_t error = plat_fs_set_times(name, seconds, nanoseconds); error != 0) {
        return report.system(error, ERR_FIL_SETTIME, name);
    }
    return 1;
}

VQ_API int gf_rename_file(const char *from, const char *to, int32_t replace) {
    const NameReport report;
    if (!report.usable("gf_rename_file", from, to)) {
        return 0;
    }
    if (int32_t error = plat_fs_rename(from, to, replace != 0); error != 0) {
        return report.system(error, ERR_FIL_RENAME, from, to);
    }
    return 1;
}

VQ_API int gf_link_file(const char *existing, const char *new_name) {
    const NameReport report;
    if (!report.usable("gf_link_file", existing, new_name)) {
        return 0;
    }
    if (int32_t error = plat_fs_hard_link(existing, new_name); error != 0) {
        return report.system(error, ERR_FIL_LINK, new_name);
    }
    return 1;
}

VQ_API int gf_copy_file(const char *from, const char *to, int32_t replace) {
    const NameReport report;
    if (!report.usable("gf_copy_file", from, to)) {
        return 0;
    }
    try {
        return copy_file(report, from, to, replace != 0);
    } catch (const std::bad_alloc &) {
        return report.memory("gf_copy_file", __LINE__);
    }
}

VQ_API int gf_make_dir(const char *path, uint32_t mode) {
    const NameReport report;
    if (!report.usable("gf_make_dir", path)) {
        return 0;
    }
    if (mode > kLargestMode) {
        return report.bad_parameter("gf_make_dir", 2);
    }
    if (int32_t error = plat_fs_make_dir(path, mode); error != 0) {
        return report.system(error, ERR_FIL_MAKDIR, path);
    }
    return 1;
}

VQ_API int gf_remove_dir(const char *path) {
    const NameReport report;
    if (!report.usable("gf_remove_dir", path)) {
        return 0;
    }
    if (int32_t error = plat_fs_remove_dir(path); error != 0) {
        return report.system(error, ERR_FIL_DELDIR_1721, path);
    }
    return 1;
}

VQ_API int gf_is_cross_device_error(int32_t sys_error) { return plat_fs_is_cross_device_error(sys_error) ? 1 : 0; }

VQ_API int gf_make_symlink(const char *target, const char *link_name) {
    const NameReport report;
    if (!report.usable("gf_make_symlink", target, link_name)) {
        return 0;
    }
    if (target[0] == '\0') {
        return report.bad_parameter("gf_make_symlink", 1);
    }
    if (int32_t error = plat_fs_make_symlink(target, link_name); error != 0) {
        return report.system(error, ERR_FIL_LINK, link_name);
    }
    return 1;
}

VQ_API int gf_read_symlink(const char *name, char *buffer, int32_t size) {
    const NameReport report;
    if (!report.usable("gf_read_symlink", name)) {
        return 0;
    }
    if (buffer == nullptr) {
        return report.null_argument("gf_read_symlink");
    }
    if (size < 1) {
        return report.bad_parameter("gf_read_symlink", 3);
    }
    buffer[0] = '\0';
    std::string text;
    if (int32_t error = plat_fs_read_link(name, &text); error != 0) {
        return report.system(error, ERR_FIL_BADLINK, name);
    }
    if (text.size() >= static_cast<size_t>(size)) {
        err_set_error(ERR_FIL_BUF, "gf_read_symlink");
        return report.marked(ERR_FIL_BUF);
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return 1;
}

}  // extern "C"
