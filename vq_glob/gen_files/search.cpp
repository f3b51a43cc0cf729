// Search streams: a handle whose file name is a pattern with wildcards
// yields the names it selects one call at a time, either from the directory
// the pattern names or from a list file of names, one a line. The
// handle's last status is the state of the stream (initiated, a name found,
// no more names).
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "gen_files/gf_state.h"
#include "internal/raise.h"
#include "internal/whole_file.h"
#include "vq_glob/env.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/wildcard.h"

namespace vq::gf {
namespace {

// How much of a list file one read asks for.
constexpr size_t kListChunk = 64 * 1024;

enum class LineRead { line, end, too_long, failed };

// A list file read line by line through its native handle. Lines end with
// LF; the CRs before it are the caller's to remove. A line longer than the
// limit is passed over whole and reported, so that the next read starts
// with the line after it.
class ListFile {
public:
    ListFile() = default;
    ListFile(const ListFile &) = delete;
    ListFile &operator=(const ListFile &) = delete;
    ~ListFile() { close(); }

    int32_t open(const char *name) { return plat_open_for_whole_read(name, &file_); }
    intptr_t handle() const { return file_; }
    int32_t error() const { return error_; }
    uint64_t line_number() const { return line_number_; }

    void close() {
        if (file_ != kPlatNoFile) {
            plat_native_file_close(file_);
            file_ = kPlatNoFile;
        }
    }

    // The next line without its LF. Throws std::bad_alloc.
    LineRead next(std::string *line) {
        line->clear();
        bool too_long = false;
        bool any = false;  // whether the line has begun: a last line needs no LF
        for (;;) {
            if (pos_ == len_) {
                if (LineRead failed = fill(); failed != LineRead::line) {
                    return failed;
                }
                if (len_ == 0) {
                    break;
                }
            }
            const char *start = chunk_.data() + pos_;
            const auto *lf = static_cast<const char *>(std::memchr(start, '\n', len_ - pos_));
            size_t take = lf != nullptr ? static_cast<size_t>(lf - start) : len_ - pos_;
            any = true;
            // One byte beyond the limit is room for the CR of a CR LF end.
            if (!too_long && line->size() + take > GF_SEARCH_MAX_LINE + 1) {
                too_long = true;
                line->clear();
            }
            if (!too_long) {
                line->append(start, take);
            }
            pos_ += take + (lf != nullptr ? 1 : 0);
            if (lf != nullptr) {
                break;
            }
        }
        if (!any) {
            return LineRead::end;
        }
        ++line_number_;
        return too_long ? LineRead::too_long : LineRead::line;
    }

private:
    // Reads the next chunk; len_ 0 at the end of the file.
    LineRead fill() {
        if (chunk_.empty()) {
            chunk_.resize(kListChunk);
        }
        pos_ = 0;
        len_ = 0;
        size_t done = 0;
        error_ = plat_native_file_read(file_, chunk_.data(), chunk_.size(), &done);
        if (error_ != 0) {
            return LineRead::failed;
        }
        len_ = done;
        return LineRead::line;
    }

    intptr_t file_ = kPlatNoFile;
    std::vector<char> chunk_;
    size_t pos_ = 0;
    size_t len_ = 0;
    int32_t error_ = 0;
    uint64_t line_number_ = 0;
};

}  // namespace

struct SearchStream {
    // Directory searches.
    PlatFind *find = nullptr;
    std::string pattern;        // the pattern's last element
    std::string first;          // the first match, found by the init
    bool first_unread = false;  // the next call returns first
    // List-file searches.
    ListFile list;
    bool is_list = false;
    // The end was reached: every further call says so again.
    bool ended = false;

    SearchStream() = default;
    SearchStream(const SearchStream &) = delete;
    SearchStream &operator=(const SearchStream &) = delete;
    ~SearchStream() { release(); }

