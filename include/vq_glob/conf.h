/* Configuration handles (conf_): named sections of named fields, kept in file
 * order, read from and written to a line-oriented text file.
 *
 * Text format: "[section]" lines open a section (text after the first "]" is
 * ignored); "name=value" lines inside a section are fields, the name being
 * everything before the first "=". Lines are trimmed of blanks and tabs at
 * both ends (and of the carriage return and line feed at the end); empty lines
 * are skipped; other lines inside a section are ignored unless they continue
 * an untyped field. A multi-line value is "name=<marker><tag>", one element
 * per line, then "<marker><tag>"; the markers are "_ml_text_", "_ml_int_" and
 * "_ml_bool_". There is no comment, quoting or escaping.
 *
 * Every function returns 1 on success and 0 on failure with the cause on the
 * thread's error stack (facility CNF 0x8200; 0x100e for a NULL handle or a
 * missing argument). Names handed out stay owned by the handle and valid
 * until their section or field is removed or renamed, by any thread. A handle
 * made by conf_allocate_handle_use_cs may be shared by threads: every call
 * holds its critical section; any other handle is used by one thread at a
 * time. */
#ifndef VQ_GLOB_CONF_H
#define VQ_GLOB_CONF_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Field types; a field read from a file before anything typed it is unknown. */
#define CONF_TYPE_UNKNOWN (-1)
#define CONF_TYPE_STRING 1
#define CONF_TYPE_INT 2
#define CONF_TYPE_BOOL 3
#define CONF_TYPE_ML_TEXT 4
#define CONF_TYPE_ML_INT 5
#define CONF_TYPE_ML_BOOL 6
#define CONF_TYPE_BIG_INT 7

/* The section holding the integer field "version"; never listed by searches. */
#define CONF_HEADER_SECTION "_cf_header_"

/* ---- Handles ----------------------------------------------------------------- */

/* *handle = a new empty handle without / with a critical section. */
VQ_API int conf_allocate_handle(void **handle);
VQ_API int conf_allocate_handle_use_cs(void **handle);
/* Frees every section and field; the handle and its settings stay. */
VQ_API int conf_clean_handle(void *h);
/* Frees the handle with all it holds and sets *handle to NULL. */
VQ_API int conf_free_handle(void **handle);
/* Lock files "<file>.lock" around reads and writes: on (non-zero) or off (the default). */
VQ_API int conf_set_lock_use_on_handle(void *h, int32_t on);
/* conf_write writes "<file>.temp" and then puts it in the file's place. */
VQ_API int conf_enable_write_with_temp(void *h);
VQ_API int conf_disable_write_with_temp(void *h);
/* Stores a copy of the handle's encryption key (NULL removes it). */
VQ_API int conf_set_encryption_to_handle(void *h, const char *key);

/* ---- Reading and writing ---------------------------------------------------------- */

/* Reads the file into the handle, merging with the sections and fields there.
 * A file of zero bytes fails with 0x8211; after a failure the handle keeps
 * what was read before it. */
VQ_API int conf_read_file_to_handle(void *h, const char *file_name);
/* The same from a NUL-terminated buffer, which also ends at a byte 0xFF. */
VQ_API int conf_read_buffer_to_handle(void *h, const char *buffer);
/* Writes the handle to file_name (NULL: the file last read or written), in
 * place or through "<file>.temp"; 0x8204 when the file cannot be written. */
VQ_API int conf_write(void *h, const char *file_name);
/* *buffer = the handle's text in a new buffer; free it with conf_free_buffer. */
VQ_API int conf_write_buffer(void *h, char **buffer);
VQ_API void conf_free_buffer(char *buffer);
/* Removes "<file_name>.lock"; 1 also when there is none. */
VQ_API int conf_delete_lock_file(const char *file_name);

/* ---- Sections and fields ------------------------------------------------------------- */

/* Creates the section at the end of the list unless it exists. */
VQ_API int conf_set_section(void *h, const char *section);
/* Adds an untyped, empty field at the end of the section (created when
 * missing) unless the section already has it. */
VQ_API int conf_add_field_to_section(void *h, const char *section, const char *field);
/* Renames a section; 0x820a when it is missing, 0x8209 when new_name is taken. */
VQ_API int conf_rename_section(void *h, const char *old_name, const char *new_name);
/* Unlink and free a section with its fields / one field (0x820a, 0x820f when missing). */
VQ_API int conf_remove_section(void *h, const char *section);
VQ_API int conf_remove_field(void *h, const char *section, const char *field);
/* Traces the section's fields, one "name=value" line each, on the CONFIG channel. */
VQ_API int conf_dump_section(void *h, const char *section);

/* ---- Search contexts --------------------------------------------------------------------- */

/* *context = a walk over the handle's sections / over one section's fields
 * (0x820a when the section is missing), standing before the first one. Once
 * a section or field of the handle is removed, the walk ends (0). */
VQ_API int conf_init_section_search_context(void *h, void **context);
VQ_API int conf_init_field_search_context(void *h, const char *section, void **context);
/* *name = the next section's / field's name and 1; 0 at the end. */
VQ_API int conf_get_next_section(void *context, char **name);
VQ_API int conf_get_next_field(void *context, char **name);
/* Frees a context (NULL is ignored). */
VQ_API void conf_free_search_context(void *context);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_CONF_H */
