/* Network sessions: TCP and UDP sockets over IPv4 for the rest of the library.
 *
 * A session handle carries the protocol, the I/O mode, the remote host and
 * port, three time-outs in whole seconds and the socket. Sends and receives
 * move exact byte counts: a synchronous send or receive loops until every
 * byte has gone or arrived, the time-out clock restarting at every bit of
 * progress; a non-blocking one makes one attempt. A selection group watches
 * many sessions at once. A session's hook routines replace send and receive,
 * which is how a secure layer encrypts everything that passes without its
 * callers noticing. A connected session can be handed to another process,
 * either packed into a signed typed message (slm.h) or, for the socket
 * itself, through a file.
 *
 * Every function returns 1 on success and 0 on failure with the cause on the
 * error stack: the socket error's own entry (the system's text) first, this
 * family's ERR_NET_* entry on top. A session and a selection group belong to
 * one thread at a time; nothing here locks. Traces go to debug channel
 * NETWORK (DBG_BIT_NETWORK).
 *
 * Handing a socket to another process through a file:
 *  - Windows: the file holds exactly one WSAPROTOCOL_INFOA (372 bytes) made
 *    by WSADuplicateSocketA for the target process id; the target process
 *    creates its own socket from it.
 *  - POSIX: the socket is inherited. Saving marks the session's descriptor
 *    inheritable (close-on-exec off) and writes a 372-byte record holding a
 *    magic word, the descriptor's number and the device and inode numbers of
 *    the socket; any process the caller starts afterwards (under any user
 *    identity) inherits the descriptor, and reading the file there checks
 *    that the recorded descriptor is open, is a socket and is the same socket
 *    before returning a duplicate of it (close-on-exec; in a process other
 *    than the one that saved it the inherited descriptor is closed, so the
 *    socket moves rather than being held twice). The file layout is
 *    described at sl_net_save_socket_for_process.
 * Either way, once its socket is saved a session closes it without shutting
 * the connection down, so that the parent can free its session while the
 * other process goes on talking. */
#ifndef VQ_GLOB_SL_NET_H
#define VQ_GLOB_SL_NET_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Protocols. */
#define SL_NET_TCP 0
#define SL_NET_UDP 1

/* I/O modes (sl_net_set_io_mode). */
#define SL_NET_IO_SYNC 0
#define SL_NET_IO_ASYNC 1
#define SL_NET_IO_NON_BLOCKING 2

/* Session flags: a new session has SL_NET_FLAG_DEFAULT; with
 * SL_NET_FLAG_PARTIAL_RECV a synchronous receive returns after the first
 * recv that brought any bytes. */
#define SL_NET_FLAG_DEFAULT 1u
#define SL_NET_FLAG_PARTIAL_RECV 2u

/* Selection events (interest masks and results). */
#define SL_NET_EVENT_READ 8
#define SL_NET_EVENT_WRITE 4
#define SL_NET_EVENT_EXCEPTION 32

/* Hook routine indexes. */
#define SL_NET_HOOK_SEND 0
#define SL_NET_HOOK_RECV 1

/* The size of the socket file of sl_net_save_socket_for_process. */
#define SL_NET_SOCKET_FILE_SIZE 372

/* A native socket: a descriptor on POSIX, a SOCKET on Windows. */
typedef intptr_t sl_net_socket;
#define SL_NET_NO_SOCKET ((sl_net_socket)-1)

/* Remote information of info type 0: a host name or dotted quad, and either a
 * service name (looked up for the session's protocol) or a port. */
typedef struct {
    const char *host;
    const char *service;
    uint16_t port;
} sl_net_remote_info;

/* A hook routine: called by sl_net_send (index 0) or sl_net_recv (index 1)
 * with their four arguments, it returns what they return. A send routine
 * must not write to buffer. */
typedef int (*sl_net_hook_routine)(void *session, void *buffer, int32_t length, int32_t *done_or_null);
/* A hook release routine: called once with the hook data when the session's
 * socket goes (sl_net_free_handle, sl_net_disconnect, a new connect or bind,
 * a replaced socket) while the socket is still open, so that the layer can
 * end its stream and free its state. */
