// The narrow OS interface, file part: included by platform.h.
//
// Two kinds of open file, as the files module (gen_files) has them:
//  - crt: a C runtime descriptor (_wopen/_read/_write on Windows, open/read/
//    write on POSIX), its errors errno values;
//  - native: the system's own handle (CreateFileW and friends on Windows, a
//    plain descriptor on POSIX), its errors GetLastError values (errno on
//    POSIX).
// A native handle travels as an intptr_t: a HANDLE on Windows, the descriptor
// on POSIX; kPlatNoFile stands for none. A crt descriptor also has a native
// handle (_get_osfhandle; the descriptor itself on POSIX), which the module
// uses for the operations the C runtime lacks (end of file, type, inheritance).
//
// Names are UTF-8. On Windows they reach the OS in the long-path form: the
// name's full path behind "\\?\", or "\\?\UNC\" for "\\node\share" names,
// converted to UTF-16 in a stack buffer. On POSIX they go to the OS as given.
//
// Every operation returns 0 on success or the platform's error number of its
// kind, so that callers never depend on errno or GetLastError surviving; the
// C runtime calls behind the allocation tracker, at the end, are the one
// exception and say why.
// Interrupted system calls are restarted here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

inline constexpr intptr_t kPlatNoFile = -1;

// The longest name, in characters, that the files module hands to the OS.
inline constexpr size_t kPlatMaxFileName = 7800;

enum class PlatIo { crt, native };

// The C runtime's open-flag values (_O_* on Windows, O_* on POSIX, where the
// binary flag is 0).
struct PlatCrtOpenBits {
    int read_only, write_only, read_write, truncate, exclusive, create, append, binary;
};
const PlatCrtOpenBits &plat_crt_open_bits();

// The system's text for an error number of the given kind (strerror for crt
// errors, FormatMessage for native ones on Windows), always NUL-terminated.
void plat_file_error_text(PlatIo io, int32_t code, char *buf, size_t size);
// True when a create failed because the name exists (or, on Windows, is being
// deleted, which looks the same to the next creator).
bool plat_file_is_exists_error(PlatIo io, int32_t code);
// The error numbers reported for a bad argument and for a full device.
int32_t plat_file_invalid_argument(PlatIo io);
int32_t plat_file_no_space(PlatIo io);

// ---- C runtime descriptors --------------------------------------------------

// Opens name with the runtime's flags (binary already included by the caller)
// and mode for a created file. deny_writers opens as _SH_DENYWR does: other
// writers of the file are refused while it is open. On POSIX the refusal is
// an advisory lock that the writers of this library honour (see
// posix/file.cpp); other programs are not held back.
int32_t plat_crt_file_open(const char *name, int flags, int mode, bool deny_writers, int *fd);
// One read / write call; *done is what the call moved (0 at end of file).
int32_t plat_crt_file_read(int fd, void *buffer, size_t size, size_t *done);
int32_t plat_crt_file_write(int fd, const void *buffer, size_t size, size_t *done);
// Moves the descriptor to offset bytes from the start.
int32_t plat_crt_file_seek(int fd, int64_t offset);
// Commits the descriptor's data to the device (_commit, fsync).
int32_t plat_crt_file_commit(int fd);
int32_t plat_crt_file_close(int fd);
// The native handle behind a descriptor; kPlatNoFile for a closed one.
intptr_t plat_crt_file_native(int fd);
// Makes an existing file writable so that it can be replaced: on Windows
// mode 0777 (which clears the read-only attribute) and the normal
// attributes, on POSIX write permission for the owner.
int32_t plat_crt_file_make_writable(const char *name);

// ---- Native handles ----------------------------------------------------------

// How a native handle is opened, in the platform layer's own terms; each
// backend maps them onto its system (CreateFileW's access, share, disposition
// and flag values on Windows; open() flags and the deny-writer lock on POSIX,
// as posix/file.cpp documents).

// What the open itself may do (bits of PlatNativeOpen::access). An open with
// neither reads on POSIX and may only query the file on Windows.
inline constexpr uint32_t kPlatAccessRead = 1u << 0;
inline constexpr uint32_t kPlatAccessWrite = 1u << 1;

// What other opens may do while this one is in place (bits of
// PlatNativeOpen::share); 0 shares nothing. POSIX honours only the absence of
// kPlatShareWrite, which refuses other writers of the library.
inline constexpr uint32_t kPlatShareRead = 1u << 0;
inline constexpr uint32_t kPlatShareWrite = 1u << 1;
inline constexpr uint32_t kPlatShareDelete = 1u << 2;

