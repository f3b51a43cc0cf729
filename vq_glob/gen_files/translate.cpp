// File handles: byte translation on the way in and out.
//
// A handle's translation is a pair of 256-byte tables, one applied to every
// byte read and one to every byte before it is written. The pair is built from
// one caller table and a direction, and may be shared with other handles
// (gf_copy_translation_tables); it lives as long as any handle uses it.
#include <memory>
#include <new>

#include "gen_files/gf_state.h"

namespace vq::gf {

void apply_table(const unsigned char *table, void *buffer, size_t count) {
    auto *p = static_cast<unsigned char *>(buffer);
    // Four independent look-ups per round keep the loads in flight.
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        unsigned char a = table[p[i]];
        unsigned char b = table[p[i + 1]];
        unsigned char c = table[p[i + 2]];
        unsigned char d = table[p[i + 3]];
        p[i] = a;
        p[i + 1] = b;
        p[i + 2] = c;
        p[i + 3] = d;
    }
    for (; i < count; ++i) {
        p[i] = table[p[i]];
    }
}

namespace {

// Direction 0: byte b reads as t[b], and t[b] is written for b. Any other
// direction: the reverse. When the table is no permutation, the way back of a
// value it never yields is left as the identity, and of a value it yields
// twice is the last source.
void build(Tables &tables, const unsigned char *t, int32_t direction) {
    unsigned char *forward = direction == 0 ? tables.read : tables.write;
    unsigned char *backward = direction == 0 ? tables.write : tables.read;
    for (int i = 0; i < 256; ++i) {
        backward[i] = static_cast<unsigned char>(i);
    }
    for (int i = 0; i < 256; ++i) {
        forward[i] = t[i];
        backward[t[i]] = static_cast<unsigned char>(i);
    }
}

int set_table(FilesRecord &rec, int32_t h, Entry &entry, const char *name, const unsigned char *table,
              int32_t direction) {
    entry.table_name.reset();
    entry.tables.reset();
    if (name == nullptr) {
        return 1;
    }
    if (table == nullptr) {
        return raise_null_argument(rec, h, "gf_set_translation_table");
    }
    std::shared_ptr<Tables> tables;
    try {
        tables = std::make_shared<Tables>();
    } catch (const std::bad_alloc &) {
        return raise_memory(rec, h, "gf_set_translation_table", __LINE__);
    }
    if (!copy_text(entry.table_name, name)) {
        return raise_memory(rec, h, "gf_set_translation_table", __LINE__);
    }
    build(*tables, table, direction);
    entry.tables = std::move(tables);
    return 1;
}

int translate(int32_t h, void *buffer, int32_t count, bool reading, const char *function) {
    Entry *entry = checked_entry(h);
    if (entry == nullptr) {
        return 0;
    }
    if (count < 0) {
        return raise_bad_parameter(*state(), h, function, 3);
    }
    if (!entry->tables || count == 0) {
        return 1;
    }
    if (buffer == nullptr) {
        return raise_null_argument(*state(), h, function);
    }
    apply_table(reading ? entry->tables->read : entry->tables->write, buffer, static_cast<size_t>(count));
    return 1;
}

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_set_translation_table(int32_t h, const char *name, const unsigned char *table256,
                                    int32_t direction) {
    Entry *entry = checked_entry(h);
    return entry != nullptr ? set_table(*state(), h, *entry, name, table256, direction) : 0;
}

VQ_API int gf_copy_translation_tables(int32_t from, int32_t to) {
    Entry *source = checked_entry(from);
    if (source == nullptr) {
        return 0;
    }
    Entry *target = checked_entry(to);
    if (target == nullptr) {
        return 0;
    }
    if (source != target) {
        target->table_name.reset();
        target->tables = source->tables;
    }
    return 1;
}

VQ_API int gf_post_read_operations(int32_t h, void *buffer, int32_t count) {
    return translate(h, buffer, count, true, "gf_post_read_operations");
}

VQ_API int gf_pre_write_operations(int32_t h, void *buffer, int32_t count) {
    return translate(h, buffer, count, false, "gf_pre_write_operations");
}

}  // extern "C"
