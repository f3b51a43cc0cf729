// Fuzzes the configuration reader with arbitrary text: read it into a handle,
// walk every section and field, write the handle back as text, and check that
// written text always reads back, and that after one such round the text is a
// fixed point of read-then-write. (One round may change it: the first element
// of a field continued over plain lines is the field's value, which may begin
// with a blank, and the format trims every element line it reads.)
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

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

// Reads text into a new handle and writes it back; the read must succeed.
std::string round_trip(const std::string &text) {
    void *h = nullptr;
    if (conf_allocate_handle(&h) != 1) {
        std::abort();
    }
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string input(reinterpret_cast<const char *>(data), size);
    void *h = nullptr;
    if (conf_allocate_handle(&h) != 1) {
        return 0;
    }
    int read = conf_read_buffer_to_handle(h, input.c_str());
    walk(h);
    std::string first = written(h);
    std::string second = round_trip(first);
    if (read == 1 && round_trip(second) != second) {
        std::abort();
    }
    conf_free_handle(&h);
    err_clear_error_stack();
    return 0;
}
