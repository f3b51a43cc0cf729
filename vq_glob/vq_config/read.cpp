// Reading configuration text, from a file or from a memory buffer, into a
// handle. Both come down to one parser over a region of text: a file is read
// whole through the file layer first, a buffer is used where it lies (up to
// its NUL or its 0xFF end byte).
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <list>
#include <string_view>

#include "internal/whole_file.h"
#include "vq_config/conf_state.h"
#include "vq_config/crypt.h"
#include "vq_glob/gf.h"

namespace vq::conf {
namespace {

using ascii::is_blank;

// Leading blanks and tabs go; trailing blanks, tabs, line feeds and carriage
// returns go.
std::string_view trim(std::string_view line) {
    size_t first = 0;
    while (first < line.size() && is_blank(line[first])) {
        ++first;
    }
    size_t last = line.size();
    while (last > first && (is_blank(line[last - 1]) || line[last - 1] == '\n' || line[last - 1] == '\r')) {
        --last;
    }
    return line.substr(first, last - first);
}

// Walks the lines of a region of text, handing out views into the text
// itself: a line has no length limit and costs no copy, and every view stays
// valid while the text lives, that is for the whole parse. A NUL byte inside
// a line ends it, as it would end any C string built from it.
class LineReader {
public:
    explicit LineReader(std::string_view text) : text_(text) {}

