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
 * thread's error stack (facility CNF, ERR_FAC_CNF; ERR_GEN_PARAMS for a NULL
 * handle or a missing argument). Names handed out stay owned by the handle
 * and valid until their section or field is removed or renamed, by any
 * thread. A handle made by conf_allocate_handle_use_cs may be shared by
 * threads: every call holds its critical section; any other handle is used by
 * one thread at a time. Typed access goes through a constant table bound to
 * the handle.
 *
 * Handles and search contexts carry a type tag, which every function taking
 * one checks first: another library handle (a list, a hash table, a search
 * context where a configuration handle belongs or the reverse...) or one
 * already freed fails with ERR_GEN_PARAMS naming the function and the
 * argument, and nothing is changed; a context whose handle was freed fails the
 * same way. Not detected: a pointer to memory that cannot be read, memory that
 * was never a handle but begins with the same four bytes, and a freed handle
 * whose memory was reused for a new one (the new one is then used). */
#ifndef VQ_GLOB_CONF_H
#define VQ_GLOB_CONF_H

#include "vq_glob/err_codes.h"
#include "vq_glob/export.h"
#include "vq_glob/slbn.h"

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
/* Lock files "<file>.lock" around reads and writes: on (non-zero) or off (the
 * default). A lock file records no owner: one left by a process that died
 * makes later reads and writes wait 60 s and fail until
 * conf_delete_lock_file removes it. */
VQ_API int conf_set_lock_use_on_handle(void *h, int32_t on);
/* Holds the handle's critical section (conf_allocate_handle_use_cs) across
 * several calls, so that a thread reads or changes several fields of one
 * version while other threads wait; the section is re-entrant, so the
 * holder's own calls work. Every conf_lock_handle needs one conf_unlock_handle
 * on the same thread. A handle without a section: 1, nothing is held. */
VQ_API int conf_lock_handle(void *h);
VQ_API int conf_unlock_handle(void *h);
/* conf_write writes "<file>.temp" and then puts it in the file's place. */
VQ_API int conf_enable_write_with_temp(void *h);
VQ_API int conf_disable_write_with_temp(void *h);
/* Stores a copy of the handle's encryption key (NULL removes it). */
VQ_API int conf_set_encryption_to_handle(void *h, const char *key);

/* ---- Reading and writing ---------------------------------------------------------- */

/* The largest configuration file conf_read_file_to_handle reads: 64 MiB. */
#define CONF_MAX_FILE_SIZE (64u * 1024u * 1024u)

/* Reads the file into the handle, merging with the sections and fields there.
 * Only a regular file is read: a directory, fifo or device fails with
 * ERR_CNF_FILE_8202 (a fifo is refused without waiting for a writer), a file
 * of more than CONF_MAX_FILE_SIZE bytes with ERR_CNF_FILE_8203, and a file of
 * zero bytes with ERR_CNF_EMPTY; the system's reason stands below as
 * ERR_SYS_ERRMSG. After a failure the handle keeps what was read before it. */
VQ_API int conf_read_file_to_handle(void *h, const char *file_name);
/* The same from a NUL-terminated buffer, which also ends at a byte 0xFF. */
VQ_API int conf_read_buffer_to_handle(void *h, const char *buffer);
/* Writes the handle to file_name (NULL: the file last read or written), in
 * place or through "<file>.temp"; ERR_CNF_FILE_8204 when the file cannot be
 * written. Through the temporary file, a crash leaves either the old or the
 * new configuration (and possibly a stale "<file>.temp", replaced by the next
 * write): the crash-safe choice. In place (the default) the room for the new
 * text is reserved before the old text is touched, so a full disk fails the
 * write (ERR_CNF_FILE_8204 over the system's reason) and leaves the old file
 * as it was.
 * The new text is then written over the old from the start and the file cut
 * to its length: a process that dies during that write can leave the
 * beginning of the new text followed by the rest of the old one (or by zero
 * bytes where the new text is longer), which may still read as a
 * configuration. */
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
/* Renames a section; ERR_CNF_SECTION when it is missing, ERR_CNF_GENERAL when
 * new_name is taken. */
VQ_API int conf_rename_section(void *h, const char *old_name, const char *new_name);
/* Unlink and free a section with its fields / one field (ERR_CNF_SECTION,
 * ERR_CNF_FIND_820F when missing). */
VQ_API int conf_remove_section(void *h, const char *section);
VQ_API int conf_remove_field(void *h, const char *section, const char *field);
/* Traces the section's fields, one "name=value" line each, on the CONFIG channel. */
VQ_API int conf_dump_section(void *h, const char *section);

