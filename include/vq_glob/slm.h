/* Typed messages with attachments, sent over network sessions (sl_net.h).
 *
 * A message is a growable buffer of typed elements, each keyed by a 16-bit
 * code, protected by a CRC over the whole body. The reader walks a cursor in
 * the order the elements were written; there is no index. Files (or caller
 * buffers) travel with a message as attachments: they go ahead of the body, as
 * parts of their own, and the receiver writes each into a temporary file or
 * into the name on the target the sender gave.
 *
 * Body (all numbers big-endian):
 *
 *   offset 0  4 bytes  signature: updcrc (hash.h) of bytes 4 .. size-1
 *   offset 4  ...      elements, back to back
 *
 * Element: 2-byte code, 1-byte type, then
 *
 *   type 0 int          4-byte value                               7 bytes
 *   type 1 bool         1 byte, 1 for any non-zero value            4 bytes
 *   type 2 string       4-byte length L (strlen + 1, 0 for NULL),   7 + L
 *                       then L bytes including the NUL
 *   type 3 void         4-byte length L, then L bytes               7 + L
 *   type 4 text att.    4-byte attachment number (0-based)          7 bytes
 *   type 5 short        2-byte value                                5 bytes
 *   type 6 binary att.  4-byte attachment number                    7 bytes
 *
 * A bare code (2 bytes, no type) is written by slm_insert_code; a signed
 * message ends with the bare code 65534. A new message signed at once is 6
 * bytes: the CRC of FF FE, then FF FE.
 *
 * On the wire every part goes behind a 10-byte header:
 *
 *   offset 0  2 bytes  1 (SLM_MSG_SIZE_CODE)
 *   offset 2  4 bytes  body length of this part, 0 .. 32768
 *   offset 6  2 bytes  2 (SLM_LAST_MSG_CODE)
 *   offset 8  2 bytes  indication:
 *                      0 last (or only) part of the body   1 a body part, more follow
 *                      2 text attachment part, more follow 3 last text attachment part
 *                      4 binary attachment part, more      5 last binary attachment part
 *                      6 attachment-information part, more 7 its last part
 *                      8 restart: the sender failed (empty body)
 *
 * A message goes as: for each attachment in table order, its
 * attachment-information message (only when it has a name on the target:
 * codes SLM_ATT_* below, then 65534, signed; indications 6/7) and its data
 * in pieces of at most 32768 bytes (2/3 or 4/5; an attachment whose size is a
 * multiple of the piece size ends with an empty last piece); then the body,
 * in parts of 32768 with indication 1 and a last one with indication 0.
 *
 * Receiving. Every attachment received takes the next entry of the
 * receiver's attachment table, written or not, so that attachment numbers in
 * the body match the sender's. Without a name on the target the data goes to
 * a new temporary file "slm*" in the temp dir (slm_set_temp_dir; the current
 * directory when none); with one it goes straight to that name, which an
 * existing file keeps unless the replace value is 1, or when times are
 * considered and the file on the target is newer (equal times are not
 * newer). slm_get_att_and_status tells where each attachment went and
 * whether it was written; an attachment refused by the target root or whose
 * old file could not be deleted also leaves its reason (ERR_MSG_TGTROOT,
 * ERR_MSG_ATTDEL) on the error stack, while the receive goes on and may
 * still return 1. Text and binary attachments both travel byte for byte (no
 * line-end translation on either side): the kind only decides the
 * indications and the mode the receiver reports. A restart part drops the message received so far:
 * its temporary files are deleted, and the receive goes on with the next
 * message. A receive that fails (a broken or malformed message, a closed
 * peer, a time-out) deletes the temporary files of the message it was
 * receiving and frees what it took; files written to names on the target
 * stay.
 *
 * Limits (the other end of a connection is not trusted): a part of more than
 * 32768 bytes is refused before anything is allocated; a body is at most
 * SLM_MAX_BODY_SIZE bytes, an attachment-information message at most
 * SLM_MAX_ATT_INFO_SIZE, a message carries at most SLM_MAX_ATTACHMENTS
 * attachments. With slm_set_target_root, a name on the target must pass
 * gf_path_is_confined (gf_path.h) against the root: one that is absolute or
 * empty, holds an empty, "." or ".." element (or a backslash on POSIX), or
 * resolves through symbolic links outside the root is refused and nothing is
 * written.
 *
 * Functions return 1 on success and 0 on failure with the cause on the error
 * stack (ERR_MSG_*, ERR_GEN_PARAMS for a null handle or output pointer,
 * ERR_GEN_MEMORY). A handle belongs to one thread at a time. */
#ifndef VQ_GLOB_SLM_H
#define VQ_GLOB_SLM_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Element types. */
#define SLM_TYPE_INT 0
#define SLM_TYPE_BOOL 1
#define SLM_TYPE_STRING 2
#define SLM_TYPE_VOID 3
#define SLM_TYPE_TEXT_ATT 4
#define SLM_TYPE_SHORT 5
#define SLM_TYPE_BINARY_ATT 6

