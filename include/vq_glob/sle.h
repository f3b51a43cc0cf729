/* Secure sessions: TLS over a connected network session (sl_net.h).
 *
 * A context holds one side's settings: its role (client or server), its
 * certificate and private key, the CA certificates it verifies its peer
 * against and how strictly. Attaching a context to a connected session runs
 * the TLS handshake and then installs the session's hook routines, so that
 * every sl_net_send / sl_net_recv on it, and so every slm_ message and
 * attachment, travels encrypted and authenticated without a change in the
 * caller. TLS 1.2 is the oldest protocol accepted (TLS 1.3 is preferred);
 * TLS 1.2 offers only ECDHE key exchange with AES-GCM or ChaCha20-Poly1305.
 * The ciphers in order of preference: AES-128-GCM, AES-256-GCM,
 * ChaCha20-Poly1305. Received records are read ahead (up to 64 KiB a system
 * call); a selection group reports an attached session readable while TLS
 * holds bytes for it (sl_net_set_hook_pending).
 *
 * OpenSSL 3 (libssl and libcrypto) is loaded at run time, once per process:
 * libssl.so.3 / libcrypto.so.3 on POSIX, libssl-3-x64.dll / libcrypto-3-x64.dll
 * on 64-bit Windows, libssl-3.dll / libcrypto-3.dll on 32-bit. Without it
 * every function fails with ERR_SLE_NOTAVAIL naming the reason.
 *
 * Every function returns 1 on success and 0 with the cause on the error
 * stack: OpenSSL's own reasons on one line under this family's ERR_SLE_*
 * entry. Keys must be unencrypted PEM files (an encrypted key is refused,
 * never prompted for); no key, password or session secret ever reaches a
 * trace or an error text. Traces go to channel SLSEC (DBG_BIT_SLSEC):
 * handshake start and end, protocol and cipher, peer name and fingerprint.
 *
 * Threads: a context may be shared by many sessions in many threads (a
 * daemon attaches one server context to every session it accepts); its
 * setters lock it against attaches running at the same time. Each attached
 * session holds its own reference to the TLS context and its own copy of the
 * checks, so freeing a context while sessions use it is safe: they go on
 * until detached or freed. A session belongs to one thread at a time.
 *
 * A server and a client in a dozen lines (error handling shortened):
 *
 *   void *ctx, *listener, *session;                   // the daemon
 *   sle_allocate_context(&ctx, 1);
 *   sle_set_certificate(ctx, "server.pem", "server.key");
 *   sle_set_ca_file(ctx, "ca.pem");
 *   sle_set_require_peer_certificate(ctx, 1);         // clients prove who they are
 *   ...sl_net_bind, sl_net_listen, then for every connection:
 *   sl_net_accept(listener, &session);
 *   sl_net_set_recv_timeout(session, 30);
 *   if (sle_attach(ctx, session)) {
 *       char who[256];
 *       sle_get_peer_name(session, who, sizeof who);   // authorise "who"
 *       slm_recv(message, session);                    // encrypted from here on
 *   }
 *   sl_net_free_handle(&session);
 *
 *   sle_allocate_context(&ctx, 0);                    // the client
 *   sle_set_certificate(ctx, "client.pem", "client.key");
 *   sle_set_ca_file(ctx, "ca.pem");
 *   sl_net_set_remote_info(session, 0, &info);        // the host the certificate must name
 *   sl_net_connect(session);
 *   if (sle_attach(ctx, session)) slm_send(message, session, 1);
 *   sle_detach(session);                              // close_notify; plain traffic may follow
 */
#ifndef VQ_GLOB_SLE_H
#define VQ_GLOB_SLE_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Context roles. */
#define SLE_CLIENT 0
#define SLE_SERVER 1

/* The size of a fingerprint buffer: 64 lower-case hex digits and the NUL. */
#define SLE_FINGERPRINT_SIZE 65

/* Loads libssl and libcrypto (once per process; every other function does so
 * too on first use). 1 when TLS is available; else 0 with ERR_SLE_NOTAVAIL
 * naming the library or function missing, again on every later call. */
VQ_API int sle_init(void);