    void release() {
        plat_find_close(find);
        find = nullptr;
        list.close();
    }
};

void SearchStreamDeleter::operator()(SearchStream *stream) const { delete stream; }

namespace {

enum class Step { found, end, failed };

// Out of memory while searching for name: MEMORY, then ERR_FIL_SEARCH_1712, marked. 0.
int raise_search_memory(FilesRecord &rec, int32_t h, const char *function, int line, const char *name) {
    vq::raise::memory(vq::raise::Report::fresh, function, kModule, line);
    err_add_error(ERR_FIL_SEARCH_1712, printable(name));
    return raise_marked(rec, h, ERR_FIL_SEARCH_1712);
}


// Nothing matched spec: ERR_FIL_NOFILEFND, marked, and the stream is at its end.
int raise_no_match(FilesRecord &rec, int32_t h, Entry &entry, const char *spec) {
    err_set_error(ERR_FIL_NOFILEFND, printable(spec));
    raise_marked(rec, h, ERR_FIL_NOFILEFND);
    entry.last_status = static_cast<int32_t>(ERR_FIL_NMFILES);
    return 0;
}

// A next-file call on a handle with no search under way.
int raise_not_searching(FilesRecord &rec, int32_t h, const Entry &entry) {
    err_set_error(ERR_FIL_SEARCH_1712, printable(entry.file_name.get()));
    return raise_marked(rec, h, ERR_FIL_SEARCH_1712);
}

bool has_byte_above_ascii(const std::string &name) {
    for (unsigned char c : name) {
        if (c >= 0x80) {
            return true;
        }
    }
    return false;
}

// Whether full, just listed, has been removed since: the directory's list
// may have been read ahead, and a name that is gone is not returned.
bool vanished(const std::string &full) {
    PlatFsStatus status;
    int32_t error = plat_fs_status(full.c_str(), &status);
    if (error != 0 && plat_is_file_not_found_error(error)) {
        vq::debug::trace_bit(kTraceBit, "gf_next_file: <%s> is gone, passed over\n", full.c_str());
        return true;
    }
    return false;
}

// The next name of a directory search that the pattern selects and that
// still exists. Throws std::bad_alloc.
Step next_match(SearchStream &stream, const std::string &directory, std::string *name, int32_t *error) {
    const bool matched_by_system = plat_find_matches_names();
    for (;;) {
        bool end = false;
        *error = plat_find_next(stream.find, name, &end);
        if (*error != 0) {
            return Step::failed;
        }
        if (end) {
            return Step::end;
        }
        if (!matched_by_system && match_wildcard(stream.pattern.c_str(), name->c_str(), 1) == 0) {
            continue;
        }
        if (!vanished(directory + *name)) {
            return Step::found;
        }
    }
}

// The end of the stream: its resources go, the last status says so, and
// nothing is put on the error stack.
int end_of_search(Entry &entry) {
    entry.search->ended = true;
    entry.search->release();
    entry.last_status = static_cast<int32_t>(ERR_FIL_NMFILES);
    return 0;
}

// Hands out full (found as name) as the handle's result file name; the
// checking form refuses a name that the ANSI code page cannot hold.
int deliver(FilesRecord &rec, int32_t h, Entry &entry, const std::string &full, const std::string &name,
            bool check_unicode) {
    if (check_unicode && has_byte_above_ascii(name)) {
        vq::debug::trace_bit(kTraceBit, "file %s is unicode\n", full.c_str());
        err_set_error(ERR_FIL_NOUNICOD, full.c_str());
        return raise_marked(rec, h, ERR_FIL_NOUNICOD);
    }
    if (!copy_text(entry.res_file_name, full.c_str())) {
        return raise_search_memory(rec, h, "gf_next_file", __LINE__, entry.file_name.get());
    }
    entry.last_status = static_cast<int32_t>(ERR_FIL_SSEARCH);
    return 1;
}

// Where the pattern's last element starts: behind its last separator,
// or behind a drive ("X:") without one; 0 when it names no directory.
size_t directory_length(const char *spec) {
    size_t cut = 0;
    for (size_t i = 0; spec[i] != '\0'; ++i) {
        if (plat_path_is_separator(spec[i])) {
            cut = i + 1;
        }
    }
    return cut != 0 ? cut : plat_path_drive_length(spec);
}

// The directory a pattern searches: its own directory part, or the
// current directory with a separator added when it has none. An empty
// result means the current directory could not be had (the reason is on the
// stack). Throws std::bad_alloc.
std::string search_directory(const char *spec, size_t length) {
    if (length != 0) {
        return std::string(spec, length);
    }
    const char *cwd = env_get_cwd();
    if (cwd == nullptr) {
        return std::string();
    }
    std::string directory = cwd;
    if (directory.empty() || !plat_path_is_separator(directory.back())) {
        directory += VQ_PATH_SEPARATOR;
    }
    return directory;
}

// Starts a directory search of the entry's pattern. Throws std::bad_alloc.
int init_directory(FilesRecord &rec, int32_t h, Entry &entry) {
    const char *spec = entry.file_name.get();
    const size_t length = directory_length(spec);
    std::string directory = search_directory(spec, length);
    if (directory.empty()) {
        err_add_error(ERR_FIL_SEARCH_1712, spec);
        return raise_marked(rec, h, ERR_FIL_SEARCH_1712);
    }
    auto stream = SearchStreamPtr(new SearchStream);
    stream->pattern.assign(spec + length);
    if (directory.size() + stream->pattern.size() > GF_MAX_PATH_LENGTH) {
        err_set_error(ERR_FIL_VLONGNAME, spec);
        return raise_marked(rec, h, ERR_FIL_VLONGNAME);
    }
    int32_t error = plat_find_open(directory.c_str(), stream->pattern.c_str(), &stream->find);
    if (error != 0) {
        return plat_find_is_no_file_error(error) ? raise_no_match(rec, h, entry, spec)
                                                  : raise_os_error(rec, h, PlatIo::native, error,
                                                                   ERR_FIL_SEARCH_1712, spec);
    }
    switch (next_match(*stream, directory, &stream->first, &error)) {
        case Step::failed:
            return raise_os_error(rec, h, PlatIo::native, error, ERR_FIL_SEARCH_1712, spec);
        case Step::end:
            return raise_no_match(rec, h, entry, spec);
        case Step::found:
            break;
    }
    stream->first_unread = true;
    if (!copy_text(entry.search_dir, directory.c_str())) {
        return raise_search_memory(rec, h, "gf_init_search", __LINE__, spec);
    }
    entry.search = std::move(stream);
    entry.last_status = static_cast<int32_t>(ERR_FIL_SEARCHI);
    return 1;
}

// Opens the entry's list file; only a regular file is read, so that a fifo
// or a device in its place cannot hold the search. Throws std::bad_alloc.
int init_list(FilesRecord &rec, int32_t h, Entry &entry) {
    const char *file = entry.search_file.get();
    if (file == nullptr) {
        return raise_null_argument(rec, h, "gf_init_file_search");
    }
    auto stream = SearchStreamPtr(new SearchStream);
    stream->is_list = true;
    if (int32_t error = stream->list.open(file); error != 0) {
        return raise_os_error(rec, h, PlatIo::native, error, ERR_FIL_SEAFILOP_171E, file);
    }
    PlatFileKind kind = PlatFileKind::other;
    if (int32_t error = plat_file_kind(stream->list.handle(), &kind); error != 0) {
        return raise_os_error(rec, h, PlatIo::native, error, ERR_FIL_SEAFILOP_171E, file);
    }
    if (kind != PlatFileKind::regular) {
        whole_file::raise_refusal(PlatWholeRead::not_regular, file, 0, 0);
        err_add_error(ERR_FIL_SEAFILOP_171E, file);
        return raise_marked(rec, h, ERR_FIL_SEAFILOP_171E);
    }
    entry.search = std::move(stream);
    entry.last_status = static_cast<int32_t>(ERR_FIL_SEARCHI);
    return 1;
}

// A line of the list file that cannot name a file: why, as ERR_SYS_ERRMSG
// "line <n> <why>", then ERR_FIL_SEAFILOP_171F naming the file, marked. 0.
// Throws std::bad_alloc.
int raise_bad_line(FilesRecord &rec, int32_t h, const ListFile &list, const std::string &why, const char *file) {
    const std::string text = "line " + std::to_string(list.line_number()) + " " + why;
    err_set_error(ERR_SYS_ERRMSG, text.c_str());
    err_add_error(ERR_FIL_SEAFILOP_171F, file);
    return raise_marked(rec, h, ERR_FIL_SEAFILOP_171F);
}

// CRs and LFs at the end of a line are its line end, not its name.
void remove_line_end(std::string *line) {
    size_t end = line->find_last_not_of("\r\n");
    line->erase(end == std::string::npos ? 0 : end + 1);
}

// The next listed name the entry's file name selects, behind the prefix.
// Blank lines name nothing and are passed over. Throws std::bad_alloc.
int next_in_list(FilesRecord &rec, int32_t h, Entry &entry, bool check_unicode) {
    ListFile &list = entry.search->list;
    const char *file = entry.search_file.get();
    std::string line;
    for (;;) {
        switch (list.next(&line)) {
            case LineRead::end:
                return end_of_search(entry);
            case LineRead::failed:
                return raise_os_error(rec, h, PlatIo::native, list.error(), ERR_FIL_SEAFILOP_171F, file);
            case LineRead::too_long:
                return raise_bad_line(rec, h, list, "is longer than " + std::to_string(GF_SEARCH_MAX_LINE) + " bytes",
                                      file);
            case LineRead::line:
                break;
        }
        remove_line_end(&line);
        if (line.size() > GF_SEARCH_MAX_LINE) {
            return raise_bad_line(rec, h, list, "is longer than " + std::to_string(GF_SEARCH_MAX_LINE) + " bytes",
                                  file);
        }
        // A name cut at a NUL byte would be another name.
        if (line.find('\0') != std::string::npos) {
            return raise_bad_line(rec, h, list, "holds a NUL byte", file);
        }
        if (line.empty() || match_wildcard(entry.file_name.get(), line.c_str(), 0) == 0) {
            continue;
        }
        const char *prefix = entry.search_prefix.get();
        std::string full = prefix != nullptr ? std::string(prefix) + VQ_PATH_SEPARATOR + line : line;
        return deliver(rec, h, entry, full, line, check_unicode);
    }
}

// The next name of a directory search.
int next_in_directory(FilesRecord &rec, int32_t h, Entry &entry, bool check_unicode) {
    SearchStream &stream = *entry.search;
    std::string name;
    // The first match was found by the init; it may be gone since.
    if (stream.first_unread && !vanished(entry.search_dir.get() + stream.first)) {
        name.swap(stream.first);
        stream.first_unread = false;
    } else {
        stream.first_unread = false;
        int32_t error = 0;
        switch (next_match(stream, entry.search_dir.get(), &name, &error)) {
            case Step::failed:
                return raise_os_error(rec, h, PlatIo::native, error, ERR_FIL_SEARCH_1712, entry.file_name.get());
            case Step::end:
                return end_of_search(entry);
            case Step::found:
                break;
        }
    }
    return deliver(rec, h, entry, entry.search_dir.get() + name, name, check_unicode);
}

bool valid_type(int32_t type) { return type == GF_SEARCH_DIRECTORY || type == GF_SEARCH_LIST_FILE; }

// What every next-file form shares: the state checks, then the stream's own
// kind of step; lists_only for the list-file form.
int next_file(int32_t h, const char *function, bool check_unicode, bool lists_only) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        entry.search_mark = 0;
        if (!valid_type(entry.search_type)) {
            return raise_bad_parameter(rec, h, function, 1);
        }
        if (!entry.search || (lists_only && !entry.search->is_list)) {
            return raise_not_searching(rec, h, entry);
        }
        if (entry.search->ended) {
            entry.last_status = static_cast<int32_t>(ERR_FIL_NMFILES);
            return 0;
        }
        try {
            return entry.search->is_list ? next_in_list(rec, h, entry, check_unicode)
                                         : next_in_directory(rec, h, entry, check_unicode);
        } catch (const std::bad_alloc &) {
            return raise_search_memory(rec, h, function, __LINE__, entry.file_name.get());
        }
    });
}