/* ---- Constant tables ------------------------------------------------------------------ */

/* One row of a constant table. A section row (type 0) names a section; the
 * field rows below it, up to the next section row, name its fields. Types are
 * the CONF_TYPE_ values 1-7. default_str is the default of string and big
 * integer fields (NULL: empty); default_int that of integer and boolean
 * fields (a boolean's default comes from default_int only). flags: see
 * CONF_FLAG_; key: the field's (on a section row, the section's) encryption
 * key, NULL for none. Constants are unique within a table. */
typedef struct {
    int32_t constant;
    const char *name;
    int32_t type;
    const char *default_str;
    int32_t default_int;
    int32_t flags;
    const char *key;
} conf_table_row;

#define CONF_TYPE_SECTION 0
/* Row flags: set on the library's own rows (not consulted); the value is
 * stored enciphered; reading / writing is denied while access checks are on. */
#define CONF_FLAG_LIBRARY 0x1
#define CONF_FLAG_ENCRYPTED 0x2
#define CONF_FLAG_DENY_READ 0x4
#define CONF_FLAG_DENY_WRITE 0x8

/* Binds the handle to the table: section rows find or create their sections,
 * field rows find or create their fields, which take the row's type, default,
 * flags and key; a field read before binding is converted (integers as atoi,
 * booleans "TRUE" in any case = 1 else 0, an empty value gives the default); a
 * field without a value takes its default. The table must outlive the binding.
 * rows < 1 only marks the handle bound. ERR_CNF_TYPE for a type outside 1-7,
 * ERR_GEN_PARAMS for a field row before any section row (rows before the bad
 * one stay bound). */
VQ_API int conf_set_table(void *h, const conf_table_row *table, int32_t rows);
/* *index = the table row holding constant (a linear search);
 * ERR_CNF_FIND_820D when none. */
VQ_API int conf_get_field_index_by_const(const conf_table_row *table, int32_t rows, int32_t constant,
                                         int32_t *index);
/* *value = the address of the bound field's value, *type = its type: int32_t *
 * for integers and booleans, char * for strings, char ** (NULL-terminated) for
 * multi-line text, int32_t * (the elements) for multi-line integers and
 * booleans, const slbn * for big integers. Handle-owned, valid until the
 * field changes. ERR_CNF_FIND_820D for an unknown constant, ERR_GEN_PARAMS
 * for a field without a value. */
VQ_API int conf_get_field_by_const(void *h, int32_t constant, void **value, int32_t *type);
/* *type = the type / *name = the name (handle-owned) of the field bound to
 * constant; ERR_CNF_FIND_820D when none is. */
VQ_API int conf_get_field_type(void *h, int32_t constant, int32_t *type);
VQ_API int conf_get_field_name(void *h, int32_t constant, char **name);
/* on: look constants up through a hash table of size rows (> 0, else
 * ERR_GEN_PARAMS) instead of walking the sections; off: drop it. Answers are
 * the same. */
VQ_API int conf_use_hash_table(void *h, int32_t on, int32_t size);
/* on: reading skips the sections and fields the bound table does not name
 * (a skipped multi-line value is skipped whole); writing leaves them out.
 * Until a table is bound nothing is skipped. */
VQ_API int conf_use_only_table_on_read(void *h, int32_t on);
VQ_API int conf_use_only_table_on_write(void *h, int32_t on);
/* on: typed reads of fields flagged CONF_FLAG_DENY_READ fail with
 * ERR_CNF_READ + ERR_CNF_ACCESS, typed writes of fields flagged
 * CONF_FLAG_DENY_WRITE with ERR_CNF_WRITE + ERR_CNF_ACCESS.
 * conf_is_check_read_write_access: 1 when on, 0 when off or h NULL (with
 * nothing on the stack) or not a handle. */
VQ_API int conf_use_check_read_write_access(void *h, int32_t on);
VQ_API int conf_is_check_read_write_access(void *h);
/* Writes into out_table (room for rows rows) the rows of table whose
 * constants are in wanted_constants, each preceded once by its section row,
 * in table order. Returns the number of rows written; 0 with ERR_GEN_PARAMS
 * for a bad argument or ERR_GEN_MEMORY when out of memory. */
VQ_API int32_t conf_create_dynamic_table(const conf_table_row *table, int32_t rows, conf_table_row *out_table,
                                         const int32_t *wanted_constants, int32_t wanted_count);
/* Binds only the section rows of table (NULL: the table bound by
 * conf_set_table) whose names begin with prefix, with their field rows,
 * creating those sections; the handle's other bindings stay. */
