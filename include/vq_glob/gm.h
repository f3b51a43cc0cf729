/* General messages: self-describing binary messages of tagged elements.
 *
 * An element is a code byte, a 16-bit big-endian length, a type byte and the
 * data, with no padding between elements:
 *
 *   type 0 char    1 byte                         length 1
 *   type 1 short   16 bits, big-endian            length 2
 *   type 2 int     32 bits, big-endian            length 4
 *   type 3 long    32 bits, big-endian            length 4
 *   type 4 str     the bytes and their NUL        strlen + 1 (0 for NULL)
 *   type 5 void    raw bytes                      the size (0 for NULL data)
 *   type 6 stream  1 byte: the members' type      the stream count
 *   type 7 struct  1 byte: the struct's value     the number of members
 *
 * A stream is a head followed by members of its code and type; its count is
 * one per char/short/int/long member and the bytes of each str/void member.
 * A struct is a head followed by its members; a reader files member M of
 * struct S under the key S << 8 | M. Lengths above 65535 wrap.
 *
 * Each thread builds one message at a time and keeps one message taken apart
 * (its elements become typed parameters of a process handle, api.h); every
 * call acts on the calling thread's state. Nothing in this family pushes an
 * error on the stack except an overflow of a bounded message (GEN ERRWRITEBUF,
 * once per message); failures show in return values and in traces on debug
 * channel value 32 (GMS).
 *
 * Bounded messages: gm_init_message and gm_init_message_buf write without a
 * bound, trusting the caller's buffer. gm_init_message_ex, or
 * gm_set_message_capacity after either of them, bounds the message: an add
 * that would pass the capacity writes nothing, marks the message overflowed
 * and pushes the error; every later add of that message writes nothing either,
 * stream and struct closes leave their heads alone, gm_end_message returns 0
 * and gm_close_message sends nothing and returns 0. */
#ifndef VQ_GLOB_GM_H
#define VQ_GLOB_GM_H

#include "vq_glob/export.h"
#include "vq_glob/tvtime.h"

VQ_EXTERN_C_BEGIN

/* Element types. */
#define GM_TYPE_CHAR 0
#define GM_TYPE_SHORT 1
#define GM_TYPE_INT 2
#define GM_TYPE_LONG 3
#define GM_TYPE_STR 4
#define GM_TYPE_VOID 5
#define GM_TYPE_STREAM 6
#define GM_TYPE_STRUCT 7

/* The capacity of an unbounded message. */
#define GM_NO_BOUND 0xFFFFFFFFu
/* The largest message gm_pack_error_stack(buffer, 1) writes: nine entries of
 * 5,120-byte texts. */
#define GM_ERROR_STACK_MAX_SIZE 46214u

/* ---- Setting up ----------------------------------------------------------------- */

/* Stores the buffer, buffer-initialising and send routines for every thread
 * (each pointer atomically), and the calling thread's header size. */
VQ_API void gm_init(void *(*buffer_fn)(void),
                    int (*init_fn)(void *buf, int32_t code, int32_t type, int32_t zero),
                    int (*send_fn)(void *buf, int32_t length), int32_t header_size);
/* Starts an unbounded message at the start of buffer. */
VQ_API void gm_init_message(void *buffer);
/* Starts a message of at most capacity bytes at the start of buffer. */
VQ_API void gm_init_message_ex(void *buffer, uint32_t capacity);
/* Starts an unbounded message in a buffer from the buffer routine, initialised
 * by the init routine with (buffer, code, type, 0), after the header size.
 * 1, or 0 when the routine gives no buffer. */
VQ_API int gm_init_message_buf(int32_t code, int32_t type);
/* Bounds the message under construction to capacity bytes from its buffer's
 * start (GM_NO_BOUND: unbounded); a capacity already passed overflows at the
 * next add. */
VQ_API void gm_set_message_capacity(uint32_t capacity);
/* 1 when an add of the message under construction was refused for room. */
VQ_API int gm_message_overflowed(void);

/* ---- Adding elements ------------------------------------------------------------- */

