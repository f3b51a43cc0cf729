// Typed access to fields: every getter and setter of every type in its three
// addressing forms comes down to one get path and one set path. A form
// says how the field is found; an output (Out) says how a value leaves the
// field, an input (In) how one enters it.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "vq_config/conf_state.h"
#include "vq_glob/mlist.h"
#include "vq_glob/str.h"

namespace vq::conf {
namespace {

// How a field is addressed: by section and field name, by section name and
// constant, or by constant alone.
struct Address {
    enum class Form { name, section, constant } form;
    const char *section;
    const char *field;
    int32_t constant;
};

Address by_name(const char *section, const char *field) { return {Address::Form::name, section, field, 0}; }
Address by_section(const char *section, int32_t constant) {
    return {Address::Form::section, section, nullptr, constant};
}
Address by_const(int32_t constant) { return {Address::Form::constant, nullptr, nullptr, constant}; }

// The argument an address lacks, or null when it is complete.
const char *missing_argument(const Address &a) {
    if (a.form != Address::Form::constant && a.section == nullptr) {
        return "section";
    }
    if (a.form == Address::Form::name && a.field == nullptr) {
        return "field";
    }
    return nullptr;
}

Field *find_in_section(Handle &h, Section &s, int32_t constant) {
    Section *found_in = nullptr;
    if (h.index.size > 0) {
        Field *f = find_by_const(h, constant, &found_in);
        return found_in == &s ? f : nullptr;
    }
    for (Field &f : s.fields) {
        if (f.in_table && f.constant == constant) {
            return &f;
        }
    }
    return nullptr;
}

// The addressed field, or null with ERR_CNF_SECTION / ERR_CNF_FIND_820F /
// ERR_CNF_FIND_820E / ERR_CNF_FIND_820D.
Field *locate(Handle &h, const Address &a) {
    Section *s = nullptr;
    if (a.form == Address::Form::constant) {
        Field *f = find_by_const(h, a.constant, &s);
        if (f == nullptr) {
            err_set_error(ERR_CNF_FIND_820D, static_cast<int>(a.constant));
        }
        return f;
    }
    s = h.sections.find(a.section);
    if (s == nullptr) {
        missing_section(a.section);
        return nullptr;
    }
    if (a.form == Address::Form::name) {
        Field *f = s->fields.find(a.field);
        if (f == nullptr) {
            err_set_error(ERR_CNF_FIND_820F, a.field);
        }
        return f;
    }
    Field *f = find_in_section(h, *s, a.constant);
    if (f == nullptr) {
        err_set_error(ERR_CNF_FIND_820E, a.section);
    }
    return f;
}

// False with code + ERR_CNF_ACCESS when access checking is on and the field's
// flags deny the access.
bool allowed(const Handle &h, const Field &f, int32_t deny, uint32_t code) {
    if (!h.check_access || (f.flags & deny) == 0) {
        return true;
    }
    std::string label = field_label(f);
    err_set_error(code, label.c_str());
    err_add_error(ERR_CNF_ACCESS, label.c_str());
    return false;
}

int type_mismatch(const Field &f, int32_t type) {
    err_set_error(ERR_CNF_TYPE, static_cast<int>(f.constant), type_name(type));
    return 0;
}

// ---- Outputs: each writes the caller's variables only once it cannot fail.

struct NumberOut {
    int32_t *value;
    bool complete() const { return value != nullptr; }
    int take(Field &f) const {
        *value = f.number;
        return 1;
    }
};

struct TextOut {
    char **value;
    bool complete() const { return value != nullptr; }
    int take(Field &f) const {
        *value = const_cast<char *>(f.text().c_str());
        return 1;
    }
};

struct BigOut {
    slbn **value;
    bool complete() const { return value != nullptr; }
    int take(Field &f) const {
        *value = f.peek().big.copy_out();
        return 1;
    }
};

struct NumbersOut {
    int32_t **values;
    int32_t *count;
    bool complete() const { return values != nullptr && count != nullptr; }
    int take(Field &f) const {
        FieldExtra &extra = f.more();  // the handed-out address must stay the field's
        *values = extra.numbers.empty() ? nullptr : extra.numbers.data();
        *count = static_cast<int32_t>(extra.numbers.size());
        return 1;
    }
};

struct ListOut {
    char ***list;
    bool complete() const { return list != nullptr; }
    int take(Field &f) const {
        *list = list_view(f);
        return 1;
    }
};

// The elements joined by sep (null: ",") into a new text.
struct JoinedOut {
    char **value;
    const char *sep;
    bool complete() const { return value != nullptr; }
    int take(Field &f) const {
        char **list = list_view(f);
        char *joined =
            sep != nullptr ? str_convert_list_to_string_with_sep(list, sep) : str_convert_list_to_string(list);
        if (joined == nullptr) {
            return 0;
        }
        *value = joined;
        return 1;
    }
};

struct ValueOut {
    Value *out;
    bool complete() const { return out != nullptr; }
    int take(Field &f) const {
        Value v;
        v.type = f.type;
        v.number = f.number;
        v.text = f.text();
        v.lines = f.peek().lines;
        v.numbers = f.peek().numbers;
        v.big = f.peek().big.clone();
        *out = std::move(v);
        return 1;
    }
};

// ---- Inputs: each builds the new value whole before it replaces the old.

struct NumberIn {
    int32_t value;
    bool complete() const { return true; }
    int store(Field &f) const {
        f.number = value;
        return 1;
    }
};

struct BoolIn {
    int32_t value;
    bool complete() const { return true; }
    int store(Field &f) const {
        f.number = value != 0 ? 1 : 0;
        return 1;
    }
};

struct TextIn {
    const char *value;
    bool complete() const { return value != nullptr; }
    int store(Field &f) const {
        f.set_text(value);
        return 1;
    }
};

struct BigIn {
    const slbn *value;
    bool complete() const { return value != nullptr; }
    int store(Field &f) const {
        slbn *copy = slbn_copy(value);
        if (copy == nullptr) {
            throw std::bad_alloc();
        }
        f.more().big = BigNumber(copy);
        return 1;
    }
};

struct NumbersIn {
    const int32_t *values;
    int32_t count;
    bool as_bool;
    bool complete() const { return count >= 0 && (count == 0 || values != nullptr); }
    int store(Field &f) const {
        std::vector<int32_t> numbers(values, values + count);
        if (as_bool) {
            for (int32_t &n : numbers) {
                n = n != 0 ? 1 : 0;
            }
        }
        f.more().numbers = std::move(numbers);
        return 1;
    }
};

// The list may be the one a getter handed out from this very field, so it
// is copied before the field lets go of its elements.
struct ListIn {
    char **list;
    bool complete() const { return true; }
    int store(Field &f) const {
        std::vector<std::string> lines;
        for (char **p = list; p != nullptr && *p != nullptr; ++p) {
            lines.emplace_back(*p);
        }
        FieldExtra &extra = f.more();
        extra.lines = std::move(lines);
        extra.view.clear();
        return 1;
    }
};

// A text split at sep (null: ",") into the list.
struct SplitIn {
    const char *text;
    const char *sep;
    bool complete() const { return text != nullptr; }
    int store(Field &f) const {
        char **list = nullptr;
        int ok = sep != nullptr ? str_convert_string_to_list_with_sep(text, sep, &list)
                                : str_convert_string_to_list(text, &list);
        if (ok == 0) {
            return 0;
        }
        int status = 0;
        try {
            status = ListIn{list}.store(f);
        } catch (...) {
            ml_free(list);
            throw;
        }
        ml_free(list);
        return status;
    }
};

struct ValueIn {
    const Value *in;
    bool complete() const { return in != nullptr; }
    int store(Field &f) const {
        switch (in->type) {
            case CONF_TYPE_STRING: f.set_text(in->text); break;
            case CONF_TYPE_INT:
            case CONF_TYPE_BOOL: f.number = in->number; break;
            case CONF_TYPE_ML_TEXT:
                f.more().lines = in->lines;
                f.more().view.clear();
                break;
            case CONF_TYPE_ML_INT:
            case CONF_TYPE_ML_BOOL: f.more().numbers = in->numbers; break;
            case CONF_TYPE_BIG_INT: f.more().big = in->big.clone(); break;
            default: return 0;
        }
        return 1;
    }
};

// ---- The two paths.

template <typename Out>
int get(void *vh, const char *function, const Address &a, int32_t type, const Out &out) {
    if (const char *missing = missing_argument(a)) {
        return raise::params(Report::fresh, function, missing);
    }
    if (!out.complete()) {
        return raise::params(Report::fresh, function, "value");
    }
    return with_handle(vh, function, __LINE__, [&](Handle &h) {
        Field *f = locate(h, a);
        if (f == nullptr || !allowed(h, *f, kFlagDenyRead, ERR_CNF_READ)) {
            return 0;
        }
        if (f->type == CONF_TYPE_UNKNOWN) {
            retype(*f, type);
        }
        if (f->type != type || !f->has_value) {
            return type_mismatch(*f, type);
        }
        return out.take(*f);
    });
}

template <typename In>
int set(void *vh, const char *function, const Address &a, int32_t type, const In &in) {
    if (const char *missing = missing_argument(a)) {
        return raise::params(Report::fresh, function, missing);
    }
    if (!in.complete()) {
        return raise::params(Report::fresh, function, "value");
    }
    return with_handle(vh, function, __LINE__, [&](Handle &h) {
        Field *f = locate(h, a);
        if (f == nullptr || !allowed(h, *f, kFlagDenyWrite, ERR_CNF_WRITE)) {
            return 0;
        }
        if (f->type == CONF_TYPE_UNKNOWN) {
            retype(*f, type);
        }
        if (f->type != type) {
            return type_mismatch(*f, type);
        }
        if (in.store(*f) == 0) {
            return 0;
        }
        f->has_value = true;
        f->changed = true;
        h.changed = true;
        return 1;
    });
}

}  // namespace

int get_value_by_const(void *h, const char *function, int32_t constant, int32_t type, Value &out) {
    return get(h, function, by_const(constant), type, ValueOut{&out});
}

int set_value_by_const(void *h, const char *function, int32_t constant, const Value &in) {
    return set(h, function, by_const(constant), in.type, ValueIn{&in});
}

}  // namespace vq::conf

