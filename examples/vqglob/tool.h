// What the vqglob commands share: the command runners main dispatches to,
// failure printing, parsed values, and small helpers of the network commands.
#ifndef VQGLOB_TOOL_H
#define VQGLOB_TOOL_H

#include <cstdint>
#include <string>

namespace vqglob {

// Prints the thread's error stack; returns the failure status 1.
int fail();
// The parsed value of a parameter ('P') or qualifier ('Q'), or NULL.
const char *value_of(const char *name, char kind);
// Whether file names a regular file (else a reason on the stack).
bool require_regular_file(const char *file);

// Whether host resolves to an IPv4 loopback address (127.0.0.0/8). A host
// that does not resolve is no loopback (the resolver's error on the stack).
bool is_loopback(const std::string &host);
// Splits "HOST:PORT"; false with the reason on the stack.
bool split_host_port(const std::string &text, std::string &host, uint16_t &port);

// The client TLS context of -cert/-key/-ca (free with sle_free_context), or
// NULL when none of them is given; false with the reason on the stack.
bool client_tls_from_options(void **tls);

// Free a network session / TLS context when there is one: the library counts
// freeing NULL as an error, which would leave a stale entry on the stack.
void free_net(void **net);
void free_tls(void **tls);

int run_serve();
int run_deploy();
int run_releases();
int run_rollback();

}  // namespace vqglob

#endif