/* The bare code that ends a signed message. */
#define SLM_END_CODE 65534u
/* Part header fields and part sizes. */
#define SLM_MSG_SIZE_CODE 1
#define SLM_LAST_MSG_CODE 2
#define SLM_PART_HEADER_SIZE 10
#define SLM_MAX_PART_SIZE 32768u
/* A new handle's buffer, and the size a reused buffer shrinks back to. */
#define SLM_INITIAL_CAPACITY 32768u
#define SLM_SHRINK_CAPACITY 524288u
/* Receiving limits. */
#define SLM_MAX_BODY_SIZE (64u * 1024u * 1024u)
#define SLM_MAX_ATT_INFO_SIZE 65536u
#define SLM_MAX_ATTACHMENTS 100000
/* This side's version: a failed send is followed by a restart part when it
 * is not above the peer's (slm_set_remote_version). */
#define SLM_LOCAL_VERSION 2.027

/* Indications of the part header. */
#define SLM_PART_BODY_LAST 0
#define SLM_PART_BODY_MORE 1
#define SLM_PART_TEXT_MORE 2
#define SLM_PART_TEXT_LAST 3
#define SLM_PART_BINARY_MORE 4
#define SLM_PART_BINARY_LAST 5
#define SLM_PART_ATT_INFO_MORE 6
#define SLM_PART_ATT_INFO_LAST 7
#define SLM_PART_RESTART 8

/* Codes of the attachment-information message. */
#define SLM_ATT_NAME_ON_TARGET_VALUE 0
#define SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE 1
#define SLM_ATT_UNIX_MOD_TIME_VALUE 2
#define SLM_ATT_NT_LSB_MOD_TIME_VALUE 3
#define SLM_ATT_NT_MSB_MOD_TIME_VALUE 4

/* ---- Handles ------------------------------------------------------------------------ */

/* A new, empty message with its own 32768-byte buffer; freed with
 * slm_free_handle. */
VQ_API int slm_allocate_handle(void **handle);
/* Wraps a received body (neither copied nor owned: it must outlive the
 * handle) for reading, after checking its signature; a mismatch fails with
 * ERR_MSG_CRC, a length below 4 with ERR_MSG_BADMSG, and *handle is NULL.
 * The body is never written: the first write or signing through the handle
 * copies it into a buffer of the handle's own and appends there.
 * slm_init_handle on such a handle moves the cursor back to the first
 * element, to read the body again. */
VQ_API int slm_read_message_to_handle(void **handle, const void *buffer, uint32_t length);
/* Empties a handle for reuse: cursor and size back to the start (an owned
 * buffer grown past 524288 bytes shrinks back to that), attachments, the
 * receive buffer and the attachment buffer freed. */
VQ_API int slm_init_handle(void *handle);
/* Frees the handle and everything it owns; *handle becomes NULL. */
VQ_API int slm_free_handle(void **handle);

/* The bytes used (signature included), the message's buffer (owned by the
 * handle), the number of attachments. */
VQ_API int slm_get_size(void *handle, uint32_t *size);
VQ_API int slm_get_message_ptr(void *handle, void **buffer);
VQ_API int slm_get_number_of_attachments(void *handle, int32_t *count);
/* Where received attachments without a name on the target are written
 * (copied; NULL: the current directory); the getter's text is the handle's. */
VQ_API int slm_set_temp_dir(void *handle, const char *dir);
VQ_API int slm_get_temp_dir(void *handle, const char **dir);
/* The size of the pieces attachments are read in (default 32768; pieces on
 * the wire never exceed 32768 bytes whatever this says). */
VQ_API int slm_set_att_buffer_size(void *handle, uint32_t size);
/* A progress routine: called by slm_send on the sending thread after each
 * piece of attachment data has left, with the data given to
 * slm_set_progress_routine, the attachment's index (0 = the first in the
 * table) and the piece's byte count. It must not use the handle. */
typedef void (*slm_progress_routine)(void *data, int32_t attachment, uint32_t bytes);
/* Sets the handle's progress routine and its data (NULL removes it); kept
 * when the handle is emptied. For progress bars of large attachments. */
VQ_API int slm_set_progress_routine(void *handle, slm_progress_routine routine, void *data);
/* The peer's version, which decides whether a failed send sends a restart. */
VQ_API int slm_set_remote_version(void *handle, double version);
/* Confines names on the target of received attachments to dir (copied; NULL
 * turns the confinement off, the default). */
VQ_API int slm_set_target_root(void *handle, const char *dir);

/* ---- Writing: each appends one element at the cursor, growing the buffer --------------- */

VQ_API int slm_set_int(void *handle, uint16_t code, int32_t value);
VQ_API int slm_set_bool(void *handle, uint16_t code, int32_t value);
VQ_API int slm_set_short(void *handle, uint16_t code, int16_t value);
/* A NULL text is written as length 0 and read back as NULL. */
VQ_API int slm_set_string(void *handle, uint16_t code, const char *text);
VQ_API int slm_set_void(void *handle, uint16_t code, const void *data, uint32_t length);
/* A bare code without type or value; -2 (65534) ends a signed message. */
VQ_API int slm_insert_code(void *handle, uint16_t code);
/* Writes the CRC of bytes 4 .. size-1 into bytes 0-3. */
VQ_API int slm_sign_message(void *handle);