typedef void (*sl_net_hook_release)(void *session, void *hook_data);
/* A hook pending routine: non-zero when the layer holds received bytes its
 * receive hook can give without waiting for the socket (a record read ahead,
 * or the rest of one already decrypted), so that a selection group reports
 * the session readable although its socket is not. */
typedef int32_t (*sl_net_hook_pending)(void *session, void *hook_data);

/* ---- The network subsystem ---------------------------------------------------------- */

/* Starts the socket subsystem (WSAStartup 2.2 on Windows; nothing to start on
 * POSIX). Call once before any other function of this family. */
VQ_API int sl_net_init(void);
/* Stops the socket subsystem (WSACleanup); sessions must be freed first. */
VQ_API int sl_net_clean(void);

/* Resolves a host name or dotted quad into an IPv4 address in network order.
 * Fails with ERR_NET_RESHOST naming the host. */
VQ_API int sl_net_resolve_hostname(const char *name, uint32_t *address);
/* Looks a service up for protocol 0 ("tcp") or 1 ("udp"); *port in host
 * order. Fails with the socket error and ERR_NET_NOSERVICE. */
VQ_API int sl_net_resolve_service(const char *name, int32_t protocol, uint16_t *port);

/* ---- Sessions ------------------------------------------------------------------------- */

/* Allocates a session of protocol 0 (TCP) or 1 (UDP): inactive, I/O mode 0,
 * flags 1, no socket. The caller frees it with sl_net_free_handle. Errors:
 * ERR_NET_BADPROT, ERR_NET_BADPTR for a null out pointer. */
VQ_API int sl_net_allocate_handle(int32_t protocol, void **session);
/* Shuts the socket down (not after sl_net_save_socket_for_process), closes
 * it, frees the session and nulls *session. */
VQ_API int sl_net_free_handle(void **session);

/* Setters of the session's fields: protocol 0 or 1 (ERR_NET_BADPROT), I/O
 * mode 0..2 (ERR_NET_BADIO), the flags word (set, or bits added or cleared),
 * the service name named in the connection-refused hint (copied; NULL
 * clears it), and the connect time-out in seconds (0 none; negative values
 * are ignored). */
VQ_API int sl_net_set_protocol(void *session, int32_t protocol);
VQ_API int sl_net_set_io_mode(void *session, int32_t mode);
VQ_API int sl_net_set_flags(void *session, uint32_t flags);
VQ_API int sl_net_add_flags(void *session, uint32_t flags);
VQ_API int sl_net_clear_flags(void *session, uint32_t flags);
VQ_API int sl_net_get_flags(void *session, uint32_t *flags);
VQ_API int sl_net_set_svc_name(void *session, const char *name);
VQ_API int sl_net_set_connect_timeout(void *session, int32_t seconds);
/* The connect, send and receive time-outs in seconds (0: none). */
VQ_API int sl_net_get_connect_timeout(void *session, int32_t *seconds);
VQ_API int sl_net_get_send_timeout(void *session, int32_t *seconds);
VQ_API int sl_net_get_recv_timeout(void *session, int32_t *seconds);
/* Copies the remote host name as given to sl_net_set_remote_info into buffer
 * of size bytes. Returns 0 without an error (and "") when none is set; a name
 * that does not fit fails with ERR_NET_BADPTR instead of being cut short. */
VQ_API int sl_net_get_remote_host(void *session, char *buffer, int32_t size);

/* Sets the remote host and port from info of info_type 0 (else
 * ERR_NET_BADINFO): the host is resolved (ERR_NET_NOHOST without one); the
 * port comes from the service when one is given and resolves, else from
 * info->port; neither: ERR_NET_SERUNK. */
VQ_API int sl_net_set_remote_info(void *session, int32_t info_type, const sl_net_remote_info *info);

/* Socket options of an active session (ERR_NET_NOTACT otherwise): the kernel
 * send and receive buffer sizes in bytes; the send and receive time-outs in
 * seconds (stored; when positive also set on the socket, 0 or less takes the
 * socket's own time-out away); no lingering on close; address reuse. A
 * negative size or a refused option fails with the socket error and
 * ERR_NET_BADPTR. */