// Starts a search of the given kind, ending the one under way first.
template <typename Init>
int start(FilesRecord &rec, int32_t h, Entry &entry, const char *function, Init init) {
    entry.search_mark = 0;
    entry.search.reset();
    try {
        return init(rec, h, entry);
    } catch (const std::bad_alloc &) {
        return raise_search_memory(rec, h, function, __LINE__, entry.file_name.get());
    }
}

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_set_search_type(int32_t h, int32_t type) {
    return with_entry(h, [&](FilesRecord &, Entry &entry) {
        entry.search_type = type;
        return 1;
    });
}

VQ_API int gf_set_search_prefix(int32_t h, const char *prefix) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        if (!copy_text(entry.search_prefix, prefix)) {
            return raise_search_memory(rec, h, "gf_set_search_prefix", __LINE__, prefix);
        }
        char *kept = entry.search_prefix.get();
        size_t length = kept != nullptr ? std::strlen(kept) : 0;
        if (length > 0 && plat_path_is_separator(kept[length - 1])) {
            kept[length - 1] = '\0';
        }
        return 1;
    });
}

VQ_API int gf_set_search_file(int32_t h, const char *list_file_path) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return copy_text(entry.search_file, list_file_path) ? 1
                                                             : raise_memory(rec, h, "gf_set_search_file", __LINE__);
    });
}