VQ_API int conf_set_sections_by_prefix(void *h, const conf_table_row *table, int32_t rows, const char *prefix);
/* Compares the fields of table's field rows in h1 and h2: marks[i] (room for
 * rows entries) = 1 when row i's values differ, else 0. Encrypted values are
 * traced as placeholders only. ERR_CNF_FIND_820F + ERR_CNF_FIND_820D when a
 * handle lacks a field, ERR_CNF_COMP when the types differ (marks up to that
 * row are set). */
VQ_API int conf_get_deferent_fields(void *h1, void *h2, const conf_table_row *table, int32_t rows,
                                    int32_t *marks);

/* ---- Copies between handles ------------------------------------------------------------- */

/* Copies every field of table's field rows from src to dst by constant, each
 * under the handles' critical sections in turn (never both held at once).
 * Stops at the first failure, whose errors stay on the stack. */
VQ_API int conf_copy_handle_by_table(void *src, void *dst, const conf_table_row *table, int32_t rows);
/* The same for the fields whose constants are listed (through
 * conf_create_dynamic_table). */
VQ_API int conf_copy_handle_by_table_by_fields(void *src, void *dst, const conf_table_row *table, int32_t rows,
                                               const int32_t *constants, int32_t count);

/* A conversion table pairs the constants of one table (constant) with those
 * of another (converted); entry i holds the constant i + offset of the first
 * table. An entry whose converted is CONF_NO_CONVERSION is empty: nothing is
 * copied and the destination keeps its value. */
typedef struct {
    int32_t constant;
    int32_t converted;
} conf_conversion_row;
#define CONF_NO_CONVERSION (-1)

/* Copies between handles of two tables through a conversion table. Forward
 * (revert 0): src holds table's fields; for each field row, entry
 * (constant - offset) gives the dst constant. Revert (non-zero): dst holds
 * table's fields; every entry copies src's converted to dst's constant, and
 * offset is not used. Errors: ERR_CNF_CONVTABL with "Unsynchronized
 * conversion tables." (an entry's constant is not the expected one),
 * "internal: a corrupted conversion table." or "... - param: offset."; a
 * failed copy adds the field name and ERR_CNF_COPYCST with both constants. */
VQ_API int conf_copy_handle_consts_table_by_conversion_table(void *src, void *dst, const conf_table_row *table,
                                                             int32_t rows, const conf_conversion_row *conversion,
                                                             int32_t conversion_rows, int32_t offset,
                                                             int32_t revert);

/* ---- Typed fields ------------------------------------------------------------------------ */

/* Three ways to address a field: plain (section name, field name), _by_section
 * (section name, constant in it), _by_const (constant anywhere). Errors:
 * ERR_CNF_SECTION no such section, ERR_CNF_FIND_820F / ERR_CNF_FIND_820E /
 * ERR_CNF_FIND_820D no such field, ERR_CNF_TYPE the field has another type,
 * access denial as above; a failed get leaves its output untouched. An
 * untyped field takes the requested type on first use. Getters of strings and
 * lists hand out handle-owned data, valid until the field changes; setters
 * copy what they are given and mark the field changed. */

VQ_API int conf_get_int_field(void *h, const char *section, const char *field, int32_t *value);
VQ_API int conf_get_int_field_by_section(void *h, const char *section, int32_t constant, int32_t *value);
VQ_API int conf_get_int_field_by_const(void *h, int32_t constant, int32_t *value);
VQ_API int conf_set_int_field(void *h, const char *section, const char *field, int32_t value);
VQ_API int conf_set_int_field_by_section(void *h, const char *section, int32_t constant, int32_t value);
VQ_API int conf_set_int_field_by_const(void *h, int32_t constant, int32_t value);

/* Booleans are 1 (TRUE) or 0 (FALSE); a setter stores any non-zero as 1. */
VQ_API int conf_get_bool_field(void *h, const char *section, const char *field, int32_t *value);
VQ_API int conf_get_bool_field_by_section(void *h, const char *section, int32_t constant, int32_t *value);
VQ_API int conf_get_bool_field_by_const(void *h, int32_t constant, int32_t *value);
VQ_API int conf_set_bool_field(void *h, const char *section, const char *field, int32_t value);
VQ_API int conf_set_bool_field_by_section(void *h, const char *section, int32_t constant, int32_t value);
VQ_API int conf_set_bool_field_by_const(void *h, int32_t constant, int32_t value);