VQ_API int sl_net_set_send_buffer_size(void *session, int32_t bytes);
VQ_API int sl_net_set_recv_buffer_size(void *session, int32_t bytes);
VQ_API int sl_net_set_send_timeout(void *session, int32_t seconds);
VQ_API int sl_net_set_recv_timeout(void *session, int32_t seconds);
VQ_API int sl_net_set_nolinger(void *session);
VQ_API int sl_net_set_reuseaddr(void *session);

/* ---- Connections ---------------------------------------------------------------------- */

/* Connects to the remote host and port, within the connect time-out when one
 * is set (ERR_TV_CONNTO). A refused or timed-out connection puts a hint
 * naming the port, host and service under the socket error and
 * ERR_NET_CONNF. Success makes the session active. */
VQ_API int sl_net_connect(void *session);
/* Shuts the socket down and closes it; the session becomes inactive and can
 * connect again. */
VQ_API int sl_net_disconnect(void *session);
/* Breaks the session's connection off from any thread: both directions are
 * shut down, so that a send or receive another thread is blocked in on it
 * fails at once, as does every later transfer. The socket stays open (and
 * the session allocated) until its own thread disconnects or frees it; the
 * caller must keep the session from being freed while this runs. For a
 * daemon that stops while its connections wait on their peers. A session
 * without a socket is no error. */
VQ_API int sl_net_abort(void *session);
/* Creates the socket, sets address reuse and binds it to port (0: one the
 * system picks, see sl_net_get_local_port) on the address of host_or_null,
 * or on every address. Fails with ERR_NET_BIND. */
VQ_API int sl_net_bind(void *session, const char *host_or_null, uint16_t port);
/* Listens on a bound session. Fails with ERR_NET_LISTEN. */
VQ_API int sl_net_listen(void *session, int32_t backlog);
/* Waits for a connection on a listening session and returns it as a new,
 * active session (I/O mode 0, flags 1, the listener's protocol) that the
 * caller frees. Fails with ERR_NET_ACCEPT. */
VQ_API int sl_net_accept(void *listening, void **new_session);

/* ---- Sending and receiving ------------------------------------------------------------ */

/* Sends length bytes through the hook routine when the hook state is on,
 * else by the I/O mode; *sent_or_null (when given) receives the count sent.
 * Errors: ERR_NET_BADSESS, ERR_NET_NOTACT under ERR_NET_SEND. */
VQ_API int sl_net_send(void *session, const void *buffer, int32_t length, int32_t *sent_or_null);
/* Receives length bytes into buffer the same way. A synchronous receive that
 * finds the peer closed fails and leaves the session inactive. With the hook
 * state on but no routine for the direction, both go by the I/O mode. */
VQ_API int sl_net_recv(void *session, void *buffer, int32_t length, int32_t *received_or_null);
/* Sends every byte, retrying would-block at once; fails with ERR_NET_SEND when
 * the send time-out passes without progress or on any other socket error. */
VQ_API int sl_net_send_sync(void *session, const void *buffer, int32_t length, int32_t *sent_or_null);
/* Receives every byte (or, with SL_NET_FLAG_PARTIAL_RECV, what the first
 * successful recv brings); fails with ERR_NET_RECV on a time-out without
 * progress, a socket error or a closed peer (reported as the system's
 * connection-reset error, a closed peer setting none of its own), and then
 * leaves the session inactive. The socket's own receive time-out counts as
 * no progress, so a silent peer ends the receive once the time-out passed.
 * Both report the count moved so far, on failure too. */
VQ_API int sl_net_recv_sync(void *session, void *buffer, int32_t length, int32_t *received_or_null);
/* Receives what arrives first, at least one byte and at most length, within
 * the receive time-out, straight from the socket whatever the hook state and
 * the flags (for a layer behind the hooks reading its own records); fails as
 * sl_net_recv_sync does. */
