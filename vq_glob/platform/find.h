// The narrow OS interface, name search part: included by platform.h.
//
// A search lists the entries of one directory that a pattern selects, one at
// a time. Windows hands the directory and the pattern to FindFirstFileW /
// FindNextFileW (on the long-path wide form), which matches the names itself,
// with its own rules (letter case ignored, short names considered). POSIX
// lists every entry of the directory (opendir / readdir) and leaves the
// matching to the caller: plat_find_matches_names tells which of the two the
// caller has.
//
// "." and ".." are never returned. Names are UTF-8; errors are the
// platform's own numbers (errno / GetLastError), as everywhere here.
#pragma once

#include <cstdint>
#include <string>

// An open search; opaque.
struct PlatFind;

// Whether the names plat_find_next returns already match the pattern given
// to plat_find_open (true on Windows); false when they are every entry of the
// directory and the caller must match them itself.
bool plat_find_matches_names();

// Starts a search of directory (a path ending with a separator, or a bare
// drive "X:" on Windows) for the entries pattern (one path element, wildcards
// allowed) selects. 0 with *out set, or the error number with *out null;
// plat_find_is_no_file_error tells an error that only means nothing is there.
int32_t plat_find_open(const char *directory, const char *pattern, PlatFind **out);

// The next entry's name: 0 with *name set and *end false; 0 with *end true
// after the last one (again on every further call); or the error number.
int32_t plat_find_next(PlatFind *find, std::string *name, bool *end);

// True for the errors of plat_find_open that mean that the directory or the
// name does not exist (ENOENT or ENOTDIR; ERROR_FILE_NOT_FOUND or
// ERROR_PATH_NOT_FOUND), as opposed to a real failure.
bool plat_find_is_no_file_error(int32_t code);

// Ends a search; a null find is ignored.
void plat_find_close(PlatFind *find);