/* Allocates a context for role 0 (client) or 1 (server) with peer
 * verification on, no certificate and no CA; the caller frees it with
 * sle_free_context. Errors: ERR_SLE_NOTAVAIL, ERR_GEN_PARAMS for another role
 * or a null pointer, ERR_SLE_CONTEXT when OpenSSL refuses. */
VQ_API int sle_allocate_context(void **ctx, int32_t role);
/* Frees the context and nulls *ctx; sessions attached from it are not
 * affected. */
VQ_API int sle_free_context(void **ctx);

/* Loads this side's certificate (a PEM file, optionally followed by its
 * chain) and its unencrypted PEM private key, and checks that they belong
 * together. Fails with ERR_SLE_CERTFILE naming both files. */
VQ_API int sle_set_certificate(void *ctx, const char *cert_pem_file, const char *key_pem_file);
/* Adds the CA certificates of a PEM file to those the peer's certificate
 * chain is verified against (none by default: without a CA file or a pin
 * every peer certificate is refused). Fails with ERR_SLE_CAFILE. */
VQ_API int sle_set_ca_file(void *ctx, const char *ca_pem_file);
/* Verification of the peer's certificate: on (non-zero, the default) or off.
 * Off accepts any certificate, or none, without a host check: for tests only.
 * A pinned fingerprint is checked either way. */
VQ_API int sle_set_verify_peer(void *ctx, int32_t on);
/* Server: non-zero refuses clients that send no certificate (mutual TLS;
 * default 0: a certificate a client sends is still verified). A client
 * context fails with ERR_SLE_CONTEXT. */
VQ_API int sle_set_require_peer_certificate(void *ctx, int32_t on);
/* Client: the host name or dotted quad the server's certificate must carry
 * (a DNS name, or an IP address for a dotted quad), in place of the
 * session's remote host name; NULL or "" goes back to that. A server context
 * fails with ERR_SLE_CONTEXT. */
VQ_API int sle_set_expected_host(void *ctx, const char *host);
/* Accepts exactly the peer certificate whose DER form has this SHA-256
 * (64 hex digits, either case) and skips the CA and host checks; NULL or ""
 * removes the pin. Any other text fails with ERR_SLE_BADPIN. */
VQ_API int sle_pin_peer_fingerprint(void *ctx, const char *sha256_hex);

/* Runs the TLS handshake on a connected session as ctx's role, each read and
 * write within the session's time-outs (a session without a receive
 * time-out gets 60 seconds for the handshake), then routes every
 * sl_net_send / sl_net_recv through TLS and marks the stream as held (the
 * session cannot be handed to another process). A refused peer fails with
 * ERR_SLE_VERIFY (the verifier's reason), ERR_SLE_HOSTMISMATCH,
 * ERR_SLE_PINMISMATCH, ERR_SLE_NOPEERCERT or ERR_SLE_NOHOST over
 * ERR_SLE_HANDSHAKE; anything else with ERR_SLE_HANDSHAKE. A session already
 * held fails with ERR_SLE_ATTACHED. On failure nothing stays attached;
 * freeing the session detaches too (sending close_notify). */
VQ_API int sle_attach(void *ctx, void *session);
/* Sends close_notify, reads the peer's within the receive time-out, removes
 * the hooks and frees the TLS state; the socket stays open and active, so
 * plain traffic may follow once both sides detached. Data the peer sent
 * before its close_notify is discarded and fails the call with
 * ERR_SLE_CLOSE (the TLS state is gone either way). ERR_SLE_NOTATTACHED when
 * no TLS is attached. */
VQ_API int sle_detach(void *session);

/* Copies the common name of the peer's certificate (verified unless
 * verification is off) into buffer of size bytes; ERR_SLE_SMALLBUF instead of
 * a cut name. 0 with ERR_SLE_NOPEERCERT when the peer sent no certificate. */
VQ_API int sle_get_peer_name(void *session, char *buffer, int32_t size);
/* Writes the SHA-256 of the peer certificate's DER form as 64 lower-case hex
 * digits and a NUL into buffer (SLE_FINGERPRINT_SIZE bytes). 0 with
 * ERR_SLE_NOPEERCERT when the peer sent no certificate. */
VQ_API int sle_get_peer_fingerprint(void *session, char *buffer);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_SLE_H */
