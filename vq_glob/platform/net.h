// The narrow OS interface, socket part: included by platform.h.
//
// IPv4 TCP and UDP sockets over BSD sockets (POSIX) or Windows Sockets 2.
// Addresses are IPv4 addresses in network order, ports in host order.
//
// Every function returns 0 or the system's socket error number (errno, or
// WSAGetLastError() on Windows), so that callers never depend on the
// thread's last error surviving until they read it. Interrupted calls are
// restarted here. New sockets are never inherited by child processes unless
// plat_socket_set_inheritable says so, and no send ever raises SIGPIPE.
#pragma once

#include <cstddef>
#include <cstdint>

// A native socket: a descriptor on POSIX, a SOCKET on Windows.
using PlatSocket = intptr_t;
inline constexpr PlatSocket kPlatNoSocket = -1;

// Protocol numbers as the network module has them.
inline constexpr int32_t kPlatSocketTcp = 0;
inline constexpr int32_t kPlatSocketUdp = 1;

// ---- The subsystem -------------------------------------------------------------

// WSAStartup 2.2 / WSACleanup on Windows; nothing to do on POSIX. The
// startup result is the code WSAStartup returned.
int32_t plat_net_startup();
int32_t plat_net_cleanup();

// ---- Names -------------------------------------------------------------------

// The first IPv4 address of a host name. The error is the resolver's own
// code (not a system error number), non-zero when the name has no address.
int32_t plat_net_lookup_host(const char *name, uint32_t *address);
// The port (host order) of a service for protocol kPlatSocketTcp ("tcp") or
// kPlatSocketUdp ("udp"); a service the system does not know fails with the
// system's no-data error.
int32_t plat_net_lookup_service(const char *name, int32_t protocol, uint16_t *port);

// ---- Error numbers -------------------------------------------------------------

// A send or receive that could not go on now but may later: would-block,
// and the time-out error a socket reports when its SO_SNDTIMEO / SO_RCVTIMEO
// passes (EAGAIN on POSIX, WSAETIMEDOUT on Windows).
bool plat_socket_would_block(int32_t code);
bool plat_socket_is_refused(int32_t code);
bool plat_socket_is_timed_out(int32_t code);
// The error numbers for a connection attempt that ran out of time and for a
// peer that closed the connection (a recv of 0 bytes sets no error of its
// own).
int32_t plat_socket_timed_out_error();
int32_t plat_socket_peer_closed_error();

// ---- Sockets -----------------------------------------------------------------

// A new AF_INET socket: stream/TCP for kPlatSocketTcp, datagram/UDP for
// kPlatSocketUdp; not inherited by child processes.
int32_t plat_socket_open(int32_t protocol, PlatSocket *socket);
// Shuts both directions of the connection down, for every process that
// holds the socket (a socket that was never connected is no error).
int32_t plat_socket_shutdown(PlatSocket socket);
// Closes this process's hold on the socket, which must not be used again.
int32_t plat_socket_close(PlatSocket socket);
// Whether child processes started from now on inherit the socket.
int32_t plat_socket_set_inheritable(PlatSocket socket, bool inheritable);

// Connects to address:port. With timeout_seconds > 0 the attempt gives up
// after that long with plat_socket_timed_out_error() and *timed_out set; the
// socket is blocking again afterwards either way.
int32_t plat_socket_connect(PlatSocket socket, uint32_t address, uint16_t port, int32_t timeout_seconds,
                            bool *timed_out);
int32_t plat_socket_bind(PlatSocket socket, uint32_t address, uint16_t port);
int32_t plat_socket_listen(PlatSocket socket, int32_t backlog);
// Waits for a connection; the new socket is not inherited by child
// processes. *peer_address is the peer's IPv4 address.
int32_t plat_socket_accept(PlatSocket socket, PlatSocket *accepted, uint32_t *peer_address);
// The local port the socket is bound to.
int32_t plat_socket_local_port(PlatSocket socket, uint16_t *port);

// One send or recv of at most size bytes. With wait false the call does not
// block: nothing possible now fails with a would-block error. *done is the
// count moved; a recv of 0 bytes with result 0 means the peer closed.
int32_t plat_socket_send(PlatSocket socket, const void *data, size_t size, bool wait, size_t *done);
int32_t plat_socket_recv(PlatSocket socket, void *data, size_t size, bool wait, size_t *done);
// As plat_socket_recv with wait, but the bytes stay in the socket for the
// next recv (MSG_PEEK).
int32_t plat_socket_peek(PlatSocket socket, void *data, size_t size, size_t *done);

// ---- Options -------------------------------------------------------------------

enum class PlatSocketOption {
    send_buffer,      // SO_SNDBUF, bytes
    recv_buffer,      // SO_RCVBUF, bytes
    send_timeout_ms,  // SO_SNDTIMEO, milliseconds
    recv_timeout_ms,  // SO_RCVTIMEO, milliseconds
    reuse_address,    // SO_REUSEADDR, 0 or 1
};

int32_t plat_socket_set_option(PlatSocket socket, PlatSocketOption option, int32_t value);
// SO_LINGER off: close returns at once and the system sends what is left.
int32_t plat_socket_set_no_linger(PlatSocket socket);

// ---- Waiting on many sockets ------------------------------------------------------

// Event bits of interest and of the result: readable, writable, exception
// (out-of-band data, or a failed connect on Windows).
inline constexpr int32_t kPlatSocketRead = 8;
inline constexpr int32_t kPlatSocketWrite = 4;
inline constexpr int32_t kPlatSocketException = 32;

// One socket to watch: its interest bits in, the bits found out.
struct PlatSocketWatch {
    PlatSocket socket = kPlatNoSocket;
    int32_t interest = 0;
    int32_t ready = 0;
};

// At most this many sockets per kind of event, as select's sets hold them.
inline constexpr size_t kPlatSocketSetSize = 1024;

// Waits up to timeout_ms milliseconds (negative: without limit) until any
// watched socket has one of its events, and sets every entry's ready bits.
// A hung-up or failed socket counts as readable (and writable when watched
// for it), as select reports it. Every entry must hold a socket, and the
// caller keeps to at most kPlatSocketSetSize entries per kind of event.
// With no entries it returns at once.
int32_t plat_socket_wait(PlatSocketWatch *watches, size_t count, int32_t timeout_ms);

// ---- Handing a socket to another process ---------------------------------------

inline constexpr size_t kPlatSocketRecordSize = 372;

// Fills the record that lets process process_id take the socket over: a
// WSAPROTOCOL_INFOA from WSADuplicateSocketA on Windows; on POSIX the socket
// becomes inheritable and the record names it (layout in posix/net.cpp and
// at sl_net_save_socket_for_process).
int32_t plat_socket_export(PlatSocket socket, uint32_t process_id, unsigned char (&record)[kPlatSocketRecordSize]);
// This process's own socket from such a record, not inherited by child
// processes. A record that does not describe a socket this process can take
// over fails (EINVAL / EBADF / ENOTSOCK on POSIX).
int32_t plat_socket_import(const unsigned char (&record)[kPlatSocketRecordSize], PlatSocket *socket);