    // The next trimmed line; false at the end of the text.
    bool next(std::string_view &line) {
        if (pushed_back_) {
            pushed_back_ = false;
            line = last_;
            return true;
        }
        if (pos_ >= text_.size()) {
            return false;
        }
        size_t end = text_.find('\n', pos_);
        size_t stop = end == std::string_view::npos ? text_.size() : end;
        std::string_view raw = text_.substr(pos_, stop - pos_);
        pos_ = end == std::string_view::npos ? text_.size() : end + 1;
        size_t nul = raw.find('\0');
        if (nul != std::string_view::npos) {
            raw = raw.substr(0, nul);
        }
        last_ = trim(raw);
        line = last_;
        return true;
    }
    // Gives the last line back, to be returned by the next call.
    void push_back() { pushed_back_ = true; }
    // The text after the last line read.
    std::string_view rest() const { return text_.substr(pos_); }

private:
    std::string_view text_;
    size_t pos_ = 0;
    std::string_view last_;
    bool pushed_back_ = false;
};

int general(const char *what, std::string_view detail) {
    std::string text(detail);
    err_set_error(ERR_CNF_GENERAL, what, text.c_str());
    return 0;
}

int bad_value(const Field &f, std::string_view value) {
    std::string text(value);
    err_set_error(ERR_CNF_VALUE, f.name().c_str(), text.c_str());
    err_add_error(ERR_CNF_READ, f.name().c_str());
    return 0;
}

bool parse_bool(std::string_view value, int32_t &out) {
    if (ascii::equal_nocase(value, "TRUE")) {
        out = 1;
        return true;
    }
    if (ascii::equal_nocase(value, "FALSE")) {
        out = 0;
        return true;
    }
    return false;
}

// What a field being read needs besides the lines: the handle and the
// section, whose keys decipher an encrypted field.
struct Place {
    Handle &h;
    Section &s;
};

// out = the plain text of a value read for f: deciphered when f is stored
// encrypted (an empty value stays empty). 0 with ERR_CNF_ENCRYPT + ERR_CNF_READ.
int plain_of(const Place &at, const Field &f, std::string_view text, std::string &out) {
    if ((f.flags & kFlagEncrypted) == 0 || text.empty()) {
        out.assign(text);
        return 1;
    }
    if (decrypt_text(field_key(at.h, at.s, f), f.name().c_str(), text, out) == 0) {
        err_add_error(ERR_CNF_READ, f.name().c_str());
        return 0;
    }
    return 1;
}

// The text an error message may show for a bad value: never the plain text
// of an encrypted field.
std::string_view shown(const Field &f, std::string_view stored, std::string_view plain) {
    return (f.flags & kFlagEncrypted) != 0 ? stored : plain;
}

// Reads the elements of a multi-line value up to the line marker + tag.
int read_block(LineReader &reader, const Place &at, Field &f, std::string_view tag) {
    std::string closing = std::string(marker_of(f.type)) + std::string(tag);
    std::vector<std::string> lines;
    std::vector<int32_t> numbers;
    std::string_view line;
    std::string plain;
    for (;;) {
        if (!reader.next(line)) {
            return general("unique string wasn't found for field ", f.name());
        }
        if (line == closing) {
            break;
        }
        if (plain_of(at, f, line, plain) == 0) {
            return 0;
        }
        if (f.type == CONF_TYPE_ML_TEXT) {
            lines.push_back(plain);
        } else if (f.type == CONF_TYPE_ML_INT) {
            numbers.push_back(text_to_int(plain));
        } else {
            int32_t flag = 0;
            if (!parse_bool(plain, flag)) {
                return bad_value(f, shown(f, line, plain));
            }
            numbers.push_back(flag);
        }
    }
    FieldExtra &extra = f.more();
    extra.lines = std::move(lines);
    extra.numbers = std::move(numbers);
    extra.view.clear();
    extra.tag.assign(tag);
    f.has_value = true;
    return 1;
}

// A field of unknown type takes its type from its value: a multi-line marker
// anywhere in it (integer, boolean, text, tested in that order; the tag is
// what follows the marker), or continuation lines after it (lines that are
// not empty, not headers and hold no "="), which make it multi-line text
// beginning with the value. Otherwise it keeps its text, still untyped: the
// value itself, which a NUL follows in the text the handle keeps.
int read_untyped(LineReader &reader, const Place &at, Field &f, std::string_view value) {
    static constexpr int32_t kOrder[] = {CONF_TYPE_ML_INT, CONF_TYPE_ML_BOOL, CONF_TYPE_ML_TEXT};
    // Every marker begins with '_': a value without one needs no search.
    bool may_hold_marker = value.find('_') != std::string_view::npos;
    for (int32_t type : kOrder) {
        const char *marker = marker_of(type);
        size_t found = may_hold_marker ? value.find(marker) : std::string_view::npos;
        if (found != std::string_view::npos) {
            f.type = type;
            f.clear_text();
            return read_block(reader, at, f, value.substr(found + std::strlen(marker)));
        }
    }
    std::string_view line;
    bool continued = false;
    std::vector<std::string> lines;
    while (reader.next(line)) {
        if (line.empty() || line.front() == '[' || line.find('=') != std::string_view::npos) {
            reader.push_back();
            break;
        }
        if (!continued) {
            lines.emplace_back(value);
            continued = true;
        }
        lines.emplace_back(line);
    }
    if (continued) {
        f.type = CONF_TYPE_ML_TEXT;
        f.clear_text();
        FieldExtra &extra = f.more();
        extra.lines = std::move(lines);
        extra.numbers.clear();
        extra.view.clear();
        extra.tag.clear();
    } else {
        f.refer_text(value);
    }
    f.has_value = true;
    return 1;
}

int read_scalar(const Place &at, Field &f, std::string_view value) {
    std::string plain;
    if (plain_of(at, f, value, plain) == 0) {
        return 0;
    }
    switch (f.type) {
        case CONF_TYPE_STRING:
            f.set_text(plain.empty() ? f.peek().default_text : plain);
            break;
        case CONF_TYPE_BIG_INT: {
            BigNumber big;
            if (!parse_big(plain.empty() ? std::string_view(f.peek().default_text) : std::string_view(plain), big)) {
                if (!plain.empty()) {
                    return bad_value(f, shown(f, value, plain));
                }
                big = BigNumber();  // a default that is no number counts as zero
            }
            f.more().big = std::move(big);
            break;
        }
        case CONF_TYPE_INT:
            f.number = plain.empty() ? f.peek().default_int : text_to_int(plain);
            break;
        default:  // boolean
            if (plain.empty()) {
                f.number = f.peek().default_int;
            } else if (!parse_bool(plain, f.number)) {
                return bad_value(f, shown(f, value, plain));
            }
            break;
    }
    f.has_value = true;
    return 1;
}

int read_value(LineReader &reader, const Place &at, Field &f, std::string_view value) {
    switch (f.type) {
        case CONF_TYPE_UNKNOWN:
            return read_untyped(reader, at, f, value);
        case CONF_TYPE_STRING:
        case CONF_TYPE_BIG_INT:
        case CONF_TYPE_INT:
        case CONF_TYPE_BOOL:
            return read_scalar(at, f, value);
        default: {
            std::string_view marker = marker_of(f.type);
            if (value.substr(0, marker.size()) != marker) {
                // An empty value of a multi-line field is its empty default.
                if (value.empty()) {
                    f.clear_lists();
                    f.has_value = true;
                    return 1;
                }
                return bad_value(f, value);
            }
            return read_block(reader, at, f, value.substr(marker.size()));
        }
    }
}

// Whether a table-only read leaves the section / the field (null: not in
// the handle yet) out. Before a table is bound nothing is left out.
bool section_skipped(const Handle &h, const Section *s) {
    return h.only_table_on_read && h.bound && (s == nullptr || !s->in_table);
}
bool field_skipped(const Handle &h, const Field *f) {
    return h.only_table_on_read && h.bound && (f == nullptr || !f->in_table);
}

// The header section gives the handle its version the first time it is read.
void take_version(Handle &h, Section *s) {
    if (s == nullptr || h.version_taken || s->name() != kHeaderSection) {
        return;
    }
    Field *f = s->fields.find(kVersionField);
    if (f == nullptr) {
        return;
    }
    h.version = f->type == CONF_TYPE_INT ? f->number : text_to_int(f->text());
    h.version_taken = true;
}

// How many fields the text may hold before the next section header at
// most: its lines that hold a "=", but no more than one per 32 bytes of the
// text, so that a text of short lines repeating one name cannot make the
// index many times larger than the text (an index grown field by field
// holds the rest).
size_t fields_ahead(std::string_view text) {
    size_t count = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        std::string_view line = text.substr(pos, end == std::string_view::npos ? std::string_view::npos : end - pos);
        size_t first = line.find_first_not_of(" \t");
        if (first != std::string_view::npos && line[first] == '[') {
            break;
        }
        count += line.find('=') != std::string_view::npos ? 1 : 0;
        pos = end == std::string_view::npos ? text.size() : end + 1;
    }
    return std::min(count, pos / 32);
}

// Ends a name or a value read from text the handle keeps with a NUL, at the
// byte after it: the '=' after a name, or what trimming left out after a
// value (a blank, the line's end, or the NUL after the text), which the
// reader has passed already.
void terminate(std::string_view part) { const_cast<char *>(part.data())[part.size()] = '\0'; }

// Parses text the handle keeps (see SectionList::kept), which a NUL follows;
// fields refer to their names and values in it.
int parse(Handle &h, std::string_view text) {
    LineReader reader(text);
    Section *section = nullptr;
    bool skipping = false;  // inside a section a table-only read leaves out
    std::string_view line;
    while (reader.next(line)) {
        if (line.empty()) {
            continue;
        }
        if (line.front() == '[') {
            size_t close = line.find(']');
            take_version(h, section);
            if (close == std::string_view::npos) {
                return general("bad section name:", line.substr(1));
            }
            std::string_view name = line.substr(1, close - 1);
            skipping = section_skipped(h, h.sections.find(name));
            section = skipping ? nullptr : &h.sections.find_or_append(name);
            if (section != nullptr) {
                section->met = true;
                section->fields.reserve(fields_ahead(reader.rest()));
            }
            continue;
        }
        if (skipping) {
            continue;
        }
        if (section == nullptr) {
            return general("found an illegal line in file:", line);
        }
        size_t eq = line.find('=');
        if (eq == std::string_view::npos) {
            continue;
        }
        std::string_view value = line.substr(eq + 1);
        std::string_view name = line.substr(0, eq);
        terminate(name);
        terminate(value);
        Place at{h, *section};
        size_t hash = NamedList<Field>::hash_of(name);
        Field *found = section->fields.find(name, hash);
        if (field_skipped(h, found)) {
            // Read into a field nobody keeps, so that a multi-line value is
            // left out whole.
            Field unknown;
            unknown.refer_name(name);
            if (read_value(reader, at, unknown, value) == 0) {
                take_version(h, section);
                return 0;
            }
            continue;
        }
        Field &f = found != nullptr
                       ? *found
                       : section->fields.append_named(hash, [name](Field &added) { added.refer_name(name); });
        f.met = true;
        if (read_value(reader, at, f, value) == 0) {
            take_version(h, section);
            return 0;
        }
    }
    take_version(h, section);
    return 1;
}

// Copies what fields still refer to in the texts kept so far into one
// text, which replaces them: a handle read again keeps the live bytes of
// its earlier reads, not every text it ever read. Throws bad_alloc before
// anything changes.
void compact_kept(Handle &h) {
    if (h.sections.kept.empty()) {
        return;
    }
    size_t live = 0;
    for (Section &s : h.sections) {
        for (Field &f : s.fields) {
            live += f.viewed_bytes();
        }
    }
    std::list<std::string> packed;
    if (live != 0) {
        char *to = packed.emplace_back(live, '\0').data();
        for (Section &s : h.sections) {
            for (Field &f : s.fields) {
                to = f.move_views(to);
            }
        }
    }
    h.sections.kept.swap(packed);
}

// Makes room for one more text in the handle: a text of its own after the
// earlier ones are compacted. The caller fills it and pops it again when it
// is never parsed. Throws bad_alloc.
std::string &new_kept_text(Handle &h) {
    compact_kept(h);
    return h.sections.kept.emplace_back();
}

// Parses the last text the handle kept.
int guarded_parse(Handle &h, const char *function) {
    try {
        return parse(h, h.sections.kept.back());
    } catch (const std::bad_alloc &) {
        return raise::memory(Report::fresh, function, kModule, __LINE__);
    }
}

// Reads the whole file into out. The read goes through the platform's
// whole-file read rather than a file-layer handle: that opens without
// blocking (a fifo with no writer would hang a plain open for ever), refuses
// anything but a regular file before reading a byte (/dev/zero would
// otherwise fill memory), and stops past CONF_MAX_FILE_SIZE bytes. 0 with
// the system's or the refusal's text and ERR_CNF_FILE_8202 (the file could
// not be opened, or is no regular file) / ERR_CNF_FILE_8203 on the stack.
int read_whole_file(const char *file_name, std::string &out) {
    int32_t error = 0;
    PlatWholeRead how = plat_read_regular_file(file_name, CONF_MAX_FILE_SIZE, out, &error);
    if (how == PlatWholeRead::ok) {
        return 1;
    }
    whole_file::raise_refusal(how, file_name, CONF_MAX_FILE_SIZE, error);
    bool unopened = how == PlatWholeRead::open_failed || how == PlatWholeRead::not_regular;
    err_add_error(unopened ? ERR_CNF_FILE_8202 : ERR_CNF_FILE_8203, file_name);
    return 0;
}

int read_file(Handle &h, const char *file_name) {
    int status = 0;
    try {
        status = read_whole_file(file_name, new_kept_text(h));
        if (status != 0 && h.sections.kept.back().empty()) {
            err_set_error(ERR_CNF_EMPTY);
            status = 0;
        }
        if (status != 0) {
            h.file_name = file_name;
        }
    } catch (const std::bad_alloc &) {
        status = raise::memory(Report::fresh, "conf_read_file_to_handle", kModule, __LINE__);
    }
    if (status == 0) {
        if (!h.sections.kept.empty() && h.sections.kept.back().empty()) {
            h.sections.kept.pop_back();
        }
        return 0;
    }
    return guarded_parse(h, "conf_read_file_to_handle");
}

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_read_file_to_handle(void *vh, const char *file_name) {
    Handle *h = handle_and_argument(vh, file_name, "conf_read_file_to_handle", "file_name");
    if (h == nullptr) {
        return 0;
    }
    Guard guard(h, __LINE__);
    vq::debug::trace_bit(kTraceBit, "conf_read_file_to_handle() - reading <%s>\n", file_name);
    if (!h->lock_use) {
        return read_file(*h, file_name);
    }
    std::string lock = std::string(file_name) + ".lock";
    vq::debug::trace_bit(kTraceBit, "read - lock file is <%s>\n", lock.c_str());
    if (gf_lock_wait_file(lock.c_str(), kLockTimeoutMs) == 0) {
        err_add_error(ERR_CNF_GENERAL, "failed in gf_lock_wait_file", lock.c_str());
        return 0;
    }
    int status = read_file(*h, file_name);
    if (gf_unlock_file(lock.c_str()) == 0 && status != 0) {
        return 0;
    }
    return status;
}

VQ_API int conf_read_buffer_to_handle(void *vh, const char *buffer) {
    Handle *h = handle_and_argument(vh, buffer, "conf_read_buffer_to_handle", "buffer");
    if (h == nullptr) {
        return 0;
    }
    Guard guard(h, __LINE__);
    size_t n = 0;
    while (buffer[n] != '\0' && static_cast<unsigned char>(buffer[n]) != 0xFF) {
        ++n;
    }
    try {
        new_kept_text(*h).assign(buffer, n);
    } catch (const std::bad_alloc &) {
        return vq::raise::memory(vq::raise::Report::fresh, "conf_read_buffer_to_handle", kModule, __LINE__);
    }
    return guarded_parse(*h, "conf_read_buffer_to_handle");
}

}  // extern "C"