VQ_API int sl_net_recv_available(void *session, void *buffer, int32_t length, int32_t *received_or_null);
/* As sl_net_recv_available, but the bytes stay in the socket: the next
 * receive gets them again. For telling protocols apart by their first bytes
 * (a TLS handshake starts with 0x16) before choosing how to read. May give
 * fewer bytes than have been sent; fails as sl_net_recv_sync does. */
VQ_API int sl_net_peek(void *session, void *buffer, int32_t length, int32_t *received_or_null);
/* One send or recv of the whole length; would-block succeeds with 0 bytes. A
 * receive that finds the peer closed fails with nothing on the error stack
 * and leaves the state alone. */
VQ_API int sl_net_send_non_blocking(void *session, const void *buffer, int32_t length, int32_t *sent_or_null);
VQ_API int sl_net_recv_non_blocking(void *session, void *buffer, int32_t length, int32_t *received_or_null);
/* Asynchronous I/O is not provided: both trace and return 0. */
VQ_API int sl_net_send_async(void *session, const void *buffer, int32_t length, int32_t *sent_or_null);
VQ_API int sl_net_recv_async(void *session, void *buffer, int32_t length, int32_t *received_or_null);

/* ---- Selection groups ----------------------------------------------------------------- */

/* Allocates an empty selection group (freed with
 * sl_net_free_selection_group, which nulls *group and leaves the sessions
 * alone); sl_net_init_selection_group empties an existing one. */
VQ_API int sl_net_allocate_selection_group(void **group);
VQ_API int sl_net_init_selection_group(void *group);
VQ_API int sl_net_free_selection_group(void **group);
/* Adds a session with its interest mask of SL_NET_EVENT_* bits into the first
 * free slot; the member table grows by 5 slots when full. A session already
 * in the group only gets the new mask. */
VQ_API int sl_net_add_to_selection_group(void *group, void *session, int32_t events);
/* Removes a session from the group (a session not in it fails with
 * ERR_NET_BADSESS). */
VQ_API int sl_net_remove_from_selection_group(void *group, void *session);
VQ_API int sl_net_get_number_of_members(void *group, int32_t *count);
/* Waits up to timeout_ms milliseconds (negative: without limit) for any
 * member's events; *ready is the number of members ready (0 on time-out),
 * each counted once whatever its events, which is what get_next_event then
 * hands out. Members without a socket are not watched, and a group with
 * nothing to watch returns at once. At most 1024 members may wait for each
 * kind of event (select's set size; POSIX waits with poll, which knows no
 * limit on descriptor numbers); more fail with ERR_NET_SELECT, as does a
 * failed wait. A member waiting to read whose hook layer holds received bytes
 * (sl_net_set_hook_pending) is ready at once. */
VQ_API int sl_net_select(void *group, int32_t timeout_ms, int32_t *ready);
/* Hands out the next ready member and its SL_NET_EVENT_* bits; *session is
 * NULL when every ready member has been reported. */
VQ_API int sl_net_get_next_event(void *group, void **session, int32_t *events);

/* ---- Hooks ---------------------------------------------------------------------------- */

/* Turns the hook routines on (non-zero) or off for sends and receives. */
VQ_API int sl_net_set_hook_state(void *session, int32_t on);
/* Sets hook routine 0 (send) or 1 (receive); any other index fails with
 * ERR_NET_INVHC. NULL removes the routine. */
VQ_API int sl_net_set_hook_routine(void *session, int32_t index, sl_net_hook_routine routine);
/* The hook's opaque data pointer (not owned). */
VQ_API int sl_net_set_hook_data(void *session, void *data);
VQ_API int sl_net_get_hook_data(void *session, void **data);
/* Sets the routine that releases the hook's layer (NULL: none); once it ran,
 * the hook routines, data, state and stream holder are cleared. */
VQ_API int sl_net_set_hook_release(void *session, sl_net_hook_release routine);
/* Sets the routine sl_net_select asks, while the hooks are on, whether the
 * layer holds received bytes (NULL: none); cleared with the hooks. */
VQ_API int sl_net_set_hook_pending(void *session, sl_net_hook_pending routine);
/* Marks the stream as holding state that cannot leave this process, naming
 * the layer that holds it (copied; NULL or "" clears it): while it is set,
 * sl_net_pack_handle and sl_net_save_socket_for_process fail with
 * ERR_NET_HELD. Cleared with the hooks when the socket goes. */
