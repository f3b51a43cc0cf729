// Copies between handles (one field, a table, a list of fields, a conversion
// between two tables) and the comparison of two handles over a table. A
// copy takes the value out of the source under the source's critical
// section and puts it into the destination under the destination's, so that
// no thread ever holds both: two threads copying a to b and b to a cannot
// deadlock.
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "vq_config/conf_state.h"

namespace vq::conf {
namespace {

// Whether src and dst are both live configuration handles; false with
// PARAMS naming the first that is not.
bool both_handles(void *src, void *dst, const char *function) {
    return handle_of(src, function, "src") != nullptr && handle_of(dst, function, "dst") != nullptr;
}

int copy_field(void *src, void *dst, int32_t from, int32_t to, int32_t type, const char *function) {
    if (!both_handles(src, dst, function)) {
        return 0;
    }
    Value value;
    if (get_value_by_const(src, function, from, type, value) == 0) {
        return 0;
    }
    return set_value_by_const(dst, function, to, value);
}

// A null handle is refused by the first field copied, as it always was; a
// handle of another kind is refused before anything else.
int copy_by_table(void *src, void *dst, const conf_table_row *table, int32_t rows, const char *function) {
    if ((src != nullptr && handle_of(src, function, "src") == nullptr) ||
        (dst != nullptr && handle_of(dst, function, "dst") == nullptr)) {
        return 0;
    }
    if (table == nullptr && rows > 0) {
        return raise::params(Report::fresh, function, "table");
    }
    for (int32_t i = 0; i < rows; ++i) {
        const conf_table_row &row = table[i];
        if (row.type == CONF_TYPE_SECTION) {
            continue;
        }
        if (copy_field(src, dst, row.constant, row.constant, row.type, function) == 0) {
            return 0;
        }
    }
    return 1;
}

// ---- Conversion tables

int conversion_error(const char *text) {
    err_set_error(ERR_CNF_CONVTABL);
    err_add_text_error(text);
    return 0;
}

bool is_empty(const conf_conversion_row &entry) { return entry.converted == CONF_NO_CONVERSION; }

void trace_kept(const conf_conversion_row &entry) {
    vq::debug::trace_bit(kTraceBit, "conversion of const <%d>:\n", static_cast<int>(entry.constant));
    vq::debug::trace_bit(kTraceBit, "(this OK for reversion) - just not copying and defaults are kept. continue...\n");
}

int convert_one(void *src, void *dst, int32_t from, int32_t to, const conf_table_row &row) {
    if (copy_field(src, dst, from, to, row.type, "conf_copy_handle_consts_table_by_conversion_table") != 0) {
        return 1;
    }
    std::string text = std::string("Failed to copy between the configuration tables. Field name: ") + row.name;
    err_add_text_error(text.c_str());
    err_add_error(ERR_CNF_COPYCST, static_cast<int>(from), static_cast<int>(to));
    return 0;
}

// Forward: every field row of the table finds its entry at constant - offset.
int convert_forward(void *src, void *dst, const conf_table_row *table, int32_t rows,
                    const conf_conversion_row *conversion, int32_t entries, int32_t offset) {
    for (int32_t i = 0; i < rows; ++i) {
        const conf_table_row &row = table[i];
        if (row.type == CONF_TYPE_SECTION) {
            continue;
        }
        int64_t at = static_cast<int64_t>(row.constant) - offset;
        if (at < 0 || at >= entries) {
            return conversion_error("internal: a corrupted conversion table - param: offset.");
        }
        const conf_conversion_row &entry = conversion[at];
        if (is_empty(entry)) {
            trace_kept(entry);
            continue;
        }
        if (entry.constant != row.constant) {
            return conversion_error("Unsynchronized conversion tables.");
        }
        if (convert_one(src, dst, row.constant, entry.converted, row) == 0) {
            return 0;
        }
    }
    return 1;
}

// Revert: every entry copies its converted constant back to its constant;
// the table gives the type.
int convert_back(void *src, void *dst, const conf_table_row *table, int32_t rows,
                 const conf_conversion_row *conversion, int32_t entries) {
    for (int32_t i = 0; i < entries; ++i) {
        const conf_conversion_row &entry = conversion[i];
        if (is_empty(entry)) {
            trace_kept(entry);
            continue;
        }
        const conf_table_row *row = nullptr;
        for (int32_t r = 0; r < rows && row == nullptr; ++r) {
            row = table[r].constant == entry.constant ? &table[r] : nullptr;
        }
        if (row == nullptr) {
            return conversion_error("Unsynchronized conversion tables.");
        }
        if (row->type == CONF_TYPE_SECTION) {
            continue;
        }
        if (convert_one(src, dst, entry.converted, entry.constant, *row) == 0) {
            return 0;
        }
    }
    return 1;
}

// ---- Comparison

// A snapshot of a bound field for the comparison; no access check applies.
struct Snapshot {
    bool found = false;
    bool encrypted = false;
    Value value;
};

int snapshot(void *vh, int32_t constant, Snapshot &out) {
    return with_handle(vh, "conf_get_deferent_fields", __LINE__, [&](Handle &h) {
        Section *s = nullptr;
        Field *f = find_by_const(h, constant, &s);
        out.found = f != nullptr;
        if (f == nullptr) {
            return 1;
        }
        out.encrypted = (f->flags & kFlagEncrypted) != 0;
        out.value.type = f->type;
        out.value.number = f->number;
        out.value.text = f->text();
        out.value.lines = f->peek().lines;
        out.value.numbers = f->peek().numbers;
        out.value.big = f->peek().big.clone();
        return 1;
    });
}

bool same(const Value &a, const Value &b) {
    switch (a.type) {
        case CONF_TYPE_INT:
        case CONF_TYPE_BOOL: return a.number == b.number;
        case CONF_TYPE_ML_TEXT: return a.lines == b.lines;
        case CONF_TYPE_ML_INT:
        case CONF_TYPE_ML_BOOL: return a.numbers == b.numbers;
        case CONF_TYPE_BIG_INT: return a.big.text() == b.big.text();  // texts are canonical
        default: return a.text == b.text;
    }
}

// The value as the trace shows it; encrypted values only as a placeholder.
std::string traced(const Snapshot &s, const char *placeholder) {
    if (s.encrypted) {
        return placeholder;
    }
    const Value &v = s.value;
    switch (v.type) {
        case CONF_TYPE_INT: return std::to_string(v.number);
        case CONF_TYPE_BOOL: return v.number != 0 ? "TRUE" : "FALSE";
        case CONF_TYPE_ML_TEXT: return "<" + std::to_string(v.lines.size()) + " lines>";
        case CONF_TYPE_ML_INT:
        case CONF_TYPE_ML_BOOL: return "<" + std::to_string(v.numbers.size()) + " values>";
        case CONF_TYPE_BIG_INT: return v.big.text();
        default: return v.text;
    }
}

int compare_row(void *h1, void *h2, const conf_table_row &row, int32_t &mark) {
    Snapshot a;
    Snapshot b;
    if (snapshot(h1, row.constant, a) == 0 || snapshot(h2, row.constant, b) == 0) {
        return 0;
    }
    if (!a.found || !b.found) {
        err_set_error(ERR_CNF_FIND_820F, row.name);
        err_add_error(ERR_CNF_FIND_820D, static_cast<int>(row.constant));
        return 0;
    }
    if (a.value.type != b.value.type) {
        err_set_error(ERR_CNF_COMP, type_name(a.value.type), type_name(b.value.type));
        return 0;
    }
    bool differs = !same(a.value, b.value);
    mark = differs ? 1 : 0;
    if (differs) {
        vq::debug::trace_bit(kTraceBit, "conf_get_deferent_fields() - field <%s> differs: <%s> <%s>\n", row.name,
                             traced(a, "***password1****").c_str(), traced(b, "***password2****").c_str());
    }
    return 1;
}

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_copy_int_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_INT, __func__);
}
VQ_API int conf_copy_bool_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_BOOL, __func__);
}
VQ_API int conf_copy_string_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_STRING, __func__);
}
VQ_API int conf_copy_big_int_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_BIG_INT, __func__);
}
VQ_API int conf_copy_ml_int_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_ML_INT, __func__);
}
VQ_API int conf_copy_ml_bool_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_ML_BOOL, __func__);
}
VQ_API int conf_copy_ml_string_field_by_const(void *src, void *dst, int32_t c) {
    return copy_field(src, dst, c, c, CONF_TYPE_ML_TEXT, __func__);
}