using namespace vq::conf;

namespace {
constexpr int32_t kInt = CONF_TYPE_INT;
constexpr int32_t kBool = CONF_TYPE_BOOL;
constexpr int32_t kString = CONF_TYPE_STRING;
constexpr int32_t kBig = CONF_TYPE_BIG_INT;
constexpr int32_t kMlInt = CONF_TYPE_ML_INT;
constexpr int32_t kMlBool = CONF_TYPE_ML_BOOL;
constexpr int32_t kMlText = CONF_TYPE_ML_TEXT;
}  // namespace

// clang-format off
extern "C" {

// ---- Integers
VQ_API int conf_get_int_field(void *h, const char *s, const char *f, int32_t *v) { return get(h, __func__, by_name(s, f), kInt, NumberOut{v}); }
VQ_API int conf_get_int_field_by_section(void *h, const char *s, int32_t c, int32_t *v) { return get(h, __func__, by_section(s, c), kInt, NumberOut{v}); }
VQ_API int conf_get_int_field_by_const(void *h, int32_t c, int32_t *v) { return get(h, __func__, by_const(c), kInt, NumberOut{v}); }
VQ_API int conf_set_int_field(void *h, const char *s, const char *f, int32_t v) { return set(h, __func__, by_name(s, f), kInt, NumberIn{v}); }
VQ_API int conf_set_int_field_by_section(void *h, const char *s, int32_t c, int32_t v) { return set(h, __func__, by_section(s, c), kInt, NumberIn{v}); }
VQ_API int conf_set_int_field_by_const(void *h, int32_t c, int32_t v) { return set(h, __func__, by_const(c), kInt, NumberIn{v}); }

// ---- Booleans
VQ_API int conf_get_bool_field(void *h, const char *s, const char *f, int32_t *v) { return get(h, __func__, by_name(s, f), kBool, NumberOut{v}); }
VQ_API int conf_get_bool_field_by_section(void *h, const char *s, int32_t c, int32_t *v) { return get(h, __func__, by_section(s, c), kBool, NumberOut{v}); }
VQ_API int conf_get_bool_field_by_const(void *h, int32_t c, int32_t *v) { return get(h, __func__, by_const(c), kBool, NumberOut{v}); }
VQ_API int conf_set_bool_field(void *h, const char *s, const char *f, int32_t v) { return set(h, __func__, by_name(s, f), kBool, BoolIn{v}); }
VQ_API int conf_set_bool_field_by_section(void *h, const char *s, int32_t c, int32_t v) { return set(h, __func__, by_section(s, c), kBool, BoolIn{v}); }
VQ_API int conf_set_bool_field_by_const(void *h, int32_t c, int32_t v) { return set(h, __func__, by_const(c), kBool, BoolIn{v}); }

// ---- Strings
VQ_API int conf_get_string_field(void *h, const char *s, const char *f, char **v) { return get(h, __func__, by_name(s, f), kString, TextOut{v}); }
VQ_API int conf_get_string_field_by_section(void *h, const char *s, int32_t c, char **v) { return get(h, __func__, by_section(s, c), kString, TextOut{v}); }
VQ_API int conf_get_string_field_by_const(void *h, int32_t c, char **v) { return get(h, __func__, by_const(c), kString, TextOut{v}); }
VQ_API int conf_set_string_field(void *h, const char *s, const char *f, const char *v) { return set(h, __func__, by_name(s, f), kString, TextIn{v}); }
VQ_API int conf_set_string_field_by_section(void *h, const char *s, int32_t c, const char *v) { return set(h, __func__, by_section(s, c), kString, TextIn{v}); }
VQ_API int conf_set_string_field_by_const(void *h, int32_t c, const char *v) { return set(h, __func__, by_const(c), kString, TextIn{v}); }

// ---- Big integers
VQ_API int conf_get_big_int_field(void *h, const char *s, const char *f, slbn **v) { return get(h, __func__, by_name(s, f), kBig, BigOut{v}); }
VQ_API int conf_get_big_int_field_by_section(void *h, const char *s, int32_t c, slbn **v) { return get(h, __func__, by_section(s, c), kBig, BigOut{v}); }
VQ_API int conf_get_big_int_field_by_const(void *h, int32_t c, slbn **v) { return get(h, __func__, by_const(c), kBig, BigOut{v}); }
VQ_API int conf_set_big_int_field(void *h, const char *s, const char *f, const slbn *v) { return set(h, __func__, by_name(s, f), kBig, BigIn{v}); }
VQ_API int conf_set_big_int_field_by_section(void *h, const char *s, int32_t c, const slbn *v) { return set(h, __func__, by_section(s, c), kBig, BigIn{v}); }
VQ_API int conf_set_big_int_field_by_const(void *h, int32_t c, const slbn *v) { return set(h, __func__, by_const(c), kBig, BigIn{v}); }

// ---- Multi-line integers
VQ_API int conf_get_ml_int_field(void *h, const char *s, const char *f, int32_t **v, int32_t *n) { return get(h, __func__, by_name(s, f), kMlInt, NumbersOut{v, n}); }
VQ_API int conf_get_ml_int_field_by_section(void *h, const char *s, int32_t c, int32_t **v, int32_t *n) { return get(h, __func__, by_section(s, c), kMlInt, NumbersOut{v, n}); }
VQ_API int conf_get_ml_int_field_by_const(void *h, int32_t c, int32_t **v, int32_t *n) { return get(h, __func__, by_const(c), kMlInt, NumbersOut{v, n}); }
VQ_API int conf_set_ml_int_field(void *h, const char *s, const char *f, const int32_t *v, int32_t n) { return set(h, __func__, by_name(s, f), kMlInt, NumbersIn{v, n, false}); }
VQ_API int conf_set_ml_int_field_by_section(void *h, const char *s, int32_t c, const int32_t *v, int32_t n) { return set(h, __func__, by_section(s, c), kMlInt, NumbersIn{v, n, false}); }
VQ_API int conf_set_ml_int_field_by_const(void *h, int32_t c, const int32_t *v, int32_t n) { return set(h, __func__, by_const(c), kMlInt, NumbersIn{v, n, false}); }

// ---- Multi-line booleans
VQ_API int conf_get_ml_bool_field(void *h, const char *s, const char *f, int32_t **v, int32_t *n) { return get(h, __func__, by_name(s, f), kMlBool, NumbersOut{v, n}); }
VQ_API int conf_get_ml_bool_field_by_section(void *h, const char *s, int32_t c, int32_t **v, int32_t *n) { return get(h, __func__, by_section(s, c), kMlBool, NumbersOut{v, n}); }
VQ_API int conf_get_ml_bool_field_by_const(void *h, int32_t c, int32_t **v, int32_t *n) { return get(h, __func__, by_const(c), kMlBool, NumbersOut{v, n}); }
VQ_API int conf_set_ml_bool_field(void *h, const char *s, const char *f, const int32_t *v, int32_t n) { return set(h, __func__, by_name(s, f), kMlBool, NumbersIn{v, n, true}); }
VQ_API int conf_set_ml_bool_field_by_section(void *h, const char *s, int32_t c, const int32_t *v, int32_t n) { return set(h, __func__, by_section(s, c), kMlBool, NumbersIn{v, n, true}); }
VQ_API int conf_set_ml_bool_field_by_const(void *h, int32_t c, const int32_t *v, int32_t n) { return set(h, __func__, by_const(c), kMlBool, NumbersIn{v, n, true}); }

// ---- Multi-line text
VQ_API int conf_get_ml_string_field(void *h, const char *s, const char *f, char ***l) { return get(h, __func__, by_name(s, f), kMlText, ListOut{l}); }
VQ_API int conf_get_ml_string_field_by_section(void *h, const char *s, int32_t c, char ***l) { return get(h, __func__, by_section(s, c), kMlText, ListOut{l}); }
VQ_API int conf_get_ml_string_field_by_const(void *h, int32_t c, char ***l) { return get(h, __func__, by_const(c), kMlText, ListOut{l}); }
VQ_API int conf_set_ml_string_field(void *h, const char *s, const char *f, char **l) { return set(h, __func__, by_name(s, f), kMlText, ListIn{l}); }
VQ_API int conf_set_ml_string_field_by_section(void *h, const char *s, int32_t c, char **l) { return set(h, __func__, by_section(s, c), kMlText, ListIn{l}); }
VQ_API int conf_set_ml_string_field_by_const(void *h, int32_t c, char **l) { return set(h, __func__, by_const(c), kMlText, ListIn{l}); }

// ---- Multi-line text as one string
VQ_API int conf_get_ml_string_field_as_string(void *h, const char *s, const char *f, char **v) { return get(h, __func__, by_name(s, f), kMlText, JoinedOut{v, nullptr}); }
VQ_API int conf_get_ml_string_field_by_section_as_string(void *h, const char *s, int32_t c, char **v) { return get(h, __func__, by_section(s, c), kMlText, JoinedOut{v, nullptr}); }
VQ_API int conf_get_ml_string_field_by_const_as_string(void *h, int32_t c, char **v) { return get(h, __func__, by_const(c), kMlText, JoinedOut{v, nullptr}); }
VQ_API int conf_get_ml_string_field_by_section_as_string_with_sep(void *h, const char *s, int32_t c, char **v, const char *sep) { return get(h, __func__, by_section(s, c), kMlText, JoinedOut{v, sep}); }
VQ_API int conf_get_ml_string_field_by_const_as_string_with_sep(void *h, int32_t c, char **v, const char *sep) { return get(h, __func__, by_const(c), kMlText, JoinedOut{v, sep}); }
VQ_API int conf_set_ml_string_field_by_const_as_string(void *h, int32_t c, const char *t) { return set(h, __func__, by_const(c), kMlText, SplitIn{t, nullptr}); }
VQ_API int conf_set_ml_string_field_by_section_as_string(void *h, const char *s, int32_t c, const char *t) { return set(h, __func__, by_section(s, c), kMlText, SplitIn{t, nullptr}); }
VQ_API int conf_set_ml_string_field_by_const_as_string_by_separator(void *h, int32_t c, const char *t, const char *sep) { return set(h, __func__, by_const(c), kMlText, SplitIn{t, sep}); }
VQ_API int conf_set_ml_string_field_by_section_as_string_with_sep(void *h, const char *s, int32_t c, const char *t, const char *sep) { return set(h, __func__, by_section(s, c), kMlText, SplitIn{t, sep}); }

}  // extern "C"
// clang-format on