/* Attachments: each adds an entry to the attachment table and writes a
 * reference element (type 6 when binary, else 4) carrying its number. The
 * file is opened only when the message is sent. */
VQ_API int slm_set_att(void *handle, uint16_t code, const char *file_name, int32_t binary);
/* The same, with the name the receiver writes the data to, the replace value
 * (1: an existing file there is replaced) and, when time_block is non-zero,
 * the source's modification times (Unix seconds, Windows FILETIME words) for
 * the newer-on-target rule. */
VQ_API int slm_set_att_with_target_fn(void *handle, uint16_t code, const char *file_name, const char *name_on_target,
                                      int32_t replace, int32_t time_block, int32_t unix_time, uint32_t nt_low,
                                      uint32_t nt_high, int32_t binary);
/* A caller buffer sent as an attachment (not copied: it must stay valid until
 * the message is sent). */
VQ_API int slm_set_buffer_as_att(void *handle, uint16_t code, const void *buffer, uint32_t length, int32_t binary);

/* ---- Reading: each reads the element at the cursor; a wrong type fails with
 * ERR_MSG_TYPMIS and leaves the cursor where it was; reading past the end
 * fails with ERR_MSG_BADMSG ----------------------------------------------------------- */

VQ_API int slm_get_code(void *handle, uint16_t *code);
VQ_API int slm_get_int(void *handle, int32_t *value);
VQ_API int slm_get_bool(void *handle, int32_t *value);
VQ_API int slm_get_short(void *handle, int16_t *value);
/* An allocated copy (free with free()); NULL for a null string. */
VQ_API int slm_get_string(void *handle, char **text);
/* Copies the string into buffer of size bytes; a string (with its NUL) that
 * does not fit fails with ERR_MSG_SMALLBUF and leaves the cursor alone. A
 * null string gives "". */
VQ_API int slm_get_string_noalloc(void *handle, char *buffer, uint32_t size);
/* *data points into the message (valid while the handle is), *length its size. */
VQ_API int slm_get_void(void *handle, void **data, uint32_t *length);
/* Steps over the element whose code was just read (the cursor on its type
 * byte), whatever its type; an unknown type fails with ERR_MSG_BADMSG. */
VQ_API int slm_skip_element(void *handle);
/* Reads a code and fails unless it is code. */
VQ_API int slm_verify_type(void *handle, uint16_t code);
/* A code that must equal code, then the value (as the readers above). */
VQ_API int slm_get_int_by_code(void *handle, uint16_t code, int32_t *value);
VQ_API int slm_get_bool_by_code(void *handle, uint16_t code, int32_t *value);
VQ_API int slm_get_short_by_code(void *handle, uint16_t code, int16_t *value);
VQ_API int slm_get_string_by_code(void *handle, uint16_t code, char **text);
VQ_API int slm_get_string_noalloc_by_code(void *handle, uint16_t code, char *buffer, uint32_t size);
/* A code that must equal code, then an attachment reference: *file_name (an
 * allocated copy, free with free()) names the file the data went to,
 * *binary is 1 for a binary attachment. A number beyond the table fails with
 * ERR_MSG_NOATT. */
VQ_API int slm_get_att(void *handle, uint16_t code, char **file_name, int32_t *binary);
/* The attachment reference at the cursor: the file the data went to (the
 * temporary file or the name on the target; allocated copy), mode 1 binary /
 * 0 text, status 1 written / 0 not written, and why not (allocated copy, or
 * NULL when written). Any output pointer may be NULL. */
VQ_API int slm_get_att_and_status(void *handle, char **file_name, int32_t *mode, int32_t *status, char **error_text);
/* The byte count and CRC-32 (hash.h's crc32_continue, zlib's value) of the
 * received attachment index (0 = the first to arrive, the order the sender
 * added them in; SLM_LAST_REFERENCE = the one whose reference slm_get_att or
 * slm_get_att_and_status read last), computed as its data arrived, whether
 * or not it was written: a receiver checks a file against a sender's CRC
 * without reading it again. Either output may be NULL. An index beyond the
 * table (or no reference read yet) fails with ERR_MSG_NOATT. */
#define SLM_LAST_REFERENCE (-1)
VQ_API int slm_get_att_crc(void *handle, int32_t index, uint64_t *size, uint32_t *crc);

/* ---- Sending and receiving --------------------------------------------------------------- */

/* Sends the attachments, then the body; with sign non-zero first ends the
 * message with 65534 and signs it. Fails with ERR_MSG_SEND (after a restart
 * part, see SLM_LOCAL_VERSION). */
VQ_API int slm_send(void *handle, void *session, int32_t sign);
/* Receives one whole, signature-checked message with its attachments into
 * handle (emptied first). */
VQ_API int slm_recv(void *handle, void *session);
/* The same; *full_success is 1 when every attachment was written, else 0. */
VQ_API int slm_recv_with_success_indication(void *handle, void *session, int32_t *full_success);

VQ_EXTERN_C_END

#endif