/* *value = the handle-owned text. */
VQ_API int conf_get_string_field(void *h, const char *section, const char *field, char **value);
VQ_API int conf_get_string_field_by_section(void *h, const char *section, int32_t constant, char **value);
VQ_API int conf_get_string_field_by_const(void *h, int32_t constant, char **value);
VQ_API int conf_set_string_field(void *h, const char *section, const char *field, const char *value);
VQ_API int conf_set_string_field_by_section(void *h, const char *section, int32_t constant, const char *value);
VQ_API int conf_set_string_field_by_const(void *h, int32_t constant, const char *value);

/* *value = a new copy of the number, which the caller frees with slbn_free;
 * setters copy value. */
VQ_API int conf_get_big_int_field(void *h, const char *section, const char *field, slbn **value);
VQ_API int conf_get_big_int_field_by_section(void *h, const char *section, int32_t constant, slbn **value);
VQ_API int conf_get_big_int_field_by_const(void *h, int32_t constant, slbn **value);
VQ_API int conf_set_big_int_field(void *h, const char *section, const char *field, const slbn *value);
VQ_API int conf_set_big_int_field_by_section(void *h, const char *section, int32_t constant, const slbn *value);
VQ_API int conf_set_big_int_field_by_const(void *h, int32_t constant, const slbn *value);

/* *values = the handle-owned elements (NULL when *count is 0), *count = their
 * number; setters copy count elements (values may be NULL when count is 0).
 * Multi-line booleans store any non-zero element as 1. */
VQ_API int conf_get_ml_int_field(void *h, const char *section, const char *field, int32_t **values, int32_t *count);
VQ_API int conf_get_ml_int_field_by_section(void *h, const char *section, int32_t constant, int32_t **values,
                                            int32_t *count);
VQ_API int conf_get_ml_int_field_by_const(void *h, int32_t constant, int32_t **values, int32_t *count);
VQ_API int conf_set_ml_int_field(void *h, const char *section, const char *field, const int32_t *values,
                                 int32_t count);
VQ_API int conf_set_ml_int_field_by_section(void *h, const char *section, int32_t constant, const int32_t *values,
                                            int32_t count);
VQ_API int conf_set_ml_int_field_by_const(void *h, int32_t constant, const int32_t *values, int32_t count);
VQ_API int conf_get_ml_bool_field(void *h, const char *section, const char *field, int32_t **values, int32_t *count);
VQ_API int conf_get_ml_bool_field_by_section(void *h, const char *section, int32_t constant, int32_t **values,
                                             int32_t *count);
VQ_API int conf_get_ml_bool_field_by_const(void *h, int32_t constant, int32_t **values, int32_t *count);
VQ_API int conf_set_ml_bool_field(void *h, const char *section, const char *field, const int32_t *values,
                                  int32_t count);
VQ_API int conf_set_ml_bool_field_by_section(void *h, const char *section, int32_t constant, const int32_t *values,
                                             int32_t count);
VQ_API int conf_set_ml_bool_field_by_const(void *h, int32_t constant, const int32_t *values, int32_t count);

/* *list = the handle-owned NULL-terminated list (do not free or change it);
 * setters copy list (NULL: empty). */
VQ_API int conf_get_ml_string_field(void *h, const char *section, const char *field, char ***list);
VQ_API int conf_get_ml_string_field_by_section(void *h, const char *section, int32_t constant, char ***list);
VQ_API int conf_get_ml_string_field_by_const(void *h, int32_t constant, char ***list);
VQ_API int conf_set_ml_string_field(void *h, const char *section, const char *field, char **list);
VQ_API int conf_set_ml_string_field_by_section(void *h, const char *section, int32_t constant, char **list);
VQ_API int conf_set_ml_string_field_by_const(void *h, int32_t constant, char **list);
/* *value = the elements joined by "," (or by sep) in a new text the caller
 * frees with conf_free_buffer. */
VQ_API int conf_get_ml_string_field_as_string(void *h, const char *section, const char *field, char **value);
VQ_API int conf_get_ml_string_field_by_section_as_string(void *h, const char *section, int32_t constant,
                                                          char **value);
VQ_API int conf_get_ml_string_field_by_const_as_string(void *h, int32_t constant, char **value);
VQ_API int conf_get_ml_string_field_by_section_as_string_with_sep(void *h, const char *section, int32_t constant,
                                                                   char **value, const char *sep);
VQ_API int conf_get_ml_string_field_by_const_as_string_with_sep(void *h, int32_t constant, char **value,
                                                                 const char *sep);
/* Sets the list split from text at every "," (or sep), elements trimmed of
 * blanks and tabs; an empty text gives an empty list. */
VQ_API int conf_set_ml_string_field_by_const_as_string(void *h, int32_t constant, const char *text);
VQ_API int conf_set_ml_string_field_by_section_as_string(void *h, const char *section, int32_t constant,
                                                         const char *text);