VQ_API int conf_copy_handle_by_table(void *src, void *dst, const conf_table_row *table, int32_t rows) {
    return copy_by_table(src, dst, table, rows, "conf_copy_handle_by_table");
}

VQ_API int conf_copy_handle_by_table_by_fields(void *src, void *dst, const conf_table_row *table, int32_t rows,
                                               const int32_t *constants, int32_t count) {
    if (table == nullptr || rows < 0 || (constants == nullptr && count > 0)) {
        return VQ_PARAMS(Report::fresh, table == nullptr || rows < 0 ? "table" : "constants");
    }
    std::vector<conf_table_row> wanted;
    try {
        wanted.resize(static_cast<size_t>(rows));
    } catch (const std::bad_alloc &) {
        return vq::raise::memory(Report::fresh, "conf_copy_handle_by_table_by_fields", kModule, __LINE__);
    }
    int32_t n = 0;
    if (build_dynamic_table(table, rows, wanted.data(), constants, count, n) == 0) {
        return 0;
    }
    return copy_by_table(src, dst, wanted.data(), n, "conf_copy_handle_by_table_by_fields");
}

VQ_API int conf_copy_handle_consts_table_by_conversion_table(void *src, void *dst, const conf_table_row *table,
                                                             int32_t rows, const conf_conversion_row *conversion,
                                                             int32_t conversion_rows, int32_t offset,
                                                             int32_t revert) {
    const char *function = "conf_copy_handle_consts_table_by_conversion_table";
    if (!both_handles(src, dst, function)) {
        return 0;
    }
    if (table == nullptr) {
        return vq::raise::params(Report::fresh, function, "table");
    }
    if (conversion == nullptr || conversion_rows < 1) {
        return conversion_error("internal: a corrupted conversion table.");
    }
    return revert != 0 ? convert_back(src, dst, table, rows, conversion, conversion_rows)
                       : convert_forward(src, dst, table, rows, conversion, conversion_rows, offset);
}

VQ_API int conf_get_deferent_fields(void *h1, void *h2, const conf_table_row *table, int32_t rows, int32_t *marks) {
    const char *function = "conf_get_deferent_fields";
    if (handle_of(h1, function, "handle1") == nullptr || handle_of(h2, function, "handle2") == nullptr) {
        return 0;
    }
    if (table == nullptr || marks == nullptr) {
        return vq::raise::params(Report::fresh, function, table == nullptr ? "table" : "marks");
    }
    try {
        for (int32_t i = 0; i < rows; ++i) {
            marks[i] = 0;
            if (table[i].type != CONF_TYPE_SECTION && compare_row(h1, h2, table[i], marks[i]) == 0) {
                return 0;
            }
        }
    } catch (const std::bad_alloc &) {
        return vq::raise::memory(Report::fresh, "conf_get_deferent_fields", kModule, __LINE__);
    }
    return 1;
}

}  // extern "C"
