// Fuzzes the configuration reader with arbitrary text: read it into a handle,
// walk every section and field, write the handle back as text, and check that
// written text always reads back, and that after one such round the text is a
// fixed point of read-then-write. (One round may change it: the first element
// of a field continued over plain lines is the field's value, which may begin
// with a blank, and the format trims every element line it reads.)
//
// The same handle is then written as XML, which must hold nothing but UTF-8
// characters that an XML document may carry, whatever bytes the input had.
//
// The first input byte chooses whether the handles are bound to the
// library's pack table first (odd) or read untyped (even); bound handles
// are also read through every typed getter of the table's fields.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"
#include "vq_glob/slbn.h"

namespace {

void walk(void *h) {
    void *sections = nullptr;
    if (conf_init_section_search_context(h, &sections) != 1) {
        std::abort();
    }
    char *section = nullptr;
    while (conf_get_next_section(sections, &section) == 1) {
        void *fields = nullptr;
        if (conf_init_field_search_context(h, section, &fields) != 1) {
            std::abort();
        }
        char *field = nullptr;
        while (conf_get_next_field(fields, &field) == 1) {
            if (field == nullptr) {
                std::abort();
            }
        }
        conf_free_search_context(fields);
    }
    conf_free_search_context(sections);
}

std::string written(void *h);

void *new_handle(bool bound) {
    void *h = nullptr;
    if (conf_allocate_handle(&h) != 1) {
        std::abort();
    }
    if (bound && conf_set_table(h, vq_get_pack_cf_table(), vq_get_pack_cf_keys_number()) != 1) {
        std::abort();
    }
    return h;
}

// Every bound field answers its typed getter.
void read_typed(void *h) {
    const conf_table_row *table = vq_get_pack_cf_table();
    for (int32_t i = 0; i < vq_get_pack_cf_keys_number(); ++i) {
        int32_t c = table[i].constant;
        int32_t number = 0;
        int32_t *numbers = nullptr;
        char *text = nullptr;
        char **list = nullptr;
        slbn *big = nullptr;
        int ok = 1;
        switch (table[i].type) {
            case CONF_TYPE_STRING: ok = conf_get_string_field_by_const(h, c, &text); break;
            case CONF_TYPE_INT: ok = conf_get_int_field_by_const(h, c, &number); break;
            case CONF_TYPE_BOOL: ok = conf_get_bool_field_by_const(h, c, &number); break;
            case CONF_TYPE_ML_INT: ok = conf_get_ml_int_field_by_const(h, c, &numbers, &number); break;
            case CONF_TYPE_ML_TEXT:
                ok = conf_get_ml_string_field_by_const(h, c, &list) && conf_get_ml_string_field_by_const_as_string(h, c, &text);
                conf_free_buffer(text);
                break;
            case CONF_TYPE_BIG_INT:
                ok = conf_get_big_int_field_by_const(h, c, &big);
                slbn_free(big);
                break;
            default: break;
        }
        if (ok != 1) {
            std::abort();
        }
    }
}

bool g_bound = false;

// Reads text into a new handle and writes it back; the read must succeed.
std::string round_trip(const std::string &text) {
    void *h = new_handle(g_bound);
    if (conf_read_buffer_to_handle(h, text.c_str()) != 1) {
        std::abort();
    }
    std::string out = written(h);
    conf_free_handle(&h);
    return out;
}

std::string written(void *h) {
    char *buffer = nullptr;
    if (conf_write_buffer(h, &buffer) != 1) {
        std::abort();
    }
    std::string text(buffer);
    conf_free_buffer(buffer);
    return text;
}

// Whether text is UTF-8 made only of XML's characters (tab, line feed,
// carriage return, U+0020 to U+D7FF, U+E000 to U+FFFD, U+10000 and up).
bool is_xml_text(const std::string &text) {
    for (size_t at = 0; at < text.size();) {
        auto lead = static_cast<unsigned char>(text[at]);
        size_t length = lead < 0x80 ? 1 : lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3
                                                                       : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                                                                      : 0;
        if (length == 0 || at + length > text.size()) {
            return false;
        }
        uint32_t code = length == 1 ? lead : lead & (0x7Fu >> length);
        for (size_t i = 1; i < length; ++i) {
            auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            code = code << 6 | (next & 0x3Fu);
        }
        static constexpr uint32_t kShortest[] = {0, 0, 0x80, 0x800, 0x10000};
        bool allowed = code == 0x9 || code == 0xA || code == 0xD || (code >= 0x20 && code <= 0xD7FF) ||
                       (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
        if (code < kShortest[length] || !allowed) {
            return false;
        }
        at += length;
    }
    return true;
}

void check_xml(void *h) {
    if (conf_set_use_write_to_XML(h, 1) != 1) {
        std::abort();
    }
    char *buffer = nullptr;
    // A field whose value cannot be written fails the write; what is written
    // must be XML.
    if (conf_write_buffer(h, &buffer) == 1 && !is_xml_text(buffer)) {
        std::abort();
    }
    conf_free_buffer(buffer);
    conf_set_use_write_to_XML(h, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    g_bound = (data[0] & 1) != 0;
    std::string input(reinterpret_cast<const char *>(data + 1), size - 1);
    void *h = new_handle(g_bound);
    int read = conf_read_buffer_to_handle(h, input.c_str());
    walk(h);
    if (g_bound) {
        read_typed(h);
    }
    std::string first = written(h);
    std::string second = round_trip(first);
    if (read == 1 && round_trip(second) != second) {
        std::abort();
    }
    check_xml(h);
    conf_free_handle(&h);
    err_clear_error_stack();
    return 0;
}