// What happens to a name that exists, or does not.
enum class PlatDisposition : uint8_t {
    none,               // not chosen: the open fails as an invalid argument
    create_new,         // create; fail when the name exists
    create_always,      // create, or empty an existing file
    open_existing,      // open; fail when the name does not exist
    open_always,        // open, or create a missing file
    truncate_existing,  // open and empty; fail when the name does not exist
};

struct PlatNativeOpen {
    uint32_t access = 0;  // kPlatAccess* bits
    uint32_t share = 0;   // kPlatShare* bits
    PlatDisposition disposition = PlatDisposition::none;
    bool write_through = false;  // every write reaches the device before it returns
};

// Opens or creates name as how says; mode is the POSIX permission of a
// created file (Windows ignores it).
int32_t plat_native_file_open(const char *name, const PlatNativeOpen &how, int mode, intptr_t *file);
int32_t plat_native_file_read(intptr_t file, void *buffer, size_t size, size_t *done);
int32_t plat_native_file_write(intptr_t file, const void *buffer, size_t size, size_t *done);
int32_t plat_native_file_seek(intptr_t file, int64_t offset);
int32_t plat_native_file_flush(intptr_t file);
int32_t plat_native_file_close(intptr_t file);

// ---- Either kind, through the native handle -------------------------------------

// Whether child processes inherit the handle (HANDLE_FLAG_INHERIT, or the
// absence of close-on-exec).
int32_t plat_file_set_inherit(intptr_t file, bool inherit);
// Sets the end of file at size bytes and leaves the file position there
// (SetFilePointerEx + SetEndOfFile; ftruncate + lseek). Native errors.
int32_t plat_file_truncate(intptr_t file, int64_t size);

enum class PlatFileKind { regular, directory, link, fifo, door, other };

// What an open handle refers to (fstat; GetFileType and the attributes).
int32_t plat_file_kind(intptr_t file, PlatFileKind *kind);
// The size in bytes of what an open handle refers to, as the system reports
// it now (fstat; GetFileSizeEx). Native errors.
int32_t plat_file_size(intptr_t file, uint64_t *size);
// What a name refers to; with follow_links a symbolic link is described by
// its target, otherwise as link. Native errors.
int32_t plat_file_kind_by_name(const char *name, bool follow_links, PlatFileKind *kind);

// Removes a file by name. Native errors.
int32_t plat_file_remove(const char *name);

// The system's default ANSI code page as its number in text ("932" on a
// Japanese Windows); "65001" on POSIX, whose names are UTF-8. Native errors.
int32_t plat_default_ansi_code_page(char *buf, size_t size);

// ---- C runtime calls behind the allocation tracker ---------------------------
//
// The exception to this interface's error convention. The tracker's
// sl_debug_open, sl_debug_fdopen, sl_debug_wfopen... are drop-in replacements
// of the C calls: they must return exactly what the C call returns (a
// descriptor or -1, a stream or null) with the cause in errno, as their
// callers test it. These wrappers therefore keep the C runtime's own
// results and leave errno as the call set it.

// True when open() with these flags takes a third (mode) argument.
bool plat_crt_open_needs_mode(int flags);
int plat_crt_open(const char *name, int flags, int mode);
int plat_crt_close(int fd);
std::FILE *plat_crt_fdopen(int fd, const char *mode);
// Wide names: native on Windows; converted to UTF-8 on POSIX (EILSEQ when
// the name holds a value that is not a Unicode character).
int plat_crt_wopen(const wchar_t *name, int flags, int mode);
std::FILE *plat_crt_wfopen(const wchar_t *name, const wchar_t *mode);
// _fsopen's share flag is honoured on Windows and ignored on POSIX.
std::FILE *plat_crt_fsopen(const char *name, const char *mode, int share);
// A temporary file name in malloc'ed memory (the caller frees it), or null.
char *plat_crt_tempnam(const char *dir, const char *prefix);

// ---- Whole-file reads ---------------------------------------------------------

// Opens name for reading as plat_read_regular_file needs it: without blocking
// on a fifo or a device (O_NONBLOCK on POSIX), and on Windows so that a
// directory opens too and is then refused by its kind. Native errors.
int32_t plat_open_for_whole_read(const char *name, intptr_t *file);

// How plat_read_regular_file ended.
enum class PlatWholeRead {
    ok,
    open_failed,  // *error holds the native error number
    not_regular,  // a directory, fifo, device, socket...: nothing was read
    too_large,    // more than limit bytes: out is left empty
    read_failed   // *error holds the native error number; out is left empty
};

// Reads the whole of name into out (replacing its contents), refusing
// anything but a regular file and anything longer than limit bytes, so that
// neither /dev/zero nor a fifo can hang the caller or exhaust its memory.
// *error is set for open_failed and read_failed (0 otherwise).
PlatWholeRead plat_read_regular_file(const char *name, size_t limit, std::string &out, int32_t *error);
