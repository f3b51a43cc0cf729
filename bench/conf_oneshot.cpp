// One configuration read, as a program does it at start-up: a fresh process
// reads one file once, on a cold heap, checks a sample of the values it read,
// frees what it read and exits. conf_oneshot_bench runs it as a child process,
// alternately with each reader, and times the whole process.
//
//   conf_oneshot vq_glob|gkeyfile FILE SECTIONS FIELDS VALUE_PAD
//
// The file holds SECTIONS sections "section<s>" of FIELDS fields
// "field<f>=value <f> of section <s>, some text" followed by VALUE_PAD 'x'
// characters (conf_oneshot_bench writes it). Exit status 0: every sampled
// value was read as written; 2: bad arguments; 3: the read failed; 4: a
// sampled value was missing or different.
#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vq_glob/conf.h"

namespace {

// The value the file holds for field f of section s.
std::string expected_value(int s, int f, int pad) {
    char head[96];
    std::snprintf(head, sizeof head, "value %d of section %d, some text", f, s);
    return std::string(head) + std::string(static_cast<size_t>(pad), 'x');
}

// The sample: the first and last field of the first and last section, and
// about a hundred spread over the rest.
template <typename Check>
bool check_sample(int sections, int fields, Check check) {
    long total = static_cast<long>(sections) * fields;
    long step = total / 97 + 1;
    for (long i = 0; i < total; i += step) {
        if (!check(static_cast<int>(i / fields), static_cast<int>(i % fields))) {
            return false;
        }
    }
    return check(0, 0) && check(sections - 1, fields - 1);
}

void names_of(int s, int f, char (&section)[32], char (&field)[32]) {
    std::snprintf(section, sizeof section, "section%d", s);
    std::snprintf(field, sizeof field, "field%d", f);
}

int run_ours(const char *path, int sections, int fields, int pad) {
    void *h = nullptr;
    if (conf_allocate_handle(&h) == 0 || conf_read_file_to_handle(h, path) == 0) {
        conf_free_handle(&h);
        return 3;
    }
    bool same = check_sample(sections, fields, [&](int s, int f) {
        char section[32], field[32];
        names_of(s, f, section, field);
        char *value = nullptr;
        return conf_get_string_field(h, section, field, &value) == 1 && value != nullptr &&
               expected_value(s, f, pad) == value;
    });
    conf_free_handle(&h);
    return same ? 0 : 4;
}

int run_gkeyfile(const char *path, int sections, int fields, int pad) {
    GKeyFile *kf = g_key_file_new();
    if (!g_key_file_load_from_file(kf, path, G_KEY_FILE_NONE, nullptr)) {
        g_key_file_free(kf);
        return 3;
    }
    bool same = check_sample(sections, fields, [&](int s, int f) {
        char section[32], field[32];
        names_of(s, f, section, field);
        gchar *value = g_key_file_get_value(kf, section, field, nullptr);
        bool equal = value != nullptr && expected_value(s, f, pad) == value;
        g_free(value);
        return equal;
    });
    g_key_file_free(kf);
    return same ? 0 : 4;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: %s vq_glob|gkeyfile FILE SECTIONS FIELDS VALUE_PAD\n", argv[0]);
        return 2;
    }
    int sections = std::atoi(argv[3]);
    int fields = std::atoi(argv[4]);
    int pad = std::atoi(argv[5]);
    if (sections < 1 || fields < 1 || pad < 0) {
        return 2;
    }
    if (std::strcmp(argv[1], "vq_glob") == 0) {
        return run_ours(argv[2], sections, fields, pad);
    }
    if (std::strcmp(argv[1], "gkeyfile") == 0) {
        return run_gkeyfile(argv[2], sections, fields, pad);
    }
    return 2;
}
