// The daemon's log: every line goes to standard output (flushed at once, for
// whoever watches the daemon in the foreground) and to the log file, or to
// the system log through the library when no file is configured. Lines from
// several threads never interleave.
#ifndef VQGLOB_LOG_H
#define VQGLOB_LOG_H

#include <string>

namespace vqglob {

// The current UTC time formatted by strftime's format.
std::string utc_text(const char *format);

// Where lines go from now on: a file name (appended to), or empty for the
// system log. false with the reason on the stack when the file cannot be opened.
bool log_open(const std::string &file);
void log_close();
// One line, prefixed with the UTC time.
void log_line(const std::string &text);
// context, then the thread's error stack (newest entry first) on the same line.
void log_failure(const std::string &context);

}  // namespace vqglob

#endif
