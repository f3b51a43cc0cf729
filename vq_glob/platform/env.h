// The narrow OS interface, environment part: included by platform.h.
//
// Who and where the process runs: the effective user's name and home
// directory, the machine's host and domain names and the operating system's
// version. Each query returns 0 with the whole value in *out (never cut to a
// buffer), kPlatEnvNoEntry when the system has no such value for the caller,
// or an error number for plat_env_error_text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The system keeps no value of the kind asked for: the effective user has no
// account entry (and, for the home directory, HOME is not set either).
inline constexpr int32_t kPlatEnvNoEntry = INT32_MIN;

// The effective user's identity as text for messages: the user id on POSIX
// ("1000"), the account's name on Windows (or "" when even that is unknown).
std::string plat_env_user_id();

// The effective user's account name: getpwuid_r on POSIX, GetUserNameW on
// Windows.
int32_t plat_env_user_name(std::string *out);

// The effective user's home directory: the account entry's directory on POSIX,
// HOME when the entry has none; the profile directory on Windows
// (GetUserProfileDirectoryW, USERPROFILE when it cannot be had).
int32_t plat_env_home_dir(std::string *out);

// The machine's host name as the system keeps it (gethostname, which may
// hold a domain; the DNS host name on Windows).
int32_t plat_env_host_name(std::string *out);

// The DNS domain of the machine called host: on POSIX the part after the first
// dot of the canonical name the resolver gives for host (getaddrinfo with
// AI_CANONNAME), "" when the name has no dot or the resolver knows no such
// host; on Windows the primary DNS domain (GetComputerNameExW), host unused.
int32_t plat_env_domain_name(const char *host, std::string *out);

// The system's name, release, version and machine in one line (uname), or
// "Windows <major>.<minor>.<build>" (RtlGetVersion).
int32_t plat_env_os_version(std::string *out);

// Whether standard stream 0, 1 or 2 (input, output, error) is a terminal:
// isatty on POSIX; a console handle on Windows (GetConsoleMode succeeds).
bool plat_env_is_terminal(int stream);

// The width in columns of the terminal behind standard stream 0, 1 or 2:
// 0 with *columns set, or an error number (ENOTTY / ERROR_INVALID_HANDLE
// when the stream is no terminal). TIOCGWINSZ on POSIX; the console screen
// buffer's window on Windows.
int32_t plat_env_terminal_columns(int stream, int32_t *columns);

// The text for an error of these queries: a resolver error (getaddrinfo's own
// codes on POSIX) or a system error number. Always NUL-terminated when
// size > 0.
void plat_env_error_text(int32_t code, char *buf, size_t size);