VQ_API int gf_init_search(int32_t h) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        entry.search_mark = 0;
        if (entry.file_name == nullptr) {
            entry.search.reset();
            err_set_error(ERR_FIL_NFNAM);
            return raise_marked(rec, h, ERR_FIL_NFNAM);
        }
        switch (entry.search_type) {
            case GF_SEARCH_DIRECTORY:
                return start(rec, h, entry, "gf_init_search", init_directory);
            case GF_SEARCH_LIST_FILE:
                return start(rec, h, entry, "gf_init_search", init_list);
            default:
                return raise_bad_parameter(rec, h, "gf_init_search", 1);
        }
    });
}

VQ_API int gf_next_file(int32_t h) { return next_file(h, "gf_next_file", false, false); }

VQ_API int gf_next_file_check_unicode(int32_t h) {
    return next_file(h, "gf_next_file_check_unicode", true, false);
}

VQ_API int gf_close_search(int32_t h) {
    return with_entry(h, [](FilesRecord &, Entry &entry) {
        entry.search.reset();
        return 1;
    });
}

VQ_API int gf_init_file_search(int32_t h) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return start(rec, h, entry, "gf_init_file_search", init_list);
    });
}

VQ_API int gf_file_search_next_file(int32_t h) { return next_file(h, "gf_file_search_next_file", false, true); }

}  // extern "C"