VQ_API int conf_set_ml_string_field_by_const_as_string_by_separator(void *h, int32_t constant, const char *text,
                                                                    const char *sep);
VQ_API int conf_set_ml_string_field_by_section_as_string_with_sep(void *h, const char *section, int32_t constant,
                                                                  const char *text, const char *sep);

/* Copy one field by constant from src to dst (the same constant in both):
 * a typed get on src (read access checked) then a typed set on dst (write
 * access checked), each under its own handle's critical section. */
VQ_API int conf_copy_int_field_by_const(void *src, void *dst, int32_t constant);
VQ_API int conf_copy_bool_field_by_const(void *src, void *dst, int32_t constant);
VQ_API int conf_copy_string_field_by_const(void *src, void *dst, int32_t constant);
VQ_API int conf_copy_big_int_field_by_const(void *src, void *dst, int32_t constant);
VQ_API int conf_copy_ml_int_field_by_const(void *src, void *dst, int32_t constant);
VQ_API int conf_copy_ml_bool_field_by_const(void *src, void *dst, int32_t constant);
VQ_API int conf_copy_ml_string_field_by_const(void *src, void *dst, int32_t constant);

/* ---- The library's own tables ------------------------------------------------------------ */

/* The settings of packed file lists ("Pack Params", "Processing Params") and
 * of kill lists ("Kill List Params"), and their row counts (19 and 2). */
VQ_API const conf_table_row *vq_get_pack_cf_table(void);
VQ_API int32_t vq_get_pack_cf_keys_number(void);
VQ_API const conf_table_row *vq_get_kill_list_cf_table(void);
VQ_API int32_t vq_get_kill_list_cf_keys_number(void);

/* ---- XML output and encrypted fields ------------------------------------------------------- */

/* conf_write and conf_write_buffer write XML instead of text: on (non-zero)
 * or off (the default). XML is an output format only, and always
 * well-formed UTF-8: in values, tab, line feed, carriage return, DEL and the
 * C1 controls are written as character references ("&#9;"); the other
 * control characters, bytes that are not UTF-8 and U+FFFE/U+FFFF, which XML
 * cannot carry at all, become U+FFFD. In names, every character an XML name
 * cannot hold becomes "_"; comments show the original name with U+FFFD in
 * the same places. */
VQ_API int conf_set_use_write_to_XML(void *h, int32_t on);
/* 1 when the handle writes XML; 0 when it writes text (or h is not a handle:
 * ERR_GEN_PARAMS). */
VQ_API int conf_is_write_to_XML(void *h);
/* Whether XML output begins with the XML declaration and the producer
 * comments: on (non-zero, the default) or off. */
VQ_API int conf_set_write_XML_header(void *h, int32_t on);
/* Names the root element (default "Configuration_XML_Root"); the name is
 * made a legal tag name when written. ERR_GEN_PARAMS for a NULL or empty
 * name. */
VQ_API int conf_set_XML_root(void *h, const char *root_name);
/* *out = plain enciphered under key (NULL: the built-in key) as printable
 * text, in a new buffer freed with conf_free_buffer; ERR_CNF_ENCRYPT when it
 * fails (libcrypto cannot be loaded included). */
VQ_API int conf_encrypt_string(const char *key, const char *plain, char **out);
/* The reverse of conf_encrypt_string; ERR_CNF_ENCRYPT under a wrong key or
 * for text that is no such cipher. */
VQ_API int conf_decrypt_string(const char *key, const char *text, char **out);
/* 1 when the DES routines of the system's libcrypto are at hand (the first
 * call loads them); 0 when encryption can only fail. Nothing goes on the
 * error stack. */
VQ_API int conf_is_encryption_available(void);

/* ---- Search contexts --------------------------------------------------------------------- */

/* *context = a walk over the handle's sections / over one section's fields
 * (ERR_CNF_SECTION when the section is missing), standing before the first
 * one; free it with conf_free_search_context. Once a section or field of the
 * handle is removed, the walk ends (0). */
VQ_API int conf_init_section_search_context(void *h, void **context);
VQ_API int conf_init_field_search_context(void *h, const char *section, void **context);
/* *name = the next section's / field's name and 1; 0 at the end, or with
 * ERR_GEN_PARAMS for a context of the other sort or whose handle was freed. */
VQ_API int conf_get_next_section(void *context, char **name);
VQ_API int conf_get_next_field(void *context, char **name);
/* Frees a context (NULL is ignored; anything else that is no live context
 * is left alone, with ERR_GEN_PARAMS). */
VQ_API void conf_free_search_context(void *context);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_CONF_H */