VQ_API int sl_net_set_stream_holder(void *session, const char *holder);
/* Copies the holder's name into buffer of size bytes; 0 without an error
 * (and "") when nothing holds the stream, ERR_NET_BADPTR when it does not fit. */
VQ_API int sl_net_get_stream_holder(void *session, char *buffer, int32_t size);

/* ---- Session fields ------------------------------------------------------------------- */

/* The session's native socket (SL_NET_NO_SOCKET when none). */
VQ_API int sl_net_get_socket(void *session, sl_net_socket *socket);
/* Replaces the session's socket with one the caller created or received
 * (the session takes ownership and closes it when freed; the one it held
 * before is closed) and makes the session active. */
VQ_API int sl_net_override_socket(void *session, sl_net_socket socket);
/* Marks the session inactive, its socket left open: what a layer behind the
 * hooks does when its own stream ended, as a receive does for a closed peer. */
VQ_API int sl_net_set_inactive(void *session);
/* 1 when the session is active (connected or accepted), else 0. */
VQ_API int sl_net_is_active(void *session);
/* The accepted peer's IPv4 address, network order (0 before an accept). */
VQ_API int sl_net_get_peer_address(void *session, uint32_t *address);
/* The port the session's socket is bound to, host order. */
VQ_API int sl_net_get_local_port(void *session, uint16_t *port);
/* Two opaque 32-bit values for the caller's own use. */
VQ_API int sl_net_set_user_context(void *session, uint32_t context);
VQ_API int sl_net_get_user_context(void *session, uint32_t *context);
VQ_API int sl_net_set_user_flags(void *session, uint32_t flags);
VQ_API int sl_net_get_user_flags(void *session, uint32_t *flags);

/* ---- Handover to another process ------------------------------------------------------- */

/* Packs the session's fields into a new signed typed message (codes 0-10 then
 * the end code 65534); *buffer is allocated with malloc and the caller frees
 * it with free(), *length its size. A session whose stream is held
 * (sl_net_set_stream_holder) fails with ERR_NET_HELD. */
VQ_API int sl_net_pack_handle(void *session, void **buffer, uint32_t *length);
/* Checks the signature of a packed session and rebuilds the session from it
 * (the caller frees it). A bad signature fails with ERR_MSG_CRC, an unknown
 * code with ERR_NET_INCNST. */
VQ_API int sl_net_unpack_to_handle(const void *buffer, uint32_t length, void **session);
/* Writes the socket file that lets process process_id take over the
 * session's socket (exactly SL_NET_SOCKET_FILE_SIZE bytes; ERR_FIL_WRITE on
 * a short write, and the file is removed again; the system's message when
 * the file cannot be created; ERR_NET_NOTACT without a socket; ERR_NET_HELD
 * while a layer holds the stream). On Windows
 * the file is the WSAPROTOCOL_INFOA. On POSIX the socket stays open across
 * exec in the processes the caller starts from now on, and the file is this
 * record, numbers big-endian, the rest zero:
 *   offset  0  4 bytes  magic "VQSK"
 *   offset  4  4 bytes  layout version, 1
 *   offset  8  4 bytes  descriptor number
 *   offset 12  4 bytes  id of the saving process
 *   offset 16  4 bytes  process_id as given
 *   offset 20  8 bytes  st_dev of the socket
 *   offset 28  8 bytes  st_ino of the socket */
VQ_API int sl_net_save_socket_for_process(void *session, uint32_t process_id, const char *file_name);
/* Reads exactly SL_NET_SOCKET_FILE_SIZE bytes of a regular socket file
 * (ERR_FIL_READ otherwise, under the system's message when it cannot be
 * opened) and creates the process's own socket from it (the socket error and
 * ERR_NET_CRESOCK when the record names no socket this process can take);
 * the caller owns *socket (sl_net_override_socket gives it to a session). */
VQ_API int sl_net_get_socket_from_file(sl_net_socket *socket, const char *file_name);

VQ_EXTERN_C_END

#endif
