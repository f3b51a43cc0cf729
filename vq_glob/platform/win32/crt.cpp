// Win32 backend: the C runtime's descriptor and stream opens that the
// allocation tracker wraps.
#include "platform/platform.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>

#include <cstdio>
#include <cstdlib>

bool plat_crt_open_needs_mode(int flags) { return (flags & _O_CREAT) != 0; }
int plat_crt_open(const char *name, int flags, int mode) { return _open(name, flags, mode); }
int plat_crt_wopen(const wchar_t *name, int flags, int mode) { return _wopen(name, flags, mode); }
int plat_crt_close(int fd) { return _close(fd); }
std::FILE *plat_crt_fdopen(int fd, const char *mode) { return _fdopen(fd, mode); }
std::FILE *plat_crt_wfopen(const wchar_t *name, const wchar_t *mode) { return _wfopen(name, mode); }
std::FILE *plat_crt_fsopen(const char *name, const char *mode, int share) { return _fsopen(name, mode, share); }
char *plat_crt_tempnam(const char *dir, const char *prefix) { return _tempnam(dir, prefix); }