/* Append one element of the type the name gives under code (its low byte). */
VQ_API void gm_add_char_to_message(int32_t code, char v);
VQ_API void gm_add_short_to_message(int32_t code, int16_t v);
VQ_API void gm_add_int_to_message(int32_t code, int32_t v);
VQ_API void gm_add_long_to_message(int32_t code, int32_t v);
/* A NULL string gives an element of length 0. */
VQ_API void gm_add_str_to_message(int32_t code, const char *s);
/* NULL data gives an element of length 0, whatever the size. */
VQ_API void gm_add_void_to_message(int32_t code, const void *data, uint16_t size);
/* Appends a time stamp as add_tvtime_to_message does (nothing for NULL). */
VQ_API void gm_add_date_to_message(int32_t code, const tvtime *t);
/* Appends an old stamp as add_tvtime_old_to_message does (nothing for NULL). */
VQ_API void gm_add_old_date_to_message(int32_t code, const tvtime_old *t);
/* Opens a stream of members of member_type under code; members are added
 * with the ordinary adds, with the stream's code and type. */
VQ_API void gm_init_message_stream(int32_t code, int32_t member_type);
/* Writes the stream count into the open stream's head and closes it. */
VQ_API void gm_close_stream(void);
/* Opens a struct under code whose head carries value's low byte. */
VQ_API void gm_init_struct(int32_t code, int32_t value);
/* Writes the number of elements added since gm_init_struct (a stream counts
 * every element of it) into the head and closes the struct. */
VQ_API void gm_close_struct(void);

/* ---- Ending ------------------------------------------------------------------------ */

/* Calls the send routine with (buffer, length) once per message and returns its
 * result; a second call sends nothing and returns the first one's result.
 * 0 without sending for an overflowed message or no send routine. */
VQ_API int gm_close_message(void);
/* Closes the message without sending it; its length, or 0 when it overflowed. */
VQ_API uint32_t gm_end_message(void);
/* The buffer of the message under construction. */
VQ_API void *gm_get_message_buf(void);
/* The bytes written so far (the whole message once ended). */
VQ_API uint32_t gm_get_message_len(void);

/* ---- Taking apart -------------------------------------------------------------------- */

/* Files every element of length bytes as a parameter of the thread's parse
 * handle, replacing the previous one, and leaves the getters on plain codes
 * (a struct's members end where its head says, or at the message's end). 1,
 * or 0 at the first malformed or truncated element (parameters filed before
 * it stay). Nothing outside the given bytes is read. */
VQ_API int gm_disassemble_message(const unsigned char *message, uint32_t length);
/* The element of the last message taken apart under code (inside
 * gm_start_struct: code's member of that struct) of the getter's type. 1
 * when found, else 0. Strings and void data stay owned by the parse handle,
 * valid until the next gm_disassemble_message or gm_clean; a stream is one
 * void holding its members in host order. */
VQ_API int gm_get_char_param(int32_t code, char *out);
VQ_API int gm_get_short_param(int32_t code, int16_t *out);
VQ_API int gm_get_int_param(int32_t code, int32_t *out);
VQ_API int gm_get_long_param(int32_t code, int32_t *out);
VQ_API int gm_get_str_param(int32_t code, char **out);
VQ_API int gm_get_void_param(int32_t code, void **out);
/* Reads a time stamp struct as get_tvtime_from_message does (0 for NULL). */
VQ_API int gm_get_date_param(int32_t code, tvtime *out);
/* Reads an old stamp struct as get_tvtime_old_from_message does (0 for NULL). */
VQ_API int gm_get_old_date_param(int32_t code, tvtime_old *out);
/* The getters look up (code << 8) | member until gm_stop_struct. */
VQ_API void gm_start_struct(int32_t code);
/* The getters look up plain codes again. */
VQ_API void gm_stop_struct(void);
/* Frees the parse handle. */
VQ_API void gm_clean(void);

/* ---- Error stack transfer ---------------------------------------------------------- */

/* Appends the thread's error stack: int 200 (0), int 201 (depth D), and for
 * D > 0 an int stream 202 of the codes and a str stream 203 of the texts, newest
 * first. With own_message, first starts an unbounded message in buffer and
 * returns its length at the end (0 when buffer is NULL); otherwise returns 0.
 * For a bound: gm_init_message_ex, gm_pack_error_stack(NULL, 0), gm_end_message. */
VQ_API int32_t gm_pack_error_stack(void *buffer, int32_t own_message);
/* Takes message apart (NULL: uses the message last taken apart), pushes the
 * packed entries in the order they were packed with err_add_raw_error (the
 * sender's newest entry becomes the oldest here) and frees the parse handle.
 * 1, or 0 (nothing pushed) for a message that does not take apart, a missing
 * element or entries that do not lie within their elements. */
VQ_API int gm_unpack_error_stack(const unsigned char *message, uint32_t length);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_GM_H */
