// gf_delete_from_list_make_report: removes listed files and reports each one.
#include <cstdint>
#include <new>
#include <string>

#include "dir/dir_common.h"
#include "internal/raise.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/err_codes.h"

namespace vq::dir {
namespace {

// The report file, created (or emptied) before anything is removed, so that
// a report that cannot be written stops the call before any file goes.
class Report {
public:
    ~Report() {
        if (file_ != kPlatNoFile) {
            plat_native_file_close(file_);
        }
    }

    int open(const char *name) {
        name_ = name;
        PlatNativeOpen how;
        how.access = kPlatAccessWrite;
        how.share = kPlatShareRead;
        how.disposition = PlatDisposition::create_always;
        if (int32_t error = plat_native_file_open(name, how, 0666, &file_); error != 0) {
            file_ = kPlatNoFile;
            return failed(error);
        }
        return 1;
    }

    void line(const char *verdict, const char *name, const char *reason) {
        text_.append(verdict).append(" ").append(name);
        if (reason != nullptr) {
            text_.append(": ").append(reason);
        }
        text_.push_back('\n');
    }

    // Writes the lines and closes the file. 1, or 0 with ERR_MKL_FPRINTF.
    int finish() {
        size_t done = 0;
        int32_t error = plat_native_file_write(file_, text_.data(), text_.size(), &done);
        if (error == 0 && done != text_.size()) {
            error = plat_file_no_space(PlatIo::native);
        }
        int32_t close_error = plat_native_file_close(file_);
        file_ = kPlatNoFile;
        if (error == 0) {
            error = close_error;
        }
        return error == 0 ? 1 : failed(error);
    }

private:
    int failed(int32_t error) {
        err_add_system_error(error);
        err_add_error(ERR_MKL_FPRINTF, name_);
        return 0;
    }

    const char *name_ = "";
    intptr_t file_ = kPlatNoFile;
    std::string text_;
};

// Removes one listed file and reports it; false when it could not be removed.
bool delete_one(const char *name, Report *report, int32_t *deleted) {
    int32_t error = plat_file_remove(name);
    if (error == 0) {
        if (deleted != nullptr) {
            ++*deleted;
        }
        if (report != nullptr) {
            report->line("deleted", name, nullptr);
        }
        return true;
    }
    if (plat_is_file_not_found_error(error)) {
        if (report != nullptr) {
            report->line("missing", name, nullptr);
        }
        return true;
    }
    char reason[512];
    plat_system_error_text(error, reason, sizeof reason);
    if (report != nullptr) {
        report->line("failed", name, reason);
    }
    raise_os(error, ERR_FIL_DELETE_170B, name);
    return false;
}

}  // namespace
}  // namespace vq::dir

extern "C" {

VQ_API int gf_delete_from_list_make_report(char **list, const char *report_file, int32_t *deleted) {
    if (deleted != nullptr) {
        *deleted = 0;
    }
    if (list == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "list");
    }
    try {
        vq::dir::Report report;
        if (report_file != nullptr && report.open(report_file) == 0) {
            return 0;
        }
        bool all = true;
        for (char **name = list; *name != nullptr; ++name) {
            all = vq::dir::delete_one(*name, report_file != nullptr ? &report : nullptr, deleted) && all;
        }
        if (report_file != nullptr && report.finish() == 0) {
            return 0;
        }
        return all ? 1 : 0;
    } catch (const std::bad_alloc &) {
        return vq::dir::raise_memory(__func__, __LINE__);
    }
}

}  // extern "C"
