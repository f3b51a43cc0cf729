// Constant tables: binding a handle to a table, finding fields by constant
// (by walking the sections, or through the optional hash index), the
// table-only and access-check switches, dynamic tables and the library's own
// tables.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "vq_config/conf_state.h"
#include "vq_glob/hash.h"

namespace vq::conf {

const char *type_name(int32_t type) {
    switch (type) {
        case CONF_TYPE_STRING: return "string";
        case CONF_TYPE_INT: return "integer";
        case CONF_TYPE_BOOL: return "boolean";
        case CONF_TYPE_ML_TEXT: return "multi-line text";
        case CONF_TYPE_ML_INT: return "multi-line integer";
        case CONF_TYPE_ML_BOOL: return "multi-line boolean";
        case CONF_TYPE_BIG_INT: return "big integer";
        default: return "unknown";
    }
}

std::string field_label(const Field &f) { return f.name().empty() ? std::to_string(f.constant) : std::string(f.name()); }

char **list_view(Field &f) {
    FieldExtra &extra = f.more();
    extra.view.clear();
    extra.view.reserve(extra.lines.size() + 1);
    for (std::string &line : extra.lines) {
        extra.view.push_back(line.data());
    }
    extra.view.push_back(nullptr);
    return extra.view.data();
}

namespace {

int32_t lenient_bool(std::string_view text) { return ascii::equal_nocase(text, "TRUE") ? 1 : 0; }

}  // namespace

void retype(Field &f, int32_t type) {
    if (f.type == type && f.has_value) {
        return;
    }
    std::vector<std::string> texts = f.type == type ? std::vector<std::string>() : value_texts(f);
    // An untyped field holding an empty text has no value of its own.
    if (texts.size() == 1 && texts.front().empty()) {
        texts.clear();
    }
    std::string first = texts.empty() ? std::string() : texts.front();
    std::string text;
    int32_t number = 0;
    std::vector<std::string> lines;
    std::vector<int32_t> numbers;
    BigNumber big;
    switch (type) {
        case CONF_TYPE_STRING: text = texts.empty() ? f.peek().default_text : first; break;
        case CONF_TYPE_INT: number = texts.empty() ? f.peek().default_int : text_to_int(first); break;
        case CONF_TYPE_BOOL: number = texts.empty() ? f.peek().default_int : lenient_bool(first); break;
        case CONF_TYPE_BIG_INT:
            // A text that is no number reads as zero, as atoi reads one.
            if (!parse_big(texts.empty() ? std::string_view(f.peek().default_text) : std::string_view(first), big)) {
                big = BigNumber();
            }
            break;
        case CONF_TYPE_ML_TEXT: lines = std::move(texts); break;
        case CONF_TYPE_ML_INT:
        case CONF_TYPE_ML_BOOL:
            for (const std::string &t : texts) {
                numbers.push_back(type == CONF_TYPE_ML_INT ? text_to_int(t) : lenient_bool(t));
            }
            break;
        default: return;
    }
    f.type = type;
    f.set_text(text);
    f.number = number;
    // A field that becomes a plain string keeps no rest it did not have.
    if (!lines.empty() || !numbers.empty() || big.get() != nullptr || f.peek().big.get() != nullptr ||
        !f.peek().lines.empty() || !f.peek().numbers.empty()) {
        FieldExtra &extra = f.more();
        extra.lines = std::move(lines);
        extra.numbers = std::move(numbers);
        extra.big = std::move(big);
    }
    f.clear_view();
    if (!is_multi_line(type) && !f.peek().tag.empty()) {
        f.more().tag.clear();
    }
    f.has_value = true;
}

void HashIndex::drop() {
    if (table != nullptr) {
        slh_free_hash_table(table);
        table = nullptr;
    }
    refs.clear();
    built = false;
}

namespace {

bool in_range(const Section &s, int32_t constant) { return s.low <= constant && constant <= s.high; }

Field *find_in(Section &s, int32_t constant) {
    for (Field &f : s.fields) {
        if (f.in_table && f.constant == constant) {
            return &f;
        }
    }
    return nullptr;
}

// Sections whose range holds the constant first, then the other sections
// that have bound fields at all.
Field *walk(Handle &h, int32_t constant, Section **section) {
    for (int pass = 0; pass < 2; ++pass) {
        for (Section &s : h.sections) {
            if (s.low > s.high || in_range(s, constant) != (pass == 0)) {
                continue;
            }
            if (Field *f = find_in(s, constant)) {
                *section = &s;
                return f;
            }
        }
    }
    return nullptr;
}

// The index's key of a constant: its decimal text.
struct Key {
    char text[16];
    explicit Key(int32_t constant) { *std::to_chars(text, text + sizeof text - 1, constant).ptr = '\0'; }
};

// Refills the index from the handle's bound fields. False when the hash
// table cannot be made (the lookups then walk).
bool rebuild(Handle &h) {
    HashIndex &index = h.index;
    int32_t size = index.size;
    index.drop();
    index.table = slh_allocate_hash_table(size);
    if (index.table == nullptr) {
        return false;
    }
    size_t bound = 0;
    for (Section &s : h.sections) {
        for (Field &f : s.fields) {
            bound += f.in_table ? 1 : 0;
        }
    }
    index.refs.reserve(bound);  // the table keeps addresses of the entries
    for (Section &s : h.sections) {
        for (Field &f : s.fields) {
            if (!f.in_table) {
                continue;
            }
            Key key(f.constant);
            void *found = nullptr;
            if (slh_find_element(index.table, key.text, &found) == 1) {
                continue;  // the first field bound to a constant answers for it
            }
            index.refs.push_back(FieldRef{&s, &f});
            if (slh_insert_to_table(index.table, key.text, &index.refs.back()) == 0) {
                index.drop();
                return false;
            }
        }
    }
    index.shape = h.removals + h.bindings;
    index.built = true;
    return true;
}

}  // namespace

Field *find_by_const(Handle &h, int32_t constant, Section **section) {
    if (h.index.size > 0 && ((h.index.built && h.index.shape == h.removals + h.bindings) || rebuild(h))) {
        auto *ref = static_cast<FieldRef *>(slh_get_user_data(h.index.table, Key(constant).text));
        if (ref == nullptr) {
            return nullptr;
        }
        *section = ref->section;
        return ref->field;
    }
    return walk(h, constant, section);
}

namespace {

// Forgets which sections and fields the previous table named.
void unbind(Handle &h) {
    for (Section &s : h.sections) {
        s.in_table = false;
        s.low = 1;
        s.high = 0;
        s.key.clear();
        for (Field &f : s.fields) {
            f.in_table = false;
            f.flags = 0;
            if (!f.peek().key.empty()) {
                f.more().key.clear();
            }
        }
    }
}

void apply_row(Section &s, Field &f, const conf_table_row &row) {
    f.constant = row.constant;
    f.in_table = true;
    f.flags = static_cast<uint8_t>(row.flags & (kFlagEncrypted | kFlagDenyRead | kFlagDenyWrite));
    FieldExtra &extra = f.more();
    extra.key = row.key != nullptr ? row.key : "";
    extra.default_text = row.default_str != nullptr ? row.default_str : "";
    extra.default_int = row.default_int;
    retype(f, row.type);
    if (s.low > s.high) {
        s.low = s.high = row.constant;
    } else {
        s.low = std::min(s.low, row.constant);
        s.high = std::max(s.high, row.constant);
    }
}

// Applies rows in order; with a prefix only the sections whose names begin
// with it, and their fields. Rows before a failing one stay applied.
int bind_rows(Handle &h, const conf_table_row *table, int32_t rows, const char *function, const char *prefix) {
    Section *current = nullptr;
    bool taken = true;
    for (int32_t i = 0; i < rows; ++i) {
        const conf_table_row &row = table[i];
        if (row.name == nullptr) {
            return raise::params(Report::fresh, function, "table");
        }
        if (row.type == CONF_TYPE_SECTION) {
            taken = prefix == nullptr || std::strncmp(row.name, prefix, std::strlen(prefix)) == 0;
            current = nullptr;
            if (taken) {
                current = &h.sections.find_or_append(row.name);
                current->constant = row.constant;
                current->in_table = true;
                current->key = row.key != nullptr ? row.key : "";
            }
            continue;
        }
        if (row.type < CONF_TYPE_STRING || row.type > CONF_TYPE_BIG_INT) {
            err_set_error(ERR_CNF_TYPE, static_cast<int>(row.constant), "a known constant");
            err_add_error(ERR_CNF_GENERAL, "no field type for field", row.name);
            return 0;
        }
        if (!taken) {
            continue;
        }
        if (current == nullptr) {
            return raise::params(Report::fresh, function, "table");
        }
        apply_row(*current, current->fields.find_or_append(row.name), row);
    }
    return 1;
}

}  // namespace

int build_dynamic_table(const conf_table_row *table, int32_t rows, conf_table_row *out_table,
                        const int32_t *wanted_constants, int32_t wanted_count, int32_t &written) {
    std::vector<int32_t> wanted;
    try {
        wanted.assign(wanted_constants, wanted_constants + std::max(wanted_count, 0));
    } catch (const std::bad_alloc &) {
        return raise::memory(Report::fresh, "conf_create_dynamic_table", kModule, __LINE__);
    }
    std::sort(wanted.begin(), wanted.end());
    auto is_wanted = [&wanted](int32_t constant) { return std::binary_search(wanted.begin(), wanted.end(), constant); };
    written = 0;
    int32_t section = -1;  // the current section row while it is not yet written
    for (int32_t i = 0; i < rows; ++i) {
        if (table[i].type == CONF_TYPE_SECTION) {
            section = i;
            if (is_wanted(table[i].constant)) {
                out_table[written++] = table[i];
                section = -1;
            }
            continue;
        }
        if (!is_wanted(table[i].constant)) {
            continue;
        }
        if (section >= 0) {
            out_table[written++] = table[section];
            section = -1;
        }
        out_table[written++] = table[i];
    }
    return 1;
}

namespace {

int missing_constant(int32_t constant) {
    err_set_error(ERR_CNF_FIND_820D, static_cast<int>(constant));
    return 0;
}

// The pack table: the settings of a packed file list and its processing.
constexpr conf_table_row kPackTable[] = {
    {0x77, "Pack Params", CONF_TYPE_SECTION, nullptr, 0, 0x1, nullptr},
    {0x78, "List Name", CONF_TYPE_STRING, "", 0, 0x1, nullptr},
    {0x79, "Output File", CONF_TYPE_STRING, "", 0, 0x1, nullptr},
    {0x7a, "Number Of Files", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {0x7b, "Buffer size", CONF_TYPE_INT, nullptr, 64000, 0x1, nullptr},
    {0x7c, "Target Path", CONF_TYPE_STRING, "", 0, 0x1, nullptr},
    {0x7d, "File Indexes", CONF_TYPE_ML_INT, nullptr, 0, 0x1, nullptr},
    {0x7e, "Files Names", CONF_TYPE_ML_TEXT, nullptr, 0, 0x1, nullptr},
    {0x7f, "Encrypt Data", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {0x80, "Cross Platform", CONF_TYPE_BOOL, "FALSE", 0, 0x1, nullptr},
    {0x81, "Compress Data", CONF_TYPE_BOOL, "TRUE", 0, 0x1, nullptr},
    {0x82, "First File Index", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {0x96, "Processing Params", CONF_TYPE_SECTION, nullptr, 0, 0x1, nullptr},
    {0x97, "Process Status", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {0x98, "Process Message", CONF_TYPE_STRING, "", 0, 0x1, nullptr},
    {0x99, "Files Index", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {0x9a, "Files Total", CONF_TYPE_INT, nullptr, 0, 0x1, nullptr},
    {0x9b, "Bytes Packed", CONF_TYPE_BIG_INT, "", 0, 0x1, nullptr},
    {0x9c, "Bytes Total", CONF_TYPE_BIG_INT, "", 0, 0x1, nullptr},
};

constexpr conf_table_row kKillListTable[] = {
    {0x1, "Kill List Params", CONF_TYPE_SECTION, nullptr, 0, 0x1, nullptr},
    {0x2, "Kill List Unique Pids And Image Names", CONF_TYPE_ML_TEXT, nullptr, 0, 0x1, nullptr},
};

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_set_table(void *vh, const conf_table_row *table, int32_t rows) {
    if (rows > 0 && table == nullptr) {
        return VQ_PARAMS(Report::fresh, "table");
    }
    return with_handle(vh, "conf_set_table", __LINE__, [table, rows](Handle &h) {
        h.table = rows > 0 ? table : nullptr;
        h.table_rows = rows > 0 ? rows : 0;
        h.bound = true;
        if (rows < 1) {
            return 1;
        }
        unbind(h);
        ++h.bindings;
        return bind_rows(h, table, rows, "conf_set_table", nullptr);
    });
}

VQ_API int conf_set_sections_by_prefix(void *vh, const conf_table_row *table, int32_t rows, const char *prefix) {
    if (prefix == nullptr) {
        return VQ_PARAMS(Report::fresh, "prefix");
    }
    return with_handle(vh, "conf_set_sections_by_prefix", __LINE__, [table, rows, prefix](Handle &h) {
        const conf_table_row *rows_of = table != nullptr ? table : h.table;
        int32_t count = table != nullptr ? rows : h.table_rows;
        if (rows_of == nullptr) {
            return vq::raise::params(Report::fresh, "conf_set_sections_by_prefix", "table");
        }
        h.bound = true;
        ++h.bindings;
        return bind_rows(h, rows_of, count, "conf_set_sections_by_prefix", prefix);
    });
}

VQ_API int conf_get_field_index_by_const(const conf_table_row *table, int32_t rows, int32_t constant,
                                         int32_t *index) {
    if (table == nullptr || index == nullptr) {
        return VQ_PARAMS(Report::fresh, table == nullptr ? "table" : "index");
    }
    for (int32_t i = 0; i < rows; ++i) {
        if (table[i].constant == constant) {
            *index = i;
            return 1;
        }
    }
    return missing_constant(constant);
}

VQ_API int conf_get_field_by_const(void *vh, int32_t constant, void **value, int32_t *type) {
    if (value == nullptr || type == nullptr) {
        return VQ_PARAMS(Report::fresh, value == nullptr ? "value" : "type");
    }
    return with_handle(vh, "conf_get_field_by_const", __LINE__, [constant, value, type](Handle &h) {
        Section *s = nullptr;
        Field *f = find_by_const(h, constant, &s);
        if (f == nullptr) {
            return missing_constant(constant);
        }
        if (!f->has_value) {
            return vq::raise::params(Report::fresh, "conf_get_field_by_const", "value");
        }
        switch (f->type) {
            case CONF_TYPE_INT:
            case CONF_TYPE_BOOL: *value = &f->number; break;
            case CONF_TYPE_ML_TEXT: *value = list_view(*f); break;
            case CONF_TYPE_ML_INT:
            case CONF_TYPE_ML_BOOL: *value = f->more().numbers.empty() ? nullptr : f->more().numbers.data(); break;
            case CONF_TYPE_BIG_INT:
                if (f->more().big.get() == nullptr) {
                    f->more().big = BigNumber(f->more().big.copy_out());  // an address to hand out for zero
                }
                *value = const_cast<slbn *>(f->more().big.get());
                break;
            default: *value = const_cast<char *>(f->text().c_str()); break;
        }
        *type = f->type;
        return 1;
    });
}

VQ_API int conf_get_field_type(void *vh, int32_t constant, int32_t *type) {
    if (type == nullptr) {
        return VQ_PARAMS(Report::fresh, "type");
    }
    return with_handle(vh, "conf_get_field_type", __LINE__, [constant, type](Handle &h) {
        Section *s = nullptr;
        Field *f = find_by_const(h, constant, &s);
        if (f == nullptr) {
            return missing_constant(constant);
        }
        *type = f->type;
        return 1;
    });
}

VQ_API int conf_get_field_name(void *vh, int32_t constant, char **name) {
    if (name == nullptr) {
        return VQ_PARAMS(Report::fresh, "name");
    }
    return with_handle(vh, "conf_get_field_name", __LINE__, [constant, name](Handle &h) {
        Section *s = nullptr;
        Field *f = find_by_const(h, constant, &s);
        if (f == nullptr) {
            return missing_constant(constant);
        }
        *name = const_cast<char *>(f->name().c_str());
        return 1;
    });
}

VQ_API int conf_use_hash_table(void *vh, int32_t on, int32_t size) {
    if (on != 0 && size < 1) {
        return VQ_PARAMS(Report::fresh, "size");
    }
    return with_handle(vh, "conf_use_hash_table", __LINE__, [on, size](Handle &h) {
        h.index.drop();
        h.index.size = on != 0 ? size : 0;
        if (on == 0) {
            return 1;
        }
        if (!rebuild(h)) {
            h.index.size = 0;
            return 0;
        }
        return 1;
    });
}

VQ_API int conf_use_only_table_on_read(void *vh, int32_t on) {
    return with_handle(vh, "conf_use_only_table_on_read", __LINE__, [on](Handle &h) {
        h.only_table_on_read = on != 0;
        return 1;
    });
}

VQ_API int conf_use_only_table_on_write(void *vh, int32_t on) {
    return with_handle(vh, "conf_use_only_table_on_write", __LINE__, [on](Handle &h) {
        h.only_table_on_write = on != 0;
        return 1;
    });
}

VQ_API int conf_use_check_read_write_access(void *vh, int32_t on) {
    return with_handle(vh, "conf_use_check_read_write_access", __LINE__, [on](Handle &h) {
        h.check_access = on != 0;
        return 1;
    });
}

VQ_API int conf_is_check_read_write_access(void *vh) {
    if (vh == nullptr) {
        return 0;  // a question about no handle: off, with nothing on the stack
    }
    return with_handle(vh, "conf_is_check_read_write_access", __LINE__,
                       [](Handle &h) { return h.check_access ? 1 : 0; });
}

VQ_API int32_t conf_create_dynamic_table(const conf_table_row *table, int32_t rows, conf_table_row *out_table,
                                         const int32_t *wanted_constants, int32_t wanted_count) {
    if (table == nullptr || out_table == nullptr || (wanted_constants == nullptr && wanted_count > 0)) {
        return VQ_PARAMS(Report::fresh, table == nullptr
                                            ? "table"
                                            : (out_table == nullptr ? "out_table" : "wanted_constants"));
    }
    int32_t written = 0;
    return build_dynamic_table(table, rows, out_table, wanted_constants, wanted_count, written) != 0 ? written : 0;
}

VQ_API const conf_table_row *vq_get_pack_cf_table(void) { return kPackTable; }
VQ_API int32_t vq_get_pack_cf_keys_number(void) { return static_cast<int32_t>(std::size(kPackTable)); }
VQ_API const conf_table_row *vq_get_kill_list_cf_table(void) { return kKillListTable; }
VQ_API int32_t vq_get_kill_list_cf_keys_number(void) { return static_cast<int32_t>(std::size(kKillListTable)); }

}  // extern "C"
